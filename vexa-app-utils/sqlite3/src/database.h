// SPDX-License-Identifier: MIT
// Owners of a SQLite connection and a statement, and how the library takes SQLite's locks.
#ifndef VEXADM_STORAGE_DATABASE_H
#define VEXADM_STORAGE_DATABASE_H

#include <sqlite3.h>
#include <sys/types.h>

#include <cstdint>

namespace vexa::storage {

// A prepared statement.
class Statement {
 public:
  Statement() = default;
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;
  ~Statement() { finalize(); }

  sqlite3_stmt* get() const { return statement_; }
  sqlite3_stmt** receive() {
    finalize();
    return &statement_;
  }
  void finalize() {
    sqlite3_finalize(statement_);
    statement_ = nullptr;
  }

 private:
  sqlite3_stmt* statement_ = nullptr;
};

// Which file a path led to.
struct FileIdentity {
  dev_t device;
  ino_t inode;
  bool operator==(const FileIdentity&) const = default;
  static FileIdentity of(const char* path);  // zeros where there is no file
};

// A connection to one database file.
//
// Files are replaced by rename while other processes have them open (replace_file.h). A
// connection to a replaced file would look for a rollback journal by name, find the one of
// the new file, and roll it back into the old one. So every access first holds a shared lock
// on the opened file and then asks whether the path still leads there; a replacer gives the
// holders of that lock time to finish.
class Database {
 public:
  Database() = default;
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;
  ~Database() { close(); }

  // Opens or creates, as sqlite3_open. The path must outlive this object. Returns SQLite's code.
  int open(const char* path);
  // Opens with the given SQLITE_OPEN flags.
  int open(const char* path, int flags);
  void close();

  // False before open() and after a failed one, also one that happened while a file was
  // found replaced: every function that works on the file may end that way.
  bool is_open() const { return open_; }
  sqlite3* get() const { return db_; }
  const char* error() const { return sqlite3_errmsg(db_); }

  // SQLite's own handle of the database file: the only way to read the file that does not
  // drop this process's locks on it. Null when there is none.
  sqlite3_file* file() const;
  // True when the path no longer leads to the opened file.
  bool moved() const;
  FileIdentity identity() const { return FileIdentity::of(path_); }

  enum class Pin { kHeld, kUnheld, kMoved };
  // Takes the shared lock and asks whether the file is still the path's. The lock lasts
  // until SQLite's next unlock, so it covers one prepare or one step.
  Pin pin();

  // Pins the path's present file, opening it where another one was open. False without one.
  bool pin_current();

  // Waits for other processes' locks within the call's budget from here on.
  void wait_when_busy();

  int exec(const char* sql) { return sqlite3_exec(db_, sql, nullptr, nullptr, nullptr); }

  // Begins a transaction that holds the write lock on the file its path leads to; "durable"
  // makes its commit survive a power cut. Returns SQLite's code; on failure the connection
  // stays usable without a transaction.
  enum class Begin { kDurable, kLockOnly };
  int begin(Begin kind);
  // Commits what begin() began, if anything. After a failed commit error() tells why, and
  // rollback() is the caller's.
  int commit();
  // True when SQLite has rolled back by itself what begin() began, as it does on a full disk.
  bool was_rolled_back() const;
  void rollback();

  // Prepares and makes the first step, trying again while others hold locks, change the
  // schema or replace the file. stepped is meaningful when prepared is SQLITE_OK.
  struct Fetch {
    int prepared;
    int stepped;
  };
  Fetch fetch(const char* sql, Statement& statement);

 private:
  bool reopen();
  bool in_transaction() const;

  sqlite3* db_ = nullptr;
  const char* path_ = nullptr;
  int flags_ = 0;
  bool open_ = false;
  bool began_ = false;
};

// Rolls back what a killed writer left in a database, so that it can be read read-only.
void settle(const char* path);

}  // namespace vexa::storage

#endif
