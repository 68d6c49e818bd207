// SPDX-License-Identifier: MIT
// Single values by table and column name.
#include "log/call_site.h"
#include "owners.h"
#include "param_db/connections.h"
#include "param_db/statements.h"
#include "param_db/types.h"
#include "vexadm/param_db.h"

namespace {

namespace log = vexa::log;
using namespace vexa::param_db;
using vexa::MutexLock;

constexpr const char* kGet = "vexa_db_get_value";
constexpr const char* kUpdate = "vexa_db_update_value";

bool are_given(const char* table, const char* column, const void* value, const char* function) {
  if (!table) {
    VEXA_LOG(log::kError, function, "Error, tbl_name is null. \n");
    return false;
  }
  if (!column || !value) {
    VEXA_LOG(log::kError, function, "Error, column or value is null. \n");
    return false;
  }
  return true;
}

}  // namespace

uint32_t vexa_db_get_value(const char* table, const char* column, void* out, uint32_t type, uint32_t size) {
  const MutexLock lock(operations);
  if (!are_given(table, column, out, kGet)) return 1;
  Statement select;
  select.build("select %s from %s ;", column, table);
  const Rows rows = search_by_table(select, VEXA_DB_USER);
  if (!rows.has_value()) {
    VEXA_LOG(log::kError, kGet, "Error, db:%s search_by_table return failed.\n", kUserPath);
    return 1;
  }
  store(variable_of(type, &ParamType::got, kGet), rows.value(), out, size);
  return 0;
}

uint32_t vexa_db_update_value(const char* table, const char* column, const void* value, uint32_t type) {
  const MutexLock lock(operations);
  if (!are_given(table, column, value, kUpdate)) return 1;
  Statement update;
  switch (variable_of(type, &ParamType::updated, kUpdate)) {
    case Variable::kByte:
      update.build("update %s set  %s = %d;", table, column, shown_byte(value));
      break;
    case Variable::kWord:
      update.build("update %s set  %s = %d;", table, column, shown_word(value));
      break;
    case Variable::kLong:
      update.build("update %s set  %s = %llu;", table, column, shown_long(value));
      break;
    case Variable::kText:
      update.build("update %s set  %s = \"%s\";", table, column, static_cast<const char*>(value));
      break;
    case Variable::kHalf:
    case Variable::kNone:
      break;
  }
  if (!update.empty()) return update_item_to_db(update);
  VEXA_LOG(log::kError, kUpdate, "Error, PARAM TYPE SETING ERROR.\n");
  return 1;
}
