// SPDX-License-Identifier: MIT
#include "descriptor_read.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

#include "owners.h"

namespace vexa {

ssize_t read_full(int fd, std::span<char> buffer) {
  std::size_t count = 0;
  while (count < buffer.size()) {
    const ssize_t got = read(fd, buffer.data() + count, buffer.size() - count);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return got;
    if (got == 0) break;
    count += static_cast<std::size_t>(got);
  }
  return static_cast<ssize_t>(count);
}

ssize_t read_start(const char* path, std::span<char> buffer) {
  const Descriptor file(open(path, O_RDONLY | O_CLOEXEC));
  return file ? read_full(file.get(), buffer) : -1;
}

}  // namespace vexa
