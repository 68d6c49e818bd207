// SPDX-License-Identifier: MIT
// Registration happens once per process, so each measured start is a process of its own.
#ifndef VEXADM_BENCH_START_UP_H
#define VEXADM_BENCH_START_UP_H

#include <string_view>

namespace bench {

// The argument that makes this program measure one start and print its nanoseconds.
inline constexpr std::string_view kStartUpOption = "--start-up=";

// Runs in that process. Returns its exit code.
int measure_start_up(std::string_view what);

}  // namespace bench

#endif
