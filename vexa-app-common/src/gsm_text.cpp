// SPDX-License-Identifier: MIT
// GSM septets: unpacked, and as UTF-8.
#include "vexadm/gsm_text.h"

#include <algorithm>
#include <array>
#include <cstddef>

#include "log/call_site.h"
#include "owners.h"
#include "several_at_a_time.h"

namespace {

constexpr uint8_t kCarriageReturn = 13;
constexpr std::size_t kMostSeptets = 255;

// ---- The alphabet ----

// 3GPP TS 23.038, 6.2.1, from 00 to 7F; the escape at 1B is a blank.
constexpr char16_t kAlphabet[] =
    u"@£$¥èéùìòÇ\nØø\rÅå"
    u"Δ_ΦΓΛΩΠΨΣΘΞ ÆæßÉ"
    u" !\"#¤%&'()*+,-./"
    u"0123456789:;<=>?"
    u"¡ABCDEFGHIJKLMNO"
    u"PQRSTUVWXYZÄÖÑÜ§"
    u"¿abcdefghijklmno"
    u"pqrstuvwxyzäöñüà";

// The UTF-8 of each: one byte, or two with the first one in the high byte.
constexpr std::array<uint16_t, 128> utf8_of_alphabet() {
  std::array<uint16_t, 128> forms{};
  for (std::size_t i = 0; i < forms.size(); ++i) {
    const unsigned c = kAlphabet[i];
    forms[i] = static_cast<uint16_t>(c < 0x80 ? c : (0xC0 | c >> 6) << 8 | 0x80 | (c & 0x3F));
  }
  return forms;
}
constexpr auto kUtf8 = utf8_of_alphabet();
static_assert(std::size(kAlphabet) == kUtf8.size() + 1);
static_assert(kUtf8[1] == 0xC2A3 && kUtf8[27] == 0x20 && kUtf8[127] == 0xC3A0);

// The 56 bits of seven octets as eight septets, each in a byte.
constexpr uint64_t spread(uint64_t octets) {
  const uint64_t halves = (octets & 0xFFFFFFF0000000) << 4 | (octets & 0xFFFFFFF);
  const uint64_t quarters = (halves & 0xFFFC0000FFFC000) << 2 | (halves & 0x3FFF00003FFF);
  return (quarters & 0x3F803F803F803F80) << 1 | (quarters & 0x7F007F007F007F);
}

uint16_t refuse(const char* function, int32_t len) {
  VEXA_LOG(vexa::log::kError, function,
           "Invalid parameters for GSM alphabet to UTF8 conversion, input len = %d\n", static_cast<int>(len));
  return 0;
}

}  // namespace

int32_t vexa_util_UssdStringIsAscii(const char* text) {
  if (!text) return 0;
  for (; *text != '\0'; ++text) {
    if (static_cast<unsigned char>(*text) >= 0x80) return 0;
  }
  return 1;
}

int32_t vexa_util_ussd_unpack(uint8_t* out, int32_t out_max, const uint8_t* packed, int32_t packed_len) {
  if (!out || !packed || out_max == 0 || packed_len <= 0) return 0;
  const std::size_t most = out_max < 0 ? kMostSeptets : std::min(std::size_t(out_max), kMostSeptets);
  // A length is one byte on the air: 256 is the most, and more begins again.
  const std::size_t count = std::size_t(packed_len - 1) % 256 + 1;
  std::size_t n = 0;
  std::size_t i = 0;
  if constexpr (vexa::text::kSeveralAtATime) {
    // Never with the last octet, which may be padding.
    for (; count - i > 7 && most - n >= 8; i += 7, n += 8) {
      vexa::text::store(out + n, spread(vexa::text::load<uint64_t>(packed + i)));
    }
  }
  unsigned previous = 0;
  for (; i < count && n < most; ++i) {
    const unsigned byte = packed[i];
    const unsigned shift = n % 8;
    out[n++] = static_cast<uint8_t>(((byte << shift) & 0x7F) | previous >> (8 - shift));
    previous = byte;
    if (shift != 6) continue;
    const unsigned second = byte >> 1;
    const bool is_padding = i + 1 == count && second == kCarriageReturn;
    if (is_padding || n == most) break;
    out[n++] = static_cast<uint8_t>(second);
  }
  return static_cast<int32_t>(n);
}

uint16_t vexa_util_convert_gsm8bit_alpha_string_to_utf8(const uint8_t* septets, int32_t len, char* dst,
                                                        std::size_t dst_size) {
  constexpr const char* kName = "vexa_util_convert_gsm8bit_alpha_string_to_utf8";
  if (!septets || len <= 0 || !dst || dst_size == 0) return refuse(kName, len);
  const std::size_t most = dst_size - 1;
  std::size_t written = 0;
  for (int32_t i = 0; i < len && written < most; ++i) {
    const uint8_t septet = septets[i];
    if (septet == kCarriageReturn) {
      VEXA_LOG(vexa::log::kDebug, kName, "ignored CR charecter at index = %d\n", static_cast<int>(i));
      continue;
    }
    const unsigned value = septet < kUtf8.size() ? kUtf8[septet] : septet;
    if (value < 0x100) {
      dst[written++] = static_cast<char>(value);
    } else if (most - written >= 2) {
      dst[written++] = static_cast<char>(value >> 8);
      dst[written++] = static_cast<char>(value & 0xFF);
    }
    // No end here: a display shows the rest of a text without the letter it has no room for.
  }
  dst[written] = '\0';
  return static_cast<uint16_t>(written);
}

uint16_t vexa_util_convert_gsm_def_alpha_string_to_utf8(const uint8_t* packed, int32_t len, char* dst,
                                                        std::size_t dst_size) {
  constexpr const char* kName = "vexa_util_convert_gsm_def_alpha_string_to_utf8";
  if (!packed || len <= 0 || !dst || dst_size == 0) return refuse(kName, len);
  const auto capacity = std::size_t(len) * 2;
  const auto septets = vexa::Heap<uint8_t>::zeroed(capacity);
  if (!septets) {
    VEXA_LOG(vexa::log::kError, kName, "Fail to allocate buffer for GSM alphabet to UTF8 conversion\n");
    return 0;
  }
  const auto most = static_cast<int32_t>(std::min(capacity, kMostSeptets));
  const int32_t count = vexa_util_ussd_unpack(septets.get(), most, packed, len);
  return vexa_util_convert_gsm8bit_alpha_string_to_utf8(septets.get(), count, dst, dst_size);
}
