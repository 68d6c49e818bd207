// SPDX-License-Identifier: MIT
#include <array>
#include <cstdint>
#include <cstdio>

#include "log/call_site.h"
#include "vexadm/identity.h"
#include "vexadm/process.h"

int32_t vexa_ping_state(const char* host) {
  constexpr int kTries = 3;
  if (!host) return 3;
  std::array<char, 256> command;
  // The length is that of the whole command: one that was cut, and would ask another host, is
  // refused where it is to be run.
  const int length =
      std::snprintf(command.data(), command.size(), "ping -c 2 -W 3 %s > /dev/null 2>&1", host);
  for (int i = 0; i < kTries; ++i) {
    const bool answered = vexa_system_call_ex(command.data(), static_cast<uint32_t>(length)) == 0;
    VEXA_LOG(answered ? vexa::log::kDebug : vexa::log::kError, "vexa_ping_state", ">>>ping status:%s>>>\n",
             answered ? "success" : "fail");
    if (answered) return 0;
  }
  return -1;
}
