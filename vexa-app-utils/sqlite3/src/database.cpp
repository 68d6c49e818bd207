// SPDX-License-Identifier: MIT
#include "sqlite3/src/database.h"

#include <sys/stat.h>

#include <utility>

#include "call_budget.h"

namespace vexa::storage {
namespace {

// A file that is replaced again and again while we look: go on with what we have.
constexpr int kMostReopens = 64;

int wait_for_lock(void*, int attempt) { return CallBudget::wait(attempt) ? 1 : 0; }

}  // namespace

int Database::open(const char* path) { return open(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE); }

int Database::open(const char* path, int flags) {
  close();
  path_ = path;
  flags_ = flags;
  const int code = sqlite3_open_v2(path, &db_, flags, nullptr);
  open_ = code == SQLITE_OK;
  return code;
}

void Database::close() {
  sqlite3_close(std::exchange(db_, nullptr));
  open_ = began_ = false;
}

bool Database::reopen() { return open(path_, flags_) == SQLITE_OK; }

sqlite3_file* Database::file() const {
  sqlite3_file* file = nullptr;
  if (open_) sqlite3_file_control(db_, "main", SQLITE_FCNTL_FILE_POINTER, &file);
  return file != nullptr && file->pMethods != nullptr ? file : nullptr;
}

bool Database::moved() const {
  int moved = 0;
  if (open_) sqlite3_file_control(db_, "main", SQLITE_FCNTL_HAS_MOVED, &moved);
  return moved != 0;
}

FileIdentity FileIdentity::of(const char* path) {
  struct stat status {};
  if (stat(path, &status) != 0) return {};
  return {status.st_dev, status.st_ino};
}

Database::Pin Database::pin() {
  sqlite3_file* opened = file();
  if (opened == nullptr) return Pin::kUnheld;
  int code = opened->pMethods->xLock(opened, SQLITE_LOCK_SHARED);
  for (int attempt = 0; code == SQLITE_BUSY && CallBudget::wait(attempt); ++attempt) {
    code = opened->pMethods->xLock(opened, SQLITE_LOCK_SHARED);
  }
  if (moved()) return Pin::kMoved;
  return code == SQLITE_OK ? Pin::kHeld : Pin::kUnheld;
}

bool Database::pin_current() {
  for (int reopens = 0; pin() == Pin::kMoved && reopens < kMostReopens; ++reopens) {
    if (!reopen()) return false;
  }
  return open_;
}

void Database::wait_when_busy() { sqlite3_busy_handler(db_, wait_for_lock, nullptr); }

int Database::begin(Begin kind) {
  if (!open_) return SQLITE_CANTOPEN;
  int code = SQLITE_ERROR;
  int reopens = 0;
  for (int attempt = 0;;) {
    bool replaced = pin() == Pin::kMoved;
    if (!replaced) {
      // FULL, the default, leaves the removal of the rollback journal unsynced: after a
      // power cut the journal is back and undoes a transaction that we have acknowledged.
      code = kind == Begin::kDurable ? exec("PRAGMA synchronous=EXTRA") : SQLITE_OK;
      replaced = code == SQLITE_OK && kind == Begin::kDurable && pin() == Pin::kMoved;
    }
    if (!replaced && code == SQLITE_OK) {
      code = exec("BEGIN IMMEDIATE");
      replaced = code == SQLITE_OK && moved();
    }
    if (replaced && reopens++ < kMostReopens) {
      if (!reopen()) return SQLITE_CANTOPEN;
      continue;
    }
    if (code == SQLITE_BUSY && CallBudget::wait(attempt++)) continue;
    // A commit still has to wait for readers to leave.
    wait_when_busy();
    began_ = code == SQLITE_OK;
    return code;
  }
}

bool Database::in_transaction() const { return open_ && sqlite3_get_autocommit(db_) == 0; }

bool Database::was_rolled_back() const { return began_ && !in_transaction(); }

int Database::commit() {
  const int code = in_transaction() ? exec("COMMIT") : SQLITE_OK;
  if (code == SQLITE_OK) began_ = false;
  return code;
}

void Database::rollback() {
  if (in_transaction()) exec("ROLLBACK");
  began_ = false;
}

Database::Fetch Database::fetch(const char* sql, Statement& statement) {
  int reopens = 0;
  for (int attempt = 0;; ++attempt) {
    if (!pin_current()) return {SQLITE_CANTOPEN, SQLITE_ERROR};
    const int prepared = sqlite3_prepare(db_, sql, -1, statement.receive(), nullptr);
    if (prepared == SQLITE_BUSY && CallBudget::wait(attempt)) continue;
    if (prepared != SQLITE_OK) return {prepared, SQLITE_ERROR};

    if (pin() == Pin::kMoved && reopens++ < kMostReopens) {
      statement.finalize();
      continue;
    }
    const int stepped = sqlite3_step(statement.get());
    if (stepped == SQLITE_ROW || stepped == SQLITE_DONE) return {SQLITE_OK, stepped};
    // The reset of a statement made by sqlite3_prepare tells why its step failed.
    const int reason = sqlite3_reset(statement.get());
    const bool passing = reason == SQLITE_BUSY || reason == SQLITE_SCHEMA;
    if (!passing || !CallBudget::wait(attempt)) return {SQLITE_OK, stepped};
    statement.finalize();
  }
}

void settle(const char* path) {
  Database db;
  if (db.open(path, SQLITE_OPEN_READWRITE) != SQLITE_OK) return;
  if (db.begin(Database::Begin::kLockOnly) == SQLITE_OK) db.rollback();
}

}  // namespace vexa::storage
