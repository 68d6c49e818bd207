// SPDX-License-Identifier: MIT
#include "sqlite3/src/refresh.h"

#include "log/call_site.h"
#include "sqlite3/src/database.h"
#include "sqlite3/src/replace_file.h"
#include "sqlite3/src/storage.h"
#include "sqlite3/src/write_lock.h"

namespace vexa::storage {
namespace {

// Where the whole file cannot be copied (storage full, the directory not writable), the row alone
// still goes into the backup: reads are answered from there, and the write is about to be
// acknowledged. Not when another process has written the item since: its own write brings the
// later value. Repairs nothing: a damaged backup must not cost the primary. False: the backup may
// still have the previous value.
bool store_in_backup(const ItemRow& written) {
  if (const Holds now = what_primary_holds(written); now != Holds::kThis) return now == Holds::kAnother;
  Database backup;
  backup.open(DB_CONFIGBAK);
  const StoredRow stored = store_row(backup, written);
  if (!backup.is_open()) VEXA_LOG(log::kError, "dm_write_db", "sqlite3_open failed: %s\n", backup.error());
  return stored.code == SQLITE_OK && stored.row;
}

}  // namespace

void refresh_backup(const ItemRow* written) {
  // Held from the check to the rename: what is copied is what was found healthy.
  WriteLock primary;
  const bool locked = primary.take(DB_CONFIG);
  if (check_database_health(DB_CONFIG) != 0) return;
  VEXA_LOG(log::kError, "dm_pal_write", "ERROR: cp %s %s", DB_CONFIG, DB_CONFIGBAK);
  const bool copied = locked && copy_over(primary, DB_CONFIG, DB_CONFIGBAK);
  log_copied();
  if (copied || written == nullptr) return;
  // A lock that was refused for want of memory may be had now; one that others hold may not.
  if (locked || primary.take(DB_CONFIG)) {
    if (store_in_backup(*written)) return;
  }
  VEXA_LOG(log::kError, "dm_pal_write", "%s keeps the previous value of %s %s\n", DB_CONFIGBAK,
           written->table, written->key);
}

}  // namespace vexa::storage
