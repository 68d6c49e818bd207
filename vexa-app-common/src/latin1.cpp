// SPDX-License-Identifier: MIT
// Latin-1 of supplementary services to UTF-8.
#include <cstddef>

#include "log/call_site.h"
#include "several_at_a_time.h"
#include "vexadm/unicode.h"

namespace {

constexpr const char* kName = "vexa_util_ss_ascii_to_utf8";
constexpr uint8_t kCarriageReturn = 13;

// Eight bytes at once that stand for themselves.
bool are_plain(const uint8_t* from) {
  constexpr uint64_t kOnes = 0x0101010101010101U;
  const auto bytes = vexa::text::load<uint64_t>(from);
  const uint64_t differs = bytes ^ (kOnes * kCarriageReturn);
  // A byte of zero borrows into its high bit, which a byte of 80 and above has anyway.
  return ((bytes | (differs - kOnes)) & (kOnes * 0x80)) == 0;
}

}  // namespace

uint32_t vexa_util_ss_ascii_to_utf8(const uint8_t* latin1, uint32_t len, char* utf8, uint32_t utf8_size) {
  if (!latin1 || len == 0 || !utf8 || utf8_size == 0) {
    VEXA_LOG(vexa::log::kError, kName, "Invalid parameters; ascii_str = %p, utf8_str = %p\n",
             static_cast<const void*>(latin1), static_cast<void*>(utf8));
    return 0;
  }
  // Without the terminator: a text of nothing but extended characters loses the last one.
  if (utf8_size < uint64_t{len} * 2) {
    VEXA_LOG(vexa::log::kError, kName, "the utf8 str buffer length is not enough\n");
    return 0;
  }
  const uint32_t most = utf8_size - 1;
  uint32_t written = 0;
  for (uint32_t i = 0; i < len; ++i) {
    // Room is no question before the last byte: there are two bytes of it for each one.
    while (len - i >= 8 && are_plain(latin1 + i)) {
      std::memcpy(utf8 + written, latin1 + i, 8);
      i += 8;
      written += 8;
    }
    if (i == len) break;
    const uint8_t byte = latin1[i];
    if (byte == kCarriageReturn) {
      VEXA_LOG(vexa::log::kDebug, kName, "ignored charecter at index = %d \n", static_cast<int>(i));
    } else if (byte < 0x80) {
      utf8[written++] = static_cast<char>(byte);
    } else if (most - written >= 2) {
      utf8[written++] = static_cast<char>(0xC0 | byte >> 6);
      utf8[written++] = static_cast<char>(0x80 | (byte & 0x3F));
    } else {
      VEXA_LOG(vexa::log::kDebug, kName,
               "ignored extended character at index = %d not enough bytes. al: %uui: %u us: %u\n",
               static_cast<int>(i), len, written, utf8_size);
    }
  }
  utf8[written] = '\0';
  return written;
}
