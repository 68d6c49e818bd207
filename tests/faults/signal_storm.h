// SPDX-License-Identifier: MIT
// Signals of the host, whose handlers interrupt system calls.
#ifndef VEXADM_TESTS_FAULTS_SIGNAL_STORM_H
#define VEXADM_TESTS_FAULTS_SIGNAL_STORM_H

#include <sys/time.h>
#include <time.h>

#include <csignal>
#include <cstdint>
#include <cstdlib>

namespace vexa_test {

// While it lives, SIGUSR1 arrives every so many microseconds (0: never), and interrupts what it
// meets. The clock is not alarm()'s, and commands do not inherit it.
class SignalStorm {
 public:
  explicit SignalStorm(std::uint64_t microseconds) {
    seen_ = 0;
    if (microseconds == 0) return;
    struct sigaction action = {};
    action.sa_handler = [](int) { seen_ = seen_ + 1; };
    sigaction(SIGUSR1, &action, nullptr);  // without SA_RESTART
    sigevent event = {};
    event.sigev_notify = SIGEV_SIGNAL;
    event.sigev_signo = SIGUSR1;
    if (timer_create(CLOCK_MONOTONIC, &event, &timer_) != 0) std::abort();
    armed_ = true;
    const timespec pause = {0, static_cast<long>(microseconds * 1000)};
    const itimerspec times = {pause, pause};
    timer_settime(timer_, 0, &times, nullptr);
  }
  ~SignalStorm() {
    if (armed_) timer_delete(timer_);
  }
  SignalStorm(const SignalStorm&) = delete;
  SignalStorm& operator=(const SignalStorm&) = delete;

  static std::uint64_t seen() { return static_cast<std::uint64_t>(seen_); }

 private:
  static inline volatile std::sig_atomic_t seen_ = 0;
  timer_t timer_ = {};
  bool armed_ = false;
};

}  // namespace vexa_test

#endif
