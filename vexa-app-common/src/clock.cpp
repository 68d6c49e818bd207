// SPDX-License-Identifier: MIT
// Clock readings.
#include "vexadm/clock.h"

#include <sys/sysinfo.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "log/call_site.h"

namespace {

static_assert(sizeof(vexa_clk_time) == 8 && offsetof(vexa_clk_time, usec) == 4);

constexpr int32_t kMicroseconds = 1000000;

// Seconds of the real-time clock that no longer fit start over, as they do in every record of the
// framework that has 32 bits for them.
vexa_clk_time time_of(const timespec& now) {
  return {static_cast<int32_t>(now.tv_sec), static_cast<int32_t>(now.tv_nsec / 1000)};
}

int32_t wrapping_sum(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

}  // namespace

vexa_clk_time* vexa_clk_GetRelativeTime(vexa_clk_time* out) {
  if (!out) return nullptr;
  timespec now = {};
  if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) {
    const int error = errno;
    std::printf("clock_gettime() failed. errno = %d (%s)\n", error, std::strerror(error));
    now = {};
  }
  *out = time_of(now);
  return out;
}

vexa_clk_time* vexa_clk_GetAbsoluteTime(vexa_clk_time* out) {
  if (!out) return nullptr;
  timespec now = {};
  if (clock_gettime(CLOCK_REALTIME, &now) != 0) {
    VEXA_LOG(vexa::log::kError, "vexa_clk_GetAbsoluteTime",
             "CLOCK_REALTIME is not supported for Absolute time\n");
    now = {};
  }
  *out = time_of(now);
  return out;
}

vexa_clk_time* vexa_clk_Add(vexa_clk_time* out, const vexa_clk_time* a, const vexa_clk_time* b) {
  if (!out || !a || !b) return nullptr;
  vexa_clk_time sum = {wrapping_sum(a->sec, b->sec), wrapping_sum(a->usec, b->usec)};
  // Once only: readings have less than a second of microseconds each.
  if (sum.usec >= kMicroseconds) {
    sum.usec -= kMicroseconds;
    sum.sec = wrapping_sum(sum.sec, 1);
  }
  *out = sum;
  return out;
}

long get_linuxuptime() {
  struct sysinfo info = {};
  const bool known = sysinfo(&info) == 0;
  const long uptime = known ? static_cast<long>(info.uptime) : -1;
  VEXA_LOG(known ? vexa::log::kDebug : vexa::log::kError, "get_linuxuptime", "info.uptime is %ld\n", uptime);
  return uptime;
}
