// SPDX-License-Identifier: MIT
#include "support/child.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>

namespace vexa_test {
namespace {

using Clock = std::chrono::steady_clock;

// A fault must end the child as it would end a host: by its signal, not by a sanitizer's report,
// and without a core file in the build tree.
void let_faults_through() {
  for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT}) std::signal(fault, SIG_DFL);
  const rlimit none = {0, 0};
  setrlimit(RLIMIT_CORE, &none);
}

[[noreturn]] void run_body(const std::function<void()>& body, int out, int err) {
  dup2(out, STDOUT_FILENO);
  dup2(err, STDERR_FILENO);
  close(out);
  close(err);
  let_faults_through();
  body();
  std::fflush(nullptr);
  const int code = ::testing::Test::HasFailure() ? 1 : 0;
#ifdef VEXA_TEST_COVERAGE
  std::exit(code);  // writes the line counts of the child
#else
  _exit(code);  // the exit handlers (the leak check is one) belong to the parent
#endif
}

// One read of a stream with input or a hang-up; closes it at its end.
void drain(pollfd& stream, std::string& into) {
  if (stream.fd < 0 || stream.revents == 0) return;
  std::array<char, 4096> chunk;
  const ssize_t got = read(stream.fd, chunk.data(), chunk.size());
  if (got > 0) {
    into.append(chunk.data(), static_cast<std::size_t>(got));
    return;
  }
  if (got < 0 && errno == EINTR) return;
  close(stream.fd);
  stream.fd = -1;
}

int milliseconds_until(Clock::time_point deadline) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
  return left > 0 ? static_cast<int>(left) : 0;
}

// True when the child has ended. A grandchild may keep the streams open longer than the child
// lives, and a child may close them long before it ends: neither alone says that it is over.
bool ended(pid_t child, int& status) { return waitpid(child, &status, WNOHANG) == child; }

}  // namespace

ChildResult run_in_child(const std::function<void()>& body, int timeout_seconds) {
  int out[2];
  int err[2];
  if (pipe(out) != 0 || pipe(err) != 0) {
    std::perror("run_in_child: pipe");
    std::abort();
  }
  std::fflush(nullptr);  // else the child would print what the parent had buffered
  const pid_t child = fork();
  if (child < 0) {
    std::perror("run_in_child: fork");
    std::abort();
  }
  if (child == 0) {
    close(out[0]);
    close(err[0]);
    run_body(body, out[1], err[1]);
  }
  close(out[1]);
  close(err[1]);

  ChildResult result;
  std::array<pollfd, 2> streams = {pollfd{out[0], POLLIN, 0}, pollfd{err[0], POLLIN, 0}};
  const auto deadline = Clock::now() + std::chrono::seconds(timeout_seconds);
  int status = 0;
  bool over = false;
  while (!over || streams[0].fd >= 0 || streams[1].fd >= 0) {
    if (!over && milliseconds_until(deadline) == 0) {
      result.timed_out = true;
      kill(child, SIGKILL);
      waitpid(child, &status, 0);
      over = true;
    }
    // Once the child is over, only what already stands in the pipes is still taken.
    const int wait = over ? 0 : std::min(milliseconds_until(deadline), 20);
    streams[0].revents = streams[1].revents = 0;
    const int ready = poll(streams.data(), streams.size(), wait);
    if (ready < 0 && errno != EINTR) break;
    drain(streams[0], result.out);
    drain(streams[1], result.err);
    if (over && ready == 0) break;
    if (!over) over = ended(child, status);
  }
  for (const pollfd& stream : streams) {
    if (stream.fd >= 0) close(stream.fd);
  }

  if (WIFSIGNALED(status)) {
    result.signal = WTERMSIG(status);
  } else {
    result.exit_code = WEXITSTATUS(status);
  }
  return result;
}

}  // namespace vexa_test
