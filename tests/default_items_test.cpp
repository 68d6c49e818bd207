// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vexadm/data_manager.h>
#include <vexadm/log.h>
#include <vexadm/storage.h>
#include <vexadm/symtab.h>

#include <csignal>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <thread>

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

void expect_assertion(const std::function<void()>& body) {
  const ChildResult child = run_in_child([&body] {
    vexa_set_log_level(4);  // leaves the assertion alone on standard output
    body();
  });
  EXPECT_EQ(child.signal, SIGABRT);
  EXPECT_THAT(child.out, MatchesRegex("data_manager/vexa_app_dm, line: [0-9]+\n"));
}

// Registers one item for the life of the process.
void register_one(const vexa_dm_default_item& item) {
  static vexa_dm_default_item table[2];
  table[0] = item;
  table[1] = end_of_table();
  ASSERT_EQ(vexa_dm_reg_def_items(table), 0);
}

}  // namespace

TEST(Registration, RefusesANullTable) {
  const LogCapture log;

  EXPECT_EQ(vexa_dm_reg_def_items(nullptr), -3);

  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_TRUE(log.has(3, "oem_dm_reg_def_items", "vexa_dm_reg_def_items param NULL\n"));
}

TEST(Registration, OfAnEmptyTableRegistersNothing) {
  FakeBackend backend;
  vexa_dm_default_item table[] = {end_of_table(), text_item(1, "NAME", "abc"), end_of_table()};

  EXPECT_EQ(vexa_dm_reg_def_items(table), 0);

  EXPECT_EQ(read_item(backend.handle, 1).result, -3);
  EXPECT_EQ(read_item(backend.handle, -1).result, -3);
  EXPECT_EQ(symOpen(3), 1);  // table 0 is the items', open although it is empty
}

TEST(Registration, SetsTheTypeOfEachDescriptor) {
  vexa_dm_default_item table[] = {text_item(1, "A", "abc"), number_item(2, "B", VEXA_DM_U16, 7, 2),
                                  end_of_table()};

  EXPECT_EQ(vexa_dm_reg_def_items(table), 0);

  EXPECT_EQ(table[0].desc.type, 5);
  EXPECT_EQ(table[1].desc.type, 2);
  EXPECT_EQ(table[2].desc.type, 0);
}

TEST(Registration, HandsTheBackendTheDescriptorInsideTheRow) {
  FakeBackend backend;
  vexa_dm_default_item table[] = {text_item(1, "A", "abc"), text_item(2, "B", "abc"), end_of_table()};
  ASSERT_EQ(vexa_dm_reg_def_items(table), 0);

  read_item(backend.handle, 2);
  EXPECT_EQ(backend.desc, &table[1].desc);
  write_item(backend.handle, 1, "x");
  EXPECT_EQ(backend.desc, &table[0].desc);
}

TEST(Registration, OfAFurtherTableAddsItsItems) {
  FakeBackend backend;
  vexa_dm_default_item first[] = {text_item(1, "A", "one"), end_of_table()};
  vexa_dm_default_item second[] = {text_item(2, "B", "two"), end_of_table()};
  ASSERT_EQ(vexa_dm_reg_def_items(first), 0);
  ASSERT_EQ(vexa_dm_reg_def_items(second), 0);

  EXPECT_EQ(read_item(backend.handle, 1).bytes, "one");
  EXPECT_EQ(read_item(backend.handle, 2).bytes, "two");
}

TEST(Registration, OfAnIdTwiceKeepsTheFirstDefaultAndTheLastDescriptor) {
  FakeBackend backend;
  vexa_dm_default_item table[] = {text_item(1, "FIRST", "one"), text_item(1, "LAST", "two"), end_of_table()};
  ASSERT_EQ(vexa_dm_reg_def_items(table), 0);

  EXPECT_EQ(read_item(backend.handle, 1).bytes, "one");
  EXPECT_STREQ(backend.desc->key, "LAST");
}

TEST(Registration, OfNegativeAndExtremeIdsWorks) {
  FakeBackend backend;
  vexa_dm_default_item table[] = {text_item(INT32_MIN, "MIN", "lowest"),
                                  text_item(INT32_MAX, "MAX", "highest"), text_item(0, "ZERO", "zero"),
                                  end_of_table()};
  ASSERT_EQ(vexa_dm_reg_def_items(table), 0);

  EXPECT_EQ(read_item(backend.handle, INT32_MIN).bytes, "lowest");
  EXPECT_EQ(read_item(backend.handle, INT32_MAX).bytes, "highest");
  EXPECT_EQ(read_item(backend.handle, 0).bytes, "zero");
}

TEST(Registration, WithoutMemoryForTheSymbolTableIsMinusFour) {
  VEXA_NEEDS_OWN_CALLOC();
  vexa_dm_default_item table[] = {text_item(1, "A", "one"), end_of_table()};
  const LogCapture log;
  {
    const FailingCalloc starved(1, 1000);
    EXPECT_EQ(vexa_dm_reg_def_items(table), -4);
  }

  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_TRUE(log.has(3, "oem_dm_reg_def_items", "oem_dm_def_reg_map_symtab open failed\n"));
  EXPECT_EQ(vexa_dm_reg_def_items(table), 0);
}

TEST(Registration, WithoutMemoryForARowStopsTheProcess) {
  VEXA_NEEDS_OWN_CALLOC();
  vexa_dm_default_item table[] = {text_item(1, "A", "one"), end_of_table()};
  ASSERT_EQ(vexa_dm_reg_def_items(table), 0);

  expect_assertion([&table] {
    const FailingCalloc starved(3 * sizeof(void*));
    vexa_dm_reg_def_items(table);
  });
}

TEST(Registration, WithoutMemoryForASymbolStopsTheProcess) {
  VEXA_NEEDS_OWN_CALLOC();
  vexa_dm_default_item table[] = {text_item(1, "A", "one"), end_of_table()};
  vexa_dm_default_item more[] = {text_item(2, "B", "two"), end_of_table()};
  ASSERT_EQ(vexa_dm_reg_def_items(table), 0);

  expect_assertion([&more] {
    const FailingCalloc starved(sizeof(vexa_sym_entry));
    vexa_dm_reg_def_items(more);
  });
}

TEST(CompiledDefaults, OfAnIdThatOnlyTheSymbolTableKnowsAreNotFound) {
  FakeBackend backend;
  vexa_dm_default_item table[] = {text_item(1, "A", "one"), end_of_table()};
  vexa_dm_default_item stray = text_item(77, "STRAY", "none");
  ASSERT_EQ(vexa_dm_reg_def_items(table), 0);
  ASSERT_NE(symEnter(0, "77", valueSymbol(&stray.desc), 0), nullptr);
  const LogCapture log;

  EXPECT_EQ(read_item(backend.handle, 77).result, -1);

  EXPECT_TRUE(log.has(0, "oem_dm_try_read_def_value", "vexa_dm_try_read_def_value def value not found!\n"));
  EXPECT_TRUE(log.has(3, "oem_dm_read", "oem_dm_read def value:4d not register!\n"));
}

TEST(Construct, WithoutRegisteredItemsIsMinusOne) {
  // In a child: the handle that stays behind would look like a leak of this test.
  const ChildResult child = run_in_child([] {
    const LogCapture log;
    EXPECT_EQ(vexa_dm_construct_def_database(2), -1);
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_TRUE(log.has(0, "oem_dm_construct_def_database", "tmp_cnt 0!\n"));
  });

  EXPECT_EQ(child.exit_code, 0) << child.out << child.err;
}

TEST(Construct, WithoutRegisteredItemsLeavesItsHandle) {
  VEXA_NEEDS_OWN_CALLOC();
  const ChildResult child = run_in_child([] {
    const vexa_test::CallocSpy handle(sizeof(vexa_dm_handle));
    EXPECT_EQ(vexa_dm_construct_def_database(2), -1);
    ASSERT_NE(handle.block(), nullptr);
    // A block that was given back is the first that the next request of its size gets.
    void* const next = std::malloc(sizeof(vexa_dm_handle));
    EXPECT_NE(next, handle.block());
    EXPECT_EQ(static_cast<vexa_dm_handle*>(handle.block())->type, 2u);
    std::free(next);
  });

  EXPECT_EQ(child.exit_code, 0) << child.out << child.err;
}

TEST(Construct, WithAnEmptyTableIsMinusOneToo) {
  const ChildResult child = run_in_child([] {
    vexa_dm_default_item table[] = {end_of_table()};
    ASSERT_EQ(vexa_dm_reg_def_items(table), 0);
    EXPECT_EQ(vexa_dm_construct_def_database(2), -1);
  });

  EXPECT_EQ(child.exit_code, 0) << child.out << child.err;
}

TEST(Construct, ForAnUnknownTypeStopsTheProcess) {
  register_one(text_item(1, "A", "one"));

  expect_assertion([] { vexa_dm_construct_def_database(2); });
}

TEST(Construct, InRunCleanStateCallsNoSlot) {
  register_one(text_item(1, "A", "one"));
  FakeBackend backend;
  vexa_dm_clean(backend.handle, nullptr);

  EXPECT_EQ(vexa_dm_construct_def_database(2), 0);
}

TEST(DefaultSlots, AWriteHandsEverythingOnAndReturnsTheSlotsResult) {
  FakeBackend backend;
  backend.default_write_result = 0xFFFFFF9B;
  vexa_dm_default_item row = text_item(9, "A", "one");

  EXPECT_EQ(vexa_dm_def_items_write(backend.handle, 9, &row.desc, &row.value, 3), -101);

  EXPECT_THAT(backend.calls, ElementsAre("def_db_const 9 len 3"));
  EXPECT_EQ(backend.desc, &row.desc);
  EXPECT_EQ(backend.default_value, &row.value);
}

TEST(DefaultSlots, AReadHandsEverythingOnAndReturnsTheSlotsResult) {
  FakeBackend backend;
  backend.defaults = "stored";
  vexa_dm_default_item row = text_item(9, "A", "one");
  uint8_t buffer[8] = {};

  EXPECT_EQ(vexa_dm_def_items_read(backend.handle, 9, &row.desc, buffer, 8), 6);
  EXPECT_EQ(std::memcmp(buffer, "stored\0", 7), 0);
  backend.defaults.reset();
  backend.default_read_result = -100;
  EXPECT_EQ(vexa_dm_def_items_read(backend.handle, 9, &row.desc, buffer, 8), -100);

  EXPECT_THAT(backend.calls, ElementsAre("def_db_read 9 len 8", "def_db_read 9 len 8"));
  EXPECT_EQ(backend.desc, &row.desc);
}

TEST(DefaultSlots, RefuseNullArguments) {
  FakeBackend backend;
  vexa_dm_default_item row = text_item(9, "A", "one");
  uint8_t buffer[8] = {};
  const LogCapture log;

  EXPECT_EQ(vexa_dm_def_items_write(nullptr, 9, &row.desc, "x", 1), -3);
  EXPECT_EQ(vexa_dm_def_items_write(backend.handle, 9, nullptr, "x", 1), -3);
  EXPECT_EQ(vexa_dm_def_items_write(backend.handle, 9, &row.desc, nullptr, 1), -3);
  EXPECT_EQ(vexa_dm_def_items_read(nullptr, 9, &row.desc, buffer, 8), -3);
  EXPECT_EQ(vexa_dm_def_items_read(backend.handle, 9, nullptr, buffer, 8), -3);
  EXPECT_EQ(vexa_dm_def_items_read(backend.handle, 9, &row.desc, nullptr, 8), -3);

  ASSERT_EQ(log.lines().size(), 6u);
  EXPECT_EQ(log.count("vexa_dm_def_items_write param NULL\n"), 3u);
  EXPECT_EQ(log.count("vexa_dm_def_items_read param NULL\n"), 3u);
  EXPECT_TRUE(log.has(3, "oem_dm_def_items_write", "vexa_dm_def_items_write param NULL\n"));
  EXPECT_TRUE(log.has(3, "oem_dm_def_items_read", "vexa_dm_def_items_read param NULL\n"));
  EXPECT_THAT(backend.calls, IsEmpty());
}

TEST(DefaultSlots, InRunCleanStateAreNotCalled) {
  FakeBackend backend;
  backend.defaults = "stored";
  vexa_dm_default_item row = text_item(9, "A", "one");
  uint8_t buffer[8] = {0x5A};
  vexa_dm_clean(backend.handle, nullptr);
  backend.calls.clear();

  EXPECT_EQ(vexa_dm_def_items_write(backend.handle, 9, &row.desc, "x", 1), 0);
  EXPECT_EQ(vexa_dm_def_items_read(backend.handle, 9, &row.desc, buffer, 8), 0);
  EXPECT_EQ(vexa_dm_def_items_read(backend.handle, 9, nullptr, buffer, 8), -3);

  EXPECT_EQ(buffer[0], 0x5A);
  EXPECT_THAT(backend.calls, IsEmpty());
}

TEST(DefaultSlots, ThatAreMissingStopTheProcess) {
  FakeBackend backend;
  backend.handle->ops = {};
  vexa_dm_default_item row = text_item(9, "A", "one");
  uint8_t buffer[8] = {};

  expect_assertion([&] { vexa_dm_def_items_write(backend.handle, 9, &row.desc, "x", 1); });
  expect_assertion([&] { vexa_dm_def_items_read(backend.handle, 9, &row.desc, buffer, 8); });
}

// The compiled-in default of each type, read into a buffer of some capacity: the bytes it writes
// and the length it announces are two things.
struct CompiledDefault {
  const char* name;
  vexa_dm_default_item item;
  int32_t capacity;
  int32_t result;
  std::string buffer;  // first 12 bytes afterwards, '?' where nothing was written
};

class CompiledDefaults : public ::testing::TestWithParam<CompiledDefault> {};

TEST_P(CompiledDefaults, AreDeliveredWhenTheVersionsDiffer) {
  const CompiledDefault& row = GetParam();
  FakeBackend backend;
  register_one(row.item);
  std::string buffer(12, '?');
  const LogCapture log;

  EXPECT_EQ(vexa_dm_read(backend.handle, 1, reinterpret_cast<uint8_t*>(buffer.data()), row.capacity),
            row.result);

  EXPECT_EQ(buffer, row.buffer);
  EXPECT_TRUE(log.has(3, "oem_dm_try_read_def_value", "ver_match fail,so ignore DefItems data!\n"));
}

const uint8_t block_bytes[] = {1, 2, 3, 4, 5};

INSTANTIATE_TEST_SUITE_P(
    EachType, CompiledDefaults,
    ::testing::Values(
        CompiledDefault{"Byte", number_item(1, "A", 1, 0x44434241, 1), 8, 1, "A???????????"},
        CompiledDefault{"ByteOfOtherLength", number_item(1, "A", 1, 0x44434241, 4), 8, 4, "A???????????"},
        CompiledDefault{"Word", number_item(1, "A", 2, 0x44434241, 2), 8, 2, "AB??????????"},
        CompiledDefault{"WordInOneByte", number_item(1, "A", 2, 0x44434241, 2), 1, 2, "AB??????????"},
        CompiledDefault{"Long", number_item(1, "A", 3, 0x44434241, 4), 8, 4, "ABCD????????"},
        CompiledDefault{"LongInOneByte", number_item(1, "A", 3, 0x44434241, 4), 1, 4, "ABCD????????"},
        CompiledDefault{"OtherLong", number_item(1, "A", 4, 0x44434241, 4), 8, 4, "ABCD????????"},
        CompiledDefault{"NumberOfLengthZero", number_item(1, "A", 3, 0x44434241, 0), 8, 0, "ABCD????????"},
        CompiledDefault{"Text", text_item(1, "A", "xyz"), 8, 3, "xyz?????????"},
        CompiledDefault{"TextOfThreeInTwo", text_item(1, "A", "xyz"), 2, 3, "xy??????????"},
        CompiledDefault{"EmptyText", text_item(1, "A", ""), 8, 0, "????????????"},
        CompiledDefault{"Block", block_item(1, "A", block_bytes, 5), 8, 5, "\1\2\3\4\5???????"},
        CompiledDefault{"BlockOfFiveInTwo", block_item(1, "A", block_bytes, 5), 2, 5, "\1\2\3\4\5???????"},
        CompiledDefault{"EmptyBlockWithoutAddress", block_item(1, "A", nullptr, 0), 8, 0, "????????????"},
        CompiledDefault{"EmptyBlock", block_item(1, "A", block_bytes, 0), 8, 0, "????????????"},
        CompiledDefault{"NoType", number_item(1, "A", 0, 0x44434241, 4), 8, 0, "????????????"},
        CompiledDefault{"UnknownType", number_item(1, "A", 7, 0x44434241, 4), 8, 0, "????????????"}),
    [](const auto& instance) { return instance.param.name; });

TEST(DefaultText, LengthIsMeasuredAndNotTakenFromTheRow) {
  FakeBackend backend;
  vexa_dm_default_item item = text_item(1, "A", "xyz");
  item.length = 99;
  register_one(item);

  EXPECT_EQ(read_item(backend.handle, 1).result, 3);
}

class NoCompiledDefault : public ::testing::TestWithParam<vexa_dm_default_item> {};

TEST_P(NoCompiledDefault, IsMinusOneAndSaysSo) {
  FakeBackend backend;
  register_one(GetParam());
  const LogCapture log;

  EXPECT_EQ(read_item(backend.handle, 1).result, -1);

  EXPECT_TRUE(log.has(0, "oem_dm_try_read_def_value", "oem_dm_try_read_def_value def value is a NULL!\n"));
  EXPECT_EQ(log.lines().back().message, "oem_dm_read def value:1 not register!\n");
}

INSTANTIATE_TEST_SUITE_P(NegativeLengthOrNullPointer, NoCompiledDefault,
                         ::testing::Values(item_row(1, "A", VEXA_DM_U32, -1),
                                           item_row(1, "A", VEXA_DM_STRING, -1),
                                           item_row(1, "A", VEXA_DM_STRING, 3),
                                           item_row(1, "A", VEXA_DM_BLOCK, 3), item_row(1, "A", 0, -5)),
                         [](const auto& instance) {
                           return "Type" + std::to_string(instance.param.type) + "Row" +
                                  std::to_string(instance.index);
                         });

// With the real backend behind the defaults, so that the versions match.
class StoredDefaults : public DeviceTest {
 protected:
  void SetUp() override {
    DeviceTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    handle = vexa_dm_reg(1);
    ASSERT_EQ(vexa_dm_reg_def_items(table), 0);
    ASSERT_EQ(vexa_dm_construct_def_database(1), 0);
  }
  void TearDown() override { vexa_dm_unreg(handle); }

  vexa_dm_handle* handle = nullptr;
  static inline vexa_dm_default_item table[] = {text_item(1, "TEXT", "abc"),
                                                number_item(2, "NUMBER", VEXA_DM_U32, 4711, 4),
                                                number_item(3, "SHORT", VEXA_DM_U16, 0x0102, 2),
                                                block_item(4, "BLOCK", "\1\2\3\4\5", 5),
                                                bare_item(5, "BARE"),
                                                text_item(6, "EMPTY", ""),
                                                number_item(8, "ALT", VEXA_DM_U32_ALT, 4712, 4),
                                                end_of_table()};
  // Registered after the defaults were stored: the stored defaults lack it.
  static inline vexa_dm_default_item later[] = {text_item(7, "LATER", "compiled in"), end_of_table()};
};

TEST_F(StoredDefaults, OfAllTypesAreStoredAndDelivered) {
  EXPECT_TRUE(exists("/data/DefItems.db"));
  EXPECT_EQ(read_item(handle, 1).bytes, "abc");
  EXPECT_EQ(read_item(handle, 2).bytes, std::string("\x67\x12\0\0", 4));
  EXPECT_EQ(read_item(handle, 3).bytes, "\2\1");
  EXPECT_EQ(read_item(handle, 4).bytes, "\1\2\3\4\5");
}

TEST_F(StoredDefaults, MayBeReadByTwoThreadsAtOnce) {
  const auto read_often = [this] {
    for (int i = 0; i < 20; ++i) EXPECT_EQ(read_item(handle, 1).bytes, "abc");
  };
  std::thread other(read_often);
  read_often();
  other.join();
}

TEST_F(StoredDefaults, AreMoreThanTheCompiledInOnes) {
  table[0].value.text = "changed";

  EXPECT_EQ(read_item(handle, 1).bytes, "abc");
}

TEST_F(StoredDefaults, ThatAreMissingFailAlthoughOneIsCompiledIn) {
  ASSERT_EQ(vexa_dm_reg_def_items(later), 0);
  const LogCapture log;

  EXPECT_EQ(read_item(handle, 7).result, -1);

  EXPECT_EQ(log.count("ver_match fail,so ignore DefItems data!\n"), 0u);
  EXPECT_EQ(log.count("oem_dm_read def value:7 not register!\n"), 1u);
}

TEST_F(StoredDefaults, SayTheValueOfTextsAndLongNumbers) {
  const LogCapture log;

  read_item(handle, 1);
  read_item(handle, 2);
  read_item(handle, 3);
  EXPECT_EQ(read_item(handle, 8).bytes, std::string("\x68\x12\0\0", 4));

  EXPECT_EQ(log.count("ALT def value is 4712\n"), 0u);
  EXPECT_TRUE(log.has(3, "oem_dm_try_read_def_value", "TEXT def value is abc\n"));
  EXPECT_TRUE(log.has(3, "oem_dm_try_read_def_value", "NUMBER def value is 4711\n"));
  EXPECT_EQ(log.count("SHORT def value is 258\n"), 0u);
}

TEST_F(StoredDefaults, SayOnlyAsMuchOfATextAsWasDelivered) {
  const LogCapture log;

  EXPECT_EQ(read_item(handle, 1, 2).bytes, "ab");

  EXPECT_TRUE(log.has(3, "oem_dm_try_read_def_value", "TEXT def value is ab\n"));
}

TEST_F(StoredDefaults, OfALongNumberInAShortBufferStayInsideIt) {
  const LogCapture log;

  EXPECT_EQ(read_item(handle, 2, 2).bytes, "\x67\x12");

  EXPECT_TRUE(log.has(3, "oem_dm_try_read_def_value", "NUMBER def value is 4711\n"));
}

TEST_F(StoredDefaults, BringTheirTypeIntoTheRow) {
  ASSERT_EQ(dm_write_def_db("CFG_TAB", "TEXT", VEXA_DM_BLOCK, "xy", 2), 0);
  const LogCapture log;

  EXPECT_EQ(read_item(handle, 1).bytes, "xy");

  EXPECT_EQ(table[0].desc.type, VEXA_DM_BLOCK);
  EXPECT_EQ(log.count("TEXT def value is xy\n"), 0u);
}

TEST_F(StoredDefaults, AreNotCached) {
  uint8_t buffer[8] = {};
  read_item(handle, 1);

  EXPECT_EQ(vexa_dm_cache_read(1, buffer, 8), -1);
}

TEST_F(StoredDefaults, InRunCleanStateAreSuppressed) {
  vexa_dm_handle other = *handle;
  other.ops.clean = [](char*) -> uint32_t { return 0; };
  vexa_dm_clean(&other, nullptr);
  uint8_t buffer[8] = {0x5A, 0x5B};

  EXPECT_EQ(vexa_dm_read(handle, 1, buffer, 8), 0);

  EXPECT_EQ(buffer[0], 0x5A);
  EXPECT_EQ(buffer[1], 0x5B);
}

TEST_F(StoredDefaults, ConstructCountsItsItemsDownAndRestoresTheirTypes) {
  table[0].desc.type = 6;
  const LogCapture log;

  EXPECT_EQ(vexa_dm_construct_def_database(1), 0);

  EXPECT_TRUE(log.has(0, "oem_dm_construct_def_database", "tmp_cnt 7!\n"));
  EXPECT_TRUE(log.has(0, "oem_dm_construct_def_database", "tmp_cnt-- 0!\n"));
  EXPECT_EQ(table[0].desc.type, 5);
}

class DefaultsOnDevice : public DeviceTest {};

TEST_F(DefaultsOnDevice, AreCompiledInUntilTheyAreStored) {
  vexa_dm_handle* const handle = vexa_dm_reg(1);
  register_one(text_item(1, "TEXT", "abc"));
  const LogCapture log;

  EXPECT_EQ(read_item(handle, 1).bytes, "abc");

  EXPECT_EQ(log.count("ver_match fail,so ignore DefItems data!\n"), 1u);
  vexa_dm_unreg(handle);
}

TEST_F(DefaultsOnDevice, OfNullTextsAndBlocksAreLeftOut) {
  static vexa_dm_default_item table[] = {item_row(1, "TEXT", VEXA_DM_STRING, 3),
                                         item_row(2, "BLOCK", VEXA_DM_BLOCK, 3), end_of_table()};
  ASSERT_EQ(vexa_dm_reg_def_items(table), 0);

  EXPECT_EQ(vexa_dm_construct_def_database(1), 0);

  vexa_dm_handle* const handle = vexa_dm_reg(1);
  EXPECT_EQ(read_item(handle, 1).result, -100);
  EXPECT_EQ(read_item(handle, 2).result, -100);
  vexa_dm_unreg(handle);
}

TEST_F(DefaultsOnDevice, AStoredNumberReadIntoOneByteShowsThatByte) {
  // The versions match, so that the stored default counts.
  vexa_dm_handle* const handle = vexa_dm_reg(1);
  register_one(number_item(1, "NUMBER", VEXA_DM_U32, 7, 4));
  ASSERT_EQ(vexa_dm_construct_def_database(1), 0);
  const LogCapture log;

  EXPECT_EQ(read_item(handle, 1, 1).result, 1);

  EXPECT_TRUE(log.has(3, "oem_dm_try_read_def_value", "NUMBER def value is 7\n"));
  vexa_dm_unreg(handle);
}
