// SPDX-License-Identifier: MIT
#include "start_up.h"

#include <benchmark/benchmark.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "floor.h"
#include "store.h"

namespace bench {
namespace {

constexpr int kItems = 200;
constexpr int kValueSize = 4;

// Nanoseconds of one start in a new process, or a negative number.
double one_start(const char* what) {
  const std::string command = "VEXA_BENCH_DIR=. exec /proc/" + std::string(std::getenv("VEXA_BENCH_SELF")) +
                              "/exe " + std::string(kStartUpOption) + what;
  std::FILE* process = popen(command.c_str(), "re");
  double nanoseconds = -1;
  if (process == nullptr || std::fscanf(process, "%lf", &nanoseconds) != 1) nanoseconds = -1;
  const bool well = process != nullptr && pclose(process) == 0;
  return well ? nanoseconds : -1;
}

void run_starts(benchmark::State& state, const char* what) {
  select_store(kValueSize, kItems);
  for ([[maybe_unused]] auto round : state) {
    const double nanoseconds = one_start(what);
    if (nanoseconds < 0) {
      state.SkipWithError("start failed");
      break;
    }
    state.SetIterationTime(nanoseconds / 1e9);
  }
}

void start_up(benchmark::State& state) { run_starts(state, "library"); }
void least_start_up(benchmark::State& state) { run_starts(state, "floor"); }
void first_read(benchmark::State& state) { run_starts(state, "library-read"); }
void least_first_read(benchmark::State& state) { run_starts(state, "floor-read"); }

BENCHMARK(start_up)->Name("start-up registration/items:200")->UseManualTime()->Iterations(20);
BENCHMARK(least_start_up)->Name("floor: start-up registration/items:200")->UseManualTime()->Iterations(20);
BENCHMARK(first_read)->Name("start-up to first read/items:200")->UseManualTime()->Iterations(20);
BENCHMARK(least_first_read)->Name("floor: start-up to first read/items:200")->UseManualTime()->Iterations(20);

}  // namespace

int measure_start_up(std::string_view what) {
  select_store(kValueSize, kItems);
  std::vector<vexa_dm_default_item> table = item_table("none");
  table[kItems].id = -1;
  const auto begin = std::chrono::steady_clock::now();
  bool done = false;
  std::array<uint8_t, kValueSize> value = {};
  if (what.starts_with("library")) {
    vexa_dm_handle* const store = vexa_dm_reg(VEXA_DM_BACKEND_SQLITE);
    done = store != nullptr && vexa_dm_reg_def_items(table.data()) == 0;
    if (what.ends_with("-read")) done = done && vexa_dm_read(store, id_of(0), value.data(), kValueSize) > 0;
  } else {
    done = floor::start();
    if (what.ends_with("-read")) {
      done = done && floor::read_item(kTable, key_of(0), value.data(), kValueSize) == kValueSize;
    }
  }
  const std::chrono::duration<double, std::nano> taken = std::chrono::steady_clock::now() - begin;
  std::printf("%.0f\n", taken.count());
  return done ? 0 : 1;
}

}  // namespace bench
