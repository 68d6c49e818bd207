// SPDX-License-Identifier: MIT
// What several commands do with rows: choosing the file, and showing them.
#ifndef VEXADM_CLI_ROWS_H
#define VEXADM_CLI_ROWS_H

#include "base/json.h"
#include "command.h"
#include "look/items.h"

namespace cli {

constexpr Option kFileOption = {
    "--file", "WHICH", "primary, backup (what programs read, the default), factory, defaults, or a path"};

// A file of rows that --file names, opened.
struct Rows {
  look::Database database;
  Text path;
};

// kDone, or kFailed or kUsage after it has said why.
int open_rows(const Arguments& arguments, Rows& out);

// The row in the file, or null after it has said that there is none.
const look::Item* find_row(Rows& rows, List<look::Item>& items, const char* table, const char* key);

// Members of an item in an object that is open.
void add_item_fields(Json& json, const look::Item& item);

// A text of the store as it is, for what reads it; on a terminal without what would move its cursor.
void add_text_line(Text& out, std::string_view text);

// Columns that are as wide as their widest cell.
class Table {
 public:
  explicit Table(std::size_t columns) : columns_(columns) {}
  void cell(std::string_view text, Colour colour = Colour::kPlain);
  void name(std::string_view name);  // of a table or key
  void print() const;

 private:
  struct Cell {
    Text text;
    Colour colour;
  };
  std::size_t columns_;
  List<Cell> cells_;
};

}  // namespace cli

#endif
