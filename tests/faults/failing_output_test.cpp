// SPDX-License-Identifier: MIT
// A signal handler of the host does not cut what a command prints.
#include <time.h>

#include <csignal>
#include <cstdlib>

#include "support/storage_fixture.h"

namespace vexa_test {
namespace {

volatile std::sig_atomic_t g_signals = 0;

class FailingOutput : public StorageTest {};

// The command is still silent when the first of them arrive.
TEST_F(FailingOutput, OfACommandIsReadOnAfterASignal) {
  expect_in_child([] {
    struct sigaction action = {};
    action.sa_handler = [](int) { g_signals = g_signals + 1; };
    sigaction(SIGUSR1, &action, nullptr);  // without SA_RESTART
    sigevent event = {};
    event.sigev_notify = SIGEV_SIGNAL;
    event.sigev_signo = SIGUSR1;
    timer_t timer = {};
    ASSERT_EQ(timer_create(CLOCK_MONOTONIC, &event, &timer), 0);
    const timespec pause = {0, 2000000};
    const itimerspec times = {pause, pause};
    timer_settime(timer, 0, &times, nullptr);
    char output[16] = {};
    EXPECT_EQ(dm_sqlite_system_cmd("sleep 0.1; printf 12; sleep 0.1; printf 345", output, 15), 0u);
    timer_delete(timer);
    EXPECT_GT(g_signals, 5);
    EXPECT_STREQ(output, "12345");
  });
}

}  // namespace
}  // namespace vexa_test
