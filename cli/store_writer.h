// SPDX-License-Identifier: MIT
// Writing through the library: for this machine's store, or for a device tree in a namespace.
#ifndef VEXADM_CLI_STORE_WRITER_H
#define VEXADM_CLI_STORE_WRITER_H

#include "command.h"
#include "device_tree.h"

namespace cli {

// Lets the library work on the store that the arguments name. With --root, from here on the device
// tree's /data and its like are this process's own; so open what the user named before. kDone, or
// kFailed after it has said why. Nothing is written yet.
int enter_store(Arguments& arguments, Dated dated = Dated::kAsItIs);

// Keeps what the library logs off standard output; enter_store() does it too.
void hear_library();

// What the library has logged as failures since then, for a person to read. Nothing with none.
void tell_failures();

}  // namespace cli

#endif
