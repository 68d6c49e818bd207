// SPDX-License-Identifier: MIT
// UTF-8 to UTF-16. Runs of one kind of character go several at a time; whatever is unusual, and the
// ends of text and room, go by the rules, one sequence at a time.
#include <bit>
#include <cstddef>
#include <cstdint>

#include "several_at_a_time.h"
#include "vexadm/unicode.h"

namespace vexa::text {
namespace {

struct Cursor {
  const uint8_t* src;
  const uint8_t* src_end;
  uint16_t* dst;
  const uint16_t* dst_end;

  std::ptrdiff_t left() const { return src_end - src; }
  std::ptrdiff_t room() const { return dst_end - dst; }
  void advance(std::ptrdiff_t bytes, std::ptrdiff_t units) {
    src += bytes;
    dst += units;
  }
};

// ---- By the rules ----

constexpr std::ptrdiff_t length_by_lead(uint8_t lead) {
  if (lead < 0xC0) return 1;
  if (lead < 0xE0) return 2;
  if (lead < 0xF0) return 3;
  if (lead < 0xF8) return 4;
  return lead < 0xFC ? 5 : 6;
}

// Table 3-7 of the Unicode Standard: no overlong form, no surrogate, nothing above 10FFFF.
inline bool is_legal(const uint8_t* sequence, std::ptrdiff_t length) {
  const uint8_t lead = sequence[0];
  if (length == 1) return lead < 0x80;
  if (lead < 0xC2 || lead > 0xF4) return false;
  const uint8_t lowest = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
  const uint8_t highest = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
  if (sequence[1] < lowest || sequence[1] > highest) return false;
  for (std::ptrdiff_t i = 2; i < length; ++i) {
    if ((sequence[i] & 0xC0) != 0x80) return false;
  }
  return true;
}

// What the marks of lead and trail bytes add up to, by length.
constexpr uint32_t kOffsets[] = {0, 0, 0x3080, 0xE2080, 0x3C82080};

inline uint32_t decode(const uint8_t* sequence, std::ptrdiff_t length) {
  uint32_t sum = 0;
  for (std::ptrdiff_t i = 0; i < length; ++i) sum = (sum << 6) + sequence[i];
  return sum - kOffsets[length];
}

constexpr uint16_t high_half(uint32_t value) { return static_cast<uint16_t>(0xD7C0 + (value >> 10)); }
constexpr uint16_t low_half(uint32_t value) { return static_cast<uint16_t>(0xDC00 + (value & 0x3FF)); }

inline int32_t convert_one(Cursor& at) {
  const std::ptrdiff_t length = length_by_lead(*at.src);
  if (length > at.left()) return VEXA_UNICODE_SOURCE_EXHAUSTED;
  if (!is_legal(at.src, length)) return VEXA_UNICODE_SOURCE_ILLEGAL;
  // No replacement character for lenient conversions: nothing that is legal decodes to a surrogate
  // or to a value above 10FFFF.
  const uint32_t value = decode(at.src, length);
  const std::ptrdiff_t units = value < 0x10000 ? 1 : 2;
  if (units > at.room()) return VEXA_UNICODE_TARGET_EXHAUSTED;
  at.dst[0] = units == 1 ? static_cast<uint16_t>(value) : high_half(value);
  if (units == 2) at.dst[1] = low_half(value);
  at.advance(length, units);
  return VEXA_UNICODE_OK;
}

// ---- Several at a time ----
// Each step takes at least one character, or is false where the sequence is not a legal one. It may
// read kReach bytes and write kReachUnits units, more than it takes.

constexpr std::ptrdiff_t kReach = 16;
constexpr std::ptrdiff_t kReachUnits = 8;
constexpr std::ptrdiff_t kBlock = 32;
constexpr uint64_t kHighBits = four_times(0x8080);

inline bool is_ascii_block(const uint8_t* from) {
  const uint64_t all =
      load<uint64_t>(from) | load<uint64_t>(from + 8) | load<uint64_t>(from + 16) | load<uint64_t>(from + 24);
  return (all & kHighBits) == 0;
}

inline void take_ascii(Cursor& at) {
  const uint64_t high = load<uint64_t>(at.src) & kHighBits;
  widen_eight(at.src, at.dst);
  if (high != 0) {
    const int count = std::countr_zero(high) / 8;
    at.advance(count, count);
    return;
  }
  at.advance(8, 8);
  while (at.left() >= kBlock && at.room() >= kBlock && is_ascii_block(at.src)) {
    widen_sixteen(at.src, at.dst);
    widen_sixteen(at.src + 16, at.dst + 16);
    at.advance(kBlock, kBlock);
  }
}

// Four of two bytes each.
inline bool take_two_byte_forms(Cursor& at) {
  const uint64_t form = load<uint64_t>(at.src);
  const uint64_t wrong_marks = (form & four_times(0xC0E0)) ^ four_times(0x80C0);
  // Leads C0 and C1 have none of these bits; the sum carries out of the byte for all others.
  const uint64_t overlong = (~((form & four_times(0x001E)) + four_times(0x00FE))) & four_times(0x0100);
  const uint64_t wrong = wrong_marks | overlong;
  if ((wrong & 0xFFFF) != 0) return false;
  store(at.dst, (form & four_times(0x001F)) << 6 | ((form >> 8) & four_times(0x003F)));
  if (wrong == 0) {
    at.advance(8, 4);
  } else if ((wrong & 0xFFFF0000) != 0) {
    at.advance(2, 1);  // of its own, so that a lone accent among ASCII is not waited for
  } else {
    const std::ptrdiff_t count = std::countr_zero(wrong) / 16;
    at.advance(count * 2, count);
  }
  return true;
}

// Four of three bytes each.
inline bool take_three_byte_forms(Cursor& at) {
  const uint8_t* const from = at.src;
  const Words4 form = {load<uint32_t>(from), load<uint32_t>(from + 3), load<uint32_t>(from + 6),
                       load<uint32_t>(from + 9)};
  const Words4 value = (form & 0x0F) << 12 | ((form >> 2) & 0xFC0) | ((form >> 16) & 0x3F);
  const Words4 top = value & 0xF800;
  const auto legal = ((form & 0xC0C0F0) == 0x8080E0) & (top != 0) & (top != 0xD800);
  if (all_true(legal)) {
    store(at.dst, __builtin_convertvector(value, Units4));
    at.advance(12, 4);
    return true;
  }
  if (legal[0] == 0) return false;
  *at.dst = static_cast<uint16_t>(value[0]);
  at.advance(3, 1);
  return true;
}

// One of three bytes, in a word.
inline bool take_three_byte_form(Cursor& at) {
  const auto form = load<uint32_t>(at.src);
  const uint32_t value = (form & 0x0F) << 12 | ((form >> 2) & 0xFC0) | ((form >> 16) & 0x3F);
  const uint32_t top = value & 0xF800;
  if ((form & 0xC0C0F0) != 0x8080E0 || top == 0 || top == 0xD800) return false;
  *at.dst = static_cast<uint16_t>(value);
  at.advance(3, 1);
  return true;
}

// Four of four bytes each.
inline bool take_four_byte_forms(Cursor& at) {
  const auto form = load<Words4>(at.src);
  const Words4 value =
      (form & 0x07) << 18 | ((form << 4) & 0x3F000) | ((form >> 10) & 0xFC0) | ((form >> 24) & 0x3F);
  const auto legal = ((form & 0xC0C0C0F8) == 0x808080F0) & (((value - 0x10000) & 0xFFF00000) == 0);
  const Words4 pair = ((value >> 10) + 0xD7C0) | ((value & 0x3FF) + 0xDC00) << 16;
  if (all_true(legal)) {
    store(at.dst, pair);
    at.advance(16, 8);
    return true;
  }
  if (legal[0] == 0) return false;
  store(at.dst, uint32_t{pair[0]});
  at.advance(4, 2);
  return true;
}

inline void convert_runs(Cursor& at) {
  while (at.left() >= 8 && at.room() >= kReachUnits) {
    const uint8_t lead = *at.src;
    if (lead < 0x80) {
      take_ascii(at);
      continue;
    }
    if (at.left() < kReach) return;
    if (lead < 0xE0   ? !take_two_byte_forms(at)
        : lead < 0xF0 ? !(kHasVectors ? take_three_byte_forms(at) : take_three_byte_form(at))
                      : !(kHasVectors && take_four_byte_forms(at))) {
      return;
    }
  }
}

int32_t convert(Cursor& at) {
  while (at.src < at.src_end) {
    if constexpr (kSeveralAtATime) {
      convert_runs(at);
      if (at.src == at.src_end) break;
    }
    // Without vectors there is no step for forms of four bytes.
    do {
      const int32_t result = convert_one(at);
      if (result != VEXA_UNICODE_OK) return result;
    } while (!kHasVectors && at.src < at.src_end && *at.src >= 0xF0);
  }
  return VEXA_UNICODE_OK;
}

}  // namespace
}  // namespace vexa::text

int32_t vexa_util_ConvertUTF8toUTF16(const uint8_t** src, const uint8_t* src_end, uint16_t** dst,
                                     uint16_t* dst_end, int32_t /*flags*/) {
  if (!src || !dst) return VEXA_UNICODE_SOURCE_ILLEGAL;
  vexa::text::Cursor at{*src, src_end, *dst, dst_end};
  const int32_t result = vexa::text::convert(at);
  *src = at.src;
  *dst = at.dst;
  return result;
}
