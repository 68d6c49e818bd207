// SPDX-License-Identifier: MIT
#include "vexadm/param_db.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/device_fixture.h"
#include "support/log_capture.h"
#include "support/log_text.h"
#include "support/sqlite_tools.h"

static std::atomic<int> g_syncs{0};
extern "C" void sync() noexcept { ++g_syncs; }

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using vexa_test::exec_sql;
using vexa_test::LockHolder;
using vexa_test::log_count;
using vexa_test::log_is;
using vexa_test::LogCapture;
using vexa_test::query;
using vexa_test::rows;

const std::string kDirectory = "/data/vexa-resource/sqlite3";
const std::string kUser = "/data/vexa-resource/sqlite3/user_info.db";
const std::string kFactory = "/data/vexa-resource/sqlite3/factory_info.db";

constexpr const char* kUserMissing =
    "3 open_sqlite_db|Error, db:/data/vexa-resource/sqlite3/user_info.db couldn't access.\n";
constexpr const char* kFactoryMissing =
    "3 open_sqlite_db|Error, db:/data/vexa-resource/sqlite3/factory_info.db couldn't access.\n";
constexpr const char* kCopyRefused = "3 oem_system_call|System call length mismatch: 0 != 87\n";
constexpr const char* kGetFailed =
    "3 oem_db_get_value|Error, db:/data/vexa-resource/sqlite3/user_info.db search_by_table return failed.\n";

std::string bytes_of(const void* data, std::size_t size) {
  return std::string(static_cast<const char*>(data), size);
}
template <typename T>
std::string bytes_of(T value) {
  return bytes_of(&value, sizeof value);
}

class ParamDb : public vexa_test::DeviceTest {
 protected:
  void SetUp() override {
    DeviceTest::SetUp();
    if (IsSkipped()) return;
    std::filesystem::remove_all(kDirectory);
    make_dirs(kDirectory);
    g_syncs = 0;
  }
  // The connections belong to the process: the next case begins without any.
  void TearDown() override {
    if (IsSkipped()) return;
    std::filesystem::remove_all(kDirectory);
    make_dirs(kDirectory);
    write_file(kFactory, "");
    vexa_db_exec_cmd("select 1", nullptr, nullptr, VEXA_DB_USER);
    vexa_db_close_sqlite();
    EXPECT_THAT(open_databases(), IsEmpty());
  }

  static void user(const std::string& sql) { exec_sql(kUser, sql); }
  static void factory(const std::string& sql) { exec_sql(kFactory, sql); }
  // One column a in a table t of one row, in both.
  static void both(const std::string& user_value, const std::string& factory_value) {
    user("create table t(a); insert into t values(" + user_value + ")");
    factory("create table t(a); insert into t values(" + factory_value + ")");
  }

  // Names of the database files that this process has open.
  static std::vector<std::string> open_databases() {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
      std::error_code ignored;
      const std::string target = std::filesystem::read_symlink(entry, ignored).string();
      if (target.starts_with(kDirectory)) names.push_back(target.substr(kDirectory.size() + 1));
    }
    return names;
  }
};

// One record and its end.
struct OneParam {
  OneParam(std::uint32_t type, void* value, std::uint32_t size, std::int32_t id = 1)
      : params{{value, "a", type, size, id}, {nullptr, nullptr, 0, 0, 0}} {}
  vexa_db_param params[2];
  vexa_db_table table{"t", params};
};

// ---- Layout ------------------------------------------------------------------------

TEST(ParamDbLayout, RecordsAreNatural) {
  EXPECT_EQ(offsetof(vexa_db_param, value), 0u);
  EXPECT_EQ(offsetof(vexa_db_param, key), sizeof(void*));
  EXPECT_EQ(offsetof(vexa_db_param, type), 2 * sizeof(void*));
  EXPECT_EQ(offsetof(vexa_db_param, size), 2 * sizeof(void*) + 4);
  EXPECT_EQ(offsetof(vexa_db_param, param_id), 2 * sizeof(void*) + 8);
  EXPECT_EQ(sizeof(vexa_db_table), 2 * sizeof(void*));
}

// ---- The table of types, each with each function ---------------------------------------

struct TypeRow {
  std::uint32_t type;
  std::string bytes;    // of the number 305419896 (0x12345678) in the variable
  std::string written;  // of a variable full of '5' (53, 0x35) bytes
  bool loaded, got, struct_written, value_written;
};

const std::string kByte = bytes_of(std::uint8_t{0x78});
const std::string kHalf = bytes_of(std::uint16_t{0x5678});
const std::string kWord = bytes_of(std::uint32_t{0x12345678});
const std::string kLong = bytes_of(std::uint64_t{0x12345678});
const std::string kText("305419896\0\0\0", 12);

class ParamDbType : public ParamDb, public ::testing::WithParamInterface<TypeRow> {
 protected:
  static constexpr std::uint32_t kSize = 12;
  void SetUp() override {
    ParamDb::SetUp();
    if (!IsSkipped()) both("305419896", "305419896");
    std::memset(variable_, '5', sizeof variable_);
    variable_[kSize - 1] = '\0';
    before_ = bytes_of(variable_, sizeof variable_);
  }
  // What a read leaves in the variable, and behind it.
  std::string after(bool read) const {
    return read ? GetParam().bytes + before_.substr(GetParam().bytes.size()) : before_;
  }
  std::string refused(const std::string& function) const {
    return "3 " + function +
           "|Error, param_type:" + std::to_string(static_cast<std::int32_t>(GetParam().type)) + " \n";
  }

  alignas(8) char variable_[24];
  std::string before_;
  OneParam one_{GetParam().type, variable_, kSize};
};

TEST_P(ParamDbType, LoadedByInitStruct) {
  if (IsSkipped()) return;
  const LogCapture log;
  EXPECT_EQ(vexa_db_query_db_init_struct(&one_.table), 0u);
  EXPECT_EQ(bytes_of(variable_, sizeof variable_), after(GetParam().loaded));
  std::vector<std::string> expected = {
      "0 oem_db_query_db_init_struct|rc:0, search_by_table sql_cmd:select a from t\n",
      "0 oem_db_query_db_init_struct|rc:0,  search_by_table azResult:0x<any>, nrow:1\n"};
  if (!GetParam().loaded) expected.push_back(refused("oem_db_query_db_init_struct"));
  EXPECT_TRUE(log_is(log, expected));
}

TEST_P(ParamDbType, LoadedByReload) {
  if (IsSkipped()) return;
  user("update t set a = 0");
  const LogCapture log;
  EXPECT_EQ(vexa_db_reload_value(&one_.table, 1), 0u);
  EXPECT_EQ(bytes_of(variable_, sizeof variable_), after(GetParam().loaded));
  // Whatever the type, the factory's text goes into the user database.
  EXPECT_EQ(query(kUser, "select a from t"), "305419896");
  std::vector<std::string> expected = {
      "0 oem_db_reload_value|id = 1,i = 0,param_table[i].param_id= 1\n",
      "0 oem_db_reload_value|tbl_name = t,key = a\n",
      "0 update_item_to_db|sqlite3_exec sql_cmd:[update t set  a = \"305419896\"].\n"};
  if (!GetParam().loaded) expected.insert(expected.begin() + 2, refused("oem_db_reload_value"));
  EXPECT_TRUE(log_is(log, expected));
}

TEST_P(ParamDbType, ReadByGetValue) {
  if (IsSkipped()) return;
  const LogCapture log;
  EXPECT_EQ(vexa_db_get_value("t", "a", variable_, GetParam().type, kSize), 0u);
  EXPECT_EQ(bytes_of(variable_, sizeof variable_), after(GetParam().got));
  std::vector<std::string> expected;
  if (!GetParam().got) expected.push_back(refused("oem_db_get_value"));
  EXPECT_TRUE(log_is(log, expected));
}

TEST_P(ParamDbType, WrittenFromStruct) {
  if (IsSkipped()) return;
  const LogCapture log;
  EXPECT_EQ(vexa_db_update_db_from_struct(&one_.table, -1), 0u);
  EXPECT_EQ(query(kUser, "select a from t"),
            GetParam().struct_written ? GetParam().written : std::string("305419896"));
  const bool is_text = GetParam().type == 6;
  const std::string blanks = GetParam().type == 5 ? "  " : " ";
  const std::string shown = is_text ? "\"" + GetParam().written + "\"" : GetParam().written;
  EXPECT_TRUE(log_is(
      log, {GetParam().struct_written
                ? "0 update_item_to_db|sqlite3_exec sql_cmd:[update t set" + blanks + "a = " + shown + ";].\n"
                : refused("oem_db_update_db_from_struct")}));
  EXPECT_EQ(g_syncs, 1);
}

TEST_P(ParamDbType, WrittenByUpdateValue) {
  if (IsSkipped()) return;
  const LogCapture log;
  EXPECT_EQ(vexa_db_update_value("t", "a", variable_, GetParam().type), GetParam().value_written ? 0u : 1u);
  EXPECT_EQ(query(kUser, "select a from t"),
            GetParam().value_written ? GetParam().written : std::string("305419896"));
  const bool is_text = GetParam().type == 6;
  const std::string shown = is_text ? "\"" + GetParam().written + "\"" : GetParam().written;
  std::vector<std::string> expected = {
      "0 update_item_to_db|sqlite3_exec sql_cmd:[update t set  a = " + shown + ";].\n"};
  if (!GetParam().value_written) {
    expected = {refused("oem_db_update_value"), "3 oem_db_update_value|Error, PARAM TYPE SETING ERROR.\n"};
  }
  EXPECT_TRUE(log_is(log, expected));
  EXPECT_EQ(g_syncs, 0);
}

INSTANTIATE_TEST_SUITE_P(Types, ParamDbType,
                         ::testing::Values(TypeRow{0, kByte, "53", true, true, true, true},
                                           TypeRow{1, kByte, "53", true, true, true, true},
                                           TypeRow{2, kWord, "892679477", true, true, true, true},
                                           TypeRow{3, kHalf, "", true, false, false, false},
                                           TypeRow{4, kWord, "892679477", false, true, true, false},
                                           TypeRow{5, kLong, "3834029160418063669", true, true, true, true},
                                           TypeRow{6, kText, "55555555555", true, true, true, true},
                                           TypeRow{7, kWord, "892679477", true, true, true, true},
                                           TypeRow{8, "", "", false, false, false, false},
                                           TypeRow{0x80000000u, "", "", false, false, false, false},
                                           TypeRow{0xFFFFFFFFu, "", "", false, false, false, false}));

// ---- What the cell holds ------------------------------------------------------------------

struct CellRow {
  std::string sql;  // of the cell
  std::uint8_t byte;
  std::uint16_t half;
  std::uint32_t word;
  std::int64_t wide;
  std::string text;  // with room
};

class ParamDbCell : public ParamDb, public ::testing::WithParamInterface<CellRow> {};

TEST_P(ParamDbCell, IsReadAsEachType) {
  if (IsSkipped()) return;
  const CellRow& row = GetParam();
  user("create table t(a); insert into t values(" + row.sql + ")");
  std::uint8_t byte = 9;
  std::uint16_t half = 9;
  std::uint32_t word = 9;
  std::int64_t wide = 9;
  char text[32];
  std::memset(text, '#', sizeof text);
  vexa_db_param params[] = {{&byte, "a", 0, 0, 1}, {&half, "a", 3, 0, 2}, {&word, "a", 2, 0, 3},
                            {&wide, "a", 5, 0, 4}, {text, "a", 6, 32, 5}, {nullptr, nullptr, 0, 0, 0}};
  const vexa_db_table table = {"t", params};
  ASSERT_EQ(vexa_db_query_db_init_struct(&table), 0u);
  EXPECT_EQ(byte, row.byte);
  EXPECT_EQ(half, row.half);
  EXPECT_EQ(word, row.word);
  EXPECT_EQ(wide, row.wide);
  EXPECT_EQ(bytes_of(text, sizeof text), row.text + std::string(32 - row.text.size(), '\0'));
}

INSTANTIATE_TEST_SUITE_P(
    Cells, ParamDbCell,
    ::testing::Values(CellRow{"0", 0, 0, 0, 0, "0"}, CellRow{"255", 255, 255, 255, 255, "255"},
                      CellRow{"256", 0, 256, 256, 256, "256"}, CellRow{"65537", 1, 1, 65537, 65537, "65537"},
                      CellRow{"-1", 255, 65535, 4294967295u, -1, "-1"},
                      CellRow{"-2147483648", 0, 0, 0x80000000u, INT32_MIN, "-2147483648"},
                      CellRow{"2147483647", 255, 65535, INT32_MAX, INT32_MAX, "2147483647"},
                      CellRow{"'  42abc'", 42, 42, 42, 42, "  42abc"}, CellRow{"'0x10'", 0, 0, 0, 0, "0x10"},
                      CellRow{"'010'", 10, 10, 10, 10, "010"}, CellRow{"'on'", 0, 0, 0, 0, "on"},
                      CellRow{"''", 0, 0, 0, 0, ""}, CellRow{"7.9", 7, 7, 7, 7, "7.9"},
                      CellRow{"x'3132003334'", 12, 12, 12, 12, "12"}, CellRow{"null", 0, 0, 0, 0, ""}));

TEST_F(ParamDb, WideNumbersAreReadToTheirEnds) {
  if (IsSkipped()) return;
  std::int64_t wide = 0;
  user("create table t(a); insert into t values(9223372036854775807)");
  EXPECT_EQ(vexa_db_get_value("t", "a", &wide, 5, 0), 0u);
  EXPECT_EQ(wide, INT64_MAX);
  user("update t set a = -9223372036854775807 - 1");
  EXPECT_EQ(vexa_db_get_value("t", "a", &wide, 5, 0), 0u);
  EXPECT_EQ(wide, INT64_MIN);
  user("update t set a = '99999999999999999999'");
  EXPECT_EQ(vexa_db_get_value("t", "a", &wide, 5, 0), 0u);
  EXPECT_EQ(wide, INT64_MAX);
  // strtol: as wide as the host's long.
  std::uint32_t word = 0;
  user("update t set a = 4294967296 + 5");
  EXPECT_EQ(vexa_db_get_value("t", "a", &word, 2, 0), 0u);
  EXPECT_EQ(word, sizeof(long) == 8 ? 5u : 0x7FFFFFFFu);
}

TEST_F(ParamDb, NumbersComeBackAsTheyWereWritten) {
  if (IsSkipped()) return;
  user("create table t(a); insert into t values(0)");
  for (const std::uint32_t word : {0u, 1u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
    for (const std::uint32_t type : {2u, 7u}) {
      std::uint32_t read = 9;
      EXPECT_EQ(vexa_db_update_value("t", "a", &word, type), 0u);
      EXPECT_EQ(vexa_db_get_value("t", "a", &read, 4, 0), 0u);
      EXPECT_EQ(read, word);
    }
  }
  for (const std::int64_t wide : {std::int64_t{0}, INT64_MAX, std::int64_t{1} << 40}) {
    std::int64_t read = 9;
    EXPECT_EQ(vexa_db_update_value("t", "a", &wide, 5), 0u);
    EXPECT_EQ(vexa_db_get_value("t", "a", &read, 5, 0), 0u);
    EXPECT_EQ(read, wide);
  }
  for (const std::uint8_t byte : {std::uint8_t{0}, std::uint8_t{200}, std::uint8_t{255}}) {
    std::uint8_t read = 9;
    EXPECT_EQ(vexa_db_update_value("t", "a", &byte, 1), 0u);
    EXPECT_EQ(vexa_db_get_value("t", "a", &read, 0, 0), 0u);
    EXPECT_EQ(read, byte);
  }
}

TEST_F(ParamDb, UnsignedWordsAreWrittenAsSignedOnes) {
  if (IsSkipped()) return;
  user("create table t(a); insert into t values(0)");
  const std::uint32_t word = 0xFFFFFFFFu;
  EXPECT_EQ(vexa_db_update_value("t", "a", &word, 2), 0u);
  EXPECT_EQ(query(kUser, "select a from t"), "-1");
}

TEST_F(ParamDb, AWideNumberBelowZeroIsWrittenAsAnUnsignedOneAndLost) {
  if (IsSkipped()) return;
  user("create table t(a); insert into t values(0)");
  const std::int64_t wide = -1;
  const LogCapture log;
  EXPECT_EQ(vexa_db_update_value("t", "a", &wide, 5), 0u);
  EXPECT_TRUE(
      log_is(log, {"0 update_item_to_db|sqlite3_exec sql_cmd:[update t set  a = 18446744073709551615;].\n"}));
  EXPECT_EQ(query(kUser, "select typeof(a) from t"), "real");
  std::int64_t read = 9;
  EXPECT_EQ(vexa_db_get_value("t", "a", &read, 5, 0), 0u);
  EXPECT_EQ(read, 1);
}

// ---- Texts -----------------------------------------------------------------------------

// Capacity and length of a text; each in memory of exactly that capacity.
class ParamDbText : public ParamDb, public ::testing::WithParamInterface<std::uint32_t> {
 protected:
  static constexpr std::uint32_t kSize = 9;
  std::string stored() const { return std::string(GetParam(), 'x'); }
  std::string expected() const {
    const std::string kept = stored().substr(0, kSize - 1);
    return kept + std::string(kSize - kept.size(), '\0');
  }
};

TEST_P(ParamDbText, IsCutToItsVariable) {
  if (IsSkipped()) return;
  both("'" + stored() + "'", "'" + stored() + "'");
  const auto variable = std::make_unique<char[]>(kSize);
  OneParam one(6, variable.get(), kSize);
  const std::vector<std::function<std::uint32_t()>> reads = {
      [&] { return vexa_db_query_db_init_struct(&one.table); },
      [&] { return vexa_db_reload_value(&one.table, 1); },
      [&] { return vexa_db_get_value("t", "a", variable.get(), 6, kSize); }};
  for (const auto& read : reads) {
    std::memset(variable.get(), '#', kSize);
    EXPECT_EQ(read(), 0u);
    EXPECT_EQ(bytes_of(variable.get(), kSize), expected());
  }
}

INSTANTIATE_TEST_SUITE_P(Lengths, ParamDbText, ::testing::Values(0u, 1u, 7u, 8u, 9u, 10u, 200u));

TEST_F(ParamDb, ATextOfNoOrOneByteIsNotOverrun) {
  if (IsSkipped()) return;
  both("'long enough'", "'long enough'");
  const auto variable = std::make_unique<char[]>(1);
  variable[0] = '#';
  OneParam none(6, variable.get(), 0);
  EXPECT_EQ(vexa_db_query_db_init_struct(&none.table), 0u);
  EXPECT_EQ(vexa_db_reload_value(&none.table, 1), 0u);
  EXPECT_EQ(vexa_db_get_value("t", "a", variable.get(), 6, 0), 0u);
  EXPECT_EQ(variable[0], '#');
  OneParam one(6, variable.get(), 1);
  EXPECT_EQ(vexa_db_query_db_init_struct(&one.table), 0u);
  EXPECT_EQ(variable[0], '\0');
}

TEST_F(ParamDb, ANullCellEmptiesATextAndSaysSo) {
  if (IsSkipped()) return;
  both("null", "null");
  char variable[4] = {'#', '#', '#', '#'};
  const LogCapture log;
  EXPECT_EQ(vexa_db_get_value("t", "a", variable, 6, 4), 0u);
  EXPECT_EQ(bytes_of(variable, 4), std::string(4, '\0'));
  EXPECT_TRUE(log_is(log, {"3 oem_string_memcpy|Invalid string parameter.\n"}));
}

TEST_F(ParamDb, ATextIsWrittenAsFarAsItsVariableGoes) {
  if (IsSkipped()) return;
  user("create table t(a); insert into t values(0)");
  const auto variable = std::make_unique<char[]>(3);
  std::memcpy(variable.get(), "abc", 3);  // no terminator
  OneParam one(6, variable.get(), 3);
  EXPECT_EQ(vexa_db_update_db_from_struct(&one.table, 1), 0u);
  EXPECT_EQ(query(kUser, "select a from t"), "abc");
}

TEST_F(ParamDb, ATextWhoseSizeIsNotGivenIsWrittenToItsTerminator) {
  if (IsSkipped()) return;
  user("create table t(a); insert into t values('old')");
  char variable[] = "new";
  OneParam one(6, variable, 0);
  EXPECT_EQ(vexa_db_update_db_from_struct(&one.table, -1), 0u);
  EXPECT_EQ(query(kUser, "select a from t"), "new");
}

TEST_F(ParamDb, ATextOfAColumnsNameIsTheColumnsValue) {
  if (IsSkipped()) return;
  user("create table t(a, b); insert into t values('x', 'bee')");
  EXPECT_EQ(vexa_db_update_value("t", "a", "b", 6), 0u);
  EXPECT_EQ(query(kUser, "select a from t"), "bee");
}

TEST_F(ParamDb, ATextWithADoubleQuoteIsRefusedBySqlite) {
  if (IsSkipped()) return;
  user("create table t(a); insert into t values('old')");
  EXPECT_EQ(vexa_db_update_value("t", "a", "say \"hello\" now", 6), 1u);
  EXPECT_EQ(query(kUser, "select a from t"), "old");
}

// ---- Statements of 255 characters ---------------------------------------------------------

TEST_F(ParamDb, TheLongestStatementIsRun) {
  if (IsSkipped()) return;
  user("create table t(a); insert into t values('old')");
  factory("create table t(a)");
  const std::string value(255 - std::strlen("update t set  a = \"\";"), 'v');
  EXPECT_EQ(vexa_db_update_value("t", "a", value.c_str(), 6), 0u);
  EXPECT_EQ(query(kUser, "select a from t"), value);

  const std::string struct_value(255 - std::strlen("update t set a = \"\";"), 's');
  std::string variable = struct_value;
  OneParam one(6, variable.data(), static_cast<std::uint32_t>(variable.size() + 1));
  EXPECT_EQ(vexa_db_update_db_from_struct(&one.table, -1), 0u);
  EXPECT_EQ(query(kUser, "select a from t"), struct_value);

  const std::string reloaded(255 - std::strlen("update t set  a = \"\""), 'r');
  factory("insert into t values('" + reloaded + "')");
  EXPECT_EQ(vexa_db_reload_value(&one.table, 1), 0u);
  EXPECT_EQ(query(kUser, "select a from t"), reloaded);
}

TEST_F(ParamDb, ALongerTextLosesItsQuoteAndIsRefusedBySqlite) {
  if (IsSkipped()) return;
  user("create table t(a); insert into t values('old')");
  // One character more is the semicolon's, which SQLite does not need.
  const std::string value(255 - std::strlen("update t set  a = \"\";") + 2, 'v');
  const std::string cut = ("update t set  a = \"" + value).substr(0, 255);
  const LogCapture log;
  EXPECT_EQ(vexa_db_update_value("t", "a", value.c_str(), 6), 1u);
  EXPECT_EQ(query(kUser, "select a from t"), "old");
  EXPECT_TRUE(
      log_is(log, {"0 update_item_to_db|sqlite3_exec sql_cmd:[" + cut + "].\n",
                   "3 update_item_to_db|Error, sqlite3_get_table run faild, sql_cmd:[" + cut +
                       "], db err:[unrecognized token: \"<any>\"].\n",
                   "3 update_item_to_db|Error, sql_cmd err info:[unrecognized token: \"<any>\"].\n"}));
}

TEST_F(ParamDb, LongNamesAreCutWithTheirStatement) {
  if (IsSkipped()) return;
  user("create table t(a)");
  const std::string column(300, 'c');
  std::uint8_t byte = 0;
  const LogCapture log;
  EXPECT_EQ(vexa_db_get_value("t", column.c_str(), &byte, 0, 0), 1u);
  EXPECT_EQ(log_count(log, "3 search_by_table|Error, sqlite3_get_table run faild, sql_cmd:[select " +
                               std::string(248, 'c') + "], db err:[no such column: <any>].\n"),
            1u);
}

// ---- Loading a table --------------------------------------------------------------------

TEST_F(ParamDb, LoadsEachRecordFromTheFirstRow) {
  if (IsSkipped()) return;
  user("create table wifi(enabled, ssid); insert into wifi values(1, 'Garden'), (0, 'Other')");
  std::uint8_t enabled = 9;
  char ssid[33] = "";
  vexa_db_param params[] = {
      {&enabled, "enabled", 0, 1, 1}, {ssid, "ssid", 6, 33, 2}, {nullptr, nullptr, 0, 0, 0}};
  const vexa_db_table table = {"wifi", params};
  const LogCapture log;
  EXPECT_EQ(vexa_db_query_db_init_struct(&table), 0u);
  EXPECT_EQ(enabled, 1);
  EXPECT_STREQ(ssid, "Garden");
  EXPECT_TRUE(
      log_is(log, {"0 oem_db_query_db_init_struct|rc:0, search_by_table sql_cmd:select enabled from wifi\n",
                   "0 oem_db_query_db_init_struct|rc:0,  search_by_table azResult:0x<any>, nrow:2\n",
                   "0 oem_db_query_db_init_struct|rc:0, search_by_table sql_cmd:select ssid from wifi\n",
                   "0 oem_db_query_db_init_struct|rc:0,  search_by_table azResult:0x<any>, nrow:2\n"}));
  EXPECT_THAT(open_databases(), IsEmpty());
}

TEST_F(ParamDb, AFirstRecordWithoutAKeyLoadsNothing) {
  if (IsSkipped()) return;
  std::uint8_t byte = 9;
  vexa_db_param params[] = {{&byte, nullptr, 0, 1, 1}};
  const vexa_db_table table = {"t", params};
  const LogCapture log;
  EXPECT_EQ(vexa_db_query_db_init_struct(&table), 0u);
  EXPECT_EQ(byte, 9);
  EXPECT_TRUE(log_is(log, {}));
  EXPECT_FALSE(exists(kUser));
}

TEST_F(ParamDb, LoadEndsAtTheFirstColumnThatIsNotThere) {
  if (IsSkipped()) return;
  user("create table t(a, c); insert into t values(1, 3)");
  std::uint8_t values[3] = {9, 9, 9};
  vexa_db_param params[] = {{&values[0], "a", 0, 1, 1},
                            {&values[1], "b", 0, 1, 2},
                            {&values[2], "c", 0, 1, 3},
                            {nullptr, nullptr, 0, 0, 0}};
  const vexa_db_table table = {"t", params};
  const LogCapture log;
  EXPECT_EQ(vexa_db_query_db_init_struct(&table), 1u);
  EXPECT_THAT(values, ElementsAre(1, 9, 9));
  EXPECT_TRUE(log_is(
      log,
      {"0 oem_db_query_db_init_struct|rc:0, search_by_table sql_cmd:select a from t\n",
       "0 oem_db_query_db_init_struct|rc:0,  search_by_table azResult:0x<any>, nrow:1\n",
       "0 oem_db_query_db_init_struct|rc:0, search_by_table sql_cmd:select b from t\n",
       "3 search_by_table|Error, sqlite3_get_table run faild, sql_cmd:[select b from t], db err:[no such "
       "column: b].\n",
       "3 search_by_table|Error, sql_cmd err info:[no such column: b].\n",
       "0 oem_db_query_db_init_struct|rc:0,  search_by_table azResult:(nil), nrow:0\n",
       "3 oem_db_query_db_init_struct|Error, db:/data/vexa-resource/sqlite3/user_info.db search_by_table "
       "return failed. sql_cmd:select b from t\n"}));
  EXPECT_THAT(open_databases(), ElementsAre("user_info.db"));
}

TEST_F(ParamDb, LoadOfATableWithoutRowsFails) {
  if (IsSkipped()) return;
  user("create table t(a)");
  std::uint8_t byte = 9;
  OneParam one(0, &byte, 1);
  const LogCapture log;
  EXPECT_EQ(vexa_db_query_db_init_struct(&one.table), 1u);
  EXPECT_TRUE(log_is(
      log,
      {"0 oem_db_query_db_init_struct|rc:0, search_by_table sql_cmd:select a from t\n",
       "0 oem_db_query_db_init_struct|rc:0,  search_by_table azResult:0x<any>, nrow:0\n",
       "3 oem_db_query_db_init_struct|Error, db:/data/vexa-resource/sqlite3/user_info.db search_by_table "
       "return failed. sql_cmd:select a from t\n"}));
  EXPECT_THAT(open_databases(), IsEmpty());
}

// ---- Writing a table ----------------------------------------------------------------------

class ParamDbWrite : public ParamDb {
 protected:
  void SetUp() override {
    ParamDb::SetUp();
    if (!IsSkipped()) user("create table t(a, b, c); insert into t values(0, 0, 0), (5, 5, 5)");
  }
  std::uint8_t values_[3] = {1, 2, 3};
  vexa_db_param params_[4] = {{&values_[0], "a", 0, 1, 10},
                              {&values_[1], "b", 1, 1, 20},
                              {&values_[2], "c", 0, 1, 10},
                              {nullptr, nullptr, 0, 0, 0}};
  vexa_db_table table_ = {"t", params_};
};

TEST_F(ParamDbWrite, WithMinusOneWritesEveryRecordToEveryRow) {
  if (IsSkipped()) return;
  EXPECT_EQ(vexa_db_update_db_from_struct(&table_, -1), 0u);
  EXPECT_EQ(rows(kUser, "select * from t"), "1,2,3\n1,2,3");
  EXPECT_EQ(g_syncs, 1);
  EXPECT_THAT(open_databases(), IsEmpty());
}

TEST_F(ParamDbWrite, WithANumberWritesTheRecordsThatHaveIt) {
  if (IsSkipped()) return;
  const LogCapture log;
  EXPECT_EQ(vexa_db_update_db_from_struct(&table_, 10), 0u);
  EXPECT_EQ(rows(kUser, "select * from t"), "1,0,3\n1,5,3");
  EXPECT_TRUE(log_is(log, {"0 update_item_to_db|sqlite3_exec sql_cmd:[update t set a = 1;].\n",
                           "0 update_item_to_db|sqlite3_exec sql_cmd:[update t set c = 3;].\n"}));
}

TEST_F(ParamDbWrite, WithANumberThatNoRecordHasWritesNothingAndSyncs) {
  if (IsSkipped()) return;
  const LogCapture log;
  EXPECT_EQ(vexa_db_update_db_from_struct(&table_, 30), 0u);
  EXPECT_EQ(rows(kUser, "select * from t"), "0,0,0\n5,5,5");
  EXPECT_TRUE(log_is(log, {}));
  EXPECT_EQ(g_syncs, 1);
}

TEST_F(ParamDbWrite, OfATableWithoutRecordsWritesNothingAndSyncs) {
  if (IsSkipped()) return;
  params_[0].key = nullptr;
  const LogCapture log;
  EXPECT_EQ(vexa_db_update_db_from_struct(&table_, -1), 0u);
  EXPECT_EQ(vexa_db_update_db_from_struct(&table_, 20), 0u);
  EXPECT_EQ(rows(kUser, "select * from t"), "0,0,0\n5,5,5");
  EXPECT_TRUE(log_is(log, {}));
  EXPECT_EQ(g_syncs, 2);
}

TEST_F(ParamDbWrite, EndsAtTheFirstFailureAndSyncs) {
  if (IsSkipped()) return;
  params_[1].key = "missing";
  const LogCapture log;
  EXPECT_EQ(vexa_db_update_db_from_struct(&table_, -1), 1u);
  EXPECT_EQ(rows(kUser, "select * from t"), "1,0,0\n1,5,5");
  EXPECT_TRUE(
      log_is(log, {"0 update_item_to_db|sqlite3_exec sql_cmd:[update t set a = 1;].\n",
                   "0 update_item_to_db|sqlite3_exec sql_cmd:[update t set missing = 2;].\n",
                   "3 update_item_to_db|Error, sqlite3_get_table run faild, sql_cmd:[update t set missing = "
                   "2;], db err:[no such column: missing].\n",
                   "3 update_item_to_db|Error, sql_cmd err info:[no such column: missing].\n",
                   "3 oem_db_update_db_from_struct|Error, tbl_name:t update key:[missing] failed.\n"}));
  EXPECT_EQ(g_syncs, 1);
  EXPECT_THAT(open_databases(), ElementsAre("user_info.db"));
}

TEST_F(ParamDbWrite, LeavesOutATypeThatIsNotWrittenAndGoesOn) {
  if (IsSkipped()) return;
  params_[0].type = 3;
  EXPECT_EQ(vexa_db_update_db_from_struct(&table_, -1), 0u);
  EXPECT_EQ(rows(kUser, "select * from t"), "0,2,3\n5,2,3");
}

// ---- Reloading from the factory -----------------------------------------------------------

class ParamDbReload : public ParamDb {
 protected:
  void SetUp() override {
    ParamDb::SetUp();
    if (IsSkipped()) return;
    user("create table t(a, b, c); insert into t values(0, 0, 0)");
    factory("create table t(a, b, c); insert into t values(11, 22, 33)");
  }
  std::uint32_t values_[3] = {1, 2, 3};
  vexa_db_param params_[4] = {{&values_[0], "a", 2, 4, 10},
                              {&values_[1], "b", 2, 4, 20},
                              {&values_[2], "c", 2, 4, 10},
                              {nullptr, nullptr, 0, 0, 0}};
  vexa_db_table table_ = {"t", params_};
};

TEST_F(ParamDbReload, LoadsTheVariableAndWritesTheUserDatabase) {
  if (IsSkipped()) return;
  const LogCapture log;
  EXPECT_EQ(vexa_db_reload_value(&table_, 20), 0u);
  EXPECT_THAT(values_, ElementsAre(1u, 22u, 3u));
  EXPECT_EQ(rows(kUser, "select * from t"), "0,22,0");
  EXPECT_TRUE(log_is(log, {"0 oem_db_reload_value|id = 20,i = 0,param_table[i].param_id= 10\n",
                           "0 oem_db_reload_value|id = 20,i = 1,param_table[i].param_id= 20\n",
                           "0 oem_db_reload_value|tbl_name = t,key = b\n",
                           "0 oem_db_reload_value|id = 20,i = 2,param_table[i].param_id= 10\n",
                           "0 update_item_to_db|sqlite3_exec sql_cmd:[update t set  b = \"22\"].\n"}));
  EXPECT_THAT(open_databases(), IsEmpty());
  EXPECT_EQ(g_syncs, 0);
}

TEST_F(ParamDbReload, OfTwoRecordsLoadsBothAndWritesTheLast) {
  if (IsSkipped()) return;
  EXPECT_EQ(vexa_db_reload_value(&table_, 10), 0u);
  EXPECT_THAT(values_, ElementsAre(11u, 2u, 33u));
  EXPECT_EQ(rows(kUser, "select * from t"), "0,0,33");
}

TEST_F(ParamDbReload, OfANumberThatNoRecordHasFails) {
  if (IsSkipped()) return;
  const LogCapture log;
  EXPECT_EQ(vexa_db_reload_value(&table_, -1), 1u);
  EXPECT_THAT(values_, ElementsAre(1u, 2u, 3u));
  EXPECT_TRUE(log_is(log, {"0 oem_db_reload_value|id = -1,i = 0,param_table[i].param_id= 10\n",
                           "0 oem_db_reload_value|id = -1,i = 1,param_table[i].param_id= 20\n",
                           "0 oem_db_reload_value|id = -1,i = 2,param_table[i].param_id= 10\n",
                           "3 oem_db_reload_value|Error, PARAM TYPE SETING ERROR.\n"}));
}

TEST_F(ParamDbReload, OfATableWithoutRecordsFails) {
  if (IsSkipped()) return;
  params_[0].key = nullptr;
  const LogCapture log;
  EXPECT_EQ(vexa_db_reload_value(&table_, 10), 1u);
  EXPECT_TRUE(log_is(log, {"3 oem_db_reload_value|Error, PARAM TYPE SETING ERROR.\n"}));
}

TEST_F(ParamDbReload, EndsWhenTheFactoryHasNoSuchColumn) {
  if (IsSkipped()) return;
  params_[2].key = "missing";
  const LogCapture log;
  EXPECT_EQ(vexa_db_reload_value(&table_, 10), 1u);
  EXPECT_THAT(values_, ElementsAre(11u, 2u, 3u));
  EXPECT_EQ(rows(kUser, "select * from t"), "0,0,0");
  EXPECT_TRUE(log_is(
      log,
      {"0 oem_db_reload_value|id = 10,i = 0,param_table[i].param_id= 10\n",
       "0 oem_db_reload_value|tbl_name = t,key = a\n",
       "0 oem_db_reload_value|id = 10,i = 1,param_table[i].param_id= 20\n",
       "0 oem_db_reload_value|id = 10,i = 2,param_table[i].param_id= 10\n",
       "3 search_by_table|Error, sqlite3_get_table run faild, sql_cmd:[select missing from t;], db err:[no "
       "such column: missing].\n",
       "3 search_by_table|Error, sql_cmd err info:[no such column: missing].\n",
       "3 __oem_db_get_factory_value|Error, db:/data/vexa-resource/sqlite3/factory_info.db "
       "search_by_table return failed.\n"}));
  EXPECT_THAT(open_databases(), ElementsAre("factory_info.db"));
}

TEST_F(ParamDbReload, EndsWhenTheFactoryHasNoRow) {
  if (IsSkipped()) return;
  factory("delete from t");
  const LogCapture log;
  EXPECT_EQ(vexa_db_reload_value(&table_, 20), 1u);
  EXPECT_THAT(values_, ElementsAre(1u, 2u, 3u));
  EXPECT_EQ(log_count(log, "3 <any>"), 1u);
  EXPECT_EQ(log_count(log, "3 __oem_db_get_factory_value|<any>"), 1u);
  EXPECT_EQ(rows(kUser, "select * from t"), "0,0,0");
}

TEST_F(ParamDbReload, OfANullCellGivesZeroAndWritesAnEmptyText) {
  if (IsSkipped()) return;
  factory("update t set b = null");
  EXPECT_EQ(vexa_db_reload_value(&table_, 20), 0u);
  EXPECT_THAT(values_, ElementsAre(1u, 0u, 3u));
  EXPECT_EQ(rows(kUser, "select typeof(b), length(b) from t"), "text,0");
}

TEST_F(ParamDbReload, FailsAfterLoadingWhenTheUserDatabaseIsLocked) {
  if (IsSkipped()) return;
  const LockHolder lock(kUser, "begin immediate");
  const LogCapture log;
  EXPECT_EQ(vexa_db_reload_value(&table_, 20), 1u);
  EXPECT_THAT(values_, ElementsAre(1u, 22u, 3u));
  EXPECT_EQ(log_count(log, "3 update_item_to_db|Error, sql_cmd err info:[database is locked].\n"), 1u);
  EXPECT_THAT(open_databases(), ElementsAre("user_info.db"));
}

// ---- Single values --------------------------------------------------------------------------

TEST_F(ParamDb, GetValueAsksWithABlankBeforeTheSemicolon) {
  if (IsSkipped()) return;
  user("create table t(b)");
  std::uint8_t byte = 9;
  const LogCapture log;
  EXPECT_EQ(vexa_db_get_value("t", "a", &byte, 0, 0), 1u);
  EXPECT_EQ(byte, 9);
  EXPECT_TRUE(
      log_is(log, {"3 search_by_table|Error, sqlite3_get_table run faild, sql_cmd:[select a from t ;], "
                   "db err:[no such column: a].\n",
                   "3 search_by_table|Error, sql_cmd err info:[no such column: a].\n", kGetFailed}));
}

TEST_F(ParamDb, GetValueOfATableWithoutRowsFails) {
  if (IsSkipped()) return;
  user("create table t(a)");
  std::uint8_t byte = 9;
  const LogCapture log;
  EXPECT_EQ(vexa_db_get_value("t", "a", &byte, 0, 0), 1u);
  EXPECT_TRUE(log_is(log, {kGetFailed}));
  EXPECT_THAT(open_databases(), IsEmpty());
}

TEST_F(ParamDb, UpdateValueOfAMissingTableFails) {
  if (IsSkipped()) return;
  user("create table t(a)");
  const LogCapture log;
  EXPECT_EQ(vexa_db_update_value("nowhere", "a", "x", 6), 1u);
  EXPECT_TRUE(log_is(
      log,
      {"0 update_item_to_db|sqlite3_exec sql_cmd:[update nowhere set  a = \"x\";].\n",
       "3 update_item_to_db|Error, sqlite3_get_table run faild, sql_cmd:[update nowhere set  a = \"x\";], "
       "db err:[no such table: nowhere].\n",
       "3 update_item_to_db|Error, sql_cmd err info:[no such table: nowhere].\n"}));
}

TEST_F(ParamDb, UpdateValueOfATableWithoutRowsWritesNothingAndSucceeds) {
  if (IsSkipped()) return;
  user("create table t(a)");
  EXPECT_EQ(vexa_db_update_value("t", "a", "x", 6), 0u);
  EXPECT_EQ(rows(kUser, "select * from t"), "");
}

TEST_F(ParamDb, AnUnalignedVariableIsReadAndWritten) {
  if (IsSkipped()) return;
  user("create table t(a); insert into t values(7)");
  char memory[9] = {};
  EXPECT_EQ(vexa_db_get_value("t", "a", memory + 1, 5, 0), 0u);
  EXPECT_EQ(memory[1], 7);
  EXPECT_EQ(vexa_db_update_value("t", "a", memory + 1, 2), 0u);
  EXPECT_EQ(query(kUser, "select a from t"), "7");
}

// ---- SQL of the host's own ---------------------------------------------------------------------

int collect(void* argument, int columns, char** values, char** names) {
  for (int i = 0; i < columns; ++i) {
    *static_cast<std::string*>(argument) +=
        std::string(names[i]) + "=" + (values[i] == nullptr ? "<null>" : values[i]) + ";";
  }
  return 0;
}

TEST_F(ParamDb, ExecHandsEachRowToTheCallback) {
  if (IsSkipped()) return;
  user("create table t(a, b); insert into t values(1, 'x'), (2, null)");
  std::string seen;
  const LogCapture log;
  EXPECT_EQ(vexa_db_exec_cmd("select * from t", collect, &seen, 0), 0u);
  EXPECT_EQ(seen, "a=1;b=x;a=2;b=<null>;");
  EXPECT_TRUE(log_is(log, {"0 oem_db_exec_cmd|executeCommand sql_cmd:select * from t!!\n"}));
  EXPECT_THAT(open_databases(), IsEmpty());
}

TEST_F(ParamDb, ExecOnTheFactoryDatabaseLeavesItOpenUntilTheUserDatabaseIsUsed) {
  if (IsSkipped()) return;
  both("1", "2");
  std::string seen;
  EXPECT_EQ(vexa_db_exec_cmd("select a from t", collect, &seen, 1), 0u);
  EXPECT_EQ(seen, "a=2;");
  EXPECT_THAT(open_databases(), ElementsAre("factory_info.db"));
  EXPECT_EQ(vexa_db_close_sqlite(), 0u);
  EXPECT_THAT(open_databases(), ElementsAre("factory_info.db"));
  std::uint8_t byte = 0;
  EXPECT_EQ(vexa_db_get_value("t", "a", &byte, 0, 0), 0u);
  EXPECT_THAT(open_databases(), IsEmpty());
}

TEST_F(ParamDb, ExecOnTheFactoryDatabaseClosesTheUserOneThatAFailureLeftOpen) {
  if (IsSkipped()) return;
  both("1", "2");
  EXPECT_EQ(vexa_db_exec_cmd("no sql", nullptr, nullptr, 0), 1u);
  EXPECT_THAT(open_databases(), ElementsAre("user_info.db"));
  EXPECT_EQ(vexa_db_exec_cmd("select 1", nullptr, nullptr, 1), 0u);
  EXPECT_THAT(open_databases(), ElementsAre("factory_info.db"));
}

TEST_F(ParamDb, ExecOfWrongSqlFailsWithSqlitesWords) {
  if (IsSkipped()) return;
  user("create table t(a)");
  const LogCapture log;
  EXPECT_EQ(vexa_db_exec_cmd("no sql", nullptr, nullptr, 0), 1u);
  EXPECT_TRUE(log_is(log, {"0 oem_db_exec_cmd|executeCommand sql_cmd:no sql!!\n",
                           "3 oem_db_exec_cmd|Error, sqlite3_get_table run faild, sql_cmd:[no sql], db "
                           "err:[near \"no\": syntax error].\n",
                           "3 oem_db_exec_cmd|Error, sql_cmd err info:[near \"no\": syntax error].\n"}));
}

TEST_F(ParamDb, ACallbackCanEndTheStatement) {
  if (IsSkipped()) return;
  user("create table t(a); insert into t values(1), (2)");
  int rows_seen = 0;
  const auto stop = [](void* count, int, char**, char**) { return ++*static_cast<int*>(count); };
  const LogCapture log;
  EXPECT_EQ(vexa_db_exec_cmd("select a from t", stop, &rows_seen, 0), 1u);
  EXPECT_EQ(rows_seen, 1);
  EXPECT_EQ(log_count(log, "3 oem_db_exec_cmd|Error, sql_cmd err info:[query aborted].\n"), 1u);
}

TEST_F(ParamDb, ExecOnAnotherDatabaseOpensNone) {
  if (IsSkipped()) return;
  both("1", "2");
  const LogCapture log;
  EXPECT_EQ(vexa_db_exec_cmd("select 1", nullptr, nullptr, 2), 1u);
  EXPECT_TRUE(log_is(log, {"3 oem_db_exec_cmd|Error, db:/data/vexa-resource/sqlite3/user_info.db "
                           "open_sqlite_db return faild.\n"}));
  EXPECT_THAT(open_databases(), IsEmpty());
}

TEST_F(ParamDb, ACallbackMayUseTheOtherFunctions) {
  if (IsSkipped()) return;
  both("7", "8");
  struct Seen {
    std::uint8_t byte = 0;
    std::uint32_t close_result = 0;
    std::string from_factory;
  } seen;
  const auto nested = [](void* argument, int, char**, char**) {
    auto& found = *static_cast<Seen*>(argument);
    EXPECT_EQ(vexa_db_get_value("t", "a", &found.byte, 0, 0), 0u);
    found.close_result = vexa_db_close_sqlite();
    EXPECT_EQ(vexa_db_exec_cmd("select a from t", collect, &found.from_factory, 1), 0u);
    return 0;
  };
  EXPECT_EQ(vexa_db_exec_cmd("select a from t", nested, &seen, 0), 0u);
  EXPECT_EQ(seen.byte, 7);
  EXPECT_EQ(seen.close_result, 5u);
  EXPECT_EQ(seen.from_factory, "a=8;");
  EXPECT_THAT(open_databases(), ElementsAre("factory_info.db"));
}

// ---- Opening ----------------------------------------------------------------------------------

TEST_F(ParamDb, AMissingUserDatabaseIsNotCopiedButCreatedEmpty) {
  if (IsSkipped()) return;
  factory("create table t(a); insert into t values(1)");
  std::uint8_t byte = 9;
  OneParam one(0, &byte, 1);
  const LogCapture log;
  EXPECT_EQ(vexa_db_query_db_init_struct(&one.table), 1u);
  EXPECT_TRUE(log_is(
      log,
      {"0 oem_db_query_db_init_struct|rc:0, search_by_table sql_cmd:select a from t\n", kUserMissing,
       kCopyRefused,
       "3 search_by_table|Error, sqlite3_get_table run faild, sql_cmd:[select a from t], db err:[no such "
       "table: t].\n",
       "3 search_by_table|Error, sql_cmd err info:[no such table: t].\n",
       "0 oem_db_query_db_init_struct|rc:0,  search_by_table azResult:(nil), nrow:0\n",
       "3 oem_db_query_db_init_struct|Error, db:/data/vexa-resource/sqlite3/user_info.db search_by_table "
       "return failed. sql_cmd:select a from t\n"}));
  EXPECT_EQ(read_file(kUser), "");
  EXPECT_EQ(byte, 9);
}

TEST_F(ParamDbReload, LoadsButWritesNothingWhereTheUserDatabaseIsMissing) {
  if (IsSkipped()) return;
  ASSERT_TRUE(std::filesystem::remove(kUser));
  const LogCapture log;
  EXPECT_EQ(vexa_db_reload_value(&table_, 20), 1u);
  EXPECT_THAT(values_, ElementsAre(1u, 22u, 3u));
  // Asked for twice: the reading from the factory database has not created it.
  EXPECT_TRUE(log_is(
      log, {"0 oem_db_reload_value|id = 20,i = 0,param_table[i].param_id= 10\n",
            "0 oem_db_reload_value|id = 20,i = 1,param_table[i].param_id= 20\n", kUserMissing, kCopyRefused,
            "0 oem_db_reload_value|tbl_name = t,key = b\n",
            "0 oem_db_reload_value|id = 20,i = 2,param_table[i].param_id= 10\n", kUserMissing, kCopyRefused,
            "0 update_item_to_db|sqlite3_exec sql_cmd:[update t set  b = \"22\"].\n",
            "3 update_item_to_db|Error, sqlite3_get_table run faild, sql_cmd:[update t set  b = \"22\"], db "
            "err:[no such table: t].\n",
            "3 update_item_to_db|Error, sql_cmd err info:[no such table: t].\n"}));
  EXPECT_EQ(read_file(kUser), "");
}

TEST_F(ParamDbReload, OfAMissingFactoryDatabaseFindsAnEmptyOne) {
  if (IsSkipped()) return;
  ASSERT_TRUE(std::filesystem::remove(kFactory));
  const LogCapture log;
  EXPECT_EQ(vexa_db_reload_value(&table_, 20), 1u);
  EXPECT_THAT(values_, ElementsAre(1u, 2u, 3u));
  EXPECT_TRUE(log_is(
      log,
      {"0 oem_db_reload_value|id = 20,i = 0,param_table[i].param_id= 10\n",
       "0 oem_db_reload_value|id = 20,i = 1,param_table[i].param_id= 20\n",
       "3 search_by_table|Error, sqlite3_get_table run faild, sql_cmd:[select b from t;], db err:[no such "
       "table: t].\n",
       "3 search_by_table|Error, sql_cmd err info:[no such table: t].\n",
       "3 __oem_db_get_factory_value|Error, db:/data/vexa-resource/sqlite3/factory_info.db "
       "search_by_table return failed.\n"}));
  EXPECT_EQ(rows(kUser, "select * from t"), "0,0,0");
}

TEST_F(ParamDbReload, WithoutBothDatabasesOpensNothing) {
  if (IsSkipped()) return;
  ASSERT_TRUE(std::filesystem::remove(kUser));
  ASSERT_TRUE(std::filesystem::remove(kFactory));
  const LogCapture log;
  EXPECT_EQ(vexa_db_reload_value(&table_, 20), 1u);
  EXPECT_THAT(values_, ElementsAre(1u, 2u, 3u));
  EXPECT_TRUE(
      log_is(log, {"0 oem_db_reload_value|id = 20,i = 0,param_table[i].param_id= 10\n",
                   "0 oem_db_reload_value|id = 20,i = 1,param_table[i].param_id= 20\n", kUserMissing,
                   kFactoryMissing, "3 search_by_table|Error, open_sqlite_db return faild.\n",
                   "3 __oem_db_get_factory_value|Error, "
                   "db:/data/vexa-resource/sqlite3/factory_info.db search_by_table return failed.\n"}));
  EXPECT_FALSE(exists(kUser));
  EXPECT_FALSE(exists(kFactory));
}

TEST_F(ParamDb, ExecCreatesAMissingUserDatabase) {
  if (IsSkipped()) return;
  factory("create table t(a); insert into t values(1)");
  const LogCapture log;
  EXPECT_EQ(vexa_db_exec_cmd("create table own(a)", nullptr, nullptr, 0), 0u);
  EXPECT_TRUE(log_is(
      log, {kUserMissing, kCopyRefused, "0 oem_db_exec_cmd|executeCommand sql_cmd:create table own(a)!!\n"}));
  EXPECT_EQ(rows(kUser, "select name from sqlite_master"), "own");
}

TEST_F(ParamDb, WithoutBothDatabasesNothingIsOpened) {
  if (IsSkipped()) return;
  std::uint8_t byte = 9;
  OneParam one(0, &byte, 1);
  {
    const LogCapture log;
    EXPECT_EQ(vexa_db_get_value("t", "a", &byte, 0, 0), 1u);
    EXPECT_TRUE(log_is(log, {kUserMissing, kFactoryMissing,
                             "3 search_by_table|Error, open_sqlite_db return faild.\n", kGetFailed}));
  }
  {
    const LogCapture log;
    EXPECT_EQ(vexa_db_update_db_from_struct(&one.table, 1), 1u);
    EXPECT_TRUE(log_is(log, {kUserMissing, kFactoryMissing,
                             "3 update_item_to_db|Error, db:/data/vexa-resource/sqlite3/user_info.db "
                             "open_sqlite_db return faild.\n",
                             "3 oem_db_update_db_from_struct|Error, tbl_name:t update key:[a] failed.\n"}));
  }
  {
    const LogCapture log;
    EXPECT_EQ(vexa_db_exec_cmd("select 1", nullptr, nullptr, 1), 1u);
    EXPECT_TRUE(log_is(log, {kUserMissing, kFactoryMissing,
                             "3 oem_db_exec_cmd|Error, db:/data/vexa-resource/sqlite3/user_info.db "
                             "open_sqlite_db return faild.\n"}));
  }
  EXPECT_FALSE(exists(kUser));
  EXPECT_FALSE(exists(kFactory));
}

TEST_F(ParamDb, ADirectoryInTheUserDatabasesPlaceCannotBeOpened) {
  if (IsSkipped()) return;
  make_dirs(kUser);
  const LogCapture log;
  EXPECT_EQ(vexa_db_update_value("t", "a", "x", 6), 1u);
  EXPECT_TRUE(log_is(log, {"3 open_sqlite_db|Error, db:/data/vexa-resource/sqlite3/user_info.db open "
                           "failed:unable to open database file.\n",
                           "3 update_item_to_db|Error, db:/data/vexa-resource/sqlite3/user_info.db "
                           "open_sqlite_db return faild.\n"}));
  EXPECT_THAT(open_databases(), IsEmpty());
}

TEST_F(ParamDb, ADirectoryInTheFactoryDatabasesPlaceCannotBeOpened) {
  if (IsSkipped()) return;
  user("create table t(a)");
  make_dirs(kFactory);
  const LogCapture log;
  EXPECT_EQ(vexa_db_exec_cmd("select 1", nullptr, nullptr, 1), 1u);
  EXPECT_TRUE(log_is(log, {"3 open_sqlite_db|Error, db:/data/vexa-resource/sqlite3/factory_info.db open "
                           "failed:unable to open database file.\n",
                           "3 oem_db_exec_cmd|Error, db:/data/vexa-resource/sqlite3/user_info.db "
                           "open_sqlite_db return faild.\n"}));
}

TEST_F(ParamDb, AFileThatIsNoDatabaseIsRefused) {
  if (IsSkipped()) return;
  write_file(kUser, std::string(4096, 'x'));
  std::uint8_t byte = 9;
  const LogCapture log;
  EXPECT_EQ(vexa_db_get_value("t", "a", &byte, 0, 0), 1u);
  EXPECT_EQ(log_count(log, "3 search_by_table|Error, sql_cmd err info:[file is not a database].\n"), 1u);
  EXPECT_EQ(read_file(kUser), std::string(4096, 'x'));
}

TEST_F(ParamDb, ALockedDatabaseIsNotWaitedForAndCanBeUsedAfterwards) {
  if (IsSkipped()) return;
  user("create table t(a); insert into t values('old')");
  {
    const LockHolder lock(kUser, "begin exclusive");
    const LogCapture log;
    EXPECT_EQ(vexa_db_update_value("t", "a", "new", 6), 1u);
    EXPECT_EQ(log_count(log, "3 update_item_to_db|Error, sql_cmd err info:[database is locked].\n"), 1u);
    char text[8] = "#";
    EXPECT_EQ(vexa_db_get_value("t", "a", text, 6, sizeof text), 1u);
    EXPECT_STREQ(text, "#");
    EXPECT_THAT(open_databases(), ElementsAre("user_info.db"));
  }
  EXPECT_EQ(vexa_db_update_value("t", "a", "new", 6), 0u);
  EXPECT_EQ(query(kUser, "select a from t"), "new");
  EXPECT_THAT(open_databases(), IsEmpty());
}

TEST_F(ParamDb, CloseClosesWhatAFailureLeftOpen) {
  if (IsSkipped()) return;
  user("create table t(a)");
  EXPECT_EQ(vexa_db_update_value("t", "missing", "x", 6), 1u);
  EXPECT_THAT(open_databases(), ElementsAre("user_info.db"));
  const LogCapture log;
  EXPECT_EQ(vexa_db_close_sqlite(), 0u);
  EXPECT_THAT(open_databases(), IsEmpty());
  EXPECT_EQ(vexa_db_close_sqlite(), 0u);
  EXPECT_TRUE(log_is(log, {}));
}

TEST_F(ParamDb, AConnectionThatAFailureLeftOpenStaysWithAFileThatWasReplaced) {
  if (IsSkipped()) return;
  user("create table t(a); insert into t values('old')");
  EXPECT_EQ(vexa_db_update_value("t", "missing", "x", 6), 1u);
  exec_sql(kUser + ".next", "create table t(a); insert into t values('replaced')");
  std::filesystem::rename(kUser + ".next", kUser);
  const LogCapture log;
  EXPECT_EQ(vexa_db_update_value("t", "a", "new", 6), 1u);
  EXPECT_EQ(
      log_count(log, "3 update_item_to_db|Error, sql_cmd err info:[attempt to write a readonly database].\n"),
      1u);
  EXPECT_EQ(query(kUser, "select a from t"), "replaced");
  EXPECT_EQ(vexa_db_close_sqlite(), 0u);
  EXPECT_EQ(vexa_db_update_value("t", "a", "new", 6), 0u);
  EXPECT_EQ(query(kUser, "select a from t"), "new");
}

TEST_F(ParamDb, AReplacedFactoryDatabaseIsReadAfterAnOperationOnTheUserDatabase) {
  if (IsSkipped()) return;
  both("1", "'old'");
  std::string seen;
  EXPECT_EQ(vexa_db_exec_cmd("select a from t", collect, &seen, 1), 0u);
  exec_sql(kFactory + ".next", "create table t(a); insert into t values('replaced')");
  std::filesystem::rename(kFactory + ".next", kFactory);
  EXPECT_EQ(vexa_db_close_sqlite(), 0u);
  EXPECT_EQ(vexa_db_exec_cmd("select a from t", collect, &seen, 1), 0u);
  std::uint8_t byte = 0;
  EXPECT_EQ(vexa_db_get_value("t", "a", &byte, 0, 0), 0u);
  EXPECT_EQ(vexa_db_exec_cmd("select a from t", collect, &seen, 1), 0u);
  EXPECT_EQ(seen, "a=old;a=old;a=replaced;");
}

TEST_F(ParamDb, RestoreFactoryDoesNotCreateTheUserDatabase) {
  if (IsSkipped()) return;
  factory("create table t(a)");
  const LogCapture log;
  EXPECT_EQ(vexa_db_restore_factory(), 0u);
  EXPECT_FALSE(exists(kUser));
  EXPECT_TRUE(log_is(log, {kCopyRefused}));
}

TEST_F(ParamDb, RestoreFactoryLeavesTheUserDatabaseAndGivesZero) {
  if (IsSkipped()) return;
  both("'mine'", "'theirs'");
  const std::string before = read_file(kUser);
  const LogCapture log;
  EXPECT_EQ(vexa_db_restore_factory(), 0u);
  EXPECT_EQ(read_file(kUser), before);
  EXPECT_TRUE(log_is(log, {kCopyRefused}));
}

// ---- Bad arguments -------------------------------------------------------------------------------

TEST_F(ParamDb, IncompleteTablesAreRefused) {
  if (IsSkipped()) return;
  std::uint8_t byte = 9;
  OneParam one(0, &byte, 1);
  const vexa_db_table no_name = {nullptr, one.params};
  const vexa_db_table no_params = {"t", nullptr};
  for (const vexa_db_table* table : {static_cast<const vexa_db_table*>(nullptr), &no_name, &no_params}) {
    const LogCapture log;
    EXPECT_EQ(vexa_db_query_db_init_struct(table), 1u);
    EXPECT_EQ(vexa_db_update_db_from_struct(table, -1), 1u);
    EXPECT_EQ(vexa_db_reload_value(table, 1), 1u);
    EXPECT_TRUE(log_is(log, {"3 oem_db_query_db_init_struct|Error, tbl_name is null. \n",
                             "3 oem_db_update_db_from_struct|Error, tbl_name is null. \n",
                             "3 oem_db_reload_value|Error, tbl_name is null. \n"}));
  }
  EXPECT_EQ(g_syncs, 0);
}

TEST_F(ParamDb, ARecordWithoutAVariableIsRefused) {
  if (IsSkipped()) return;
  both("1", "2");
  OneParam one(0, nullptr, 1);
  const LogCapture log;
  EXPECT_EQ(vexa_db_query_db_init_struct(&one.table), 1u);
  EXPECT_EQ(vexa_db_update_db_from_struct(&one.table, -1), 1u);
  EXPECT_EQ(vexa_db_reload_value(&one.table, 1), 1u);
  EXPECT_TRUE(log_is(log, {"3 oem_db_query_db_init_struct|Error, key:a has no variable.\n",
                           "3 oem_db_update_db_from_struct|Error, key:a has no variable.\n",
                           "0 oem_db_reload_value|id = 1,i = 0,param_table[i].param_id= 1\n",
                           "3 oem_db_reload_value|Error, key:a has no variable.\n"}));
  EXPECT_EQ(query(kUser, "select a from t"), "1");
}

TEST_F(ParamDb, ARecordOfATypeThatIsPassedOverNeedsNoVariable) {
  if (IsSkipped()) return;
  both("1", "2");
  for (const std::uint32_t type : {4u, 8u}) {
    OneParam one(type, nullptr, 4);
    const std::string refused = "|Error, param_type:" + std::to_string(type) + " \n";
    const LogCapture log;
    EXPECT_EQ(vexa_db_query_db_init_struct(&one.table), 0u);
    EXPECT_EQ(log_count(log, "3 oem_db_query_db_init_struct" + refused), 1u);
    EXPECT_EQ(vexa_db_reload_value(&one.table, 1), 0u);
    EXPECT_EQ(log_count(log, "3 oem_db_reload_value" + refused), 1u);
    EXPECT_EQ(log_count(log, "3 <any>"), 2u);
    EXPECT_EQ(query(kUser, "select a from t"), "2");
    user("update t set a = 1");
  }
  for (const std::uint32_t type : {3u, 8u}) {
    OneParam one(type, nullptr, 4);
    const LogCapture log;
    EXPECT_EQ(vexa_db_update_db_from_struct(&one.table, -1), 0u);
    EXPECT_TRUE(
        log_is(log, {"3 oem_db_update_db_from_struct|Error, param_type:" + std::to_string(type) + " \n"}));
  }
  EXPECT_EQ(query(kUser, "select a from t"), "1");
  // Type 4 is written, type 3 loaded.
  OneParam written(4, nullptr, 4);
  EXPECT_EQ(vexa_db_update_db_from_struct(&written.table, -1), 1u);
  OneParam loaded(3, nullptr, 2);
  EXPECT_EQ(vexa_db_query_db_init_struct(&loaded.table), 1u);
  EXPECT_EQ(vexa_db_reload_value(&loaded.table, 1), 1u);
}

TEST_F(ParamDb, NullNamesAndValuesAreRefused) {
  if (IsSkipped()) return;
  both("1", "2");
  std::uint8_t byte = 9;
  const LogCapture log;
  EXPECT_EQ(vexa_db_get_value(nullptr, "a", &byte, 0, 0), 1u);
  EXPECT_EQ(vexa_db_get_value("t", nullptr, &byte, 0, 0), 1u);
  EXPECT_EQ(vexa_db_get_value("t", "a", nullptr, 0, 0), 1u);
  EXPECT_EQ(vexa_db_update_value(nullptr, "a", &byte, 0), 1u);
  EXPECT_EQ(vexa_db_update_value("t", nullptr, &byte, 0), 1u);
  EXPECT_EQ(vexa_db_update_value("t", "a", nullptr, 0), 1u);
  EXPECT_EQ(vexa_db_exec_cmd(nullptr, nullptr, nullptr, 0), 1u);
  EXPECT_TRUE(log_is(log, {"3 oem_db_get_value|Error, tbl_name is null. \n",
                           "3 oem_db_get_value|Error, column or value is null. \n",
                           "3 oem_db_get_value|Error, column or value is null. \n",
                           "3 oem_db_update_value|Error, tbl_name is null. \n",
                           "3 oem_db_update_value|Error, column or value is null. \n",
                           "3 oem_db_update_value|Error, column or value is null. \n",
                           "3 oem_db_exec_cmd|Error, sql_cmd is null. \n"}));
  EXPECT_EQ(query(kUser, "select a from t"), "1");
}

// ---- Threads --------------------------------------------------------------------------------------

TEST_F(ParamDb, ThreadsTakeTurns) {
  if (IsSkipped()) return;
  user("pragma journal_mode=memory; create table t(a, b, c); insert into t values(0, 0, 0)");
  factory("create table t(c); insert into t values(99)");
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (const char* column : {"a", "b"}) {
    threads.emplace_back([&failures, column] {
      for (std::uint32_t i = 1; i <= 20; ++i) {
        std::uint32_t read = 0;
        if (vexa_db_update_value("t", column, &i, 2) != 0) ++failures;
        if (vexa_db_get_value("t", column, &read, 2, 0) != 0 || read != i) ++failures;
      }
    });
  }
  threads.emplace_back([&failures] {
    std::uint8_t byte = 0;
    vexa_db_param params[] = {{&byte, "c", 0, 1, 1}, {nullptr, nullptr, 0, 0, 0}};
    const vexa_db_table table = {"t", params};
    for (int i = 0; i < 20; ++i) {
      if (vexa_db_reload_value(&table, 1) != 0 || byte != 99) ++failures;
      if (vexa_db_query_db_init_struct(&table) != 0) ++failures;
      if (vexa_db_update_db_from_struct(&table, -1) != 0) ++failures;
      if (vexa_db_close_sqlite() != 0 || vexa_db_restore_factory() != 0) ++failures;
    }
  });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(failures, 0);
  EXPECT_EQ(rows(kUser, "select * from t"), "20,20,99");
}

}  // namespace
