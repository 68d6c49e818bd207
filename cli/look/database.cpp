// SPDX-License-Identifier: MIT
#include "look/database.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "look/look_vfs.h"

namespace cli::look {
namespace {

// As long as the library waits.
constexpr int kBusyMilliseconds = 3000;
constexpr int kPauseMilliseconds = 20;
constexpr int kWorthTelling = 300;

void (*g_tell_of_waiting)(const char* path) = nullptr;

// The file format's first bytes (sqlite.org/fileformat.html, 1.3): magic text, then at 18 and 19 how
// it is written and read, 2 for a write-ahead log.
constexpr std::size_t kHeaderSize = 100;

// Without waiting where a pipe stands in the place of a file, here and below.
bool read_header(const char* path, unsigned char (&header)[kHeaderSize]) {
  const int fd = ::open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return false;
  const bool whole = read(fd, header, kHeaderSize) == static_cast<ssize_t>(kHeaderSize);
  close(fd);
  return whole;
}

bool is_write_ahead(const char* path) {
  unsigned char header[kHeaderSize] = {};
  return read_header(path, header) && std::memcmp(header, "SQLite format 3", 16) == 0 && header[19] == 2;
}

// Beside the file itself, where the path is a link.
bool has_hot_journal(const char* path) {
  char* real = realpath(path, nullptr);
  const Text journal = textf("%s-journal", real != nullptr ? real : path);
  std::free(real);
  const int fd = ::open(journal.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return false;
  char first = 0;
  const bool begun = read(fd, &first, 1) == 1 && first != 0;
  close(fd);
  return begun;
}

// A row of the check has one line or several, under a heading that names a file which is known.
void add_problems(std::string_view row, List<Text>& out) {
  while (!row.empty()) {
    const std::string_view line = part(row, 0, row.find('\n'));
    row.remove_prefix(line.size() == row.size() ? line.size() : line.size() + 1);
    if (line != "ok" && !line.empty() && !line.starts_with("*** in database ")) out.push(Text(line));
  }
}

}  // namespace

Health health_of(int code, const char* path) {
  switch (code) {
    case SQLITE_OK:
      return Health::kHealthy;
    case SQLITE_CORRUPT:
      return Health::kCorrupt;
    case SQLITE_NOTADB:
      return Health::kNotDatabase;
    case SQLITE_CANTOPEN:
      return is_write_ahead(path) ? Health::kWriteAhead : Health::kUnreadable;
    default:
      return Health::kUnreadable;
  }
}

void tell_of_waiting(void (*tell)(const char* path)) { g_tell_of_waiting = tell; }

int Database::wait(void* database, int times) {
  const int waited = times * kPauseMilliseconds;
  if (waited >= kBusyMilliseconds) return 0;
  if (waited >= kWorthTelling && g_tell_of_waiting != nullptr) {
    g_tell_of_waiting(static_cast<const Database*>(database)->path_);
  }
  sqlite3_sleep(kPauseMilliseconds);
  return 1;
}

int Database::open(const char* path) {
  close();
  const char* view = register_look_vfs();
  code_ = view == nullptr ? SQLITE_ERROR
                          : sqlite3_open_v2(path, &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, view);
  if (code_ == SQLITE_OK) {
    path_ = path;
    sqlite3_busy_handler(db_, wait, this);
    // No value is near it, but a row may claim a gigabyte, and be computed as one.
    sqlite3_limit(db_, SQLITE_LIMIT_LENGTH, 64 << 20);
    // A schema from who knows where must not run anything.
    sqlite3_db_config(db_, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    sqlite3_db_config(db_, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    code_ = sqlite3_exec(db_, "pragma temp_store=memory; begin; select count(*) from sqlite_master", nullptr,
                         nullptr, nullptr);
  }
  if (g_tell_of_waiting != nullptr) g_tell_of_waiting(nullptr);
  if (code_ != SQLITE_OK) {
    why_ = Text(db_ != nullptr ? sqlite3_errmsg(db_) : "SQLite has no view");
    if (code_ == SQLITE_CANTOPEN && access(path, R_OK) != 0) why_ = Text(std::strerror(errno));
  }
  return code_;
}

void Database::close() {
  sqlite3_close(db_);
  db_ = nullptr;
}

Query::Query(const Database& database, const char* sql)
    : code_(sqlite3_prepare_v2(database.get(), sql, -1, &statement_, nullptr)) {}

bool Query::next() {
  if (code_ != SQLITE_OK && code_ != SQLITE_ROW) return false;
  code_ = sqlite3_step(statement_);
  return code_ == SQLITE_ROW;
}

int Query::column(const char* name) const {
  for (int i = 0; i < columns(); ++i) {
    const char* there = sqlite3_column_name(statement_, i);
    if (there != nullptr && sqlite3_stricmp(there, name) == 0) return i;
  }
  return -1;
}

std::string_view Query::bytes(int column) const {
  const void* data = sqlite3_column_blob(statement_, column);
  const int size = sqlite3_column_bytes(statement_, column);
  return data == nullptr ? std::string_view()
                         : std::string_view(static_cast<const char*>(data), static_cast<std::size_t>(size));
}

Text quoted_name(std::string_view name) {
  Text out;
  out.add('"');
  for (const char c : name) {
    if (c == '"') out.add('"');
    out.add(c);
  }
  out.add('"');
  return out;
}

bool read_tables(const Database& database, List<Text>& out) {
  // A root page: what has none is virtual, and would run code.
  Query tables(
      database,
      "select name from sqlite_master where type='table' and rootpage>0 and name not like 'sqlite\\_%' "
      "escape '\\' order by name");
  while (tables.next()) out.push(Text(tables.bytes(0)));
  return !tables.failed();
}

bool exists(const char* path) {
  struct stat entry {};
  return lstat(path, &entry) == 0;
}

FileReport inspect(const char* path) {
  FileReport report;
  struct stat entry {};
  if (stat(path, &entry) != 0) {
    if (errno == ENOENT || errno == ENOTDIR) return report;
    report.health = Health::kUnreadable;
    report.why = Text(std::strerror(errno));
    return report;
  }
  report.size = entry.st_size;
  if (!S_ISREG(entry.st_mode)) {
    report.health = Health::kUnreadable;
    report.why = Text("not a file");
    return report;
  }
  report.hot_journal = has_hot_journal(path);
  Database database;
  if (const int code = database.open(path); code != SQLITE_OK) {
    report.health = health_of(code, path);
    report.why = Text(database.why().view());
    return report;
  }
  report.schema_read = true;
  Query check(database, "pragma quick_check");
  while (check.next()) add_problems(check.bytes(0), report.problems);
  report.health = check.failed() ? health_of(check.code(), path) : Health::kHealthy;
  if (check.failed()) report.why = Text(sqlite3_errmsg(database.get()));
  if (!report.problems.empty()) {
    report.health = Health::kCorrupt;
    report.why = Text(report.problems[0].view());
  }
  return report;
}

}  // namespace cli::look
