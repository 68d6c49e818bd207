// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vexadm/data_manager.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "support/failing_calloc.h"
#include "support/fake_backend.h"
#include "support/log_capture.h"

using namespace vexa_test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

namespace {

constexpr int32_t kBare = 1;       // no default
constexpr int32_t kEmpty = 2;      // default is the empty text
constexpr int32_t kDefault = 3;    // default is "a,1;b,2;"
constexpr int32_t kLongText = 4;   // default is longer than any key-value text
constexpr int32_t kLongBlock = 5;  // the same as a block

using Pairs = std::vector<std::pair<std::string, std::string>>;

class KeyValue : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(vexa_dm_reg_def_items(table_), 0); }

  int32_t write(int32_t id, const std::string& key, const std::string& value) {
    return vexa_dm_write_key_value_pairs(backend.handle, static_cast<uint32_t>(id), key.c_str(),
                                         value.c_str(), &length);
  }
  int32_t read(int32_t id) {
    const int32_t result =
        vexa_dm_read_key_value_pairs(backend.handle, static_cast<uint32_t>(id), keys, values, &count);
    pairs.clear();
    for (int32_t row = 0; row < count; ++row) pairs.emplace_back(keys[row], values[row]);
    return result;
  }
  const std::string& stored(int32_t id) { return backend.values[static_cast<uint32_t>(id)]; }

  FakeBackend backend;
  int32_t length = -77;
  int32_t count = -77;
  char keys[300][256] = {};
  char values[300][256] = {};
  Pairs pairs;

 private:
  static inline const std::string long_text_ = std::string(3000, 'x');
  static inline vexa_dm_default_item table_[] = {
      bare_item(kBare, "BARE"),
      text_item(kEmpty, "EMPTY", ""),
      text_item(kDefault, "DEFAULT", "a,1;b,2;"),
      text_item(kLongText, "LONG_TEXT", long_text_.c_str()),
      block_item(kLongBlock, "LONG_BLOCK", long_text_.data(), 3000),
      end_of_table()};
};

using KeyValueWrite = KeyValue;
using KeyValueRead = KeyValue;

}  // namespace

TEST_F(KeyValueWrite, AppendsReplacesInPlaceAndAppends) {
  EXPECT_EQ(write(kEmpty, "k", "v"), 0);
  EXPECT_EQ(stored(kEmpty), "k,v;");
  EXPECT_EQ(length, 4);

  EXPECT_EQ(write(kEmpty, "k", "w"), 0);
  EXPECT_EQ(stored(kEmpty), "k,w;");
  EXPECT_EQ(length, 4);

  EXPECT_EQ(write(kEmpty, "m", "x"), 0);
  EXPECT_EQ(stored(kEmpty), "k,w;m,x;");
  EXPECT_EQ(length, 8);
}

TEST_F(KeyValueWrite, StartsFromTheStoredTextOrTheDefault) {
  EXPECT_EQ(write(kDefault, "c", "3"), 0);
  EXPECT_EQ(stored(kDefault), "a,1;b,2;c,3;");

  backend.values[kBare] = "z,26;";
  EXPECT_EQ(write(kBare, "c", "3"), 0);
  EXPECT_EQ(stored(kBare), "z,26;c,3;");
}

TEST_F(KeyValueWrite, KeepsThePlaceOfAPairInTheMiddle) {
  backend.values[kBare] = "a,1;b,2;c,3;";

  EXPECT_EQ(write(kBare, "b", "twenty"), 0);

  EXPECT_EQ(stored(kBare), "a,1;b,twenty;c,3;");
  EXPECT_EQ(length, 17);
}

TEST_F(KeyValueWrite, FindsAKeyAtTheEndOfAnotherOne) {
  backend.values[kBare] = "band,1;d,2;";

  EXPECT_EQ(write(kBare, "d", "9"), 0);

  EXPECT_EQ(stored(kBare), "band,9;d,2;");
}

TEST_F(KeyValueWrite, AppendsAKeyThatOnlyStartsAnotherOne) {
  backend.values[kBare] = "band,1;";

  EXPECT_EQ(write(kBare, "ba", "9"), 0);

  EXPECT_EQ(stored(kBare), "band,1;ba,9;");
}

TEST_F(KeyValueWrite, FindsAKeyAtTheEndOfAValueBeforeAComma) {
  backend.values[kBare] = "list,x,y;b,2;";

  EXPECT_EQ(write(kBare, "x", "9"), 0);

  EXPECT_EQ(stored(kBare), "list,x,9;b,2;");
}

TEST_F(KeyValueWrite, ReplacesUpToTheEndWhenASemicolonIsMissing) {
  backend.values[kBare] = "a,1;b,2";

  EXPECT_EQ(write(kBare, "b", "3"), 0);

  EXPECT_EQ(stored(kBare), "a,1;b,3;");
}

TEST_F(KeyValueWrite, StoresNoTerminator) {
  EXPECT_EQ(write(kEmpty, "k", "v"), 0);

  EXPECT_THAT(backend.calls, ElementsAre("read 2 len 1024", "read 2 len 5", "write 2 len 4"));
}

TEST_F(KeyValueWrite, OfThePresentPairIsDoneWithoutTheBackend) {
  backend.values[kBare] = "a,1;";
  const LogCapture log;

  EXPECT_EQ(write(kBare, "a", "1"), 0);

  EXPECT_EQ(log.count("Try to write the same data\n"), 1u);
  EXPECT_THAT(backend.calls, ElementsAre("read 1 len 1024"));
  EXPECT_EQ(length, 4);
}

TEST_F(KeyValueWrite, SaysKeyValueAndFinalText) {
  const LogCapture log;

  write(kEmpty, "k", "v");

  EXPECT_EQ(log.lines().front().message, "write key: k, value: v\n");
  EXPECT_TRUE(log.has(0, "oem_dm_write_key_value_pairs", "write key: k, value: v\n"));
  EXPECT_TRUE(log.has(0, "oem_dm_write_key_value_pairs", "final str, write to db: k,v;\n"));
}

TEST_F(KeyValueWrite, RefusesEmptyKeysAndValues) {
  const LogCapture log;

  EXPECT_EQ(write(kEmpty, "", "v"), 3);
  EXPECT_EQ(write(kEmpty, "k", ""), 3);

  EXPECT_THAT(log.messages(), ElementsAre("write key: , value: v\n", "length of key or value error\n",
                                          "write key: k, value: \n", "length of key or value error\n"));
  EXPECT_TRUE(log.has(3, "oem_dm_write_key_value_pairs", "length of key or value error\n"));
  EXPECT_THAT(backend.calls, IsEmpty());
  EXPECT_EQ(length, -77);
}

TEST_F(KeyValueWrite, TakesFiveHundredAndTwelveBytesAndNoMore) {
  EXPECT_EQ(write(kEmpty, std::string(300, 'k'), std::string(213, 'v')), 3);
  EXPECT_THAT(backend.calls, IsEmpty());

  EXPECT_EQ(write(kEmpty, std::string(300, 'k'), std::string(212, 'v')), 0);
  EXPECT_EQ(stored(kEmpty), std::string(300, 'k') + "," + std::string(212, 'v') + ";");
  EXPECT_EQ(length, 514);
}

TEST_F(KeyValueWrite, FindsTheLongestKeyThatCanBeReplaced) {
  const std::string key(509, 'k');
  EXPECT_EQ(write(kEmpty, key, "1"), 0);

  EXPECT_EQ(write(kEmpty, key, "2"), 0);

  EXPECT_EQ(stored(kEmpty), key + ",2;");
}

TEST_F(KeyValueWrite, RefusesATextThatWouldGrowTooLong) {
  const std::string present = "a," + std::string(1016, 'x') + ";";  // 1019 bytes
  backend.values[kBare] = present;
  const LogCapture log;

  EXPECT_EQ(write(kBare, "bb", "22"), 3);

  EXPECT_TRUE(log.has(3, "oem_dm_write_key_value_pairs",
                      "ERROR: the length of db str out of DM_MAX_KEY_VALUE_STRLEN\n"));
  EXPECT_EQ(stored(kBare), present);
  EXPECT_EQ(length, -77);
}

TEST_F(KeyValueWrite, CountsThePairThatWouldBeReplaced) {
  const std::string present = "a," + std::string(1016, 'x') + ";";
  backend.values[kBare] = present;

  EXPECT_EQ(write(kBare, "a", "1234"), 3);
  EXPECT_EQ(write(kBare, "a", "123"), 3);
  EXPECT_EQ(write(kBare, "a", "12"), 0);
  EXPECT_EQ(stored(kBare), "a,12;");
}

TEST_F(KeyValueWrite, OfExactlyTheLimitLosesTheLastSemicolon) {
  const std::string present = "a," + std::string(1016, 'x') + ";";
  backend.values[kBare] = present;

  EXPECT_EQ(write(kBare, "bb", "2"), 0);

  EXPECT_EQ(stored(kBare), present + "bb,2");
  EXPECT_EQ(length, 1023);
}

TEST_F(KeyValueWrite, OfOneBelowTheLimitIsWhole) {
  const std::string present = "a," + std::string(1016, 'x') + ";";
  backend.values[kBare] = present;

  EXPECT_EQ(write(kBare, "b", "2"), 0);

  EXPECT_EQ(stored(kBare), present + "b,2;");
  EXPECT_EQ(length, 1023);
}

TEST_F(KeyValueWrite, WithoutStoredValueAndDefaultFails) {
  const LogCapture log;

  EXPECT_EQ(write(kBare, "k", "v"), -1);

  EXPECT_EQ(log.lines().back().message, "read db failed\n");
  EXPECT_TRUE(log.has(3, "oem_dm_write_key_value_pairs", "read db failed\n"));
  EXPECT_EQ(length, -77);
}

TEST_F(KeyValueWrite, OfAnUnknownIdOrANullHandleIsAFailedRead) {
  const LogCapture log;

  EXPECT_EQ(write(77, "k", "v"), -3);
  EXPECT_EQ(vexa_dm_write_key_value_pairs(nullptr, kEmpty, "k", "v", &length), -3);

  EXPECT_EQ(log.count("read db failed\n"), 2u);
}

TEST_F(KeyValueWrite, PassesTheResultOfTheWriteOn) {
  backend.write_result = 5;
  const LogCapture log;

  EXPECT_EQ(write(kEmpty, "k", "v"), 5);

  EXPECT_EQ(log.lines().back().message, "write db failed\n");
  EXPECT_TRUE(log.has(3, "oem_dm_write_key_value_pairs", "write db failed\n"));
  EXPECT_EQ(length, 4);
}

TEST_F(KeyValueWrite, RaisesTheEventBeforeTheCacheIsWritten) {
  static FakeBackend* watched;
  static std::string seen;
  watched = &backend;
  backend.values[kBare] = "a,1;";
  vexa_dm_reg_event_callback([](int32_t id, const void* data, int32_t bytes) {
    seen = std::string(static_cast<const char*>(data), static_cast<std::size_t>(bytes)) + " was " +
           read_item(watched->handle, id).bytes;
  });

  EXPECT_EQ(write(kBare, "a", "2"), 0);

  EXPECT_EQ(seen, "a,2; was a,1;");
  EXPECT_EQ(read_item(backend.handle, kBare).bytes, "a,2;");
}

TEST_F(KeyValueWrite, RefusesNullArguments) {
  const LogCapture log;

  EXPECT_EQ(vexa_dm_write_key_value_pairs(backend.handle, kEmpty, nullptr, "v", &length), -3);
  EXPECT_EQ(vexa_dm_write_key_value_pairs(backend.handle, kEmpty, "k", nullptr, &length), -3);
  EXPECT_EQ(vexa_dm_write_key_value_pairs(backend.handle, kEmpty, "k", "v", nullptr), -3);

  ASSERT_EQ(log.lines().size(), 3u);
  EXPECT_EQ(log.count("vexa_dm_write_key_value_pairs param NULL\n"), 3u);
  EXPECT_TRUE(log.has(3, "oem_dm_write_key_value_pairs", "vexa_dm_write_key_value_pairs param NULL\n"));
  EXPECT_THAT(backend.calls, IsEmpty());
}

TEST_F(KeyValueWrite, IsNotHurtByADefaultLongerThanAnyText) {
  EXPECT_EQ(write(kLongText, "k", "v"), 3);
  EXPECT_EQ(write(kLongBlock, "k", "v"), 3);
}

TEST_F(KeyValueWrite, IgnoresBytesThatAFailedReadLeftBehind) {
  backend.handle->ops.read = [](uint32_t, const vexa_dm_item_desc*, uint8_t* buffer,
                                int32_t capacity) -> int32_t {
    std::memset(buffer, 'r', static_cast<std::size_t>(std::min(capacity, 24)));
    return -102;
  };

  EXPECT_EQ(write(kEmpty, "k", "v"), 0);

  EXPECT_EQ(stored(kEmpty), "k,v;");
}

TEST_F(KeyValueWrite, WithoutMemoryIsAFailedRead) {
  VEXA_NEEDS_OWN_CALLOC();
  const LogCapture log;
  {
    const FailingCalloc starved(1025);
    EXPECT_EQ(write(kEmpty, "k", "v"), -3);
    EXPECT_EQ(read(kDefault), -3);
  }

  EXPECT_EQ(count, 0);
  EXPECT_TRUE(log.has(3, "oem_dm_write_key_value_pairs", "read db failed\n"));
  EXPECT_TRUE(log.has(3, "oem_dm_read_key_value_pairs", "read db failed\n"));
}

TEST_F(KeyValueRead, SplitsPairsIntoRows) {
  EXPECT_EQ(read(kDefault), 0);

  EXPECT_THAT(pairs, ElementsAre(Pair("a", "1"), Pair("b", "2")));
  EXPECT_EQ(count, 2);
}

TEST_F(KeyValueRead, SaysTextPairsAndNumber) {
  backend.values[kBare] = "a,1;b,2;";
  read(kBare);
  const LogCapture log;

  read(kBare);

  EXPECT_THAT(log.messages(),
              ElementsAre("read_item:1 from_mem len 8 !!\n", "DM_RD_MEM ret 8\n", "read from db: a,1;b,2;\n",
                          "key: a, value: 1\n", "key: b, value: 2\n", "key-value pairs num: 2\n"));
  EXPECT_TRUE(log.has(0, "oem_dm_read_key_value_pairs", "read from db: a,1;b,2;\n"));
  EXPECT_TRUE(log.has(0, "oem_dm_read_key_value_pairs", "key: a, value: 1\n"));
  EXPECT_TRUE(log.has(0, "oem_dm_read_key_value_pairs", "key-value pairs num: 2\n"));
}

TEST_F(KeyValueRead, OfAnEmptyTextHasNoPairs) {
  EXPECT_EQ(read(kEmpty), 0);

  EXPECT_EQ(count, 0);
}

TEST_F(KeyValueRead, SplitsAtTheFirstCommaOnly) {
  backend.values[kBare] = "list,1,2,3;";

  EXPECT_EQ(read(kBare), 0);

  EXPECT_THAT(pairs, ElementsAre(Pair("list", "1,2,3")));
}

TEST_F(KeyValueRead, EndsAtAnEmptyPair) {
  backend.values[kBare] = "a,1;;b,2;";

  EXPECT_EQ(read(kBare), 0);

  EXPECT_THAT(pairs, ElementsAre(Pair("a", "1")));
}

TEST_F(KeyValueRead, TakesALastPairWithoutSemicolonAndAPairWithoutComma) {
  backend.values[kBare] = "a;b,2";

  EXPECT_EQ(read(kBare), 0);

  EXPECT_THAT(pairs, ElementsAre(Pair("a", ""), Pair("b", "2")));
}

TEST_F(KeyValueRead, GivesBackWhatWasWritten) {
  for (int i = 0; i < 60; ++i) {
    ASSERT_EQ(write(kEmpty, "key" + std::to_string(i), "value" + std::to_string(i)), 0);
  }

  EXPECT_EQ(read(kEmpty), 0);

  ASSERT_EQ(pairs.size(), 60u);
  EXPECT_THAT(pairs[0], Pair("key0", "value0"));
  EXPECT_THAT(pairs[59], Pair("key59", "value59"));
}

TEST_F(KeyValueRead, DoesNotBoundARow) {
  backend.values[kBare] = "a," + std::string(300, 'v') + ";";

  EXPECT_EQ(read(kBare), 0);

  EXPECT_EQ(std::string(values[0]), std::string(300, 'v'));
}

TEST_F(KeyValueRead, OfAnItemThatCannotBeReadHasNoPairs) {
  const LogCapture log;

  EXPECT_EQ(read(kBare), -1);
  EXPECT_EQ(count, 0);

  EXPECT_EQ(log.lines().back().message, "read db failed\n");
  EXPECT_TRUE(log.has(3, "oem_dm_read_key_value_pairs", "read db failed\n"));
}

TEST_F(KeyValueRead, OfANullHandleIsAFailedRead) {
  EXPECT_EQ(vexa_dm_read_key_value_pairs(nullptr, kEmpty, keys, values, &count), -3);
  EXPECT_EQ(count, 0);
}

TEST_F(KeyValueRead, RefusesNullArguments) {
  const LogCapture log;

  EXPECT_EQ(vexa_dm_read_key_value_pairs(backend.handle, kEmpty, nullptr, values, &count), -3);
  EXPECT_EQ(vexa_dm_read_key_value_pairs(backend.handle, kEmpty, keys, nullptr, &count), -3);
  EXPECT_EQ(vexa_dm_read_key_value_pairs(backend.handle, kEmpty, keys, values, nullptr), -3);

  EXPECT_EQ(count, -77);
  ASSERT_EQ(log.lines().size(), 3u);
  EXPECT_EQ(log.count("vexa_dm_read_key_value_pairs param NULL\n"), 3u);
  EXPECT_TRUE(log.has(3, "oem_dm_read_key_value_pairs", "vexa_dm_read_key_value_pairs param NULL\n"));
}

TEST_F(KeyValueRead, OfADefaultLongerThanAnyTextStaysInsideItsBuffer) {
  struct Rows {
    char rows[20][256];
  };
  const auto own_keys = std::make_unique<Rows>();
  const auto own_values = std::make_unique<Rows>();

  EXPECT_EQ(vexa_dm_read_key_value_pairs(backend.handle, kLongText, own_keys->rows, own_values->rows, &count),
            0);

  EXPECT_EQ(count, 1);
  EXPECT_EQ(std::string(own_keys->rows[0]), std::string(1024, 'x'));
}
