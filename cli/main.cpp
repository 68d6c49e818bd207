// SPDX-License-Identifier: MIT
// vexadm: looks into the settings store of a router, and changes it.
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "command.h"
#include "registry.h"

namespace cli {
namespace {

constexpr const Command* kCommands[] = {
    &kList,     &kGet,      &kSet,     &kEmpty,   &kWatch,  &kCheck, &kRepair, &kJournal,
    &kVersions, &kDefaults, &kBackups, &kExport,  &kDump,   &kLoad,  &kDiff,   &kClean,
    &kKv,       &kUssd,     &kAt,      &kGateway, &kWaitIp, &kCrc,   &kHelp,   &kVersion,
};

}  // namespace

std::span<const Command* const> commands() { return kCommands; }

const Command* find_command(std::string_view name) {
  for (const Command* command : kCommands) {
    if (command->name == name) return command;
  }
  return name == kWords.name ? &kWords : nullptr;
}

}  // namespace cli

int main(int argc, char** argv) {
  cli::Arguments arguments;
  if (const int code = cli::parse(argc - 1, argv + (argc > 0 ? 1 : 0), arguments); code != cli::kDone)
    return code;
  cli::use_colour();
  cli::tell_of_waiting(arguments);
  const int code = arguments.command->run(arguments);
  // An answer that did not reach its file is none.
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
    return cli::fail("standard output cannot be written: %s", std::strerror(errno));
  }
  return code;
}
