// SPDX-License-Identifier: MIT
#include "sqlite3/src/repair.h"

#include <cstring>

#include "log/call_site.h"
#include "sqlite3/src/replace_file.h"
#include "sqlite3/src/storage.h"

namespace vexa::storage {
namespace {

void log_source(RepairFor caller, const char* source, bool factory) {
  if (caller == RepairFor::kWrite) {
    VEXA_LOG(log::kError, "dm_write_db", "ERROR: cp %s %s", source, DB_CONFIG);
  } else if (factory) {
    VEXA_LOG(log::kError, "dm_read_db", "error: DB_CONFIG is damaged so cp %s %s", source, DB_CONFIG);
  } else {
    VEXA_LOG(log::kError, "dm_read_db", "error: DB_CONFIG is damaged cp %s %s", source, DB_CONFIG);
  }
}

// Field tools expect the line of the command runner after each copy; a copy prints nothing.
void log_copied() { VEXA_LOG(log::kDebug, "dm_sqlite_system_cmd", "read_len=%d\n", 0); }

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

void repair_primary(RepairFor caller, const char* failing_path, Database& failing) {
  // The connection stays open until the copy is done: its inode number cannot be given to
  // the file that another process may put in its place meanwhile.
  failing.rollback();
  if (sqlite3_file* file = failing.file()) file->pMethods->xUnlock(file, SQLITE_LOCK_NONE);
  // In this order: a file that is still in place after its path was looked up is the file found.
  const DamagedFile damaged{failing_path, failing.identity()};
  const bool in_place = !failing.moved();

  const char* source = DB_CONFIGBAK;
  if (check_database_health(DB_CONFIGBAK) != 0) {
    source = kFactoryCopy;
    if (check_database_health(kFactoryCopy) != 0) {
      failing.close();
      return;
    }
  }
  log_source(caller, source, source == kFactoryCopy);
  if (in_place) restore(source, DB_CONFIG, damaged);
  log_copied();
  failing.close();
}

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
