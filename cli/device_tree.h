// SPDX-License-Identifier: MIT
// A device tree as the root of this process.
#ifndef VEXADM_CLI_DEVICE_TREE_H
#define VEXADM_CLI_DEVICE_TREE_H

#include "base/text.h"

namespace cli {

// In private namespaces: the places of a device, and the directories of a store that lies elsewhere, are
// those of the tree, everything else, the shell's commands among it, is the machine's own and read-only.
// Nothing of it shows outside this process. What the tree lacks is empty; the directory of dated copies
// is made in it where one is about to be left there. False with the reason where namespaces are not to
// be had, or where a file of the store would not be the tree's. Null: a store that was not moved.
enum class Dated { kAsItIs, kMade };
bool enter_device_tree(const char* tree, const char* store, const char* backup_store, Dated dated, Text& why);

}  // namespace cli

#endif
