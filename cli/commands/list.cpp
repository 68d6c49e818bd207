// SPDX-License-Identifier: MIT
// list, get and defaults: what a store holds.
#include <vexadm/types.h>

#include "base/value.h"
#include "commands/rows.h"

namespace cli {
namespace {

Colour colour_of(look::Verdict verdict) {
  if (verdict == look::Verdict::kBad) return Colour::kBad;
  return verdict == look::Verdict::kEmpty ? Colour::kWarning : Colour::kPlain;
}

// Stored defaults have neither id nor checksum.
enum class Kind { kItems, kDefaults };

void print_table(const List<look::Item>& items, Kind kind) {
  const bool whole = kind == Kind::kItems;
  Table table(whole ? 7 : 5);
  for (const char* head : {"TABLE", "KEY", "ID", "TYPE", "LENGTH", "CRC", "VALUE"}) {
    const std::string_view name = head;
    if (whole || (name != "ID" && name != "CRC")) table.cell(name, Colour::kBold);
  }
  for (const look::Item& item : items) {
    table.name(item.table.view());
    table.name(item.key.view());
    if (whole) table.cell(item.has_id ? textf("%lld", static_cast<long long>(item.id)).view() : "-");
    table.cell(item.has_type ? type_name(item.type).view() : "-");
    table.cell(textf("%zu", item.value.size()).view());
    if (whole) table.cell(look::verdict_name(item.verdict), colour_of(item.verdict));
    Text value;
    add_value(value, item.type, item.value.view());
    table.cell(value.view());
  }
  table.print();
}

void print_json(const Rows& rows, const List<look::Item>& items) {
  Json json;
  json.object().text("file", rows.path.view()).key("items").array();
  for (const look::Item& item : items) {
    json.object();
    add_item_fields(json, item);
    json.end();
  }
  json.end().end();
}

int show(const Arguments& arguments, const Rows& rows, Kind kind) {
  List<look::Item> items;
  Text why;
  const bool whole = look::read_items(rows.database, items, why);
  if (const char* table = arguments.word(0)) {
    List<look::Item> chosen;
    for (look::Item& item : items) {
      if (look::same_table(item.table.view(), table)) chosen.push(std::move(item));
    }
    if (chosen.empty() && whole) {
      return fail("%s has no table %s, or nothing in it; vexadm %s shows what there is", rows.path.c_str(),
                  table, arguments.command->name.data());
    }
    items = std::move(chosen);
  }
  if (arguments.json) {
    print_json(rows, items);
  } else {
    print_table(items, kind);
  }
  if (whole) return kDone;
  return fail("%s is damaged and this is not all of it: %s; vexadm check tells more", rows.path.c_str(),
              why.c_str());
}

int run_list(Arguments& arguments) {
  Rows rows;
  if (const int code = open_rows(arguments, rows); code != kDone) return code;
  const char* file = arguments.value("--file");
  const bool defaults = file != nullptr && std::string_view(file) == "defaults";
  return show(arguments, rows, defaults ? Kind::kDefaults : Kind::kItems);
}

int run_defaults(Arguments& arguments) {
  Rows rows;
  rows.path = std::move(arguments.places().defaults);
  if (rows.database.open(rows.path.c_str()) == SQLITE_OK) return show(arguments, rows, Kind::kDefaults);
  if (!look::exists(rows.path.c_str())) {
    return fail("%s is not there: programs use the defaults that they are compiled with", rows.path.c_str());
  }
  return fail("%s cannot be read: %s; programs use the defaults that they are compiled with",
              rows.path.c_str(), rows.database.why().c_str());
}

int run_get(Arguments& arguments) {
  Rows rows;
  if (const int code = open_rows(arguments, rows); code != kDone) return code;
  List<look::Item> items;
  const look::Item* item = find_row(rows, items, arguments.words[0], arguments.words[1]);
  if (item == nullptr) return kFailed;
  const bool bad = item->verdict == look::Verdict::kBad;
  if (bad) fail("%s fails its checksum: programs get the default instead", arguments.words[1]);
  if (item->verdict == look::Verdict::kEmpty) {
    note(arguments, "%s holds no bytes: programs get the default instead", arguments.words[1]);
  }
  if (arguments.json) {
    Json json;
    json.object().text("file", rows.path.view());
    add_item_fields(json, *item);
    json.end();
    return bad ? kFailed : kDone;
  }
  Text out;
  if (arguments.has("--raw")) {
    out.add(item->value.view());
  } else if (arguments.has("--hex") || form_of(item->type, item->value.view()) == ValueForm::kHex) {
    add_hex(out, item->value.view());
    out.add('\n');
  } else if (item->type == VEXA_DM_STRING) {
    add_text_line(out, item->value.view());
  } else {
    add_value(out, item->type, item->value.view());
    out.add('\n');
  }
  print(out);
  return bad ? kFailed : kDone;
}

constexpr Option kListOptions[] = {kFileOption};
constexpr Option kGetOptions[] = {
    kFileOption,
    {"--raw", nullptr, "the bytes as they are stored, without a line end"},
    {"--hex", nullptr, "the bytes in hexadecimal"},
};

}  // namespace

extern const Command kList = {
    "list",
    "[TABLE]",
    "Items with table, key, id, type, length, checksum and value",
    "Shows the backup, which is what programs read. Numbers are decimal, texts quoted, all\n"
    "else hexadecimal. CRC is ok; bad: programs get the default; empty: no bytes, so the\n"
    "default too.",
    "  $ vexadm list wifi\n"
    "  TABLE  KEY      ID  TYPE  LENGTH  CRC  VALUE\n"
    "  wifi   channel  21  u8    1       ok   11\n"
    "  wifi   ssid     20  text  12      ok   \"Garden house\"",
    kListOptions,
    0,
    1,
    true,
    run_list,
};

extern const Command kGet = {
    "get",
    "TABLE KEY",
    "The value of one item",
    "A number, a text as it is, or hexadecimal bytes. Exit 1 when there is no such item or\n"
    "its checksum is bad.",
    "  $ vexadm get wifi ssid\n"
    "  Garden house",
    kGetOptions,
    2,
    2,
    true,
    run_get,
};

extern const Command kDefaults = {
    "defaults",
    "[TABLE]",
    "The default values on storage",
    "",
    "  $ vexadm defaults wifi\n"
    "  TABLE  KEY   TYPE  LENGTH  VALUE\n"
    "  wifi   ssid  text  6       \"Router\"",
    {},
    0,
    1,
    true,
    run_defaults,
};

}  // namespace cli
