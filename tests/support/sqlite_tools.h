// SPDX-License-Identifier: MIT
// Database files seen and damaged past the library, through SQLite itself.
#ifndef VEXADM_TESTS_SQLITE_TOOLS_H
#define VEXADM_TESTS_SQLITE_TOOLS_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sqlite3.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace vexa_test {

// A connection of the test's own. Waits up to ten seconds for the locks of others.
class Sqlite {
 public:
  explicit Sqlite(const std::string& path);
  ~Sqlite();
  Sqlite(const Sqlite&) = delete;
  Sqlite& operator=(const Sqlite&) = delete;

  sqlite3* get() const { return db_; }
  // SQLite's code; no expectation.
  int exec(const std::string& sql);
  // First column of the first row, as bytes; "<null>", "<no row>" or "<error N>".
  std::string value(const std::string& sql);

 private:
  sqlite3* db_ = nullptr;
};

// Runs statements in a file, made when missing; a failure fails the test.
void exec_sql(const std::string& path, const std::string& sql);

// One value of a file that exists; see Sqlite::value. "<no file>" when it does not.
std::string query(const std::string& path, const std::string& sql);

// All rows of a statement: columns joined by ',', rows by '\n' (blobs and texts as bytes).
std::string rows(const std::string& path, const std::string& sql);

// SQLite's code of preparing, and of stepping once, a statement.
int prepare_code(const std::string& path, const std::string& sql);
int step_code(const std::string& path, const std::string& sql);

// The checksum of a stored value, bit by bit: its first (bytes & 0xFFFF) bits, polynomial
// 0x04C11DB7, most significant bit first, nothing inverted. As the signed number of the column.
std::int32_t reference_crc(const std::string& value);

struct Item {
  std::string table = "cfg";
  std::uint32_t id = 7;
  std::string key = "k";
  int type = 6;
  std::string value = "value";
};

// Puts an item's row into an item database without the library, table made when missing.
void put_item(const std::string& path, const Item& item);
void put_item(const std::string& path, const Item& item, std::int32_t crc);

// The stored value of a row; see Sqlite::value.
std::string stored(const std::string& path, const std::string& table, const std::string& key);

// The file's row of the journal: "item_table,id,item_key,type,len,state".
std::string journal_row(const std::string& path);

// Breaks the page of the schema: SQLite reports code 11 when it prepares anything.
void damage_schema(const std::string& path);
// Breaks a table's page, that of the first one or of the named: preparing works, stepping reports corruption.
void damage_first_table(const std::string& path);
void damage_table(const std::string& path, const std::string& table);
// Breaks the count of free pages: reads and writes work, only a check tells.
void damage_free_list(const std::string& path);

// Another process that holds a lock on a database file: it runs the statements (such as "begin
// exclusive") and keeps them open until release(), or for hold_ms milliseconds.
class LockHolder {
 public:
  LockHolder(const std::string& path, const std::string& sql, int hold_ms = 30000);
  ~LockHolder();
  LockHolder(const LockHolder&) = delete;
  LockHolder& operator=(const LockHolder&) = delete;

  void release();

 private:
  pid_t child_ = -1;
  std::array<int, 2> release_ = {-1, -1};
};

// ---- How ----

namespace sqlite_tools_detail {

inline constexpr int kPageSize = 4096;

inline std::string column_bytes(sqlite3_stmt* statement, int column) {
  if (sqlite3_column_type(statement, column) == SQLITE_NULL) return "<null>";
  const void* bytes = sqlite3_column_blob(statement, column);
  const int size = sqlite3_column_bytes(statement, column);
  return bytes == nullptr ? std::string()
                          : std::string(static_cast<const char*>(bytes), static_cast<std::size_t>(size));
}

inline std::string hex(const std::string& bytes) {
  static constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

inline void overwrite(const std::string& path, off_t offset, std::string_view bytes) {
  const int fd = open(path.c_str(), O_WRONLY | O_CLOEXEC);
  ASSERT_GE(fd, 0) << path;
  EXPECT_EQ(pwrite(fd, bytes.data(), bytes.size(), offset), static_cast<ssize_t>(bytes.size())) << path;
  close(fd);
}

inline constexpr std::string_view kNoPageType = "\xff\xff\xff\xff\xff\xff\xff\xff";

}  // namespace sqlite_tools_detail

inline Sqlite::Sqlite(const std::string& path) {
  EXPECT_EQ(sqlite3_open(path.c_str(), &db_), SQLITE_OK) << path;
  sqlite3_busy_timeout(db_, 10000);
}

inline Sqlite::~Sqlite() { sqlite3_close(db_); }

inline int Sqlite::exec(const std::string& sql) {
  return sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr);
}

inline std::string Sqlite::value(const std::string& sql) {
  sqlite3_stmt* statement = nullptr;
  int code = sqlite3_prepare_v2(db_, sql.c_str(), -1, &statement, nullptr);
  if (code == SQLITE_OK) code = sqlite3_step(statement);
  std::string result;
  if (code == SQLITE_ROW) {
    result = sqlite_tools_detail::column_bytes(statement, 0);
  } else {
    result = code == SQLITE_DONE ? "<no row>" : "<error " + std::to_string(code) + ">";
  }
  sqlite3_finalize(statement);
  return result;
}

inline void exec_sql(const std::string& path, const std::string& sql) {
  Sqlite db(path);
  EXPECT_EQ(db.exec(sql), SQLITE_OK) << path << ": " << sql << ": " << sqlite3_errmsg(db.get());
}

inline std::string query(const std::string& path, const std::string& sql) {
  if (access(path.c_str(), F_OK) != 0) return "<no file>";
  return Sqlite(path).value(sql);
}

inline std::string rows(const std::string& path, const std::string& sql) {
  if (access(path.c_str(), F_OK) != 0) return "<no file>";
  Sqlite db(path);
  sqlite3_stmt* statement = nullptr;
  int code = sqlite3_prepare_v2(db.get(), sql.c_str(), -1, &statement, nullptr);
  std::string text;
  while (code == SQLITE_OK || code == SQLITE_ROW) {
    code = sqlite3_step(statement);
    if (code != SQLITE_ROW) break;
    if (!text.empty()) text += '\n';
    for (int i = 0; i < sqlite3_column_count(statement); ++i) {
      if (i > 0) text += ',';
      text += sqlite_tools_detail::column_bytes(statement, i);
    }
  }
  if (code != SQLITE_DONE) text += "<error " + std::to_string(code) + ">";
  sqlite3_finalize(statement);
  return text;
}

inline int prepare_code(const std::string& path, const std::string& sql) {
  Sqlite db(path);
  sqlite3_stmt* statement = nullptr;
  const int code = sqlite3_prepare_v2(db.get(), sql.c_str(), -1, &statement, nullptr);
  sqlite3_finalize(statement);
  return code;
}

inline int step_code(const std::string& path, const std::string& sql) {
  Sqlite db(path);
  sqlite3_stmt* statement = nullptr;
  int code = sqlite3_prepare_v2(db.get(), sql.c_str(), -1, &statement, nullptr);
  if (code == SQLITE_OK) code = sqlite3_step(statement);
  sqlite3_finalize(statement);
  return code;
}

inline std::int32_t reference_crc(const std::string& value) {
  std::uint32_t crc = 0;
  const std::size_t bits = value.size() & 0xFFFF;
  for (std::size_t i = 0; i < bits; ++i) {
    const auto byte = static_cast<unsigned char>(value[i / 8]);
    const std::uint32_t bit = (byte >> (7 - i % 8)) & 1u;
    const bool feed = ((crc >> 31) ^ bit) != 0;
    crc = (crc << 1) ^ (feed ? 0x04C11DB7u : 0u);
  }
  return static_cast<std::int32_t>(crc);
}

inline void put_item(const std::string& path, const Item& item) {
  put_item(path, item, reference_crc(item.value));
}

inline void put_item(const std::string& path, const Item& item, std::int32_t crc) {
  exec_sql(path, "create table if not exists " + item.table +
                     " (id integer not null,key text not null,type integer not null,len integer not null,crc "
                     "integer not null,value blob);"
                     "delete from " +
                     item.table + " where key='" + item.key +
                     "';"
                     "insert into " +
                     item.table + " (id, key, type, len, crc, value) values(" +
                     std::to_string(static_cast<std::int32_t>(item.id)) + ",'" + item.key + "'," +
                     std::to_string(item.type) + "," + std::to_string(item.value.size()) + "," +
                     std::to_string(crc) + ",x'" + sqlite_tools_detail::hex(item.value) + "')");
}

inline std::string stored(const std::string& path, const std::string& table, const std::string& key) {
  return query(path, "select value from " + table + " where key='" + key + "'");
}

inline std::string journal_row(const std::string& path) {
  return rows(path, "select item_table,id,item_key,type,len,state from state where key='write_state'");
}

inline void damage_schema(const std::string& path) {
  sqlite_tools_detail::overwrite(path, 100, sqlite_tools_detail::kNoPageType);
  EXPECT_EQ(prepare_code(path, "select * from sqlite_master"), SQLITE_CORRUPT) << path;
}

inline void damage_first_table(const std::string& path) {
  damage_table(path, query(path, "select name from sqlite_master where rootpage=2"));
}

inline void damage_table(const std::string& path, const std::string& table) {
  const int page = std::stoi(query(path, "select rootpage from sqlite_master where name='" + table + "'"));
  sqlite_tools_detail::overwrite(path, (page - 1) * sqlite_tools_detail::kPageSize,
                                 sqlite_tools_detail::kNoPageType);
  EXPECT_EQ(step_code(path, "select * from " + table), SQLITE_CORRUPT) << path;
}

inline void damage_free_list(const std::string& path) {
  sqlite_tools_detail::overwrite(path, 39, "\x01");
  EXPECT_NE(query(path, "PRAGMA quick_check;"), "ok") << path;
}

inline LockHolder::LockHolder(const std::string& path, const std::string& sql, int hold_ms) {
  std::array<int, 2> ready;
  std::array<int, 2> release;
  if (pipe2(ready.data(), O_CLOEXEC) != 0 || pipe2(release.data(), O_CLOEXEC) != 0) {
    ADD_FAILURE() << "no pipe";
    return;
  }
  child_ = fork();
  if (child_ == 0) {
    sqlite3* db = nullptr;
    sqlite3_open(path.c_str(), &db);
    sqlite3_busy_timeout(db, 10000);
    const bool held = sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
    const char answer = held ? 'y' : 'n';
    pollfd wait = {release[0], POLLIN, 0};
    if (write(ready[1], &answer, 1) == 1 && held) poll(&wait, 1, hold_ms);
    sqlite3_exec(db, "rollback", nullptr, nullptr, nullptr);
    sqlite3_close(db);
    _exit(0);
  }
  close(ready[1]);
  release_ = release;
  char answer = 'n';
  if (read(ready[0], &answer, 1) != 1 || answer != 'y') ADD_FAILURE() << "no lock on " << path << ": " << sql;
  close(ready[0]);
}

inline LockHolder::~LockHolder() { release(); }

inline void LockHolder::release() {
  if (child_ <= 0) return;
  // A byte, not the end of the pipe: other children may hold copies of the descriptor.
  // The reading end is kept open here, as the holder may have ended by itself.
  if (write(release_[1], "r", 1) != 1) ADD_FAILURE() << "no byte for the lock holder";
  close(release_[0]);
  close(release_[1]);
  waitpid(child_, nullptr, 0);
  child_ = -1;
}

}  // namespace vexa_test

#endif
