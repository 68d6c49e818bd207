// SPDX-License-Identifier: MIT
// The host's own SQL, and what concerns the databases as files.
#include "log/call_site.h"
#include "owners.h"
#include "param_db/connections.h"
#include "param_db/statements.h"
#include "vexadm/param_db.h"

namespace {

namespace log = vexa::log;
using namespace vexa::param_db;
using vexa::MutexLock;

}  // namespace

// Without the lock: its callback may use the other functions.
uint32_t vexa_db_exec_cmd(const char* sql, vexa_db_row_fn callback, void* argument, uint32_t which) {
  constexpr const char* kName = "vexa_db_exec_cmd";
  if (!sql) {
    VEXA_LOG(log::kError, kName, "Error, sql_cmd is null. \n");
    return 1;
  }
  sqlite3* const db = open(which);
  if (!db) {
    VEXA_LOG(log::kError, kName, "Error, db:%s open_sqlite_db return faild.\n", kUserPath);
    return 1;
  }
  VEXA_LOG(log::kDebug, kName, "executeCommand sql_cmd:%s!!\n", sql);
  char* error = nullptr;
  if (sqlite3_exec(db, sql, callback, argument, &error) != SQLITE_OK) {
    log_failure(kName, sql, db, error);
    return 1;
  }
  close_user();
  return 0;
}

uint32_t vexa_db_close_sqlite() {
  const MutexLock lock(operations);
  return static_cast<uint32_t>(close_user());
}

uint32_t vexa_db_restore_factory() {
  const MutexLock lock(operations);
  // Inverted: for callers 0 is success, and success is that the user database was left alone.
  return copy_factory_to_user() == 0 ? 1 : 0;
}
