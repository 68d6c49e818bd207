// SPDX-License-Identifier: MIT
// Writing item values to one database file and to the pair.
#include "call_budget.h"
#include "log/call_site.h"
#include "sqlite3/src/item_row.h"
#include "sqlite3/src/refresh.h"
#include "sqlite3/src/storage.h"

namespace {

using vexa::CallBudget;
using vexa::storage::ItemRow;

// The journal is worth waiting for, but not at the cost of the write itself.
void record_state(const ItemRow& item, vexa_write_state state, const char* name) {
  const CallBudget::Share share(VEXA_STORAGE_BUSY_MS / 4);
  const int32_t result = dm_write_state_db(item.table, item.id, item.key, item.type, item.length, state);
  if (result < 0) {
    VEXA_LOG(vexa::log::kError, "dm_pal_write", "dm_write_state_db  %s failed: %d\n", name, result);
  }
}

}  // namespace

int32_t dm_write_db(const char* path, const char* table, uint32_t id, const char* key, int32_t type,
                    const void* data, int32_t length) {
  static constexpr char kSelf[] = "dm_write_db";
  if (path == nullptr || table == nullptr || key == nullptr || data == nullptr || length < 0) {
    VEXA_LOG(vexa::log::kError, kSelf, "%s NULL\n", kSelf);
    return -1;
  }
  const CallBudget budget;
  bool row_written = false;
  return vexa::storage::write_item(path, {table, id, key, type, data, length}, row_written);
}

int32_t dm_pal_write(const char* table, uint32_t id, const char* key, int32_t type, const void* data,
                     int32_t length) {
  static constexpr char kPal[] = "dm_pal_write";
  if (table == nullptr || key == nullptr || data == nullptr || length < 0) {
    VEXA_LOG(vexa::log::kError, kPal, "%s NULL\n", kPal);
    return -1;
  }
  const CallBudget budget;
  const ItemRow item{table, id, key, type, data, length};
  record_state(item, WS_READY, "WS_READY");
  bool row_written = false;
  if (vexa::storage::write_item(DB_CONFIG, item, row_written) < 0) {
    VEXA_LOG(vexa::log::kError, kPal, "dm_update_db: \n");
    return -1;
  }
  vexa::storage::refresh_backup(row_written ? &item : nullptr);
  record_state(item, WS_WRITE_DONE, "WS_WRITE_DONE");
  record_state(item, WS_BACKUP_DONE, "WS_BACKUP_DONE");
  return 0;
}
