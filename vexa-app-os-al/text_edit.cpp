// SPDX-License-Identifier: MIT
// Texts compared, and edited in place.
#include <algorithm>
#include <array>
#include <cctype>
#include <cstddef>
#include <cstring>
#include <string_view>

#include "log/call_site.h"
#include "vexadm/strings.h"

namespace {

constexpr std::size_t kReplaceBuffer = 1024;

bool is_space(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

bool equal(const char* text, const char* other, std::size_t length, bool nocase) {
  return (nocase ? strncasecmp(text, other, length) : std::strncmp(text, other, length)) == 0;
}

// The work buffer of a replacement: keeps as much as fits with a terminator.
class CutText {
 public:
  void append(std::string_view text) {
    const std::size_t kept = std::min(text.size(), buffer_.size() - 1 - length_);
    std::memcpy(buffer_.data() + length_, text.data(), kept);
    length_ += kept;
  }
  const char* text() const { return buffer_.data(); }
  uint32_t length() const { return static_cast<uint32_t>(length_); }

 private:
  std::array<char, kReplaceBuffer> buffer_{};
  std::size_t length_ = 0;
};

}  // namespace

uint32_t vexa_strip_quotes_out(const char* in, char* out, uint32_t out_size) {
  constexpr const char* kName = "vexa_strip_quotes_out";
  if (in[0] != '"') {
    VEXA_LOG(vexa::log::kError, kName, "The in_str must be quoted\n");
    return 0;
  }
  // The closing quote has to be looked at before the room: it is not copied and needs none.
  const char* const text = in + 1;
  std::size_t length = 0;
  while (out_size > 0 && text[length] != '\0' && text[length] != '"' && length < out_size - 1) {
    out[length] = text[length];
    ++length;
  }
  if (out_size == 0 || text[length] != '"') {
    VEXA_LOG(vexa::log::kError, kName, "The in_str has opened quotes, or out_str is small: %d\n",
             static_cast<int>(out_size));
    return 0;
  }
  if (text[length + 1] != '\0') {
    VEXA_LOG(vexa::log::kError, kName, "String is not terminated after end quote found\n");
    return 0;
  }
  out[length] = '\0';
  return 1;
}

char* vexa_trim_string(char* str) {
  if (!str) return nullptr;
  const char* begin = str;
  while (is_space(*begin)) ++begin;
  std::size_t length = std::strlen(begin);
  std::memmove(str, begin, length + 1);
  while (length > 0 && is_space(str[length - 1])) --length;
  str[length] = '\0';
  return str;
}

char* vexa_string_toupper(char* str) {
  for (char* c = str; *c; ++c) *c = static_cast<char>(std::toupper(static_cast<unsigned char>(*c)));
  return str;
}

int32_t tolowercase(int32_t c) { return c >= 'A' && c <= 'Z' ? c + 32 : c; }

int32_t replace_str(char* str, const char* old, const char* new_text) {
  const char* const found = str && old && new_text ? std::strstr(str, old) : nullptr;
  if (!found) return -1;

  CutText result;
  result.append({str, static_cast<std::size_t>(found - str)});
  result.append(new_text);
  result.append(found + std::strlen(old));
  // Without a terminator: what stands behind the result in the field is kept.
  vexa_string_memcpy(str, result.text(), result.length());
  return 0;
}

uint32_t starts_with(const char* str, const char* prefix, int32_t nocase) {
  if (!str || !prefix) return 0;
  return equal(str, prefix, std::strlen(prefix), nocase != 0) ? 1 : 0;
}

uint32_t ends_with(const char* str, const char* suffix, uint32_t nocase) {
  if (!str || !suffix) return 0;
  const std::size_t length = std::strlen(str);
  const std::size_t suffix_length = std::strlen(suffix);
  if (suffix_length > length) return 0;
  return equal(str + length - suffix_length, suffix, suffix_length, nocase != 0) ? 1 : 0;
}

int32_t split_string_to_array(char* str, const char* delims, char* array[], int32_t skip_empty) {
  if (!str || !array) return -1;
  const bool skips = (skip_empty & 1) != 0;
  int32_t count = 0;
  char* rest = str;
  while (char* const piece = strsep(&rest, delims)) {
    if (skips && *piece == '\0') continue;
    array[count++] = piece;
  }
  return count;
}
