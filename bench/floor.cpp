// SPDX-License-Identifier: MIT
#include "floor.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vexadm/vexadm.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "store.h"

namespace bench::floor {
namespace {

bool run(sqlite3* db, const char* sql) {
  return sqlite3_exec(db, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

bool has_row(sqlite3* db, const char* sql) {
  char** cells = nullptr;
  int rows = 0;
  const bool found = sqlite3_get_table(db, sql, &cells, &rows, nullptr, nullptr) == SQLITE_OK && rows > 0;
  sqlite3_free_table(cells);
  return found;
}

sqlite3* begin(const char* path) {
  sqlite3* db = nullptr;
  sqlite3_open(path, &db);
  run(db, "PRAGMA synchronous=EXTRA");
  run(db, "BEGIN IMMEDIATE");
  return db;
}

bool finish(sqlite3* db) {
  const bool done = run(db, "COMMIT");
  sqlite3_close(db);
  return done;
}

bool write_state(const char* table, uint32_t id, const std::string& key, int length, int state) {
  sqlite3* db = begin(DB_STATE);
  run(db,
      "create table if not exists state (key text not null,item_table text not null,id integer not "
      "null,item_key text "
      "not null,type integer,len integer,state integer)");
  has_row(db, "select 1 from state where key='write_state'");
  char sql[512];
  std::snprintf(
      sql, sizeof sql,
      "update state set item_table='%s',id=%u,item_key='%s',type=6,len=%d,state=%d where key='write_state'",
      table, id, key.c_str(), length, state);
  const bool updated = run(db, sql);
  return finish(db) && updated;
}

bool write_row(const char* table, uint32_t id, const std::string& key, const void* data, int length) {
  sqlite3* db = begin(DB_CONFIG);
  char sql[512];
  std::snprintf(
      sql, sizeof sql,
      "create table if not exists %s (id integer not null,key text not null,type integer not null,len "
      "integer not null,crc integer not null,value blob)",
      table);
  run(db, sql);
  std::snprintf(sql, sizeof sql, "select 1 from %s where key='%s'", table, key.c_str());
  has_row(db, sql);
  const int crc =
      vexa_dm_Crc32Calc(static_cast<const uint8_t*>(data), static_cast<uint32_t>(length) & 0xffff, 0);
  std::snprintf(sql, sizeof sql, "update %s set id=%u, type=6, len=%d, crc=%d,value=:1 where key='%s'", table,
                id, length, crc, key.c_str());
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v2(db, sql, -1, &statement, nullptr);
  sqlite3_bind_blob(statement, 1, data, length, SQLITE_STATIC);
  const bool stepped = sqlite3_step(statement) == SQLITE_DONE;
  sqlite3_finalize(statement);
  return finish(db) && stepped;
}

bool quick_check(const char* path) {
  sqlite3* db = nullptr;
  sqlite3_open_v2(path, &db, SQLITE_OPEN_READONLY, nullptr);
  const bool fine = run(db, "PRAGMA quick_check;");
  sqlite3_close(db);
  return fine;
}

sqlite3* lock(const char* path) {
  sqlite3* db = nullptr;
  sqlite3_open_v2(path, &db, SQLITE_OPEN_READWRITE, nullptr);
  run(db, "BEGIN IMMEDIATE");
  return db;
}

bool copy_bytes(sqlite3* from, int to) {
  sqlite3_file* source = nullptr;
  sqlite3_file_control(from, "main", SQLITE_FCNTL_FILE_POINTER, &source);
  sqlite3_int64 size = 0;
  source->pMethods->xFileSize(source, &size);
  char chunk[8192];
  for (sqlite3_int64 offset = 0; offset < size;) {
    const auto count = static_cast<int>(std::min<sqlite3_int64>(size - offset, sizeof chunk));
    if (source->pMethods->xRead(source, chunk, count, offset) != SQLITE_OK) return false;
    if (write(to, chunk, static_cast<std::size_t>(count)) != count) return false;
    offset += count;
  }
  return true;
}

bool sync_directory_of(const std::string& path) {
  const int directory = open(path.substr(0, path.rfind('/') + 1).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const bool synced = fsync(directory) == 0;
  close(directory);
  return synced;
}

bool check_and_copy() {
  sqlite3* source = lock(DB_CONFIG);
  bool done = quick_check(DB_CONFIG);
  sqlite3* target = lock(DB_CONFIGBAK);
  struct stat replaced = {};
  stat(DB_CONFIGBAK, &replaced);
  const std::string temporary = std::string(DB_CONFIGBAK) + "-copy";
  const int copy = open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  done = fchown(copy, replaced.st_uid, replaced.st_gid) == 0 && done;
  done = fchmod(copy, replaced.st_mode & 07777) == 0 && done;
  done = copy_bytes(source, copy) && fsync(copy) == 0 && done;
  close(copy);
  done = std::rename(temporary.c_str(), DB_CONFIGBAK) == 0 && sync_directory_of(DB_CONFIGBAK) && done;
  sqlite3_close(target);
  sqlite3_close(source);
  return done;
}

}  // namespace

int read_value(const char* path, const char* table, const std::string& key, void* buffer, int capacity) {
  sqlite3* db = nullptr;
  sqlite3_open(path, &db);
  char sql[512];
  std::snprintf(sql, sizeof sql, "select value,crc from %s where key='%s' limit 1", table, key.c_str());
  sqlite3_stmt* statement = nullptr;
  int count = -1;
  if (sqlite3_prepare(db, sql, -1, &statement, nullptr) == SQLITE_OK &&
      sqlite3_step(statement) == SQLITE_ROW) {
    const void* value = sqlite3_column_blob(statement, 0);
    count = std::min(capacity, sqlite3_column_bytes(statement, 0));
    std::memcpy(buffer, value, static_cast<std::size_t>(count));
  }
  sqlite3_finalize(statement);
  sqlite3_close(db);
  return count;
}

int read_item(const char* table, const std::string& key, void* buffer, int capacity) {
  read_value(DB_CONFIG, table, key, buffer, capacity);
  return read_value(DB_CONFIGBAK, table, key, buffer, capacity);
}

bool write_item(const char* table, uint32_t id, const std::string& key, const void* data, int length) {
  return write_state(table, id, key, length, WS_READY) && write_row(table, id, key, data, length) &&
         check_and_copy() && write_state(table, id, key, length, WS_WRITE_DONE) &&
         write_state(table, id, key, length, WS_BACKUP_DONE);
}

bool start() {
  uint32_t version = 0;
  const int count = read_item(kVersionTable, kVersionKey, &version, sizeof version);
  sqlite3* db = nullptr;
  sqlite3_open(DB_STATE, &db);
  const bool row =
      has_row(db, "select item_table,item_key,id,type,len,state from state where key='write_state'");
  sqlite3_close(db);
  return count == sizeof version && row;
}

}  // namespace bench::floor
