// SPDX-License-Identifier: MIT
// What the Unicode conversions have to give, worked out one character at a time from the standard's
// own table of well-formed sequences.
#ifndef VEXADM_TESTS_UNICODE_MODEL_H
#define VEXADM_TESTS_UNICODE_MODEL_H

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>

namespace vexa_test {

struct Converted8 {
  int code = 0;
  std::size_t used = 0;  // of the source
  std::string bytes;
  bool operator==(const Converted8&) const = default;
};

struct Converted16 {
  int code = 0;
  std::size_t used = 0;
  std::u16string units;
  bool operator==(const Converted16&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const Converted8& converted) {
  out << "code " << converted.code << ", used " << converted.used << ", bytes" << std::hex;
  for (const char byte : converted.bytes)
    out << ' ' << static_cast<unsigned>(static_cast<unsigned char>(byte));
  return out << std::dec;
}

inline std::ostream& operator<<(std::ostream& out, const Converted16& converted) {
  out << "code " << converted.code << ", used " << converted.used << ", units" << std::hex;
  for (const char16_t unit : converted.units) out << ' ' << static_cast<unsigned>(unit);
  return out << std::dec;
}

inline std::string encoded8(char32_t c) {
  std::string bits;  // most significant first
  for (int i = 20; i >= 0; --i) bits += (c >> i & 1) != 0 ? '1' : '0';
  const auto byte = [&](const std::string& form) { return static_cast<char>(std::stoi(form, nullptr, 2)); };
  if (c <= 0x7F) return {byte("0" + bits.substr(14))};
  if (c <= 0x7FF) return {byte("110" + bits.substr(10, 5)), byte("10" + bits.substr(15))};
  if (c <= 0xFFFF)
    return {byte("1110" + bits.substr(5, 4)), byte("10" + bits.substr(9, 6)), byte("10" + bits.substr(15))};
  return {byte("11110" + bits.substr(0, 3)), byte("10" + bits.substr(3, 6)), byte("10" + bits.substr(9, 6)),
          byte("10" + bits.substr(15))};
}

inline std::u16string encoded16(char32_t c) {
  if (c <= 0xFFFF) return {static_cast<char16_t>(c)};
  return {static_cast<char16_t>(0xD800 + (c - 0x10000) / 0x400),
          static_cast<char16_t>(0xDC00 + (c - 0x10000) % 0x400)};
}

// Table 3-7 of the Unicode Standard. Bytes that a row lacks are 0 to 0.
struct WellFormed {
  std::size_t length;
  int first[4];
  int last[4];
};
inline constexpr WellFormed kWellFormed[] = {
    {1, {0x00}, {0x7F}},
    {2, {0xC2, 0x80}, {0xDF, 0xBF}},
    {3, {0xE0, 0xA0, 0x80}, {0xE0, 0xBF, 0xBF}},
    {3, {0xE1, 0x80, 0x80}, {0xEC, 0xBF, 0xBF}},
    {3, {0xED, 0x80, 0x80}, {0xED, 0x9F, 0xBF}},
    {3, {0xEE, 0x80, 0x80}, {0xEF, 0xBF, 0xBF}},
    {4, {0xF0, 0x90, 0x80, 0x80}, {0xF0, 0xBF, 0xBF, 0xBF}},
    {4, {0xF1, 0x80, 0x80, 0x80}, {0xF3, 0xBF, 0xBF, 0xBF}},
    {4, {0xF4, 0x80, 0x80, 0x80}, {0xF4, 0x8F, 0xBF, 0xBF}},
};

// Bytes that a lead byte announces: one more than the ones that its bits begin with, less one.
inline std::size_t announced(unsigned char lead) {
  if (lead < 0xC0) return 1;
  std::size_t ones = 0;
  while (ones < 6 && (lead << ones & 0x80) != 0) ++ones;
  return ones;
}

inline bool matches(const WellFormed& row, const std::string& text, std::size_t at) {
  for (std::size_t i = 0; i < row.length; ++i) {
    const int byte = static_cast<unsigned char>(text[at + i]);
    if (byte < row.first[i] || byte > row.last[i]) return false;
  }
  return true;
}

inline Converted16 model_to16(const std::string& text, std::size_t room) {
  Converted16 result;
  while (result.used < text.size()) {
    const auto lead = static_cast<unsigned char>(text[result.used]);
    const std::size_t length = announced(lead);
    if (result.used + length > text.size()) return result.code = 1, result;
    bool legal = false;
    for (const WellFormed& row : kWellFormed) {
      legal = legal || (row.length == length && matches(row, text, result.used));
    }
    if (!legal) return result.code = 3, result;
    constexpr unsigned kLeadBits[] = {0, 0x7F, 0x1F, 0x0F, 0x07};
    char32_t value = lead & kLeadBits[length];
    for (std::size_t i = 1; i < length; ++i) {
      value = value * 64 + static_cast<unsigned char>(text[result.used + i]) % 64;
    }
    const std::u16string units = encoded16(value);
    if (result.units.size() + units.size() > room) return result.code = 2, result;
    result.units += units;
    result.used += length;
  }
  return result;
}

inline Converted8 model_to8(const std::u16string& text, std::size_t room, bool strict) {
  Converted8 result;
  while (result.used < text.size()) {
    char32_t value = text[result.used];
    std::size_t length = 1;
    if (value >= 0xD800 && value <= 0xDBFF) {
      if (result.used + 1 == text.size()) return result.code = 1, result;
      const char32_t next = text[result.used + 1];
      if (next >= 0xDC00 && next <= 0xDFFF) {
        value = (value - 0xD800) * 0x400 + (next - 0xDC00) + 0x10000;
        length = 2;
      } else if (strict) {
        return result.code = 3, result;
      }
    } else if (strict && value >= 0xDC00 && value <= 0xDFFF) {
      return result.code = 3, result;
    }
    const std::string bytes = encoded8(value);
    if (result.bytes.size() + bytes.size() > room) return result.code = 2, result;
    result.bytes += bytes;
    result.used += length;
  }
  return result;
}

}  // namespace vexa_test

#endif
