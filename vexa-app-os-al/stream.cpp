// SPDX-License-Identifier: MIT
#include "stream.h"

#include <cerrno>

namespace vexa {

int read_character(std::FILE* stream) {
  for (;;) {
    errno = 0;
    const int c = std::fgetc(stream);
    if (c != EOF || std::ferror(stream) == 0 || errno != EINTR) return c;
    std::clearerr(stream);
  }
}

std::size_t read_bytes(std::FILE* stream, std::span<char> buffer) {
  std::size_t count = 0;
  for (; count < buffer.size(); ++count) {
    const int c = read_character(stream);
    if (c == EOF) break;
    buffer[count] = static_cast<char>(c);
  }
  return count;
}

bool read_line(std::FILE* stream, std::span<char> buffer) {
  std::size_t count = 0;
  while (count + 1 < buffer.size()) {
    const int c = read_character(stream);
    if (c == EOF) break;
    buffer[count++] = static_cast<char>(c);
    if (c == '\n') break;
  }
  if (count == 0) return false;
  buffer[count] = '\0';
  return true;
}

}  // namespace vexa
