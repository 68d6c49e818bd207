// SPDX-License-Identifier: MIT
// SQLite's write lock on a database file, without a write.
#ifndef VEXADM_STORAGE_WRITE_LOCK_H
#define VEXADM_STORAGE_WRITE_LOCK_H

#include "sqlite3/src/database.h"

namespace vexa::storage {

// Keeps writers and copiers of other processes away from a database file while it lives.
class WriteLock {
 public:
  // Rolls back what a killed writer left. False when the file is missing or no database, or
  // another process's lock outlasts the call.
  bool take(const char* path);

  // As take(), for a file that is about to be replaced or removed and may be damaged beyond
  // what SQLite will begin a transaction on.
  bool take_damaged(const char* path);

  // Waits a while until the readers of the file have left, and keeps new ones out.
  void drain_readers();

  void release();

  // False while the lock is only shared, as on a file that this process may not write.
  bool exclusive() const { return exclusive_; }
  sqlite3_file* file() const { return db_.file(); }

 private:
  bool raise(int level, int attempts);
  bool is_empty() const;

  Database db_;
  bool exclusive_ = false;
};

}  // namespace vexa::storage

#endif
