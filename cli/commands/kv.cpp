// SPDX-License-Identifier: MIT
// kv: the pairs of a key-value text.
#include "base/value.h"
#include "commands/rows.h"

namespace cli {
namespace {

struct Pair {
  std::string_view name;
  std::string_view value;
};

// As the library takes it apart: pairs end at semicolons, up to an empty one; a name ends at the
// first comma.
List<Pair> pairs_of(std::string_view text) {
  List<Pair> pairs;
  while (!text.empty()) {
    const std::size_t end = text.find(';');
    const std::string_view pair = part(text, 0, end);
    if (pair.empty()) break;
    const std::size_t comma = pair.find(',');
    pairs.push(
        {part(pair, 0, comma), comma == std::string_view::npos ? std::string_view() : part(pair, comma + 1)});
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
  return pairs;
}

int run_kv(Arguments& arguments) {
  Rows rows;
  if (const int code = open_rows(arguments, rows); code != kDone) return code;
  List<look::Item> items;
  const look::Item* item = find_row(rows, items, arguments.words[0], arguments.words[1]);
  if (item == nullptr) return kFailed;
  if (item->verdict == look::Verdict::kBad) {
    return fail("%s fails its checksum: programs get the default instead", arguments.words[1]);
  }
  const List<Pair> pairs = pairs_of(item->value.view());
  if (const char* name = arguments.word(2)) {
    for (const Pair& pair : pairs) {
      if (pair.name != name) continue;
      if (arguments.json) {
        Json().object().text("name", pair.name).text("value", pair.value).end();
      } else {
        Text out;
        add_text_line(out, pair.value);
        print(out);
      }
      return kDone;
    }
    return fail("%s has no %s; vexadm kv %s %s shows all pairs", arguments.words[1], name, arguments.words[0],
                arguments.words[1]);
  }
  if (arguments.json) {
    Json json;
    json.object().text("file", rows.path.view()).key("pairs").array();
    for (const Pair& pair : pairs) json.object().text("name", pair.name).text("value", pair.value).end();
    json.end().end();
    return kDone;
  }
  Text out;
  for (const Pair& pair : pairs) {
    add_name(out, pair.name);
    out.add(" = ");
    add_quoted(out, pair.value);
    out.add('\n');
  }
  print(out);
  return kDone;
}

constexpr Option kKvOptions[] = {kFileOption};

}  // namespace

extern const Command kKv = {
    "kv",
    "TABLE KEY [NAME]",
    "The pairs of an item that holds a key-value text",
    "With NAME, that pair's value alone.",
    "  $ vexadm kv system hosts\n"
    "  router = \"192.168.1.1\"\n"
    "  printer = \"192.168.1.9\"",
    kKvOptions,
    2,
    3,
    true,
    run_kv,
};

}  // namespace cli
