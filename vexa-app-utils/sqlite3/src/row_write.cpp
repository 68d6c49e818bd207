// SPDX-License-Identifier: MIT
#include "sqlite3/src/row_write.h"

#include "log/call_site.h"
#include "sqlite3/src/storage.h"

namespace vexa::storage {
namespace {

int prepare(Database& db, const RowWrite& row, Statement& statement) {
  const int code = sqlite3_prepare_v2(db.get(), row.sql, -1, statement.receive(), nullptr);
  if (code == SQLITE_OK) return code;
  if (row.with_rc_label) {
    VEXA_LOG(log::kError, row.function, "[%d] sqlite3_prepare error, rc: %d\n", __LINE__, code);
  } else {
    VEXA_LOG(log::kError, row.function, "[%d] sqlite3_prepare error, %d\n", __LINE__, code);
  }
  statement.finalize();
  return code;
}

void log_bind_failure(const RowWrite& row, int code) {
  if (row.with_rc_label) {
    VEXA_LOG(log::kError, row.function, "[%d] bind_blob error, rc: %d\n", __LINE__, code);
  } else {
    VEXA_LOG(log::kError, row.function, "[%d] bind_blob error, %d\n", __LINE__, code);
  }
}

void log_step_failure(const char* function, int code) {
  VEXA_LOG(log::kError, function, "%d step failed rc: %d\n", __LINE__, code);
}

}  // namespace

bool write_row(Database& db, const RowWrite& row) {
  Statement statement;
  if (prepare(db, row, statement) != SQLITE_OK) {
    if (alter_table_add_column(db.get(), row.table, row.key) != 0) {
      VEXA_LOG(log::kError, row.function, "alter_table_add_column failed\n");
      return false;
    }
    if (prepare(db, row, statement) != SQLITE_OK) return false;
  }
  if (const int bound = sqlite3_bind_blob(statement.get(), 1, row.data, row.length, SQLITE_STATIC);
      bound != SQLITE_OK) {
    log_bind_failure(row, bound);
    return false;
  }
  const int stepped = sqlite3_step(statement.get());
  if (stepped != SQLITE_DONE) log_step_failure(row.function, stepped);
  return stepped == SQLITE_DONE;
}

bool commit_row(Database& db, const char* function) {
  if (db.was_rolled_back()) return false;  // the step that failed has said so
  const int code = db.commit();
  if (code == SQLITE_OK) return true;
  db.rollback();
  log_step_failure(function, code);
  return false;
}

}  // namespace vexa::storage
