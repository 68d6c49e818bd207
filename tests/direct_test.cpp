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
#include "support/failing_calloc.h"
#include "support/fake_backend.h"
#include "support/log_capture.h"

using namespace vexa_test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

namespace {

constexpr int32_t kBare = 1;
constexpr int32_t kText = 3;
constexpr int32_t kUnknown = 0x4D;

std::vector<std::string> events;

void take_event(int32_t id, const void* data, int32_t length) {
  events.push_back(std::to_string(id) + " " +
                   std::string(static_cast<const char*>(data), static_cast<std::size_t>(length)));
}

class Direct : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(vexa_dm_reg_def_items(table_), 0);
    ASSERT_EQ(vexa_dm_reg_event_callback(take_event), 0);
  }

  int32_t read(int32_t id, int32_t capacity = 16) {
    return vexa_dm_read_db(backend.handle, id, buffer, capacity);
  }
  int32_t write(int32_t id, const std::string& bytes) {
    return vexa_dm_write_db(backend.handle, id, reinterpret_cast<const uint8_t*>(bytes.data()),
                            static_cast<uint32_t>(bytes.size()));
  }

  FakeBackend backend;
  char buffer[16] = "???????????????";

 private:
  static inline vexa_dm_default_item table_[] = {bare_item(kBare, "BARE"), text_item(kText, "TEXT", "abc"),
                                                 end_of_table()};
};

using DirectRead = Direct;
using DirectWrite = Direct;

void expect_assertion(const std::function<void()>& body) {
  const ChildResult child = run_in_child([&body] {
    vexa_set_log_level(4);  // leaves the assertion alone on standard output
    body();
  });
  EXPECT_EQ(child.signal, SIGABRT);
  EXPECT_THAT(child.out, MatchesRegex("data_manager/vexa_app_dm, line: [0-9]+\n"));
}

}  // namespace

TEST_F(DirectRead, DeliversTheStoredValueWithoutItsLength) {
  backend.values[kBare] = "stored";

  EXPECT_EQ(read(kBare), 0);

  EXPECT_STREQ(buffer, "stored?????????");
  EXPECT_THAT(backend.calls, ElementsAre("read 1 len 16"));
}

TEST_F(DirectRead, OfAnEmptyStoredValueIsZeroToo) {
  backend.values[kBare] = "";

  EXPECT_EQ(read(kBare), 0);
}

TEST_F(DirectRead, UsesNeitherCacheNorDefaults) {
  vexa_dm_cache_write(kText, "cached", 6);

  EXPECT_EQ(read(kText), -3);
  EXPECT_STREQ(buffer, "???????????????");

  backend.values[kText] = "stored";
  EXPECT_EQ(read(kText), 0);
  EXPECT_STREQ(buffer, "stored?????????");
  EXPECT_EQ(read_item(backend.handle, kText).bytes, "cached");
}

TEST_F(DirectRead, AnyFailureOfTheBackendIsMinusThree) {
  backend.missing = -102;
  const LogCapture log;

  EXPECT_EQ(read(kBare), -3);

  EXPECT_THAT(log.messages(),
              ElementsAre("hash:CFG_TAB BARE\n", "oem_dm_read_db def value:1 not register!\n"));
  EXPECT_TRUE(log.has(3, "oem_dm_read_db", "hash:CFG_TAB BARE\n"));
  EXPECT_TRUE(log.has(3, "oem_dm_read_db", "oem_dm_read_db def value:1 not register!\n"));
}

TEST_F(DirectRead, RefusesBadArgumentsAndUnknownIds) {
  const LogCapture log;

  EXPECT_EQ(vexa_dm_read_db(nullptr, kBare, buffer, 8), -3);
  EXPECT_EQ(vexa_dm_read_db(backend.handle, kBare, nullptr, 8), -3);
  EXPECT_EQ(vexa_dm_read_db(backend.handle, kBare, buffer, 0), -3);
  EXPECT_EQ(vexa_dm_read_db(backend.handle, kBare, buffer, -8), -3);
  EXPECT_EQ(vexa_dm_read_db(backend.handle, kUnknown, buffer, 8), -3);

  ASSERT_EQ(log.lines().size(), 5u);
  EXPECT_EQ(log.count("oem_dm_read_db param NULL\n"), 4u);
  EXPECT_TRUE(log.has(3, "oem_dm_read_db", "oem_dm_read_db param NULL\n"));
  EXPECT_TRUE(log.has(3, "oem_dm_read_db", "symLookup failed: 77\n"));
  EXPECT_THAT(backend.calls, IsEmpty());
}

TEST_F(DirectRead, InRunCleanStateIsZeroAndLeavesTheBuffer) {
  backend.values[kBare] = "stored";
  vexa_dm_clean(backend.handle, nullptr);
  backend.calls.clear();

  EXPECT_EQ(read(kBare), 0);

  EXPECT_STREQ(buffer, "???????????????");
  EXPECT_THAT(backend.calls, IsEmpty());
}

TEST_F(DirectRead, WithoutASlotStopsTheProcess) {
  backend.handle->ops.read = nullptr;

  expect_assertion([this] { read(kBare); });
}

TEST_F(DirectWrite, ReachesTheBackendAndTheCallbackButNotTheCache) {
  vexa_dm_cache_write(kBare, "cached", 6);

  EXPECT_EQ(write(kBare, "new"), 0);

  EXPECT_EQ(backend.values[kBare], "new");
  EXPECT_THAT(events, ElementsAre("1 new"));
  EXPECT_EQ(read_item(backend.handle, kBare).bytes, "cached");
}

TEST_F(DirectWrite, SaysWhatItDoesInOrder) {
  backend.values[kBare] = "old";
  const LogCapture log;

  write(kBare, "new");

  EXPECT_THAT(log.messages(), ElementsAre("hash:CFG_TAB BARE\n", "hash:CFG_TAB BARE\n"));
  EXPECT_EQ(log.lines()[0].function, "oem_dm_read_db");
  EXPECT_EQ(log.lines()[1].function, "oem_dm_write_db");
  EXPECT_EQ(log.lines()[1].level, 3);
}

TEST_F(DirectWrite, OfTheSameBytesDoesNotReachTheBackend) {
  backend.values[kBare] = "abc";
  const LogCapture log;

  EXPECT_EQ(write(kBare, "abc"), 0);

  EXPECT_THAT(backend.calls, ElementsAre("read 1 len 4"));
  EXPECT_THAT(log.messages(), ElementsAre("hash:CFG_TAB BARE\n", "Try to write the same data\n"));
  EXPECT_TRUE(log.has(1, "oem_dm_write_db", "Try to write the same data\n"));
  EXPECT_THAT(events, IsEmpty());
}

TEST_F(DirectWrite, OfAPrefixOfTheStoredValueCountsAsTheSame) {
  backend.values[kBare] = "abcd";

  EXPECT_EQ(write(kBare, "abc"), 0);

  EXPECT_EQ(backend.values[kBare], "abcd");
  EXPECT_THAT(events, IsEmpty());
}

// Of a backend that delivers the head of a value that does not fit.
TEST_F(DirectWrite, OfAnyPrefixThatTheBackendDeliversCountsAsTheSame) {
  backend.values[kBare] = "abcdef";
  backend.cuts = true;

  EXPECT_EQ(write(kBare, "abc"), 0);

  EXPECT_EQ(backend.values[kBare], "abcdef");
}

TEST_F(DirectWrite, OverAValueTooLongToCompareIsStored) {
  backend.values[kBare] = "abcdef";

  EXPECT_EQ(write(kBare, "abc"), 0);

  EXPECT_EQ(backend.values[kBare], "abc");
}

TEST_F(DirectWrite, OfALongerValueIsStored) {
  backend.values[kBare] = "abc";

  EXPECT_EQ(write(kBare, "abcdef"), 0);

  EXPECT_EQ(backend.values[kBare], "abcdef");
}

TEST_F(DirectWrite, OfTheDefaultIsStored) {
  EXPECT_EQ(write(kText, "abc"), 0);

  EXPECT_EQ(backend.values[kText], "abc");
  EXPECT_THAT(events, ElementsAre("3 abc"));
}

TEST_F(DirectWrite, PassesTheBackendsFailureOn) {
  backend.write_result = 5;
  EXPECT_EQ(write(kBare, "abc"), 5);

  backend.write_result = -1;
  EXPECT_EQ(write(kBare, "abc"), -1);

  EXPECT_THAT(events, IsEmpty());
}

TEST_F(DirectWrite, RefusesBadArgumentsAndUnknownIds) {
  const LogCapture log;
  const auto* const data = reinterpret_cast<const uint8_t*>("abc");

  EXPECT_EQ(vexa_dm_write_db(nullptr, kBare, data, 3), -3);
  EXPECT_EQ(vexa_dm_write_db(backend.handle, kBare, nullptr, 3), -3);
  EXPECT_EQ(vexa_dm_write_db(backend.handle, kBare, data, 0), -3);
  EXPECT_EQ(vexa_dm_write_db(backend.handle, kBare, data, 0x80000000u), -3);
  EXPECT_EQ(vexa_dm_write_db(backend.handle, kUnknown, data, 3), -3);

  ASSERT_EQ(log.lines().size(), 5u);
  EXPECT_EQ(log.count("vexa_dm_write_db param NULL\n"), 4u);
  EXPECT_TRUE(log.has(3, "oem_dm_write_db", "vexa_dm_write_db param NULL\n"));
  EXPECT_TRUE(log.has(3, "oem_dm_write_db", "symLookup failed: 77\n"));
  EXPECT_THAT(backend.calls, IsEmpty());
}

TEST_F(DirectWrite, OfTheGreatestLengthIsNotCompared) {
  backend.write_result = 5;

  EXPECT_EQ(vexa_dm_write_db(backend.handle, kBare, reinterpret_cast<const uint8_t*>("abc"), INT32_MAX), 5);

  EXPECT_THAT(backend.calls, ElementsAre("write 1 len 2147483647"));
}

TEST_F(DirectWrite, InRunCleanStateIsZeroAndWritesNothing) {
  vexa_dm_clean(backend.handle, nullptr);
  backend.calls.clear();

  EXPECT_EQ(write(kBare, "abc"), 0);

  EXPECT_THAT(backend.calls, IsEmpty());
  EXPECT_THAT(events, IsEmpty());
  EXPECT_EQ(vexa_dm_cache_read(kBare, reinterpret_cast<uint8_t*>(buffer), 8), -1);
}

TEST_F(DirectWrite, WithoutMemoryToCompareStoresAnyway) {
  VEXA_NEEDS_OWN_CALLOC();
  const std::string bytes(998, 'a');
  backend.values[kBare] = bytes;
  const FailingCalloc starved(999);

  EXPECT_EQ(write(kBare, bytes), 0);

  EXPECT_THAT(backend.calls, ElementsAre("write 1 len 998"));
}

TEST_F(DirectWrite, WithoutASlotStopsTheProcess) {
  backend.handle->ops.write = nullptr;

  expect_assertion([this] { write(kBare, "abc"); });
}

TEST_F(DirectRead, TakesACapacityOfOneByte) {
  backend.values[kBare] = "abc";
  backend.cuts = true;

  EXPECT_EQ(read(kBare, 1), 0);

  EXPECT_STREQ(buffer, "a??????????????");
}
