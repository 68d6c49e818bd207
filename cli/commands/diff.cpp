// SPDX-License-Identifier: MIT
// diff: what two stores hold differently.
#include "commands/dump_format.h"
#include "commands/rows.h"

namespace cli {
namespace {

struct Side {
  Text path;
  List<look::Item> items;
};

int read_side(const Arguments& arguments, const char* argument, Side& side) {
  const look::Places places = look::places_of_argument(argument);
  const char* asked = arguments.value("--file");
  const std::string_view which = asked != nullptr ? asked : "backup";
  if (which == "primary") {
    side.path = Text(places.primary.view());
  } else if (which == "backup") {
    side.path = Text(places.backup.view());
  } else if (which == "defaults") {
    side.path = Text(places.defaults.view());
  } else {
    return wrong_usage("--file %s: primary, backup or defaults", asked);
  }
  look::Database database;
  if (database.open(side.path.c_str()) != SQLITE_OK) {
    return look::exists(side.path.c_str()) ? fail("%s cannot be read: %s; vexadm check tells more",
                                                  side.path.c_str(), database.why().c_str())
                                           : fail(
                                                 "%s: %s is not there; a device tree, a directory with the "
                                                 "files, or one of them was expected",
                                                 argument, side.path.c_str());
  }
  Text why;
  List<look::Item> items;
  const bool whole = look::read_items(database, items, why);
  for (look::Item& item : items) {
    if (!item.never_read) side.items.push(std::move(item));
  }
  if (whole) return kDone;
  return fail("%s is damaged and cannot be compared: %s", side.path.c_str(), why.c_str());
}

bool same(const look::Item& a, const look::Item& b) {
  return a.value.view() == b.value.view() && a.type == b.type && a.has_id == b.has_id && a.id == b.id &&
         (a.verdict == look::Verdict::kBad) == (b.verdict == look::Verdict::kBad);
}

int order_of(const look::Item& a, const look::Item& b) {
  const int order = a.table.view().compare(b.table.view());
  return order != 0 ? order : a.key.view().compare(b.key.view());
}

struct Pair {
  const look::Item* a;  // null where only b has it
  const look::Item* b;
};

List<Pair> differences(const List<look::Item>& a, const List<look::Item>& b) {
  List<Pair> pairs;
  std::size_t i = 0;
  std::size_t j = 0;
  while (i < a.size() || j < b.size()) {
    const int order = i == a.size() ? 1 : j == b.size() ? -1 : order_of(a[i], b[j]);
    if (order < 0) {
      pairs.push({&a[i], nullptr});
    } else if (order > 0) {
      pairs.push({nullptr, &b[j]});
    } else if (!same(a[i], b[j])) {
      pairs.push({&a[i], &b[j]});
    }
    if (order <= 0) ++i;
    if (order >= 0) ++j;
  }
  return pairs;
}

void add_side(Text& out, const look::Item& item, const char* sign, Colour colour) {
  Text line(sign);
  add_dump_line(line, item);
  if (item.verdict == look::Verdict::kBad) line.add(" (bad checksum)");
  add_coloured(out, colour, line.view());
  out.add('\n');
}

void print_json(const Side& a, const Side& b, const List<Pair>& pairs) {
  Json json;
  json.object().text("a", a.path.view()).text("b", b.path.view()).key("differences").array();
  for (const Pair& pair : pairs) {
    json.object();
    const struct {
      const char* name;
      const look::Item* item;
    } sides[] = {{"a", pair.a}, {"b", pair.b}};
    for (const auto& [name, item] : sides) {
      json.key(name);
      if (item == nullptr) {
        json.null();
        continue;
      }
      json.object();
      add_item_fields(json, *item);
      json.end();
    }
    json.end();
  }
  json.end().end();
}

int run_diff(Arguments& arguments) {
  Side a;
  Side b;
  if (const int code = read_side(arguments, arguments.words[0], a); code != kDone) return code;
  if (const int code = read_side(arguments, arguments.words[1], b); code != kDone) return code;
  const List<Pair> pairs = differences(a.items, b.items);
  if (arguments.json) {
    print_json(a, b, pairs);
  } else {
    Text out;
    for (const Pair& pair : pairs) {
      if (pair.a != nullptr) add_side(out, *pair.a, "- ", Colour::kBad);
      if (pair.b != nullptr) add_side(out, *pair.b, "+ ", Colour::kGood);
    }
    print(out);
  }
  return pairs.empty() ? kDone : kFailed;
}

constexpr Option kDiffOptions[] = {{"--file", "WHICH", "primary, backup (the default) or defaults of each"}};

}  // namespace

extern const Command kDiff = {
    "diff",
    "A B",
    "What two stores hold differently",
    "Each is a device tree, a directory with the files of a store, or one item database. Lines are\n"
    "those of vexadm dump, - from A and + from B. Exit 0 when both hold the same, 1 when not.",
    "  $ vexadm diff before/ after/\n"
    "  - wifi ssid 20 text \"Router\"\n"
    "  + wifi ssid 20 text \"Garden house\"",
    kDiffOptions,
    2,
    2,
    true,
    run_diff,
};

}  // namespace cli
