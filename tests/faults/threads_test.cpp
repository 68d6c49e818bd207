// SPDX-License-Identifier: MIT
// Several threads of one process. Each round is a process of its own, so that its threads use
// everything for the first time, and at the same moment; then they read, write, log and queue, and
// every read is judged by the item's history. What the caveats leave to the host is done before
// the threads start: the item table and the callback.
#include <gtest/gtest.h>
#include <vexadm/vexadm.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "faults/fault_table.h"
#include "faults/quick_child.h"
#include "faults/thread_worker.h"
#include "support/storage_fixture.h"

namespace vexa_test {
namespace {

constexpr unsigned kMostSeconds = 50;  // a round that takes longer hangs

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr std::uint64_t kEveryday = 1500;
#else
constexpr std::uint64_t kEveryday = 4000;
#endif

void register_items() {
  vexa_dm_reg_def_items(shared_item_table());
  vexa_dm_reg_event_callback(StoreUser::count_event);
  set_print_interface([](const char*) {});
}

class Threads : public StorageTest {
 protected:
  // In a process of its own. The parent keeps the histories: the next round starts with its files.
  void run_round(unsigned threads, unsigned operations, unsigned seed) {
    const QuickResult result = run_quickly([&] { use_together(threads, operations, seed); }, kMostSeconds);
    EXPECT_EQ(result.exit_code, 0) << threads << " threads, signal " << result.signal << "\n" << result.out;
    EXPECT_TRUE(read_file(kBackup) == read_file(kPrimary)) << "the backup is not the primary";
  }

  SharedBoard board_;

 private:
  void use_together(unsigned count, unsigned operations, unsigned seed) {
    register_items();
    Shared shared(*board_, count, seed);
    std::vector<std::unique_ptr<Worker>> workers(count);
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < count; ++i) {
      threads.emplace_back([&, i] {
        workers[i] = std::make_unique<Worker>(shared, i, seed + i);
        workers[i]->run(operations);
      });
    }
    for (std::thread& thread : threads) thread.join();

    for (const auto& worker : workers) EXPECT_EQ(worker->complaints(), "");
    EXPECT_EQ(shared.put, shared.taken) << "elements got lost";
    EXPECT_FALSE(Lines::mixed()) << "two lines at once";
    expect_settled(seed);
  }

  // The last write of each item, in the cache and in the files.
  void expect_settled(unsigned seed) {
    vexa_dm_handle* const handle = vexa_dm_reg(VEXA_DM_BACKEND_SQLITE);
    StoreUser user(*board_, handle, seed);
    for (unsigned item = 1; item <= kItems; ++item) {
      user.read(item, From::kCache);
      user.read_file(item);
    }
    EXPECT_EQ(user.complaints(), "");
    vexa_dm_unreg(handle);
  }
};

TEST_F(Threads, ThatUseEverythingAtTheSameMomentFindWhatWasAcknowledged) {
  const auto seed = static_cast<unsigned>(how_many("VEXA_THREADS_SEED", 21, 21));
  const std::uint64_t operations = how_many_cases("VEXA_THREADS_OPERATIONS", kEveryday, 200'000);
  std::printf("seed %u\n", seed);
  std::mt19937 random(seed);
  FaultCount count;
  count.kind = "several threads";

  // Mostly short rounds: it is the first use that differs from all later ones.
  for (unsigned round = 0; board_.sum(kOperations) < operations && !HasFailure(); ++round) {
    SCOPED_TRACE("seed " + std::to_string(seed) + " round " + std::to_string(round));
    if (random() % 2 == 0) board_.begin_with_empty_device();
    const auto threads = static_cast<unsigned>(2 + random() % 7);
    const auto each = static_cast<unsigned>(random() % 8 == 0 ? 100 : 1 + random() % 12);
    run_round(threads, each, static_cast<unsigned>(random()));
    if (HasFailure()) ++count.failed;
  }

  count.tried = board_.sum(kOperations);
  std::printf("threads: %ju; acknowledged: %ju values, %ju emptyings, %ju pairs, %ju defaults built\n",
              board_.sum(kStarts), board_.sum(kWrites), board_.sum(kEmptied), board_.sum(kPairWrites),
              board_.sum(kDefaultsBuilt));
  std::printf(
      "skipped as the same: %ju; read: %ju from files, %ju through the cache; late: %ju writes, %ju reads\n",
      board_.sum(kSkipped), board_.sum(kReads), board_.sum(kCachedReads), board_.sum(kLateWrites),
      board_.sum(kLateReads));
  report(count);
}

// Writes and refreshes one item from several threads. Nobody keeps the writers apart: any of them
// may be the last.
void write_together(unsigned threads, unsigned writes, Number first) {
  register_items();
  vexa_dm_handle* const handle = vexa_dm_reg(VEXA_DM_BACKEND_SQLITE);
  std::barrier<> start(static_cast<std::ptrdiff_t>(threads));
  std::vector<std::thread> writers;
  for (unsigned thread = 0; thread < threads; ++thread) {
    writers.emplace_back([&, thread] {
      std::array<std::uint8_t, 16384> buffer;
      start.arrive_and_wait();
      for (unsigned i = 0; i < writes; ++i) {
        const std::string value = value_of(1, first + thread * writes + i);
        EXPECT_EQ(vexa_dm_write(handle, 1, value.data(), static_cast<std::int32_t>(value.size())), 0);
        EXPECT_EQ(vexa_dm_read_from_dbconfigfile(handle, 1, buffer.data(), buffer.size()), 0);
      }
    });
  }
  for (std::thread& writer : writers) writer.join();

  std::array<char, 16384> cached = {};
  std::array<char, 16384> stored = {};
  EXPECT_GT(vexa_dm_read(handle, 1, reinterpret_cast<std::uint8_t*>(cached.data()), cached.size()), 0);
  EXPECT_EQ(vexa_dm_read_db(handle, 1, stored.data(), stored.size()), 0);
  EXPECT_EQ(std::string(cached.data(), 16), std::string(stored.data(), 16));
}

TEST_F(Threads, ThatWriteOneItemLeaveTheSameInCacheAndFile) {
  constexpr unsigned kThreads = 4;
  constexpr unsigned kWrites = 5;
  FaultCount count;
  count.kind = "several threads";
  const std::uint64_t rounds = how_many_cases("VEXA_THREADS_ROUNDS", 20, 500);
  for (std::uint64_t round = 0; round < rounds && !HasFailure(); ++round) {
    const auto first = static_cast<Number>(round * kThreads * kWrites);
    const QuickResult result = run_quickly([&] { write_together(kThreads, kWrites, first); }, kMostSeconds);
    EXPECT_EQ(result.exit_code, 0) << "round " << round << ", signal " << result.signal << "\n" << result.out;
    count.tried += kThreads * kWrites * 2;
  }
  count.failed = HasFailure() ? 1 : 0;
  report(count);
}

}  // namespace
}  // namespace vexa_test
