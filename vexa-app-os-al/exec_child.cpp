// SPDX-License-Identifier: MIT
//
// The host may have other threads, and they may hold any lock at the moment of the fork: the
// allocator's, the time zone's, the locale's, a stream's, the logger's. In the child they are held for ever.
// So what allocates or formats is done before the fork, and the child makes nothing but system calls, until
// it has nothing left to do but to say why it fails.
#include "exec_child.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "log/after_fork.h"

namespace vexa {
namespace {

// Signals wait while there are two processes with the host's handlers. One that ran in the child
// could, say, write to a pipe by which the host wakes itself.
class SignalsHeldBack {
 public:
  SignalsHeldBack() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  SignalsHeldBack(const SignalsHeldBack&) = delete;
  SignalsHeldBack& operator=(const SignalsHeldBack&) = delete;
  ~SignalsHeldBack() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

  // In the child: as the program will find them, with the host's mask and without its handlers.
  void let_through_without_handlers() const {
    for (int number = 1; number < NSIG; ++number) {
      struct sigaction action;
      if (sigaction(number, nullptr, &action) != 0) continue;
      if (action.sa_handler == SIG_DFL || action.sa_handler == SIG_IGN) continue;
      action = {};
      sigaction(number, &action, nullptr);
    }
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }

 private:
  sigset_t before_{};
};

// The host's standard output and standard error, while the output pipe stands in their places: a
// log line belongs to the host and not into the result, even where the host's stream could not be
// kept.
class HostStreams {
 public:
  HostStreams()
      : out_(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3)), err_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)) {}
  void put_back() const {
    put_back(out_, STDOUT_FILENO);
    put_back(err_, STDERR_FILENO);
  }

 private:
  static void put_back(int kept, int stream) {
    if (kept < 0 || dup2(kept, stream) < 0) close(stream);
  }

  int out_;
  int err_;
};

// A host without standard streams may get a pipe in their places.
int beside_the_streams(int fd) {
  if (fd > STDERR_FILENO) return fd;
  const int moved = fcntl(fd, F_DUPFD_CLOEXEC, 3);
  close(fd);
  return moved;
}

// The liveness pipe is what the program inherits besides its output; its ends close with the last
// process that has it.
bool connect_pipes(int alive, int out) {
  return dup2(out, STDOUT_FILENO) >= 0 && dup2(out, STDERR_FILENO) >= 0 && fcntl(alive, F_SETFD, 0) == 0;
}

// The text of strerror(), which itself takes the lock of the message catalogues: untranslated. Null
// for a number without a text, and where the C library has no texts but behind that lock.
const char* text_without_lock([[maybe_unused]] int error) {
#ifndef __GLIBC__
  return std::strerror(error);
#elif __GLIBC_PREREQ(2, 32)
  return strerrordesc_np(error);
#else
  return nullptr;
#endif
}

void say_why_not_executed(int error) {
  if (!log::passes(log::kInfo)) return;
  std::array<char, 32> number;
  const char* text = text_without_lock(error);
  if (!text) {
    std::snprintf(number.data(), number.size(), "Unknown error %d", error);
    text = number.data();
  }
  log::write_line_after_fork(log::kInfo, kExecName, __LINE__, "exec() failed: %d:%s\nDying\n", error, text);
}

// Ends without the exit handlers and the pending output, which are the host's.
[[noreturn]] void run_child(const ArgumentVector& arguments, const PipeEnds& liveness, const PipeEnds& output,
                            const SignalsHeldBack& signals) {
  if (arguments.too_long()) {
    log::write_line_after_fork(log::kInfo, kExecName, __LINE__, "(): command is too long\n");
    _exit(-1);
  }
  // First of all: a host with no more descriptors than those of the pipes has then two for its streams.
  close(liveness[0]);
  close(output[0]);
  const int alive = beside_the_streams(liveness[1]);
  const int out = beside_the_streams(output[1]);
  const HostStreams host;
  if (connect_pipes(alive, out)) {
    signals.let_through_without_handlers();
    execvp(arguments.words()[0], arguments.words());
  }
  const int error = errno;
  host.put_back();
  say_why_not_executed(error);
  _exit(-1);
}

}  // namespace

ArgumentVector::ArgumentVector(char* text, const char* program) {
  std::size_t count = 0;
  while (char* const word = strsep(&text, " ")) {
    if (*word == '\0') continue;
    words_[count++] = word;
    too_long_ = count == words_.size();
    if (too_long_) return;
  }
  words_[0] = const_cast<char*>(program);
}

pid_t start_child(const ArgumentVector& arguments, const PipeEnds& liveness, const PipeEnds& output) {
  const SignalsHeldBack signals;
  const pid_t child = fork();
  if (child == 0) run_child(arguments, liveness, output, signals);
  return child;
}

}  // namespace vexa
