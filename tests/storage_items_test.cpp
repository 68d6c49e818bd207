// SPDX-License-Identifier: MIT
// One row per item: its columns and checksum, the read over two files, the write over two files.
#include <sys/mman.h>
#include <unistd.h>
#include <vexadm/data_manager.h>
#include <vexadm/log.h>

#include <array>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "support/storage_fixture.h"

namespace vexa_test {
namespace {

const std::string kColumns =
    "(id integer not null,key text not null,type integer not null,len integer not null,crc integer not "
    "null,value "
    "blob)";
const std::string kCopied = "3 dm_pal_write|ERROR: cp /data/config.db /data/configbak.db";

std::int32_t write_db(const std::string& key, const std::string& value, int type = 6, std::uint32_t id = 7) {
  return dm_write_db(kPrimary.c_str(), "cfg", id, key.c_str(), type, value.data(),
                     static_cast<std::int32_t>(value.size()));
}

std::string crc_column(const std::string& key) {
  return query(kPrimary, "select crc from cfg where key='" + key + "'");
}

// ---- The row ----

class ItemRow : public StorageTest {};

TEST_F(ItemRow, TheFirstWriteMakesTheTable) {
  EXPECT_EQ(write_db("k", "value"), 0);

  EXPECT_EQ(query(kPrimary, "select sql from sqlite_master where name='cfg'"),
            "CREATE TABLE cfg " + kColumns);
}

TEST_F(ItemRow, HoldsIdKeyTypeLengthChecksumAndValue) {
  EXPECT_EQ(write_db("k", "value", 5, 42), 0);

  EXPECT_EQ(rows(kPrimary, "select id,key,type,len,crc,value from cfg"), "42,k,5,5,1015980042,value");
  EXPECT_EQ(query(kPrimary, "select typeof(value) from cfg"), "blob");
}

TEST_F(ItemRow, WritesLargeIdsAsNegativeNumbers) {
  EXPECT_EQ(write_db("k", "value", 6, 0xFFFFFFFE), 0);

  EXPECT_EQ(query(kPrimary, "select id from cfg"), "-2");
}

TEST_F(ItemRow, KeepsBytesThatAreNoText) {
  const std::string value("a\0b'\xff\0", 6);

  EXPECT_EQ(write_db("k", value), 0);

  EXPECT_EQ(stored(kPrimary, "cfg", "k"), value);
}

TEST_F(ItemRow, TheSecondWriteUpdatesEveryColumn) {
  EXPECT_EQ(write_db("k", "value", 5, 42), 0);
  EXPECT_EQ(write_db("k", "ABCDEFGH", 6, 43), 0);

  EXPECT_EQ(rows(kPrimary, "select id,key,type,len,crc,value from cfg"), "43,k,6,8,809987520,ABCDEFGH");
}

TEST_F(ItemRow, OtherKeysKeepTheirRows) {
  EXPECT_EQ(write_db("a", "one"), 0);
  EXPECT_EQ(write_db("b", "two"), 0);
  EXPECT_EQ(write_db("a", "three"), 0);

  EXPECT_EQ(rows(kPrimary, "select key,value from cfg order by key"), "a,three\nb,two");
}

TEST_F(ItemRow, ChecksumIsASignedNumber) {
  EXPECT_EQ(write_db("k", "0123456789abcdef"), 0);

  EXPECT_EQ(crc_column("k"), "-536748782");
}

struct Checksum {
  std::string value;
  std::string crc;
};

class ItemChecksum : public StorageTest, public ::testing::WithParamInterface<Checksum> {};

// The byte count is taken as a count of bits, and of that count only the low 16 bits.
TEST_P(ItemChecksum, CoversAnEighthOfTheValue) {
  EXPECT_EQ(write_db("k", GetParam().value), 0);

  EXPECT_EQ(crc_column("k"), GetParam().crc);
}

INSTANTIATE_TEST_SUITE_P(
    Lengths, ItemChecksum,
    ::testing::Values(Checksum{std::string("\x80", 1), "79764919"}, Checksum{std::string("\x7f", 1), "0"},
                      Checksum{std::string("\x12\x34\x56\x78", 4), "79764919"},
                      Checksum{"ABCDEFGH", "809987520"}, Checksum{"A-------", "809987520"},
                      Checksum{"0123456789", "1569362073"}, Checksum{std::string(65536, '\xff'), "0"},
                      Checksum{std::string(65537, '\xff'), "79764919"}));

TEST_F(ItemRow, AnUncoveredByteMayChangeUnseen) {
  EXPECT_EQ(write_item("k", "ABCDEFGH"), 0);
  exec_sql(kBackup, "update cfg set value=x'4158585858585858'");

  EXPECT_EQ(read_item("k").value, "AXXXXXXX");
}

TEST_F(ItemRow, ACoveredBitMayNot) {
  EXPECT_EQ(write_item("k", "ABCDEFGH"), 0);
  exec_sql(kBackup, "update cfg set value=x'4042434445464748'");

  EXPECT_EQ(read_item("k").code, -102);
}

// ---- dm_record_exist ----

TEST_F(ItemRow, ExistsOnlyWithTheKey) {
  put_item(kPrimary, {});
  const Sqlite db(kPrimary);
  const LogCapture log;

  EXPECT_EQ(dm_record_exist(db.get(), "cfg", "k"), 1);
  EXPECT_EQ(dm_record_exist(db.get(), "cfg", "other"), 0);

  EXPECT_TRUE(log_is(log, {}));
}

TEST_F(ItemRow, ExistsNotOnAnError) {
  const Sqlite db(kPrimary);
  const LogCapture log;

  EXPECT_EQ(dm_record_exist(db.get(), "cfg", "k"), 0);

  EXPECT_TRUE(log_is(log, {"3 dm_record_exist|[LINE] get table existence error: no such table: cfg\n"}));
}

TEST_F(ItemRow, ExistenceStatementIsCutAtItsBuffer) {
  const std::string fits(511 - std::string_view("select 1 from cfg where key=''").size(), 'k');
  put_item(kPrimary, {"cfg", 7, fits, 6, "value"});
  const Sqlite db(kPrimary);
  const LogCapture log;

  EXPECT_EQ(dm_record_exist(db.get(), "cfg", fits.c_str()), 1);
  EXPECT_EQ(dm_record_exist(db.get(), "cfg", (fits + "k").c_str()), 0);

  EXPECT_TRUE(log_is(
      log, {"3 dm_record_exist|[LINE] get table existence error: unrecognized token: \"'" + fits + "k\"\n"}));
}

// ---- alter_table_add_column ----

class OldTable : public StorageTest {
 protected:
  static constexpr const char* kNeither =
      "create table cfg (key text not null,len integer,crc integer,value blob)";
};

TEST_F(OldTable, NullArgumentsAreRefused) {
  const Sqlite db(kPrimary);
  const LogCapture log;

  EXPECT_EQ(alter_table_add_column(nullptr, "cfg", "k"), -1);
  EXPECT_EQ(alter_table_add_column(db.get(), nullptr, "k"), -1);
  EXPECT_EQ(alter_table_add_column(db.get(), "cfg", nullptr), -1);

  const std::string first = "2 alter_table_add_column|alter_table_add_column\n";
  const std::string second = "3 alter_table_add_column|argv NULL\n";
  EXPECT_TRUE(log_is(log, {first, second, first, second, first, second}));
}

TEST_F(OldTable, GetsIdFirstAndThenType) {
  exec_sql(kPrimary, kNeither);
  const Sqlite db(kPrimary);
  const LogCapture log;

  EXPECT_EQ(alter_table_add_column(db.get(), "cfg", "k"), 0);

  const std::string probe = "2 alter_table_add_column|szSql select id,type from cfg where key='k' limit 1\n";
  EXPECT_TRUE(
      log_is(log, {"2 alter_table_add_column|alter_table_add_column\n", probe,
                   "2 alter_table_add_column|<any>no such column: id<any>",
                   "2 alter_table_add_column|<any>alter table cfg add column id integer<any>", probe,
                   "2 alter_table_add_column|<any>no such column: type<any>",
                   "2 alter_table_add_column|<any>alter table cfg add column type integer<any>", probe}));
  EXPECT_EQ(query(kPrimary, "select group_concat(name) from pragma_table_info('cfg')"),
            "key,len,crc,value,id,type");
}

TEST_F(OldTable, WithIdGetsTypeOnly) {
  exec_sql(kPrimary, "create table cfg (id integer,key text)");
  const Sqlite db(kPrimary);

  EXPECT_EQ(alter_table_add_column(db.get(), "cfg", "k"), 0);

  EXPECT_EQ(query(kPrimary, "select group_concat(name) from pragma_table_info('cfg')"), "id,key,type");
}

TEST_F(OldTable, WithBothIsLeftAlone) {
  put_item(kPrimary, {});
  const Sqlite db(kPrimary);
  const LogCapture log;

  EXPECT_EQ(alter_table_add_column(db.get(), "cfg", "k"), 0);

  EXPECT_TRUE(
      log_is(log, {"2 alter_table_add_column|alter_table_add_column\n",
                   "2 alter_table_add_column|szSql select id,type from cfg where key='k' limit 1\n"}));
}

TEST_F(OldTable, ThatLacksMoreThanTwoColumnsFailsAtTheThirdProbe) {
  exec_sql(kPrimary, "create table cfg (len integer)");
  const Sqlite db(kPrimary);
  const LogCapture log;

  EXPECT_EQ(alter_table_add_column(db.get(), "cfg", "k"), -1);

  EXPECT_EQ(log_count(log, "2 alter_table_add_column|szSql select id,type from cfg where key='k' limit 1\n"),
            3u);
  EXPECT_EQ(log_count(log, "3 alter_table_add_column|cnt error <any>\n"), 1u);
  EXPECT_EQ(query(kPrimary, "select group_concat(name) from pragma_table_info('cfg')"), "len,id,type");
}

TEST_F(OldTable, WithAnotherFaultIsNotTouched) {
  const Sqlite db(kPrimary);
  const LogCapture log;

  EXPECT_EQ(alter_table_add_column(db.get(), "cfg", "k"), -1);

  EXPECT_TRUE(log_is(log, {"2 alter_table_add_column|alter_table_add_column\n",
                           "2 alter_table_add_column|szSql select id,type from cfg where key='k' limit 1\n",
                           "2 alter_table_add_column|<any>no such table: cfg<any>"}));
}

TEST_F(OldTable, LogsNoMoreThan128BytesOfTheReason) {
  const Sqlite db(kPrimary);
  const LogCapture log;

  EXPECT_EQ(alter_table_add_column(db.get(), std::string(300, 't').c_str(), "k"), -1);

  const std::string reason = "no such table: " + std::string(300, 't');
  EXPECT_EQ(log_count(log, "2 alter_table_add_column|<any>" + reason.substr(0, 127) + "<any>"), 1u);
  EXPECT_EQ(log_count(log, "2 alter_table_add_column|<any>" + reason.substr(0, 129) + "<any>"), 0u);
}

TEST_F(OldTable, ThatCannotBeAlteredFails) {
  exec_sql(kPrimary, "create table base (key text); create view cfg as select key from base");
  const Sqlite db(kPrimary);
  const LogCapture log;

  EXPECT_EQ(alter_table_add_column(db.get(), "cfg", "k"), -1);

  EXPECT_EQ(log_count(log, "3 alter_table_add_column|[LINE] update error, Cannot add a column to a view\n"),
            1u);
}

TEST_F(OldTable, GetsItsColumnsOnTheFirstInsert) {
  exec_sql(kPrimary, kNeither);
  const LogCapture log;

  EXPECT_EQ(write_db("k", "value", 5, 42), 0);

  EXPECT_EQ(rows(kPrimary, "select id,key,type,len,crc,value from cfg"), "42,k,5,5,1015980042,value");
  EXPECT_TRUE(log_is(
      log,
      {"0 dm_update_record|wr crc: 0x3c8ea00a\n", "3 dm_update_record|[LINE] sqlite3_prepare error, 1\n"},
      "dm_update_record"));
}

TEST_F(OldTable, GetsItsColumnsOnTheFirstUpdate) {
  exec_sql(kPrimary, kNeither);
  exec_sql(kPrimary, "insert into cfg values('k',1,0,x'31'),('other',1,0,x'32')");
  const LogCapture log;

  EXPECT_EQ(write_db("k", "value", 5, 42), 0);

  EXPECT_EQ(rows(kPrimary, "select id,key,type,len,value from cfg"),
            "42,k,5,5,value\n<null>,other,<null>,1,2");
  EXPECT_TRUE(log_is(
      log,
      {"0 dm_update_record|wr crc: 0x3c8ea00a\n", "3 dm_update_record|[LINE] sqlite3_prepare error, rc: 1\n"},
      "dm_update_record"));
}

TEST_F(OldTable, ReachesTheBackupWithTheFirstWrite) {
  exec_sql(kPrimary, kNeither);

  EXPECT_EQ(write_item("k", "value"), 0);

  EXPECT_EQ(read_item("k").value, "value");
  EXPECT_EQ(read_file(kBackup), read_file(kPrimary));
}

TEST_F(OldTable, ThatStaysUnusableIsReportedAsWritten) {
  exec_sql(kPrimary, "create table cfg (id integer,key text,type integer)");
  const LogCapture log;

  EXPECT_EQ(write_db("k", "value"), 0);

  const std::string failed = "3 dm_update_record|[LINE] sqlite3_prepare error, 1\n";
  EXPECT_TRUE(log_is(log, {"0 dm_update_record|wr crc: 0x3c8ea00a\n", failed, failed}, "dm_update_record"));
  EXPECT_EQ(query(kPrimary, "select count(*) from cfg"), "0");
}

TEST_F(OldTable, WithoutKeyColumnIsReportedAsWritten) {
  exec_sql(kPrimary, "create table cfg (id integer,type integer,value blob)");
  const LogCapture log;

  EXPECT_EQ(write_db("k", "value"), 0);

  EXPECT_TRUE(log_is(
      log,
      {"0 dm_update_record|wr crc: 0x3c8ea00a\n", "3 dm_update_record|[LINE] sqlite3_prepare error, 1\n",
       "3 dm_update_record|alter_table_add_column failed\n"},
      "dm_update_record"));
}

// ---- dm_read_db ----

class ReadOneFile : public StorageTest {
 protected:
  std::int32_t read(const char* table, const char* key, std::int32_t length = 16) {
    return dm_read_db(kPrimary.c_str(), table, key, buffer_.data(), &crc_, length);
  }
  std::array<std::uint8_t, 16> buffer_ = {};
  std::uint32_t crc_ = 77;
};

TEST_F(ReadOneFile, GivesValueAndStoredChecksum) {
  put_item(kPrimary, {"cfg", 7, "k", 6, "value"}, -5);
  const LogCapture log;

  EXPECT_EQ(read("cfg", "k"), 5);

  EXPECT_EQ(std::memcmp(buffer_.data(), "value\0", 6), 0);
  EXPECT_EQ(crc_, 0xFFFFFFFBu);
  EXPECT_TRUE(log_is(log, {}));
}

TEST_F(ReadOneFile, CutsAValueThatDoesNotFit) {
  put_item(kPrimary, {});

  EXPECT_EQ(read("cfg", "k", 3), 3);

  EXPECT_EQ(std::memcmp(buffer_.data(), "val\0", 4), 0);
}

TEST_F(ReadOneFile, RefusesNullAndNegative) {
  const LogCapture log;

  EXPECT_EQ(read(nullptr, "k"), -1);
  EXPECT_EQ(read("cfg", nullptr), -1);
  EXPECT_EQ(dm_read_db(kPrimary.c_str(), "cfg", "k", nullptr, &crc_, 16), -1);
  EXPECT_EQ(read("cfg", "k", -1), -1);

  const std::string line = "3 dm_read_db|dm_read_db NULL\n";
  EXPECT_TRUE(log_is(log, {line, line, line, line}));
  EXPECT_FALSE(exists(kPrimary));
}

TEST_F(ReadOneFile, ThatCannotBeOpened) {
  make_dirs(kPrimary);
  const LogCapture log;

  EXPECT_EQ(read("cfg", "k"), -101);

  EXPECT_TRUE(log_is(log, {"3 dm_read_db|sqlite3_open failed: unable to open database file\n"}));
}

TEST_F(ReadOneFile, WithoutTheTable) {
  put_item(kPrimary, {});
  const LogCapture log;

  EXPECT_EQ(read("none", "k"), -100);

  EXPECT_TRUE(log_is(log, {"3 dm_read_db|[LINE] sqlite3_prepare error, 1 \n"}));
}

TEST_F(ReadOneFile, WithoutTheKey) {
  put_item(kPrimary, {});
  const LogCapture log;

  EXPECT_EQ(read("cfg", "other"), -1);

  EXPECT_TRUE(log_is(log, {"3 dm_read_db|sqlite3_step error 101\n"}));
}

TEST_F(ReadOneFile, WithADamagedDataPage) {
  put_item(kPrimary, {});
  damage_first_table(kPrimary);
  const LogCapture log;

  EXPECT_EQ(read("cfg", "k"), -1);

  EXPECT_TRUE(log_is(log, {"3 dm_read_db|sqlite3_step error 1\n"}));
}

TEST_F(ReadOneFile, WithAnEmptyOrNullValue) {
  put_item(kPrimary, {"cfg", 7, "k", 6, ""});
  const LogCapture log;
  EXPECT_EQ(read("cfg", "k"), -1);
  exec_sql(kPrimary, "update cfg set value=null");
  EXPECT_EQ(read("cfg", "k"), -1);

  EXPECT_TRUE(log_is(log, {}));
}

TEST_F(ReadOneFile, StatementIsCutAtItsBuffer) {
  const std::string fits(511 - std::string_view("select value,crc from cfg where key='' limit 1").size(),
                         'k');
  put_item(kPrimary, {"cfg", 7, fits, 6, "value"});
  put_item(kPrimary, {"cfg", 7, fits + "k", 6, "value"});

  EXPECT_EQ(read("cfg", fits.c_str()), 5);
  EXPECT_EQ(read("cfg", (fits + "k").c_str()), -100);
}

// ---- dm_pal_read ----

class ReadPath : public StorageTest {};

TEST_F(ReadPath, RefusesNullAndNegative) {
  std::uint8_t buffer[4];
  const LogCapture log;

  EXPECT_EQ(dm_pal_read(nullptr, "k", buffer, 4), -1);
  EXPECT_EQ(dm_pal_read("cfg", nullptr, buffer, 4), -1);
  EXPECT_EQ(dm_pal_read("cfg", "k", nullptr, 4), -1);
  EXPECT_EQ(dm_pal_read("cfg", "k", buffer, -1), -1);

  const std::string line = "3 dm_pal_read|dm_pal_read NULL\n";
  EXPECT_TRUE(log_is(log, {line, line, line, line}));
}

TEST_F(ReadPath, TakesTheValueOfTheBackupEvenWhereThePrimaryDiffers) {
  put_item(kPrimary, {"cfg", 7, "k", 6, "primary"});
  put_item(kBackup, {"cfg", 7, "k", 6, "backup"});
  const LogCapture log;

  EXPECT_EQ(read_item("k").value, "backup");

  EXPECT_TRUE(log_is(log, {"0 dm_pal_read|rd ret  7 \n"}));
}

TEST_F(ReadPath, TakesTheBackupWhateverThePrimarySays) {
  put_item(kBackup, {"cfg", 7, "k", 6, "backup"});
  EXPECT_EQ(read_item("k").value, "backup") << "no primary";
  put_item(kPrimary, {"cfg", 7, "other", 6, "x"});
  EXPECT_EQ(read_item("k").value, "backup") << "no row in the primary";
  put_item(kPrimary, {"cfg", 7, "k", 6, "primary"}, 5);
  EXPECT_EQ(read_item("k").value, "backup") << "bad row in the primary";
  unlink(kPrimary.c_str());
  make_dirs(kPrimary);
  EXPECT_EQ(read_item("k").value, "backup") << "a primary that cannot be opened";
}

// A write that is cut between the two files leaves a longer value in the primary alone.
TEST_F(ReadPath, LeavesNothingOfALongerPrimaryBehindTheValue) {
  put_item(kPrimary, {"cfg", 7, "k", 6, "a,1;b,2;"});
  put_item(kBackup, {"cfg", 7, "k", 6, "a,1;"});
  std::array<std::uint8_t, 12> buffer;
  buffer.fill('?');

  EXPECT_EQ(dm_pal_read("cfg", "k", buffer.data(), 12), 4);

  EXPECT_EQ(std::string(buffer.begin(), buffer.end()), std::string("a,1;\0\0\0\0????", 12));
}

// A handle, and the item 1: a text under the key k, without default.
vexa_dm_handle* handle_with_item() {
  static std::array<vexa_dm_default_item, 2> table = {};
  table[0].id = 1;
  table[0].desc = item_desc("cfg", "k", 5);
  table[0].type = VEXA_DM_STRING;
  table[0].length = -1;
  table[1].id = -1;
  vexa_dm_reg_def_items(table.data());
  return vexa_dm_reg(VEXA_DM_BACKEND_SQLITE);
}

// Else the retry of a cut write would count as already stored, and be acknowledged unread.
TEST_F(ReadPath, AValueThatOnlyThePrimaryContinuesIsWrittenAgain) {
  vexa_dm_handle* const handle = handle_with_item();
  put_item(kPrimary, {"cfg", 1, "k", 5, "a,1;b,2;"});
  put_item(kBackup, {"cfg", 1, "k", 5, "a,1;"});

  EXPECT_EQ(vexa_dm_write_db(handle, 1, reinterpret_cast<const std::uint8_t*>("a,1;b,2;"), 8), 0);

  EXPECT_EQ(stored(kBackup, "cfg", "k"), "a,1;b,2;");
  vexa_dm_unreg(handle);
}

// The item 1 with a default, a stored value, and a host that sets it back to the default.
class BackToTheDefault : public ReadPath {
 protected:
  void SetUp() override {
    ReadPath::SetUp();
    if (IsSkipped()) return;
    static std::array<vexa_dm_default_item, 2> table = {};
    table[0] = {1, item_desc("cfg", "k", 5), {.text = "factory"}, VEXA_DM_STRING, 7};
    table[1].id = -1;
    ASSERT_EQ(vexa_dm_reg_def_items(table.data()), 0);
    handle_ = vexa_dm_reg(VEXA_DM_BACKEND_SQLITE);
    put_item(kPrimary, {"cfg", 1, "k", 5, "old"});
    put_item(kBackup, {"cfg", 1, "k", 5, "old"});
  }
  void TearDown() override { vexa_dm_unreg(handle_); }

  // Whether the write of the default reached the files.
  bool reaches_both() {
    EXPECT_EQ(vexa_dm_write(handle_, 1, "factory", 7), 0);
    return stored(kPrimary, "cfg", "k") == "factory" && stored(kBackup, "cfg", "k") == "factory";
  }

  vexa_dm_handle* handle_ = nullptr;
};

TEST_F(BackToTheDefault, ReachesACorruptBackupToo) {
  write_file(kBackup, std::string(4096, 'x'));
  EXPECT_TRUE(reaches_both());
}

TEST_F(BackToTheDefault, ReachesABackupWhoseTableCannotBeRead) {
  damage_table(kBackup, "cfg");
  EXPECT_TRUE(reaches_both());
}

TEST_F(BackToTheDefault, ReachesABackupThatMayBeTheOnlyOneWithAValue) {
  exec_sql(kPrimary, "delete from cfg");
  damage_table(kBackup, "cfg");
  EXPECT_TRUE(reaches_both());
}

TEST_F(BackToTheDefault, ReachesACorruptBackupThatMayBeTheOnlyOneWithAValue) {
  exec_sql(kPrimary, "delete from cfg");
  write_file(kBackup, std::string(4096, 'x'));
  EXPECT_TRUE(reaches_both());
}

TEST_F(BackToTheDefault, ReachesABackupThatWasMissing) {
  std::filesystem::remove(kBackup);
  EXPECT_TRUE(reaches_both());
}

TEST_F(BackToTheDefault, ReachesABackupWithoutTheRow) {
  exec_sql(kBackup, "delete from cfg");
  EXPECT_TRUE(reaches_both());
}

TEST_F(BackToTheDefault, ReplacesADamagedValueThatOnlyThePrimaryHas) {
  exec_sql(kBackup, "delete from cfg");
  exec_sql(kPrimary, "update cfg set crc = crc + 1");
  EXPECT_TRUE(reaches_both());
}

TEST_F(BackToTheDefault, StoresNothingWhereNeitherFileHasTheRow) {
  exec_sql(kPrimary, "delete from cfg");
  exec_sql(kBackup, "delete from cfg");
  EXPECT_EQ(vexa_dm_write(handle_, 1, "factory", 7), 0);
  EXPECT_EQ(query(kPrimary, "select count(*) from cfg"), "0");
}

TEST_F(BackToTheDefault, StoresNothingWhereNeitherFileHasTheTable) {
  exec_sql(kPrimary, "drop table cfg");
  exec_sql(kBackup, "drop table cfg");
  EXPECT_EQ(vexa_dm_write(handle_, 1, "factory", 7), 0);
  EXPECT_EQ(query(kPrimary, "select count(*) from sqlite_master where name='cfg'"), "0");
}

TEST_F(ReadPath, LogsWhatThePrimaryGave) {
  put_item(kBackup, {});
  put_item(kPrimary, {}, 5);
  const LogCapture log;
  read_item("k");
  EXPECT_TRUE(log_is(log, {"0 dm_pal_read|rd ret  -102 \n"}));
  exec_sql(kPrimary, "delete from cfg");
  read_item("k");
  EXPECT_EQ(log_count(log, "0 dm_pal_read|rd ret  -1 \n"), 1u);
  exec_sql(kPrimary, "drop table cfg");
  read_item("k");
  EXPECT_EQ(log_count(log, "0 dm_pal_read|rd ret  -100 \n"), 1u);
}

TEST_F(ReadPath, AValueThatIsOnlyInThePrimaryIsNotFound) {
  put_item(kPrimary, {});
  put_item(kBackup, {"cfg", 7, "other", 6, "x"});

  EXPECT_EQ(read_item("k").code, -1);
}

TEST_F(ReadPath, WithoutBackupFileMakesItEmptyAndFindsNoTable) {
  put_item(kPrimary, {});

  EXPECT_EQ(read_item("k").code, -100);

  EXPECT_TRUE(exists(kBackup));
  EXPECT_EQ(read_file(kBackup), "");
  EXPECT_EQ(write_item("other", "x"), 0);
  EXPECT_EQ(read_item("k").value, "value") << "the next write restores the backup";
}

TEST_F(ReadPath, ABufferThatIsTooShortFailsTheChecksum) {
  EXPECT_EQ(write_item("k", "value"), 0);

  EXPECT_EQ(read_item("k", 4).code, -102);
  EXPECT_EQ(read_item("k", 5).code, 5);
}

TEST_F(ReadPath, NoCapacityGivesNoBytes) {
  EXPECT_EQ(write_item("k", "value"), 0);

  EXPECT_EQ(read_item("k", 0).code, -102);
}

TEST_F(ReadPath, AnEmptyValueReadsAsMissing) {
  EXPECT_EQ(write_item("k", ""), 0);

  EXPECT_EQ(rows(kPrimary, "select key,len,crc,length(value) from cfg"), "k,0,0,0");
  EXPECT_EQ(read_item("k").code, -1);
}

TEST_F(ReadPath, ABackupThatCannotBeOpenedIsTriedTwice) {
  put_item(kPrimary, {});
  make_dirs(kBackup);
  const LogCapture log;

  EXPECT_EQ(read_item("k").code, -101);

  const std::string failed = "3 dm_read_db|sqlite3_open failed: unable to open database file\n";
  EXPECT_TRUE(log_is(log, {"0 dm_pal_read|rd ret  5 \n", failed, failed}));
}

TEST_F(ReadPath, ABackupValueThatFailsItsChecksumIsRefused) {
  put_item(kPrimary, {});
  put_item(kBackup, {}, 5);

  EXPECT_EQ(read_item("k").code, -102);
}

// ---- dm_write_db ----

class WriteOneFile : public StorageTest {};

TEST_F(WriteOneFile, RefusesNullAndNegative) {
  const LogCapture log;

  EXPECT_EQ(dm_write_db(kPrimary.c_str(), nullptr, 7, "k", 6, "v", 1), -1);
  EXPECT_EQ(dm_write_db(kPrimary.c_str(), "cfg", 7, nullptr, 6, "v", 1), -1);
  EXPECT_EQ(dm_write_db(kPrimary.c_str(), "cfg", 7, "k", 6, nullptr, 1), -1);
  EXPECT_EQ(dm_write_db(kPrimary.c_str(), "cfg", 7, "k", 6, "v", -1), -1);

  const std::string line = "3 dm_write_db|dm_write_db NULL\n";
  EXPECT_TRUE(log_is(log, {line, line, line, line}));
  EXPECT_FALSE(exists(kPrimary));
}

TEST_F(WriteOneFile, ThatCannotBeOpened) {
  make_dirs(kPrimary);
  const LogCapture log;

  EXPECT_EQ(write_db("k", "value"), -101);

  EXPECT_TRUE(log_is(log, {"3 dm_write_db|sqlite3_open failed: unable to open database file\n"}));
}

TEST_F(WriteOneFile, LogsTheChecksumInHexadecimal) {
  const LogCapture log;

  EXPECT_EQ(write_db("k", "0123456789abcdef"), 0);

  EXPECT_TRUE(log_is(log, {"0 dm_update_record|wr crc: 0xe001dd12\n"}));
}

TEST_F(WriteOneFile, WhoseTableCannotBeMade) {
  exec_sql(kPrimary, "create table t (a); create index cfg on t(a)");
  const LogCapture log;

  EXPECT_EQ(write_db("k", "value"), -1);

  EXPECT_TRUE(log_is(
      log, {"3 dm_write_db|[LINE] create table error rc=1, there is already an index named cfg, szSql: "
            "create table if not exists cfg " +
            kColumns + "\n"}));
}

TEST_F(WriteOneFile, CreateStatementIsCutAtItsBuffer) {
  const std::string head = "create table if not exists ";
  const std::string fits(511 - head.size() - 1 - kColumns.size(), 't');
  const LogCapture log;

  EXPECT_EQ(dm_write_db(kPrimary.c_str(), fits.c_str(), 7, "k", 6, "value", 5), 0);
  EXPECT_EQ(stored(kPrimary, fits, "k"), "value");
  EXPECT_EQ(dm_write_db(kPrimary.c_str(), (fits + "t").c_str(), 7, "k", 6, "value", 5), -1);

  EXPECT_EQ(log_count(log, "3 dm_write_db|[LINE] create table error rc=1, incomplete input, szSql: " + head +
                               fits + "t " + kColumns.substr(0, kColumns.size() - 1) + "\n"),
            1u);
}

TEST_F(WriteOneFile, ReportsARowThatIsRefusedAsWritten) {
  put_item(kPrimary, {"cfg", 7, "k", 6, "older"});
  exec_sql(kPrimary,
           "create trigger no_insert before insert on cfg begin select raise(abort,'refused'); end;"
           "create trigger no_update before update on cfg begin select raise(abort,'refused'); end");
  const LogCapture log;

  EXPECT_EQ(write_db("k", "value"), 0);
  EXPECT_EQ(write_db("new", "value"), 0);

  const std::string crc = "0 dm_update_record|wr crc: 0x3c8ea00a\n";
  const std::string failed = "3 dm_update_record|LINE step failed rc: <any>\n";
  EXPECT_TRUE(log_is(log, {crc, failed, crc, failed}));
  EXPECT_EQ(rows(kPrimary, "select key,value from cfg"), "k,older");
}

// SQLite refuses more than a thousand million bytes before it looks at them.
TEST_F(WriteOneFile, ReportsAValueThatCannotBeBoundAsWritten) {
  put_item(kPrimary, {"cfg", 7, "k", 6, "older"});
  const std::string bytes(65536, 'x');
  const LogCapture log;

  EXPECT_EQ(dm_write_db(kPrimary.c_str(), "cfg", 7, "k", 6, bytes.data(), 1000000001), 0);
  EXPECT_EQ(dm_write_db(kPrimary.c_str(), "cfg", 7, "new", 6, bytes.data(), 1000000001), 0);

  EXPECT_TRUE(log_is(
      log, {"0 dm_update_record|wr crc: <any>\n", "3 dm_update_record|[LINE] bind_blob error, rc: 18\n",
            "0 dm_update_record|wr crc: <any>\n", "3 dm_update_record|[LINE] bind_blob error, 18\n"}));
  EXPECT_EQ(rows(kPrimary, "select key,value from cfg"), "k,older");
}

// ---- dm_pal_write ----

class WritePath : public StorageTest {};

TEST_F(WritePath, RefusesNullAndNegative) {
  const LogCapture log;

  EXPECT_EQ(dm_pal_write(nullptr, 7, "k", 6, "v", 1), -1);
  EXPECT_EQ(dm_pal_write("cfg", 7, nullptr, 6, "v", 1), -1);
  EXPECT_EQ(dm_pal_write("cfg", 7, "k", 6, nullptr, 1), -1);
  EXPECT_EQ(dm_pal_write("cfg", 7, "k", 6, "v", -1), -1);

  const std::string line = "3 dm_pal_write|dm_pal_write NULL\n";
  EXPECT_TRUE(log_is(log, {line, line, line, line}));
  EXPECT_EQ(names_in("/data"), std::vector<std::string>{}) << "not even the journal";
}

TEST_F(WritePath, WritesPrimaryChecksItAndCopiesIt) {
  const LogCapture log;

  EXPECT_EQ(write_item("k", "value"), 0);

  EXPECT_TRUE(
      log_is(log, {"0 dm_update_record|wr crc: 0x3c8ea00a\n", "0 check_database_health|is_corrupted=0\n",
                   kCopied, "0 dm_sqlite_system_cmd|read_len=0\n"}));
  EXPECT_EQ(stored(kPrimary, "cfg", "k"), "value");
  EXPECT_EQ(read_file(kBackup), read_file(kPrimary));
  EXPECT_EQ(journal_row(kJournal), "cfg,7,k,6,5,102");
}

TEST_F(WritePath, CopiesTheWholePrimaryNotOneRow) {
  put_item(kPrimary, {"more", 1, "m", 6, "in primary only"});
  put_item(kBackup, {"gone", 1, "g", 6, "in backup only"});

  EXPECT_EQ(write_item("k", "value"), 0);

  EXPECT_EQ(stored(kBackup, "more", "m"), "in primary only");
  EXPECT_EQ(rows(kBackup, "select name from sqlite_master order by name"), "cfg\nmore");
}

TEST_F(WritePath, MovesTheJournalThroughItsThreeStates) {
  EXPECT_EQ(dm_write_state_db("t", 1, "x", 1, 1, 5), 0);
  exec_sql(kJournal,
           "create table seen (state); create trigger s after update on state begin insert into seen "
           "values(new.state); "
           "end");

  EXPECT_EQ(write_item("k", "value"), 0);

  EXPECT_EQ(rows(kJournal, "select state from seen"), "100\n101\n102");
  EXPECT_EQ(journal_row(kJournal), "cfg,7,k,6,5,102");
}

TEST_F(WritePath, GoesOnWithoutAJournal) {
  make_dirs(kJournal);
  const LogCapture log;

  EXPECT_EQ(write_item("k", "value"), 0);

  const std::string no_file = "3 dm_write_state_db|sqlite3_open failed: unable to open database file\n";
  EXPECT_TRUE(
      log_is(log, {no_file, "3 dm_pal_write|dm_write_state_db  WS_READY failed: -1\n",
                   "0 dm_update_record|wr crc: 0x3c8ea00a\n", "0 check_database_health|is_corrupted=0\n",
                   kCopied, "0 dm_sqlite_system_cmd|read_len=0\n", no_file,
                   "3 dm_pal_write|dm_write_state_db  WS_WRITE_DONE failed: -1\n", no_file,
                   "3 dm_pal_write|dm_write_state_db  WS_BACKUP_DONE failed: -1\n"}));
  EXPECT_EQ(read_item("k").value, "value");
}

TEST_F(WritePath, WithoutPrimaryStopsWithTheJournalReady) {
  put_item(kBackup, {"cfg", 7, "k", 6, "older"});
  const std::string backup = read_file(kBackup);
  make_dirs(kPrimary);
  const LogCapture log;

  EXPECT_EQ(write_item("k", "value"), -1);

  EXPECT_TRUE(log_is(log, {"3 dm_write_db|sqlite3_open failed: unable to open database file\n",
                           "3 dm_pal_write|dm_update_db: \n"}));
  EXPECT_EQ(journal_row(kJournal), "cfg,7,k,6,5,100");
  EXPECT_EQ(read_file(kBackup), backup);
}

TEST_F(WritePath, WhoseTableCannotBeMadeStopsWithTheJournalReady) {
  exec_sql(kPrimary, "create table t (a); create index cfg on t(a)");

  EXPECT_EQ(write_item("k", "value"), -1);

  EXPECT_EQ(journal_row(kJournal), "cfg,7,k,6,5,100");
  EXPECT_FALSE(exists(kBackup));
}

TEST_F(WritePath, WhoseRowIsRefusedStillCopiesAndCompletesTheJournal) {
  EXPECT_EQ(write_item("k", "older"), 0);
  exec_sql(kPrimary, "create trigger no before update on cfg begin select raise(abort,'refused'); end");

  EXPECT_EQ(write_item("k", "value"), 0);

  EXPECT_EQ(read_item("k").value, "older");
  EXPECT_EQ(journal_row(kJournal), "cfg,7,k,6,5,102");
  EXPECT_EQ(read_file(kBackup), read_file(kPrimary));
}

TEST_F(WritePath, APrimaryThatFailsItsCheckIsNotCopied) {
  EXPECT_EQ(write_item("k", "older"), 0);
  const std::string backup = read_file(kBackup);
  damage_free_list(kPrimary);
  const LogCapture log;

  EXPECT_EQ(write_item("k", "value"), 0);

  EXPECT_TRUE(log_is(log, {"0 dm_update_record|wr crc: 0x3c8ea00a\n",
                           "3 integrity_check_callback|[ERROR] Corruption detected: <any>",
                           "0 check_database_health|is_corrupted=1\n"}));
  EXPECT_EQ(read_file(kBackup), backup);
  EXPECT_EQ(read_item("k").value, "older");
  EXPECT_EQ(stored(kPrimary, "cfg", "k"), "value");
  EXPECT_EQ(journal_row(kJournal), "cfg,7,k,6,5,102");
}

TEST_F(WritePath, ManyItemsOfSeveralTablesReadBack) {
  for (int i = 0; i < 40; ++i) {
    const std::string table = "t" + std::to_string(i % 4);
    const std::string key = "k" + std::to_string(i);
    const std::string value(static_cast<std::size_t>(1 + i * 37), static_cast<char>('a' + i % 26));
    ASSERT_EQ(dm_pal_write(table.c_str(), static_cast<std::uint32_t>(i), key.c_str(), 6, value.data(),
                           static_cast<std::int32_t>(value.size())),
              0);
  }
  for (int i = 0; i < 40; ++i) {
    const std::string table = "t" + std::to_string(i % 4);
    const std::string key = "k" + std::to_string(i);
    std::vector<std::uint8_t> buffer(2000);
    ASSERT_EQ(dm_pal_read(table.c_str(), key.c_str(), buffer.data(), 2000), 1 + i * 37);
    EXPECT_EQ(std::string(buffer.begin(), buffer.begin() + 1 + i * 37),
              std::string(static_cast<std::size_t>(1 + i * 37), static_cast<char>('a' + i % 26)));
  }
}

// ---- The cache beside it ----

class CacheOrder : public StorageTest {
 protected:
  // Between the backend and the cache, a writer tells the program: there another one overtakes it.
  static void overtake(std::int32_t, const void*, std::int32_t) {
    if (std::exchange(overtaken_, true)) return;
    std::thread([] { EXPECT_EQ(vexa_dm_write(handle_, 1, "later", 5), 0); }).join();
  }

  // The first caching of an item says so before it makes the entry: there another one overtakes
  // it. The logger is locked meanwhile, so the other one must have nothing to say.
  static void overtake_in_cache(const char* line) {
    if (std::string_view(line).find("no item found") == std::string_view::npos) return;
    vexa_set_log_level(4);
    overtake(0, nullptr, 0);
  }

  static inline vexa_dm_handle* handle_ = nullptr;
  static inline bool overtaken_ = false;
};

TEST_F(CacheOrder, AWriterThatIsOvertakenDoesNotHideTheLaterValue) {
  handle_ = handle_with_item();
  vexa_dm_reg_event_callback(overtake);
  std::array<std::uint8_t, 16> buffer = {};

  EXPECT_EQ(vexa_dm_write(handle_, 1, "sooner", 6), 0);

  EXPECT_EQ(stored(kBackup, "cfg", "k"), "later");
  EXPECT_EQ(vexa_dm_read(handle_, 1, buffer.data(), 16), 5);
  EXPECT_STREQ(reinterpret_cast<const char*>(buffer.data()), "later");
}

TEST_F(CacheOrder, AnEmptyingThatIsOvertakenDoesNotHideTheLaterValue) {
  handle_ = handle_with_item();
  std::array<std::uint8_t, 16> buffer = {};
  ASSERT_EQ(vexa_dm_write(handle_, 1, "first", 5), 0);
  vexa_dm_reg_event_callback(overtake);

  EXPECT_EQ(vexa_dm_empty(handle_, 1), 0);

  EXPECT_EQ(vexa_dm_cache_read(1, buffer.data(), 16), 5);
  EXPECT_STREQ(reinterpret_cast<const char*>(buffer.data()), "later");
}

TEST_F(CacheOrder, AReaderThatIsOvertakenDoesNotHideTheLaterValue) {
  handle_ = handle_with_item();
  put_item(kPrimary, {"cfg", 1, "k", 5, "sooner"});
  put_item(kBackup, {"cfg", 1, "k", 5, "sooner"});
  set_print_interface(overtake_in_cache);
  std::array<std::uint8_t, 16> buffer = {};

  EXPECT_EQ(vexa_dm_read(handle_, 1, buffer.data(), 16), 6);

  EXPECT_EQ(vexa_dm_read(handle_, 1, buffer.data(), 16), 5);
  EXPECT_EQ(stored(kBackup, "cfg", "k"), "later");
}

// The sooner of two is held up before it makes its entry, until the later one has found none.
class TwoEntries : public CacheOrder {
 protected:
  static void hold_up(std::int32_t, const void*, std::int32_t length) {
    if (length > 0) return;
    emptied_ = true;
    while (!go_on_) std::this_thread::yield();
  }
  static void let_go_on(const char* line) {
    if (std::string_view(line).find("no item found") == std::string_view::npos) return;
    vexa_set_log_level(4);
    go_on_ = true;
    emptying_.join();
  }

  static inline std::atomic<bool> emptied_ = false;
  static inline std::atomic<bool> go_on_ = false;
  static inline std::thread emptying_;
};

TEST_F(TwoEntries, OfOneItemEndWithTheLaterValueInTheFirst) {
  handle_ = handle_with_item();
  vexa_dm_reg_event_callback(hold_up);
  set_print_interface(let_go_on);
  emptying_ = std::thread([] { EXPECT_EQ(vexa_dm_empty(handle_, 1), 0); });
  while (!emptied_) std::this_thread::yield();

  EXPECT_EQ(vexa_dm_write(handle_, 1, "later", 5), 0);

  std::array<std::uint8_t, 16> buffer = {};
  EXPECT_EQ(vexa_dm_cache_read(1, buffer.data(), 16), 5);
}

TEST_F(ItemRow, AnEmptyValueIsWritten) {
  EXPECT_EQ(write_db("k", ""), 0);

  EXPECT_EQ(rows(kPrimary, "select key,len from cfg"), "k,0");
  EXPECT_EQ(write_item("k2", ""), 0);
  EXPECT_EQ(rows(kPrimary, "select len from cfg where key='k2'"), "0");
}

TEST_F(ReadPath, OfAnUnopenedBackupLooksAtNothingBehindTheBuffer) {
  make_dirs(kBackup);
  const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  void* const pages = mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(pages, MAP_FAILED);
  auto* const end = static_cast<std::uint8_t*>(pages) + page;
  ASSERT_EQ(mprotect(end, page, PROT_NONE), 0);

  EXPECT_EQ(dm_pal_read("cfg", "k", end - 16, 16), -101);

  munmap(pages, 2 * page);
}

TEST_F(ReadPath, AMissingRowIsLookedForOnceInEachFile) {
  put_item(kPrimary, {"cfg", 7, "other", 6, "x"});
  put_item(kBackup, {"cfg", 7, "other", 6, "x"});
  const LogCapture log;

  EXPECT_EQ(read_item("k").code, -1);

  EXPECT_EQ(log_count(log, "3 dm_read_db|sqlite3_step error 101\n"), 2u);
}

TEST_F(WritePath, ABackupThatCannotBeOpenedIsSaidOnce) {
  make_dirs(kBackup);
  const LogCapture log;

  EXPECT_EQ(write_item("k", "value"), 0);

  EXPECT_EQ(log_count(log, "3 dm_write_db|sqlite3_open failed: unable to open database file\n"), 1u);
}

}  // namespace
}  // namespace vexa_test
