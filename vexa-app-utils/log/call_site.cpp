// SPDX-License-Identifier: MIT
#include "log/call_site.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "owners.h"

namespace vexa::log {

void write_line(int level, const char* function, int line, const char* format, ...) {
  if (!passes(level)) return;
  const int saved_errno = errno;
  const HeapText message = HeapText::zeroed(kMessageSize);
  // Formats such as "%m" must see what the caller saw, not what the allocation left.
  errno = saved_errno;

  std::va_list values;
  va_start(values, format);
  const int left_to_caller = vprint(level, message.get(), function, line, format, values);
  va_end(values);

  if (left_to_caller) {
    std::printf("oem_fwa[%d] %s(): %s", getpid(), function, message ? message.get() : "");
  }
  errno = saved_errno;
}

void assertion_failed(const char* source, int line) {
  std::printf("%s, line: %d\n", source, line);
  std::fflush(stdout);
  std::abort();
}

}  // namespace vexa::log
