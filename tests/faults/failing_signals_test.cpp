// SPDX-License-Identifier: MIT
// Signals of the host, whose handlers interrupt system calls, change no answer: neither of a call
// that works on files nor of one that waits for a command.
#include <sys/time.h>
#include <time.h>

#include <csignal>

#include "faults/fault_case.h"

namespace vexa_test {
namespace {

volatile std::sig_atomic_t g_signals = 0;

// While it lives, SIGUSR1 arrives every plan.from microseconds, and interrupts what it meets. The
// clock is not alarm()'s, and commands do not inherit it.
class SignalStorm {
 public:
  explicit SignalStorm(const FaultPlan& plan) {
    g_signals = 0;
    if (plan.from == 0) return;
    struct sigaction action = {};
    action.sa_handler = [](int) { g_signals = g_signals + 1; };
    sigaction(SIGUSR1, &action, nullptr);  // without SA_RESTART
    sigevent event = {};
    event.sigev_notify = SIGEV_SIGNAL;
    event.sigev_signo = SIGUSR1;
    if (timer_create(CLOCK_MONOTONIC, &event, &timer_) != 0) std::abort();
    armed_ = true;
    const timespec pause = {0, static_cast<long>(plan.from * 1000)};
    const itimerspec times = {pause, pause};
    timer_settime(timer_, 0, &times, nullptr);
  }
  ~SignalStorm() {
    if (armed_) timer_delete(timer_);
  }
  SignalStorm(const SignalStorm&) = delete;
  SignalStorm& operator=(const SignalStorm&) = delete;

  static std::uint64_t seen() { return static_cast<std::uint64_t>(g_signals); }
  static std::uint64_t failed() { return 0; }  // the answer must be the undisturbed one
  static bool is_own(std::uint64_t) { return false; }
  static const char* first_failed() { return "signals"; }

 private:
  timer_t timer_ = {};
  bool armed_ = false;
};

class SignalsDuring : public StorageTest, public ::testing::WithParamInterface<Operation> {};

TEST_P(SignalsDuring, ChangeNoAnswer) {
  if (IsSkipped()) return;
#if !VEXA_TEST_OWN_ALLOC
  GTEST_SKIP() << "the sanitizers put signals off";
#endif
  const Operation& operation = GetParam();
  FaultRun<SignalStorm> run(operation, "failing call");
  run.places();
  std::uint64_t signals = 0;
  const std::uint64_t rounds = how_many("VEXA_FAULT_STORMS", 2, 40);
  for (std::uint64_t round = 0; round < rounds && run.goes_on(); ++round) {
    run.attempt_unfailing({20 + 37 * (round % 8), 1, EINTR});
    signals += g_report->seen;
  }
  std::printf("%s: %llu signals\n", operation.name, static_cast<unsigned long long>(signals));
}

INSTANTIATE_TEST_SUITE_P(Functions, SignalsDuring,
                         ::testing::ValuesIn(operations_where([](const Operation& operation) {
                           return operation.reach == Reach::kFiles || operation.reach == Reach::kSystem;
                         })),
                         operation_name);

}  // namespace
}  // namespace vexa_test
