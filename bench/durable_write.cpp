// SPDX-License-Identifier: MIT
// Writes that a power cut does not undo.
#include <benchmark/benchmark.h>

#include <cstring>
#include <string>

#include "call_count.h"
#include "floor.h"
#include "store.h"

namespace bench {
namespace {

// A value that no write before had: an equal one would not be written.
void renew(std::string& value) {
  static uint32_t number = 0;
  ++number;
  std::memcpy(value.data(), &number, sizeof number);
}

void durable_write(benchmark::State& state) {
  std::string value(static_cast<std::size_t>(state.range(0)), 'x');
  const auto items = static_cast<int>(state.range(1));
  select_store(value.size(), items);
  int number = 0;
  const CountCalls calls(state);
  for ([[maybe_unused]] auto round : state) {
    renew(value);
    if (vexa_dm_write(handle(), id_of(number), value.data(), static_cast<int32_t>(value.size())) != 0) {
      state.SkipWithError("write failed");
      break;
    }
    number = (number + 7) % items;
  }
}

void least_durable_write(benchmark::State& state) {
  std::string value(static_cast<std::size_t>(state.range(0)), 'x');
  const auto items = static_cast<int>(state.range(1));
  select_store(value.size(), items);
  int number = 0;
  const CountCalls calls(state);
  for ([[maybe_unused]] auto round : state) {
    renew(value);
    if (!floor::write_item(kTable, static_cast<uint32_t>(id_of(number)), key_of(number), value.data(),
                           static_cast<int>(value.size()))) {
      state.SkipWithError("write failed");
      break;
    }
    number = (number + 7) % items;
  }
}

#define WRITE_SIZES ArgsProduct({{4, 1024}, {20, 200}})->UseRealTime()
BENCHMARK(durable_write)->Name("durable write, bytes/items")->WRITE_SIZES;
BENCHMARK(least_durable_write)->Name("floor: durable write, bytes/items")->WRITE_SIZES;

}  // namespace
}  // namespace bench
