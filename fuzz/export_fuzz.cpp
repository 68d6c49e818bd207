// SPDX-License-Identifier: MIT
// The CSV export of a file of any content: what is in the CSV is what a second reader of the file
// makes of it.
#include <sqlite3.h>
#include <unistd.h>
#include <vexadm/storage.h>

#include <cstring>

#include "fuzz_target.h"

using vexa_fuzz::check;

namespace {

constexpr const char* kDatabase = "/data/export-me.db";
constexpr int kMostSteps = 40;
const std::string kLineEnd("\r\n\0", 3);
const std::string kHeader = "key,len,type,value," + kLineEnd;

class Reader {
 public:
  Reader() { sqlite3_open(kDatabase, &db_); }
  ~Reader() { sqlite3_close(db_); }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  template <typename Row>
  void each(const std::string& sql, const Row& row) {
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v2(db_, sql.c_str(), -1, &statement, nullptr);
    while (statement != nullptr && sqlite3_step(statement) == SQLITE_ROW) row(statement);
    sqlite3_finalize(statement);
  }

 private:
  sqlite3* db_ = nullptr;
};

std::string text_of(sqlite3_stmt* row, int column) {
  const auto* const text = reinterpret_cast<const char*>(sqlite3_column_text(row, column));
  return text == nullptr ? std::string()
                         : std::string(text, static_cast<std::size_t>(sqlite3_column_bytes(row, column)));
}

std::string number_field(sqlite3_stmt* row, int column) {
  if (text_of(row, column).size() > 4) return "";
  return std::to_string(sqlite3_column_int(row, column)) + ",";
}

std::string value_field(sqlite3_stmt* row) {
  const auto* const bytes = static_cast<const char*>(sqlite3_column_blob(row, 3));
  const std::string value = bytes == nullptr
                                ? std::string()
                                : std::string(bytes, static_cast<std::size_t>(sqlite3_column_bytes(row, 3)));
  if (sqlite3_column_int(row, 2) == VEXA_DM_STRING) {
    const int length = std::max(sqlite3_column_int(row, 1), 0);
    return value.substr(0, static_cast<std::size_t>(length)) + '\0';
  }
  std::int32_t number = 0;
  std::memcpy(&number, value.data(), std::min(value.size(), sizeof number));
  return std::to_string(number) + ",";
}

std::string line_of(sqlite3_stmt* row) {
  const bool has_key = sqlite3_column_type(row, 0) != SQLITE_NULL;
  const std::string key = text_of(row, 0);
  std::string line = has_key && key.size() <= 31 ? key.c_str() + std::string(",") : "";
  line += number_field(row, 1) + number_field(row, 2);
  return line + value_field(row) + kLineEnd;
}

std::string expected_csv() {
  std::string csv = kHeader;
  Reader reader;
  reader.each("SELECT name FROM sqlite_master WHERE type='table';", [&](sqlite3_stmt* table) {
    if (sqlite3_column_type(table, 0) == SQLITE_NULL) return;
    const std::string name = text_of(table, 0).c_str();
    const std::string select = "select key, len, type, value from " + name;
    reader.each(select.substr(0, 511), [&](sqlite3_stmt* row) { csv += line_of(row); });
  });
  return csv;
}

bool is_sound() {
  std::string verdict;
  Reader reader;
  reader.each("PRAGMA quick_check", [&](sqlite3_stmt* row) { verdict += text_of(row, 0); });
  return verdict == "ok";
}

void clear() {
  for (const char* suffix : {"", "-journal", "-wal", "-shm"})
    unlink((std::string(kDatabase) + suffix).c_str());
  unlink(DB_EXPORT_CSV);
}

}  // namespace

void vexa_fuzz::set_up() {}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const vexa_fuzz::Watch watch(kMostSteps);
  clear();
  vexa_fuzz::make_file(kDatabase, std::string(reinterpret_cast<const char*>(data), size));
  const std::string expected = expected_csv();
  const bool sound = is_sound();
  const auto code = static_cast<std::int32_t>(dm_read_all_tabs_from_db(kDatabase));
  check(code == 0 || code == -101, "an export gives an unknown result");
  if (code != 0) return 0;
  const std::string csv = vexa_fuzz::bytes_of_file(DB_EXPORT_CSV);
  check(csv.starts_with(kHeader) && csv.ends_with(kLineEnd), "a CSV without its head or end");
  // What SQLite makes of a damaged page can differ from one reading to the next.
  if (sound && !watch.stopped_statements()) check(csv == expected, "another CSV than a second reader's");
  return 0;
}
