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

}  // namespace vexa::storage
