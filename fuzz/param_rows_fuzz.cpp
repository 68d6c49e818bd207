// SPDX-License-Identifier: MIT
// Parameter databases with cells of any kind, and parameter records of any kind: each variable
// holds what its cell says and nothing behind it is touched, and the user database holds what the
// statements would have made of a copy of it.
#include <sqlite3.h>
#include <vexadm/param_db.h>

#include <array>
#include <cctype>
#include <climits>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

#include "fuzz_target.h"

using vexa_fuzz::check;
using vexa_fuzz::Source;

// The storage of the fuzzer's machine is nobody's parameter.
extern "C" void sync() noexcept {}

namespace {

const std::string kUser = "/data/vexa-resource/sqlite3/user_info.db";
const std::string kFactory = "/data/vexa-resource/sqlite3/factory_info.db";
const std::string kModel = "/data/model.db";
constexpr unsigned kColumns = 4;

const std::string long_key(246, 'c');
const std::array<std::string, 6> keys = {"c0", "c1", "c2", "c3", "nowhere", long_key};

class Connection {
 public:
  explicit Connection(const std::string& path) { sqlite3_open(path.c_str(), &db_); }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  ~Connection() { sqlite3_close(db_); }
  sqlite3* get() const { return db_; }
  bool run(const std::string& sql) const {
    return sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
  }

 private:
  sqlite3* db_ = nullptr;
};

// ---- The databases ----

void bind_cell(sqlite3_stmt* statement, int column, Source& source) {
  static constexpr int kLengths[] = {3, 12, 40, 300};
  const unsigned kind = source.byte();
  switch (kind % 6) {
    case 0:
      return;  // NULL
    case 1:
      sqlite3_bind_int(statement, column, static_cast<int>(source.word()) - 32768);
      return;
    case 2: {
      std::int64_t wide = 0;
      const std::string bytes = source.bytes(8);
      std::memcpy(&wide, bytes.data(), bytes.size());
      sqlite3_bind_int64(statement, column, wide);
      return;
    }
    case 3: {
      double real = 0;
      const std::string bytes = source.bytes(8);
      std::memcpy(&real, bytes.data(), bytes.size());
      sqlite3_bind_double(statement, column, real);
      return;
    }
    default: {
      const unsigned most = static_cast<unsigned>(kLengths[kind / 6 % 4]);
      const std::string bytes = source.bytes(source.below(most));
      const int size = static_cast<int>(bytes.size());
      if (kind % 6 == 4) sqlite3_bind_text(statement, column, bytes.data(), size, SQLITE_TRANSIENT);
      if (kind % 6 == 5) sqlite3_bind_blob(statement, column, bytes.data(), size, SQLITE_TRANSIENT);
    }
  }
}

void make_database(const std::string& path, Source& source) {
  std::filesystem::remove(path);
  std::filesystem::remove(path + "-journal");
  const Connection db(path);
  db.run("pragma journal_mode=off; pragma synchronous=off");
  // Columns of each affinity: what is stored differs, what is read is what is stored.
  static constexpr const char* kTables[] = {"create table t(c0, c1, c2, c3)",
                                            "create table t(c0 integer, c1 text, c2 real, c3 blob)",
                                            "create table t(c0 text, c1 text, c2 int, c3 numeric)"};
  db.run(kTables[source.below(3)]);
  for (unsigned rows = source.byte() % 4; rows > 0; --rows) {
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v2(db.get(), "insert into t values(?, ?, ?, ?)", -1, &statement, nullptr);
    for (unsigned i = 1; i <= kColumns; ++i) bind_cell(statement, static_cast<int>(i), source);
    sqlite3_step(statement);
    sqlite3_finalize(statement);
  }
}

std::string dump(const std::string& path) {
  const Connection db(path);
  char** cells = nullptr;
  int rows = 0;
  int columns = 0;
  if (sqlite3_get_table(db.get(), "select *, typeof(c0), typeof(c1), typeof(c2), typeof(c3) from t", &cells,
                        &rows, &columns, nullptr) != SQLITE_OK) {
    return "<none>";
  }
  std::string text;
  for (int i = 0; i < (rows + 1) * columns; ++i) text += std::string(cells[i] ? cells[i] : "<null>") + "|";
  sqlite3_free_table(cells);
  return text;
}

// ---- The model ----

// The first row's cell; nothing where there is none.
struct Cell {
  bool is_null = false;
  std::string text;
};

std::optional<Cell> cell_of(const std::string& path, const std::string& sql) {
  const Connection db(path);
  sqlite3_stmt* statement = nullptr;
  std::optional<Cell> cell;
  sqlite3_prepare_v2(db.get(), sql.c_str(), -1, &statement, nullptr);
  if (sqlite3_step(statement) == SQLITE_ROW) {
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, 0));
    cell = Cell{sqlite3_column_type(statement, 0) == SQLITE_NULL, text == nullptr ? "" : text};
  }
  sqlite3_finalize(statement);
  return cell;
}

// A decimal number at the start of a text, bounded.
long long number_of(const std::string& text, long long most) {
  std::size_t at = 0;
  while (at < text.size() && (text[at] == ' ' || (text[at] >= '\t' && text[at] <= '\r'))) ++at;
  const bool negative = at < text.size() && text[at] == '-';
  if (at < text.size() && (text[at] == '-' || text[at] == '+')) ++at;
  const unsigned long long limit = static_cast<unsigned long long>(most) + (negative ? 1 : 0);
  unsigned long long value = 0;
  for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
    const auto digit = static_cast<unsigned long long>(text[at] - '0');
    if (value > (limit - digit) / 10) return negative ? -most - 1 : most;
    value = value * 10 + digit;
  }
  return static_cast<long long>(negative ? 0 - value : value);
}

// Which types each function takes.
constexpr const char* kLoads = "0123567";
constexpr const char* kGets = "0124567";
constexpr const char* kWrites = "0124567";
constexpr const char* kUpdates = "012567";

bool takes(const char* types, std::uint32_t type) {
  return type < 10 && std::strchr(types, static_cast<int>('0' + type)) != nullptr;
}

// A host's variable, in memory of exactly its size.
struct Variable {
  std::uint32_t type;
  std::uint32_t size;  // of a text
  std::size_t bytes;
  std::unique_ptr<char[]> memory;

  std::string content() const { return std::string(memory.get(), bytes); }

  // What a cell makes of it.
  std::string loaded(const Cell& cell) const {
    if (type == 6) {
      if (size == 0) return content();
      std::string text = (cell.is_null ? "" : cell.text).substr(0, size - 1);
      return text + std::string(size - text.size(), '\0');
    }
    const long long number = type == 5 ? number_of(cell.text, LLONG_MAX) : number_of(cell.text, LONG_MAX);
    std::string expected(bytes, '\0');
    for (std::size_t i = 0; i < bytes; ++i) {
      expected[i] = static_cast<char>(static_cast<unsigned long long>(number) >> (8 * i));
    }
    return expected;
  }

  // Its value in a statement.
  std::string shown() const {
    if (type == 6) {
      const std::string text = content();
      return "\"" + text.substr(0, text.find('\0')) + "\"";
    }
    unsigned long long value = 0;
    for (std::size_t i = 0; i < bytes; ++i) {
      value |= static_cast<unsigned long long>(static_cast<unsigned char>(memory[i])) << (8 * i);
    }
    if (type == 5) return std::to_string(value);
    return std::to_string(static_cast<std::int32_t>(value));
  }
};

Variable make_variable(Source& source) {
  static constexpr std::size_t kWidths[] = {1, 1, 4, 2, 4, 8, 0, 4, 1, 1};
  Variable variable{};
  variable.type = source.below(10);
  variable.size = variable.type == 6 ? source.below(source.byte() % 4 == 0 ? 300 : 20) : source.byte();
  variable.bytes = variable.type == 6 ? variable.size : kWidths[variable.type];
  std::string bytes = source.bytes(variable.bytes);
  if (variable.type == 6 && variable.size == 0) {  // written up to its terminator
    bytes = std::string(source.bytes(source.below(8)).c_str());
    variable.bytes = bytes.size() + 1;
  }
  variable.memory = std::make_unique<char[]>(variable.bytes);
  std::memcpy(variable.memory.get(), bytes.data(), bytes.size());
  return variable;
}

std::string cut(const std::string& sql) { return sql.substr(0, 255); }

std::uint32_t run_on_model(const std::string& sql) { return Connection(kModel).run(cut(sql)) ? 0 : 1; }

void expect_same_database() { check(dump(kUser) == dump(kModel), "another user database"); }

// A failure leaves its connection open, with what its statements began.
std::uint32_t settled(std::uint32_t result) {
  if (result != 0) vexa_db_close_sqlite();
  return result;
}

// ---- The calls ----

struct Table {
  std::vector<Variable> variables;
  std::vector<vexa_db_param> params;
  vexa_db_table table{};

  explicit Table(Source& source) {
    const unsigned count = source.byte() % 5;
    for (unsigned i = 0; i < count; ++i) {
      variables.push_back(make_variable(source));
      const Variable& variable = variables.back();
      params.push_back({variable.memory.get(), keys[source.below(keys.size())].c_str(), variable.type,
                        variable.size, static_cast<std::int32_t>(source.below(3))});
    }
    params.push_back({});
    table = {source.byte() % 8 == 0 ? "u" : "t", params.data()};
  }
};

void load_table(Source& source) {
  Table given(source);
  std::vector<std::string> expected;
  std::uint32_t result = 0;
  for (std::size_t i = 0; i < given.variables.size(); ++i) {
    expected.push_back(given.variables[i].content());
    if (result != 0) continue;
    const auto cell =
        cell_of(kModel, cut(std::string("select ") + given.params[i].key + " from " + given.table.name));
    if (!cell) {
      result = 1;
    } else if (takes(kLoads, given.variables[i].type)) {
      expected[i] = given.variables[i].loaded(*cell);
    }
  }
  check(settled(vexa_db_query_db_init_struct(&given.table)) == result, "loading gives another result");
  for (std::size_t i = 0; i < expected.size(); ++i) {
    check(given.variables[i].content() == expected[i], "another value is loaded");
  }
}

void reload(Source& source) {
  Table given(source);
  const auto id = static_cast<std::int32_t>(source.below(3));
  std::vector<std::string> expected;
  std::string update;
  bool found_all = true;
  for (std::size_t i = 0; i < given.variables.size(); ++i) {
    expected.push_back(given.variables[i].content());
    if (!found_all || given.params[i].param_id != id) continue;
    const std::string key = given.params[i].key;
    const auto cell = cell_of(kFactory, cut("select " + key + " from " + given.table.name + ";"));
    if (!cell) {
      found_all = false;
      continue;
    }
    if (takes(kLoads, given.variables[i].type)) expected[i] = given.variables[i].loaded(*cell);
    update = std::string("update ") + given.table.name + " set  " + key + " = \"" + cell->text + "\"";
  }
  std::uint32_t result = 1;
  if (found_all && !update.empty()) result = run_on_model(update);
  check(settled(vexa_db_reload_value(&given.table, id)) == result, "reloading gives another result");
  for (std::size_t i = 0; i < expected.size(); ++i) {
    check(given.variables[i].content() == expected[i], "another value is reloaded");
  }
}

void write_table(Source& source) {
  const Table given(source);
  const std::int32_t id = static_cast<std::int32_t>(source.below(4)) - 1;
  std::uint32_t result = 0;
  for (std::size_t i = 0; i < given.variables.size() && result == 0; ++i) {
    if (id != -1 && given.params[i].param_id != id) continue;
    if (!takes(kWrites, given.variables[i].type)) continue;
    result = run_on_model(std::string("update ") + given.table.name +
                          (given.variables[i].type == 5 ? " set  " : " set ") + given.params[i].key + " = " +
                          given.variables[i].shown() + ";");
  }
  check(settled(vexa_db_update_db_from_struct(&given.table, id)) == result, "writing gives another result");
}

void get_value(Source& source) {
  const Variable variable = make_variable(source);
  const std::string key = keys[source.below(keys.size())];
  std::string expected = variable.content();
  const auto cell = cell_of(kModel, cut("select " + key + " from t ;"));
  if (cell && takes(kGets, variable.type)) expected = variable.loaded(*cell);
  check(settled(vexa_db_get_value("t", key.c_str(), variable.memory.get(), variable.type, variable.size)) ==
            (cell ? 0u : 1u),
        "reading gives another result");
  check(variable.content() == expected, "another value is read");
}

void update_value(Source& source) {
  Variable variable = make_variable(source);
  const std::string key = keys[source.below(keys.size())];
  if (variable.type == 6) {  // terminated, and not a byte behind
    std::string text = variable.content();
    text = text.substr(0, text.find('\0'));
    variable.bytes = text.size() + 1;
    variable.memory = std::make_unique<char[]>(variable.bytes);
    std::memcpy(variable.memory.get(), text.c_str(), variable.bytes);
  }
  std::uint32_t result = 1;
  if (takes(kUpdates, variable.type))
    result = run_on_model("update t set  " + key + " = " + variable.shown() + ";");
  check(settled(vexa_db_update_value("t", key.c_str(), variable.memory.get(), variable.type)) == result,
        "updating gives another result");
}

}  // namespace

void vexa_fuzz::set_up() { std::filesystem::create_directories("/data/vexa-resource/sqlite3"); }

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const vexa_fuzz::Watch watch;
  Source source(data, size);
  make_database(kUser, source);
  make_database(kFactory, source);
  vexa_fuzz::make_file(kModel.c_str(), vexa_fuzz::bytes_of_file(kUser.c_str()));
  static constexpr void (*kCalls[])(Source&) = {load_table, reload, write_table, get_value, update_value};
  for (int steps = 0; source.left() > 0 && steps < 8 && !vexa_fuzz::Watch::stopped_statements(); ++steps) {
    kCalls[source.below(std::size(kCalls))](source);
    expect_same_database();
  }
  check(vexa_db_exec_cmd("select 1", nullptr, nullptr, VEXA_DB_USER) == 0, "the user database is stuck");
  check(vexa_db_close_sqlite() == 0, "the user database cannot be closed");
  return 0;
}
