// SPDX-License-Identifier: MIT
#include "param_db/statements.h"

#include <cstdarg>
#include <cstdio>

#include "log/call_site.h"
#include "param_db/connections.h"
#include "vexadm/param_db.h"

namespace vexa::param_db {

void Statement::build(const char* format, ...) {
  std::va_list values;
  va_start(values, format);
  std::vsnprintf(text_.data(), text_.size(), format, values);
  va_end(values);
}

void log_failure(const char* function, const char* sql, sqlite3* db, char* error) {
  // Names the wrong call after an update; log readers look for these words.
  VEXA_LOG(log::kError, function, "Error, sqlite3_get_table run faild, sql_cmd:[%s], db err:[%s].\n", sql,
           sqlite3_errmsg(db));
  if (error) VEXA_LOG(log::kError, function, "Error, sql_cmd err info:[%s].\n", error);
  sqlite3_free(error);
}

Rows search_by_table(const Statement& statement, uint32_t which) {
  constexpr const char* kName = "search_by_table";
  Rows rows;
  sqlite3* const db = open(which);
  if (!db) {
    VEXA_LOG(log::kError, kName, "Error, open_sqlite_db return faild.\n");
    return rows;
  }
  char* error = nullptr;
  if (sqlite3_get_table(db, statement.text(), &rows.cells_, &rows.rows_, &rows.columns_, &error) ==
      SQLITE_OK) {
    close_user();
  } else {
    log_failure(kName, statement.text(), db, error);
  }
  return rows;
}

uint32_t update_item_to_db(const Statement& statement) {
  constexpr const char* kName = "update_item_to_db";
  sqlite3* const db = open(VEXA_DB_USER);
  if (!db) {
    VEXA_LOG(log::kError, kName, "Error, db:%s open_sqlite_db return faild.\n", kUserPath);
    return 1;
  }
  char* error = nullptr;
  const int code = sqlite3_exec(db, statement.text(), nullptr, nullptr, &error);
  VEXA_LOG(log::kDebug, kName, "sqlite3_exec sql_cmd:[%s].\n", statement.text());
  if (code != SQLITE_OK) {
    log_failure(kName, statement.text(), db, error);
    return 1;
  }
  close_user();
  return 0;
}

}  // namespace vexa::param_db
