// SPDX-License-Identifier: MIT
// Makes system calls fail below the C library: what it does inside popen, system and its streams
// as well, where no definition of our own can come before it. The parent answers in the kernel's
// place (seccomp's user notification), so the process must be forked by in_child.
#ifndef VEXADM_TESTS_FAULTS_FAILING_KERNEL_H
#define VEXADM_TESTS_FAULTS_FAILING_KERNEL_H

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "faults/failing_calls.h"

namespace vexa_test {

// While it lives, the process's own system calls that open, read, write, sync, name and remove
// files or start processes are counted and fail by the plan (its path is not looked at). Those of
// its commands are not. One process, one thread; one at a time.
class FailingKernel {
 public:
  explicit FailingKernel(const FaultPlan& plan);
  ~FailingKernel();
  FailingKernel(const FailingKernel&) = delete;
  FailingKernel& operator=(const FailingKernel&) = delete;

  static std::uint64_t seen();
  static std::uint64_t failed();
  static bool is_own(std::uint64_t) { return false; }
  static const char* first_failed();

  // Before the fork, and in the parent until the child ends.
  static void before_fork();
  static void supervise(pid_t child);

  // Why the kernel does not do this; empty where it does.
  static std::string refused();

 protected:
  FailingKernel(const FaultPlan& plan, bool every_call);
};

// Counts every system call of any kind and fails none.
class CountingKernel : public FailingKernel {
 public:
  explicit CountingKernel(const FaultPlan& plan) : FailingKernel(plan, true) {}
};

}  // namespace vexa_test

#endif
