// SPDX-License-Identifier: MIT
// Carrying a repair out.
#ifndef VEXADM_CLI_REPAIR_STEPS_H
#define VEXADM_CLI_REPAIR_STEPS_H

#include "base/text.h"
#include "commands/repair_plan.h"

namespace cli::repair {

// In the store that was entered; the files by their real names. Adds what was done to the list. kDone, or
// kFailed after it has said why.
int carry_out(const List<Step>& plan, const look::Places& places, List<Step>& done);

}  // namespace cli::repair

#endif
