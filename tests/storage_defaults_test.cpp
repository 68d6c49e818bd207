// SPDX-License-Identifier: MIT
// The database of default values.
#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "support/storage_fixture.h"

namespace vexa_test {
namespace {

const std::string kColumns = "(key text not null,type integer not null,len integer not null,value blob)";

std::int32_t construct(vexa_dm_item_desc desc, const void* value, std::uint32_t length) {
  return static_cast<std::int32_t>(dm_sqlite_def_db_const(1, &desc, value, length));
}

std::string default_rows() {
  return rows(kDefaults, "select key,type,len,hex(value) from defs order by rowid");
}

// ---- Constructing ----

class DefaultConstruct : public StorageTest {};

TEST_F(DefaultConstruct, MakesTheTable) {
  const std::uint8_t value = 9;

  EXPECT_EQ(construct(item_desc("defs", "d", 1), &value, 1), 0);

  EXPECT_EQ(query(kDefaults, "select sql from sqlite_master where name='defs'"),
            "CREATE TABLE defs " + kColumns);
  EXPECT_EQ(names_in("/data"), std::vector<std::string>{"DefItems.db"}) << "no backup and no journal";
}

TEST_F(DefaultConstruct, StoresNumbersFromTheirAddress) {
  const std::uint8_t one = 0x01;
  const std::uint16_t two = 0x0203;
  const std::uint32_t four = 0x04050607;

  EXPECT_EQ(construct(item_desc("defs", "a", 1), &one, 1), 0);
  EXPECT_EQ(construct(item_desc("defs", "b", 2), &two, 2), 0);
  EXPECT_EQ(construct(item_desc("defs", "c", 3), &four, 4), 0);
  EXPECT_EQ(construct(item_desc("defs", "d", 4), &four, 4), 0);
  EXPECT_EQ(construct(item_desc("defs", "e", 4), &four, 2), 0);

  EXPECT_EQ(default_rows(), "a,1,1,01\nb,2,2,0302\nc,3,4,07060504\nd,4,4,07060504\ne,4,2,0706");
}

TEST_F(DefaultConstruct, StoresATextWithoutItsTerminator) {
  const char* text = "abc";

  EXPECT_EQ(construct(item_desc("defs", "d", 5), &text, 99), 0);

  EXPECT_EQ(default_rows(), "d,5,3,616263");
}

TEST_F(DefaultConstruct, StoresABlockFromItsPointer) {
  const char* block = "a\0b\0";

  EXPECT_EQ(construct(item_desc("defs", "d", 6), &block, 4), 0);

  EXPECT_EQ(default_rows(), "d,6,4,61006200");
}

TEST_F(DefaultConstruct, StoresTheTypeAsANumber) {
  const std::uint32_t value = 1;

  EXPECT_EQ(construct(item_desc("defs", "d", 3), &value, 4), 0);

  EXPECT_EQ(query(kDefaults, "select typeof(type) from defs"), "integer");
}

TEST_F(DefaultConstruct, RewritesTypeLengthAndValueInPlace) {
  const std::uint32_t number = 1;
  const char* text = "abc";

  EXPECT_EQ(construct(item_desc("defs", "d", 3), &number, 4), 0);
  EXPECT_EQ(construct(item_desc("defs", "d", 5), &text, 0), 0);

  EXPECT_EQ(default_rows(), "d,5,3,616263");
}

TEST_F(DefaultConstruct, RefusesNullAndNegativeLengthOnceTheVersionIsStored) {
  const std::uint32_t value = 1;
  EXPECT_EQ(construct(item_desc("defs", "d", 3), &value, 4), 0);
  const LogCapture log;

  EXPECT_EQ(static_cast<std::int32_t>(dm_sqlite_def_db_const(1, nullptr, &value, 4)), -1);
  EXPECT_TRUE(log_is(log, {}));
  EXPECT_EQ(construct(item_desc("defs", "e", 3), &value, 0xFFFFFFFF), -1);
  EXPECT_TRUE(log_is(log, {"3 dm_write_def_db|dm_write_def_db param invald\n"}));
  EXPECT_EQ(default_rows(), "d,3,4,01000000");
}

TEST_F(DefaultConstruct, RefusesANullValueOnceTheVersionIsStored) {
  const std::uint32_t value = 1;
  EXPECT_EQ(construct(item_desc("defs", "d", 3), &value, 4), 0);

  EXPECT_EQ(construct(item_desc("defs", "e", 3), nullptr, 4), -1);
  EXPECT_EQ(construct(item_desc("defs", "e", 5), nullptr, 4), -1);
  EXPECT_EQ(construct(item_desc("defs", "e", 6), nullptr, 4), -1);

  EXPECT_EQ(default_rows(), "d,3,4,01000000");
}

TEST_F(DefaultConstruct, ANullDescriptorStoresNoVersion) {
  const std::uint32_t value = 1;

  EXPECT_EQ(static_cast<std::int32_t>(dm_sqlite_def_db_const(1, nullptr, &value, 4)), -1);

  EXPECT_FALSE(exists(kDefaults));
}

TEST_F(DefaultConstruct, TheFirstOneStoresTheVersionToo) {
  const std::uint32_t value = 1;

  EXPECT_EQ(construct(item_desc("defs", "d", 3), &value, 4), 0);

  EXPECT_EQ(rows(kDefaults, "select key,type,len,hex(value) from SQL_VER_TAB"), "SQL_VER_KEY,3,4,01000100");
  exec_sql(kDefaults, "delete from SQL_VER_TAB");
  EXPECT_EQ(construct(item_desc("defs", "d", 3), &value, 4), 0);
  EXPECT_EQ(query(kDefaults, "select count(*) from SQL_VER_TAB"), "0") << "once in a process";
}

TEST_F(DefaultConstruct, ANewProcessStoresTheVersionAgain) {
  const std::uint32_t value = 1;
  expect_in_child([&] { construct(item_desc("defs", "d", 3), &value, 4); });
  exec_sql(kDefaults, "update SQL_VER_TAB set value=x'00'");

  EXPECT_EQ(construct(item_desc("defs", "d", 3), &value, 4), 0);

  EXPECT_EQ(query(kDefaults, "select hex(value) from SQL_VER_TAB"), "01000100");
}

TEST_F(DefaultConstruct, TheFirstOneReportsTheVersionsResultInPlaceOfAFailure) {
  const std::uint32_t value = 1;
  const LogCapture log;

  EXPECT_EQ(construct(item_desc("defs", "d", 9), &value, 4), 0);
  EXPECT_TRUE(log_is(log, {"3 dm_write_def_db|dm_write_def_db param invald\n"}));
  EXPECT_EQ(construct(item_desc("defs", "d", 9), &value, 4), -1);
  EXPECT_EQ(construct(item_desc("defs", "d", 0), &value, 4), -1);
  EXPECT_EQ(construct(item_desc("defs", "d", -1), &value, 4), -1);
}

TEST_F(DefaultConstruct, TheFirstOneReportsTheVersionsFailureInPlaceOfItsSuccess) {
  exec_sql(kDefaults, "create table t (a); create index SQL_VER_TAB on t(a)");
  const std::uint32_t value = 1;

  EXPECT_EQ(construct(item_desc("defs", "d", 3), &value, 4), -1);
  EXPECT_EQ(construct(item_desc("defs", "e", 3), &value, 4), 0) << "the version is not tried again";

  EXPECT_EQ(default_rows(), "d,3,4,01000000\ne,3,4,01000000");
}

// ---- Writing ----

class DefaultWrite : public StorageTest {};

TEST_F(DefaultWrite, ThatCannotBeOpened) {
  make_dirs(kDefaults);
  const LogCapture log;

  EXPECT_EQ(dm_write_def_db("defs", "d", 5, "abc", 3), -101);

  EXPECT_TRUE(log_is(log, {"3 dm_write_def_db|sqlite3_open failed: unable to open database file\n"}));
}

TEST_F(DefaultWrite, RefusesANegativeLength) {
  const LogCapture log;

  EXPECT_EQ(dm_write_def_db("defs", "d", 5, "abc", -1), -1);

  EXPECT_TRUE(log_is(log, {"3 dm_write_def_db|dm_write_def_db param invald\n"}));
  EXPECT_FALSE(exists(kDefaults));
}

TEST_F(DefaultWrite, RefusesNull) {
  EXPECT_EQ(dm_write_def_db(nullptr, "d", 5, "abc", 3), -1);
  EXPECT_EQ(dm_write_def_db("defs", nullptr, 5, "abc", 3), -1);
  EXPECT_EQ(dm_write_def_db("defs", "d", 5, nullptr, 3), -1);
}

TEST_F(DefaultWrite, LogsNothingOnSuccess) {
  const LogCapture log;

  EXPECT_EQ(dm_write_def_db("defs", "d", 5, "abc", 3), 0);
  EXPECT_EQ(dm_write_def_db("defs", "d", 5, "abcd", 4), 0);

  EXPECT_TRUE(log_is(log, {}));
  EXPECT_EQ(default_rows(), "d,5,4,61626364");
}

TEST_F(DefaultWrite, WhoseTableCannotBeMade) {
  exec_sql(kDefaults, "create table t (a); create index defs on t(a)");
  const LogCapture log;

  EXPECT_EQ(dm_write_def_db("defs", "d", 5, "abc", 3), -1);

  EXPECT_TRUE(
      log_is(log, {"3 dm_write_def_db|[LINE] create table error, there is already an index named defs\n"}));
}

TEST_F(DefaultWrite, ACorruptFileIsNotRepaired) {
  EXPECT_EQ(dm_write_def_db("defs", "d", 5, "abc", 3), 0);
  EXPECT_EQ(write_item("k", "value"), 0);
  damage_schema(kDefaults);
  const std::string primary = read_file(kPrimary);
  const std::string defaults = read_file(kDefaults);
  const LogCapture log;

  EXPECT_EQ(dm_write_def_db("defs", "d", 5, "abc", 3), -1);

  EXPECT_TRUE(
      log_is(log, {"3 dm_write_def_db|[LINE] create table error, database disk image is malformed\n"}));
  EXPECT_EQ(read_file(kDefaults), defaults);
  EXPECT_EQ(read_file(kPrimary), primary);
}

TEST_F(DefaultWrite, ATableWithoutTypeIsMigrated) {
  exec_sql(kDefaults, "create table defs (key text not null,len integer,value blob)");
  const LogCapture log;

  EXPECT_EQ(dm_write_def_db("defs", "d", 5, "abc", 3), 0);

  EXPECT_EQ(rows(kDefaults, "select key,len,value,id,type from defs"), "d,3,abc,<null>,5");
  EXPECT_TRUE(
      log_is(log, {"3 dm_update_def_record|[LINE] sqlite3_prepare error, 1\n"}, "dm_update_def_record"));
}

TEST_F(DefaultWrite, ATableThatStaysUnusableIsReportedAsWritten) {
  exec_sql(kDefaults, "create table defs (id integer,key text,type integer)");
  const LogCapture log;

  EXPECT_EQ(dm_write_def_db("defs", "d", 5, "abc", 3), 0);

  const std::string failed = "3 dm_update_def_record|[LINE] sqlite3_prepare error, 1\n";
  EXPECT_TRUE(log_is(log, {failed, failed}, "dm_update_def_record"));
}

TEST_F(DefaultWrite, ATableThatCannotBeMigratedIsReportedAsWritten) {
  exec_sql(kDefaults, "create table defs (value blob)");
  const LogCapture log;

  EXPECT_EQ(dm_write_def_db("defs", "d", 5, "abc", 3), 0);

  EXPECT_TRUE(log_is(log,
                     {"3 dm_update_def_record|[LINE] sqlite3_prepare error, 1\n",
                      "3 dm_update_def_record|alter_table_add_column failed\n"},
                     "dm_update_def_record"));
}

TEST_F(DefaultWrite, ARefusedRowIsReportedAsWritten) {
  EXPECT_EQ(dm_write_def_db("defs", "d", 5, "abc", 3), 0);
  exec_sql(kDefaults, "create trigger no before update on defs begin select raise(abort,'refused'); end");
  const LogCapture log;

  EXPECT_EQ(dm_write_def_db("defs", "d", 5, "xyz", 3), 0);

  EXPECT_TRUE(log_is(log, {"3 dm_update_def_record|<any>"}));
  EXPECT_EQ(default_rows(), "d,5,3,616263");
}

TEST_F(DefaultWrite, AValueThatCannotBeBoundIsReportedAsWritten) {
  const LogCapture log;

  EXPECT_EQ(dm_write_def_db("defs", "d", 6, "abc", 1000000001), 0);

  EXPECT_EQ(log_texts(log, "dm_update_def_record").size(), 1u);
  EXPECT_EQ(query(kDefaults, "select count(*) from defs"), "0");
}

// ---- Reading ----

class DefaultRead : public StorageTest {
 protected:
  std::int32_t read(const char* table, const char* key, std::int32_t length = 16) {
    return dm_read_def_db(table, key, &type_, buffer_.data(), length);
  }
  std::array<std::uint8_t, 16> buffer_ = {};
  std::int32_t type_ = 77;
};

TEST_F(DefaultRead, GivesValueAndType) {
  EXPECT_EQ(dm_write_def_db("defs", "d", 5, "abc", 3), 0);
  const LogCapture log;

  EXPECT_EQ(read("defs", "d"), 3);

  EXPECT_EQ(std::memcmp(buffer_.data(), "abc\0", 4), 0);
  EXPECT_EQ(type_, 5);
  EXPECT_TRUE(log_is(log, {}));
}

TEST_F(DefaultRead, GivesAValueOfOneByte) {
  EXPECT_EQ(dm_write_def_db("defs", "d", 2, "a", 1), 0);
  EXPECT_EQ(read("defs", "d"), 1);
  EXPECT_EQ(buffer_[0], 'a');
  EXPECT_EQ(type_, 2);
}

TEST_F(DefaultRead, CutsAValueThatDoesNotFit) {
  EXPECT_EQ(dm_write_def_db("defs", "d", 5, "abc", 3), 0);

  EXPECT_EQ(read("defs", "d", 2), 2);

  EXPECT_EQ(std::memcmp(buffer_.data(), "ab\0", 3), 0);
}

TEST_F(DefaultRead, RefusesNullAndNegative) {
  const LogCapture log;

  EXPECT_EQ(read(nullptr, "d"), -1);
  EXPECT_EQ(read("defs", nullptr), -1);
  EXPECT_EQ(dm_read_def_db("defs", "d", &type_, nullptr, 16), -1);
  EXPECT_EQ(read("defs", "d", -1), -1);

  const std::string line = "3 dm_read_def_db|dm_read_def_db NULL\n";
  EXPECT_TRUE(log_is(log, {line, line, line, line}));
  EXPECT_FALSE(exists(kDefaults));
}

TEST_F(DefaultRead, ThatCannotBeOpened) {
  make_dirs(kDefaults);
  const LogCapture log;

  EXPECT_EQ(read("defs", "d"), -101);

  EXPECT_TRUE(log_is(log, {"3 dm_read_def_db|sqlite3_open failed: unable to open database file\n"}));
}

TEST_F(DefaultRead, WithoutTableRowOrValue) {
  const LogCapture log;
  EXPECT_EQ(read("defs", "d"), -100);
  EXPECT_EQ(dm_write_def_db("defs", "empty", 6, "", 0), 0);
  EXPECT_EQ(read("defs", "d"), -1);
  EXPECT_EQ(read("defs", "empty"), -1);

  EXPECT_TRUE(log_is(log, {"3 dm_read_def_db|[LINE] sqlite3_prepare error, 1\n",
                           "3 dm_read_def_db|sqlite3_step error 101\n"}));
}

TEST_F(DefaultRead, ACorruptFileIsNotRepaired) {
  EXPECT_EQ(dm_write_def_db("defs", "d", 5, "abc", 3), 0);
  EXPECT_EQ(write_item("k", "value"), 0);
  damage_schema(kDefaults);
  const std::string defaults = read_file(kDefaults);
  const LogCapture log;

  EXPECT_EQ(read("defs", "d"), -100);

  EXPECT_TRUE(log_is(log, {"3 dm_read_def_db|[LINE] sqlite3_prepare error, 11\n"}));
  EXPECT_EQ(read_file(kDefaults), defaults);
}

TEST_F(DefaultRead, TheSlotStoresTheFoundTypeIntoTheDescriptor) {
  EXPECT_EQ(dm_write_def_db("defs", "d", 5, "abc", 3), 0);
  vexa_dm_item_desc desc = item_desc("defs", "d", 3);

  EXPECT_EQ(dm_sqlite_def_db_read(1, &desc, buffer_.data(), 16), 3);

  EXPECT_EQ(desc.type, 5);
}

TEST_F(DefaultRead, TheSlotStoresZeroWhenNothingWasRead) {
  vexa_dm_item_desc desc = item_desc("defs", "d", 3);

  EXPECT_EQ(dm_sqlite_def_db_read(1, &desc, buffer_.data(), 16), -100);
  EXPECT_EQ(desc.type, 0);

  EXPECT_EQ(dm_write_def_db("defs", "other", 5, "abc", 3), 0);
  desc.type = 3;
  EXPECT_EQ(dm_sqlite_def_db_read(1, &desc, buffer_.data(), 16), -1);
  EXPECT_EQ(desc.type, 0);
}

TEST_F(DefaultRead, TheSlotRefusesNull) {
  EXPECT_EQ(dm_sqlite_def_db_read(1, nullptr, buffer_.data(), 16), -1);
}

}  // namespace
}  // namespace vexa_test
