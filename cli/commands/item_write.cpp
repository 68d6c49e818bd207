// SPDX-License-Identifier: MIT
#include "commands/item_write.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <vexadm/data_manager.h>

#include "base/value.h"
#include "command.h"
#include "look/diagnosis.h"

namespace cli {
namespace {

bool is_identifier(std::string_view name) {
  for (std::size_t i = 0; i < name.size(); ++i) {
    const char c = name[i];
    const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
    if (!letter && !(i > 0 && c >= '0' && c <= '9')) return false;
  }
  return true;
}

// A word of SQL that cannot be a table's name, which the library writes without quotes.
bool is_reserved(const Text& name) {
  if (sqlite3_keyword_check(name.c_str(), static_cast<int>(name.size())) == 0 &&
      sqlite3_strnicmp(name.c_str(), "sqlite_", 7) != 0) {
    return false;
  }
  // Of the same table as the item before, mostly: a database for each would take seconds.
  static char last_name[VEXA_DM_NAME_SIZE];
  static bool last_refused;
  if (name.view() == last_name) return last_refused;
  sqlite3* database = nullptr;
  bool refused = sqlite3_open_v2(":memory:", &database, SQLITE_OPEN_READWRITE | SQLITE_OPEN_MEMORY,
                                 nullptr) != SQLITE_OK;
  // Some words of SQL are names where no other meaning fits.
  refused = refused || sqlite3_exec(database, textf("create table %s (key)", name.c_str()).c_str(), nullptr,
                                    nullptr, nullptr) != SQLITE_OK;
  sqlite3_close(database);
  std::strncpy(last_name, name.c_str(), sizeof last_name - 1);
  last_refused = refused;
  return refused;
}

}  // namespace

Text refused_name(std::string_view table, std::string_view key) {
  for (const std::string_view name : {table, key}) {
    if (name.empty() || name.size() >= VEXA_DM_NAME_SIZE) {
      return textf("\"%s\": names have 1 to %d characters", Text(name).c_str(), VEXA_DM_NAME_SIZE - 1);
    }
    if (name.find('\0') != std::string_view::npos) {
      Text shown;
      add_quoted(shown, name);
      return textf("%s: names hold no NUL", shown.c_str());
    }
    if (name.find('\'') != std::string_view::npos) {
      return textf("\"%s\": names hold no single quote", Text(name).c_str());
    }
  }
  if (!is_identifier(table))
    return textf("\"%s\": a table's name has letters, digits and _", Text(table).c_str());
  if (is_reserved(Text(table))) return textf("\"%s\": no table can have that name", Text(table).c_str());
  return Text();
}

int order_of_names(std::string_view table_a, std::string_view key_a, std::string_view table_b,
                   std::string_view key_b) {
  const std::size_t size = std::min(table_a.size(), table_b.size());
  if (const int order = sqlite3_strnicmp(table_a.data(), table_b.data(), static_cast<int>(size)); order != 0)
    return order;
  if (table_a.size() != table_b.size()) return table_a.size() < table_b.size() ? -1 : 1;
  return key_a.compare(key_b);
}

void Stored::File::read(const Text& path) {
  look::Database database;
  const int code = database.open(path.c_str());
  health = look::health_of(code, path.c_str());
  why = Text(database.why().view());
  if (code == SQLITE_OK && !look::read_items(database, items, why)) health = look::Health::kCorrupt;
  if (code != SQLITE_OK && access(path.c_str(), F_OK) != 0 && (errno == ENOENT || errno == ENOTDIR)) {
    health = look::Health::kMissing;
  }
  for (const look::Item& item : items) {
    if (!item.never_read) by_name.push(&item);
  }
  std::sort(by_name.begin(), by_name.end(), [](const look::Item* a, const look::Item* b) {
    return order_of_names(a->table.view(), a->key.view(), b->table.view(), b->key.view()) < 0;
  });
}

const look::Item* Stored::File::find(std::string_view table, std::string_view key) const {
  const auto is_before = [&](const look::Item* item) {
    return order_of_names(item->table.view(), item->key.view(), table, key) < 0;
  };
  const auto* place = std::partition_point(by_name.begin(), by_name.end(), is_before);
  const bool found =
      place != by_name.end() && order_of_names((*place)->table.view(), (*place)->key.view(), table, key) == 0;
  return found ? *place : nullptr;
}

bool Stored::File::holds(const NewItem& item) const {
  const look::Item* row = find(item.table.view(), item.key.view());
  return row != nullptr && row->value.view() == item.bytes.view() && row->has_type &&
         row->type == item.type && row->has_id && row->id == item.id && row->verdict != look::Verdict::kBad;
}

int Stored::read(const Arguments& arguments) {
  using look::Health;
  const look::Places places = arguments.places();
  const struct {
    File& file;
    const Text& path;
  } sides[] = {{backup_, places.backup}, {primary_, places.primary}};
  const auto refuse = [](const Text& path, const File& file) {
    return fail("%s cannot be read: %s; vexadm check tells more", path.c_str(), file.why.c_str());
  };
  for (const auto& [file, path] : sides) {
    file.read(path);
    if (file.health == Health::kUnreadable || file.health == Health::kWriteAhead) return refuse(path, file);
  }
  if (arguments.has("--force") || primary_.health == Health::kHealthy || backup_.health == Health::kHealthy)
    return kDone;
  for (const auto& [file, path] : sides) {
    if (file.health != Health::kMissing) return refuse(path, file);
  }
  return kDone;
}

const look::Item* Stored::row(std::string_view table, std::string_view key) const {
  const look::Item* row = backup_.find(table, key);
  return row != nullptr ? row : primary_.find(table, key);
}

int refuse_a_loss(const Arguments& arguments) {
  if (arguments.has("--force")) return kDone;
  const look::Diagnosis diagnosis = look::diagnose(arguments.places());
  const look::Finding* finding = diagnosis.against_writing();
  if (finding == nullptr) return kDone;
  return fail("a write now would lose settings. %s vexadm check says what to do; --force writes all the same",
              finding->what.c_str());
}

int32_t store(vexa_dm_handle* handle, const NewItem& item) {
  vexa_dm_item_desc desc = {};
  std::strncpy(desc.table, item.table.c_str(), sizeof desc.table - 1);
  std::strncpy(desc.key, item.key.c_str(), sizeof desc.key - 1);
  desc.type = item.type;
  return handle->ops.write(static_cast<uint32_t>(item.id), &desc, item.bytes.c_str(),
                           static_cast<int32_t>(item.bytes.size()));
}

}  // namespace cli
