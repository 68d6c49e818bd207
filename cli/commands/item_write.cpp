// SPDX-License-Identifier: MIT
#include "commands/item_write.h"

#include <cstring>

#include <vexadm/data_manager.h>

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

void read(const Text& path, List<look::Item>& out) {
  look::Database database;
  Text why;
  if (database.open(path.c_str()) == SQLITE_OK) look::read_items(database, out, why);
}

}  // namespace

namespace {

// A word of SQL that cannot be a table's name, which the library writes without quotes.
bool is_reserved(const Text& name) {
  if (sqlite3_keyword_check(name.c_str(), static_cast<int>(name.size())) == 0 &&
      sqlite3_strnicmp(name.c_str(), "sqlite_", 7) != 0) {
    return false;
  }
  sqlite3* database = nullptr;
  bool refused = sqlite3_open_v2(":memory:", &database, SQLITE_OPEN_READWRITE | SQLITE_OPEN_MEMORY,
                                 nullptr) != SQLITE_OK;
  // Some words of SQL are names where no other meaning fits.
  refused = refused || sqlite3_exec(database, textf("create table %s (key)", name.c_str()).c_str(), nullptr,
                                    nullptr, nullptr) != SQLITE_OK;
  sqlite3_close(database);
  return refused;
}

}  // namespace

Text refused_name(std::string_view table, std::string_view key) {
  for (const std::string_view name : {table, key}) {
    if (name.empty() || name.size() >= VEXA_DM_NAME_SIZE) {
      return textf("\"%s\": names have 1 to %d characters", Text(name).c_str(), VEXA_DM_NAME_SIZE - 1);
    }
    if (name.find('\'') != std::string_view::npos || name.find('\0') != std::string_view::npos) {
      return textf("\"%s\": names hold no single quote", Text(name).c_str());
    }
  }
  if (!is_identifier(table))
    return textf("\"%s\": a table's name has letters, digits and _", Text(table).c_str());
  if (is_reserved(Text(table))) return textf("\"%s\": no table can have that name", Text(table).c_str());
  return Text();
}

Stored Stored::read(const look::Places& places) {
  Stored stored;
  cli::read(places.primary, stored.primary);
  cli::read(places.backup, stored.backup);
  return stored;
}

bool Stored::holds(const List<look::Item>& items, const NewItem& item) {
  const look::Item* row = look::find(items, item.table.view(), item.key.view());
  return row != nullptr && row->value.view() == item.bytes.view() && row->has_type &&
         row->type == item.type && row->has_id && row->id == item.id && row->verdict != look::Verdict::kBad;
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
