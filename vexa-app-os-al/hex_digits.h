// SPDX-License-Identifier: MIT
// Bytes as hexadecimal digits.
#ifndef VEXADM_OS_HEX_DIGITS_H
#define VEXADM_OS_HEX_DIGITS_H

#include <cstdint>
#include <string_view>

namespace vexa {

inline constexpr std::string_view kHexDigits = "0123456789ABCDEF";

// Bytes that n bytes take as a terminated text. The sum of the largest n does not fit into 32 bits.
constexpr uint64_t hex_text_size(uint32_t n) { return uint64_t{n} * 2 + 1; }

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
