// SPDX-License-Identifier: MIT
// Makes chosen file operations of the library and of SQLite fail, without their help. Compile
// failing_calls.cpp into the test program itself: its definitions of open, pwrite and so on then
// come before those of the C library.
#ifndef VEXADM_TESTS_FAULTS_FAILING_CALLS_H
#define VEXADM_TESTS_FAULTS_FAILING_CALLS_H

#include <cstdint>

namespace vexa_test {

// In place of an errno value: a write or read does half of what it was asked for.
inline constexpr int kShortCount = -1;

inline constexpr std::uint64_t kFromThereOn = UINT64_MAX;

// Which of the operations that follow fail, counted from 1. A `from` of 0 fails none.
struct FaultPlan {
  std::uint64_t from = 0;
  std::uint64_t count = 1;  // operations in a row, or kFromThereOn
  int error = 0;            // errno value, or kShortCount
  const char* path = "";    // only operations on paths that contain it are counted
  const char* call = "";    // only operations of this name are counted
};

// While it lives, operations are counted and fail by the plan, and waiting takes no time: a pause
// only moves the clock. Works in a single-threaded process; one at a time.
class FailingCalls {
 public:
  explicit FailingCalls(const FaultPlan& plan);
  ~FailingCalls();
  FailingCalls(const FailingCalls&) = delete;
  FailingCalls& operator=(const FailingCalls&) = delete;

  // Has each counted operation announced before it is made; until the next one is built.
  static void watch(void (*watcher)(const char* name));
  // Of the one that lives, or lived last.
  static std::uint64_t seen();
  static std::uint64_t failed();
  // True for an operation that the library makes itself; the others are SQLite's.
  static bool is_own(std::uint64_t n);
  // Name and path of the first one that failed.
  static const char* first_failed();
  // Copies that took their final name although what was written to them was not synced.
  static std::uint64_t unsynced_renames();
};

}  // namespace vexa_test

#endif
