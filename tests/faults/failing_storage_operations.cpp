// SPDX-License-Identifier: MIT
// The storage backend's functions.
#include <sqlite3.h>

#include <csignal>
#include <cstdlib>

#include "faults/failing_operations.h"

namespace vexa_test {
namespace {

// The caveats' words, see fault_case.h for those of an item that is written.
constexpr char kRowOnly[] = "0 once the table exists";
constexpr char kVersionAnswers[] = "the first default answers for the version record";
constexpr char kCsvCut[] = "0 with a CSV that is cut short";
constexpr char kNoDatedCopy[] = "cleaned without the dated copy";
constexpr char kOutputCut[] = "0 with a command's output cut short";

constexpr char kTakenForNew[] = "a start that took an unreadable store for a new one";

constexpr char kNoMemory[] = "sqlite3/src/vexa_dm_sqlite, line: ";

const std::vector<Answer> kWriteAnswers = {{0}, {-1, "3 dm_pal_write|dm_update_db: \n"}};
const std::vector<Answer> kReadAnswers = {
    {1},
    {-1, "3 dm_read_db|sqlite3_step error <any>\n", Line::kElsewhere},
    {-100, "3 dm_read_db|[LINE] sqlite3_prepare error, <any> \n", Line::kElsewhere},
    {-101, "3 dm_read_db|sqlite3_open failed: <any>\n", Line::kElsewhere}};
const std::vector<Answer> kVersionAnswersOf4 = {
    {4},
    {-1, "3 dm_read_db|sqlite3_step error <any>\n", Line::kElsewhere},
    {-100, "3 dm_read_db|[LINE] sqlite3_prepare error, <any> \n", Line::kElsewhere},
    {-101, "3 dm_read_db|sqlite3_open failed: <any>\n", Line::kElsewhere}};
const std::vector<Answer> kHealthAnswers = {
    {0},
    {1, "3 integrity_check_callback|[ERROR] Corruption detected: <any>\n", Line::kElsewhere},
    {1, "3 check_database_health|<any> corruption detected: <any> (Code: 11)\n"},
    {1, "3 check_database_health|Database is corrupted upon opening: <any> (Code: 11)\n"},
    {-1, "3 check_database_health|Open failed: <any> (Code: <any>)\n"},
    {-2, "3 check_database_health|<any> Quick check error: <any> (Code: <any>)\n"}};
const std::vector<Answer> kJournalWriteAnswers = {
    {0},
    {-1, "3 dm_write_state_db|sqlite3_open failed: <any>\n"},
    {-1, "3 dm_write_state_db|[LINE] create table error, <any>\n"},
    {-1, "3 dm_write_state_db|error when szSql: <any>, rc: <any>\n"},
    {-1, "3 dm_write_state_db|[LINE] insert error, <any>\n"},
    {-1, "3 dm_record_exist|[LINE] get table existence error: <any>\n"}};
// SQLite's codes of opening a file come through; of reading, the warning tells.
const std::vector<Answer> kJournalReadAnswers = {
    {0},
    {-1, "2 dm_read_state_db|errmsg <any>\n", Line::kElsewhere},
    {SQLITE_NOMEM, "3 dm_read_state_db|sqlite3_open failed: <any>\n", Line::kElsewhere},
    {SQLITE_IOERR, "3 dm_read_state_db|sqlite3_open failed: <any>\n", Line::kElsewhere},
    {SQLITE_CANTOPEN, "3 dm_read_state_db|sqlite3_open failed: <any>\n", Line::kElsewhere}};
const std::vector<Answer> kDefaultWriteAnswers = {
    {0},
    {-1, "3 dm_write_def_db|[LINE] create table error, <any>\n"},
    {-101, "3 dm_write_def_db|sqlite3_open failed: <any>\n"}};
// Two writes, of which the version record's answers.
const std::vector<Answer> kFirstDefaultAnswers = {
    {0},
    {-1, "3 dm_write_def_db|[LINE] create table error, <any>\n", Line::kElsewhere},
    {-101, "3 dm_write_def_db|sqlite3_open failed: <any>\n", Line::kElsewhere}};
const std::vector<Answer> kDefaultReadAnswers = {
    {1},
    {-1, "3 dm_read_def_db|sqlite3_step error <any>\n"},
    {-100, "3 dm_read_def_db|[LINE] sqlite3_prepare error, <any>\n"},
    {-101, "3 dm_read_def_db|sqlite3_open failed: <any>\n"}};
const std::vector<Answer> kCleanAnswers = {
    {0},
    {-1, "3 dm_sqlite_system_cmd|system command failed: (<any>) <any>\n"},
    {-1, "3 dm_sqlite_clean|unlink error: <any>\n"},
    {-1, "3 dm_sqlite_clean|unlink bak error: <any>\n"},
    {-1, "3 dm_sqlite_clean|unlink state error: <any>\n"}};
const std::vector<Answer> kMatchAnswers = {{1},
                                           {2, "3 sqlite_chk_db_ver_match|tmp_sqlite_ver read fail\n"},
                                           {2, "3 sqlite_chk_db_ver_match|tmp_DefItems_db_ver read fail\n"}};
const std::vector<Answer> kExportAnswers = {
    {0}, {-101, "3 dm_read_all_tabs_from_db|sqlite3_open failed: <any>\n"}, {4}};
const std::vector<Answer> kPresenceAnswers = {
    {1}, {0, "3 dm_record_exist|[LINE] get table existence error: <any>\n"}};
const std::vector<Answer> kColumnAnswers = {{0},
                                            {-1, "2 alter_table_add_column|<any>\n", Line::kElsewhere},
                                            {-1, "3 alter_table_add_column|<any>\n", Line::kElsewhere}};

std::int64_t signed_code(std::uint32_t code) { return static_cast<std::int32_t>(code); }

// ---- Items ----

std::int64_t old_value(std::int32_t code) {
  return code < 0 ? code : (identify(code, g_buffer).found == kOld ? 1 : 999);
}

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
       .found_at_start = kOld | kNew},
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
       .item = &g_wanted},
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
       .item = &g_wanted},
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

// ---- Journal and tables ----

char g_table[33];
char g_key[33];
std::int32_t g_numbers[4];

std::int64_t write_state() { return CALL(dm_write_state_db)("cfg", 7, "wanted", 6, 3000, 100); }

std::int64_t read_state() {
  const std::int32_t code =
      CALL(dm_read_state_db)(g_table, g_key, &g_numbers[0], &g_numbers[1], &g_numbers[2], &g_numbers[3]);
  if (code != 0) return code;
  return std::strcmp(g_table, "cfg") == 0 && std::strcmp(g_key, "wanted") == 0 && g_numbers[3] == 102 ? 0
                                                                                                      : 999;
}

// The one row there is.
bool state_is_written() { return journal_row(kJournal) == "cfg,7,wanted,6,3000,100"; }

// As builds before the columns id and type left it.
void prepare_old_journal() {
  prepare_store();
  exec_sql(
      kJournal,
      "drop table state;create table state (key text not null,item_table text not null,item_key text not "
      "null,len integer,state integer);"
      "insert into state values('write_state','cfg','wanted',3000,102)");
}

// Every update fails, and not for a column: the journal is made anew.
void prepare_refusing_journal() {
  prepare_store();
  exec_sql(kJournal, "create trigger no before update on state begin select raise(fail, 'no'); end");
}

sqlite3* g_db = nullptr;
std::FILE* g_csv = nullptr;

// The first statement loads the schema, and the connection keeps it.
void open_primary() {
  sqlite3_open(DB_CONFIG, &g_db);
  sqlite3_exec(g_db, "select 1 from cfg", nullptr, nullptr, nullptr);
}

void close_primary() { sqlite3_close(g_db); }

void prepare_old_table() {
  prepare_store();
  exec_sql("/data/old.db", "create table old (key text, value blob);insert into old values('k', 'v')");
}

std::vector<Operation> journal_operations() {
  return {
      {.name = "JournalWrite",
       .prepare = prepare_store,
       .run = write_state,
       .answers = kJournalWriteAnswers,
       .kept = state_is_written,
       .item = &g_wanted},
      {.name = "JournalWriteToAnOldTable",
       .prepare = prepare_old_journal,
       .run = write_state,
       .answers = kJournalWriteAnswers,
       .kept = state_is_written,
       .item = &g_wanted},
      {.name = "JournalMadeAnew",
       .prepare = prepare_refusing_journal,
       .run = write_state,
       .answers = kJournalWriteAnswers,
       .item = &g_wanted,
       .below_libc = true},
      {.name = "JournalRead",
       .prepare = prepare_store,
       .run = read_state,
       .answers = kJournalReadAnswers,
       .item = &g_wanted},
      {.name = "JournalReadOfAnOldTable",
       .prepare = prepare_old_journal,
       .run = read_state,
       .answers = kJournalReadAnswers,
       .item = &g_wanted},
      {.name = "PresenceOfARow",
       .prepare = prepare_store,
       .before = open_primary,
       .run = [] { return std::int64_t{CALL(dm_record_exist)(g_db, "cfg", "wanted")}; },
       .after = close_primary,
       .answers = kPresenceAnswers,
       .item = &g_wanted,
       .keeps_memory = true},
      {.name = "MissingColumns",
       .prepare = prepare_old_table,
       .before = [] { sqlite3_open("/data/old.db", &g_db); },
       .run = [] { return std::int64_t{CALL(alter_table_add_column)(g_db, "old", "k")}; },
       .after = close_primary,
       .answers = kColumnAnswers,
       .kept =
           [] { return rows("/data/old.db", "select key,value,id,type from old") == "k,v,<null>,<null>"; },
       .item = &g_wanted,
       .keeps_memory = true},
  };
}

// ---- Defaults ----

vexa_dm_item_desc g_default = {};
const char* g_bytes = nullptr;

void describe_default() {
  g_default = item_desc("cfg", "wanted", 6);
  g_bytes = kNewValue.data();
}

bool default_is_new() { return look_at_default().found == kNew; }

std::vector<Operation> default_operations() {
  return {
      {.name = "WriteOfADefault",
       .prepare = prepare_store,
       .run = [] { return std::int64_t{CALL(dm_write_def_db)("cfg", "wanted", 6, kNewValue.data(), 9000)}; },
       .answers = kDefaultWriteAnswers,
       .kept = default_is_new,
       .given_up = kRowOnly,
       .item = &g_wanted,
       .thorough = true},
      {.name = "WriteOfAFirstDefault",
       .prepare = prepare_store,
       .before = describe_default,
       .run = [] { return signed_code(CALL(dm_sqlite_def_db_const)(7, &g_default, &g_bytes, 9000)); },
       .answers = kFirstDefaultAnswers,
       .kept = default_is_new,
       .given_up = kVersionAnswers,
       .item = &g_wanted},
      {.name = "ReadOfADefault",
       .prepare = prepare_store,
       .run =
           [] {
             std::int32_t type = 0;
             const std::int32_t code =
                 CALL(dm_read_def_db)("cfg", "wanted", &type, g_buffer, sizeof g_buffer);
             return code >= 0 && type != 6 ? 999 : old_value(code);
           },
       .answers = kDefaultReadAnswers,
       .item = &g_wanted},
      {.name = "ReadOfADefaultByDescriptor",
       .prepare = prepare_store,
       .before = describe_default,
       .run =
           [] {
             const std::int32_t code = CALL(dm_sqlite_def_db_read)(7, &g_default, g_buffer, sizeof g_buffer);
             return g_default.type != (code < 0 ? 0 : 6) ? 999 : old_value(code);
           },
       .answers = kDefaultReadAnswers,
       .item = &g_wanted},
  };
}

// ---- Commands, clean, export ----

char g_backup_wish[] = "backup";
char g_output[16];

const std::string kDatedPlace = "/mnt/vendor/nvdata/";

// Whether the dated copy whose name ends so holds the item. Not read by the library: that would
// repair the primary where the copy is cut short.
bool dated_copy_is_good(const std::string& ending) {
  for (const std::string& name : names_in(kDatedPlace)) {
    if (!name.ends_with(ending) || name.starts_with("2023")) continue;
    if (stored(kDatedPlace + name, "cfg", "wanted") == kOldValue) return true;
  }
  return false;
}

bool store_is_gone() { return !std::filesystem::exists(kPrimary) && !std::filesystem::exists(kJournal); }

void prepare_three_copies() {
  prepare_store();
  for (const char* name : {"2023-01-01_00_00_00.db1", "2023-01-02_00_00_00.db2", "2023-01-03_00_00_00.db3"}) {
    std::filesystem::copy_file(kPrimary, kDatedPlace + name);
  }
}

const std::string kCsv(
    "key,len,type,value,\r\n\0"
    "SQL_VER_KEY,4,3,65537,\r\n\0"
    "other,700,6,589505315,\r\n\0"
    "wanted,3000,6,1869573999,\r\n\0",
    22 + 25 + 25 + 28);

bool csv_is_whole() {
  std::FILE* const stream = std::fopen(kExport.c_str(), "rbe");
  if (stream == nullptr) return false;
  std::string bytes(4096, '\0');
  bytes.resize(std::fread(bytes.data(), 1, bytes.size(), stream));
  std::fclose(stream);
  return bytes == kCsv;
}

std::uintmax_t size_of(const std::string& path) {
  std::error_code none;
  const std::uintmax_t size = std::filesystem::file_size(path, none);
  return none ? 0 : size;
}

void open_primary_and_csv() {
  open_primary();
  g_csv = std::fopen("/data/table.csv", "we");
}

void close_primary_and_csv() {
  close_primary();
  std::fclose(g_csv);
}

std::vector<Operation> file_operations() {
  return {
      {.name = "Command",
       .prepare = prepare_store,
       .before = [] { std::memset(g_output, 0, sizeof g_output); },
       .run = [] { return signed_code(CALL(dm_sqlite_system_cmd)("printf 1234567", g_output, 5)); },
       .answers = {{0}, {-1, "3 dm_sqlite_system_cmd|system command failed: (<any>) <any>\n"}},
       .kept = [] { return std::strcmp(g_output, "12345") == 0; },
       .given_up = kOutputCut,
       .silent_loss = true,
       .item = &g_wanted,
       .below_libc = true},
      {.name = "Clean",
       .prepare = prepare_store,
       .run = [] { return signed_code(CALL(dm_sqlite_clean)(g_backup_wish)); },
       .answers = kCleanAnswers,
       .kept = [] { return store_is_gone() && dated_copy_is_good(".db1"); },
       .given_up = kNoDatedCopy,
       .silent_loss = true,
       .item = &g_wanted,
       .found = kOld | kMissing,
       .found_at_start = kOld | kMissing,
       .keeps_other = false,
       .thorough = true,
       .below_libc = true},
      {.name = "CleanWithoutACopy",
       .prepare = prepare_store,
       .run = [] { return signed_code(CALL(dm_sqlite_clean)(nullptr)); },
       .answers = kCleanAnswers,
       .kept = store_is_gone,
       .item = &g_wanted,
       .found = kOld | kMissing,
       .found_at_start = kOld | kMissing,
       .keeps_other = false},
      {.name = "CleanWithRotation",
       .prepare = prepare_three_copies,
       .run = [] { return signed_code(CALL(dm_sqlite_clean)(g_backup_wish)); },
       .answers = kCleanAnswers,
       .kept =
           [] {
             return store_is_gone() && names_in(kDatedPlace).size() == 3 && dated_copy_is_good(".db3") &&
                    std::filesystem::exists(kDatedPlace + "2023-01-03_00_00_00.db2");
           },
       .given_up = kNoDatedCopy,
       .silent_loss = true,
       .item = &g_wanted,
       .found = kOld | kMissing,
       .found_at_start = kOld | kMissing,
       .keeps_other = false,
       .below_libc = true},
      {.name = "Export",
       .prepare = prepare_store,
       .run = [] { return signed_code(CALL(dm_read_all_tabs_from_db)(DB_CONFIG)); },
       .answers = kExportAnswers,
       .kept = csv_is_whole,
       .given_up = kCsvCut,
       .silent_loss = true,
       .item = &g_wanted,
       .below_libc = true},
      {.name = "ExportOfOneTable",
       .prepare = prepare_store,
       .before = open_primary_and_csv,
       .run =
           [] {
             CALL(dm_export_by_table)(g_db, "net", g_csv);
             return std::int64_t{std::fflush(g_csv) * 0};
           },
       .after = close_primary_and_csv,
       .answers = {{0}},
       .kept = [] { return size_of("/data/table.csv") == 25; },
       .given_up = kCsvCut,
       .silent_loss = true,
       .item = &g_wanted,
       .keeps_memory = true,
       .below_libc = true},
      {.name = "ExportOfAListedTable",
       .prepare = prepare_store,
       .before = open_primary,
       .run =
           [] {
             char table[] = "net";
             char column[] = "name";
             char* values[] = {table};
             char* names[] = {column};
             return std::int64_t{CALL(dm_sqlite_db2csv_cb)(g_db, 1, values, names)};
           },
       .after = close_primary,
       .answers = {{0}, {4}},
       .kept = [] { return size_of(kExport) == 25; },
       .given_up = kCsvCut,
       .silent_loss = true,
       .item = &g_wanted,
       .keeps_memory = true,
       .below_libc = true},
  };
}

void append(std::vector<Operation>& all, const std::vector<Operation>& more) {
  all.insert(all.end(), more.begin(), more.end());
}

}  // namespace

std::vector<Operation> storage_operations() {
  std::vector<Operation> all;
  for (const auto& part : {item_operations(), start_operations(), journal_operations(), default_operations(),
                           file_operations()}) {
    append(all, part);
  }
  return all;
}

}  // namespace vexa_test
