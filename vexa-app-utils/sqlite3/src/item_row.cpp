// SPDX-License-Identifier: MIT
#include "sqlite3/src/item_row.h"

#include <cstring>

#include "log/call_site.h"
#include "sqlite3/src/repair.h"
#include "sqlite3/src/row_write.h"
#include "sqlite3/src/storage.h"

namespace vexa::storage {
namespace {

constexpr char kSelf[] = "dm_write_db";

int create_table(Database& db, const char* table) {
  const Sql create(
      "create table if not exists %s (id integer not null,key text not null,type integer not null,"
      "len integer not null,crc integer not null,value blob)",
      table);
  const int code = db.exec(create.get());
  if (code != SQLITE_OK) {
    VEXA_LOG(log::kError, kSelf, "[%d] create table error rc=%d, %s, szSql: %s\n", __LINE__, code, db.error(),
             create.get());
  }
  return code;
}

bool update_record(Database& db, const ItemRow& item) {
  static constexpr char kRow[] = "dm_update_record";
  const int32_t crc = value_crc(item.data, item.length);
  VEXA_LOG(log::kDebug, kRow, "wr crc: 0x%x\n", static_cast<unsigned>(crc));
  const auto id = static_cast<int32_t>(item.id);
  const Presence presence = presence_of(db.get(), item.table, item.key);
  if (presence == Presence::kUnknown) return false;
  const bool present = presence == Presence::kPresent;
  const Sql sql = present
                      ? Sql("update %s set id=%d, type=%d, len=%d, crc=%d,value=:1 where key='%s'",
                            item.table, id, item.type, item.length, crc, item.key)
                      : Sql("insert into %s (id, key, type, len, crc, value) values(%d, '%s',%d, %d, %d, ?)",
                            item.table, id, item.key, item.type, item.length, crc);
  return write_row(db, {kRow, sql.get(), present, item.table, item.key, item.data, item.length});
}

}  // namespace

StoredRow store_row(Database& db, const ItemRow& item) {
  // Where no transaction can be had, each statement is its own: the same results, said by
  // the statement that fails.
  db.begin(Database::Begin::kDurable);
  if (!db.is_open()) return {SQLITE_CANTOPEN, false};
  if (const int code = create_table(db, item.table); code != SQLITE_OK) return {code, false};
  const bool row = update_record(db, item);
  if (commit_row(db, "dm_update_record")) return {SQLITE_OK, row};
  // The table goes with a commit that fails, unless it was there before: ask again.
  return {create_table(db, item.table), false};
}

Holds what_primary_holds(const ItemRow& item) {
  Database primary;
  primary.open(DB_CONFIG);
  const Sql select("select value from %s where key='%s' limit 1", item.table, item.key);
  Statement row;
  const auto [prepared, stepped] = primary.fetch(select.get(), row);
  if (prepared != SQLITE_OK || stepped != SQLITE_ROW) return Holds::kUnknown;
  const void* value = sqlite3_column_blob(row.get(), 0);
  if (sqlite3_column_bytes(row.get(), 0) != item.length) return Holds::kAnother;
  if (item.length == 0) return Holds::kThis;
  if (value == nullptr) return Holds::kUnknown;
  const bool same = std::memcmp(value, item.data, static_cast<std::size_t>(item.length)) == 0;
  return same ? Holds::kThis : Holds::kAnother;
}

int32_t write_item(const char* path, const ItemRow& item, bool& row_written, WriteLock* primary) {
  for (bool repaired = false;; repaired = true) {
    Database db;
    db.open(path);
    const auto [code, row] = store_row(db, item);
    if (!db.is_open()) {
      VEXA_LOG(log::kError, kSelf, "sqlite3_open failed: %s\n", db.error());
      return -101;
    }
    row_written = row;
    if (code == SQLITE_OK) return 0;
    if (code != SQLITE_CORRUPT || repaired) return -1;
    if (primary != nullptr) primary->release();
    repair_primary(RepairFor::kWrite, path, db);
  }
}

}  // namespace vexa::storage
