// SPDX-License-Identifier: MIT
#include "store.h"

#include <sqlite3.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace bench {
namespace {

[[noreturn]] void give_up(const char* what, const std::string& why) {
  std::fprintf(stderr, "bench: %s: %s\n", what, why.c_str());
  std::exit(2);
}

void run(sqlite3* db, const std::string& sql) {
  if (sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK)
    give_up(sql.c_str(), sqlite3_errmsg(db));
}

void make_table(sqlite3* db, const char* table) {
  run(db, std::string("create table if not exists ") + table +
              " (id integer not null,key text not null,type integer not null,len integer not null,crc "
              "integer not "
              "null,value blob)");
}

void insert(sqlite3* db, const char* table, int id, const std::string& key, int type,
            const std::string& value) {
  const auto length = static_cast<int>(value.size());
  const int32_t crc =
      vexa_dm_Crc32Calc(reinterpret_cast<const uint8_t*>(value.data()), value.size() & 0xffff, 0);
  char sql[256];
  std::snprintf(sql, sizeof sql,
                "insert into %s (id, key, type, len, crc, value) values(%d, '%s',%d, %d, %d, ?)", table, id,
                key.c_str(), type, length, crc);
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(db, sql, -1, &statement, nullptr) != SQLITE_OK) give_up(sql, sqlite3_errmsg(db));
  sqlite3_bind_blob(statement, 1, value.data(), length, SQLITE_STATIC);
  if (sqlite3_step(statement) != SQLITE_DONE) give_up(sql, sqlite3_errmsg(db));
  sqlite3_finalize(statement);
}

void make_items(const std::string& path, std::size_t value_size, int items) {
  sqlite3* db = nullptr;
  if (sqlite3_open(path.c_str(), &db) != SQLITE_OK) give_up(path.c_str(), "not opened");
  run(db, "begin");
  make_table(db, kVersionTable);
  const uint32_t version = VEXA_SCHEMA_VERSION;
  insert(db, kVersionTable, static_cast<int>(version), kVersionKey, VEXA_DM_U32,
         std::string(reinterpret_cast<const char*>(&version), sizeof version));
  make_table(db, kTable);
  for (int number = 0; number < items; ++number) {
    insert(db, kTable, id_of(number), key_of(number), VEXA_DM_BLOCK, std::string(value_size, 'x'));
  }
  run(db, "commit");
  sqlite3_close(db);
}

}  // namespace

WorkingDirectory::WorkingDirectory() {
  const char* wanted = std::getenv("VEXA_BENCH_DIR");
  std::string directory = wanted == nullptr ? "" : wanted;
  std::error_code error;
  if (directory.empty()) {
    directory = std::filesystem::read_symlink("/proc/self/exe", error).parent_path() / "bench-data";
    made_ = directory;
  }
  std::filesystem::create_directories(directory, error);
  // Relative store areas from here on: a long path would not fit into the library's limit.
  if (chdir(directory.c_str()) != 0) give_up(directory.c_str(), "no such directory");
}

WorkingDirectory::~WorkingDirectory() {
  if (made_.empty()) return;
  std::error_code ignored;
  std::filesystem::remove_all(made_, ignored);
}

int32_t id_of(int number) { return number + 1; }

std::string key_of(int number) { return "item_" + std::to_string(number); }

std::vector<vexa_dm_default_item> item_table(const char* text) {
  std::vector<vexa_dm_default_item> table(kMostItems + 1);
  for (int number = 0; number < kMostItems; ++number) {
    vexa_dm_default_item& row = table[static_cast<std::size_t>(number)];
    row.id = id_of(number);
    std::snprintf(row.desc.table, sizeof row.desc.table, "%s", kTable);
    std::snprintf(row.desc.key, sizeof row.desc.key, "%s", key_of(number).c_str());
    row.value.block = text;
    row.type = VEXA_DM_BLOCK;
    row.length = 4;
  }
  table.back().id = -1;
  return table;
}

vexa_dm_handle* handle() {
  static vexa_dm_handle* const made = [] {
    static std::vector<vexa_dm_default_item> table = item_table("none");
    vexa_dm_handle* fresh = vexa_dm_reg(VEXA_DM_BACKEND_SQLITE);
    vexa_dm_reg_def_items(table.data());
    return fresh;
  }();
  return made;
}

void fill_cache() {
  for (int number = 0; number < kMostItems; ++number) {
    vexa_dm_cache_write(static_cast<uint32_t>(id_of(number)), "none", kCachedSize);
  }
}

void select_store(std::size_t value_size, int items) {
  const std::string directory = std::to_string(value_size) + "x" + std::to_string(items) + "/";
  vexa_dm_reg_store_area(VEXA_DM_BACKEND_SQLITE, directory.c_str(), directory.c_str());
  if (std::filesystem::exists(DB_CONFIGBAK)) return;
  std::filesystem::create_directories(directory);
  make_items(DB_CONFIG, value_size, items);
  std::filesystem::copy_file(DB_CONFIG, DB_CONFIGBAK);
  dm_write_state_db(kTable, 1, key_of(0).c_str(), VEXA_DM_BLOCK, static_cast<int32_t>(value_size),
                    WS_BACKUP_DONE);
  sync();
}

}  // namespace bench
