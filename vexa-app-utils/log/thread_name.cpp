// SPDX-License-Identifier: MIT
#include "log/thread_name.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <cstring>

namespace vexa::log {

namespace {

constexpr std::size_t kBufferSize = 1024;

}  // namespace

// Both buffers are on the heap: threads that log may have very small stacks.
HeapText thread_name(int pid, int tid) {
  const HeapText path = HeapText::zeroed(kBufferSize);
  HeapText name = HeapText::zeroed(kBufferSize);
  if (!path || !name) return {};

  std::snprintf(path.get(), kBufferSize, "/proc/%d/task/%d/comm", pid, tid);
  const Descriptor comm(open(path.get(), O_RDONLY | O_CLOEXEC));
  if (!comm) return {};
  if (read(comm.get(), name.get(), kBufferSize - 1) <= 0) return {};
  name.get()[std::strcspn(name.get(), "\n")] = '\0';
  return name;
}

}  // namespace vexa::log
