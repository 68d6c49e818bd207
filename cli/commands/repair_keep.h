// SPDX-License-Identifier: MIT
// Copies of everything that a repair may touch.
#ifndef VEXADM_CLI_REPAIR_KEEP_H
#define VEXADM_CLI_REPAIR_KEEP_H

#include "base/text.h"
#include "commands/repair_plan.h"

namespace cli::repair {

// A directory of its own for what was there before.
class Keep {
 public:
  // Named as the user calls the files.
  explicit Keep(const look::Places& places) : places_(places) {}

  const Text& name() const { return name_; }

  // Everything that a repair may touch, the evidence beside it too. Raw bytes: no connection is open.
  // kDone, or kFailed after it has said why; then there is nothing of it.
  int take(const look::Places& real);
  // Copies of what is as it was only take room, and mislead; so do those that are not complete.
  void remove();

 private:
  int make_directory();
  Text copy_of(File file, const char* suffix) const;

  const look::Places& places_;
  Text name_;
  Text directory_;
};

}  // namespace cli::repair

#endif
