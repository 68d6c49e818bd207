// SPDX-License-Identifier: MIT
// Kills a process at a chosen system call. Where ptrace is refused, as in many containers, at a
// chosen call of the C library's file functions instead: compile failing_calls.cpp in as well.
#ifndef VEXADM_TESTS_FAULTS_TRACER_H
#define VEXADM_TESTS_FAULTS_TRACER_H

#include <functional>
#include <string>

namespace vexa_test {

// Who counts and who dies at the chosen call.
enum class Kill {
  kProcess,  // the process alone, at its own calls; commands that it has started run to their end
  kTree,     // the process and its commands, as a power cut would, also at what the commands write
};

enum class KillBy {
  kPtrace,        // the kernel stops it before the system call
  kInterception,  // it kills itself before the call; what commands do is not counted then
};

// kPtrace where that is allowed; else says on standard error once what is done instead.
// VEXA_KILL_BY=interception chooses the latter anywhere.
KillBy best_killer();

struct TracedRun {
  std::string refused;  // why it means nothing; empty when it does
  bool completed = false;
  int exit_code = -1;  // of a completed run; the body's failures give 1
  int calls = 0;       // counted, the one of the kill included
  std::string killed_at;
};

// Forks and runs the body in the child. From the body's call of trace_from_here() on, its system
// calls that touch files are counted; when number `at_call` (the first is 1) is about to be made,
// the kernel has not begun it, SIGKILL arrives instead. at_call 0 kills never.
// The caller must have no other children.
TracedRun run_traced(const std::function<void()>& body, int at_call, Kill kill = Kill::kProcess,
                     KillBy by = best_killer());

void trace_from_here();

}  // namespace vexa_test

#endif
