// SPDX-License-Identifier: MIT
#include "caught_output.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>

#include "command.h"

namespace cli {
namespace {

constexpr int kOutputs[] = {STDOUT_FILENO, STDERR_FILENO};
// More is no message.
constexpr std::size_t kMostTold = 4096;

}  // namespace

CaughtOutput::CaughtOutput() {
  std::fflush(stdout);
  for (int i = 0; i < 2; ++i) {
    // What the caller of this program has closed stays closed.
    saved_[i] = fcntl(kOutputs[i], F_DUPFD_CLOEXEC, 3);
    if (saved_[i] < 0) continue;
    memory_[i] = memfd_create("output", MFD_CLOEXEC);
    if (memory_[i] < 0) memory_[i] = open("/dev/null", O_RDWR | O_CLOEXEC);
    if (memory_[i] >= 0) dup2(memory_[i], kOutputs[i]);
  }
}

CaughtOutput::~CaughtOutput() {
  give_back();
  for (const int fd : memory_) {
    if (fd >= 0) close(fd);
  }
}

void CaughtOutput::give_back() {
  std::fflush(stdout);
  for (int i = 0; i < 2; ++i) {
    if (saved_[i] < 0) continue;
    dup2(saved_[i], kOutputs[i]);
    close(saved_[i]);
    saved_[i] = -1;
  }
}

void CaughtOutput::tell() {
  give_back();
  if (memory_[1] < 0) return;
  Text said;
  const ssize_t count = pread(memory_[1], said.grow(kMostTold), kMostTold, 0);
  std::string_view rest = part(said.view(), 0, count > 0 ? static_cast<std::size_t>(count) : 0);
  while (!rest.empty()) {
    const Text line(part(rest, 0, rest.find('\n')));
    rest.remove_prefix(line.size() == rest.size() ? line.size() : line.size() + 1);
    if (!line.empty()) fail("library: %s", line.c_str());
  }
}

}  // namespace cli
