// SPDX-License-Identifier: MIT
// Bytes as hexadecimal digits.
#ifndef VEXADM_OS_HEX_DIGITS_H
#define VEXADM_OS_HEX_DIGITS_H

#include <cstdint>
#include <string_view>

namespace vexa {

inline constexpr std::string_view kHexDigits = "0123456789ABCDEF";

// True when the terminated text of n bytes fits, and its length fits into a result code: beyond
// that it would be negative, or wrap.
constexpr bool hex_text_fits(uint32_t n, uint32_t size) { return n < 0x40000000 && n * 2 + 1 <= size; }

// Writes two upper-case digits for each byte, the high one first, and a terminator.
inline void write_hex_text(const uint8_t* bin, uint32_t n, char* out) {
  for (uint32_t i = 0; i < n; ++i) {
    *out++ = kHexDigits[bin[i] >> 4];
    *out++ = kHexDigits[bin[i] & 0x0F];
  }
  *out = '\0';
}

}  // namespace vexa

#endif
