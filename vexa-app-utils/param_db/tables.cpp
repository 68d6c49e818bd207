// SPDX-License-Identifier: MIT
// Parameter tables: loaded from the user database, written to it, reloaded from the factory's.
#include <unistd.h>

#include <cstddef>

#include "log/call_site.h"
#include "owners.h"
#include "param_db/connections.h"
#include "param_db/statements.h"
#include "param_db/types.h"
#include "vexadm/param_db.h"

static_assert(offsetof(vexa_db_param, value) == 0 && offsetof(vexa_db_param, key) == sizeof(void*));
static_assert(offsetof(vexa_db_param, type) == 2 * sizeof(void*));
static_assert(offsetof(vexa_db_param, size) == 2 * sizeof(void*) + 4);
static_assert(offsetof(vexa_db_param, param_id) == 2 * sizeof(void*) + 8);
static_assert(sizeof(vexa_db_param) == (sizeof(void*) == 8 ? 32 : 20));
static_assert(offsetof(vexa_db_table, name) == 0 && offsetof(vexa_db_table, params) == sizeof(void*));

namespace {

namespace log = vexa::log;
using namespace vexa::param_db;
using vexa::MutexLock;

constexpr const char* kInit = "vexa_db_query_db_init_struct";
constexpr const char* kUpdate = "vexa_db_update_db_from_struct";
constexpr const char* kReload = "vexa_db_reload_value";

bool is_complete(const vexa_db_table* table, const char* function) {
  if (table && table->name && table->params) return true;
  VEXA_LOG(log::kError, function, "Error, tbl_name is null. \n");
  return false;
}

// A record that the function passes over needs none.
bool has_variable(const vexa_db_param& param, Variable ParamType::*column, const char* function) {
  if (param.value || !takes(param.type, column)) return true;
  VEXA_LOG(log::kError, function, "Error, key:%s has no variable.\n", param.key);
  return false;
}

void load(const vexa_db_param& param, const Rows& rows, const char* function) {
  store(variable_of(param.type, &ParamType::loaded, function), rows.value(), param.value, param.size);
}

bool load_from_user(const char* table, const vexa_db_param& param) {
  if (!has_variable(param, &ParamType::loaded, kInit)) return false;
  Statement select;
  select.build("select %s from %s", param.key, table);
  VEXA_LOG(log::kDebug, kInit, "rc:%d, search_by_table sql_cmd:%s\n", 0, select.text());
  const Rows rows = search_by_table(select, VEXA_DB_USER);
  VEXA_LOG(log::kDebug, kInit, "rc:%d,  search_by_table azResult:%p, nrow:%d\n", 0, rows.address(),
           rows.count());
  if (!rows.has_value()) {
    VEXA_LOG(log::kError, kInit, "Error, db:%s search_by_table return failed. sql_cmd:%s\n", kUserPath,
             select.text());
    return false;
  }
  load(param, rows, kInit);
  return true;
}

// Empty for a type that is not written.
Statement update_of(const char* table, const vexa_db_param& param) {
  Statement update;
  switch (variable_of(param.type, &ParamType::written, kUpdate)) {
    case Variable::kByte:
      update.build("update %s set %s = %d;", table, param.key, shown_byte(param.value));
      break;
    case Variable::kWord:
      update.build("update %s set %s = %d;", table, param.key, shown_word(param.value));
      break;
    case Variable::kLong:
      update.build("update %s set  %s = %llu;", table, param.key, shown_long(param.value));
      break;
    case Variable::kText:
      update.build("update %s set %s = \"%.*s\";", table, param.key, shown_length(param.value, param.size),
                   static_cast<const char*>(param.value));
      break;
    case Variable::kHalf:
    case Variable::kNone:
      break;
  }
  return update;
}

uint32_t write_to_user(const char* table, const vexa_db_param& param) {
  if (!has_variable(param, &ParamType::written, kUpdate)) return 1;
  const Statement update = update_of(table, param);
  if (update.empty()) return 0;
  const uint32_t result = update_item_to_db(update);
  if (result != 0) {
    VEXA_LOG(log::kError, kUpdate, "Error, tbl_name:%s update key:[%s] failed.\n", table, param.key);
  }
  return result;
}

Rows factory_value(const char* table, const vexa_db_param& param) {
  Statement select;
  select.build("select %s from %s;", param.key, table);
  Rows rows = search_by_table(select, VEXA_DB_FACTORY);
  if (!rows.has_value()) {
    VEXA_LOG(log::kError, "__vexa_db_get_factory_value", "Error, db:%s search_by_table return failed.\n",
             kFactoryPath);
  }
  return rows;
}

// Loads the variable and builds the update of the user database. False without a factory value.
bool load_from_factory(const char* table, const vexa_db_param& param, Statement& update) {
  if (!has_variable(param, &ParamType::loaded, kReload)) return false;
  const Rows rows = factory_value(table, param);
  if (!rows.has_value()) return false;
  VEXA_LOG(log::kDebug, kReload, "tbl_name = %s,key = %s\n", table, param.key);
  load(param, rows, kReload);
  update.build("update %s set  %s = \"%s\"", table, param.key, rows.value() ? rows.value() : "");
  return true;
}

}  // namespace

uint32_t vexa_db_query_db_init_struct(const vexa_db_table* table) {
  const MutexLock lock(operations);
  if (!is_complete(table, kInit)) return 1;
  for (const vexa_db_param* param = table->params; param->key; ++param) {
    if (!load_from_user(table->name, *param)) return 1;
  }
  return 0;
}

uint32_t vexa_db_update_db_from_struct(const vexa_db_table* table, int32_t param_id) {
  const MutexLock lock(operations);
  if (!is_complete(table, kUpdate)) return 1;
  uint32_t result = 0;
  for (const vexa_db_param* param = table->params; param->key && result == 0; ++param) {
    if (param_id == -1 || param->param_id == param_id) result = write_to_user(table->name, *param);
  }
  sync();
  return result;
}

uint32_t vexa_db_reload_value(const vexa_db_table* table, int32_t param_id) {
  const MutexLock lock(operations);
  if (!is_complete(table, kReload)) return 1;
  // One for all records: the last one that has the number is what the user database gets.
  Statement update;
  for (int i = 0; table->params[i].key; ++i) {
    const vexa_db_param& param = table->params[i];
    VEXA_LOG(log::kDebug, kReload, "id = %d,i = %d,param_table[i].param_id= %d\n", param_id, i,
             param.param_id);
    if (param.param_id == param_id && !load_from_factory(table->name, param, update)) return 1;
  }
  if (!update.empty()) return update_item_to_db(update);
  VEXA_LOG(log::kError, kReload, "Error, PARAM TYPE SETING ERROR.\n");
  return 1;
}
