// SPDX-License-Identifier: MIT
// A file that the user named, whole.
#ifndef VEXADM_CLI_INPUT_H
#define VEXADM_CLI_INPUT_H

#include "base/text.h"

namespace cli {

// - is standard input. kDone, or kFailed after it has said why.
int read_input(const char* path, Text& out);

}  // namespace cli

#endif
