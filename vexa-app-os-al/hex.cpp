// SPDX-License-Identifier: MIT
// Hexadecimal text to bytes and numbers, and back.
#include <cctype>
#include <cstddef>
#include <cstring>
#include <string_view>

#include "hex_digits.h"
#include "log/call_site.h"
#include "vexadm/strings.h"

namespace {

// The value of a digit of either case; -1 for any other character, the terminator included.
int digit_value(char c) {
  const int upper = std::toupper(static_cast<unsigned char>(c));
  const std::size_t index = vexa::kHexDigits.find(static_cast<char>(upper));
  return index == std::string_view::npos ? -1 : static_cast<int>(index);
}

}  // namespace

// The refusals are debug messages: "no hexadecimal text" is an answer here, not an error.
int32_t vexa_hex_StringToBinary(const char* hex, uint32_t hex_len, uint8_t* out, uint32_t out_size) {
  constexpr const char* kName = "vexa_hex_StringToBinary";
  if (hex_len % 2 != 0) {
    VEXA_LOG(vexa::log::kDebug, kName, "The input stringLength=%u is not a multiple of 2\n", hex_len);
    return -1;
  }
  if (out_size < hex_len / 2) {
    VEXA_LOG(vexa::log::kDebug, kName,
             "The stringLength (%u) is too long to convert into a byte array of length (%u)\n", hex_len,
             out_size);
    return -1;
  }
  for (uint32_t i = 0; i < hex_len / 2; ++i) {
    const char* const pair = hex + std::size_t{i} * 2;
    const int high = digit_value(pair[0]);
    // The second character is beyond the text when the first is its terminator.
    const int low = high < 0 ? -1 : digit_value(pair[1]);
    if (low < 0) {
      VEXA_LOG(vexa::log::kDebug, kName, "Invalid string to convert (%s)\n", hex);
      return -1;
    }
    out[i] = static_cast<uint8_t>(high * 16 + low);
  }
  return static_cast<int32_t>(hex_len / 2);
}

int32_t vexa_hex_BinaryToString(const uint8_t* bin, uint32_t n, char* out, uint32_t out_size) {
  if (!vexa::hex_text_fits(n, out_size)) {
    VEXA_LOG(vexa::log::kError, "vexa_hex_BinaryToString",
             "Hex string array (%u) is too small to convert (%u) bytes\n", out_size, n);
    return -1;
  }
  vexa::write_hex_text(bin, n, out);
  return static_cast<int32_t>(n * 2);
}

int32_t vexa_hex_HexaToInteger(const char* hex) {
  // Above this another digit would leave the range of the result, where negative means failure.
  constexpr int32_t kRoomForADigit = 0x7FFFFFF;
  int32_t value = 0;
  for (; *hex; ++hex) {
    const int digit = digit_value(*hex);
    if (digit < 0 || value > kRoomForADigit) return -1;
    value = value * 16 + digit;
  }
  return value;
}

int32_t vexa_change_hexstr_to_str(const char* hex, uint8_t* out) {
  if (!hex || !out) return -1;
  const std::size_t length = std::strlen(hex);
  if (length % 2 != 0) return -1;
  for (std::size_t i = 0; i < length; ++i) {
    if (!std::isxdigit(static_cast<unsigned char>(hex[i]))) return -1;
  }
  for (std::size_t i = 0; i < length / 2; ++i) {
    // Combined, not stored: what the buffer holds shows through unless the caller cleared it.
    out[i] = static_cast<uint8_t>(out[i] | digit_value(hex[2 * i]) << 4 | digit_value(hex[2 * i + 1]));
  }
  return 0;
}
