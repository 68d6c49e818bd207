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

}  // namespace

void repair_primary(RepairFor caller, const char* failing_path, Database& failing) {
  const bool primary_failed = std::strcmp(failing_path, DB_CONFIG) == 0;
  // The connection stays open until the copy is done: its inode number cannot be given to
  // the file that another process may put in its place meanwhile.
  failing.rollback();
  if (sqlite3_file* file = failing.file()) file->pMethods->xUnlock(file, SQLITE_LOCK_NONE);
  // In this order: a file that is still in place after its path was looked up is the file found.
  const FileIdentity damaged = failing.identity();
  const bool known = primary_failed && !failing.moved();

  const char* source = DB_CONFIGBAK;
  if (check_database_health(DB_CONFIGBAK) != 0) {
    source = kFactoryCopy;
    if (check_database_health(kFactoryCopy) != 0) {
      failing.close();
      return;
    }
  }
  log_source(caller, source, source == kFactoryCopy);
  if (!primary_failed || known) restore(source, DB_CONFIG, known ? &damaged : nullptr);
  log_copied();
  failing.close();
}

Refresh refresh_backup() {
  // Held from the check to the rename: what is copied is what was found healthy.
  WriteLock primary;
  const bool locked = primary.take(DB_CONFIG);
  if (check_database_health(DB_CONFIG) != 0) return Refresh::kUnhealthy;
  VEXA_LOG(log::kError, "dm_pal_write", "ERROR: cp %s %s", DB_CONFIG, DB_CONFIGBAK);
  const bool copied = locked && copy_over(primary, DB_CONFIG, DB_CONFIGBAK);
  log_copied();
  return copied ? Refresh::kDone : Refresh::kNotCopied;
}

}  // namespace vexa::storage
