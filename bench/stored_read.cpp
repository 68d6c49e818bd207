// SPDX-License-Identifier: MIT
// Reads that reach both database files.
#include <benchmark/benchmark.h>

#include <array>

#include "call_count.h"
#include "floor.h"
#include "store.h"

namespace bench {
namespace {

constexpr int kValueSize = 4;

// By way of the call that leaves the cache out; the same slot and the same two files.
void stored_read(benchmark::State& state) {
  const auto items = static_cast<int>(state.range(0));
  select_store(kValueSize, items);
  std::array<char, kValueSize> buffer = {};
  int number = 0;
  const CountCalls calls(state);
  for ([[maybe_unused]] auto round : state) {
    if (vexa_dm_read_db(handle(), id_of(number), buffer.data(), kValueSize) != 0) {
      state.SkipWithError("read failed");
      break;
    }
    number = (number + 7) % items;
  }
}
BENCHMARK(stored_read)->Name("read from storage")->ArgName("items")->Arg(20)->Arg(200)->UseRealTime();

void least_stored_read(benchmark::State& state) {
  const auto items = static_cast<int>(state.range(0));
  select_store(kValueSize, items);
  std::array<char, kValueSize> buffer = {};
  int number = 0;
  for ([[maybe_unused]] auto round : state) {
    if (floor::read_item(kTable, key_of(number), buffer.data(), kValueSize) != kValueSize) {
      state.SkipWithError("read failed");
      break;
    }
    number = (number + 7) % items;
  }
}
BENCHMARK(least_stored_read)
    ->Name("floor: read from storage")
    ->ArgName("items")
    ->Arg(20)
    ->Arg(200)
    ->UseRealTime();

}  // namespace
}  // namespace bench
