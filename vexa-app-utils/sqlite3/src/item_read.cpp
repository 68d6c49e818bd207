// SPDX-License-Identifier: MIT
// Reading item values from one database file and from the pair.
#include <algorithm>
#include <cstring>

#include "call_budget.h"
#include "log/call_site.h"
#include "sqlite3/src/database.h"
#include "sqlite3/src/repair.h"
#include "sqlite3/src/storage.h"

namespace {

using vexa::CallBudget;
using vexa::storage::Database;
using vexa::storage::Sql;
using vexa::storage::Statement;

bool no_answer(int32_t result) { return result == -1 || result == -100 || result == -101; }

// The bytes of a read, or -102 when they are not what was stored.
int32_t verified(int32_t result, const uint8_t* buffer, uint32_t crc) {
  const bool intact = result > 0 && crc == static_cast<uint32_t>(vexa::storage::value_crc(buffer, result));
  return intact ? result : -102;
}

int32_t deliver(Statement& row, uint8_t* buffer, uint32_t* crc, int32_t length) {
  const void* value = sqlite3_column_blob(row.get(), 0);
  const int32_t stored = sqlite3_column_bytes(row.get(), 0);
  if (value == nullptr || stored == 0) return -1;
  const int32_t count = std::min(length, stored);
  std::memcpy(buffer, value, static_cast<std::size_t>(count));
  *crc = static_cast<uint32_t>(sqlite3_column_int(row.get(), 1));
  return count;
}

// Not every caller learns the length: who passes a zeroed buffer finds a terminated text in it.
// A write that was cut between the two files must not show there, behind the backup's value.
int32_t deliver_alone(int32_t result, uint8_t* buffer, int32_t filled) {
  if (result > 0 && filled > result)
    std::memset(buffer + result, 0, static_cast<std::size_t>(filled - result));
  return result;
}

// A missing table, column or row is an answer; any other failure leaves open whether there is one.
bool is_answer(int prepared, int stepped) {
  return prepared == SQLITE_OK ? stepped == SQLITE_ROW || stepped == SQLITE_DONE : prepared == SQLITE_ERROR;
}

struct Found {
  int32_t result;
  bool answered;  // by the file: what it does not give, it does not have
};

Found read_value(const char* path, const char* table, const char* key, uint8_t* buffer, uint32_t* crc,
                 int32_t length) {
  static constexpr char kSelf[] = "dm_read_db";
  if (path == nullptr || table == nullptr || key == nullptr || buffer == nullptr || crc == nullptr ||
      length < 0) {
    VEXA_LOG(vexa::log::kError, kSelf, "%s NULL\n", kSelf);
    return {-1, true};
  }
  const CallBudget budget;
  const Sql select("select value,crc from %s where key='%s' limit 1", table, key);
  for (bool repaired = false;; repaired = true) {
    Database db;
    db.open(path);
    Statement row;
    const auto [prepared, stepped] = db.fetch(select.get(), row);
    if (!db.is_open()) {
      VEXA_LOG(vexa::log::kError, kSelf, "sqlite3_open failed: %s\n", db.error());
      return {-101, false};
    }
    const bool answered = is_answer(prepared, stepped);
    if (prepared == SQLITE_OK) {
      if (stepped == SQLITE_ROW) return {deliver(row, buffer, crc, length), answered};
      VEXA_LOG(vexa::log::kError, kSelf, "sqlite3_step error %d\n", stepped);
      return {-1, answered};
    }
    VEXA_LOG(vexa::log::kError, kSelf, "[%d] sqlite3_prepare error, %d \n", __LINE__, prepared);
    row.finalize();
    if (prepared != SQLITE_CORRUPT || repaired) return {-100, answered};
    vexa::storage::repair_primary(vexa::storage::RepairFor::kRead, path, db);
  }
}

}  // namespace

int32_t dm_read_db(const char* path, const char* table, const char* key, uint8_t* buffer, uint32_t* crc,
                   int32_t length) {
  return read_value(path, table, key, buffer, crc, length).result;
}

int32_t dm_pal_read(const char* table, const char* key, uint8_t* buffer, int32_t length) {
  static constexpr char kSelf[] = "dm_pal_read";
  if (table == nullptr || key == nullptr || buffer == nullptr || length < 0) {
    VEXA_LOG(vexa::log::kError, kSelf, "%s NULL\n", kSelf);
    return -1;
  }
  const CallBudget budget;
  uint32_t crc = 0;
  // Reading the primary finds out whether it is corrupt, and repairs it. The answer is the
  // backup's: it only ever holds writes that were complete.
  const int32_t found = dm_read_db(DB_CONFIG, table, key, buffer, &crc, length);
  const int32_t primary = no_answer(found) ? found : verified(found, buffer, crc);
  VEXA_LOG(vexa::log::kDebug, kSelf, "rd ret  %d \n", primary);
  if (primary == 0) return 0;

  const auto [backup, answered] = read_value(DB_CONFIGBAK, table, key, buffer, &crc, length);
  if (backup == -1 || backup == -100) {
    // What a damaged backup does not give, or only the primary has, the next start may bring back: who
    // sets an item to its default must not take it for an item that holds nothing.
    if (!answered || !no_answer(found)) CallBudget::give_up();
    return backup;
  }
  if (const int32_t result = verified(backup, buffer, crc); result > 0) {
    return deliver_alone(result, buffer, found);
  }

  const int32_t again = dm_read_db(DB_CONFIGBAK, table, key, buffer, &crc, length);
  if (no_answer(again)) {
    CallBudget::give_up();  // the first look saw something
    return again;
  }
  return deliver_alone(verified(again, buffer, crc), buffer, std::max(found, backup));
}

int32_t dm_pal_read_by_key(const char* table, const char* key, uint8_t* buffer, int32_t length) {
  static constexpr char kSelf[] = "dm_pal_read_by_key";
  if (table == nullptr || key == nullptr || buffer == nullptr) {
    VEXA_LOG(vexa::log::kError, kSelf, "%s param NULL\n", kSelf);
    return -3;
  }
  return dm_pal_read(table, key, buffer, length);
}
