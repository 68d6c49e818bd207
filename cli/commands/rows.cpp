// SPDX-License-Identifier: MIT
#include "commands/rows.h"

#include <unistd.h>

#include <algorithm>

#include "base/value.h"

namespace cli {

int open_rows(const Arguments& arguments, Rows& out) {
  look::Places places = arguments.places();
  const char* asked = arguments.value("--file");
  const std::string_view which = asked != nullptr ? asked : "backup";
  if (which == "primary") {
    out.path = std::move(places.primary);
  } else if (which == "backup") {
    out.path = std::move(places.backup);
  } else if (which == "factory") {
    out.path = std::move(places.factory);
  } else if (which == "defaults") {
    out.path = std::move(places.defaults);
  } else if (which.find('/') != std::string_view::npos || which.find('.') != std::string_view::npos) {
    out.path = Text(which);
  } else {
    return wrong_usage("--file %s: primary, backup, factory, defaults, or a path with a slash or a dot in it",
                       asked);
  }
  if (out.database.open(out.path.c_str()) == SQLITE_OK) return kDone;
  if (!look::exists(out.path.c_str())) {
    if (asked == nullptr && look::exists(places.primary.c_str())) {
      return fail(
          "%s is not there, so programs read defaults; vexadm check tells more, --file primary shows the "
          "primary",
          out.path.c_str());
    }
    return fail("%s is not there%s", out.path.c_str(),
                arguments.root == nullptr && arguments.store == nullptr && asked == nullptr
                    ? "; is this the unit? --root DIR looks into a copy of its files"
                    : "");
  }
  return fail("%s cannot be read: %s; vexadm check tells more", out.path.c_str(), out.database.why().c_str());
}

const look::Item* find_row(Rows& rows, List<look::Item>& items, const char* table, const char* key) {
  Text why;
  const bool whole = look::read_items(rows.database, items, why);
  const look::Item* item = look::find(items, table, key);
  if (item != nullptr) return item;
  if (!whole) {
    fail("%s is damaged: %s; vexadm check tells more", rows.path.c_str(), why.c_str());
    return nullptr;
  }
  for (const look::Item& other : items) {
    if (!look::same_table(other.table.view(), table)) continue;
    fail("%s has no %s in table %s; vexadm list %s shows what there is", rows.path.c_str(), key, table,
         table);
    return nullptr;
  }
  fail("%s has no table %s; vexadm list shows what there is", rows.path.c_str(), table);
  return nullptr;
}

void add_item_fields(Json& json, const look::Item& item) {
  json.text("table", item.table.view()).text("key", item.key.view());
  item.has_id ? json.number("id", item.id) : json.key("id").null();
  item.has_type ? json.number("type", item.type).text("type_name", type_name(item.type).view())
                : json.key("type").null().key("type_name").null();
  json.number("length", static_cast<int64_t>(item.value.size()));
  json.key("value");
  switch (form_of(item.type, item.value.view())) {
    case ValueForm::kNumber:
      json.number(number_of(item.value.view()));
      break;
    case ValueForm::kText:
      json.text(item.value.view());
      break;
    case ValueForm::kHex:
      json.null();
      break;
  }
  Text hex;
  add_hex(hex, item.value.view());
  json.text("hex", hex.view());
  if (item.never_read) json.boolean("never_read", true);
  if (item.verdict == look::Verdict::kNone) return;
  json.text("crc", look::verdict_name(item.verdict))
      .number("stored_crc", item.crc)
      .number("computed_crc", item.computed_crc);
}

void add_text_line(Text& out, std::string_view text) {
  out.add(isatty(STDOUT_FILENO) == 1 ? printable(text).view() : text).add('\n');
}

void Table::cell(std::string_view text, Colour colour) { cells_.push({Text(text), colour}); }

void Table::name(std::string_view name) {
  Text text;
  add_name(text, name);
  cell(text.view());
}

namespace {

// Characters, not bytes: names may hold more than ASCII.
std::size_t width_of(std::string_view text) {
  std::size_t width = 0;
  for (const char c : text) width += (static_cast<unsigned char>(c) & 0xC0U) != 0x80U ? 1 : 0;
  return width;
}

}  // namespace

void Table::print() const {
  if (columns_ == 0) return;
  List<std::size_t> widths;
  for (std::size_t i = 0; i < columns_; ++i) widths.push(0);
  for (std::size_t i = 0; i < cells_.size(); ++i) {
    std::size_t& width = widths[i % columns_];
    width = std::max(width, width_of(cells_[i].text.view()));
  }
  Text out;
  std::size_t blanks = 0;  // owed before the next cell that has something in it
  for (std::size_t i = 0; i < cells_.size(); ++i) {
    const std::string_view text = cells_[i].text.view();
    if (!text.empty()) {
      for (; blanks > 0; --blanks) out.add(' ');
      add_coloured(out, cells_[i].colour, text);
    }
    if (i % columns_ == columns_ - 1) {
      out.add('\n');
      blanks = 0;
    } else {
      blanks += widths[i % columns_] + 2 - width_of(text);
    }
  }
  cli::print(out);
}

}  // namespace cli
