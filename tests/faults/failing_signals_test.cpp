// SPDX-License-Identifier: MIT
// Signals of the host, whose handlers interrupt system calls, change no answer: neither of a call
// that works on files nor of one that waits for a command.
#include "faults/fault_case.h"
#include "faults/signal_storm.h"

namespace vexa_test {
namespace {

// A plan's place is the pause between two signals.
class Signals : public SignalStorm {
 public:
  explicit Signals(const FaultPlan& plan) : SignalStorm(plan.from) {}
  static std::uint64_t failed() { return 0; }  // the answer must be the undisturbed one
  static bool is_own(std::uint64_t) { return false; }
  static const char* first_failed() { return "signals"; }
};

class SignalsDuring : public StorageTest, public ::testing::WithParamInterface<Operation> {};

TEST_P(SignalsDuring, ChangeNoAnswer) {
  if (IsSkipped()) return;
#if !VEXA_TEST_OWN_ALLOC
  GTEST_SKIP() << "the sanitizers put signals off";
#endif
  const Operation& operation = GetParam();
  FaultRun<Signals> run(operation, "failing call");
  run.places();
  std::uint64_t signals = 0;
  const std::uint64_t rounds = how_many_cases("VEXA_FAULT_STORMS", 2, 40);
  for (std::uint64_t round = 0; round < rounds && run.goes_on(); ++round) {
    run.attempt_unfailing({20 + 37 * (round % 8), 1, EINTR});
    signals += g_report->seen;
  }
  std::printf("%s: %llu signals\n", operation.name, static_cast<unsigned long long>(signals));
}

INSTANTIATE_TEST_SUITE_P(Functions, SignalsDuring,
                         ::testing::ValuesIn(operations_where([](const Operation& operation) {
                           return (operation.reach == Reach::kFiles || operation.reach == Reach::kSystem) &&
                                  !operation.counts_signals;
                         })),
                         operation_name);

}  // namespace
}  // namespace vexa_test
