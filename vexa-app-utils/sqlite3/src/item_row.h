// SPDX-License-Identifier: MIT
// The row of one item in one database file.
#ifndef VEXADM_STORAGE_ITEM_ROW_H
#define VEXADM_STORAGE_ITEM_ROW_H

#include <cstdint>

#include "sqlite3/src/database.h"
#include "sqlite3/src/write_lock.h"

namespace vexa::storage {

struct ItemRow {
  const char* table;
  uint32_t id;
  const char* key;
  int32_t type;
  const void* data;
  int32_t length;
};

struct StoredRow {
  int code;  // SQLite's, of making the table
  bool row;  // false: the row could not be written, which the log says
};

// Makes the table where it is missing and writes the row, in one transaction. Repairs nothing.
StoredRow store_row(Database& db, const ItemRow& item);

// Whether the primary holds exactly this value of the item now.
enum class Holds { kThis, kAnother, kUnknown };
Holds what_primary_holds(const ItemRow& item);

// As dm_write_db(), and tells whether the row was written. The caller may hold the primary's lock:
// a repair, which replaces that file, lets go of it first.
int32_t write_item(const char* path, const ItemRow& item, bool& row_written, WriteLock* primary = nullptr);

}  // namespace vexa::storage

#endif
