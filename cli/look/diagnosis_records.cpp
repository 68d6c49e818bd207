// SPDX-License-Identifier: MIT
// What a store says about itself, and what lies beside it.
#include <dirent.h>

#include <vexadm/storage.h>

#include "base/value.h"
#include "look/doctor.h"

namespace cli::look {
namespace {

class RecordDoctor : Doctor {
 public:
  RecordDoctor(const Places& places, Diagnosis& out) : Doctor(places, out) {}

  void run() {
    look_at_journal();
    look_at_versions();
    look_at_defaults();
    look_at_open_transactions();
    look_at_leftovers();
  }

 private:
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
    if (!out_.cut_write_told) tell_cut_write(row);
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

  static bool has_this_version(const ItemFile& file) {
    const Item* record = version_in(file);
    return record != nullptr && record->value.size() == 4 &&
           number_of(record->value.view()) == VEXA_SCHEMA_VERSION;
  }

  // What the library does about each: nullptr is nothing.
  void check_version(const ItemFile& file, const char* name, const char* about_another,
                     const char* about_none) {
    if (!file.whole || !file.has_rows() || has_this_version(file)) return;
    const Item* record = version_in(file);
    Finding& finding =
        record == nullptr
            ? remark(textf("The %s has no version record.", name))
            : remark(
                  textf("The %s was written for version %08x; this library is for %08x. It is used as it is.",
                        name, number_of(record->value.view()), VEXA_SCHEMA_VERSION));
    const char* const about = record == nullptr ? about_none : about_another;
    if (about != nullptr) finding.next_start = Text(std::string_view(about));
  }

  // The version that counts is the backup's, as with every item.
  void look_at_versions() {
    check_version(out_.primary, "primary", nullptr, nullptr);
    check_version(out_.backup, "backup",
                  "finishes no cut write, and takes defaults from the programs instead of the storage",
                  "writes one into both files where the table of it is missing too; else finishes no cut "
                  "write, and takes defaults from the programs instead of the storage");
    check_version(out_.factory, "factory copy", nullptr, nullptr);
  }

  void look_at_defaults() {
    static constexpr char kIgnores[] = "takes defaults from the programs instead of the storage";
    const FileReport& report = out_.defaults.report;
    if (report.health == Health::kMissing || unreadable("file of stored defaults", places_.defaults, report))
      return;
    if (report.health != Health::kHealthy) {
      // They are the product's own, where they and the items have this version: a program does not put
      // its own in place of those that are lost.
      const bool count = has_this_version(out_.defaults) &&
                         (version_in(out_.backup) == nullptr || has_this_version(out_.backup));
      const char* const then = count ? "items whose default cannot be read have none"
                                     : "programs use those they are compiled with";
      Finding& finding = fault(textf("The stored defaults are %s: %s.", health_name(report.health), then));
      finding.person =
          textf("delete %s; a program that constructs defaults makes it anew", places_.defaults.c_str());
      return;
    }
    check_version(out_.defaults, "file of stored defaults", kIgnores, kIgnores);
  }

  void look_at_open_transactions() {
    const struct {
      const char* name;
      const FileReport& report;
    } files[] = {{"primary", out_.primary.report},
                 {"backup", out_.backup.report},
                 {"journal", out_.journal},
                 {"file of stored defaults", out_.defaults.report},
                 {"factory copy", out_.factory.report}};
    for (const auto& [name, report] : files) {
      if (!report.hot_journal) continue;
      Finding& finding =
          remark(textf("The %s has a rollback journal beside it: a transaction was cut, or is running. "
                       "What is shown here is without it.",
                       name));
      finding.next_start = Text("SQLite rolls it back, by itself");
    }
  }

  void look_at_leftovers() {
    const Text first = directory_of(places_.primary);
    const Text second = directory_of(places_.backup);
    look_for_copies(first);
    if (second.view() != first.view()) look_for_copies(second);
    look_for_logs(places_.primary, out_.primary.report);
    look_for_logs(places_.backup, out_.backup.report);
    look_for_logs(places_.journal, out_.journal);
    if (const std::size_t count = dated_copies(places_).size(); count > 3) {
      remark(textf("%s has %zu files with .db in their names, and cleans count on three copies at most.",
                   places_.dated.c_str(), count))
          .person = Text("move what is no dated copy elsewhere");
    }
  }

  // Of a write-ahead mode that the file is not in: another program's.
  void look_for_logs(const Text& path, const FileReport& report) {
    if (report.health == Health::kWriteAhead) return;
    for (const char* suffix : {"-wal", "-shm"}) {
      const Text log = textf("%s%s", path.c_str(), suffix);
      if (!exists(log.c_str())) continue;
      remark(textf("%s is of another program that had the file open. The library makes no such file.",
                   log.c_str()))
          .person = Text("may be deleted while no program runs");
    }
  }

  void look_for_copies(const Text& path) {
    DIR* directory = opendir(path.c_str());
    while (const dirent* entry = directory != nullptr ? readdir(directory) : nullptr) {
      const std::string_view name = entry->d_name;
      if (name.starts_with(".vexadm-copy-")) {
        remark(textf("%s%s is a copy that is being made, or that was cut. It does no harm.", path.c_str(),
                     entry->d_name))
            .person = Text("may be deleted while no program runs");
      } else if (name.starts_with("vexadm-repair_")) {
        remark(textf("%s%s has what was there before a repair.", path.c_str(), entry->d_name)).person =
            Text("take it to a desk if the cause is wanted; delete it when it is not");
      }
    }
    if (directory != nullptr) closedir(directory);
  }
};

}  // namespace

void look_at_records(const Places& places, Diagnosis& out) { RecordDoctor(places, out).run(); }

}  // namespace cli::look
