// SPDX-License-Identifier: MIT
// The write-state journal and what a start does with an interrupted write.
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <climits>
#include <cstdint>
#include <string>
#include <vector>

#include "support/emulated.h"
#include "support/storage_fixture.h"

namespace vexa_test {
namespace {

const std::string kRow = "write_state";
const std::string kOldTable =
    "create table state (key text not null,item_table text not null,item_key text not null,len integer,state "
    "integer)";

std::int32_t record(int state, std::int32_t len = 5) {
  return dm_write_state_db("cfg", 7, "k", 6, len, state);
}

std::string update_text(int state) {
  return "update state set item_table='cfg',id=7,item_key='k',type=6,len=5,state=" + std::to_string(state) +
         " where key='write_state'";
}

// ---- Writing ----

class JournalWrite : public StorageTest {};

TEST_F(JournalWrite, MakesTheTableAndItsOneRow) {
  const LogCapture log;

  EXPECT_EQ(record(WS_READY), 0);

  EXPECT_TRUE(log_is(log, {}));
  EXPECT_EQ(
      query(kJournal, "select sql from sqlite_master where name='state'"),
      "CREATE TABLE state (key text not null,item_table text not null,id integer not null,item_key text not "
      "null,type integer,len integer,state integer)");
  EXPECT_EQ(rows(kJournal, "select * from state"), "write_state,cfg,7,k,6,5,100");
}

TEST_F(JournalWrite, LaterStatesOverwriteTheRow) {
  EXPECT_EQ(record(WS_READY), 0);
  EXPECT_EQ(dm_write_state_db("other", 0xFFFFFFFF, "key", 3, 4, WS_WRITE_DONE), 0);

  EXPECT_EQ(rows(kJournal, "select * from state"), "write_state,other,-1,key,3,4,101");
}

TEST_F(JournalWrite, RefusesNull) {
  const LogCapture log;

  EXPECT_EQ(dm_write_state_db(nullptr, 7, "k", 6, 5, WS_READY), -1);
  EXPECT_EQ(dm_write_state_db("cfg", 7, nullptr, 6, 5, WS_READY), -1);

  const std::string line = "3 dm_write_state_db|dm_write_state_db NULL\n";
  EXPECT_TRUE(log_is(log, {line, line}));
  EXPECT_FALSE(exists(kJournal));
}

TEST_F(JournalWrite, ThatCannotBeOpened) {
  make_dirs(kJournal);
  const LogCapture log;

  EXPECT_EQ(record(WS_READY), -1);

  EXPECT_TRUE(log_is(log, {"3 dm_write_state_db|sqlite3_open failed: unable to open database file\n"}));
}

TEST_F(JournalWrite, WhoseTableCannotBeMadeKeepsTheFile) {
  exec_sql(kJournal, "create table t (a); create index state on t(a)");
  const std::string before = read_file(kJournal);
  const LogCapture log;

  EXPECT_EQ(record(WS_READY), -1);

  EXPECT_TRUE(log_is(
      log, {"3 dm_write_state_db|[LINE] create table error, there is already an index named state\n"}));
  EXPECT_EQ(read_file(kJournal), before);
}

TEST_F(JournalWrite, WhoseInsertIsRefusedKeepsTheFile) {
  EXPECT_EQ(record(WS_READY), 0);
  exec_sql(
      kJournal,
      "delete from state; create trigger no before insert on state begin select raise(abort,'refused'); end");
  const std::string before = read_file(kJournal);
  const LogCapture log;

  EXPECT_EQ(record(WS_READY), -1);

  EXPECT_TRUE(log_is(log, {"3 dm_write_state_db|[LINE] insert error, refused\n"}));
  EXPECT_EQ(read_file(kJournal), before);
}

TEST_F(JournalWrite, WhoseUpdateIsRefusedIsMadeAnewEmpty) {
  EXPECT_EQ(record(WS_READY), 0);
  exec_sql(kJournal, "create trigger no before update on state begin select raise(abort,'refused'); end");
  const LogCapture log;

  EXPECT_EQ(record(WS_WRITE_DONE), -1);

  EXPECT_TRUE(log_is(log, {"3 dm_write_state_db|szSql: " + update_text(101) + ", rc: 19, szErrMsg: refused\n",
                           "? dm_write_state_db|ret_pos is NULL, other error occured\n",
                           "0 dm_write_state_db|Create database /data/state.db successfully\n",
                           "3 dm_write_state_db|error when szSql: " + update_text(101) + ", rc: 19\n"}));
  EXPECT_TRUE(exists(kJournal));
  EXPECT_EQ(query(kJournal, "select count(*) from sqlite_master"), "0");
  EXPECT_EQ(names_in("/data"), std::vector<std::string>{"state.db"});
  EXPECT_EQ(record(WS_BACKUP_DONE), 0) << "the next call inserts the row again";
  EXPECT_EQ(journal_row(kJournal), "cfg,7,k,6,5,102");
}

TEST_F(JournalWrite, ARefusedUpdateDoesNotStopTheItem) {
  EXPECT_EQ(record(WS_READY), 0);
  exec_sql(kJournal, "create trigger no before update on state begin select raise(abort,'refused'); end");
  const LogCapture log;

  EXPECT_EQ(write_item("k", "value"), 0);

  EXPECT_EQ(log_count(log, "3 dm_pal_write|dm_write_state_db  WS_READY failed: -1\n"), 1u);
  EXPECT_EQ(read_item("k").value, "value");
  EXPECT_EQ(journal_row(kJournal), "cfg,7,k,6,5,102");
}

TEST_F(JournalWrite, OfAnOldBuildGetsIdAndType) {
  exec_sql(kJournal, kOldTable);
  exec_sql(kJournal, "insert into state values('write_state','old','o',1,102)");
  const LogCapture log;

  EXPECT_EQ(record(WS_READY), 0);

  EXPECT_EQ(journal_row(kJournal), "cfg,7,k,6,5,100");
  EXPECT_TRUE(log_is(
      log, {"3 dm_write_state_db|szSql: " + update_text(100) + ", rc: 1, szErrMsg: no such column: id\n"},
      "dm_write_state_db"));
  EXPECT_EQ(query(kJournal, "select group_concat(name) from pragma_table_info('state')"),
            "key,item_table,item_key,len,state,id,type");
}

TEST_F(JournalWrite, OfAnOldBuildWithoutARowIsNotMigrated) {
  exec_sql(kJournal, kOldTable);
  const LogCapture log;

  EXPECT_EQ(record(WS_READY), -1);

  EXPECT_TRUE(log_is(log, {"3 dm_write_state_db|[LINE] insert error, table state has no column named id\n"}));
}

TEST_F(JournalWrite, ThatLacksAnotherColumnKeepsItsFile) {
  exec_sql(kJournal, "create table state (key text,item_table text,item_key text,id integer,type integer)");
  exec_sql(kJournal, "insert into state values('write_state','old','o',1,1)");
  const LogCapture log;

  EXPECT_EQ(record(WS_READY), -1);

  EXPECT_TRUE(
      log_is(log,
             {"3 dm_write_state_db|szSql: " + update_text(100) + ", rc: 1, szErrMsg: no such column: len\n",
              "3 dm_write_state_db|[LINE] update error, no such column: len\n",
              "3 dm_write_state_db|error when szSql: " + update_text(100) + ", rc: 1\n"},
             "dm_write_state_db"));
  EXPECT_EQ(query(kJournal, "select item_table from state"), "old");
}

// ---- Reading ----

class JournalRead : public StorageTest {
 protected:
  std::int32_t read() { return dm_read_state_db(table_.data(), key_.data(), &id_, &type_, &len_, &state_); }
  std::array<char, 33> table_ = {'-'};
  std::array<char, 33> key_ = {'-'};
  std::int32_t id_ = -7;
  std::int32_t type_ = -7;
  std::int32_t len_ = -7;
  std::int32_t state_ = -7;
};

TEST_F(JournalRead, GivesEveryColumnAndLogsIt) {
  EXPECT_EQ(dm_write_state_db("cfg", 0xFFFFFFFE, "k", 6, 5, WS_WRITE_DONE), 0);
  const LogCapture log;

  EXPECT_EQ(read(), 0);

  EXPECT_STREQ(table_.data(), "cfg");
  EXPECT_STREQ(key_.data(), "k");
  EXPECT_EQ(id_, -2);
  EXPECT_EQ(type_, 6);
  EXPECT_EQ(len_, 5);
  EXPECT_EQ(state_, 101);
  EXPECT_TRUE(log_is(log, {"? dm_read_state_db|szSql select item_table,item_key,id,type,len,state from state "
                           "where key='write_state'\n",
                           "0 dm_read_state_db|read item_table cfg\n", "0 dm_read_state_db|read item_key k\n",
                           "0 dm_read_state_db|read id -2\n", "0 dm_read_state_db|read type 6\n",
                           "0 dm_read_state_db|read len 5\n", "0 dm_read_state_db|read state 101\n"}));
}

TEST_F(JournalRead, TakesNamesOfThirtyTwoCharacters) {
  const std::string name(32, 'n');
  EXPECT_EQ(dm_write_state_db(name.c_str(), 7, name.c_str(), 6, 5, WS_READY), 0);

  EXPECT_EQ(read(), 0);

  EXPECT_EQ(table_.data(), name);
  EXPECT_EQ(key_.data(), name);
}

TEST_F(JournalRead, LeavesLongerNamesEmpty) {
  const std::string name(33, 'n');
  EXPECT_EQ(dm_write_state_db(name.c_str(), 7, "k", 6, 5, WS_READY), 0);
  EXPECT_EQ(read(), 0);
  EXPECT_STREQ(table_.data(), "");
  EXPECT_STREQ(key_.data(), "k");

  EXPECT_EQ(dm_write_state_db("cfg", 7, name.c_str(), 6, 5, WS_READY), 0);
  EXPECT_EQ(read(), 0);
  EXPECT_STREQ(table_.data(), "cfg");
  EXPECT_STREQ(key_.data(), "");
}

TEST_F(JournalRead, CountsNullColumnsAsZero) {
  EXPECT_EQ(record(WS_READY), 0);
  exec_sql(kJournal, "update state set type=null,len=null,state=null");

  EXPECT_EQ(read(), 0);

  EXPECT_EQ(id_, 7);
  EXPECT_EQ(type_, 0);
  EXPECT_EQ(len_, 0);
  EXPECT_EQ(state_, 0);
}

TEST_F(JournalRead, WithoutARowGivesNothing) {
  EXPECT_EQ(record(WS_READY), 0);
  exec_sql(kJournal, "delete from state");

  EXPECT_EQ(read(), -1);

  EXPECT_EQ(id_, -7);
  EXPECT_EQ(state_, -7);
}

TEST_F(JournalRead, OfAnOldBuildGetsIdAndTypeAndReadsThemAsZero) {
  exec_sql(kJournal, kOldTable);
  exec_sql(kJournal, "insert into state values('write_state','cfg','k',8,101)");
  const LogCapture log;

  EXPECT_EQ(read(), 0);

  EXPECT_STREQ(table_.data(), "cfg");
  EXPECT_EQ(id_, 0);
  EXPECT_EQ(type_, 0);
  EXPECT_EQ(len_, 8);
  EXPECT_EQ(state_, 101);
  EXPECT_TRUE(log_is(log,
                     {"? dm_read_state_db|szSql select item_table,item_key,id,type,len,state from state "
                      "where key='write_state'\n",
                      "2 dm_read_state_db|errmsg no such column: id\n",
                      "? dm_read_state_db|szSql select success, nRow, 1, nColumn: 6\n",
                      "0 dm_read_state_db|read item_table cfg\n", "0 dm_read_state_db|read item_key k\n",
                      "0 dm_read_state_db|read id 0\n", "0 dm_read_state_db|read type 0\n",
                      "0 dm_read_state_db|read len 8\n", "0 dm_read_state_db|read state 101\n"},
                     "dm_read_state_db"));
}

TEST_F(JournalRead, ThatLacksAnotherColumnFailsAfterOneMoreTry) {
  exec_sql(kJournal, "create table state (key text,item_table text,item_key text,id integer,type integer)");
  const LogCapture log;

  EXPECT_EQ(read(), -1);

  EXPECT_EQ(log_count(log, "? dm_read_state_db|errmsg no such column: len\n"), 2u);
}

// ---- The check at a start ----

class StartCheck : public StorageTest {
 protected:
  static std::int32_t check() { return static_cast<std::int32_t>(dm_sqlite_check_database()); }
};

TEST_F(StartCheck, WithoutAJournalMakesAnEmptyOne) {
  const LogCapture log;

  EXPECT_EQ(check(), -1);

  EXPECT_TRUE(log_is(log, {"? dm_read_state_db|szSql select item_table,item_key,id,type,len,state from state "
                           "where key='write_state'\n",
                           "2 dm_read_state_db|errmsg no such table: state\n"}));
  EXPECT_EQ(names_in("/data"), std::vector<std::string>{"state.db"});
  EXPECT_EQ(read_file(kJournal), "");
}

TEST_F(StartCheck, GivesSqlitesCodeOfAJournalThatCannotBeOpened) {
  make_dirs(kJournal);
  const LogCapture log;

  EXPECT_EQ(check(), SQLITE_CANTOPEN);

  EXPECT_TRUE(log_is(log, {"3 dm_read_state_db|sqlite3_open failed: unable to open database file\n"}));
}

TEST_F(StartCheck, AJournalWithoutARowIsNothingToFinish) {
  EXPECT_EQ(record(WS_WRITE_DONE), 0);
  exec_sql(kJournal, "delete from state");

  EXPECT_EQ(check(), -1);
}

TEST_F(StartCheck, ACompleteWriteNeedsNothing) {
  put_item(kPrimary, {"cfg", 7, "k", 6, "eight by"});
  EXPECT_EQ(record(WS_BACKUP_DONE, 8), 0);
  const LogCapture log;

  EXPECT_EQ(check(), 0);

  EXPECT_TRUE(log_is(log,
                     {"0 dm_sqlite_check_database|dm_sqlite_check_database len: 8\n",
                      "0 dm_sqlite_check_database|dm_sqlite_check_database suc, no need sync\n"},
                     "dm_sqlite_check_database"));
  EXPECT_FALSE(exists(kBackup));
}

TEST_F(StartCheck, TheStateIsLookedAtBeforeTheLength) {
  EXPECT_EQ(record(WS_BACKUP_DONE, 0), 0);
  EXPECT_EQ(check(), 0);
  EXPECT_EQ(record(WS_BACKUP_DONE, -5), 0);
  EXPECT_EQ(check(), 0);
}

TEST_F(StartCheck, AWriteThatOnlyBeganIsNotActedOn) {
  put_item(kPrimary, {"cfg", 7, "k", 6, "eight by"});
  put_item(kBackup, {"cfg", 7, "k", 6, "previous"});
  EXPECT_EQ(record(WS_READY, 8), 0);

  EXPECT_EQ(check(), -1);

  EXPECT_EQ(stored(kBackup, "cfg", "k"), "previous");
}

TEST_F(StartCheck, UnknownStatesAndEmptyValuesAreNotActedOn) {
  put_item(kPrimary, {"cfg", 7, "k", 6, "eight by"});
  EXPECT_EQ(record(WS_WRITE_DONE, 0), 0);
  EXPECT_EQ(check(), -1);
  EXPECT_EQ(record(WS_WRITE_DONE, -1), 0);
  EXPECT_EQ(check(), -1);
  EXPECT_EQ(record(103, 8), 0);
  EXPECT_EQ(check(), -1);

  EXPECT_FALSE(exists(kBackup));
}

TEST_F(StartCheck, AWrittenPrimaryGivesTheBackupItsRecord) {
  put_item(kPrimary, {"cfg", 7, "k", 6, "eight by"});
  EXPECT_EQ(record(WS_WRITE_DONE, 8), 0);
  const LogCapture log;

  EXPECT_EQ(check(), 0);

  EXPECT_EQ(rows(kBackup, "select * from cfg"),
            "7,k,6,8," + std::to_string(reference_crc("eight by")) + ",eight by");
  EXPECT_TRUE(log_is(log, {"? dm_sqlite_check_database|dm_sqlite_check_database read primary\n"},
                     "dm_sqlite_check_database"));
  EXPECT_EQ(log_count(log, "0 dm_update_record|wr crc: <any>\n"), 1u);
}

// A backup that cannot take the record is a reason to repair; the check then must not wait for the
// lock that it holds itself.
TEST_F(StartCheck, ACorruptBackupBringsTheFactoryCopyWithoutAWait) {
  make_dirs("/vexanvbak/data");
  put_item(kFactory, {"cfg", 7, "k", 6, "factory!"});
  put_item(kPrimary, {"cfg", 7, "k", 6, "eight by"});
  put_item(kBackup, {"cfg", 7, "k", 6, "previous"});
  damage_schema(kBackup);
  EXPECT_EQ(record(WS_WRITE_DONE, 8), 0);
  const LogCapture log;
  const auto start = std::chrono::steady_clock::now();

  EXPECT_EQ(check(), 0);

  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(VEXA_STORAGE_BUSY_MS / 2));
  EXPECT_EQ(log_count(log, "3 dm_write_db|ERROR: cp /vexanvbak/data/config.db /data/config.db"), 1u);
  EXPECT_EQ(read_file(kPrimary), read_file(kFactory));
}

TEST_F(StartCheck, ACorruptBackupWithoutAFactoryCopyCostsNothing) {
  put_item(kPrimary, {"cfg", 7, "k", 6, "eight by"});
  put_item(kBackup, {"cfg", 7, "k", 6, "previous"});
  damage_schema(kBackup);
  EXPECT_EQ(record(WS_WRITE_DONE, 8), 0);

  EXPECT_EQ(check(), 0);

  EXPECT_EQ(stored(kPrimary, "cfg", "k"), "eight by");
}

TEST_F(StartCheck, APrimaryThatOthersKeepLockedLeavesTheBackupAsItIs) {
  put_item(kPrimary, {"cfg", 7, "k", 6, "eight by"});
  put_item(kBackup, {"cfg", 7, "k", 6, "previous"});
  EXPECT_EQ(record(WS_WRITE_DONE, 8), 0);
  {
    const LockHolder other(kPrimary, "begin immediate", 60000);
    EXPECT_EQ(check(), 0);
  }
  EXPECT_EQ(stored(kBackup, "cfg", "k"), "previous");
  EXPECT_EQ(check(), 0);
  EXPECT_EQ(stored(kBackup, "cfg", "k"), "eight by");
}

TEST_F(StartCheck, TakesIdAndTypeFromTheJournal) {
  put_item(kPrimary, {"cfg", 1, "k", 1, "eight by"});
  EXPECT_EQ(dm_write_state_db("cfg", 42, "k", 5, 8, WS_WRITE_DONE), 0);

  EXPECT_EQ(check(), 0);

  EXPECT_EQ(rows(kBackup, "select id,type,len,value from cfg"), "42,5,8,eight by");
  EXPECT_EQ(rows(kPrimary, "select id,type from cfg"), "1,1");
}

TEST_F(StartCheck, CopiesNoOtherRecord) {
  put_item(kPrimary, {"cfg", 7, "k", 6, "eight by"});
  put_item(kPrimary, {"cfg", 8, "other", 6, "new"});
  put_item(kBackup, {"cfg", 8, "other", 6, "old"});
  EXPECT_EQ(record(WS_WRITE_DONE, 8), 0);

  EXPECT_EQ(check(), 0);

  EXPECT_EQ(rows(kBackup, "select key,value from cfg order by key"), "k,eight by\nother,old");
}

TEST_F(StartCheck, LeavesTheJournalAsItIs) {
  put_item(kPrimary, {"cfg", 7, "k", 6, "eight by"});
  EXPECT_EQ(record(WS_WRITE_DONE, 8), 0);
  const std::string before = read_file(kJournal);

  EXPECT_EQ(check(), 0);
  EXPECT_EQ(check(), 0);

  EXPECT_EQ(journal_row(kJournal), "cfg,7,k,6,8,101");
  EXPECT_EQ(read_file(kJournal), before);
}

TEST_F(StartCheck, ALengthBeyondTheValueTakesTheValue) {
  put_item(kPrimary, {"cfg", 7, "k", 6, "eight by"});
  EXPECT_EQ(record(WS_WRITE_DONE, 100), 0);

  EXPECT_EQ(check(), 0);

  EXPECT_EQ(rows(kBackup, "select len,value from cfg"), "8,eight by");
}

TEST_F(StartCheck, ALengthBelowTheValueFailsTheChecksum) {
  put_item(kPrimary, {"cfg", 7, "k", 6, "eight by"});
  EXPECT_EQ(record(WS_WRITE_DONE, 7), 0);

  EXPECT_EQ(check(), -102);

  EXPECT_FALSE(exists(kBackup));
}

TEST_F(StartCheck, ARecordThatFailsItsChecksumIsNotCopied) {
  put_item(kPrimary, {"cfg", 7, "k", 6, "eight by"}, 5);
  EXPECT_EQ(record(WS_WRITE_DONE, 8), 0);

  EXPECT_EQ(check(), -102);

  EXPECT_FALSE(exists(kBackup));
}

TEST_F(StartCheck, PassesThePrimarysCodesOn) {
  EXPECT_EQ(record(WS_WRITE_DONE, 8), 0);
  EXPECT_EQ(check(), -100) << "no table";
  put_item(kPrimary, {"cfg", 7, "other", 6, "x"});
  EXPECT_EQ(check(), -1) << "no row";
  unlink(kPrimary.c_str());
  make_dirs(kPrimary);
  EXPECT_EQ(check(), -101) << "not opened";
}

TEST_F(StartCheck, DoesNotLookAtTheResultOfTheCopy) {
  put_item(kPrimary, {"cfg", 7, "k", 6, "eight by"});
  EXPECT_EQ(record(WS_WRITE_DONE, 8), 0);
  make_dirs(kBackup);
  const LogCapture log;

  EXPECT_EQ(check(), 0);

  EXPECT_EQ(log_count(log, "3 dm_write_db|sqlite3_open failed: unable to open database file\n"), 1u);
}

// Else a damaged journal would end every process at every start.
TEST_F(StartCheck, ALengthThatNoPrimaryCouldHoldAsksForNoMoreThanThePrimary) {
  put_item(kPrimary, {"cfg", 7, "k", 6, "eight by"});
  EXPECT_EQ(record(WS_WRITE_DONE, INT_MAX), 0);

  const ChildResult result = run_in_child([] {
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    const rlimit one_gigabyte = {1u << 30, 1u << 30};
    setrlimit(RLIMIT_AS, &one_gigabyte);
#endif
    EXPECT_EQ(check(), 0);
  });

  EXPECT_EQ(result.exit_code, 0) << result.out << result.err;
  EXPECT_EQ(stored(kBackup, "cfg", "k"), "eight by");
}

TEST_F(StartCheck, WithoutMemoryForTheValueStopsTheProcess) {
  VEXA_NOT_EMULATED("the emulator sets no limit to the address space");
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the sanitizer's own address space does not fit under a limit";
#endif
  put_item(kPrimary, {"cfg", 7, "k", 6, "eight by"});
  EXPECT_EQ(truncate(kPrimary.c_str(), off_t{1} << 30), 0);  // a sparse file
  EXPECT_EQ(record(WS_WRITE_DONE, INT_MAX), 0);

  const ChildResult result = run_in_child([] {
    const rlimit one_gigabyte = {1u << 30, 1u << 30};
    setrlimit(RLIMIT_AS, &one_gigabyte);
    dm_sqlite_check_database();
  });

  EXPECT_EQ(result.signal, SIGABRT);
  EXPECT_THAT(result.out, ::testing::MatchesRegex("sqlite3/src/vexa_dm_sqlite, line: [0-9]+\n"));
}

TEST_F(JournalRead, RefusesEachNull) {
  const LogCapture log;

  EXPECT_EQ(dm_read_state_db(nullptr, key_.data(), &id_, &type_, &len_, &state_), -1);
  EXPECT_EQ(dm_read_state_db(table_.data(), nullptr, &id_, &type_, &len_, &state_), -1);
  EXPECT_EQ(dm_read_state_db(table_.data(), key_.data(), nullptr, &type_, &len_, &state_), -1);
  EXPECT_EQ(dm_read_state_db(table_.data(), key_.data(), &id_, nullptr, &len_, &state_), -1);
  EXPECT_EQ(dm_read_state_db(table_.data(), key_.data(), &id_, &type_, nullptr, &state_), -1);
  EXPECT_EQ(dm_read_state_db(table_.data(), key_.data(), &id_, &type_, &len_, nullptr), -1);

  EXPECT_TRUE(log_is(log, std::vector<std::string>(6, "3 dm_read_state_db|dm_read_state_db NULL\n")));
  EXPECT_FALSE(exists(kJournal));
}

// A table that cannot take columns: a view.
TEST_F(JournalWrite, OfAnOldBuildThatCannotBeMigratedSaysSo) {
  exec_sql(kJournal,
           "create table old (key text,item_table text,item_key text,len integer,state integer);"
           "insert into old values('write_state','old','o',1,102); create view state as select * from old; "
           "create trigger u instead of update on state begin select 1; end");
  const LogCapture log;

  EXPECT_EQ(record(WS_READY), -1);

  const std::string update = update_text(100);
  EXPECT_TRUE(log_is(log,
                     {"3 dm_write_state_db|szSql: " + update + ", rc: 1, szErrMsg: no such column: id\n",
                      "3 dm_write_state_db|alter_table_add_column failed\n",
                      "3 dm_write_state_db|[LINE] update error, <any>\n",
                      "3 dm_write_state_db|error when szSql: " + update + ", rc: 1\n"},
                     "dm_write_state_db"));
}

// The command that removes the journal is the device's own, and may leave something in its place.
TEST_F(JournalWrite, ThatCannotBeMadeAnewSaysSo) {
  EXPECT_EQ(record(WS_READY), 0);
  exec_sql(kJournal, "create trigger no before update on state begin select raise(abort,'refused'); end");
  make_dirs("/tmp/commands");
  write_file("/tmp/commands/rm", "#!/bin/sh\n/bin/rm -f \"$2\"\nmkdir \"$2\"\n");
  ASSERT_EQ(chmod("/tmp/commands/rm", 0755), 0);
  const std::string path = getenv("PATH");
  ASSERT_EQ(setenv("PATH", ("/tmp/commands:" + path).c_str(), 1), 0);
  const LogCapture log;

  EXPECT_EQ(record(WS_WRITE_DONE), -1);

  EXPECT_EQ(log_count(log, "3 dm_write_state_db|Can't create database: unable to open database file\n"), 1u);
}

TEST_F(JournalRead, OfAnOldBuildThatCannotBeMigratedSaysSo) {
  exec_sql(kJournal,
           "create table old (key text,item_table text,item_key text,len integer,state integer);"
           "insert into old values('write_state','cfg','k',8,101); create view state as select * from old");
  const LogCapture log;

  EXPECT_EQ(read(), -1);

  EXPECT_EQ(log_count(log, "3 dm_read_state_db|alter_table_add_column failed\n"), 1u);
}

}  // namespace
}  // namespace vexa_test
