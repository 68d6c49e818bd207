// SPDX-License-Identifier: MIT
#include "vexadm/semaphore.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <ctime>
#include <thread>
#include <vector>

#include "support/libc_calls.h"
#include "support/log_capture.h"
#include "support/log_text.h"
#include "vexadm/log.h"

// ---- The system calls that the semaphore makes, watched on their way -----------------

namespace {

// Tests that need it end here where nothing is watched.
#define WATCH()                                                        \
  do {                                                                 \
    if (!kWatching) GTEST_SKIP() << "the sanitizer needs these calls"; \
    watched.on = true;                                                 \
  } while (false)

struct Watched {
  bool on = false;
  std::vector<clockid_t> clocks_set;
  std::vector<clockid_t> clocks_read;
  std::vector<timespec> deadlines;
  const timespec* now = nullptr;      // what the clock says; NULL: the truth
  int timed_wait_answer = -1;         // -1: the truth
  void (*while_waiting)() = nullptr;  // instead of the wait
  int waits = 0;
  int signals = 0;
  int broadcasts = 0;
  std::vector<const pthread_mutex_t*> mutexes_destroyed;
  int conds_destroyed = 0;
  int attributes_destroyed = 0;
} watched;

template <typename Function>
[[maybe_unused]] Function* next(Function*, const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// ThreadSanitizer watches the same functions, and has to see them.
#if defined(__SANITIZE_THREAD__)
constexpr bool kWatching = false;
#else
constexpr bool kWatching = true;

extern "C" {

int pthread_condattr_setclock(pthread_condattr_t* attributes, clockid_t clock) noexcept {
  if (watched.on) watched.clocks_set.push_back(clock);
  return next(&pthread_condattr_setclock, "pthread_condattr_setclock")(attributes, clock);
}

int clock_gettime(clockid_t clock, timespec* now) noexcept {
  if (watched.on) watched.clocks_read.push_back(clock);
  if (watched.on && watched.now != nullptr) {
    *now = *watched.now;
    return 0;
  }
  return next(&clock_gettime, VEXA_CLOCK_GETTIME)(clock, now);
}

int pthread_cond_timedwait(pthread_cond_t* cond, pthread_mutex_t* mutex, const timespec* deadline) {
  if (watched.on) {
    ++watched.waits;
    watched.deadlines.push_back(*deadline);
    if (watched.while_waiting != nullptr) watched.while_waiting();
    if (watched.timed_wait_answer >= 0) return watched.timed_wait_answer;
  }
  return next(&pthread_cond_timedwait, VEXA_COND_TIMEDWAIT)(cond, mutex, deadline);
}

int pthread_cond_wait(pthread_cond_t* cond, pthread_mutex_t* mutex) {
  if (watched.on) {
    ++watched.waits;
    if (watched.while_waiting != nullptr) {
      watched.while_waiting();
      return 0;
    }
  }
  return next(&pthread_cond_wait, "pthread_cond_wait")(cond, mutex);
}

int pthread_cond_signal(pthread_cond_t* cond) noexcept {
  if (watched.on) ++watched.signals;
  return next(&pthread_cond_signal, "pthread_cond_signal")(cond);
}

int pthread_cond_broadcast(pthread_cond_t* cond) noexcept {
  if (watched.on) ++watched.broadcasts;
  return next(&pthread_cond_broadcast, "pthread_cond_broadcast")(cond);
}

int pthread_mutex_destroy(pthread_mutex_t* mutex) noexcept {
  if (watched.on) watched.mutexes_destroyed.push_back(mutex);
  return next(&pthread_mutex_destroy, "pthread_mutex_destroy")(mutex);
}

int pthread_cond_destroy(pthread_cond_t* cond) noexcept {
  if (watched.on) ++watched.conds_destroyed;
  return next(&pthread_cond_destroy, "pthread_cond_destroy")(cond);
}

int pthread_condattr_destroy(pthread_condattr_t* attributes) noexcept {
  if (watched.on) ++watched.attributes_destroyed;
  return next(&pthread_condattr_destroy, "pthread_condattr_destroy")(attributes);
}
}
#endif

namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using vexa_test::log_is;
using vexa_test::LogCapture;

constexpr vexa_cmn_timeval kZero = {0, 0};
constexpr vexa_cmn_timeval kMoment = {0, 20000};
constexpr vexa_cmn_timeval kLong = {30, 0};

std::int64_t now_ms() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

class Semaphore : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(vexa_cmn_sem_init(&sem_), 0u); }
  void TearDown() override {
    watched = Watched();
    set_print_interface(nullptr);
    EXPECT_EQ(pthread_mutex_trylock(&sem_.lock), 0);
    pthread_mutex_unlock(&sem_.lock);
  }

  void post(int times) {
    for (int i = 0; i < times; ++i) EXPECT_EQ(vexa_cmn_sem_post(&sem_), 0u);
  }
  // Counts the waits from here on, by the line that each logs while it holds the lock.
  static void count_waits() {
    waits_begun = 0;
    vexa_set_log_level(0);
    set_print_interface([](const char*) { ++waits_begun; });
  }
  // Returns when so many waits sleep: who has the lock after they had it knows that they gave it up.
  void wait_for_sleepers(int count) {
    while (waits_begun.load() < count) std::this_thread::yield();
    pthread_mutex_lock(&sem_.lock);
    pthread_mutex_unlock(&sem_.lock);
  }

  static inline std::atomic<int> waits_begun{0};
  vexa_cmn_sem sem_;
};

// ---- Layout and life --------------------------------------------------------------

TEST(SemaphoreLayout, FieldsStandInTheirOrder) {
  EXPECT_EQ(offsetof(vexa_cmn_sem, lock), 0u);
  EXPECT_EQ(offsetof(vexa_cmn_sem, cond), (sizeof(pthread_mutex_t) + 7) / 8 * 8);
  EXPECT_EQ(offsetof(vexa_cmn_sem, condattr), offsetof(vexa_cmn_sem, cond) + sizeof(pthread_cond_t));
  EXPECT_EQ(offsetof(vexa_cmn_sem, value), offsetof(vexa_cmn_sem, condattr) + sizeof(pthread_condattr_t));
  EXPECT_EQ(offsetof(vexa_cmn_timeval, seconds), 0u);
  EXPECT_EQ(offsetof(vexa_cmn_timeval, microseconds), sizeof(long));
  EXPECT_EQ(sizeof(vexa_cmn_timeval), 2 * sizeof(long));
}

TEST_F(Semaphore, InitGivesValueZeroAndAnOrdinaryMutex) {
  sem_.value = 77;
  EXPECT_EQ(vexa_cmn_sem_init(&sem_), 0u);
  EXPECT_EQ(sem_.value, 0);
  ASSERT_EQ(pthread_mutex_lock(&sem_.lock), 0);
  EXPECT_EQ(pthread_mutex_trylock(&sem_.lock), EBUSY);
  pthread_mutex_unlock(&sem_.lock);
}

TEST_F(Semaphore, InitSetsTheMonotonicClockInTheKeptAttributes) {
  WATCH();
  EXPECT_EQ(vexa_cmn_sem_init(&sem_), 0u);
  EXPECT_THAT(watched.clocks_set, ElementsAre(CLOCK_MONOTONIC));
  clockid_t clock = -1;
  EXPECT_EQ(pthread_condattr_getclock(&sem_.condattr, &clock), 0);
  EXPECT_EQ(clock, CLOCK_MONOTONIC);
}

TEST_F(Semaphore, DeinitDestroysTheMutexZeroesTheValueAndLeavesTheConditionAlive) {
  post(3);
  WATCH();
  vexa_cmn_sem_deinit(&sem_);
  EXPECT_EQ(sem_.value, 0);
  EXPECT_THAT(watched.mutexes_destroyed, ElementsAre(&sem_.lock));
  EXPECT_EQ(watched.conds_destroyed, 0);
  EXPECT_EQ(watched.attributes_destroyed, 0);
  EXPECT_EQ(pthread_cond_signal(&sem_.cond), 0);
  EXPECT_EQ(vexa_cmn_sem_init(&sem_), 0u);
}

TEST(SemaphoreOfNull, IsRefused) {
  const LogCapture log;
  EXPECT_EQ(vexa_cmn_sem_init(nullptr), 1u);
  vexa_cmn_sem_deinit(nullptr);
  EXPECT_EQ(vexa_cmn_sem_post(nullptr), 1u);
  EXPECT_EQ(vexa_cmn_sem_timedwait(nullptr, &kMoment), 1u);
  EXPECT_EQ(vexa_cmn_sem_timedwait(nullptr, nullptr), 1u);
  EXPECT_EQ(vexa_cmn_sem_reset_value(nullptr), 1u);
  EXPECT_TRUE(log_is(log, {}));
}

// ---- Taking what is there -----------------------------------------------------------

TEST_F(Semaphore, TwoPostsServeTwoWaitsAndAThirdBlocksUntilAPost) {
  post(2);
  EXPECT_EQ(vexa_cmn_sem_timedwait(&sem_, &kZero), 0u);
  EXPECT_EQ(vexa_cmn_sem_timedwait(&sem_, &kZero), 0u);
  EXPECT_EQ(sem_.value, 0);

  count_waits();
  std::atomic<bool> returned{false};
  std::thread third([&] {
    EXPECT_EQ(vexa_cmn_sem_timedwait(&sem_, &kZero), 0u);
    returned = true;
  });
  wait_for_sleepers(1);
  EXPECT_FALSE(returned.load());
  post(1);
  third.join();
  EXPECT_EQ(sem_.value, 0);
}

TEST_F(Semaphore, WhatIsThereIsTakenWhateverTheTimeout) {
  const vexa_cmn_timeval past = {-5, 0};
  post(4);
  WATCH();
  EXPECT_EQ(vexa_cmn_sem_timedwait(&sem_, nullptr), 0u);
  EXPECT_EQ(vexa_cmn_sem_timedwait(&sem_, &kZero), 0u);
  EXPECT_EQ(vexa_cmn_sem_timedwait(&sem_, &kLong), 0u);
  EXPECT_EQ(vexa_cmn_sem_timedwait(&sem_, &past), 0u);
  EXPECT_EQ(sem_.value, 0);
  EXPECT_EQ(watched.waits, 0);
}

TEST_F(Semaphore, ResetForgetsPosts) {
  post(3);
  EXPECT_EQ(sem_.value, 3);
  EXPECT_EQ(vexa_cmn_sem_reset_value(&sem_), 0u);
  EXPECT_EQ(sem_.value, 0);
  EXPECT_EQ(vexa_cmn_sem_timedwait(&sem_, &kMoment), 2u);
}

TEST_F(Semaphore, PostAtTheGreatestValueKeepsIt) {
  sem_.value = INT32_MAX;
  post(1);
  EXPECT_EQ(sem_.value, INT32_MAX);
}

TEST_F(Semaphore, EachPostSignalsOneWaiter) {
  WATCH();
  post(3);
  EXPECT_EQ(watched.signals, 3);
  EXPECT_EQ(watched.broadcasts, 0);
}

TEST_F(Semaphore, OfSeveralWaitersOnePostServesOne) {
  count_waits();
  std::atomic<int> served{0};
  std::vector<std::thread> waiters;
  for (int i = 0; i < 3; ++i) {
    waiters.emplace_back([&] {
      EXPECT_EQ(vexa_cmn_sem_timedwait(&sem_, nullptr), 0u);
      ++served;
    });
  }
  wait_for_sleepers(3);
  for (int posts = 1; posts <= 3; ++posts) {
    post(1);
    while (served.load() < posts) std::this_thread::yield();
    EXPECT_EQ(served.load(), posts);
  }
  for (std::thread& waiter : waiters) waiter.join();
  EXPECT_EQ(sem_.value, 0);
}

TEST_F(Semaphore, LosesNoPostBetweenThreads) {
  constexpr int kEach = 500;
  std::vector<std::thread> threads;
  for (int t = 0; t < 3; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < kEach; ++i) EXPECT_EQ(vexa_cmn_sem_post(&sem_), 0u);
    });
    threads.emplace_back([&, t] {
      for (int i = 0; i < kEach;) {
        const std::uint32_t result = vexa_cmn_sem_timedwait(&sem_, t == 0 ? nullptr : &kLong);
        ASSERT_LT(result, 2u);
        if (result == 0) ++i;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(sem_.value, 0);
}

// ---- Waiting without an end -----------------------------------------------------------

vexa_cmn_sem* g_posted = nullptr;

TEST_F(Semaphore, AnEndlessWaitGoesOnAfterWakeUpsWithoutAnEvent) {
  g_posted = &sem_;
  WATCH();
  watched.while_waiting = [] {
    if (watched.waits == 4) g_posted->value = 2;
  };
  EXPECT_EQ(vexa_cmn_sem_timedwait(&sem_, nullptr), 0u);
  EXPECT_EQ(watched.waits, 4);
  EXPECT_EQ(sem_.value, 1);
}

TEST_F(Semaphore, AnEndlessWaitAsksNoClock) {
  g_posted = &sem_;
  WATCH();
  watched.while_waiting = [] { g_posted->value = 1; };
  EXPECT_EQ(vexa_cmn_sem_timedwait(&sem_, &kZero), 0u);
  EXPECT_THAT(watched.clocks_read, IsEmpty());
  EXPECT_THAT(watched.deadlines, IsEmpty());
}

// ---- Waiting with an end ---------------------------------------------------------------

TEST_F(Semaphore, AWaitOfAlmostTwoSecondsTimesOutAfterThem) {
  const vexa_cmn_timeval timeout = {1, 999999};
  const std::int64_t start = now_ms();
  EXPECT_EQ(vexa_cmn_sem_timedwait(&sem_, &timeout), 2u);
  const std::int64_t waited = now_ms() - start;
  EXPECT_GE(waited, 1999);
  EXPECT_LT(waited, 3500);
}

TEST_F(Semaphore, APostEndsATimedWait) {
  count_waits();
  std::thread waiter([&] { EXPECT_EQ(vexa_cmn_sem_timedwait(&sem_, &kLong), 0u); });
  wait_for_sleepers(1);
  post(1);
  waiter.join();
  EXPECT_EQ(sem_.value, 0);
}

TEST_F(Semaphore, ATimedWaitDoesNotGoOnAfterAWakeUpWithoutAnEvent) {
  WATCH();
  watched.timed_wait_answer = 0;
  EXPECT_EQ(vexa_cmn_sem_timedwait(&sem_, &kLong), 1u);
  EXPECT_EQ(watched.waits, 1);
  EXPECT_EQ(sem_.value, 0);
}

TEST_F(Semaphore, ATimedWaitTakesWhatTheWakeUpBrought) {
  g_posted = &sem_;
  WATCH();
  watched.timed_wait_answer = 0;
  watched.while_waiting = [] { g_posted->value = 3; };
  EXPECT_EQ(vexa_cmn_sem_timedwait(&sem_, &kLong), 0u);
  EXPECT_EQ(sem_.value, 2);
}

TEST_F(Semaphore, ATimeOutLeavesAnEventThatCameWithIt) {
  g_posted = &sem_;
  WATCH();
  watched.timed_wait_answer = ETIMEDOUT;
  watched.while_waiting = [] { g_posted->value = 1; };
  EXPECT_EQ(vexa_cmn_sem_timedwait(&sem_, &kLong), 2u);
  EXPECT_EQ(sem_.value, 1);
}

TEST_F(Semaphore, ASpanBelowZeroHasPassed) {
  const vexa_cmn_timeval past = {-1, 0};
  EXPECT_EQ(vexa_cmn_sem_timedwait(&sem_, &past), 2u);
}

TEST_F(Semaphore, ASpanThatGivesNoTimeEndsAtOnceWithOne) {
  const vexa_cmn_timeval three_seconds_of_microseconds = {0, 3000000};
  EXPECT_EQ(vexa_cmn_sem_timedwait(&sem_, &three_seconds_of_microseconds), 1u);
  const vexa_cmn_timeval below_zero = {0, -2000000};
  EXPECT_EQ(vexa_cmn_sem_timedwait(&sem_, &below_zero), 1u);
}

struct Deadline {
  timespec now;
  vexa_cmn_timeval span;
  timespec deadline;
};

class SemaphoreDeadline : public Semaphore, public ::testing::WithParamInterface<Deadline> {};

TEST_P(SemaphoreDeadline, IsTheMonotonicClockPlusTheSpanWithOneCarry) {
  WATCH();
  watched.now = &GetParam().now;
  watched.timed_wait_answer = 0;
  EXPECT_EQ(vexa_cmn_sem_timedwait(&sem_, &GetParam().span), 1u);
  EXPECT_THAT(watched.clocks_read, Each(CLOCK_MONOTONIC));
  EXPECT_THAT(watched.clocks_read, Not(IsEmpty()));
  ASSERT_EQ(watched.deadlines.size(), 1u);
  EXPECT_EQ(watched.deadlines[0].tv_sec, GetParam().deadline.tv_sec);
  EXPECT_EQ(watched.deadlines[0].tv_nsec, GetParam().deadline.tv_nsec);
}

INSTANTIATE_TEST_SUITE_P(Spans, SemaphoreDeadline,
                         ::testing::Values(Deadline{{100, 5}, {2, 7}, {102, 7005}},
                                           Deadline{{100, 999999000}, {0, 1}, {101, 0}},
                                           Deadline{{100, 999998999}, {0, 1}, {100, 999999999}},
                                           Deadline{{100, 999999999}, {1, 999999}, {102, 999998999}},
                                           Deadline{{100, 0}, {0, 1000000}, {101, 0}},
                                           Deadline{{100, 0}, {0, 2000000}, {101, 1000000000}},
                                           Deadline{{100, 0}, {0, 2140000}, {101, 1140000000}},
                                           Deadline{{100, 5}, {-2, 0}, {98, 5}},
                                           Deadline{{100, 5000}, {0, -5}, {100, 0}},
                                           Deadline{{100, 5000}, {0, -6}, {100, -1000}}));

TEST_F(Semaphore, SpansBeyondAllNumbersOverflowNothing) {
  WATCH();
  watched.timed_wait_answer = 0;
  for (const long seconds : {LONG_MAX, LONG_MIN, 1L}) {
    for (const long microseconds : {LONG_MAX, LONG_MIN, 1L}) {
      const vexa_cmn_timeval span = {seconds, microseconds};
      EXPECT_EQ(vexa_cmn_sem_timedwait(&sem_, &span), 1u);
    }
  }
  EXPECT_GT(watched.deadlines[0].tv_sec, INT32_MAX - 1);
  EXPECT_GE(watched.deadlines[0].tv_nsec, 1000000000);
  EXPECT_LT(watched.deadlines[4].tv_sec, 0);
  EXPECT_LT(watched.deadlines[4].tv_nsec, 0);
}

// ---- The log ----------------------------------------------------------------------------

TEST_F(Semaphore, SaysWhatItFindsAndThatTimeIsOver) {
  const LogCapture log;
  post(7);
  EXPECT_EQ(vexa_cmn_sem_timedwait(&sem_, nullptr), 0u);
  EXPECT_EQ(vexa_cmn_sem_reset_value(&sem_), 0u);
  EXPECT_EQ(vexa_cmn_sem_timedwait(&sem_, &kMoment), 2u);
  EXPECT_TRUE(
      log_is(log, {"0 oem_cmn_sem_timedwait|sem_cond_value=7\n", "0 oem_cmn_sem_timedwait|sem_cond_value=0\n",
                   "1 oem_cmn_sem_timedwait|Timed out waiting!\n"}));
}

vexa_cmn_sem* g_logged = nullptr;
int g_locked_lines = 0;

TEST_F(Semaphore, LogsWhileItHoldsTheLock) {
  g_logged = &sem_;
  post(1);
  vexa_set_log_level(0);
  set_print_interface([](const char*) {
    if (pthread_mutex_trylock(&g_logged->lock) == EBUSY) {
      ++g_locked_lines;
    } else {
      pthread_mutex_unlock(&g_logged->lock);
    }
  });
  EXPECT_EQ(vexa_cmn_sem_timedwait(&sem_, &kMoment), 0u);
  EXPECT_EQ(vexa_cmn_sem_timedwait(&sem_, &kMoment), 2u);
  set_print_interface(nullptr);
  EXPECT_EQ(g_locked_lines, 3);
}

}  // namespace
