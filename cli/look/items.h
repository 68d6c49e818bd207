// SPDX-License-Identifier: MIT
// The rows of item databases and of the stored defaults.
#ifndef VEXADM_CLI_ITEMS_H
#define VEXADM_CLI_ITEMS_H

#include <cstdint>
#include <string_view>

#include "base/text.h"
#include "look/database.h"

namespace cli::look {

constexpr std::string_view kVersionTable = "SQL_VER_TAB";
constexpr std::string_view kVersionKey = "SQL_VER_KEY";

// What a reader makes of the value.
enum class Verdict {
  kGood,
  kBad,    // the checksum is that of other bytes: programs get the default
  kEmpty,  // no bytes: programs get the default
  kNone    // the row has no checksum, as stored defaults
};
const char* verdict_name(Verdict verdict);

struct Item {
  Text table;
  Text key;
  bool has_id = false;
  int64_t id = 0;
  bool has_type = false;
  int64_t type = 0;
  int64_t length = 0;  // as the row says
  int64_t crc = 0;
  int64_t computed_crc = 0;
  Text value;
  Verdict verdict = Verdict::kNone;
  std::size_t order = 0;  // of the rows in their file
  // A second row of a key, or one whose key is no text, which no comparison with a text finds. Known of
  // second rows once the rows are sorted.
  bool never_read = false;
};

// Reads the rows of one table, in the order of the file, where it is a table of items or defaults.
// Of a damaged file as many as can be had. False on an error, which why then tells.
bool read_table(const Database& database, std::string_view table, List<Item>& out, Text& why);

// All tables, sorted by table and key; rows of one key stay in the order of the file.
bool read_items(const Database& database, List<Item>& out, Text& why);

// The row that programs would read, the first of its key. Null when there is none.
const Item* find(const List<Item>& items, std::string_view table, std::string_view key);

// The same for a name that comes from such a list: by its very bytes, and quickly.
const Item* find_exact(const List<Item>& items, std::string_view table, std::string_view key);

// The backup lacks what the primary has, or has it with other bytes or as another type. Records of
// databases about themselves, and rows that programs never read, are no items.
bool lacks(const List<Item>& backup, const Item& item);

// Table names are compared as SQL does: without regard to case.
bool same_table(std::string_view a, std::string_view b);

// The record that a database carries about itself.
bool is_version_record(const Item& item);

void sort(List<Item>& items);

}  // namespace cli::look

#endif
