// SPDX-License-Identifier: MIT
// Runs what may fault, abort or never return in a child process.
#ifndef VEXADM_TESTS_CHILD_H
#define VEXADM_TESTS_CHILD_H

#include <functional>
#include <string>

namespace vexa_test {

struct ChildResult {
  int exit_code = -1;  // -1 when a signal ended the child
  int signal = 0;      // 0 when the child exited
  std::string out;
  std::string err;
  bool timed_out = false;  // the child was killed: signal is SIGKILL
};

// Forks and runs the body in the child with both output streams captured. A body that returns
// ends the child with exit code 0, a body that failed a GoogleTest assertion with 1.
ChildResult run_in_child(const std::function<void()>& body, int timeout_seconds = 20);

}  // namespace vexa_test

#endif
