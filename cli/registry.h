// SPDX-License-Identifier: MIT
// The subcommands, each defined in the file that carries it out.
#ifndef VEXADM_CLI_REGISTRY_H
#define VEXADM_CLI_REGISTRY_H

#include "command.h"

namespace cli {

std::span<const Option> global_options();

extern const Command kList, kGet, kSet, kEmpty, kWatch, kCheck, kRepair, kJournal, kVersions, kDefaults,
    kExport, kDump, kLoad, kDiff, kClean, kBackups, kKv, kUssd, kAt, kGateway, kWaitIp, kCrc, kHelp, kVersion,
    kWords;

}  // namespace cli

#endif
