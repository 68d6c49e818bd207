// SPDX-License-Identifier: MIT
// Writes that a power cut does not undo.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstring>
#include <string>
#include <vector>

#include "call_count.h"
#include "floor.h"
#include "store.h"
#include "table.h"

namespace bench {
namespace {

// A value that no write before had: an equal one would not be written.
void renew(std::string& value) {
  static uint32_t number = 0;
  ++number;
  std::memcpy(value.data(), &number, sizeof number);
}

struct Written {
  bool done;
  double nanoseconds;
  uint64_t syncs;
};

template <typename Write>
Written timed(Write write) {
  const CallCount before = calls_so_far();
  const auto begin = std::chrono::steady_clock::now();
  const bool done = write();
  const std::chrono::duration<double, std::nano> taken = std::chrono::steady_clock::now() - begin;
  return {done, taken.count(), calls_so_far().syncs - before.syncs};
}

// Library and floor in turn, write by write, and the median of each: what storage is busy with
// changes from one millisecond to the next, and a single sync may take a hundred times its usual.
void durable_write(benchmark::State& state) {
  std::string value(static_cast<std::size_t>(state.range(0)), 'x');
  const auto size = static_cast<int32_t>(value.size());
  const auto items = static_cast<int>(state.range(1));
  select_store(value.size(), items);
  std::vector<double> library_times;
  std::vector<double> floor_times;
  Written library = {};
  Written least = {};
  int number = 0;
  for ([[maybe_unused]] auto round : state) {
    renew(value);
    library = timed([&] { return vexa_dm_write(handle(), id_of(number), value.data(), size) == 0; });
    renew(value);
    least = timed([&] {
      return floor::write_item(kTable, static_cast<uint32_t>(id_of(number)), key_of(number), value.data(),
                               size);
    });
    if (!library.done || !least.done) {
      state.SkipWithError("write failed");
      return;
    }
    library_times.push_back(library.nanoseconds);
    floor_times.push_back(least.nanoseconds);
    number = (number + 7) % items;
  }
  state.counters[kOwnTime] = median(library_times);
  state.counters[kFloorTime] = median(floor_times);
  state.counters["syncs"] = static_cast<double>(library.syncs);
  state.counters["floor syncs"] = static_cast<double>(least.syncs);
}
BENCHMARK(durable_write)
    ->Name("durable write")
    ->ArgNames({"bytes", "items"})
    ->ArgsProduct({{4, 1024}, {20, 200}})
    ->Iterations(30)
    ->UseRealTime();

}  // namespace
}  // namespace bench
