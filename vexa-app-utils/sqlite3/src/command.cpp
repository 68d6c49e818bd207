// SPDX-License-Identifier: MIT
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "log/call_site.h"
#include "sqlite3/src/storage.h"

namespace {

// A signal handler of the host may interrupt the wait for the command's output: that is no end of
// it. A clean would take the number of dated copies for 0 and overwrite their order.
std::size_t read_output(FILE* pipe, char* out, std::size_t size) {
  std::size_t count = 0;
  for (;;) {
    errno = 0;
    count += std::fread(out + count, 1, size - count, pipe);
    if (count == size || std::ferror(pipe) == 0 || errno != EINTR) return count;
    std::clearerr(pipe);
  }
}

}  // namespace

uint32_t dm_sqlite_system_cmd(const char* command, char* out, uint32_t out_len) {
  constexpr char kSelf[] = "dm_sqlite_system_cmd";
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
    const std::size_t count = read_output(pipe, out, out_len);
    VEXA_LOG(vexa::log::kDebug, kSelf, "read_len=%d\n", static_cast<int>(count));
  }
  pclose(pipe);
  return 0;
}
