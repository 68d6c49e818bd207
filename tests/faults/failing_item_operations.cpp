// SPDX-License-Identifier: MIT
// The storage backend's functions on items, at starts, and on the whole store.
#include <csignal>
#include <cstdlib>

#include "faults/failing_answers.h"

namespace vexa_test {
namespace {

// ---- Items ----

std::int64_t write_wanted() { return CALL(dm_sqlite_write)(7, &g_wanted, kNewValue.data(), 9000); }

std::int64_t read_wanted() {
  return old_value(CALL(dm_sqlite_read)(7, &g_wanted, g_buffer, sizeof g_buffer));
}

bool wanted_is_new() { return look(g_wanted).found == kNew; }

std::int64_t start() {
  vexa_dm_backend_ops slots = {};
  CALL(sqlite_reg)(&slots);
  return slots.read_def_items_db_version == dm_sqlite_read_DefItemsDB_version ? 0 : 999;
}

// A writer that was killed in its transaction: SQLite's rollback journal is waiting.
void leave_hot_journal(const std::string& path) {
  const pid_t writer = fork();
  if (writer == 0) {
    sqlite3* db = nullptr;
    sqlite3_open(path.c_str(), &db);
    const char* const sql =
        "PRAGMA cache_size=1;BEGIN IMMEDIATE;create table filler (value blob);"
        "update cfg set value=randomblob(40000);insert into filler values(randomblob(200000));";
    _exit(sqlite3_exec(db, sql, nullptr, nullptr, nullptr) == SQLITE_OK ? 0 : 1);
  }
  int status = 0;
  waitpid(writer, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_GT(std::filesystem::file_size(path + "-journal"), 512u);
}

void prepare_interrupted() {
  prepare_store();
  put_item(kPrimary, {"cfg", 7, "wanted", 6, kNewValue});
  exec_sql(kJournal, "update state set item_table='cfg',item_key='wanted',id=7,type=6,len=9000,state=101");
}

void prepare_damaged() {
  prepare_store();
  damage_schema(kPrimary);
}

void prepare_killed() {
  prepare_store();
  leave_hot_journal(kPrimary);
}

std::vector<Operation> item_operations() {
  return {
      {.name = "WriteOfAnItem",
       .prepare = prepare_store,
       .run = write_wanted,
       .answers = kWriteAnswers,
       .kept = wanted_is_new,
       .given_up = "",
       .item = &g_wanted,
       .found = kOld | kNew,
       .found_at_start = kOld | kNew,
       .thorough = true},
      {.name = "WriteOfANewTable",
       .prepare = prepare_store,
       .run = [] { return std::int64_t{CALL(dm_sqlite_write)(7, &g_fresh, kNewValue.data(), 9000)}; },
       .answers = kWriteAnswers,
       .kept = [] { return look(g_fresh).found == kNew; },
       .given_up = "",
       .item = &g_fresh,
       .found = kMissing | kNew,
       .found_at_start = kMissing | kNew,
       .thorough = true},
      {.name = "WriteOfNothing",
       .prepare = prepare_store,
       .run = [] { return std::int64_t{CALL(dm_pal_write)("cfg", 7, "wanted", 6, "", 0)}; },
       .answers = kWriteAnswers,
       .kept = [] { return look(g_wanted).found == kMissing; },
       .given_up = "",
       .item = &g_wanted,
       .found = kOld | kMissing,
       .found_at_start = kOld | kMissing},
      {.name = "WriteAfterAKilledWriter",
       .prepare = prepare_killed,
       .run = write_wanted,
       .answers = kWriteAnswers,
       .kept = wanted_is_new,
       .given_up = "",
       .item = &g_wanted,
       .found = kOld | kNew,
       .found_at_start = kOld | kNew,
       .killed_writer = true},
      {.name = "WriteToADamagedPrimary",
       .prepare = prepare_damaged,
       .run = write_wanted,
       .answers = kWriteAnswers,
       .kept = wanted_is_new,
       .given_up = "",
       .item = &g_wanted,
       .found = kOld | kNew,
       .found_at_start = kOld | kNew,
       .thorough = true},
      {.name = "WriteToOneFile",
       .prepare = prepare_store,
       .run =
           [] {
             return std::int64_t{CALL(dm_write_db)(DB_CONFIG, "cfg", 7, "wanted", 6, kNewValue.data(), 9000)};
           },
       .answers = {{0},
                   {-1, "3 dm_write_db|[LINE] create table error rc=<any>\n", Line::kElsewhere},
                   {-101, "3 dm_write_db|sqlite3_open failed: <any>\n"}},
       .kept = [] { return look_in(DB_CONFIG, g_wanted).found == kNew; },
       .given_up = kRowOnly,
       .item = &g_wanted},
      {.name = "Read",
       .prepare = prepare_store,
       .run = read_wanted,
       .answers = kReadAnswers,
       .item = &g_wanted},
      {.name = "ReadWithoutTheLock",
       .prepare = prepare_store,
       .run = [] { return old_value(CALL(dm_pal_read)("cfg", "wanted", g_buffer, sizeof g_buffer)); },
       .answers = kReadAnswers,
       .item = &g_wanted},
      {.name = "ReadByKey",
       .prepare = prepare_store,
       .run = [] { return old_value(CALL(dm_pal_read_by_key)("cfg", "wanted", g_buffer, sizeof g_buffer)); },
       .answers = kReadAnswers,
       .item = &g_wanted},
      {.name = "ReadOfOneFile",
       .prepare = prepare_store,
       .run =
           [] {
             std::uint32_t crc = 0;
             return old_value(CALL(dm_read_db)(DB_CONFIG, "cfg", "wanted", g_buffer, &crc, sizeof g_buffer));
           },
       .answers = kReadAnswers,
       .item = &g_wanted},
      {.name = "ReadAfterAKilledWriter",
       .prepare = prepare_killed,
       .run = read_wanted,
       .answers = kReadAnswers,
       .item = &g_wanted,
       .killed_writer = true},
      {.name = "ReadOfADamagedPrimary",
       .prepare = prepare_damaged,
       .run = read_wanted,
       .answers = kReadAnswers,
       .item = &g_wanted,
       .thorough = true},
  };
}

// ---- Starts, checks, versions ----

std::vector<Answer> start_up_answers() {
  std::vector<Answer> answers = kJournalReadAnswers;
  answers.insert(answers.end(),
                 {{-1, "3 dm_read_db|sqlite3_step error <any>\n", Line::kElsewhere},
                  {-100, "3 dm_read_db|[LINE] sqlite3_prepare error, <any> \n", Line::kElsewhere},
                  {-101, "3 dm_read_db|sqlite3_open failed: <any>\n", Line::kElsewhere}});
  return answers;
}

std::int64_t read_item_version() {
  std::uint8_t version[4] = {};
  const std::int64_t code = signed_code(CALL(dm_sqlite_read_CfgDB_version)(version));
  return code < 0 || std::memcmp(version, "\x01\x00\x01\x00", 4) == 0 ? code : 999;
}

std::int64_t read_default_version() {
  std::uint8_t version[4] = {};
  const std::int64_t code = signed_code(CALL(dm_sqlite_read_DefItemsDB_version)(version));
  if (code == 4) return std::memcmp(version, "\x01\x00\x01\x00", 4) == 0 ? 1 : 999;
  return code;
}

std::vector<Operation> start_operations() {
  return {
      {.name = "FirstStart",
       .prepare = [] {},
       .run = start,
       .answers = {{0}},
       .item = &g_wanted,
       .found = kMissing,
       .found_at_start = kMissing,
       .keeps_other = false},
      {.name = "Start", .prepare = prepare_store, .run = start, .answers = {{0}}, .item = &g_wanted},
      {.name = "StartAfterACut",
       .prepare = prepare_interrupted,
       .run = start,
       .answers = {{0}},
       .kept =
           [] { return look(g_wanted).found == kNew || journal_row(kJournal) == "cfg,7,wanted,6,9000,101"; },
       .given_up = kTakenForNew,
       .item = &g_wanted,
       .found = kOld | kNew,
       .found_at_start = kOld | kNew,
       .assertion = kNoMemory,
       .thorough = true},
      {.name = "StartUpCheck",
       .prepare = prepare_interrupted,
       .run = [] { return signed_code(CALL(dm_sqlite_check_database)()); },
       .answers = start_up_answers(),
       .item = &g_wanted,
       .found = kOld | kNew,
       .found_at_start = kNew,
       .assertion = kNoMemory},
      {.name = "HealthCheck",
       .prepare = prepare_store,
       .run = [] { return signed_code(CALL(check_database_health)(DB_CONFIG)); },
       .answers = kHealthAnswers,
       .item = &g_wanted},
      {.name = "HealthCheckAfterAKilledWriter",
       .prepare = prepare_killed,
       .run = [] { return signed_code(check_database_health(DB_CONFIG)); },
       .answers = kHealthAnswers,
       .item = &g_wanted,
       .killed_writer = true},
      {.name = "HealthRowOfGoodNews",
       .run =
           [] {
             std::uint32_t flag = 7;
             char ok[] = "ok";
             char* values[] = {ok, nullptr};
             const int code = CALL(integrity_check_callback)(&flag, 2, values, nullptr);
             return std::int64_t{code == 0 && flag == 0 ? 0 : 999};
           },
       .answers = {{0}},
       .reach = Reach::kNothing},
      {.name = "HealthRowOfBadNews",
       .run =
           [] {
             std::uint32_t flag = 7;
             char problem[] = "row 1 missing from index i";
             char* values[] = {problem};
             const int code = CALL(integrity_check_callback)(&flag, 1, values, nullptr);
             return std::int64_t{code == 0 && flag == 1 ? 0 : 999};
           },
       .answers = {{0,
                    "3 integrity_check_callback|[ERROR] Corruption detected: row 1 missing from index i\n"}}},
      {.name = "VersionMatch",
       .prepare = prepare_store,
       .run =
           [] {
             std::uint8_t matched = 2;
             CALL(sqlite_chk_db_ver_match)(&matched);
             return std::int64_t{matched};
           },
       .answers = kMatchAnswers,
       .item = &g_wanted},
      {.name = "VersionOfTheItems",
       .prepare = prepare_store,
       .run = read_item_version,
       .answers = kVersionAnswersOf4,
       .item = &g_wanted},
      {.name = "VersionOfTheDefaults",
       .prepare = prepare_store,
       .run = read_default_version,
       .answers = kDefaultReadAnswers,
       .item = &g_wanted},
      {.name = "PresenceOfTheFiles",
       .prepare = prepare_store,
       .run = [] { return signed_code(CALL(dm_pal_check_db_exist)()); },
       .answers = {{0, "2 dm_pal_check_db_exist|config && configbak all exist\n"}, {-1}},
       .item = &g_wanted},
      {.name = "StoreArea",
       .run =
           [] {
             const bool moved = CALL(sqlite_reg_store_area)("/data/", "/data/") == 0;
             return std::int64_t{moved && std::strcmp(DB_CONFIGBAK, "/data/configbak.db") == 0 ? 0 : 999};
           },
       .answers = {{0}},
       .reach = Reach::kNothing},
      {.name = "Deletion",
       .run = [] { return signed_code(CALL(dm_pal_delete)()); },
       .answers = {{0}},
       .reach = Reach::kNothing},
  };
}

}  // namespace

std::vector<Operation> storage_item_operations() {
  std::vector<Operation> all = item_operations();
  for (const Operation& operation : start_operations()) all.push_back(operation);
  return all;
}

}  // namespace vexa_test
