// SPDX-License-Identifier: MIT
// Processes found by name.
#include <array>
#include <cstdio>
#include <cstdlib>

#include "log/call_site.h"
#include "shell_stream.h"
#include "stream.h"
#include "vexadm/device.h"

int32_t oem_get_pid_by_name(const char* name) {
  std::array<char, 256> command = {};
  const int length =
      name ? std::snprintf(command.data(), command.size(), "ps -e | grep %s | grep -v grep", name) : -1;
  // A cut command line would look for another process, or run without its last part.
  const bool fits = length >= 0 && static_cast<std::size_t>(length) < command.size();
  const vexa::Shell shell(command.data(), fits ? vexa::kToRead : vexa::kNotStarted);
  if (!shell) {
    VEXA_LOG(vexa::log::kError, "oem_get_pid_by_name", "command popen error!!!\n");
    return -1;
  }
  // Of several the first: hosts look for programs of which one runs.
  std::array<char, 256> line = {};
  if (!vexa::read_line(shell.stream(), line)) return -1;
  char* end = nullptr;
  const long pid = std::strtol(line.data(), &end, 10);
  return end != line.data() ? static_cast<int32_t>(pid) : -1;
}
