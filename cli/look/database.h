// SPDX-License-Identifier: MIT
// Database files of a store, seen without changing them.
#ifndef VEXADM_CLI_DATABASE_H
#define VEXADM_CLI_DATABASE_H

#include <sqlite3.h>

#include <cstdint>
#include <string_view>

#include "base/text.h"

namespace cli::look {

// A connection through the view of look_vfs.h, in one read transaction: all that is asked of it
// belongs together.
class Database {
 public:
  Database() = default;
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;
  ~Database() { close(); }

  // SQLite's code. A file that is not there is SQLITE_CANTOPEN.
  int open(const char* path);
  void close();
  sqlite3* get() const { return db_; }
  int code() const { return code_; }
  const Text& why() const { return why_; }
  bool is_open() const { return db_ != nullptr && code_ == SQLITE_OK; }

 private:
  static int wait(void* database, int times);

  sqlite3* db_ = nullptr;
  const char* path_ = nullptr;  // while it is being opened
  int code_ = SQLITE_CANTOPEN;
  Text why_;
};

// Told with the path when a connection has waited for another program's lock for a while, and with
// null when it goes on. For a person who would wonder.
void tell_of_waiting(void (*tell)(const char* path));

// A statement and its rows.
class Query {
 public:
  Query(const Database& database, const char* sql);
  Query(const Query&) = delete;
  Query& operator=(const Query&) = delete;
  ~Query() { sqlite3_finalize(statement_); }

  bool next();  // false at the end and on an error; code() tells which
  int code() const { return code_; }
  bool failed() const { return code_ != SQLITE_OK && code_ != SQLITE_ROW && code_ != SQLITE_DONE; }

  int columns() const { return sqlite3_column_count(statement_); }
  // -1 when there is no such column. Names are compared as SQL does.
  int column(const char* name) const;
  bool is_null(int column) const { return sqlite3_column_type(statement_, column) == SQLITE_NULL; }
  bool is_text(int column) const { return sqlite3_column_type(statement_, column) == SQLITE_TEXT; }
  int64_t number(int column) const { return sqlite3_column_int64(statement_, column); }
  // Valid until next().
  std::string_view bytes(int column) const;

 private:
  sqlite3_stmt* statement_ = nullptr;
  int code_;
};

// The name in double quotes, as SQL wants identifiers.
Text quoted_name(std::string_view name);

// The tables of the file by name, without SQLite's own. False when they could not be read to the end.
bool read_tables(const Database& database, List<Text>& out);

enum class Health { kMissing, kHealthy, kCorrupt, kNotDatabase, kWriteAhead, kUnreadable };

// What SQLite's code for a file means.
Health health_of(int code, const char* path);

struct FileReport {
  Health health = Health::kMissing;
  Text why;                  // SQLite's or the system's words where it is neither missing nor healthy
  List<Text> problems;       // the lines of the quick check
  bool schema_read = false;  // statements can be prepared; what is damaged lies behind that
  bool hot_journal = false;  // a transaction was cut, or one is running
  int64_t size = 0;
};

// Looks at a database file: is it there, does SQLite's quick check pass?
FileReport inspect(const char* path);

// True when there is a file, of whatever kind.
bool exists(const char* path);

}  // namespace cli::look

#endif
