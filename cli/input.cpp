// SPDX-License-Identifier: MIT
#include "input.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "command.h"

namespace cli {
namespace {

// No store is near it; a wrong file may be.
constexpr std::size_t kMostBytes = 16 << 20;

bool read_all(int fd, Text& out) {
  for (;;) {
    char part[4096];
    const ssize_t count = read(fd, part, sizeof part);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    if (count == 0) return true;
    out.add(std::string_view(part, static_cast<std::size_t>(count)));
    if (out.size() > kMostBytes) {
      errno = EFBIG;
      return false;
    }
  }
}

}  // namespace

int read_input(const char* path, Text& out) {
  if (std::strcmp(path, "-") == 0) {
    return read_all(STDIN_FILENO, out) ? kDone : fail("standard input: %s", std::strerror(errno));
  }
  const int fd = open(path, O_RDONLY | O_CLOEXEC);
  const bool read = fd >= 0 && read_all(fd, out);
  const int reason = errno;
  if (fd >= 0) close(fd);
  return read ? kDone : fail("%s: %s", path, std::strerror(reason));
}

}  // namespace cli
