// SPDX-License-Identifier: MIT
// Paths of a copied device tree, whose symbolic links mean the tree and not this machine.
#ifndef VEXADM_CLI_TREE_PATH_H
#define VEXADM_CLI_TREE_PATH_H

#include <cstdint>

#include "base/text.h"

namespace cli::look {

// Opens a path as a process would whose root is the directory of that descriptor. -1 and errno.
int open_below(int tree, const char* path, uint64_t flags);

// Where a path that begins with a slash lies when root is the root. What is not there lies nowhere
// else either: a link that the tree cannot follow gives a name that does not exist.
Text path_below(std::string_view root, std::string_view path);

}  // namespace cli::look

#endif
