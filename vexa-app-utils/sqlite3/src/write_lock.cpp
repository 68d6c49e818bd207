// SPDX-License-Identifier: MIT
#include "sqlite3/src/write_lock.h"

#include <climits>

#include "call_budget.h"

namespace vexa::storage {
namespace {

// Readers leave within milliseconds; one that stays longer is a person's tool, which keeps
// its old file and must not eat the time that the rest of the call needs.
constexpr int kDrainAttempts = 30;
constexpr int kUntilTheBudgetIsSpent = INT_MAX;

}  // namespace

bool WriteLock::take(const char* path) {
  if (db_.open(path, SQLITE_OPEN_READWRITE) != SQLITE_OK) return false;
  const int code = db_.begin(Database::Begin::kLockOnly);
  exclusive_ = code == SQLITE_OK;
  // A file that we may not write: no lock against other writers can be had, but readers' pins.
  return exclusive_ || (code == SQLITE_READONLY && db_.pin() == Database::Pin::kHeld);
}

bool WriteLock::take_damaged(const char* path) {
  if (db_.open(path, SQLITE_OPEN_READWRITE) != SQLITE_OK || !db_.pin_current()) return false;
  // On an empty file SQLite's transaction would open a rollback journal and, when it ends,
  // remove by name what may by then be the journal of the new file.
  if (!is_empty()) {
    const int code = db_.begin(Database::Begin::kLockOnly);
    if (code == SQLITE_BUSY) return false;
    exclusive_ = code == SQLITE_OK;
  }
  if (!exclusive_) {
    exclusive_ = db_.pin() == Database::Pin::kHeld && raise(SQLITE_LOCK_RESERVED, kUntilTheBudgetIsSpent);
  }
  return exclusive_;
}

void WriteLock::drain_readers() { raise(SQLITE_LOCK_EXCLUSIVE, kDrainAttempts); }

void WriteLock::release() {
  db_.close();
  exclusive_ = false;
}

bool WriteLock::raise(int level, int attempts) {
  sqlite3_file* opened = db_.file();
  if (opened == nullptr) return false;
  int code = opened->pMethods->xLock(opened, level);
  for (int attempt = 0; code == SQLITE_BUSY && attempt < attempts && CallBudget::wait(attempt); ++attempt) {
    code = opened->pMethods->xLock(opened, level);
  }
  return code == SQLITE_OK;
}

bool WriteLock::is_empty() const {
  sqlite3_file* opened = db_.file();
  sqlite3_int64 size = 0;
  return opened != nullptr && opened->pMethods->xFileSize(opened, &size) == SQLITE_OK && size == 0;
}

}  // namespace vexa::storage
