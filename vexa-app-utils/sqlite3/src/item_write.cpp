// SPDX-License-Identifier: MIT
// Writing item values to one database file and to the pair.
#include "call_budget.h"
#include "log/call_site.h"
#include "sqlite3/src/database.h"
#include "sqlite3/src/repair.h"
#include "sqlite3/src/row_write.h"
#include "sqlite3/src/storage.h"

namespace {

using vexa::CallBudget;
using vexa::storage::Database;
using vexa::storage::Sql;

constexpr char kSelf[] = "dm_write_db";

struct Item {
  const char* table;
  uint32_t id;
  const char* key;
  int32_t type;
  const void* data;
  int32_t length;
};

int create_table(Database& db, const char* table) {
  const Sql create(
      "create table if not exists %s (id integer not null,key text not null,type integer not null,"
      "len integer not null,crc integer not null,value blob)",
      table);
  const int code = db.exec(create.get());
  if (code != SQLITE_OK) {
    VEXA_LOG(vexa::log::kError, kSelf, "[%d] create table error rc=%d, %s, szSql: %s\n", __LINE__, code,
             db.error(), create.get());
  }
  return code;
}

bool update_record(Database& db, const Item& item) {
  constexpr char kRow[] = "dm_update_record";
  const int32_t crc = vexa::storage::value_crc(item.data, item.length);
  VEXA_LOG(vexa::log::kDebug, kRow, "wr crc: 0x%x\n", static_cast<unsigned>(crc));
  const auto id = static_cast<int32_t>(item.id);
  const bool present = dm_record_exist(db.get(), item.table, item.key) != 0;
  const Sql sql = present
                      ? Sql("update %s set id=%d, type=%d, len=%d, crc=%d,value=:1 where key='%s'",
                            item.table, id, item.type, item.length, crc, item.key)
                      : Sql("insert into %s (id, key, type, len, crc, value) values(%d, '%s',%d, %d, %d, ?)",
                            item.table, id, item.key, item.type, item.length, crc);
  return vexa::storage::write_row(db,
                                  {kRow, sql.get(), present, item.table, item.key, item.data, item.length});
}

struct Stored {
  int code;  // SQLite's, of making the table
  bool row;  // false: the row could not be written, which the log says
};

// Table and row in one transaction.
Stored store(Database& db, const Item& item) {
  // Where no transaction can be had, each statement is its own: the same results, said by
  // the statement that fails.
  db.begin(Database::Begin::kDurable);
  if (!db.is_open()) return {SQLITE_CANTOPEN, false};
  if (const int code = create_table(db, item.table); code != SQLITE_OK) return {code, false};
  const bool row = update_record(db, item);
  if (vexa::storage::commit_row(db, "dm_update_record")) return {SQLITE_OK, row};
  // The table goes with a commit that fails, unless it was there before: ask again.
  return {create_table(db, item.table), false};
}

// As dm_write_db, and tells whether the row was written.
int32_t write_item(const char* path, const Item& item, bool& row_written) {
  for (bool repaired = false;; repaired = true) {
    Database db;
    db.open(path);
    const auto [code, row] = store(db, item);
    if (!db.is_open()) {
      VEXA_LOG(vexa::log::kError, kSelf, "sqlite3_open failed: %s\n", db.error());
      return -101;
    }
    row_written = row;
    if (code == SQLITE_OK) return 0;
    if (code != SQLITE_CORRUPT || repaired) return -1;
    vexa::storage::repair_primary(vexa::storage::RepairFor::kWrite, path, db);
  }
}

// Where the whole file cannot be copied (storage full, the directory not writable), the record
// alone still goes into the backup: reads are answered from there, and the write is about to
// be acknowledged. Repairs nothing: a damaged backup must not cost the primary.
void store_in_backup(const Item& item) {
  Database backup;
  backup.open(DB_CONFIGBAK);
  store(backup, item);
  if (!backup.is_open()) VEXA_LOG(vexa::log::kError, kSelf, "sqlite3_open failed: %s\n", backup.error());
}

// The journal is worth waiting for, but not at the cost of the write itself.
void record_state(const Item& item, vexa_write_state state, const char* name) {
  const CallBudget::Share share(VEXA_STORAGE_BUSY_MS / 4);
  const int32_t result = dm_write_state_db(item.table, item.id, item.key, item.type, item.length, state);
  if (result < 0) {
    VEXA_LOG(vexa::log::kError, "dm_pal_write", "dm_write_state_db  %s failed: %d\n", name, result);
  }
}

}  // namespace

int32_t dm_write_db(const char* path, const char* table, uint32_t id, const char* key, int32_t type,
                    const void* data, int32_t length) {
  if (path == nullptr || table == nullptr || key == nullptr || data == nullptr || length < 0) {
    VEXA_LOG(vexa::log::kError, kSelf, "%s NULL\n", kSelf);
    return -1;
  }
  const CallBudget budget;
  bool row_written = false;
  return write_item(path, {table, id, key, type, data, length}, row_written);
}

int32_t dm_pal_write(const char* table, uint32_t id, const char* key, int32_t type, const void* data,
                     int32_t length) {
  constexpr char kPal[] = "dm_pal_write";
  if (table == nullptr || key == nullptr || data == nullptr || length < 0) {
    VEXA_LOG(vexa::log::kError, kPal, "%s NULL\n", kPal);
    return -1;
  }
  const CallBudget budget;
  const Item item{table, id, key, type, data, length};
  record_state(item, WS_READY, "WS_READY");
  bool row_written = false;
  if (write_item(DB_CONFIG, item, row_written) < 0) {
    VEXA_LOG(vexa::log::kError, kPal, "dm_update_db: \n");
    return -1;
  }
  const bool copied = vexa::storage::refresh_backup() != vexa::storage::Refresh::kNotCopied;
  if (!copied && row_written) store_in_backup(item);
  record_state(item, WS_WRITE_DONE, "WS_WRITE_DONE");
  record_state(item, WS_BACKUP_DONE, "WS_BACKUP_DONE");
  return 0;
}
