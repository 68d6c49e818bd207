// SPDX-License-Identifier: MIT
// Reads that memory answers.
#include <benchmark/benchmark.h>
#include <pthread.h>

#include <array>
#include <cstring>
#include <memory>

#include "call_count.h"
#include "store.h"
#include "table.h"

namespace bench {
namespace {

constexpr int kValueSize = kCachedSize;

// Every item in turn, in an order that a linear search cannot like.
int next_number(int number, int items) { return (number + 7) % items; }

void cached_read(benchmark::State& state) {
  const auto items = static_cast<int>(state.range(0));
  std::array<uint8_t, kValueSize> buffer = {};
  int number = 0;
  const CountCalls calls(state);
  for ([[maybe_unused]] auto round : state) {
    benchmark::DoNotOptimize(vexa_dm_read(handle(), id_of(number), buffer.data(), kValueSize));
    number = next_number(number, items);
  }
}
BENCHMARK(cached_read)->Name("cached read")->ArgName("items")->Arg(10)->Arg(100)->Arg(1000);

// A list of entries, each with a lock of its own.
struct Entry {
  std::unique_ptr<Entry> next;
  pthread_rwlock_t lock = PTHREAD_RWLOCK_INITIALIZER;
  uint32_t id = 0;
  std::array<uint8_t, kValueSize> value = {};
};

Entry* entries() {
  static const std::unique_ptr<Entry> first = [] {
    std::unique_ptr<Entry> head;
    for (int number = kMostItems - 1; number >= 0; --number) {
      auto entry = std::make_unique<Entry>();
      entry->id = static_cast<uint32_t>(id_of(number));
      entry->next = std::move(head);
      head = std::move(entry);
    }
    return head;
  }();
  return first.get();
}

void least_cached_read(benchmark::State& state) {
  const auto items = static_cast<int>(state.range(0));
  std::array<uint8_t, kValueSize> buffer = {};
  int number = 0;
  for ([[maybe_unused]] auto round : state) {
    Entry* entry = entries();
    while (entry->id != static_cast<uint32_t>(id_of(number))) entry = entry->next.get();
    pthread_rwlock_rdlock(&entry->lock);
    std::memcpy(buffer.data(), entry->value.data(), kValueSize);
    pthread_rwlock_unlock(&entry->lock);
    benchmark::DoNotOptimize(buffer);
    number = next_number(number, items);
  }
}
BENCHMARK(least_cached_read)->Name("floor: cached read")->ArgName("items")->Arg(10)->Arg(100)->Arg(1000);

}  // namespace
}  // namespace bench
