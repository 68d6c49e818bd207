// SPDX-License-Identifier: MIT
// The write-state journal: how far the last item write has come.
#include <sqlite3.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "call_budget.h"
#include "log/call_site.h"
#include "sqlite3/src/database.h"
#include "sqlite3/src/storage.h"

namespace {

using vexa::CallBudget;
using vexa::storage::Command;
using vexa::storage::Database;
using vexa::storage::Presence;
using vexa::storage::Sql;

constexpr char kSelf[] = "dm_write_state_db";
constexpr char kTable[] = "state";
constexpr char kKey[] = "write_state";

// Runs a statement and commits; the error text is the database's until its next call.
int run_and_commit(Database& db, const char* sql) {
  const int code = db.exec(sql);
  return code != SQLITE_OK ? code : db.commit();
}

void make_anew() {
  const Command remove("rm -f %s", DB_STATE);
  [[maybe_unused]] const int status = std::system(remove.get());  // what is left shows on opening
  Database db;
  if (db.open(DB_STATE) != SQLITE_OK) {
    VEXA_LOG(vexa::log::kError, kSelf, "Can't create database: %s\n", db.error());
  } else {
    VEXA_LOG(vexa::log::kDebug, kSelf, "Create database %s successfully\n", DB_STATE);
  }
}

// A refused update: adds the columns of this build, or starts the journal anew.
int32_t mend_and_update(Database& db, const char* update, int code) {
  const bool old_table = std::strstr(db.error(), "no such column") != nullptr;
  VEXA_LOG(vexa::log::kError, kSelf, "szSql: %s, rc: %d, szErrMsg: %s\n", update, code, db.error());
  if (old_table) {
    if (alter_table_add_column(db.get(), kTable, kKey) != 0) {
      VEXA_LOG(vexa::log::kError, kSelf, "alter_table_add_column failed\n");
    }
    code = run_and_commit(db, update);
    if (code == SQLITE_OK) return 0;
    VEXA_LOG(vexa::log::kError, kSelf, "[%d] update error, %s\n", __LINE__, db.error());
    db.rollback();
  } else {
    VEXA_LOG(vexa::log::kError, kSelf, "ret_pos is NULL, other error occured\n");
    db.rollback();
    make_anew();
  }
  VEXA_LOG(vexa::log::kError, kSelf, "error when szSql: %s, rc: %d\n", update, code);
  return -1;
}

}  // namespace

int32_t dm_write_state_db(const char* item_table, uint32_t id, const char* item_key, int32_t type,
                          int32_t len, int32_t state) {
  if (item_table == nullptr || item_key == nullptr) {
    VEXA_LOG(vexa::log::kError, kSelf, "%s NULL\n", kSelf);
    return -1;
  }
  const CallBudget budget;
  Database db;
  db.open(DB_STATE);
  db.begin(Database::Begin::kDurable);
  if (!db.is_open()) {
    VEXA_LOG(vexa::log::kError, kSelf, "sqlite3_open failed: %s\n", db.error());
    return -1;
  }
  const Sql create(
      "create table if not exists %s (key text not null,item_table text not null,id integer not null,"
      "item_key text not null,type integer,len integer,state integer)",
      kTable);
  if (db.exec(create.get()) != SQLITE_OK) {
    VEXA_LOG(vexa::log::kError, kSelf, "[%d] create table error, %s\n", __LINE__, db.error());
    return -1;
  }
  const auto item_id = static_cast<int32_t>(id);
  const Presence presence = vexa::storage::presence_of(db.get(), kTable, kKey);
  if (presence == Presence::kUnknown) return -1;
  if (presence == Presence::kPresent) {
    const Sql update(
        "update %s set item_table='%s',id=%d,item_key='%s',type=%d,len=%d,state=%d where key='%s'", kTable,
        item_table, item_id, item_key, type, len, state, kKey);
    const int code = run_and_commit(db, update.get());
    return code == SQLITE_OK ? 0 : mend_and_update(db, update.get(), code);
  }
  const Sql insert(
      "insert into %s (key,item_table,id,item_key,type,len,state) values('%s','%s',%d,'%s',%d,%d,%d)", kTable,
      kKey, item_table, item_id, item_key, type, len, state);
  if (run_and_commit(db, insert.get()) == SQLITE_OK) return 0;
  VEXA_LOG(vexa::log::kError, kSelf, "[%d] insert error, %s\n", __LINE__, db.error());
  return -1;
}
