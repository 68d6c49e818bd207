// SPDX-License-Identifier: MIT
// The storage backend's functions on its other files: journal, defaults, dated copies, export.
#include <cstdlib>

#include "faults/failing_answers.h"

namespace vexa_test {
namespace {

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

}  // namespace

std::vector<Operation> storage_file_operations() {
  std::vector<Operation> all = journal_operations();
  for (const auto& part : {default_operations(), file_operations()}) {
    all.insert(all.end(), part.begin(), part.end());
  }
  return all;
}

}  // namespace vexa_test
