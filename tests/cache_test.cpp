// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vexadm/data_manager.h>
#include <vexadm/log.h>

#include <atomic>
#include <csignal>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "support/child.h"
#include "support/failing_calloc.h"
#include "support/fake_backend.h"
#include "support/log_capture.h"

using namespace vexa_test;
using ::testing::ElementsAre;
using ::testing::StartsWith;

namespace {

void store(uint32_t id, const std::string& bytes) {
  const auto length = static_cast<int32_t>(bytes.size());
  vexa_dm_wr_to_mem(id, bytes.data(), &length);
}

struct Cached {
  int32_t length;
  std::string buffer;  // all of it, filled with '?' before
};

Cached load(uint32_t id, int32_t capacity, std::size_t size = 20) {
  Cached cached{capacity, std::string(size, '?')};
  vexa_dm_rd_from_mem(id, reinterpret_cast<uint8_t*>(cached.buffer.data()), &cached.length);
  return cached;
}

}  // namespace

TEST(Cache, AnIdNeverStoredIsMinusOne) {
  const LogCapture log;

  const Cached cached = load(0x1AF, 20);

  EXPECT_EQ(cached.length, -1);
  EXPECT_EQ(cached.buffer, std::string(20, '?'));
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_TRUE(log.has(3, "oem_dm_read_item_from_mem", "read_item:1af from_mem fail!\n"));
}

TEST(Cache, ALongerValueIsCutToTheCapacity) {
  store(1, "0123456789");

  const Cached cached = load(1, 4);

  EXPECT_EQ(cached.length, 4);
  EXPECT_EQ(cached.buffer, "0123????????????????");
}

TEST(Cache, AValueThatFitsIsDeliveredWithItsOwnLength) {
  store(1, "0123456789");

  const Cached cached = load(1, 20);

  EXPECT_EQ(cached.length, 10);
  EXPECT_EQ(cached.buffer, "0123456789??????????");
}

TEST(Cache, ACapacityOfExactlyTheValueDeliversAll) {
  store(1, "0123456789");

  EXPECT_EQ(load(1, 10).length, 10);
}

TEST(Cache, ACutReadLeavesTheStoredValueWhole) {
  store(1, "0123456789");
  load(1, 4);

  EXPECT_EQ(load(1, 20).length, 10);
}

TEST(Cache, AShorterValueReplacesALongerOne) {
  store(1, "0123456789");
  store(1, "abc");

  const Cached cached = load(1, 20);

  EXPECT_EQ(cached.length, 3);
  EXPECT_EQ(cached.buffer, "abc?????????????????");
}

TEST(Cache, AShorterValueWipesWhatIsLeftOfTheLongerOne) {
  VEXA_NEEDS_OWN_CALLOC();
  const CallocSpy spy(10);
  store(1, "0123456789");
  store(1, "abc");

  ASSERT_NE(spy.block(), nullptr);
  EXPECT_EQ(std::string(static_cast<char*>(spy.block()), 10), std::string("abc\0\0\0\0\0\0\0", 10));
}

TEST(Cache, ALongerValueReplacesAShorterOne) {
  store(1, "abc");
  store(1, "0123456789");

  const Cached cached = load(1, 20);

  EXPECT_EQ(cached.length, 10);
  EXPECT_EQ(cached.buffer, "0123456789??????????");
}

TEST(Cache, AValueGrowsAgainAfterItHasShrunk) {
  store(1, "0123456789");
  store(1, "abc");
  store(1, "vwxyz");

  const Cached cached = load(1, 20);

  EXPECT_EQ(cached.length, 5);
  EXPECT_EQ(cached.buffer, "vwxyz???????????????");
}

TEST(Cache, AnEmptyValueMakesAnEntryOfLengthZero) {
  store(1, "");

  const Cached cached = load(1, 20);

  EXPECT_EQ(cached.length, 0);
  EXPECT_EQ(cached.buffer, std::string(20, '?'));
}

TEST(Cache, AnEmptyValueReplacesAStoredOneAndIsReplacedAgain) {
  store(1, "abc");
  store(1, "");
  EXPECT_EQ(load(1, 20).length, 0);

  store(1, "wxyz");
  EXPECT_EQ(load(1, 20).buffer, "wxyz????????????????");
}

TEST(Cache, KeepsItsOwnCopy) {
  std::string bytes = "abc";
  store(1, bytes);
  bytes = "xyz";

  EXPECT_EQ(load(1, 20).buffer.substr(0, 3), "abc");
}

TEST(Cache, KeepsEachIdApart) {
  store(1, "one");
  store(0xFFFFFFFF, "other");

  EXPECT_EQ(load(1, 20).buffer.substr(0, 3), "one");
  EXPECT_EQ(load(0xFFFFFFFF, 20).buffer.substr(0, 5), "other");
}

TEST(Cache, TwoStoresOfAnIdMakeOneEntry) {
  const LogCapture log;

  store(0x2B, "abc");
  store(0x2B, "xyz");

  EXPECT_EQ(log.count(" add_item: 2b to_mem \n"), 1u);
  EXPECT_EQ(log.count(" update_len: 3 to_mem \n"), 1u);
}

TEST(Cache, TheFirstStoreSaysThatThereWasNoItemAndThatItWasAdded) {
  const LogCapture log;

  store(0x2B, "abc");

  ASSERT_EQ(log.lines().size(), 2u);
  EXPECT_THAT(log.messages(),
              ElementsAre("dm_update_item_value_to_mem:no item found \n", " add_item: 2b to_mem \n"));
  EXPECT_TRUE(log.has(3, "oem_dm_add_item_to_mem", "dm_update_item_value_to_mem:no item found \n"));
  EXPECT_TRUE(log.has(0, "oem_dm_add_item_to_mem", " add_item: 2b to_mem \n"));
}

TEST(Cache, ALaterStoreSaysTheNewLength) {
  store(0x2B, "abc");
  const LogCapture log;

  store(0x2B, "wxyz");

  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_TRUE(log.has(0, "oem_dm_update_item_value_to_mem", " update_len: 4 to_mem \n"));
}

TEST(Cache, AReadSaysIdAndLength) {
  store(0x2B, "wxyz");
  const LogCapture log;

  load(0x2B, 3);

  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_TRUE(log.has(0, "oem_dm_read_item_from_mem", "read_item:2b from_mem len 3 !!\n"));
}

TEST(Cache, AReadWithANullArgumentReturnsSilently) {
  store(1, "abc");
  const LogCapture log;
  int32_t length = 20;
  uint8_t buffer[20] = {};

  vexa_dm_rd_from_mem(1, nullptr, &length);
  vexa_dm_rd_from_mem(1, buffer, nullptr);
  vexa_dm_rd_from_mem(99, nullptr, &length);

  EXPECT_EQ(length, 20);
  EXPECT_TRUE(log.lines().empty());
}

TEST(Cache, ANegativeCapacityDeliversNothing) {
  store(1, "abc");

  const Cached cached = load(1, -7);

  EXPECT_EQ(cached.length, -7);
  EXPECT_EQ(cached.buffer, std::string(20, '?'));
}

TEST(Cache, AFirstStoreWithANullArgumentIsRefused) {
  const LogCapture log;
  const int32_t length = 3;

  vexa_dm_wr_to_mem(1, nullptr, &length);
  vexa_dm_wr_to_mem(1, "abc", nullptr);

  EXPECT_THAT(log.messages(),
              ElementsAre("dm_update_item_value_to_mem:no item found \n", "vexa_dm_add_item_to_mem NULL\n",
                          "dm_update_item_value_to_mem:no item found \n", "vexa_dm_add_item_to_mem NULL\n"));
  EXPECT_TRUE(log.has(3, "oem_dm_add_item_to_mem", "vexa_dm_add_item_to_mem NULL\n"));
  EXPECT_EQ(load(1, 20).length, -1);
}

TEST(Cache, ANegativeLengthStoresNothing) {
  const int32_t negative = -1;
  const LogCapture log;
  vexa_dm_wr_to_mem(1, "abc", &negative);
  EXPECT_EQ(log.lines().back().message, "vexa_dm_add_item_to_mem NULL\n");
  EXPECT_EQ(load(1, 20).length, -1);

  store(1, "abc");
  vexa_dm_wr_to_mem(1, "xyz", &negative);
  EXPECT_EQ(load(1, 20).buffer.substr(0, 3), "abc");
}

TEST(Cache, WithoutMemoryForAnEntryTheItemIsLeftOut) {
  VEXA_NEEDS_OWN_CALLOC();
  const LogCapture log;
  {
    // Less than any buffer of a log line, more than the value.
    const FailingCalloc starved(40, 200);
    store(1, "abc");
  }

  EXPECT_THAT(log.messages(),
              ElementsAre("dm_update_item_value_to_mem:no item found \n", "oem_MALLOC fail!\r\n"));
  EXPECT_TRUE(log.has(3, "oem_dm_construct_queue_from_kvl", "oem_MALLOC fail!\r\n"));
  EXPECT_EQ(load(1, 20).length, -1);
}

TEST(Cache, WithoutMemoryForAFirstValueStopsTheProcess) {
  VEXA_NEEDS_OWN_CALLOC();
  const ChildResult child = run_in_child([] {
    vexa_set_log_level(4);
    const FailingCalloc starved(777);
    store(1, std::string(777, 'a'));
  });

  EXPECT_EQ(child.signal, SIGABRT);
  EXPECT_THAT(child.out, StartsWith("data_manager/vexa_dm_sync_mem, line: "));
}

TEST(Cache, WithoutMemoryForALongerValueStopsTheProcess) {
  VEXA_NEEDS_OWN_CALLOC();
  const ChildResult child = run_in_child([] {
    vexa_set_log_level(4);
    store(1, "abc");
    const FailingCalloc starved(777);
    store(1, std::string(777, 'a'));
  });

  EXPECT_EQ(child.signal, SIGABRT);
  EXPECT_THAT(child.out, StartsWith("data_manager/vexa_dm_sync_mem, line: "));
}

TEST(Cache, AValueThatFitsNeedsNoMemory) {
  VEXA_NEEDS_OWN_CALLOC();
  vexa_set_log_level(4);
  store(1, "0123456789");
  const FailingCalloc starved(0, 1000000);

  store(1, "abc");

  EXPECT_EQ(load(1, 20).buffer.substr(0, 3), "abc");
}

TEST(Cache, ThreadsThatStoreTheirFirstItemsAtOnceLoseNone) {
  vexa_set_log_level(4);
  constexpr uint32_t kThreads = 8;
  constexpr uint32_t kItems = 20;
  std::atomic<uint32_t> ready{0};
  std::vector<std::thread> threads;
  for (uint32_t thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([thread, &ready] {
      ++ready;
      while (ready < kThreads) std::this_thread::yield();
      for (uint32_t item = 0; item < kItems; ++item) {
        const uint32_t id = thread * kItems + item;
        store(id, "value " + std::to_string(id));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();

  for (uint32_t id = 0; id < kThreads * kItems; ++id) {
    const std::string expected = "value " + std::to_string(id);
    const Cached cached = load(id, 20);
    ASSERT_EQ(cached.length, static_cast<int32_t>(expected.size())) << id;
    ASSERT_EQ(cached.buffer.substr(0, expected.size()), expected);
  }
}

TEST(Cache, AReaderNeverSeesHalfOfAWrite) {
  vexa_set_log_level(4);
  store(1, std::string(5, 'a'));
  std::atomic<bool> done{false};
  std::thread writer([&done] {
    for (int round = 0; round < 2000; ++round) {
      store(1, round % 2 == 0 ? std::string(50, 'b') : std::string(5, 'a'));
    }
    done = true;
  });
  int torn = 0;
  while (!done) {
    const Cached cached = load(1, 64, 64);
    const std::string bytes = cached.buffer.substr(0, static_cast<std::size_t>(cached.length));
    if (bytes != std::string(50, 'b') && bytes != std::string(5, 'a')) ++torn;
  }
  writer.join();

  EXPECT_EQ(torn, 0);
}

TEST(CacheAccess, AnIdNeverStoredIsMinusOne) {
  uint8_t buffer[8] = {};

  EXPECT_EQ(vexa_dm_cache_read(1, buffer, 8), -1);
}

TEST(CacheAccess, AWriteReturnsItsLengthAndNeedsNoRegisteredId) {
  uint8_t buffer[8] = {};

  EXPECT_EQ(vexa_dm_cache_write(12345, "hello", 5), 5);
  EXPECT_EQ(vexa_dm_cache_read(12345, buffer, 8), 5);
  EXPECT_EQ(std::memcmp(buffer, "hello\0\0\0", 8), 0);
}

TEST(CacheAccess, AReadCutToFitReturnsItsCapacity) {
  uint8_t buffer[8] = {};
  vexa_dm_cache_write(1, "hello", 5);

  EXPECT_EQ(vexa_dm_cache_read(1, buffer, 2), 2);
  EXPECT_EQ(std::memcmp(buffer, "he\0", 3), 0);
}

TEST(CacheAccess, AWrittenValueAnswersAReadWithoutTheBackend) {
  FakeBackend backend;
  ASSERT_EQ(vexa_dm_cache_write(12345, "hello", 5), 5);

  const Answer answer = read_item(backend.handle, 12345);

  EXPECT_EQ(answer.result, 5);
  EXPECT_EQ(answer.bytes, "hello");
  EXPECT_THAT(backend.calls, ElementsAre());
}

TEST(CacheAccess, BadArgumentsAreRefused) {
  const LogCapture log;
  uint8_t buffer[8] = {};

  EXPECT_EQ(vexa_dm_cache_write(1, nullptr, 5), -3);
  EXPECT_EQ(vexa_dm_cache_write(1, "hello", 0), -3);
  EXPECT_EQ(vexa_dm_cache_write(1, "hello", -5), -3);
  EXPECT_EQ(vexa_dm_cache_read(1, nullptr, 8), -3);
  EXPECT_EQ(vexa_dm_cache_read(1, buffer, 0), -3);
  EXPECT_EQ(vexa_dm_cache_read(1, buffer, -8), -3);

  ASSERT_EQ(log.lines().size(), 6u);
  EXPECT_EQ(log.count("vexa_dm_cache_write param NULL\n"), 3u);
  EXPECT_EQ(log.count("vexa_dm_cache_read param NULL\n"), 3u);
  EXPECT_TRUE(log.has(3, "oem_dm_cache_write", "vexa_dm_cache_write param NULL\n"));
  EXPECT_TRUE(log.has(3, "oem_dm_cache_read", "vexa_dm_cache_read param NULL\n"));
}
