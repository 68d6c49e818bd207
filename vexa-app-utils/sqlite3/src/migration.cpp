// SPDX-License-Identifier: MIT
// Rows and columns of tables that older builds have left.
#include <sqlite3.h>

#include <cstdio>
#include <cstring>

#include "log/call_site.h"
#include "sqlite3/src/storage.h"

namespace {

constexpr char kSelf[] = "alter_table_add_column";
constexpr std::size_t kErrorSize = 128;

using ErrorText = char[kErrorSize];

int run(sqlite3* db, const char* sql, ErrorText& error) {
  char* message = nullptr;
  const int code = sqlite3_exec(db, sql, nullptr, nullptr, &message);
  std::snprintf(error, kErrorSize, "%s", message != nullptr ? message : "");
  sqlite3_free(message);
  return code;
}

const char* missing_column(const char* error) {
  if (std::strstr(error, "no such column: id") != nullptr) return "id";
  if (std::strstr(error, "no such column: type") != nullptr) return "type";
  return nullptr;
}

}  // namespace

namespace vexa::storage {

Presence presence_of(sqlite3* db, const char* table, const char* key) {
  const Sql select("select 1 from %s where key='%s'", table, key);
  char** cells = nullptr;
  int rows = 0;
  char* message = nullptr;
  const int code = sqlite3_get_table(db, select.get(), &cells, &rows, nullptr, &message);
  if (code != SQLITE_OK) {
    VEXA_LOG(log::kError, "dm_record_exist", "[%d] get table existence error: %s\n", __LINE__,
             message != nullptr ? message : "");
    sqlite3_free(message);
    // No such column, or damage: the statement that follows meets it as well and says so.
    const bool lasting = code == SQLITE_ERROR || code == SQLITE_CORRUPT || code == SQLITE_NOTADB;
    return lasting ? Presence::kAbsent : Presence::kUnknown;
  }
  sqlite3_free_table(cells);
  return rows > 0 ? Presence::kPresent : Presence::kAbsent;
}

}  // namespace vexa::storage

int32_t dm_record_exist(sqlite3* db, const char* table, const char* key) {
  return vexa::storage::presence_of(db, table, key) == vexa::storage::Presence::kPresent ? 1 : 0;
}

int32_t alter_table_add_column(sqlite3* db, const char* table, const char* key) {
  VEXA_LOG(vexa::log::kWarning, kSelf, "alter_table_add_column\n");
  if (db == nullptr || table == nullptr || key == nullptr) {
    VEXA_LOG(vexa::log::kError, kSelf, "argv NULL\n");
    return -1;
  }
  const vexa::storage::Sql probe("select id,type from %s where key='%s' limit 1", table, key);
  constexpr int kProbes = 3;  // two columns may be missing
  ErrorText error;
  for (int failed = 0;;) {
    VEXA_LOG(vexa::log::kWarning, kSelf, "szSql %s\n", probe.get());
    if (run(db, probe.get(), error) == SQLITE_OK) return 0;
    VEXA_LOG(vexa::log::kWarning, kSelf, "%s\n", error);
    if (++failed == kProbes) {
      VEXA_LOG(vexa::log::kError, kSelf, "cnt error %d\n", failed);
      return -1;
    }
    const char* column = missing_column(error);
    if (column == nullptr) return -1;
    const vexa::storage::Sql alter("alter table %s add column %s integer", table, column);
    VEXA_LOG(vexa::log::kWarning, kSelf, "szSql %s\n", alter.get());
    if (run(db, alter.get(), error) != SQLITE_OK) {
      VEXA_LOG(vexa::log::kError, kSelf, "[%d] update error, %s\n", __LINE__, error);
      return -1;
    }
  }
}
