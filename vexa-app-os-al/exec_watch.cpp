// SPDX-License-Identifier: MIT
#include "exec_watch.h"

#include <sys/select.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>

#include "exec_child.h"
#include "log/call_site.h"

namespace vexa {
namespace {

constexpr int kBound = 1024;
constexpr int kSilenceSeconds = 2;
static_assert(FD_SETSIZE == kBound);

// Those of the pipes from which a read will not wait. As select() answers: -1 on failure, 0 after
// the time of silence.
int wait_for_bytes(const ChildPipes& pipes, fd_set& ready) {
  FD_ZERO(&ready);
  for (const Descriptor* pipe : {&pipes.liveness, &pipes.output}) {
    if (!*pipe) continue;
    // A set has no room for it; the memory behind the set has.
    if (pipe->get() >= kBound) {
      errno = EBADF;
      return -1;
    }
    FD_SET(pipe->get(), &ready);
  }
  timeval silence = {kSilenceSeconds, 0};
  return select(kBound, &ready, nullptr, nullptr, &silence);
}

// One byte at a time: silence is counted from each of them. False at the end of the pipe, which is
// closed then.
bool take_byte(Descriptor& pipe, char& byte) {
  if (read(pipe.get(), &byte, 1) == 1) return true;
  pipe.close();
  return false;
}

bool is_ready(const Descriptor& pipe, const fd_set& ready) { return pipe && FD_ISSET(pipe.get(), &ready); }

// True when the wait was interrupted only, and goes on.
bool log_failed_wait(pid_t child, int error) {
  VEXA_LOG(log::kInfo, kExecName, "[cpid:%d] Failed to select() -> %d:%s\n", child, error,
           std::strerror(error));
  if (error != EINTR) return false;
  VEXA_LOG(log::kInfo, kExecName, "(): select() was interrupted, continuing");
  return true;
}

void kill_silent(pid_t child) {
  if (kill(child, SIGKILL) != 0) {
    const int error = errno;
    VEXA_LOG(log::kInfo, kExecName, "[cpid:%d] ds_exec tried kill(); failed with error %d - %s\n", child,
             error, std::strerror(error));
    return;
  }
  VEXA_LOG(log::kInfo, kExecName, "[cpid:%d] ds_exec kill()ed pid %d with SIGKILL\n", child, child);
}

}  // namespace

bool watch_child(pid_t child, ChildPipes& pipes, CollectedOutput collected) {
  while (pipes.liveness || pipes.output) {
    fd_set ready;
    const int count = wait_for_bytes(pipes, ready);
    if (count < 0) {
      if (log_failed_wait(child, errno)) continue;
      return false;
    }
    if (count == 0) {
      kill_silent(child);
      return false;
    }
    char byte = 0;
    if (is_ready(pipes.liveness, ready)) take_byte(pipes.liveness, byte);
    if (is_ready(pipes.output, ready) && take_byte(pipes.output, byte)) collected.put(byte);
  }
  return true;
}

}  // namespace vexa
