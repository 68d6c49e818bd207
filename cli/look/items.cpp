// SPDX-License-Identifier: MIT
#include "look/items.h"

#include <vexadm/data_manager.h>

#include <algorithm>

namespace cli::look {
namespace {

struct Columns {
  int key, id, type, length, crc, value;
  explicit Columns(const Query& query)
      : key(query.column("key")),
        id(query.column("id")),
        type(query.column("type")),
        length(query.column("len")),
        crc(query.column("crc")),
        value(query.column("value")) {}
  bool are_of_items() const { return key >= 0 && value >= 0; }
};

Verdict judge(const Item& item, bool has_crc) {
  if (!has_crc) return Verdict::kNone;
  if (item.value.empty()) return Verdict::kEmpty;
  return static_cast<int32_t>(item.crc) == static_cast<int32_t>(item.computed_crc) ? Verdict::kGood
                                                                                   : Verdict::kBad;
}

Item item_of(const Query& row, const Columns& at, std::string_view table) {
  Item item;
  item.table.add(table);
  item.key.add(row.bytes(at.key));
  item.never_read = !row.is_text(at.key);
  item.has_id = at.id >= 0 && !row.is_null(at.id);
  if (item.has_id) item.id = row.number(at.id);
  item.has_type = at.type >= 0 && !row.is_null(at.type);
  if (item.has_type) item.type = row.number(at.type);
  item.value.add(row.bytes(at.value));
  item.length = at.length >= 0 ? row.number(at.length) : static_cast<int64_t>(item.value.size());
  const bool has_crc = at.crc >= 0;
  if (has_crc) {
    item.crc = row.number(at.crc);
    // Bytes given as bits: what the library computes, and so what it compares with.
    const auto bits = static_cast<uint32_t>(item.value.size() & 0xFFFFU);
    item.computed_crc = vexa_dm_Crc32Calc(reinterpret_cast<const uint8_t*>(item.value.c_str()), bits, 0);
  }
  item.verdict = judge(item, has_crc);
  return item;
}

bool before(const Item& a, const Item& b) {
  if (const int order = a.table.view().compare(b.table.view()); order != 0) return order < 0;
  if (const int order = a.key.view().compare(b.key.view()); order != 0) return order < 0;
  return a.order < b.order;
}

}  // namespace

const char* verdict_name(Verdict verdict) {
  switch (verdict) {
    case Verdict::kGood:
      return "ok";
    case Verdict::kBad:
      return "bad";
    case Verdict::kEmpty:
      return "empty";
    case Verdict::kNone:
      break;
  }
  return "-";
}

bool read_table(const Database& database, std::string_view table, List<Item>& out, Text& why) {
  Text sql("select * from ");
  sql.add(quoted_name(table).view());
  Query rows(database, sql.c_str());
  const Columns columns(rows);
  while (rows.next()) {
    if (columns.are_of_items()) out.push(item_of(rows, columns, table));
  }
  if (!rows.failed()) return true;
  why = Text(sqlite3_errmsg(database.get()));
  return false;
}

bool read_items(const Database& database, List<Item>& out, Text& why) {
  List<Text> tables;
  bool whole = read_tables(database, tables);
  if (!whole) why = Text(sqlite3_errmsg(database.get()));
  for (const Text& table : tables) whole = read_table(database, table.view(), out, why) && whole;
  sort(out);
  return whole;
}

bool same_table(std::string_view a, std::string_view b) {
  return a.size() == b.size() && sqlite3_strnicmp(a.data(), b.data(), static_cast<int>(a.size())) == 0;
}

const Item* find(const List<Item>& items, std::string_view table, std::string_view key) {
  for (const Item& item : items) {
    if (!item.never_read && item.key.view() == key && same_table(item.table.view(), table)) return &item;
  }
  return nullptr;
}

const Item* find_exact(const List<Item>& items, std::string_view table, std::string_view key) {
  const auto is_before = [&](const Item& item) {
    const int order = item.table.view().compare(table);
    return order != 0 ? order < 0 : item.key.view().compare(key) < 0;
  };
  const Item* place = std::partition_point(items.begin(), items.end(), is_before);
  for (; place != items.end() && place->table.view() == table && place->key.view() == key; ++place) {
    if (!place->never_read) return place;
  }
  return nullptr;
}

bool lacks(const List<Item>& backup, const Item& item) {
  if (is_version_record(item) || item.never_read) return false;
  const Item* there = find_exact(backup, item.table.view(), item.key.view());
  return there == nullptr || there->value.view() != item.value.view() || there->type != item.type;
}

bool is_version_record(const Item& item) {
  return item.key.view() == kVersionKey && same_table(item.table.view(), kVersionTable);
}

void sort(List<Item>& items) {
  for (std::size_t i = 0; i < items.size(); ++i) items[i].order = i;
  std::sort(items.begin(), items.end(), before);
  const Item* read = nullptr;
  for (Item& item : items) {
    if (item.never_read) continue;
    item.never_read =
        read != nullptr && read->table.view() == item.table.view() && read->key.view() == item.key.view();
    if (!item.never_read) read = &item;
  }
}

}  // namespace cli::look
