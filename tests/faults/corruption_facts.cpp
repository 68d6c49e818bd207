// SPDX-License-Identifier: MIT
#include "faults/corruption_facts.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "faults/corruption_items.h"

namespace vexa_test {
namespace {

constexpr const char* kSuffixes[] = {"-journal", "-wal", "-shm"};

// The database and SQLite's own files, where opening them changes nothing of the store.
class Copy {
 public:
  explicit Copy(const std::filesystem::path& path) {
    std::error_code ignored;
    std::filesystem::copy_file(path, kName, ignored);
    for (const char* suffix : kSuffixes) {
      std::filesystem::copy(path.string() + suffix, std::string(kName) + suffix,
                            std::filesystem::copy_options::copy_symlinks, ignored);
    }
    sqlite3_open(kName, &db_);
  }
  Copy(const Copy&) = delete;
  Copy& operator=(const Copy&) = delete;
  ~Copy() {
    sqlite3_close(db_);
    std::error_code ignored;
    std::filesystem::remove_all(kName, ignored);
    for (const char* suffix : kSuffixes) std::filesystem::remove_all(std::string(kName) + suffix, ignored);
  }

  std::string first(const std::string& sql, int& code) const {
    sqlite3_stmt* statement = nullptr;
    std::string result;
    code = sqlite3_prepare_v2(db_, sql.c_str(), -1, &statement, nullptr);
    if (code == SQLITE_OK && sqlite3_step(statement) == SQLITE_ROW) {
      result = sqlite_tools_detail::column_bytes(statement, 0);
    }
    sqlite3_finalize(statement);
    return result;
  }
  bool run(const std::string& sql) const {
    return sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
  }

 private:
  static constexpr const char* kName = "/tmp/facts.db";
  sqlite3* db_ = nullptr;
};

bool is_obstructed(const std::string& path) {
  for (const char* suffix : kSuffixes) {
    struct stat status = {};
    if (lstat((path + suffix).c_str(), &status) == 0 && !S_ISREG(status.st_mode)) return true;
  }
  return false;
}

bool takes_row_of(const Copy& copy, const Item& item) {
  const std::string where = " where key='" + item.key + "'";
  return copy.run("create table if not exists " + item.table +
                  " (id integer not null,key text not null,type integer not null,len integer not null,crc "
                  "integer not null,value blob)") &&
         copy.run("select 1 from " + item.table + where) &&
         copy.run("update " + item.table + " set id=1,type=6,len=3,crc=4,value=x'010203'" + where) &&
         copy.run("insert into " + item.table + " (id,key,type,len,crc,value) values(1,'" + item.key +
                  "',6,3,4,x'010203')");
}

}  // namespace

Facts facts_of(const std::string& path, const std::vector<Item>& items) {
  Facts facts;
  struct stat status = {};
  const int found = stat(path.c_str(), &status);
  facts.empty = found != 0 ? errno == ENOENT : S_ISREG(status.st_mode) && status.st_size == 0;
  facts.reachable = facts.empty || (found == 0 && S_ISREG(status.st_mode));
  if (!facts.reachable) return facts;
  const std::string real = std::filesystem::weakly_canonical(path);
  facts.obstructed = is_obstructed(real);
  if (facts.empty) return facts;

  const Copy copy(real);
  copy.first("select 1 from sqlite_master", facts.prepare);
  int ignored = 0;
  const auto is_healthy = [&] { return copy.first("PRAGMA quick_check", ignored) == "ok"; };
  facts.healthy = is_healthy();
  for (const Item& item : items) {
    const std::string where = " from " + item.table + " where key='" + item.key + "' limit 1";
    facts.holds[item.key] =
        copy.first("select value" + where, ignored) == item.value &&
        copy.first("select crc" + where, ignored) == std::to_string(reference_crc(item.value));
  }
  facts.takes_rows = takes_row_of(copy, kChanged);
  facts.healthy_then = is_healthy();
  return facts;
}

}  // namespace vexa_test
