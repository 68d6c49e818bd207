// SPDX-License-Identifier: MIT
// Every exported function with each of the file operations below it failing: the documented code
// and line, nothing left open or running, and the last good value where it was.
//
// VEXA_FAULT_CASES=all tries every place with every error, once and from there on, as the long
// form does; a number tries about so many cases for each operation.
#include <cerrno>

#include "faults/failing_kernel.h"
#include "faults/fault_case.h"

namespace vexa_test {
namespace {

constexpr std::array<int, 6> kErrors = {EIO, ENOSPC, EMFILE, EINTR, EACCES, kShortCount};

// SQLite tries again for as long as it is interrupted: a storm of signals ends at some time.
constexpr std::uint64_t kStorm = 100;

bool asks_for_files(const Operation& operation) {
  return operation.reach == Reach::kFiles || operation.reach == Reach::kSystem;
}

class FailingCallsTest : public StorageTest, public ::testing::WithParamInterface<Operation> {
 protected:
  void SetUp() override {
    StorageTest::SetUp();
    if (IsSkipped()) return;
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "one thread: nothing for this sanitizer, and thousands of its processes";
#endif
  }

  // Each chosen place with one error after the other, once and from there on; in the long form
  // with all of them.
  template <typename Injector>
  static void try_places(FaultRun<Injector>& run, std::uint64_t places, std::uint64_t wanted) {
    const bool all = wanted == UINT64_MAX;
    const std::uint64_t step = all ? 1 : std::max<std::uint64_t>(1, 2 * places / wanted);
    std::uint64_t turn = 0;
    for (std::uint64_t place = 1; place <= places && run.goes_on(); ++place) {
      if (!run.is_chosen(place, step)) continue;
      for (const std::uint64_t count : {std::uint64_t{1}, kFromThereOn}) {
        for (std::size_t i = 0; i < (all ? kErrors.size() : 1); ++i) {
          const int error = kErrors[static_cast<std::size_t>(turn++ % kErrors.size())];
          run.attempt({place, error == EINTR && count != 1 ? kStorm : count, error});
        }
        if (!all) ++turn;
      }
      if (!all) turn += 3;
      // Where the library acts itself, an interruption alone proves little.
      if (!all && run.is_own(place)) run.attempt({place, 1, kErrors[static_cast<std::size_t>(turn % 3)]});
    }
    std::printf("%s: %llu places\n", GetParam().name, static_cast<unsigned long long>(places));
  }
};

class FailingCallsOf : public FailingCallsTest {};

TEST_P(FailingCallsOf, AnywhereAreAnsweredWithTheCodeAndLoseNothing) {
  const Operation& operation = GetParam();
  FaultRun<FailingCalls> run(operation, "failing call");
  const std::uint64_t places = run.places();
  EXPECT_EQ(places > 0, asks_for_files(operation));
  try_places(run, places, cases_wanted(operation.thorough ? 60 : 24));
}

INSTANTIATE_TEST_SUITE_P(Functions, FailingCallsOf, ::testing::ValuesIn(all_operations()), operation_name);

// One file that cannot be used any more, from any moment on, while all others can.
class AFailingFileOf : public FailingCallsTest {};

TEST_P(AFailingFileOf, IsAnsweredWithTheCodeAndLosesNothing) {
  const Operation& operation = GetParam();
  FaultRun<FailingCalls> run(operation, "failing call");
  const std::uint64_t wanted = cases_wanted(operation.thorough ? 60 : 24);
  const bool all = wanted == UINT64_MAX;
  std::uint64_t turn = 0;
  for (const char* file : {"config.db", "configbak", "state.db", "DefItems.db", "-journal", "vexadm-copy"}) {
    const std::uint64_t places = run.places(file);
    const std::uint64_t step = all ? 1 : std::max<std::uint64_t>(1, 8 * places / wanted);
    for (std::uint64_t place = 1; place <= places && run.goes_on(); place += step) {
      for (std::size_t i = 0; i < (all ? kErrors.size() : 1); ++i) {
        const int error = kErrors[static_cast<std::size_t>(turn++ % kErrors.size())];
        run.attempt({place, error == EINTR ? kStorm : kFromThereOn, error, file});
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Functions, AFailingFileOf,
                         ::testing::ValuesIn(operations_where([](const Operation& operation) {
                           return operation.item != nullptr;
                         })),
                         operation_name);

// Below the C library: what it does inside popen, system and its streams.
class FailingKernelUnder : public FailingCallsTest {
 protected:
  void SetUp() override {
    FailingCallsTest::SetUp();
    if (IsSkipped()) return;
#if !VEXA_TEST_OWN_ALLOC
    GTEST_SKIP() << "the sanitizer makes system calls of its own";
#endif
    if (const std::string reason = FailingKernel::refused(); !reason.empty()) GTEST_SKIP() << reason;
  }
};

TEST_P(FailingKernelUnder, IsAnsweredWithTheCodeAndLosesNothing) {
  FaultRun<FailingKernel> run(GetParam(), "failing call");
  const std::uint64_t places = run.places();
  try_places(run, places, cases_wanted(40));
}

INSTANTIATE_TEST_SUITE_P(Functions, FailingKernelUnder,
                         ::testing::ValuesIn(operations_where([](const Operation& operation) {
                           return operation.below_libc;
                         })),
                         operation_name);

class TheKernelUnder : public FailingKernelUnder {};

TEST_P(TheKernelUnder, WhatAsksForNothingIsNotCalled) {
  FaultRun<CountingKernel> run(GetParam(), "failing call");
  const std::uint64_t calls = run.places();
  EXPECT_EQ(calls > 0, GetParam().reach == Reach::kKernel) << g_report->first_failed;
}

// The allocator's own calls are no concern of what asks for memory.
INSTANTIATE_TEST_SUITE_P(Functions, TheKernelUnder,
                         ::testing::ValuesIn(operations_where([](const Operation& operation) {
                           return operation.reach == Reach::kNothing || operation.reach == Reach::kKernel;
                         })),
                         operation_name);

}  // namespace
}  // namespace vexa_test
