// SPDX-License-Identifier: MIT
// A clock that stands still, in the whole test program. Include it in the one source of a program.
#ifndef VEXADM_TESTS_WALL_CLOCK_H
#define VEXADM_TESTS_WALL_CLOCK_H

#include <sys/time.h>

#include <ctime>

namespace vexa_test {

inline timeval wall_clock = {-1, 0};  // negative: the real one goes on

}  // namespace vexa_test

extern "C" __attribute__((visibility("default"))) int gettimeofday(timeval* now, void*) noexcept {
  if (vexa_test::wall_clock.tv_sec >= 0) {
    *now = vexa_test::wall_clock;
    return 0;
  }
  timespec precise = {};
  clock_gettime(CLOCK_REALTIME, &precise);
  *now = {precise.tv_sec, precise.tv_nsec / 1000};
  return 0;
}

#endif
