// SPDX-License-Identifier: MIT
// Finishing at start-up what a power cut interrupted.
#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "call_budget.h"
#include "log/call_site.h"
#include "owners.h"
#include "sqlite3/src/database.h"
#include "sqlite3/src/item_row.h"
#include "sqlite3/src/replace_file.h"
#include "sqlite3/src/storage.h"
#include "sqlite3/src/write_lock.h"

namespace {

using vexa::CallBudget;
using vexa::storage::Database;
using vexa::storage::Holds;
using vexa::storage::ItemRow;
using vexa::storage::Sql;
using vexa::storage::WriteLock;

constexpr char kRead[] = "dm_read_state_db";
constexpr char kCheck[] = "dm_sqlite_check_database";
constexpr std::size_t kNameSize = 33;

// The result of sqlite3_get_table.
class Rows {
 public:
  Rows() = default;
  Rows(const Rows&) = delete;
  Rows& operator=(const Rows&) = delete;
  ~Rows() { sqlite3_free_table(cells_); }

  // Logs SQLite's message when the select fails, and leaves it in the database.
  bool select(Database& db, const char* sql) {
    char* message = nullptr;
    const int code = sqlite3_get_table(db.get(), sql, &cells_, &rows_, &columns_, &message);
    if (code != SQLITE_OK) {
      VEXA_LOG(vexa::log::kWarning, kRead, "errmsg %s\n", message != nullptr ? message : "");
    }
    sqlite3_free(message);
    return code == SQLITE_OK;
  }
  int rows() const { return rows_; }
  int columns() const { return columns_; }
  // Of the first row; NULL for an SQL NULL.
  const char* cell(int column) const { return cells_[columns_ + column]; }
  int32_t number(int column) const {
    const char* text = cell(column);
    return text == nullptr ? 0 : static_cast<int32_t>(std::strtol(text, nullptr, 10));
  }

 private:
  char** cells_ = nullptr;
  int rows_ = 0;
  int columns_ = 0;
};

bool select_state(Database& db, Rows& rows) {
  const Sql select("select item_table,item_key,id,type,len,state from %s where key='%s'", "state",
                   "write_state");
  VEXA_LOG(vexa::log::kDebug, kRead, "szSql %s\n", select.get());
  if (rows.select(db, select.get())) return true;
  if (std::strstr(db.error(), "no such column") == nullptr) return false;
  if (alter_table_add_column(db.get(), "state", "write_state") != 0) {
    VEXA_LOG(vexa::log::kError, kRead, "alter_table_add_column failed\n");
  }
  if (!rows.select(db, select.get())) return false;
  VEXA_LOG(vexa::log::kDebug, kRead, "szSql select success, nRow, %d, nColumn: %d\n", rows.rows(),
           rows.columns());
  return true;
}

// A name that does not fit was not written by this library: no name is better than a part.
void copy_name(char* target, const char* name) {
  const bool fits = name != nullptr && std::strlen(name) < kNameSize;
  std::snprintf(target, kNameSize, "%s", fits ? name : "");
}

// As many bytes as the journal says, but never more than a primary of this size could hold. Memory
// that runs out here ends the process: a damaged length would end it at every start, for good.
int32_t room_for(int32_t len) {
  constexpr int64_t kGrowth = 1 << 20;  // what a transaction that is still to be rolled back may hide
  struct stat primary {};
  const int64_t size = stat(DB_CONFIG, &primary) == 0 ? int64_t{primary.st_size} : 0;
  return static_cast<int32_t>(std::min(int64_t{len}, size + kGrowth));
}

bool fails_its_checksum(const uint8_t* value, int32_t length, uint32_t crc) {
  return crc != static_cast<uint32_t>(vexa::storage::value_crc(value, length));
}

// One record, not the file: at start-up the primary as a whole has not been checked. With the
// writes of other processes kept out until the backup has it, and once more from the primary where
// one has come in between: theirs must not be overtaken by what was read before.
void copy_to_backup(ItemRow item, uint8_t* buffer, int32_t room) {
  WriteLock primary;
  if (!primary.take(DB_CONFIG)) return;
  const Holds now = vexa::storage::what_primary_holds(item);
  if (now == Holds::kUnknown) return;
  if (now == Holds::kAnother) {
    uint32_t crc = 0;
    item.length = dm_read_db(DB_CONFIG, item.table, item.key, buffer, &crc, room);
    if (item.length < 0 || fails_its_checksum(buffer, item.length, crc)) return;
  }
  bool written = false;
  vexa::storage::write_item(DB_CONFIGBAK, item, written, &primary);
}

}  // namespace

int32_t dm_read_state_db(char* item_table, char* item_key, int32_t* id, int32_t* type, int32_t* len,
                         int32_t* state) {
  if (item_table == nullptr || item_key == nullptr || id == nullptr || type == nullptr || len == nullptr ||
      state == nullptr) {
    VEXA_LOG(vexa::log::kError, kRead, "%s NULL\n", kRead);
    return -1;
  }
  const CallBudget budget;
  Database db;
  if (const int code = db.open(DB_STATE); code != SQLITE_OK) {
    VEXA_LOG(vexa::log::kError, kRead, "sqlite3_open failed: %s\n", db.error());
    return code;
  }
  if (!db.pin_current()) {
    VEXA_LOG(vexa::log::kError, kRead, "sqlite3_open failed: %s\n", db.error());
    return SQLITE_CANTOPEN;
  }
  db.wait_when_busy();
  Rows rows;
  if (!select_state(db, rows) || rows.rows() < 1) return -1;
  copy_name(item_table, rows.cell(0));
  copy_name(item_key, rows.cell(1));
  *id = rows.number(2);
  *type = rows.number(3);
  *len = rows.number(4);
  *state = rows.number(5);
  VEXA_LOG(vexa::log::kDebug, kRead, "read item_table %s\n", item_table);
  VEXA_LOG(vexa::log::kDebug, kRead, "read item_key %s\n", item_key);
  VEXA_LOG(vexa::log::kDebug, kRead, "read id %d\n", *id);
  VEXA_LOG(vexa::log::kDebug, kRead, "read type %d\n", *type);
  VEXA_LOG(vexa::log::kDebug, kRead, "read len %d\n", *len);
  VEXA_LOG(vexa::log::kDebug, kRead, "read state %d\n", *state);
  return 0;
}

uint32_t dm_sqlite_check_database(void) {
  const CallBudget budget;
  char table[kNameSize];
  char key[kNameSize];
  int32_t id = 0;
  int32_t type = 0;
  int32_t len = 0;
  int32_t state = 0;
  if (const int32_t code = dm_read_state_db(table, key, &id, &type, &len, &state); code != 0) {
    return static_cast<uint32_t>(code);
  }
  if (state == WS_BACKUP_DONE) {
    VEXA_LOG(vexa::log::kDebug, kCheck, "dm_sqlite_check_database len: %d\n", len);
    VEXA_LOG(vexa::log::kDebug, kCheck, "dm_sqlite_check_database suc, no need sync\n");
    return 0;
  }
  // A writer killed right after its rename leaves a backup that is read and not yet on storage. To
  // write what is read again is acknowledged without a write, so it has to be there by then.
  vexa::storage::sync_replacement_of(DB_CONFIGBAK);
  // After WS_READY the primary may hold half the story; the backup holds the previous value.
  if (len < 1 || state != WS_WRITE_DONE) return static_cast<uint32_t>(-1);

  const int32_t room = room_for(len);
  const auto buffer = vexa::Heap<uint8_t>::zeroed(static_cast<std::size_t>(room));
  VEXA_ASSERT(buffer, vexa::storage::kAssertSource);
  VEXA_LOG(vexa::log::kDebug, kCheck, "dm_sqlite_check_database read primary\n");
  uint32_t crc = 0;
  const int32_t count = dm_read_db(DB_CONFIG, table, key, buffer.get(), &crc, room);
  if (count < 0) return static_cast<uint32_t>(count);
  if (fails_its_checksum(buffer.get(), count, crc)) return static_cast<uint32_t>(-102);
  copy_to_backup({table, static_cast<uint32_t>(id), key, type, buffer.get(), count}, buffer.get(), room);
  return 0;
}
