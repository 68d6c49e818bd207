// SPDX-License-Identifier: MIT
#include "look/diagnosis.h"

#include <dirent.h>

#include <cstring>

#include <vexadm/storage.h>

#include "base/value.h"

namespace cli::look {
namespace {

constexpr char kRepair[] = "stop the router's programs, then: vexadm repair";

bool read_file(const Text& path, ItemFile& out) {
  out.report = inspect(path.c_str());
  if (!out.report.schema_read) return false;
  Database database;
  Text why;
  if (database.open(path.c_str()) == SQLITE_OK) out.whole = read_items(database, out.items, why);
  return true;
}

Text name_of(const Item& item) {
  Text text;
  add_name(text, item.table.view());
  text.add(' ');
  add_name(text, item.key.view());
  return text;
}

// "wifi ssid, wifi channel and 3 more"
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

class Doctor {
 public:
  Doctor(const Places& places, Diagnosis& out) : places_(places), out_(out) {}

  void run() {
    read_file(places_.primary, out_.primary);
    read_file(places_.backup, out_.backup);
    read_file(places_.defaults, out_.defaults);
    read_file(places_.factory, out_.factory);
    out_.journal = inspect(places_.journal.c_str());
    out_.last_write = read_journal(places_.journal.c_str());

    look_at_primary();
    look_at_backup();
    look_at_factory();
    compare();
    look_at_rows(out_.backup, "backup");
    look_at_rows(out_.primary, "primary");
    look_at_journal();
    look_at_versions();
    look_at_defaults();
    look_at_open_transactions();
    look_at_leftovers();
  }

 private:
  Finding& add(bool fault, Text what) {
    Finding& finding = out_.findings.push({});
    finding.fault = fault;
    finding.what = std::move(what);
    return finding;
  }
  Finding& fault(Text what) { return add(true, std::move(what)); }
  Finding& remark(Text what) { return add(false, std::move(what)); }

  bool is_empty(const ItemFile& file) const {
    return file.report.health == Health::kMissing || (file.healthy() && !file.has_rows());
  }

  // What the library would copy over a primary that it finds corrupt.
  Text source_of_a_repair() const {
    if (out_.backup.healthy()) return Text("copies the backup over it");
    if (out_.factory.healthy())
      return Text("copies the factory copy over it: what was set since production is gone");
    return Text("nothing, as neither backup nor factory copy is healthy");
  }

  // Files that somebody else has to make readable first.
  bool unreadable(const char* name, const Text& path, const FileReport& report) {
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

  void look_at_primary() {
    const FileReport& report = out_.primary.report;
    if (unreadable("primary", places_.primary, report)) return;
    if (is_empty(out_.primary)) {
      if (is_empty(out_.backup)) {
        Finding& finding =
            remark(Text("The store is empty: a fresh unit, or a cleaned one. Every item is at its default."));
        finding.next_start = Text("makes primary and backup with nothing in them but their version");
        if (count_dated() > 0) finding.person = Text("what was there before a clean: vexadm backups");
      } else if (out_.backup.healthy()) {
        Finding& finding = fault(Text(
            "The primary is missing or empty, and the backup is there. Programs still read the backup."));
        finding.write_loses = true;
        finding.next_start = Text(
            "nothing; but the first write makes a primary of that one item and copies it over "
            "the backup, and every other item is lost");
        finding.person = Text(kRepair);
      }
      return;
    }
    switch (report.health) {
      case Health::kCorrupt:
        if (report.schema_read) {
          Finding& finding = fault(textf("The primary is damaged: %s.", report.why.c_str()));
          finding.next_start = Text(
              "nothing, as its tables can still be named. Programs read the backup, and no "
              "write reaches that any more");
          finding.person = Text(kRepair);
        } else {
          Finding& finding = fault(textf("The primary is corrupt: %s.", report.why.c_str()));
          finding.next_start = source_of_a_repair();
          finding.person = Text(kRepair);
        }
        break;
      case Health::kNotDatabase: {
        Finding& finding =
            fault(Text("The primary is no database any more: its first bytes are something else."));
        finding.next_start = Text(
            "nothing: the library mends what is corrupt, not this. Programs read the backup; "
            "every write fails");
        finding.person = Text(kRepair);
        break;
      }
      default:
        break;
    }
  }

  void look_at_backup() {
    const FileReport& report = out_.backup.report;
    if (unreadable("backup", places_.backup, report)) return;
    if (is_empty(out_.backup)) {
      if (is_empty(out_.primary) || !out_.primary.healthy()) return;
      Finding& finding = fault(
          Text("The backup is missing or empty. Programs read it, and so get defaults for every item."));
      finding.next_start = Text("copies the primary to it");
      return;
    }
    if (report.health == Health::kNotDatabase) {
      Finding& finding = fault(
          Text("The backup is no database any more. Programs read it, and so get defaults for every item."));
      finding.next_start = out_.primary.healthy() ? Text("copies the primary over it") : Text();
      if (!out_.primary.healthy()) finding.person = Text(kRepair);
    } else if (report.health == Health::kCorrupt && report.schema_read) {
      Finding& finding = fault(textf(
          "The backup is damaged: %s. Programs get defaults for what cannot be read.", report.why.c_str()));
      finding.next_start = Text("nothing; the next write of any item copies the primary over it");
      finding.person = Text(kRepair);
    } else if (report.health == Health::kCorrupt) {
      corrupt_backup();
    }
  }

  // The library takes a corrupt file that it reads for the primary.
  void corrupt_backup() {
    Finding& finding =
        fault(textf("The backup is corrupt: %s. Programs read it, and so get defaults for every item.",
                    out_.backup.report.why.c_str()));
    finding.person = Text(kRepair);
    if (!out_.primary.healthy() || is_empty(out_.primary)) return;
    if (out_.factory.healthy()) {
      finding.write_loses = true;
      finding.next_start = Text(
          "copies the factory copy over the primary, although that is healthy: what was set "
          "since production is gone. Do not start a program before the repair");
    } else {
      // It finds no version there, and writes one, as any item.
      finding.next_start = Text("copies the primary over it");
    }
  }

  void look_at_factory() {
    if (out_.factory.report.health == Health::kMissing || out_.factory.healthy()) return;
    Finding& finding = fault(textf("The factory copy %s is %s: the last source of a repair is gone.",
                                   places_.factory.c_str(), health_name(out_.factory.report.health)));
    finding.person = Text("put the factory copy of this model there again");
  }

  // ---- primary and backup --------------------------------------------------

  const Item* in(const ItemFile& file, const Item& item) const {
    return find_exact(file.items, item.table.view(), item.key.view());
  }

  void compare() {
    if (!out_.primary.whole || !out_.backup.whole || is_empty(out_.primary) || is_empty(out_.backup)) return;
    List<const Item*> ahead;
    List<const Item*> only_backup;
    for (const Item& item : out_.primary.items) {
      if (is_version_record(item) || in(out_.primary, item) != &item) continue;
      const Item* there = in(out_.backup, item);
      if (there == nullptr || there->value.view() != item.value.view() || there->type != item.type)
        ahead.push(&item);
    }
    for (const Item& item : out_.backup.items) {
      if (!is_version_record(item) && in(out_.primary, item) == nullptr) only_backup.push(&item);
    }
    if (!ahead.empty()) tell_ahead(ahead);
    if (only_backup.empty()) return;
    Finding& finding = fault(textf("Only the backup has %s.", names_of(only_backup).c_str()));
    finding.write_loses = true;
    finding.next_start =
        Text("nothing; the next write of any item copies the primary over the backup, and they are lost");
    finding.person = Text("keep them: vexadm dump > FILE, then vexadm load --force FILE");
  }

  bool is_last_write(const Item& item) const {
    const JournalRow& row = out_.last_write;
    return row.found && row.key.view() == item.key.view() && same_table(row.table.view(), item.table.view());
  }

  void tell_ahead(const List<const Item*>& ahead) {
    const JournalRow& row = out_.last_write;
    const bool just_that = ahead.size() == 1 && is_last_write(*ahead[0]);
    if (just_that && row.state == WS_READY) {
      cut_write_told_ = true;
      Finding& finding =
          remark(textf("A write of %s was cut before it was complete: the primary has the new value, "
                       "programs read the old one. Nobody was told that it was stored.",
                       name_of(*ahead[0]).c_str()));
      finding.next_start = Text("nothing; the next write of any item brings the new value");
      finding.person = textf("decide which it shall be: vexadm diff %s %s shows both, vexadm set stores one",
                             places_.backup.c_str(), places_.primary.c_str());
      return;
    }
    if (just_that && row.state == WS_WRITE_DONE) {
      cut_write_told_ = true;
      Finding& finding =
          remark(textf("A write of %s was cut after the primary had it.", name_of(*ahead[0]).c_str()));
      finding.next_start = Text("copies that item to the backup");
      return;
    }
    Finding& finding =
        fault(textf("The backup is stale: the primary has other values of %s. Programs read the old ones.",
                    names_of(ahead).c_str()));
    finding.next_start = Text("nothing; the next write of any item copies the primary over the backup");
    finding.person = textf("vexadm diff %s %s shows them; vexadm repair copies the primary over the backup",
                           places_.backup.c_str(), places_.primary.c_str());
  }

  // ---- rows ----------------------------------------------------------------

  bool good_elsewhere(const Item& item, const ItemFile& other) const {
    const Item* there = in(other, item);
    return other.whole && there != nullptr && there->verdict == Verdict::kGood;
  }

  void look_at_rows(const ItemFile& file, const char* name) {
    const bool is_backup = &file == &out_.backup;
    const ItemFile& other = is_backup ? out_.primary : out_.backup;
    List<const Item*> lost;
    List<const Item*> saved;
    List<const Item*> hidden;
    List<const Item*> odd;
    for (const Item& item : file.items) {
      if (in(file, item) != &item) {
        hidden.push(&item);
        continue;
      }
      if (item.verdict == Verdict::kBad) (good_elsewhere(item, other) ? saved : lost).push(&item);
      const bool wrong_size = number_size(item.type) != 0 && item.verdict == Verdict::kGood &&
                              number_size(item.type) != item.value.size();
      if (item.length != static_cast<int64_t>(item.value.size()) || wrong_size) odd.push(&item);
    }
    tell_bad(lost, saved, name, is_backup);
    if (!hidden.empty()) {
      remark(textf("The %s has a second row of %s; the first one counts.", name, names_of(hidden).c_str()));
    }
    if (!odd.empty()) {
      remark(textf("The %s has rows whose length is not what they say or what their type takes: %s.", name,
                   names_of(odd).c_str()));
    }
  }

  void tell_bad(const List<const Item*>& lost, const List<const Item*>& saved, const char* name,
                bool is_backup) {
    if (!lost.empty()) {
      Finding& finding = fault(textf("In the %s the checksum of %s is bad%s.", name, names_of(lost).c_str(),
                                     is_backup ? ": programs get the default" : ""));
      finding.next_start = Text("nothing; a program that writes the item mends it");
      finding.person =
          Text("vexadm get --file primary shows the bytes that are left; vexadm set stores it anew");
    }
    if (saved.empty()) return;
    if (is_backup) {
      Finding& finding =
          fault(textf("In the backup the checksum of %s is bad: programs get the default. The primary "
                      "has it.",
                      names_of(saved).c_str()));
      finding.next_start = Text("nothing; the next write of any item copies the primary over the backup");
      finding.person = Text(kRepair);
    } else {
      Finding& finding =
          fault(textf("In the primary the checksum of %s is bad. The backup has it, until the next write "
                      "of any item copies the primary over that.",
                      names_of(saved).c_str()));
      finding.write_loses = true;
      finding.next_start = Text("nothing");
      finding.person = Text("keep it: vexadm dump > FILE, then vexadm load --force FILE");
    }
  }

  // ---- journal, versions, defaults -----------------------------------------

  void look_at_journal() {
    const FileReport& report = out_.journal;
    if (report.health == Health::kMissing || unreadable("journal", places_.journal, report)) return;
    if (report.health == Health::kNotDatabase ||
        (report.health == Health::kCorrupt && !out_.last_write.found)) {
      Finding& finding =
          fault(textf("The journal is %s: a write that is cut cannot be finished. Nothing replaces it.",
                      health_name(report.health)));
      finding.next_start = Text("nothing; each write says that its journal failed");
      finding.person = Text(kRepair);
      return;
    }
    const JournalRow& row = out_.last_write;
    if (!row.found || row.state == WS_BACKUP_DONE) return;
    if (row.state != WS_READY && row.state != WS_WRITE_DONE) {
      fault(textf("The journal is at state %lld, which the library never writes.",
                  static_cast<long long>(row.state)));
      return;
    }
    if (!cut_write_told_) tell_cut_write(row);
  }

  void tell_cut_write(const JournalRow& row) {
    Item item;
    item.table = Text(row.table.view());
    item.key = Text(row.key.view());
    const Text name = name_of(item);
    if (!out_.primary.whole || !out_.backup.whole) {
      remark(textf("The last write, of %s, was cut (%s). What of it the unreadable file has cannot be seen.",
                   name.c_str(), state_name(row.state)))
          .person = textf("the value that is left: vexadm get %s; ask what it should be", name.c_str());
      return;
    }
    if (row.state == WS_WRITE_DONE) {
      remark(textf("The journal says that the write of %s was cut at its end.", name.c_str())).next_start =
          Text("copies the item to the backup, and leaves the journal as it is until the next write");
      return;
    }
    remark(textf(
        "The journal says that a write of %s was cut, before it had changed the primary or after it had "
        "changed both.",
        name.c_str()));
  }

  static const Item* version_in(const ItemFile& file) { return find(file.items, kVersionTable, kVersionKey); }

  void check_version(const ItemFile& file, const char* name) {
    if (!file.whole || !file.has_rows()) return;
    const Item* record = version_in(file);
    if (record == nullptr) {
      Finding& finding = remark(textf("The %s has no version record.", name));
      finding.next_start = Text("where the table of it is missing too, writes one");
      return;
    }
    const uint32_t version = number_of(record->value.view());
    if (record->value.size() == 4 && version == VEXA_SCHEMA_VERSION) return;
    Finding& finding =
        remark(textf("The %s was written for version %08x; this library is for %08x. It is used as it is.",
                     name, version, VEXA_SCHEMA_VERSION));
    finding.next_start =
        Text("finishes no cut write, and takes defaults from the programs instead of the storage");
  }

  void look_at_versions() {
    check_version(out_.primary, "primary");
    check_version(out_.backup, "backup");
  }

  void look_at_defaults() {
    const FileReport& report = out_.defaults.report;
    if (report.health == Health::kMissing || unreadable("file of stored defaults", places_.defaults, report))
      return;
    if (report.health != Health::kHealthy) {
      Finding& finding = fault(textf("The stored defaults are %s: programs use those they are compiled with.",
                                     health_name(report.health)));
      finding.person =
          textf("delete %s; a program that constructs defaults makes it anew", places_.defaults.c_str());
      return;
    }
    check_version(out_.defaults, "file of stored defaults");
  }

  // ---- what lies beside ----------------------------------------------------

  void look_at_open_transactions() {
    const struct {
      const char* name;
      const FileReport& report;
    } files[] = {{"primary", out_.primary.report},
                 {"backup", out_.backup.report},
                 {"journal", out_.journal},
                 {"file of stored defaults", out_.defaults.report}};
    for (const auto& [name, report] : files) {
      if (!report.hot_journal) continue;
      Finding& finding =
          remark(textf("The %s has a rollback journal beside it: a transaction was cut, or is running. "
                       "What is shown here is without it.",
                       name));
      finding.next_start = Text("SQLite rolls it back, by itself");
    }
  }

  std::size_t count_dated() const {
    std::size_t count = 0;
    DIR* directory = opendir(places_.dated.c_str());
    while (const dirent* entry = directory != nullptr ? readdir(directory) : nullptr) {
      if (std::strstr(entry->d_name, ".db") != nullptr) ++count;
    }
    if (directory != nullptr) closedir(directory);
    return count;
  }

  static Text directory_of(const Text& path) {
    const std::size_t slash = path.view().rfind('/');
    return slash == std::string_view::npos ? Text(".") : Text(part(path.view(), 0, slash + 1));
  }

  void look_at_leftovers() {
    const Text first = directory_of(places_.primary);
    const Text second = directory_of(places_.backup);
    look_for_copies(first);
    if (second.view() != first.view()) look_for_copies(second);
    if (const std::size_t count = count_dated(); count > 3) {
      remark(textf("%s has %zu files with .db in their names, and cleans count on three copies at most.",
                   places_.dated.c_str(), count))
          .person = Text("move what is no dated copy elsewhere");
    }
  }

  void look_for_copies(const Text& path) {
    DIR* directory = opendir(path.c_str());
    while (const dirent* entry = directory != nullptr ? readdir(directory) : nullptr) {
      if (std::strncmp(entry->d_name, ".vexadm-copy-", 13) != 0) continue;
      Finding& finding = remark(textf("%s%s is a copy that is being made, or that was cut. It does no harm.",
                                      path.c_str(), entry->d_name));
      finding.person = Text("may be deleted while no program runs");
    }
    if (directory != nullptr) closedir(directory);
  }

  const Places& places_;
  Diagnosis& out_;
  bool cut_write_told_ = false;
};

}  // namespace

Diagnosis diagnose(const Places& places) {
  Diagnosis diagnosis;
  Doctor(places, diagnosis).run();
  return diagnosis;
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
