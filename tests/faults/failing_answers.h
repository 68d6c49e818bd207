// SPDX-License-Identifier: MIT
// What the storage backend's functions may answer, and the lines that go with it.
#ifndef VEXADM_TESTS_FAULTS_FAILING_ANSWERS_H
#define VEXADM_TESTS_FAULTS_FAILING_ANSWERS_H

#include <sqlite3.h>

#include "faults/failing_operations.h"

namespace vexa_test {

// The caveats' words, see fault_case.h for those of an item that is written.
inline constexpr char kRowOnly[] = "0 once the table exists";
inline constexpr char kVersionAnswers[] = "the first default answers for the version record";
inline constexpr char kCsvCut[] = "0 with a CSV that is cut short";
inline constexpr char kNoDatedCopy[] = "cleaned without the dated copy";
inline constexpr char kOutputCut[] = "0 with a command's output cut short";
inline constexpr char kTakenForNew[] = "a start that took an unreadable store for a new one";

inline constexpr char kNoMemory[] = "sqlite3/src/vexa_dm_sqlite, line: ";

inline const std::vector<Answer> kWriteAnswers = {{0}, {-1, "3 dm_pal_write|dm_update_db: \n"}};
inline const std::vector<Answer> kReadAnswers = {
    {1},
    {-1, "3 dm_read_db|sqlite3_step error <any>\n", Line::kElsewhere},
    {-100, "3 dm_read_db|[LINE] sqlite3_prepare error, <any> \n", Line::kElsewhere},
    {-101, "3 dm_read_db|sqlite3_open failed: <any>\n", Line::kElsewhere}};
inline const std::vector<Answer> kVersionAnswersOf4 = {
    {4},
    {-1, "3 dm_read_db|sqlite3_step error <any>\n", Line::kElsewhere},
    {-100, "3 dm_read_db|[LINE] sqlite3_prepare error, <any> \n", Line::kElsewhere},
    {-101, "3 dm_read_db|sqlite3_open failed: <any>\n", Line::kElsewhere}};
inline const std::vector<Answer> kHealthAnswers = {
    {0},
    {1, "3 integrity_check_callback|[ERROR] Corruption detected: <any>\n", Line::kElsewhere},
    {1, "3 check_database_health|<any> corruption detected: <any> (Code: 11)\n"},
    {1, "3 check_database_health|Database is corrupted upon opening: <any> (Code: 11)\n"},
    {-1, "3 check_database_health|Open failed: <any> (Code: <any>)\n"},
    {-2, "3 check_database_health|<any> Quick check error: <any> (Code: <any>)\n"}};
inline const std::vector<Answer> kJournalWriteAnswers = {
    {0},
    {-1, "3 dm_write_state_db|sqlite3_open failed: <any>\n"},
    {-1, "3 dm_write_state_db|[LINE] create table error, <any>\n"},
    {-1, "3 dm_write_state_db|error when szSql: <any>, rc: <any>\n"},
    {-1, "3 dm_write_state_db|[LINE] insert error, <any>\n"},
    {-1, "3 dm_record_exist|[LINE] get table existence error: <any>\n"}};
// SQLite's codes of opening a file come through; of reading, the warning tells.
inline const std::vector<Answer> kJournalReadAnswers = {
    {0},
    {-1, "2 dm_read_state_db|errmsg <any>\n", Line::kElsewhere},
    {SQLITE_NOMEM, "3 dm_read_state_db|sqlite3_open failed: <any>\n", Line::kElsewhere},
    {SQLITE_IOERR, "3 dm_read_state_db|sqlite3_open failed: <any>\n", Line::kElsewhere},
    {SQLITE_CANTOPEN, "3 dm_read_state_db|sqlite3_open failed: <any>\n", Line::kElsewhere}};
inline const std::vector<Answer> kDefaultWriteAnswers = {
    {0},
    {-1, "3 dm_write_def_db|[LINE] create table error, <any>\n"},
    {-101, "3 dm_write_def_db|sqlite3_open failed: <any>\n"}};
// Two writes, of which the version record's answers.
inline const std::vector<Answer> kFirstDefaultAnswers = {
    {0},
    {-1, "3 dm_write_def_db|[LINE] create table error, <any>\n", Line::kElsewhere},
    {-101, "3 dm_write_def_db|sqlite3_open failed: <any>\n", Line::kElsewhere}};
inline const std::vector<Answer> kDefaultReadAnswers = {
    {1},
    {-1, "3 dm_read_def_db|sqlite3_step error <any>\n"},
    {-100, "3 dm_read_def_db|[LINE] sqlite3_prepare error, <any>\n"},
    {-101, "3 dm_read_def_db|sqlite3_open failed: <any>\n"}};
inline const std::vector<Answer> kCleanAnswers = {
    {0},
    {-1, "3 dm_sqlite_system_cmd|system command failed: (<any>) <any>\n"},
    {-1, "3 dm_sqlite_clean|unlink error: <any>\n"},
    {-1, "3 dm_sqlite_clean|unlink bak error: <any>\n"},
    {-1, "3 dm_sqlite_clean|unlink state error: <any>\n"}};
inline const std::vector<Answer> kMatchAnswers = {
    {1},
    {2, "3 sqlite_chk_db_ver_match|tmp_sqlite_ver read fail\n"},
    {2, "3 sqlite_chk_db_ver_match|tmp_DefItems_db_ver read fail\n"}};
inline const std::vector<Answer> kExportAnswers = {
    {0}, {-101, "3 dm_read_all_tabs_from_db|sqlite3_open failed: <any>\n"}, {4}};
inline const std::vector<Answer> kPresenceAnswers = {
    {1}, {0, "3 dm_record_exist|[LINE] get table existence error: <any>\n"}};
inline const std::vector<Answer> kColumnAnswers = {
    {0},
    {-1, "2 alter_table_add_column|<any>\n", Line::kElsewhere},
    {-1, "3 alter_table_add_column|<any>\n", Line::kElsewhere}};

// 1 for the bytes that the device has had before.
inline std::int64_t old_value(std::int32_t code) {
  return code < 0 ? code : (identify(code, g_buffer).found == kOld ? 1 : 999);
}

inline std::int64_t signed_code(std::uint32_t code) { return static_cast<std::int32_t>(code); }

}  // namespace vexa_test

#endif
