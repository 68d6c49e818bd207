// SPDX-License-Identifier: MIT
// In place of the C library's functions: a wait moves the clock on and takes no time. Otherwise an
// input that makes the library wait for a lock would stop the fuzzer for seconds.
#include <time.h>

#include "fuzz_target.h"
#include "support/libc_calls.h"

namespace {

constexpr std::int64_t kSecondNs = 1000000000;
std::int64_t moved_ns = 0;

}  // namespace

namespace vexa_fuzz {

std::int64_t waited_us() { return moved_ns / 1000; }

}  // namespace vexa_fuzz

extern "C" int nanosleep(const timespec* request, timespec*) {
  moved_ns += request->tv_sec * kSecondNs + request->tv_nsec;
  return 0;
}

extern "C" int clock_gettime(clockid_t clock, timespec* now) noexcept {
  const int result = vexa_test::kernel_clock(clock, now);
  if (result != 0 || clock != CLOCK_MONOTONIC) return result;
  const std::int64_t total = now->tv_nsec + moved_ns;
  now->tv_sec += total / kSecondNs;
  now->tv_nsec = static_cast<long>(total % kSecondNs);
  return 0;
}
