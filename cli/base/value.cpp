// SPDX-License-Identifier: MIT
#include "base/value.h"

#include <vexadm/types.h>

#include <array>
#include <bit>
#include <charconv>
#include <cstring>

namespace cli {
namespace {

// A store is copied between units and desks as it stands.
static_assert(std::endian::native == std::endian::little);

struct TypeRow {
  int32_t type;
  std::string_view name;
  std::size_t size;
};

constexpr std::array<TypeRow, 6> kTypes = {{
    {VEXA_DM_U8, "u8", 1},
    {VEXA_DM_U16, "u16", 2},
    {VEXA_DM_U32, "u32", 4},
    {VEXA_DM_U32_ALT, "u32alt", 4},
    {VEXA_DM_STRING, "text", 0},
    {VEXA_DM_BLOCK, "bytes", 0},
}};

const TypeRow* row_of(int64_t type) {
  for (const TypeRow& row : kTypes) {
    if (row.type == type) return &row;
  }
  return nullptr;
}

// Bytes of the UTF-8 sequence at the front (Unicode, table 3-7); 0 when it is none.
std::size_t sequence_length(std::string_view text) {
  const auto byte = [&](std::size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U; };
  const auto tail = [&](std::size_t i) { return (byte(i) & 0xC0U) == 0x80U; };
  const unsigned first = byte(0);
  if (first < 0x80) return 1;
  if (first < 0xC2 || first > 0xF4) return 0;
  if (first < 0xE0) return tail(1) ? 2 : 0;
  const unsigned second = byte(1);
  if (first < 0xF0) {
    if ((first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F)) return 0;
    return tail(1) && tail(2) ? 3 : 0;
  }
  if ((first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F)) return 0;
  return tail(1) && tail(2) && tail(3) ? 4 : 0;
}

int hex_digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// The C1 control characters, which move a terminal's cursor as those below a blank do.
bool is_c1_control(std::string_view sequence) {
  return sequence.size() == 2 && sequence[0] == '\xC2' && static_cast<unsigned char>(sequence[1]) < 0xA0;
}

void add_escaped(Text& out, char c) {
  switch (c) {
    case '\n':
      out.add("\\n");
      break;
    case '\r':
      out.add("\\r");
      break;
    case '\t':
      out.add("\\t");
      break;
    default:
      out.addf("\\x%02x", static_cast<unsigned char>(c));
  }
}

}  // namespace

Text type_name(int64_t type) {
  const TypeRow* row = row_of(type);
  return row != nullptr ? Text(row->name) : textf("type%lld", static_cast<long long>(type));
}

std::optional<int32_t> parse_type(std::string_view name) {
  for (const TypeRow& row : kTypes) {
    if (row.name == name) return row.type;
  }
  if (name.starts_with("type")) name.remove_prefix(4);
  int32_t type = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), type);
  if (error != std::errc() || end != name.data() + name.size() || name.empty()) return std::nullopt;
  return type;
}

bool is_int32(int64_t number) { return number >= INT32_MIN && number <= INT32_MAX; }

std::size_t number_size(int64_t type) {
  const TypeRow* row = row_of(type);
  return row != nullptr ? row->size : 0;
}

bool is_utf8(std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = sequence_length(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

std::optional<uint64_t> parse_number(std::string_view text, uint64_t limit) {
  int base = 10;
  if (text.starts_with("0x") || text.starts_with("0X")) {
    text.remove_prefix(2);
    base = 16;
  }
  uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  if (text.empty() || error != std::errc() || end != text.data() + text.size() || number > limit) {
    return std::nullopt;
  }
  return number;
}

void add_hex(Text& out, std::string_view bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    out.add(kDigits[byte >> 4U]).add(kDigits[byte & 0xFU]);
  }
}

bool parse_hex(std::string_view digits, Text& out) {
  int high = -1;
  for (const char c : digits) {
    if (high < 0 && (c == ' ' || c == ':' || c == '\n')) continue;
    const int digit = hex_digit(c);
    if (digit < 0) return false;
    if (high < 0) {
      high = digit;
      continue;
    }
    out.add(static_cast<char>(high * 16 + digit));
    high = -1;
  }
  return high < 0;
}

namespace {

// Marked are the characters that get a backslash.
void add_printable(Text& out, std::string_view text, std::string_view marked) {
  while (!text.empty()) {
    const std::size_t length = sequence_length(text);
    const std::string_view sequence = part(text, 0, length == 0 ? 1 : length);
    const auto first = static_cast<unsigned char>(sequence[0]);
    if (length == 0 || first < 0x20 || first == 0x7F) {
      add_escaped(out, sequence[0]);
    } else if (is_c1_control(sequence)) {
      for (const char c : sequence) add_escaped(out, c);
    } else {
      if (marked.find(sequence[0]) != std::string_view::npos) out.add('\\');
      out.add(sequence);
    }
    text.remove_prefix(sequence.size());
  }
}

}  // namespace

void add_quoted(Text& out, std::string_view text) {
  out.add('"');
  add_printable(out, text, "\"\\");
  out.add('"');
}

Text printable(std::string_view text) {
  Text out;
  add_printable(out, text, "");
  return out;
}

void add_name(Text& out, std::string_view name) {
  Text quoted;
  add_quoted(quoted, name);
  const bool plain = !name.empty() && name[0] != '#' && quoted.size() == name.size() + 2 &&
                     name.find(' ') == std::string_view::npos;
  out.add(plain ? name : quoted.view());
}

bool take_quoted(std::string_view& rest, Text& out) {
  if (rest.empty() || rest[0] != '"') return false;
  std::size_t at = 1;
  for (; at < rest.size() && rest[at] != '"'; ++at) {
    if (rest[at] != '\\') {
      out.add(rest[at]);
      continue;
    }
    if (++at == rest.size()) return false;
    switch (rest[at]) {
      case 'n':
        out.add('\n');
        break;
      case 'r':
        out.add('\r');
        break;
      case 't':
        out.add('\t');
        break;
      case '"':
      case '\\':
        out.add(rest[at]);
        break;
      case 'x':
        if (at + 2 >= rest.size() || !parse_hex(part(rest, at + 1, 2), out)) return false;
        at += 2;
        break;
      default:
        return false;
    }
  }
  if (at >= rest.size()) return false;
  rest.remove_prefix(at + 1);
  return true;
}

ValueForm form_of(int64_t type, std::string_view bytes) {
  if (type == VEXA_DM_STRING) return ValueForm::kText;
  const std::size_t size = number_size(type);
  return size != 0 && size == bytes.size() ? ValueForm::kNumber : ValueForm::kHex;
}

uint32_t number_of(std::string_view bytes) {
  uint32_t number = 0;
  std::memcpy(&number, bytes.data(), bytes.size() < sizeof number ? bytes.size() : sizeof number);
  return number;
}

void add_value(Text& out, int64_t type, std::string_view bytes) {
  switch (form_of(type, bytes)) {
    case ValueForm::kNumber:
      out.addf("%u", number_of(bytes));
      break;
    case ValueForm::kText:
      add_quoted(out, bytes);
      break;
    case ValueForm::kHex:
      add_hex(out, bytes);
      break;
  }
}

bool number_bytes(int64_t type, std::string_view text, Text& out) {
  const std::size_t size = number_size(type);
  if (size == 0) return false;
  const auto number = parse_number(text, (uint64_t{1} << (size * 8)) - 1);
  if (!number) return false;
  const auto narrow = static_cast<uint32_t>(*number);
  std::memcpy(out.grow(size), &narrow, size);
  return true;
}

}  // namespace cli
