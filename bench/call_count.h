// SPDX-License-Identifier: MIT
// Counts calls that cost more than time: syncs, allocations, locks.
//
// The program defines these functions itself, so that the library and SQLite call them here.
#ifndef VEXADM_BENCH_CALL_COUNT_H
#define VEXADM_BENCH_CALL_COUNT_H

#include <benchmark/benchmark.h>

#include <cstdint>

namespace bench {

struct CallCount {
  uint64_t syncs;
  uint64_t allocations;
  uint64_t locks;
};

CallCount calls_so_far();

// The calls of a benchmark's loop, as its counters "allocations" and "locks" per iteration.
class CountCalls {
 public:
  explicit CountCalls(benchmark::State& state) : state_(state), before_(calls_so_far()) {}
  CountCalls(const CountCalls&) = delete;
  CountCalls& operator=(const CountCalls&) = delete;
  ~CountCalls();

 private:
  benchmark::State& state_;
  CallCount before_;
};

}  // namespace bench

#endif
