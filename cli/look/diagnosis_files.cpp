// SPDX-License-Identifier: MIT
// Files that are missing, damaged or empty.
#include "look/doctor.h"

namespace cli::look {
namespace {

class FileDoctor : Doctor {
 public:
  FileDoctor(const Places& places, Diagnosis& out) : Doctor(places, out) {}

  void run() {
    look_at_primary();
    look_at_backup();
    look_at_factory();
  }

 private:
  // What the library would copy over a primary that it finds corrupt.
  Text source_of_a_repair() const {
    if (out_.backup.healthy()) return Text("copies the backup over it");
    if (out_.factory.healthy())
      return Text("copies the factory copy over it: what was set since production is gone");
    return Text("nothing, as neither backup nor factory copy is healthy");
  }

  void look_at_primary() {
    const FileReport& report = out_.primary.report;
    if (unreadable("primary", places_.primary, report)) return;
    if (is_empty(out_.primary)) {
      if (is_empty(out_.backup)) {
        Finding& finding =
            remark(Text("The store is empty: a fresh unit, or a cleaned one. Every item is at its default."));
        finding.next_start = Text("makes primary and backup with nothing in them but their version");
        if (!dated_copies(places_).empty())
          finding.person = Text("what was there before a clean: vexadm backups");
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
          finding.write_loses = true;  // what is written
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
      if (out_.backup.has_rows() && (is_empty(out_.primary) || !out_.primary.healthy())) {
        // Nothing else has what can still be read, and neither library nor repair would copy it.
        finding.write_loses = true;
        finding.next_start = Text("nothing; the next write replaces it, and what can still be read is lost");
        finding.person = Text("keep that: vexadm dump > FILE, then vexadm load --force FILE");
      } else {
        finding.next_start = Text("nothing; the next write of any item copies the primary over it");
        finding.person = Text(kRepair);
      }
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
};

}  // namespace

void look_at_files(const Places& places, Diagnosis& out) { FileDoctor(places, out).run(); }

}  // namespace cli::look
