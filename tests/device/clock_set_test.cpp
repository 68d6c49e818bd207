// SPDX-License-Identifier: MIT
// Sets the machine's clock while something waits, as a router's time service does right after its
// start. Runs on the emulated device (./dev device) and nowhere else: the clock is everybody's.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <string>
#include <string_view>
#include <thread>

#include "vexadm/process.h"
#include "vexadm/semaphore.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;  // the monotonic clock

constexpr long kDay = 86'400;

class ClockSet : public ::testing::TestWithParam<long> {
 protected:
  void SetUp() override {
    const char* const may = std::getenv("VEXA_MAY_SET_CLOCK");
    if (may == nullptr || std::string_view(may) != "1") GTEST_SKIP() << "VEXA_MAY_SET_CLOCK is not 1";
  }

  // Moves the wall clock by the parameter, half a second from now.
  void set_clock_soon() {
    setter_ = std::thread([] {
      std::this_thread::sleep_for(milliseconds(500));
      timespec now = {};
      ASSERT_EQ(clock_gettime(CLOCK_REALTIME, &now), 0);
      now.tv_sec += GetParam();
      ASSERT_EQ(clock_settime(CLOCK_REALTIME, &now), 0);
    });
  }

  void TearDown() override {
    if (setter_.joinable()) setter_.join();
  }

  // The margin above is for an emulated processor; the clock moves by a day.
  static void expect_two_seconds(steady_clock::duration took) {
    EXPECT_GE(took, milliseconds(1'990));
    EXPECT_LT(took, milliseconds(4'000));
  }

  static time_t wall() { return std::time(nullptr); }

 private:
  std::thread setter_;
};

TEST_P(ClockSet, AWaitForASemaphoreEndsOnTime) {
  vexa_cmn_sem sem;
  ASSERT_EQ(vexa_cmn_sem_init(&sem), 0U);
  const vexa_cmn_timeval timeout = {.seconds = 2, .microseconds = 0};
  const time_t before = wall();
  const auto begin = steady_clock::now();
  set_clock_soon();
  EXPECT_EQ(vexa_cmn_sem_timedwait(&sem, &timeout), 2U);
  expect_two_seconds(steady_clock::now() - begin);
  EXPECT_NEAR(static_cast<double>(wall() - before), static_cast<double>(GetParam()), 10)
      << "the clock was not set";
  vexa_cmn_sem_deinit(&sem);
}

INSTANTIATE_TEST_SUITE_P(ByADay, ClockSet, ::testing::Values(-kDay, kDay),
                         [](const auto& name) { return std::string(name.param < 0 ? "Back" : "Forward"); });

}  // namespace
