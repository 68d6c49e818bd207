// SPDX-License-Identifier: MIT
// run_in_child for thousands of rounds: both streams in one text, no polling.
#ifndef VEXADM_TESTS_FAULTS_QUICK_CHILD_H
#define VEXADM_TESTS_FAULTS_QUICK_CHILD_H

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <string>

namespace vexa_test {

struct QuickResult {
  int exit_code = -1;  // 0 when the body met its expectations; -1 when a signal ended it
  int signal = 0;      // SIGALRM when it took longer than allowed
  std::string out;
};

inline QuickResult run_quickly(const std::function<void()>& body, unsigned seconds = 20) {
  std::array<int, 2> ends = {-1, -1};
  std::fflush(nullptr);
  if (pipe(ends.data()) != 0) std::abort();
  const pid_t child = fork();
  if (child < 0) std::abort();
  if (child == 0) {
    close(ends[0]);
    dup2(ends[1], STDOUT_FILENO);
    dup2(ends[1], STDERR_FILENO);
    close(ends[1]);
    const rlimit none = {0, 0};
    setrlimit(RLIMIT_CORE, &none);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGALRM}) signal(fault, SIG_DFL);
    alarm(seconds);
    // Uncaught, GoogleTest would catch it and go on with the parent's tests in the child.
    try {
      body();
    } catch (const std::exception& thrown) {
      ADD_FAILURE() << thrown.what();
    }
    std::fflush(nullptr);
    _exit(::testing::Test::HasFailure() ? 1 : 0);
  }
  close(ends[1]);
  QuickResult result;
  std::array<char, 16384> chunk;
  for (ssize_t got; (got = read(ends[0], chunk.data(), chunk.size())) > 0;) {
    result.out.append(chunk.data(), static_cast<std::size_t>(got));
  }
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  if (WIFSIGNALED(status)) {
    result.signal = WTERMSIG(status);
  } else {
    result.exit_code = WEXITSTATUS(status);
  }
  return result;
}

}  // namespace vexa_test

#endif
