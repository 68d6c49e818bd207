// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vexadm/data_manager.h>
#include <vexadm/log.h>

#include <csignal>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "support/child.h"
#include "support/device_fixture.h"
#include "support/failing_calloc.h"
#include "support/fake_backend.h"
#include "support/log_capture.h"

using namespace vexa_test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

namespace {

// Registered items: 1 and 2 have no default, 3 a text, 4 a number, 5 a block wider than its reads.
constexpr int32_t kBare = 1;
constexpr int32_t kBareToo = 2;
constexpr int32_t kText = 3;
constexpr int32_t kNumber = 4;
constexpr int32_t kBlock = 5;
constexpr int32_t kUnknown = 77;

struct Event {
  int32_t id;
  std::string bytes;
  std::string cached;  // what a read gave during the callback
};

std::vector<Event> events;
FakeBackend* events_backend;

void take_event(int32_t id, const void* data, int32_t length) {
  const std::string bytes(static_cast<const char*>(data), static_cast<std::size_t>(length));
  events.push_back({id, bytes, read_item(events_backend->handle, id).bytes});
}

class Items : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(vexa_dm_reg_def_items(table_), 0); }

  void watch() {
    events.clear();
    events_backend = &backend;
    ASSERT_EQ(vexa_dm_reg_event_callback(take_event), 0);
  }
  int32_t write(int32_t id, const std::string& bytes) { return write_item(backend.handle, id, bytes); }
  Answer read(int32_t id, int32_t capacity = 64) { return read_item(backend.handle, id, capacity); }

  FakeBackend backend;
  uint8_t buffer[64] = {};

 private:
  // Registered for the life of the process.
  static inline uint8_t block_[300] = {0xB0, 0xB1};
  static inline vexa_dm_default_item table_[] = {bare_item(kBare, "BARE"),
                                                 bare_item(kBareToo, "BARE_TOO"),
                                                 text_item(kText, "TEXT", "abc"),
                                                 number_item(kNumber, "NUMBER", VEXA_DM_U32, 0x01020304, 4),
                                                 block_item(kBlock, "BLOCK", block_, sizeof(block_)),
                                                 end_of_table()};
};

using ItemRead = Items;
using ItemWrite = Items;
using ItemEmpty = Items;
using ItemFromFile = Items;
using ItemEvent = Items;
using RunClean = Items;

void expect_assertion(const std::function<void()>& body) {
  const ChildResult child = run_in_child([&body] {
    vexa_set_log_level(4);  // leaves the assertion alone on standard output
    body();
  });
  EXPECT_EQ(child.signal, SIGABRT);
  EXPECT_THAT(child.out, MatchesRegex("data_manager/vexa_app_dm, line: [0-9]+\n"));
}

}  // namespace

TEST_F(ItemRead, RefusesBadArguments) {
  const LogCapture log;

  EXPECT_EQ(vexa_dm_read(nullptr, kBare, buffer, 8), -3);
  EXPECT_EQ(vexa_dm_read(backend.handle, kBare, nullptr, 8), -3);
  EXPECT_EQ(vexa_dm_read(backend.handle, kBare, buffer, 0), -3);
  EXPECT_EQ(vexa_dm_read(backend.handle, kBare, buffer, -1), -3);

  ASSERT_EQ(log.lines().size(), 4u);
  EXPECT_EQ(log.count("oem_dm_read param NULL\n"), 4u);
  EXPECT_TRUE(log.has(3, "oem_dm_read", "oem_dm_read param NULL\n"));
}

TEST_F(ItemRead, RefusesAnIdNeitherCachedNorRegistered) {
  const LogCapture log;

  EXPECT_EQ(read(kUnknown).result, -3);
  EXPECT_EQ(read(-5).result, -3);

  EXPECT_TRUE(log.has(3, "oem_dm_read", "symLookup failed: 77\n"));
  EXPECT_TRUE(log.has(3, "oem_dm_read", "symLookup failed: -5\n"));
  EXPECT_THAT(backend.calls, IsEmpty());
}

TEST_F(ItemRead, TakesACachedValueWithoutTheBackendEvenForAnUnknownId) {
  vexa_dm_cache_write(kUnknown, "hello", 5);
  const LogCapture log;

  const Answer answer = read(kUnknown);

  EXPECT_EQ(answer.result, 5);
  EXPECT_EQ(answer.bytes, "hello");
  EXPECT_THAT(backend.calls, IsEmpty());
  EXPECT_THAT(log.messages(), ElementsAre("read_item:4d from_mem len 5 !!\n", "DM_RD_MEM ret 5\n"));
  EXPECT_TRUE(log.has(1, "oem_dm_read", "DM_RD_MEM ret 5\n"));
}

TEST_F(ItemRead, CutsACachedValueToTheBuffer) {
  vexa_dm_cache_write(kUnknown, "hello", 5);

  const Answer answer = read(kUnknown, 2);

  EXPECT_EQ(answer.result, 2);
  EXPECT_EQ(answer.bytes, "he");
  EXPECT_THAT(backend.calls, IsEmpty());
}

TEST_F(ItemRead, AsksTheBackendOnceAndCachesItsAnswer) {
  backend.values[kBare] = "stored";

  EXPECT_EQ(read(kBare).bytes, "stored");
  EXPECT_EQ(read(kBare).bytes, "stored");

  EXPECT_THAT(backend.calls, ElementsAre("read 1 len 64"));
  EXPECT_STREQ(backend.desc->table, "CFG_TAB");
  EXPECT_STREQ(backend.desc->key, "BARE");
}

TEST_F(ItemRead, SaysWhereItLooksInOrder) {
  backend.values[kBare] = "stored";
  const LogCapture log;

  read(kBare);

  EXPECT_THAT(log.messages(),
              ElementsAre("read_item:1 from_mem fail!\n", "DM_RD_MEM ret -1\n", "hash:CFG_TAB BARE\n",
                          "dm_update_item_value_to_mem:no item found \n", " add_item: 1 to_mem \n"));
  EXPECT_TRUE(log.has(1, "oem_dm_read", "hash:CFG_TAB BARE\n"));
}

TEST_F(ItemRead, OfAnEmptyStoredValueIsZeroAndAsksAgainNextTime) {
  backend.values[kBare] = "";

  EXPECT_EQ(read(kBare).result, 0);
  EXPECT_EQ(vexa_dm_cache_read(kBare, buffer, 8), 0);
  EXPECT_EQ(read(kBare).result, 0);

  EXPECT_THAT(backend.calls, ElementsAre("read 1 len 64", "read 1 len 64"));
}

TEST_F(ItemRead, FallsBackToTheDefaultAndAsksTheBackendAgain) {
  EXPECT_EQ(read(kText).result, 3);
  EXPECT_EQ(read(kText).bytes, "abc");

  EXPECT_THAT(backend.calls, ElementsAre("read 3 len 64", "read 3 len 64"));
  EXPECT_EQ(vexa_dm_cache_read(kText, buffer, 8), -1);
}

TEST_F(ItemRead, WithoutStoredValueAndDefaultIsTheDefaultsFailure) {
  backend.missing = -101;
  const LogCapture log;

  EXPECT_EQ(read(kBareToo).result, -1);

  EXPECT_EQ(log.lines().back().message, "oem_dm_read def value:2 not register!\n");
  EXPECT_TRUE(log.has(3, "oem_dm_read", "oem_dm_read def value:2 not register!\n"));
}

TEST_F(ItemRead, NamesAnIdWithoutDefaultInHexadecimal) {
  vexa_dm_default_item table[] = {bare_item(0xBEEF, "HEX"), bare_item(-2, "NEGATIVE"), end_of_table()};
  ASSERT_EQ(vexa_dm_reg_def_items(table), 0);
  const LogCapture log;

  EXPECT_EQ(read(0xBEEF).result, -1);
  EXPECT_EQ(read(-2).result, -1);

  EXPECT_EQ(log.count("oem_dm_read def value:beef not register!\n"), 1u);
  EXPECT_EQ(log.count("oem_dm_read def value:fffffffe not register!\n"), 1u);
}

TEST_F(ItemRead, WithoutASlotStopsTheProcess) {
  backend.handle->ops.read = nullptr;

  expect_assertion([this] { read(kBare); });
}

TEST_F(ItemRead, OfACachedItemNeedsNoMemory) {
  VEXA_NEEDS_OWN_CALLOC();
  vexa_dm_cache_write(kBare, "hello", 5);
  vexa_set_log_level(4);
  const FailingCalloc starved(0, SIZE_MAX);

  EXPECT_EQ(vexa_dm_read(backend.handle, kBare, buffer, 8), 5);
}

TEST_F(ItemWrite, RefusesBadArguments) {
  const LogCapture log;

  EXPECT_EQ(vexa_dm_write(nullptr, kBare, "abc", 3), -3);
  EXPECT_EQ(vexa_dm_write(backend.handle, kBare, nullptr, 3), -3);
  EXPECT_EQ(vexa_dm_write(backend.handle, kBare, "abc", 0), -3);
  EXPECT_EQ(vexa_dm_write(backend.handle, kBare, "abc", -3), -3);

  ASSERT_EQ(log.lines().size(), 4u);
  EXPECT_EQ(log.count("vexa_dm_write param NULL\n"), 4u);
  EXPECT_TRUE(log.has(3, "oem_dm_write", "vexa_dm_write param NULL\n"));
}

TEST_F(ItemWrite, RefusesAnUnregisteredIdEvenWhenItIsCached) {
  vexa_dm_cache_write(kUnknown, "hello", 5);
  const LogCapture log;

  EXPECT_EQ(write(kUnknown, "hello"), -3);

  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_TRUE(log.has(3, "oem_dm_write", "symLookup failed: 77\n"));
  EXPECT_THAT(backend.calls, IsEmpty());
}

TEST_F(ItemWrite, ReachesTheBackendAndTheCache) {
  EXPECT_EQ(write(kBare, "abc"), 0);

  EXPECT_EQ(backend.values[kBare], "abc");
  EXPECT_STREQ(backend.desc->key, "BARE");
  EXPECT_THAT(backend.calls, ElementsAre("read 1 len 4", "write 1 len 3"));
  EXPECT_EQ(vexa_dm_cache_read(kBare, buffer, 8), 3);
  EXPECT_EQ(std::memcmp(buffer, "abc", 3), 0);
}

TEST_F(ItemWrite, SaysWhatItDoesInOrder) {
  vexa_dm_cache_write(kBare, "old", 3);
  const LogCapture log;

  write(kBare, "new");

  EXPECT_THAT(log.messages(),
              ElementsAre("read_item:1 from_mem len 3 !!\n", "DM_RD_MEM ret 3\n", "hash:CFG_TAB BARE\n",
                          "vexa_dm_is_run_clean: 0", "write cb ret:0", " update_len: 3 to_mem \n"));
  EXPECT_TRUE(log.has(0, "oem_dm_write", "hash:CFG_TAB BARE\n"));
  EXPECT_TRUE(log.has(0, "oem_dm_write", "vexa_dm_is_run_clean: 0"));
  EXPECT_TRUE(log.has(0, "oem_dm_write", "write cb ret:0"));
}

TEST_F(ItemWrite, SameBytesTwiceCallsTheBackendOnce) {
  watch();
  ASSERT_EQ(write(kBare, "abc"), 0);
  backend.calls.clear();
  events.clear();
  const LogCapture log;

  EXPECT_EQ(write(kBare, "abc"), 0);

  EXPECT_TRUE(log.has(1, "oem_dm_write", "Try to write the same data\n"));
  EXPECT_EQ(log.lines().back().message, "Try to write the same data\n");
  EXPECT_EQ(log.count("hash:CFG_TAB BARE\n"), 0u);
  EXPECT_THAT(backend.calls, IsEmpty());
  EXPECT_THAT(events, IsEmpty());
}

TEST_F(ItemWrite, OfTheDefaultStoresNothing) {
  const LogCapture log;

  EXPECT_EQ(write(kText, "abc"), 0);

  EXPECT_EQ(log.count("Try to write the same data\n"), 1u);
  EXPECT_THAT(backend.calls, ElementsAre("read 3 len 4"));
  EXPECT_EQ(backend.values.count(kText), 0u);
}

TEST_F(ItemWrite, OfAPrefixOfTheDefaultIsStored) {
  EXPECT_EQ(write(kText, "ab"), 0);

  EXPECT_EQ(backend.values[kText], "ab");
}

TEST_F(ItemWrite, OfAStrictPrefixIsNotTheSame) {
  ASSERT_EQ(write(kBare, "abcdef"), 0);

  EXPECT_EQ(write(kBare, "abc"), 0);

  EXPECT_EQ(backend.values[kBare], "abc");
  EXPECT_EQ(read(kBare).bytes, "abc");
}

TEST_F(ItemWrite, OfALongerValueIsNotTheSame) {
  ASSERT_EQ(write(kBare, "abc"), 0);

  EXPECT_EQ(write(kBare, std::string("abc\0", 4)), 0);

  EXPECT_EQ(backend.values[kBare], std::string("abc\0", 4));
}

// Set back to "abc" by a process that has read nothing yet.
TEST_F(ItemWrite, OfTheDefaultOverALongerStoredValueIsStored) {
  backend.values[kText] = "my long network";

  EXPECT_EQ(write(kText, "abc"), 0);

  EXPECT_EQ(backend.values[kText], "abc");
  EXPECT_EQ(read(kText).bytes, "abc");
}

TEST_F(ItemWrite, OfTheDefaultIsStoredWhereTheBackendCannotTellWhatItHolds) {
  for (const int32_t failure : {-101, -102}) {
    backend.missing = failure;
    backend.values.clear();
    backend.calls.clear();
    backend.write_result = -1;

    EXPECT_EQ(write(kText, "abc"), -1) << failure;

    EXPECT_THAT(backend.calls, ElementsAre("read 3 len 4", "write 3 len 3"));
  }
}

TEST_F(ItemWrite, OfTheDefaultIsSkippedWhereTheBackendHoldsNothing) {
  for (const int32_t nothing : {-1, -100}) {
    backend.missing = nothing;
    backend.calls.clear();

    EXPECT_EQ(write(kText, "abc"), 0) << nothing;

    EXPECT_THAT(backend.calls, ElementsAre("read 3 len 4"));
  }
}

TEST_F(ItemWrite, OfOtherBytesOfTheSameLengthIsNotTheSame) {
  ASSERT_EQ(write(kBare, "abc"), 0);

  EXPECT_EQ(write(kBare, "abd"), 0);

  EXPECT_EQ(backend.values[kBare], "abd");
}

TEST_F(ItemWrite, PassesTheBackendsFailureOnAndKeepsTheCache) {
  watch();
  ASSERT_EQ(write(kBare, "old"), 0);
  events.clear();
  backend.write_result = 5;
  const LogCapture log;

  EXPECT_EQ(write(kBare, "newer"), 5);

  EXPECT_EQ(log.lines().back().message, "write cb ret:5");
  EXPECT_EQ(read(kBare).bytes, "old");
  EXPECT_THAT(events, IsEmpty());
}

TEST_F(ItemWrite, ANegativeFailureIsPassedOnToo) {
  backend.write_result = -1;

  EXPECT_EQ(write(kBare, "abc"), -1);
  EXPECT_EQ(vexa_dm_cache_read(kBare, buffer, 8), -1);
}

TEST_F(ItemWrite, IsNotHurtByADefaultWiderThanTheValue) {
  EXPECT_EQ(write(kBlock, "x"), 0);
  EXPECT_EQ(write(kNumber, "x"), 0);

  EXPECT_EQ(backend.values[kBlock], "x");
  EXPECT_EQ(backend.values[kNumber], "x");
}

TEST_F(ItemWrite, OfTheGreatestLengthIsNotCompared) {
  backend.write_result = 5;
  const LogCapture log;

  EXPECT_EQ(vexa_dm_write(backend.handle, kBare, "abc", INT32_MAX), 5);

  EXPECT_EQ(log.lines().front().message, "hash:CFG_TAB BARE\n");
  EXPECT_THAT(backend.calls, ElementsAre("write 1 len 2147483647"));
}

TEST_F(ItemWrite, WithoutMemoryToCompareStoresAnyway) {
  VEXA_NEEDS_OWN_CALLOC();
  const std::string bytes(998, 'a');
  vexa_dm_cache_write(kBare, bytes.data(), 998);
  const LogCapture log;
  {
    const FailingCalloc starved(999);
    EXPECT_EQ(write(kBare, bytes), 0);
  }

  EXPECT_THAT(backend.calls, ElementsAre("write 1 len 998"));
  EXPECT_EQ(log.lines().front().message, "hash:CFG_TAB BARE\n");
}

TEST_F(ItemWrite, WithoutASlotStopsTheProcess) {
  backend.handle->ops.write = nullptr;

  expect_assertion([this] { write(kBare, "abc"); });
}

TEST_F(ItemEvent, ComesAfterTheBackendAndBeforeTheCache) {
  ASSERT_EQ(write(kBare, "old"), 0);
  watch();

  ASSERT_EQ(write(kBare, "newer"), 0);

  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].id, kBare);
  EXPECT_EQ(events[0].bytes, "newer");
  EXPECT_EQ(events[0].cached, "old");
  EXPECT_EQ(backend.values[kBare], "newer");
  EXPECT_EQ(read(kBare).bytes, "newer");
}

TEST_F(ItemEvent, NullIsRefusedAndTheRegisteredCallbackStays) {
  watch();
  const LogCapture log;

  EXPECT_EQ(vexa_dm_reg_event_callback(nullptr), -3);

  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_TRUE(log.has(3, "oem_dm_reg_event_callback", "vexa_dm_reg_event_callback param NULL\n"));
  write(kBare, "abc");
  EXPECT_EQ(events.size(), 1u);
}

TEST_F(ItemEvent, ANewCallbackReplacesTheOldOne) {
  watch();
  static int calls = 0;
  ASSERT_EQ(vexa_dm_reg_event_callback([](int32_t, const void*, int32_t) { ++calls; }), 0);

  write(kBare, "abc");

  EXPECT_EQ(calls, 1);
  EXPECT_THAT(events, IsEmpty());
}

TEST_F(ItemEvent, MayWriteAnotherItem) {
  static FakeBackend* inner;
  inner = &backend;
  vexa_dm_reg_event_callback([](int32_t id, const void*, int32_t) {
    if (id != kBare) return;
    EXPECT_EQ(write_item(inner->handle, kBareToo, "echo"), 0);
  });

  EXPECT_EQ(write(kBare, "abc"), 0);

  EXPECT_EQ(read(kBare).bytes, "abc");
  EXPECT_EQ(read(kBareToo).bytes, "echo");
}

TEST_F(ItemEvent, IsNotRaisedByReadsOrCacheWrites) {
  watch();
  backend.values[kBare] = "stored";

  read(kBare);
  vexa_dm_read_from_dbconfigfile(backend.handle, kBare, buffer, 8);
  vexa_dm_cache_write(kBare, "abc", 3);

  EXPECT_THAT(events, IsEmpty());
}

TEST_F(ItemFromFile, DeliversTheStoredValueAndCachesIt) {
  vexa_dm_cache_write(kBare, "old", 3);
  backend.values[kBare] = "stored";

  EXPECT_EQ(vexa_dm_read_from_dbconfigfile(backend.handle, kBare, buffer, 64), 0);

  EXPECT_EQ(std::memcmp(buffer, "stored\0", 7), 0);
  EXPECT_THAT(backend.calls, ElementsAre("read 1 len 64"));
  EXPECT_EQ(read(kBare).bytes, "stored");
}

TEST_F(ItemFromFile, SaysWhichItemAtInfoLevel) {
  backend.values[kBare] = "stored";
  const LogCapture log;

  vexa_dm_read_from_dbconfigfile(backend.handle, kBare, buffer, 64);

  EXPECT_EQ(log.lines().front().message, "hash:CFG_TAB BARE\n");
  EXPECT_TRUE(log.has(1, "oem_dm_read_from_dbconfigfile", "hash:CFG_TAB BARE\n"));
}

TEST_F(ItemFromFile, OfAnEmptyStoredValueIsZero) {
  backend.values[kBare] = "";

  EXPECT_EQ(vexa_dm_read_from_dbconfigfile(backend.handle, kBare, buffer, 64), 0);
  EXPECT_EQ(vexa_dm_cache_read(kBare, buffer, 8), 0);
}

TEST_F(ItemFromFile, EveryFailureIsThree) {
  const LogCapture log;

  EXPECT_EQ(vexa_dm_read_from_dbconfigfile(nullptr, kBare, buffer, 8), 3);
  EXPECT_EQ(vexa_dm_read_from_dbconfigfile(backend.handle, kBare, nullptr, 8), 3);
  EXPECT_EQ(vexa_dm_read_from_dbconfigfile(backend.handle, kBare, buffer, 0), 3);
  EXPECT_EQ(vexa_dm_read_from_dbconfigfile(backend.handle, kUnknown, buffer, 8), 3);
  EXPECT_EQ(vexa_dm_read_from_dbconfigfile(backend.handle, kText, buffer, 8), 3);

  EXPECT_EQ(log.count("oem_dm_read param NULL\n"), 3u);
  EXPECT_TRUE(log.has(3, "oem_dm_read_from_dbconfigfile", "oem_dm_read param NULL\n"));
  EXPECT_TRUE(log.has(3, "oem_dm_read_from_dbconfigfile", "symLookup failed: 77\n"));
  EXPECT_EQ(vexa_dm_cache_read(kText, buffer, 8), -1);
}

TEST_F(ItemFromFile, WithoutASlotStopsTheProcess) {
  backend.handle->ops.read = nullptr;

  expect_assertion([this] { vexa_dm_read_from_dbconfigfile(backend.handle, kBare, buffer, 8); });
}

TEST_F(ItemEmpty, StoresAndCachesAnEmptyValueAndTellsIt) {
  ASSERT_EQ(write(kBare, "abc"), 0);
  watch();
  backend.calls.clear();

  EXPECT_EQ(vexa_dm_empty(backend.handle, kBare), 0);

  EXPECT_THAT(backend.calls, ElementsAre("write 1 len 0"));
  EXPECT_EQ(backend.values[kBare], "");
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].id, kBare);
  EXPECT_EQ(events[0].bytes, "");
  EXPECT_EQ(events[0].cached, "abc");
  EXPECT_EQ(vexa_dm_cache_read(kBare, buffer, 8), 0);
}

TEST_F(ItemEmpty, SaysWhichItemAtErrorLevel) {
  const LogCapture log;

  vexa_dm_empty(backend.handle, kBare);

  EXPECT_EQ(log.lines().front().message, "hash:CFG_TAB BARE\n");
  EXPECT_TRUE(log.has(3, "oem_dm_empty", "hash:CFG_TAB BARE\n"));
}

TEST_F(ItemEmpty, RefusesANullHandleAndAnUnknownId) {
  const LogCapture log;

  EXPECT_EQ(vexa_dm_empty(nullptr, kBare), -3);
  EXPECT_EQ(vexa_dm_empty(backend.handle, kUnknown), -3);

  ASSERT_EQ(log.lines().size(), 2u);
  EXPECT_TRUE(log.has(3, "oem_dm_empty", "vexa_dm_empty param NULL\n"));
  EXPECT_TRUE(log.has(3, "oem_dm_empty", "symLookup failed: 77\n"));
}

TEST_F(ItemEmpty, PassesTheBackendsFailureOnAndKeepsTheCache) {
  ASSERT_EQ(write(kBare, "abc"), 0);
  watch();
  backend.write_result = -1;

  EXPECT_EQ(vexa_dm_empty(backend.handle, kBare), -1);

  EXPECT_EQ(read(kBare).bytes, "abc");
  EXPECT_THAT(events, IsEmpty());
}

TEST_F(ItemEmpty, HandsTheCallbackRealMemory) {
  static const void* data;
  vexa_dm_reg_event_callback([](int32_t, const void* bytes, int32_t) {
    data = bytes;
    EXPECT_EQ(*static_cast<const char*>(bytes), 0);
  });

  vexa_dm_empty(backend.handle, kBare);

  EXPECT_NE(data, nullptr);
}

TEST_F(ItemEmpty, WithoutASlotStopsTheProcess) {
  backend.handle->ops.write = nullptr;

  expect_assertion([this] { vexa_dm_empty(backend.handle, kBare); });
}

TEST_F(RunClean, AWriteReachesTheCacheOnly) {
  watch();
  vexa_dm_clean(backend.handle, nullptr);
  backend.calls.clear();
  const LogCapture log;

  EXPECT_EQ(write(kBare, "abc"), 0);

  EXPECT_EQ(read(kBare).bytes, "abc");
  EXPECT_THAT(backend.calls, IsEmpty());
  EXPECT_TRUE(backend.values.empty());
  EXPECT_THAT(events, IsEmpty());
  EXPECT_TRUE(log.has(0, "oem_dm_write", "vexa_dm_is_run_clean: 1"));
  EXPECT_EQ(log.count("write cb ret:0"), 0u);
}

TEST_F(RunClean, AWriteNeedsNoSlots) {
  vexa_dm_clean(backend.handle, nullptr);
  backend.handle->ops = {};

  EXPECT_EQ(write(kBare, "abc"), 0);
  EXPECT_EQ(vexa_dm_empty(backend.handle, kBare), 0);
}

TEST_F(RunClean, AReadComesFromTheDefaultsAndFillsNoCache) {
  backend.values[kText] = "stored";
  vexa_dm_clean(backend.handle, nullptr);
  backend.calls.clear();

  EXPECT_EQ(read(kText).bytes, "abc");

  EXPECT_THAT(backend.calls, IsEmpty());
  EXPECT_EQ(vexa_dm_cache_read(kText, buffer, 8), -1);
}

TEST_F(RunClean, AReadWithoutDefaultFails) {
  backend.values[kBare] = "stored";
  vexa_dm_clean(backend.handle, nullptr);
  const LogCapture log;

  EXPECT_EQ(read(kBare).result, -1);

  EXPECT_TRUE(log.has(1, "oem_dm_read", "hash:CFG_TAB BARE\n"));
  EXPECT_TRUE(log.has(3, "oem_dm_read", "oem_dm_read def value:1 not register!\n"));
}

TEST_F(RunClean, AReadOfAnUnknownIdIsStillRefused) {
  vexa_dm_clean(backend.handle, nullptr);

  EXPECT_EQ(read(kUnknown).result, -3);
}

TEST_F(RunClean, AReadFromTheFileFails) {
  backend.values[kBare] = "stored";
  vexa_dm_clean(backend.handle, nullptr);
  backend.calls.clear();

  EXPECT_EQ(vexa_dm_read_from_dbconfigfile(backend.handle, kBare, buffer, 8), 3);
  EXPECT_THAT(backend.calls, IsEmpty());
}

TEST_F(RunClean, EmptyReachesTheCacheOnly) {
  vexa_dm_cache_write(kBare, "abc", 3);
  watch();
  vexa_dm_clean(backend.handle, nullptr);
  backend.calls.clear();

  EXPECT_EQ(vexa_dm_empty(backend.handle, kBare), 0);

  EXPECT_EQ(vexa_dm_cache_read(kBare, buffer, 8), 0);
  EXPECT_THAT(backend.calls, IsEmpty());
  EXPECT_THAT(events, IsEmpty());
}

TEST(Unregistered, ItemsAreRefusedBeforeAnyTable) {
  FakeBackend backend;
  const LogCapture log;

  EXPECT_EQ(read_item(backend.handle, 1).result, -3);
  EXPECT_EQ(write_item(backend.handle, 1, "abc"), -3);

  EXPECT_EQ(log.count("symLookup failed: 1\n"), 2u);
}

class ItemsOnDevice : public DeviceTest {
 protected:
  void SetUp() override {
    DeviceTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    handle_ = vexa_dm_reg(1);
    ASSERT_EQ(vexa_dm_reg_def_items(table_), 0);
  }
  void TearDown() override { vexa_dm_unreg(handle_); }

  vexa_dm_handle* handle_ = nullptr;

 private:
  static inline vexa_dm_default_item table_[] = {bare_item(kBare, "BARE"), text_item(kText, "TEXT", "abc"),
                                                 end_of_table()};
};

TEST_F(ItemsOnDevice, AWrittenItemIsReadFromTheFilesByANewProcess) {
  const ChildResult writer = run_in_child([this] { ASSERT_EQ(write_item(handle_, kBare, "stored"), 0); });
  ASSERT_EQ(writer.exit_code, 0) << writer.out << writer.err;

  uint8_t buffer[16] = {};
  EXPECT_EQ(vexa_dm_read_from_dbconfigfile(handle_, kBare, buffer, 16), 0);
  EXPECT_EQ(std::memcmp(buffer, "stored\0", 7), 0);
  EXPECT_EQ(read_item(handle_, kBare).bytes, "stored");
}

TEST_F(ItemsOnDevice, AnEmptiedItemReadsAsItsDefault) {
  ASSERT_EQ(write_item(handle_, kText, "stored"), 0);

  ASSERT_EQ(vexa_dm_empty(handle_, kText), 0);

  EXPECT_EQ(read_item(handle_, kText).bytes, "abc");
}

TEST_F(ItemsOnDevice, AnItemIsSetBackToItsDefaultAlsoByAProcessThatHasNotReadIt) {
  const auto in_new_process = [](const auto& body) {
    const ChildResult child = run_in_child(body);
    ASSERT_EQ(child.exit_code, 0) << child.out << child.err;
  };
  in_new_process([this] { ASSERT_EQ(write_item(handle_, kText, "my long network"), 0); });

  in_new_process([this] { ASSERT_EQ(write_item(handle_, kText, "abc"), 0); });

  EXPECT_EQ(read_item(handle_, kText).bytes, "abc");
}

// A scalar default is written whole, over the one byte that it counts for: its room is there.
TEST(ItemWriteOfADefault, ComparesInRoomForTheWholeScalar) {
  VEXA_NEEDS_OWN_CALLOC();
  FakeBackend backend;
  static vexa_dm_default_item table[] = {number_item(1, "BYTE", VEXA_DM_U8, 'A', 1),
                                         number_item(2, "WORD", VEXA_DM_U32_ALT, 'A', 1), end_of_table()};
  ASSERT_EQ(vexa_dm_reg_def_items(table), 0);
  const FailingCalloc too_small(2, 3);

  EXPECT_EQ(write_item(backend.handle, 1, "A"), 0);
  EXPECT_EQ(write_item(backend.handle, 2, "A"), 0);

  EXPECT_THAT(backend.calls, ElementsAre("read 1 len 2", "read 2 len 2")) << "equal, so nothing is stored";
}
