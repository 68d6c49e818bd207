// SPDX-License-Identifier: MIT
// Names and directories of the files that a repair handles.
#ifndef VEXADM_CLI_REPAIR_FILES_H
#define VEXADM_CLI_REPAIR_FILES_H

#include <string_view>

#include "base/text.h"

namespace cli::repair {

std::string_view name_of(const Text& path);

bool sync_directory(const char* path);

// The file that a write through the path would reach, which need not exist yet: a link that an
// integrator has placed stays a link, as in the library.
Text real_path(const Text& path);

}  // namespace cli::repair

#endif
