// SPDX-License-Identifier: MIT
#include "commands/repair_plan.h"

#include <vexadm/storage.h>

#include "command.h"

namespace cli::repair {
namespace {

using look::Diagnosis;
using look::Health;
using look::ItemFile;
using look::Places;

bool usable(const ItemFile& file) { return file.healthy() && file.whole && file.has_rows(); }
bool is_empty(const ItemFile& file) {
  return file.report.health == Health::kMissing || (file.healthy() && file.whole && !file.has_rows());
}

// Nothing in it is worth keeping. Not a file that could not be looked into.
bool replaceable(const ItemFile& file) {
  return is_empty(file) || file.report.health == Health::kCorrupt ||
         file.report.health == Health::kNotDatabase;
}

bool is_closed(const look::FileReport& report) {
  return report.health == Health::kUnreadable || report.health == Health::kWriteAhead;
}

bool backup_lacks(const Diagnosis& diagnosis, const look::Item& item) {
  if (look::lacks(diagnosis.backup.items, item)) return true;
  if (look::is_version_record(item) || item.never_read) return false;
  const look::Item* there = look::find_exact(diagnosis.backup.items, item.table.view(), item.key.view());
  return there->verdict == look::Verdict::kBad && item.verdict != look::Verdict::kBad;
}

// A refresh takes what only the backup has, so it is no part of a repair then.
bool backup_has_more(const Diagnosis& diagnosis) {
  for (const look::Item& item : diagnosis.backup.items) {
    if (look::is_version_record(item) || item.never_read) continue;
    const look::Item* there = look::find_exact(diagnosis.primary.items, item.table.view(), item.key.view());
    if (there == nullptr) return true;
    if (there->verdict == look::Verdict::kBad && item.verdict == look::Verdict::kGood) return true;
  }
  return false;
}

// Between files that are both whole.
void plan_items(const Diagnosis& diagnosis, List<Step>& plan) {
  const std::size_t lacking = count_lacking(diagnosis);
  if (lacking == 0 || backup_has_more(diagnosis)) return;
  // The item of the journal, and that alone: as the library does at its start.
  if (lacking == 1 && diagnosis.cut_write_told) {
    // Cut before it was complete, it keeps the old value.
    if (diagnosis.last_write.state == WS_WRITE_DONE) plan.push(kFinishWrite);
    return;
  }
  plan.push(kRefreshBackup);
}

}  // namespace

std::size_t count_lacking(const Diagnosis& diagnosis) {
  std::size_t count = 0;
  for (const look::Item& item : diagnosis.primary.items) count += backup_lacks(diagnosis, item) ? 1U : 0U;
  return count;
}

const Text& path_of(const Places& places, File file) {
  switch (file) {
    case File::kBackup:
      return places.backup;
    case File::kJournal:
      return places.journal;
    case File::kFactory:
      return places.factory;
    default:
      return places.primary;
  }
}

List<Step> plan_for(const Diagnosis& diagnosis) {
  List<Step> plan;
  const Health journal = diagnosis.journal.health;
  if (journal == Health::kNotDatabase || (journal == Health::kCorrupt && !diagnosis.last_write.found))
    plan.push(kDeleteJournal);
  const bool fresh = is_empty(diagnosis.primary) && is_empty(diagnosis.backup);
  if (replaceable(diagnosis.primary) && !fresh) {
    if (usable(diagnosis.backup)) {
      plan.push({Step::kReplace, File::kPrimary, File::kBackup});
    } else if (replaceable(diagnosis.backup) && diagnosis.backup.items.empty() && usable(diagnosis.factory)) {
      plan.push({Step::kReplace, File::kPrimary, File::kFactory});
      plan.push(kRefreshBackup);
    }
  } else if (usable(diagnosis.primary) && replaceable(diagnosis.backup)) {
    // Of a damaged backup too: what can still be read of it may be all that is left.
    if (!backup_has_more(diagnosis)) plan.push(kRefreshBackup);
  } else if (usable(diagnosis.primary) && usable(diagnosis.backup)) {
    plan_items(diagnosis, plan);
  }
  return plan;
}

int refuse_closed(const Diagnosis& diagnosis, const Places& named) {
  const bool needs_factory = replaceable(diagnosis.primary) && replaceable(diagnosis.backup) &&
                             !(is_empty(diagnosis.primary) && is_empty(diagnosis.backup));
  const struct {
    const look::FileReport& report;
    const Text& path;
    bool needed;
  } files[] = {{diagnosis.primary.report, named.primary, true},
               {diagnosis.backup.report, named.backup, true},
               {diagnosis.journal, named.journal, true},
               {diagnosis.factory.report, named.factory, needs_factory}};
  for (const auto& [report, path, needed] : files) {
    if (!needed || !is_closed(report)) continue;
    const char* why =
        report.health == Health::kWriteAhead ? look::health_name(report.health) : report.why.c_str();
    return fail("%s cannot be read: %s; nothing was repaired", path.c_str(), why);
  }
  return kDone;
}

}  // namespace cli::repair
