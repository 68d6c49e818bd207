// SPDX-License-Identifier: MIT
// Statements of the parameter database: built in bounded texts, run, and their rows.
#ifndef VEXADM_PARAM_DB_STATEMENTS_H
#define VEXADM_PARAM_DB_STATEMENTS_H

#include <sqlite3.h>

#include <array>
#include <cstdint>
#include <utility>

namespace vexa::param_db {

// The text of one statement, cut where it does not fit.
class Statement {
 public:
  void build(const char* format, ...) __attribute__((format(printf, 2, 3)));
  bool empty() const { return text_[0] == '\0'; }
  const char* text() const { return text_.data(); }

 private:
  std::array<char, 256> text_{};
};

// The rows of a query. Null when it failed.
class Rows {
 public:
  Rows() = default;
  Rows(Rows&& other) noexcept
      : cells_(std::exchange(other.cells_, nullptr)), rows_(other.rows_), columns_(other.columns_) {}
  Rows(const Rows&) = delete;
  Rows& operator=(const Rows&) = delete;
  ~Rows() { sqlite3_free_table(cells_); }

  const void* address() const { return cells_; }
  int count() const { return rows_; }
  bool has_value() const { return cells_ && rows_ > 0; }
  // The first row's value; null for a NULL. Only where there is one.
  const char* value() const { return cells_[columns_]; }

 private:
  friend Rows search_by_table(const Statement& statement, uint32_t which);

  char** cells_ = nullptr;  // the header row first
  int rows_ = 0;
  int columns_ = 0;
};

// Queries a database. The user connection is closed afterwards, unless the query failed.
Rows search_by_table(const Statement& statement, uint32_t which);

// Runs a statement on the user database: 0 or 1. The connection is closed afterwards, unless the
// statement failed.
uint32_t update_item_to_db(const Statement& statement);

// The lines of a statement that failed, under the function's name. Frees SQLite's text, which may
// be null.
void log_failure(const char* function, const char* sql, sqlite3* db, char* error);

}  // namespace vexa::param_db

#endif
