// SPDX-License-Identifier: MIT
// What primary and backup hold: items that differ, checksums, rows that are odd.
#include <vexadm/storage.h>

#include "base/value.h"
#include "look/doctor.h"

namespace cli::look {
namespace {

class ItemDoctor : Doctor {
 public:
  ItemDoctor(const Places& places, Diagnosis& out) : Doctor(places, out) {}

  void run() {
    compare();
    look_at_rows(out_.backup, "backup");
    look_at_rows(out_.primary, "primary");
    look_at_factory_rows();
  }

 private:
  const Item* in(const ItemFile& file, const Item& item) const {
    return find_exact(file.items, item.table.view(), item.key.view());
  }

  void compare() {
    if (!out_.primary.whole || !out_.backup.whole || is_empty(out_.primary) || is_empty(out_.backup)) return;
    List<const Item*> ahead;
    List<const Item*> only_backup;
    for (const Item& item : out_.primary.items) {
      if (lacks(out_.backup.items, item)) ahead.push(&item);
    }
    for (const Item& item : out_.backup.items) {
      if (is_version_record(item) || item.never_read) continue;
      if (in(out_.primary, item) == nullptr) only_backup.push(&item);
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
      out_.cut_write_told = true;
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
      out_.cut_write_told = true;
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
    List<const Item*> strange;
    List<const Item*> odd;
    for (const Item& item : file.items) {
      if (item.never_read) {
        (in(file, item) != nullptr ? hidden : strange).push(&item);
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
    if (!strange.empty()) {
      remark(textf("The %s has rows that programs never read, as their key is no text: %s.", name,
                   names_of(strange).c_str()));
    }
    if (!odd.empty()) {
      remark(textf("The %s has rows whose length is not what they say or what their type takes: %s.", name,
                   names_of(odd).c_str()));
    }
  }

  void look_at_factory_rows() {
    List<const Item*> bad;
    for (const Item& item : out_.factory.items) {
      if (item.verdict == Verdict::kBad) bad.push(&item);
    }
    if (bad.empty()) return;
    Finding& finding = fault(
        textf("In the factory copy the checksum of %s is bad: a repair from it leaves that at the default.",
              names_of(bad).c_str()));
    finding.person = Text("put the factory copy of this model there again");
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
};

}  // namespace

void look_at_items(const Places& places, Diagnosis& out) { ItemDoctor(places, out).run(); }

}  // namespace cli::look
