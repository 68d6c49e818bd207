// SPDX-License-Identifier: MIT
#include "commands/dump_format.h"

#include <vexadm/types.h>

#include "base/value.h"

namespace cli {
namespace {

constexpr std::string_view kHex = "hex:";

std::string_view take_word(std::string_view& rest) {
  const std::string_view word = part(rest, 0, rest.find(' '));
  rest.remove_prefix(word.size());
  return word;
}

bool take_blank(std::string_view& rest) {
  if (!rest.starts_with(' ')) return false;
  rest.remove_prefix(1);
  return true;
}

bool take_name(std::string_view& rest, Text& out) {
  if (rest.starts_with('"')) return take_quoted(rest, out);
  const std::string_view word = take_word(rest);
  out.add(word);
  return !word.empty();
}

bool take_id(std::string_view& rest, int32_t& out) {
  std::string_view word = take_word(rest);
  if (word == "-") {
    out = 0;
    return true;
  }
  const bool negative = word.starts_with('-');
  if (negative) word.remove_prefix(1);
  const auto number = parse_number(word, negative ? uint64_t{1} << 31U : INT32_MAX);
  if (!number) return false;
  out = static_cast<int32_t>(negative ? -static_cast<int64_t>(*number) : static_cast<int64_t>(*number));
  return true;
}

bool take_value(std::string_view rest, int32_t type, Text& out) {
  if (rest.starts_with(kHex)) return parse_hex(part(rest, kHex.size()), out);
  if (type == VEXA_DM_STRING) return take_quoted(rest, out) && rest.empty();
  return number_bytes(type, rest, out);
}

}  // namespace

void add_dump_line(Text& out, const look::Item& item) {
  add_name(out, item.table.view());
  out.add(' ');
  add_name(out, item.key.view());
  item.has_id ? out.addf(" %lld ", static_cast<long long>(item.id)) : out.add(" - ");
  out.add(type_name(item.has_type ? item.type : 0).view()).add(' ');
  if (form_of(item.type, item.value.view()) == ValueForm::kHex) out.add(kHex);
  add_value(out, item.type, item.value.view());
}

bool take_dump_line(std::string_view line, NewItem& out, Text& why) {
  if (!take_name(line, out.table) || !take_blank(line)) {
    why = Text("a table was expected, then a blank");
    return false;
  }
  if (!take_name(line, out.key) || !take_blank(line)) {
    why = Text("a key was expected behind the table");
    return false;
  }
  if (!take_id(line, out.id) || !take_blank(line)) {
    why = Text("an id was expected behind the key");
    return false;
  }
  const auto type = parse_type(take_word(line));
  if (!type || !take_blank(line)) {
    why = Text("a type was expected behind the id");
    return false;
  }
  out.type = *type;
  if (!take_value(line, out.type, out.bytes)) {
    why = textf("no value of type %s", type_name(out.type).c_str());
    return false;
  }
  why = refused_name(out.table.view(), out.key.view());
  return why.empty();
}

}  // namespace cli
