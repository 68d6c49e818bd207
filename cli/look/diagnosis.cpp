// SPDX-License-Identifier: MIT
#include "look/diagnosis.h"

#include "base/value.h"
#include "look/doctor.h"
#include "look/mark.h"

namespace cli::look {
namespace {

void read_file(const Text& path, ItemFile& out) {
  out.report = inspect(path.c_str());
  if (!out.report.schema_read) return;
  Database database;
  Text why;
  if (database.open(path.c_str()) == SQLITE_OK) out.whole = read_items(database, out.items, why);
}

}  // namespace

Text name_of(const Item& item) {
  Text text;
  add_name(text, item.table.view());
  text.add(' ');
  add_name(text, item.key.view());
  return text;
}

Text names_of(const List<const Item*>& items) {
  constexpr std::size_t kMostNamed = 4;
  Text text;
  for (std::size_t i = 0; i < items.size() && i < kMostNamed; ++i) {
    if (i > 0) text.add(", ");
    text.add(name_of(*items[i]).view());
  }
  if (items.size() > kMostNamed) text.addf(" and %zu more", items.size() - kMostNamed);
  return text;
}

Finding& Doctor::fault(Text what) {
  Finding& finding = remark(std::move(what));
  finding.fault = true;
  return finding;
}

Finding& Doctor::remark(Text what) {
  Finding& finding = out_.findings.push({});
  finding.what = std::move(what);
  return finding;
}

bool Doctor::unreadable(const char* name, const Text& path, const FileReport& report) {
  if (report.health == Health::kWriteAhead) {
    Finding& finding =
        fault(textf("The %s is in write-ahead mode, which only another program can have set; it "
                    "cannot be shown without changing it.",
                    name));
    finding.person =
        textf("sqlite3 %s \"pragma journal_mode=delete\", on the unit or on a copy", path.c_str());
    return true;
  }
  if (report.health != Health::kUnreadable) return false;
  Finding& finding = fault(textf("The %s cannot be read: %s.", name, report.why.c_str()));
  finding.person = Text("look again as a user who may read it, or when no program holds it");
  return true;
}

namespace {

Diagnosis diagnose_once(const Places& places) {
  Diagnosis diagnosis;
  read_file(places.primary, diagnosis.primary);
  read_file(places.backup, diagnosis.backup);
  read_file(places.defaults, diagnosis.defaults);
  read_file(places.factory, diagnosis.factory);
  diagnosis.journal = inspect(places.journal.c_str());
  diagnosis.last_write = read_journal(places.journal.c_str());
  look_at_files(places, diagnosis);
  look_at_items(places, diagnosis);
  look_at_records(places, diagnosis);
  return diagnosis;
}

struct Marks {
  Mark primary;
  Mark backup;
  Mark journal;
  explicit Marks(const Places& places)
      : primary(mark_of(places.primary.c_str())),
        backup(mark_of(places.backup.c_str())),
        journal(mark_of(places.journal.c_str())) {}
  bool operator==(const Marks&) const = default;
};

}  // namespace

Diagnosis diagnose(const Places& places) {
  // The files belong together only while no program writes: one that does is given the time to finish.
  constexpr int kMostLooks = 20;
  for (int look = 1;; ++look) {
    const Marks before(places);
    Diagnosis diagnosis = diagnose_once(places);
    if (look == kMostLooks || before == Marks(places)) return diagnosis;
  }
}

const char* health_name(Health health) {
  switch (health) {
    case Health::kMissing:
      return "not there";
    case Health::kHealthy:
      return "healthy";
    case Health::kCorrupt:
      return "corrupt";
    case Health::kNotDatabase:
      return "no database";
    case Health::kWriteAhead:
      return "in write-ahead mode";
    case Health::kUnreadable:
      return "unreadable";
  }
  return "";
}

}  // namespace cli::look
