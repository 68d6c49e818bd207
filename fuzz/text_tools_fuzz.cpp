// SPDX-License-Identifier: MIT
// The text tools with any bytes, in buffers that are exactly as large as they are said to be: what
// they answer and every byte they leave are held against models.
#include <vexadm/strings.h>

#include <cstring>
#include <memory>
#include <vector>

#include "fuzz_target.h"

using vexa_fuzz::check;
using vexa_fuzz::Source;

namespace {

constexpr char kUntouched = '\x5A';

std::string text_from(Source& source, unsigned most) { return source.bytes(source.below(most)).c_str(); }

// A block of its own for each buffer, so that a byte beside it is seen.
class Block {
 public:
  explicit Block(std::size_t size) : bytes_(new char[size]), size_(size) {
    std::fill_n(bytes_.get(), size, kUntouched);
  }
  explicit Block(const std::string& text) : Block(text, text.size() + 1) {}
  // A text in a larger buffer.
  Block(const std::string& text, std::size_t size) : Block(size) {
    std::fill_n(bytes_.get(), size, '\0');
    std::copy(text.begin(), text.end(), bytes_.get());
  }
  char* get() { return bytes_.get(); }
  std::uint8_t* bytes() { return reinterpret_cast<std::uint8_t*>(bytes_.get()); }
  std::uint32_t size() const { return static_cast<std::uint32_t>(size_); }
  bool begins_with(const std::string& expected) const {
    return expected.size() <= size_ && std::memcmp(bytes_.get(), expected.data(), expected.size()) == 0;
  }
  bool is(const std::string& expected) const { return expected.size() == size_ && begins_with(expected); }

 private:
  std::unique_ptr<char[]> bytes_;
  std::size_t size_;
};

std::string untouched(std::size_t count) { return std::string(count, kUntouched); }
std::string terminated(const std::string& text) { return text + '\0'; }

// ---- Copies ----

void copy(Source& source) {
  const std::string text = text_from(source, 40);
  Block from(text);
  Block to(source.below(40));
  check(vexa_strlcpy(to.get(), from.get(), to.size()) == text.size(), "strlcpy: another length");
  if (to.size() == 0) return;
  const std::string kept = terminated(text.substr(0, to.size() - 1));
  check(to.is(kept + untouched(to.size() - kept.size())), "strlcpy: other bytes");
}

void append(Source& source) {
  const std::string first = text_from(source, 20);
  const std::string second = text_from(source, 40);
  Block from(second);
  const std::size_t size = source.below(40);
  Block to(size);
  const std::string before = terminated(first).substr(0, size);
  if (size > 0) std::memcpy(to.get(), before.data(), before.size());
  const std::uint32_t result = vexa_strlcat(to.get(), from.get(), to.size());
  if (first.size() >= size) {
    check(result == size + second.size() && to.is(before), "strlcat: a full buffer is changed");
    return;
  }
  check(result == first.size() + second.size(), "strlcat: another length");
  const std::string kept = terminated((first + second).substr(0, size - 1));
  check(to.is(kept + untouched(size - kept.size())), "strlcat: other bytes");
}

void fill_field(Source& source) {
  const std::string text = text_from(source, 40);
  Block from(text);
  Block to(source.below(40));
  vexa_string_memcpy(to.get(), from.get(), to.size());
  std::string expected = text.substr(0, to.size());
  expected.resize(to.size(), '\0');
  check(to.is(expected), "string_memcpy: other bytes");
}

std::size_t length_of_lead(unsigned char lead) {
  if (lead < 0x80) return 1;
  if (lead >= 0xC0 && lead < 0xE0) return 2;
  if (lead >= 0xE0 && lead < 0xF0) return 3;
  return lead >= 0xF0 && lead < 0xF8 ? 4 : 0;
}

void copy_characters(Source& source) {
  const std::string text = text_from(source, 40);
  Block from(text);
  Block to(1 + source.below(40));
  std::string kept;
  std::int32_t result = 0;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = length_of_lead(static_cast<unsigned char>(text[at]));
    check(vexa_utf8_NumBytesInChar(static_cast<std::uint8_t>(text[at])) == static_cast<int>(length),
          "another number of bytes in a character");
    if (length == 0) kept.clear();
    if (length > 0 && at + length >= to.size()) result = -1;
    if (length == 0 || result != 0) break;
    kept += text.substr(at, length);
    at += length;
  }
  std::uint32_t length = 77;
  check(vexa_utf8_Copy(to.get(), from.get(), to.size(), &length) == result, "utf8_Copy: another result");
  check(length == kept.size() && to.begins_with(terminated(kept)), "utf8_Copy: other characters");
}

// ---- Editing ----

void unquote(Source& source) {
  std::string text = text_from(source, 24);
  if (source.below(4) != 0) text.insert(0, 1, '"');
  if (source.below(4) != 0) text += '"';
  Block from(text);
  Block to(source.below(24));
  const std::size_t end = text.find('"', 1);
  const bool good = text[0] == '"' && end != std::string::npos && end <= to.size() && end + 1 == text.size();
  check(vexa_strip_quotes_out(from.get(), to.get(), to.size()) == (good ? 1U : 0U), "quotes: another result");
  if (good) check(to.begins_with(terminated(text.substr(1, end - 1))), "quotes: another text");
}

bool is_space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

void trim(Source& source) {
  const std::string text = text_from(source, 40);
  Block buffer(text);
  std::size_t begin = 0;
  std::size_t end = text.size();
  while (begin < end && is_space(text[begin])) ++begin;
  while (end > begin && is_space(text[end - 1])) --end;
  check(vexa_trim_string(buffer.get()) == buffer.get(), "trim: another place");
  check(buffer.begins_with(terminated(text.substr(begin, end - begin))), "trim: another text");
}

void change_case(Source& source) {
  std::string text = text_from(source, 40);
  Block buffer(text);
  for (char& c : text) {
    const bool capital = c >= 'A' && c <= 'Z';
    check(tolowercase(c) == (capital ? c + ('a' - 'A') : c), "tolowercase: another character");
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - ('a' - 'A'));
  }
  check(vexa_string_toupper(buffer.get()) == buffer.get(), "toupper: another place");
  check(buffer.is(terminated(text)), "toupper: another text");
}

void replace(Source& source) {
  const std::string text = text_from(source, 1400);
  const std::string old = text_from(source, 6);
  const std::string put = text_from(source, source.below(8) == 0 ? 1400 : 8);
  const std::size_t at = text.find(old);
  std::string expected = terminated(text);
  if (at != std::string::npos) {
    const std::string result = (text.substr(0, at) + put + text.substr(at + old.size())).substr(0, 1023);
    expected.resize(std::max(expected.size(), result.size() + 1), '\0');
    expected.replace(0, result.size(), result);
  }
  Block buffer(text, expected.size());
  Block from(old);
  Block to(put);
  check(replace_str(buffer.get(), from.get(), to.get()) == (at != std::string::npos ? 0 : -1),
        "replace_str: another result");
  check(buffer.is(expected), "replace_str: other bytes");
}

// ---- Comparing and splitting ----

std::string lower(std::string text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + ('a' - 'A'));
  }
  return text;
}

void compare(Source& source) {
  const std::string text = text_from(source, 12);
  std::string other = text_from(source, 12);
  const unsigned kind = source.byte();
  if ((kind & 2) != 0) other = text.substr(0, kind % (text.size() + 1));
  if ((kind & 4) != 0) other = text.substr(kind % (text.size() + 1));
  Block first(text);
  Block second((kind & 8) != 0 ? lower(other) : other);
  const bool nocase = (kind & 1) != 0;
  const std::string a = nocase ? lower(text) : text;
  const std::string b = nocase ? lower(second.get()) : second.get();
  check(starts_with(first.get(), second.get(), nocase ? 1 : 0) == (a.starts_with(b) ? 1U : 0U),
        "starts_with: another answer");
  check(ends_with(first.get(), second.get(), nocase ? 1U : 0U) == (a.ends_with(b) ? 1U : 0U),
        "ends_with: another answer");
}

void split(Source& source) {
  const std::string delimiters = text_from(source, 4);
  const std::int32_t skip = static_cast<std::int32_t>(source.byte());
  const std::string text = text_from(source, 60);
  std::vector<std::string> expected;
  for (std::size_t begin = 0;;) {
    const std::size_t end = std::min(text.find_first_of(delimiters, begin), text.size());
    if (end > begin || (skip & 1) == 0) expected.push_back(text.substr(begin, end - begin));
    if (end == text.size()) break;
    begin = end + 1;
  }
  Block buffer(text);
  Block set(delimiters);
  std::vector<char*> pieces(expected.size() + 1);
  const std::int32_t count = split_string_to_array(buffer.get(), set.get(), pieces.data(), skip);
  check(count == static_cast<std::int32_t>(expected.size()), "split: another number of pieces");
  for (std::size_t i = 0; i < expected.size(); ++i) check(pieces[i] == expected[i], "split: another piece");
}

// ---- Hexadecimal ----

int digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

// Mostly digits.
std::string digits_from(Source& source) {
  std::string text = text_from(source, 24);
  if (source.below(4) == 0) return text;
  for (char& c : text) c = "0123456789abcdefABCDEF"[static_cast<unsigned char>(c) % 22];
  return text;
}

std::uint8_t byte_of(const std::string& hex, std::size_t pair) {
  return static_cast<std::uint8_t>(digit(hex[2 * pair]) * 16 + digit(hex[2 * pair + 1]));
}

// How many pairs there are before the first character that is no digit.
std::size_t good_pairs(const std::string& hex) {
  std::size_t pairs = 0;
  while (2 * pairs + 1 < hex.size() && digit(hex[2 * pairs]) >= 0 && digit(hex[2 * pairs + 1]) >= 0) ++pairs;
  return pairs;
}

void to_bytes(Source& source) {
  const std::string hex = digits_from(source);
  Block from(hex);
  // More digits than there are, too: the terminator is none.
  const auto length = static_cast<std::uint32_t>(hex.size() + (source.below(8) == 0 ? 2 : 0));
  Block to(source.below(16));
  const bool fits = length % 2 == 0 && length / 2 <= to.size();
  const bool good = fits && good_pairs(hex) == length / 2;
  check(vexa_hex_StringToBinary(from.get(), length, to.bytes(), to.size()) ==
            (good ? static_cast<std::int32_t>(length / 2) : -1),
        "StringToBinary: another result");
  const std::size_t written = fits ? good_pairs(hex) : 0;
  for (std::size_t i = 0; i < written; ++i) check(to.bytes()[i] == byte_of(hex, i), "another byte");
  for (std::size_t i = written; i < to.size(); ++i) check(to.get()[i] == kUntouched, "a byte too many");
}

void to_text(Source& source) {
  const std::string bytes = source.bytes(source.below(16));
  Block from(bytes);
  Block to(source.below(40));
  std::string hex;
  for (const char c : bytes) {
    hex += "0123456789ABCDEF"[static_cast<unsigned char>(c) / 16];
    hex += "0123456789ABCDEF"[static_cast<unsigned char>(c) % 16];
  }
  const bool fits = hex.size() + 1 <= to.size();
  check(vexa_hex_BinaryToString(from.bytes(), static_cast<std::uint32_t>(bytes.size()), to.get(),
                                to.size()) == (fits ? static_cast<std::int32_t>(hex.size()) : -1),
        "BinaryToString: another result");
  const std::string written = fits ? terminated(hex) : "";
  check(to.is(written + untouched(to.size() - written.size())), "BinaryToString: other bytes");
}

void to_number(Source& source) {
  const std::string hex = digits_from(source);
  Block from(hex);
  std::int64_t value = 0;
  for (const char c : hex) {
    if (value >= 0) value = digit(c) < 0 || value > 0x7FFFFFF ? -1 : value * 16 + digit(c);
  }
  check(vexa_hex_HexaToInteger(from.get()) == value, "HexaToInteger: another number");
}

void combine(Source& source) {
  const std::string hex = digits_from(source);
  Block from(hex);
  const bool good = hex.size() % 2 == 0 && good_pairs(hex) == hex.size() / 2;
  Block to(hex.size() / 2);
  check(vexa_change_hexstr_to_str(from.get(), to.bytes()) == (good ? 0 : -1),
        "change_hexstr: another result");
  for (std::size_t i = 0; i < to.size(); ++i) {
    const std::uint8_t added = good ? byte_of(hex, i) : std::uint8_t{0};
    check(to.bytes()[i] == (static_cast<std::uint8_t>(kUntouched) | added), "change_hexstr: another byte");
  }
}

constexpr void (*kTools[])(Source&) = {copy,     append,      fill_field, copy_characters, unquote,
                                       trim,     change_case, replace,    compare,         split,
                                       to_bytes, to_text,     to_number,  combine};

}  // namespace

void vexa_fuzz::set_up() {}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Source source(data, size);
  for (int steps = 0; source.left() > 0 && steps < 8; ++steps) {
    kTools[source.below(std::size(kTools))](source);
  }
  return 0;
}
