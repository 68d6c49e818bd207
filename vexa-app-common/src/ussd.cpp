// SPDX-License-Identifier: MIT
// USSD text by its data coding scheme.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>

#include "log/call_site.h"
#include "owners.h"
#include "vexadm/gsm_text.h"
#include "vexadm/unicode.h"

namespace {

constexpr const char* kName = "vexa_util_convert_ussd_string_to_utf8";

// ---- Schemes ----

enum class Scheme : uint8_t { kSevenBit, kEightBit, kUcs2, kLanguageUcs2, kUnsupported };
using enum Scheme;

// What the low nibble of a group says: the scheme for each value.
using Group = std::array<Scheme, 16>;

constexpr Group all(Scheme scheme) {
  Group group{};
  group.fill(scheme);
  return group;
}

// By bits 3 and 2.
constexpr Group kGeneral = {kSevenBit,    kSevenBit,    kSevenBit,    kSevenBit,   kEightBit, kEightBit,
                            kEightBit,    kEightBit,    kUcs2,        kUcs2,       kUcs2,     kUcs2,
                            kUnsupported, kUnsupported, kUnsupported, kUnsupported};
// By bit 2.
constexpr Group kMessageClass = {kSevenBit, kSevenBit, kSevenBit, kSevenBit, kEightBit, kEightBit,
                                 kEightBit, kEightBit, kSevenBit, kSevenBit, kSevenBit, kSevenBit,
                                 kEightBit, kEightBit, kEightBit, kEightBit};
constexpr Group kLanguage = [] {
  Group group = all(kUnsupported);
  group[0] = kSevenBit;
  group[1] = kLanguageUcs2;
  return group;
}();

// By the high nibble. Networks use groups 12 to 14 like the general ones, whatever the standard reserves.
constexpr std::array<Group, 16> kSchemes = {
    all(kSevenBit), kLanguage, all(kSevenBit),    all(kSevenBit), kGeneral,          kGeneral,
    kGeneral,       kGeneral,  all(kUnsupported), kGeneral,       all(kUnsupported), all(kUnsupported),
    kGeneral,       kGeneral,  kGeneral,          kMessageClass};

// ---- One message ----

struct Message {
  unsigned high;
  unsigned low;
  const uint8_t* src;
  std::size_t src_len;
  char* dst;
  std::size_t dst_size;

  int hi() const { return static_cast<int>(high); }
  int lo() const { return static_cast<int>(low); }
  // What the log shows: a target that nothing was written to need not be a text.
  const char* shown(std::size_t written) const { return written > 0 ? dst : ""; }
};

uint16_t convert_seven_bit(const Message& message) {
  // Packed lengths are one byte wide, here too.
  const auto len = static_cast<int32_t>(message.src_len % 256);
  const uint16_t written =
      vexa_util_convert_gsm_def_alpha_string_to_utf8(message.src, len, message.dst, message.dst_size);
  VEXA_LOG(vexa::log::kDebug, kName, "USSD DCS 7-bit str, hi %d lo %d: %s\n", message.hi(), message.lo(),
           message.shown(written));
  return written;
}

uint16_t convert_eight_bit(const Message& message) {
  // One byte more than text and terminator take: hosts size their buffers by this test.
  if (message.dst_size == 0 || message.dst_size - 1 <= message.src_len) {
    VEXA_LOG(vexa::log::kError, kName, "Destination buffer (sz %zu) less than required %zu\n",
             message.dst_size, message.src_len + 1);
    return 0;
  }
  std::memcpy(message.dst, message.src, message.src_len);
  message.dst[message.src_len] = '\0';
  VEXA_LOG(vexa::log::kDebug, kName, "USSD DCS 8-bit str, hi %d lo %d: %s\n", message.hi(), message.lo(),
           message.dst);
  return static_cast<uint16_t>(message.src_len);
}

// The language counts as text, and is in the order that it has on the air already: as it is, it
// becomes the first character.
void copy_units(const Message& message, std::size_t language, uint16_t* units) {
  const std::size_t count = message.src_len / 2;
  for (std::size_t i = 0; i < count; ++i) {
    const uint8_t* const pair = message.src + i * 2;
    if (i < language) {
      std::memcpy(units + i, pair, sizeof *units);
    } else {
      units[i] = static_cast<uint16_t>(pair[0] << 8 | pair[1]);
    }
  }
}

uint16_t convert_ucs2(const Message& message, bool has_language) {
  // At least src_len + 1 bytes, and aligned.
  const auto units = vexa::Heap<uint16_t>::zeroed(message.src_len / 2 + 1);
  if (!units) {
    VEXA_LOG(vexa::log::kError, kName, "USC2 to UTF8 conversion failed due to lack of memory\n");
    return 0;
  }
  if (has_language) {
    VEXA_LOG(vexa::log::kDebug, kName, "ussd string size preceded by language = %d\n",
             static_cast<int>(message.src_len));
  } else {
    VEXA_LOG(vexa::log::kDebug, kName, "ussd string size = %d\n", static_cast<int>(message.src_len));
  }
  copy_units(message, has_language ? 1 : 0, units.get());
  const std::size_t written =
      vexa_util_convert_ucs2_to_utf8(units.get(), message.src_len, message.dst, message.dst_size);
  VEXA_LOG(vexa::log::kDebug, kName, "USSD DCS UCS2 str, hi %d lo %d: %s\n", message.hi(), message.lo(),
           message.shown(written));
  return static_cast<uint16_t>(written);
}

}  // namespace

uint16_t vexa_util_convert_ussd_string_to_utf8(uint8_t dcs, const uint8_t* src, std::size_t src_len,
                                               char* dst, std::size_t dst_size) {
  if (!src || !dst) {
    VEXA_LOG(vexa::log::kError, kName, "FATAL : CHECK FAILED\n");
    return 0;
  }
  const Message message{dcs / 16U, dcs % 16U, src, src_len, dst, dst_size};
  switch (kSchemes[message.high][message.low]) {
    case kSevenBit:
      return convert_seven_bit(message);
    case kEightBit:
      return convert_eight_bit(message);
    case kUcs2:
      return convert_ucs2(message, false);
    case kLanguageUcs2:
      return convert_ucs2(message, true);
    case kUnsupported:
      break;
  }
  return 0;
}
