// SPDX-License-Identifier: MIT
// What a repair would do to a store.
#ifndef VEXADM_CLI_REPAIR_PLAN_H
#define VEXADM_CLI_REPAIR_PLAN_H

#include <cstddef>

#include "base/text.h"
#include "look/diagnosis.h"
#include "look/places.h"

namespace cli::repair {

enum class File { kNone, kPrimary, kBackup, kJournal, kFactory };

const Text& path_of(const look::Places& places, File file);

// One thing to do, to a file and from another.
struct Step {
  enum Action { kDelete, kReplace, kCopyItem, kCopy } action;
  File file;
  File from;
};
constexpr Step kDeleteJournal = {Step::kDelete, File::kJournal, File::kNone};
constexpr Step kFinishWrite = {Step::kCopyItem, File::kBackup, File::kPrimary};
constexpr Step kRefreshBackup = {Step::kCopy, File::kBackup, File::kPrimary};

// In the order in which they are to be done; none where no copy can mend anything.
List<Step> plan_for(const look::Diagnosis& diagnosis);

// Items of which the backup has not what the primary has.
std::size_t count_lacking(const look::Diagnosis& diagnosis);

// What could not be looked into may hold all that is missing elsewhere: a program has it locked, or the
// user may not read it. kDone, or kFailed after it has said which.
int refuse_closed(const look::Diagnosis& diagnosis, const look::Places& named);

}  // namespace cli::repair

#endif
