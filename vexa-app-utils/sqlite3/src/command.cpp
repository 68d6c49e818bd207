// SPDX-License-Identifier: MIT
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "log/call_site.h"
#include "sqlite3/src/storage.h"
#include "stream.h"

uint32_t dm_sqlite_system_cmd(const char* command, char* out, uint32_t out_len) {
  static constexpr char kSelf[] = "dm_sqlite_system_cmd";
  if (command == nullptr) {
    VEXA_LOG(vexa::log::kError, kSelf, "%s NULL\n", kSelf);
    return static_cast<uint32_t>(-1);
  }
  FILE* pipe = popen(command, "re");
  if (pipe == nullptr) {
    const int reason = errno;
    VEXA_LOG(vexa::log::kError, kSelf, "system command failed: (%d) %s\n", reason, std::strerror(reason));
    return static_cast<uint32_t>(-1);
  }
  if (out != nullptr) {
    const std::size_t count = vexa::read_bytes(pipe, {out, out_len});
    VEXA_LOG(vexa::log::kDebug, kSelf, "read_len=%d\n", static_cast<int>(count));
  }
  pclose(pipe);
  return 0;
}
