// SPDX-License-Identifier: MIT
// The database of default values.
#include <algorithm>
#include <atomic>
#include <cstring>

#include "call_budget.h"
#include "log/call_site.h"
#include "relaxed.h"
#include "sqlite3/src/database.h"
#include "sqlite3/src/row_write.h"
#include "sqlite3/src/storage.h"

namespace {

using vexa::CallBudget;
using vexa::storage::Database;
using vexa::storage::Presence;
using vexa::storage::Sql;
using vexa::storage::Statement;
using vexa::storage::version_record;

std::atomic<bool> version_written{false};

struct DefaultValue {
  const void* bytes = nullptr;
  int32_t length = -1;
  int32_t type = 0;  // with length -1: no value, which the write refuses
};

DefaultValue value_of(int32_t type, const void* reference, uint32_t length) {
  if (reference == nullptr) return {};
  if (type >= VEXA_DM_U8 && type <= VEXA_DM_U32_ALT) return {reference, static_cast<int32_t>(length), type};
  if (type != VEXA_DM_STRING && type != VEXA_DM_BLOCK) return {};
  // Text and blocks come as the address of a pointer, the field of a default-item record.
  const void* bytes = *static_cast<const void* const*>(reference);
  if (bytes == nullptr) return {};
  if (type == VEXA_DM_BLOCK) return {bytes, static_cast<int32_t>(length), type};
  return {bytes, static_cast<int32_t>(std::strlen(static_cast<const char*>(bytes))), type};
}

void update_def_record(Database& db, const char* table, const char* key, int32_t type, const void* value,
                       int32_t length) {
  const Presence presence = vexa::storage::presence_of(db.get(), table, key);
  if (presence == Presence::kUnknown) return;
  const bool present = presence == Presence::kPresent;
  const Sql sql =
      present
          ? Sql("update %s set type=%d, len=%d, value=:1 where key='%s'", table, type, length, key)
          : Sql("insert into %s (key, type, len, value) values('%s', '%d', %d, ?)", table, key, type, length);
  vexa::storage::write_row(db, {"dm_update_def_record", sql.get(), false, table, key, value, length});
}

int create_table(Database& db, const char* table) {
  const Sql create(
      "create table if not exists %s (key text not null,type integer not null,len integer not null,value "
      "blob)",
      table);
  const int code = db.exec(create.get());
  if (code != SQLITE_OK) {
    VEXA_LOG(vexa::log::kError, "dm_write_def_db", "[%d] create table error, %s\n", __LINE__, db.error());
  }
  return code;
}

}  // namespace

uint32_t dm_sqlite_def_db_const(uint32_t, vexa_dm_item_desc* desc, const void* value, uint32_t length) {
  if (desc == nullptr) return static_cast<uint32_t>(-1);
  const CallBudget budget;
  const DefaultValue item = value_of(vexa::relaxed_load(desc->type), value, length);
  const int32_t result = dm_write_def_db(desc->table, desc->key, item.type, item.bytes, item.length);
  if (version_written.load(std::memory_order_relaxed)) return static_cast<uint32_t>(result);
  // The version record makes the stored defaults authoritative, so hosts learn of its fate
  // rather than of the first default's.
  const int32_t version = dm_write_def_db(vexa::storage::kVersionTable, vexa::storage::kVersionKey,
                                          vexa::storage::kVersionType, &version_record.version, 4);
  version_written.store(true, std::memory_order_relaxed);
  return static_cast<uint32_t>(version);
}

int32_t dm_sqlite_def_db_read(uint32_t, vexa_dm_item_desc* desc, uint8_t* buffer, int32_t length) {
  int32_t type = 0;
  if (desc == nullptr) return dm_read_def_db(nullptr, nullptr, &type, buffer, length);
  const int32_t result = dm_read_def_db(desc->table, desc->key, &type, buffer, length);
  vexa::relaxed_store(desc->type, type);
  return result;
}

int32_t dm_write_def_db(const char* table, const char* key, int32_t type, const void* value, int32_t length) {
  static constexpr char kSelf[] = "dm_write_def_db";
  if (length < 0 || table == nullptr || key == nullptr || (value == nullptr && length > 0)) {
    VEXA_LOG(vexa::log::kError, kSelf, "%s param invald\n", kSelf);
    return -1;
  }
  const CallBudget budget;
  Database db;
  db.open(DB_DEF_ITEMS);
  db.begin(Database::Begin::kDurable);
  if (!db.is_open()) {
    VEXA_LOG(vexa::log::kError, kSelf, "sqlite3_open failed: %s\n", db.error());
    return -101;
  }
  if (create_table(db, table) != SQLITE_OK) return -1;
  update_def_record(db, table, key, type, value, length);
  if (vexa::storage::commit_row(db, "dm_update_def_record")) return 0;
  // The table goes with a commit that fails, unless it was there before: ask again.
  return create_table(db, table) == SQLITE_OK ? 0 : -1;
}

int32_t dm_read_def_db(const char* table, const char* key, int32_t* type, uint8_t* buffer, int32_t length) {
  static constexpr char kSelf[] = "dm_read_def_db";
  if (table == nullptr || key == nullptr || type == nullptr || buffer == nullptr || length < 0) {
    VEXA_LOG(vexa::log::kError, kSelf, "%s NULL\n", kSelf);
    return -1;
  }
  const CallBudget budget;
  Database db;
  db.open(DB_DEF_ITEMS);
  const Sql select("select value,type from %s where key='%s' limit 1", table, key);
  Statement row;
  const auto [prepared, stepped] = db.fetch(select.get(), row);
  if (!db.is_open()) {
    VEXA_LOG(vexa::log::kError, kSelf, "sqlite3_open failed: %s\n", db.error());
    return -101;
  }
  if (prepared != SQLITE_OK) {
    VEXA_LOG(vexa::log::kError, kSelf, "[%d] sqlite3_prepare error, %d\n", __LINE__, prepared);
    return -100;
  }
  if (stepped != SQLITE_ROW) {
    VEXA_LOG(vexa::log::kError, kSelf, "sqlite3_step error %d\n", stepped);
    return -1;
  }
  const void* value = sqlite3_column_blob(row.get(), 0);
  const int32_t stored = sqlite3_column_bytes(row.get(), 0);
  if (value == nullptr || stored == 0) return -1;
  const int32_t count = std::min(length, stored);
  std::memcpy(buffer, value, static_cast<std::size_t>(count));
  *type = sqlite3_column_int(row.get(), 1);
  return count;
}
