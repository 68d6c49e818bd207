// SPDX-License-Identifier: MIT
// The counting semaphore.
#include "vexadm/semaphore.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <limits>

#include "log/call_site.h"
#include "owners.h"

static_assert(offsetof(vexa_cmn_sem, lock) == 0);
static_assert(offsetof(vexa_cmn_sem, cond) >= sizeof(pthread_mutex_t));
static_assert(offsetof(vexa_cmn_sem, condattr) == offsetof(vexa_cmn_sem, cond) + sizeof(pthread_cond_t));
static_assert(offsetof(vexa_cmn_sem, value) == offsetof(vexa_cmn_sem, condattr) + sizeof(pthread_condattr_t));
static_assert(sizeof(vexa_cmn_timeval) == 2 * sizeof(long));

namespace {

using vexa::MutexLock;

constexpr const char* kName = "vexa_cmn_sem_timedwait";
constexpr int64_t kNanosecondsPerSecond = 1000000000;

// Far spans end at the last moment there is, and not before the first one.
int64_t bounded_sum(int64_t a, int64_t b) {
  int64_t sum = 0;
  if (!__builtin_add_overflow(a, b, &sum)) return sum;
  return b > 0 ? std::numeric_limits<int64_t>::max() : std::numeric_limits<int64_t>::min();
}

int64_t bounded_product(int64_t a, int64_t b) {
  int64_t product = 0;
  if (!__builtin_mul_overflow(a, b, &product)) return product;
  return (a > 0) == (b > 0) ? std::numeric_limits<int64_t>::max() : std::numeric_limits<int64_t>::min();
}

timespec deadline_after(const vexa_cmn_timeval& span) {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  int64_t seconds = bounded_sum(now.tv_sec, span.seconds);
  // In 64 bits: a long of the router overflows with 2.2 seconds of nanoseconds.
  int64_t nanoseconds = bounded_sum(now.tv_nsec, bounded_product(span.microseconds, 1000));
  // One second at most is carried. What is still too much is no time, which the wait refuses:
  // microseconds of more than a second are a mistake of the caller's, who gets to know it.
  if (nanoseconds >= kNanosecondsPerSecond) {
    nanoseconds -= kNanosecondsPerSecond;
    seconds = bounded_sum(seconds, 1);
  }
  timespec deadline = {};
  using Seconds = std::numeric_limits<std::time_t>;
  deadline.tv_sec = static_cast<std::time_t>(std::clamp<int64_t>(seconds, Seconds::min(), Seconds::max()));
  deadline.tv_nsec = static_cast<long>(std::clamp<int64_t>(nanoseconds, LONG_MIN, LONG_MAX));
  return deadline;
}

// True when there was something to take. Expects the lock to be held.
bool take(vexa_cmn_sem& sem) {
  if (sem.value < 1) return false;
  --sem.value;
  return true;
}

bool is_endless(const vexa_cmn_timeval* timeout) {
  return !timeout || (timeout->seconds == 0 && timeout->microseconds == 0);
}

}  // namespace

uint32_t vexa_cmn_sem_init(vexa_cmn_sem* sem) {
  if (!sem) return 1;
  pthread_mutex_init(&sem->lock, nullptr);
  pthread_condattr_init(&sem->condattr);
  pthread_condattr_setclock(&sem->condattr, CLOCK_MONOTONIC);
  pthread_cond_init(&sem->cond, &sem->condattr);
  sem->value = 0;
  return 0;
}

void vexa_cmn_sem_deinit(vexa_cmn_sem* sem) {
  if (!sem) return;
  pthread_mutex_destroy(&sem->lock);
  // The condition variable stays: destroying it would wait for threads that still wait on it.
  sem->value = 0;
}

uint32_t vexa_cmn_sem_post(vexa_cmn_sem* sem) {
  if (!sem) return 1;
  const MutexLock lock(sem->lock);
  if (sem->value < INT32_MAX) ++sem->value;
  pthread_cond_signal(&sem->cond);
  return 0;
}

uint32_t vexa_cmn_sem_timedwait(vexa_cmn_sem* sem, const vexa_cmn_timeval* timeout) {
  if (!sem) return 1;
  const MutexLock lock(sem->lock);
  VEXA_LOG(vexa::log::kDebug, kName, "sem_cond_value=%d\n", sem->value);
  if (take(*sem)) return 0;
  if (is_endless(timeout)) {
    while (!take(*sem)) pthread_cond_wait(&sem->cond, &sem->lock);
    return 0;
  }
  const timespec deadline = deadline_after(*timeout);
  // Once: hosts use a wake-up without an event to look at other things they wait for.
  if (pthread_cond_timedwait(&sem->cond, &sem->lock, &deadline) == ETIMEDOUT) {
    VEXA_LOG(vexa::log::kInfo, kName, "Timed out waiting!\n");
    return 2;
  }
  return take(*sem) ? 0 : 1;
}

uint32_t vexa_cmn_sem_reset_value(vexa_cmn_sem* sem) {
  if (!sem) return 1;
  const MutexLock lock(sem->lock);
  sem->value = 0;
  return 0;
}
