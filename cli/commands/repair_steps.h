// SPDX-License-Identifier: MIT
// Carrying a repair out.
#ifndef VEXADM_CLI_REPAIR_STEPS_H
#define VEXADM_CLI_REPAIR_STEPS_H

#include "base/text.h"
#include "commands/repair_plan.h"

namespace cli::repair {

struct Outcome {
  List<Step> done;
  bool touched = false;  // something is no longer as it was
};

// In the store that was entered; the files by their real names. kDone, or kFailed after it has said why.
int carry_out(const List<Step>& plan, const look::Places& places, Outcome& out);

}  // namespace cli::repair

#endif
