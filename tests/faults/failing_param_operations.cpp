// SPDX-License-Identifier: MIT
// The parameter database.
#include <vexadm/vexadm.h>

#include <cstring>

#include "faults/failing_operations.h"

namespace vexa_test {
namespace {

const std::string kUser = "/data/vexa-resource/sqlite3/user_info.db";
const std::string kFactory = "/data/vexa-resource/sqlite3/factory_info.db";

std::uint32_t g_number = 0;
char g_text[33] = "";
vexa_db_param g_params[] = {
    {&g_number, "number", 2, 4, 1}, {g_text, "name", 6, sizeof g_text, 2}, {nullptr, nullptr, 0, 0, 0}};
const vexa_db_table g_table = {"t", g_params};

void make_databases() {
  std::filesystem::remove_all("/data/vexa-resource");
  std::filesystem::create_directories("/data/vexa-resource/sqlite3");
  exec_sql(kUser, "create table t(number, name); insert into t values(7, 'mine')");
  exec_sql(kFactory, "create table t(number, name); insert into t values(8, 'theirs')");
  g_number = 9;
  std::strcpy(g_text, "held");
}

void make_the_factory_database() {
  make_databases();
  std::filesystem::remove(kUser);
}

// A failure leaves its connection open, until an operation that succeeds.
void close_connections() {
  if (!std::filesystem::exists(kFactory)) return;
  vexa_db_exec_cmd("select 1", nullptr, nullptr, VEXA_DB_USER);
  vexa_db_close_sqlite();
}

std::int64_t and_closed(std::int64_t result) {
  close_connections();
  return result;
}

// What success promises, seen when nothing fails any more.
template <typename Promise>
std::int64_t and_kept(std::int64_t result, Promise promise) {
  close_connections();
  return result != 0 || promise() ? result : 999;
}

std::string row() { return rows(kUser, "select * from t"); }

int add_row(void* count, int, char**, char**) {
  ++*static_cast<int*>(count);
  return 0;
}

}  // namespace

std::vector<Operation> param_operations() {
  const std::vector<Answer> queried = {{0}, {1, "3 search_by_table|Error, <any>"}};
  const std::vector<Answer> updated = {{0}, {1, "3 update_item_to_db|Error, <any>"}};
  return {
      {.name = "ParameterTableLoaded",
       .before = make_databases,
       .run = [] { return std::int64_t{CALL(vexa_db_query_db_init_struct)(&g_table)}; },
       .answers = queried,
       .settle =
           [](std::int64_t result) {
             return and_kept(result, [] { return g_number == 7 && std::strcmp(g_text, "mine") == 0; });
           }},
      {.name = "ParameterTableWritten",
       .before = make_databases,
       .run = [] { return std::int64_t{CALL(vexa_db_update_db_from_struct)(&g_table, -1)}; },
       .answers = {{0}, {1, "3 oem_db_update_db_from_struct|Error, tbl_name:t update key:[<any>] failed.\n"}},
       .settle = [](std::int64_t result) { return and_kept(result, [] { return row() == "9,held"; }); },
       .thorough = true},
      {.name = "ParameterReloaded",
       .before = make_databases,
       .run = [] { return std::int64_t{CALL(vexa_db_reload_value)(&g_table, 2)}; },
       .answers = {{0}, {1, "3 update_item_to_db|Error, <any>"}, {1, "3 search_by_table|Error, <any>"}},
       .settle =
           [](std::int64_t result) {
             return and_kept(result,
                             [] { return row() == "7,theirs" && std::strcmp(g_text, "theirs") == 0; });
           }},
      {.name = "ParameterRead",
       .before = make_databases,
       .run = [] { return std::int64_t{CALL(vexa_db_get_value)("t", "number", &g_number, 2, 0)}; },
       .answers = {{0}, {1, "3 oem_db_get_value|Error, db:<any> search_by_table return failed.\n"}},
       .settle = [](std::int64_t result) { return and_kept(result, [] { return g_number == 7; }); }},
      {.name = "ParameterUpdated",
       .before = make_databases,
       .run = [] { return std::int64_t{CALL(vexa_db_update_value)("t", "number", &g_number, 2)}; },
       .answers = updated,
       .settle = [](std::int64_t result) { return and_kept(result, [] { return row() == "9,mine"; }); }},
      {.name = "ParameterUpdatedInAMissingDatabase",
       .before = make_the_factory_database,
       .run = [] { return std::int64_t{vexa_db_update_value("t", "number", &g_number, 2)}; },
       .answers = {{1, "3 update_item_to_db|Error, <any>"}},
       .settle = and_closed},
      {.name = "ParameterCommand",
       .before = make_databases,
       .run =
           [] {
             int seen = 0;
             const std::uint32_t result =
                 CALL(vexa_db_exec_cmd)("select * from t", add_row, &seen, VEXA_DB_FACTORY);
             return std::int64_t{result == 0 && seen != 1 ? 999 : result};
           },
       .answers = {{0},
                   {1, "3 oem_db_exec_cmd|Error, db:<any> open_sqlite_db return faild.\n"},
                   {1, "3 oem_db_exec_cmd|Error, sqlite3_get_table run faild, <any>"}},
       .settle = and_closed},
      {.name = "ParameterConnectionClosed",
       .before = make_databases,
       .run =
           [] {
             if (vexa_db_exec_cmd("no sql", nullptr, nullptr, VEXA_DB_USER) != 1) return std::int64_t{999};
             return std::int64_t{CALL(vexa_db_close_sqlite)()};
           },
       .answers = {{0, "3 oem_db_exec_cmd|Error, <any>"}},
       .settle = and_closed},
      {.name = "ParametersNotRestored",
       .before = make_databases,
       .run = [] { return std::int64_t{CALL(vexa_db_restore_factory)()}; },
       .answers = {{0, "3 oem_system_call|System call length mismatch: 0 != 87\n"}},
       .settle = [](std::int64_t result) { return and_kept(result, [] { return row() == "7,mine"; }); }},
  };
}

}  // namespace vexa_test
