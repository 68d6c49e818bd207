// SPDX-License-Identifier: MIT
// Filling a handle's slots, and the process's first look at the schema version.
#include <atomic>

#include "call_budget.h"
#include "log/call_site.h"
#include "owners.h"
#include "relaxed.h"
#include "sqlite3/src/storage.h"
#include "turn.h"

namespace {

using vexa::CallBudget;
using vexa::MutexLock;
using vexa::storage::backend_mutex;
using vexa::storage::kVersionKey;
using vexa::storage::kVersionTable;
using vexa::storage::kVersionType;
using vexa::storage::version_record;

constexpr char kSelf[] = "sqlite_reg";
constexpr int32_t kVersionSize = 4;

std::atomic<bool> registered{false};

int32_t read_item_version(uint32_t* version) {
  return dm_pal_read(kVersionTable, kVersionKey, reinterpret_cast<uint8_t*>(version), kVersionSize);
}

void look_at_version(uint32_t stored) {
  const auto found = static_cast<int32_t>(stored);
  const auto compiled = static_cast<int32_t>(version_record.version);
  if (found == compiled) {
    VEXA_LOG(vexa::log::kDebug, kSelf, "sqlite_ver & database_ver is same\n");
    dm_sqlite_check_database();
  } else if (found < compiled) {
    VEXA_LOG(vexa::log::kDebug, kSelf, "sqlite_ver update to new,database is old\n");
    if (version_record.version == VEXA_SCHEMA_VERSION && stored == 0) {
      VEXA_LOG(vexa::log::kDebug, kSelf, "database no update_cb ,clean db\n");
    }
  } else {
    VEXA_LOG(vexa::log::kDebug, kSelf, "sqlite_ver rollback to old,database is new\n");
  }
}

// The first version record of a device whose flash is empty.
void write_version() {
  VEXA_LOG(vexa::log::kDebug, kSelf, "database no ver_num\n");
  if (dm_pal_write(kVersionTable, VEXA_SCHEMA_VERSION, kVersionKey, kVersionType, &version_record.version,
                   kVersionSize) != 0) {
    VEXA_LOG(vexa::log::kDebug, kSelf, "database wr ver_num fail\n");
  }
}

void settle_version() {
  uint32_t stored = 0;
  const int32_t result = read_item_version(&stored);
  if (result >= 1) {
    look_at_version(stored);
  } else if (result == -100) {
    write_version();
  } else if (result == -101 || result == -102) {
    // Only announced: whether to clean is the host's decision.
    VEXA_LOG(vexa::log::kDebug, kSelf, "database bad err,clean db\n");
  } else {
    VEXA_LOG(vexa::log::kDebug, kSelf, "database other err\n");
  }
}

}  // namespace

void sqlite_reg(vexa_dm_backend_ops* slots) {
  VEXA_LOG(vexa::log::kDebug, kSelf, "sqlite_reg\n");
  *slots = {dm_sqlite_write,
            dm_sqlite_read,
            dm_sqlite_clean,
            dm_sqlite_def_db_const,
            dm_sqlite_def_db_read,
            dm_sqlite_read_CfgDB_version,
            dm_sqlite_read_DefItemsDB_version};
  if (registered.exchange(true)) {
    VEXA_LOG(vexa::log::kDebug, kSelf, "sqlite_already reg\n");
    return;
  }
  const MutexLock lock(backend_mutex);
  const CallBudget budget;
  settle_version();
}

int32_t dm_sqlite_write(uint32_t id, const vexa_dm_item_desc* desc, const void* data, int32_t length) {
  if (desc == nullptr) return dm_pal_write(nullptr, id, nullptr, 0, data, length);
  const MutexLock lock(backend_mutex);
  vexa::Turn::take();
  VEXA_LOG(vexa::log::kDebug, "dm_sqlite_write", "tab:%s, key:%s \n", desc->table, desc->key);
  return dm_pal_write(desc->table, id, desc->key, vexa::relaxed_load(desc->type), data, length);
}

int32_t dm_sqlite_read(uint32_t, const vexa_dm_item_desc* desc, uint8_t* buffer, int32_t length) {
  if (desc == nullptr) return dm_pal_read(nullptr, nullptr, buffer, length);
  const MutexLock lock(backend_mutex);
  vexa::Turn::take();
  VEXA_LOG(vexa::log::kDebug, "dm_sqlite_read", "tab:%s, key:%s \n", desc->table, desc->key);
  return dm_pal_read(desc->table, desc->key, buffer, length);
}

uint32_t dm_sqlite_read_CfgDB_version(uint8_t* out) {
  if (out == nullptr) return static_cast<uint32_t>(-1);
  const MutexLock lock(backend_mutex);
  return static_cast<uint32_t>(dm_pal_read(kVersionTable, kVersionKey, out, kVersionSize));
}

uint32_t dm_sqlite_read_DefItemsDB_version(uint8_t* out) {
  if (out == nullptr) return static_cast<uint32_t>(-1);
  const MutexLock lock(backend_mutex);
  return static_cast<uint32_t>(dm_sqlite_def_db_read(0, &version_record.desc, out, kVersionSize));
}

void sqlite_chk_db_ver_match(uint8_t* matched) {
  static constexpr char kMatch[] = "sqlite_chk_db_ver_match";
  if (matched == nullptr) return;
  const MutexLock lock(backend_mutex);
  const CallBudget budget;
  uint32_t items = 0;
  if (read_item_version(&items) < 0) {
    VEXA_LOG(vexa::log::kError, kMatch, "tmp_sqlite_ver read fail\n");
    return;
  }
  VEXA_LOG(vexa::log::kDebug, kMatch, "tmp_sqlite_ver %x\n", items);

  uint32_t defaults = 0;
  if (dm_sqlite_def_db_read(0, &version_record.desc, reinterpret_cast<uint8_t*>(&defaults), kVersionSize) <
      0) {
    VEXA_LOG(vexa::log::kError, kMatch, "tmp_DefItems_db_ver read fail\n");
    return;
  }
  VEXA_LOG(vexa::log::kDebug, kMatch, "tmp_DefItems_db_ver %x\n", defaults);

  *matched = defaults == VEXA_SCHEMA_VERSION && items == defaults ? 1 : 0;
  if (*matched != 0) {
    VEXA_LOG(vexa::log::kError, kMatch, " sqlite_chk_db_ver_matched \n");
  } else {
    VEXA_LOG(vexa::log::kError, kMatch, " sqlite_chk_db_ver_not_matched \n");
  }
}
