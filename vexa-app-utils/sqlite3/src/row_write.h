// SPDX-License-Identifier: MIT
// Writing one row that carries a blob.
#ifndef VEXADM_STORAGE_ROW_WRITE_H
#define VEXADM_STORAGE_ROW_WRITE_H

#include <cstdint>

#include "sqlite3/src/database.h"

namespace vexa::storage {

struct RowWrite {
  const char* function;  // name in log lines
  const char* sql;       // update or insert with one parameter, the blob
  bool with_rc_label;    // "rc: " before the code of a prepare or bind failure
  const char* table;
  const char* key;
  const void* data;
  int32_t length;
};

// Prepares (adding columns of an older build's table where that helps), binds and steps.
// Failures are logged: the steps that follow a row belong to the caller.
bool write_row(Database& db, const RowWrite& row);

// Commits the row. A failed commit is logged as the failed step that it is.
bool commit_row(Database& db, const char* function);

}  // namespace vexa::storage

#endif
