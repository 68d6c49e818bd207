// SPDX-License-Identifier: MIT
// UTF-16 to UTF-8. Runs of one kind of character go several at a time; whatever is unusual, and the
// ends of text and room, go by the rules, one character at a time.
#include <bit>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "several_at_a_time.h"
#include "vexadm/unicode.h"

namespace vexa::text {
namespace {

struct Cursor {
  const uint16_t* src;
  const uint16_t* src_end;
  uint8_t* dst;
  const uint8_t* dst_end;

  std::ptrdiff_t left() const { return src_end - src; }
  std::ptrdiff_t room() const { return dst_end - dst; }
  void advance(std::ptrdiff_t units, std::ptrdiff_t bytes) {
    src += units;
    dst += bytes;
  }
};

// ---- By the rules ----

constexpr bool is_high(uint32_t unit) { return (unit & 0xFC00) == 0xD800; }
constexpr bool is_low(uint32_t unit) { return (unit & 0xFC00) == 0xDC00; }

constexpr uint8_t trail(uint32_t value, int shift) {
  return static_cast<uint8_t>(0x80 | ((value >> shift) & 0x3F));
}

inline void encode(uint32_t value, std::ptrdiff_t length, uint8_t* to) {
  switch (length) {
    case 1:
      to[0] = static_cast<uint8_t>(value);
      return;
    case 2:
      to[0] = static_cast<uint8_t>(0xC0 | value >> 6);
      to[1] = trail(value, 0);
      return;
    case 3:
      to[0] = static_cast<uint8_t>(0xE0 | value >> 12);
      to[1] = trail(value, 6);
      to[2] = trail(value, 0);
      return;
    default:
      to[0] = static_cast<uint8_t>(0xF0 | value >> 18);
      to[1] = trail(value, 12);
      to[2] = trail(value, 6);
      to[3] = trail(value, 0);
  }
}

inline int32_t convert_one(Cursor& at, bool strict) {
  uint32_t value = at.src[0];
  std::ptrdiff_t units = 1;
  if (is_high(value)) {
    if (at.left() < 2) return VEXA_UNICODE_SOURCE_EXHAUSTED;
    if (is_low(at.src[1])) {
      value = 0x10000 + ((value & 0x3FF) << 10) + (at.src[1] & 0x3FFU);
      units = 2;
    } else if (strict) {
      return VEXA_UNICODE_SOURCE_ILLEGAL;
    }
  } else if (strict && is_low(value)) {
    return VEXA_UNICODE_SOURCE_ILLEGAL;
  }
  const std::ptrdiff_t length = value < 0x80 ? 1 : value < 0x800 ? 2 : value < 0x10000 ? 3 : 4;
  if (length > at.room()) return VEXA_UNICODE_TARGET_EXHAUSTED;
  encode(value, length, at.dst);
  at.advance(units, length);
  return VEXA_UNICODE_OK;
}

// ---- Several at a time ----
// Steps over units that are no surrogates or whole pairs. They may write kReach bytes, more than
// they take.

constexpr std::ptrdiff_t kReachUnits = 8;
constexpr std::ptrdiff_t kReach = 16;
constexpr std::size_t kBlock = 4;  // vectors
constexpr std::size_t kLongBlock = 16;
constexpr uint64_t kAboveAscii = four_times(0xFF80);
constexpr uint64_t kAboveTwoBytes = four_times(0xF800);

// A block that is ASCII. Of each vector its number; all are loaded before the first is stored, since a
// compiler must take it that a store changes what was not loaded yet.
template <std::size_t... kOf, std::size_t... kPair>
inline bool narrow_block(const uint16_t* from, uint8_t* to, std::index_sequence<kOf...>,
                         std::index_sequence<kPair...>) {
  const Units8 units[] = {load<Units8>(from + 8 * kOf)...};
  if ((any_bits((units[kOf] | ...)) & kAboveAscii) != 0) return false;
  (narrow_sixteen(units[2 * kPair], units[2 * kPair + 1], to + 16 * kPair), ...);
  return true;
}

template <std::size_t kVectors>
inline bool take_ascii_block(Cursor& at) {
  constexpr std::ptrdiff_t kUnits = kVectors * 8;
  if (at.left() < kUnits || at.room() < kUnits) return false;
  if (!narrow_block(at.src, at.dst, std::make_index_sequence<kVectors>(),
                    std::make_index_sequence<kVectors / 2>())) {
    return false;
  }
  at.advance(kUnits, kUnits);
  return true;
}

// Eight that are ASCII, and the blocks behind them.
inline void take_ascii(Cursor& at) {
  narrow_eight(at.src, at.dst);
  at.advance(8, 8);
  if constexpr (!kHasVectors) return;
  while (take_ascii_block<kBlock>(at)) {
    while (take_ascii_block<kLongBlock>(at)) {
    }
  }
}

// Four forms of one or two bytes, each in two bytes of a word, behind each other; lengths likewise.
inline void put_four(Cursor& at, uint64_t forms, uint64_t lengths) {
  const uint64_t ends = lengths * four_times(1);
  if (ends >> 48 == 8) {
    store(at.dst, forms);
  } else {
    store(at.dst, static_cast<uint16_t>(forms));
    store(at.dst + (ends & 0xFFFF), static_cast<uint16_t>(forms >> 16));
    store(at.dst + ((ends >> 16) & 0xFFFF), static_cast<uint16_t>(forms >> 32));
    store(at.dst + ((ends >> 32) & 0xFFFF), static_cast<uint16_t>(forms >> 48));
  }
  at.advance(4, static_cast<std::ptrdiff_t>(ends >> 48));
}

// Eight units of one or two bytes each, without a branch for each: words of a script and the spaces
// between them alternate too quickly to be foreseen.
inline void take_eight_short(Cursor& at) {
  const auto units = load<Units8>(at.src);
  const auto is_two = (units & 0x0780) != 0;
  const Units8 two_mask = reinterpret_cast<const Units8&>(is_two);
  const Units8 two = (units >> 6) | ((units & 0x3F) << 8) | 0x80C0;
  const Units8 forms = (units & ~two_mask) | (two & two_mask);
  const Units8 lengths = 1 - two_mask;
  uint64_t form_words[2];
  uint64_t length_words[2];
  store(form_words, forms);
  store(length_words, lengths);
  put_four(at, form_words[0], length_words[0]);
  put_four(at, form_words[1], length_words[1]);
}

inline Words4 three_bytes(const Words4& value) {
  return (value >> 12) | ((value << 2) & 0x3F00) | ((value << 16) & 0x3F0000) | 0x8080E0;
}

inline void take_four_of_three_bytes(Cursor& at, const Words4& value) {
  const Words4 form = three_bytes(value);
  for (int i = 0; i < 4; ++i) store(at.dst + std::ptrdiff_t{3} * i, uint32_t{form[i]});
  at.advance(4, 12);
}

// Four units of up to three bytes each.
inline void take_four_of_any_length(Cursor& at, const Words4& value) {
  const Words4 two = (value >> 6) | ((value & 0x3F) << 8) | 0x80C0;
  const Words4 is_long = (value + 0xFFFFFF80) >> 31 ^ 1;     // 80 and above
  const Words4 is_longest = (value + 0xFFFFF800) >> 31 ^ 1;  // 800 and above
  const Words4 form =
      (value & (is_long - 1)) | (two & (is_longest - is_long)) | (three_bytes(value) & -is_longest);
  const Words4 length = is_long + is_longest + 1;
  for (int i = 0; i < 4; ++i) {
    store(at.dst, uint32_t{form[i]});
    at.advance(1, static_cast<std::ptrdiff_t>(length[i]));
  }
}

// Up to four surrogate pairs; false where the first two units are none.
inline bool take_pairs(Cursor& at) {
  const auto pair = load<Words4>(at.src);
  const auto whole = (pair & 0xFC00FC00) == 0xDC00D800;
  if (whole[0] == 0) return false;
  const Words4 value = ((pair & 0x3FF) << 10) + ((pair >> 16) & 0x3FF) + 0x10000;
  const Words4 form = (value >> 18) | ((value >> 4) & 0x3F00) | ((value << 10) & 0x3F0000) |
                      ((value << 24) & 0x3F000000) | 0x808080F0;
  if (all_true(whole)) {
    store(at.dst, form);
    at.advance(8, 16);
  } else {
    store(at.dst, uint32_t{form[0]});
    at.advance(2, 4);
  }
  return true;
}

// What is ASCII before the first unit that is not; none may be.
inline std::ptrdiff_t take_ascii_before(Cursor& at, uint64_t first, uint64_t second) {
  const int count = first != 0 ? std::countr_zero(first) / 16 : 4 + std::countr_zero(second) / 16;
  if (count > 0) narrow_eight(at.src, at.dst);
  at.advance(count, count);
  return count;
}

inline void convert_runs(Cursor& at) {
  while (at.left() >= kReachUnits && at.room() >= 8) {
    const auto first = load<uint64_t>(at.src);
    const auto second = load<uint64_t>(at.src + 4);
    if (((first | second) & kAboveAscii) == 0) {
      take_ascii(at);
      continue;
    }
    if constexpr (!kHasVectors) return;
    if (at.room() < kReach) return;
    if (((first | second) & kAboveTwoBytes) == 0) {
      take_eight_short(at);
      continue;
    }
    if (take_ascii_before(at, first & kAboveAscii, second & kAboveAscii) > 0) continue;
    const auto four = load<Units4>(at.src);
    const Units4 top = four & 0xF800;
    if (all_true((top != 0) & (top != 0xD800))) {
      take_four_of_three_bytes(at, __builtin_convertvector(four, Words4));
    } else if (all_true(top != 0xD800)) {
      take_four_of_any_length(at, __builtin_convertvector(four, Words4));
    } else if (!take_pairs(at)) {
      return;
    }
  }
}

int32_t convert(Cursor& at, bool strict) {
  while (at.src < at.src_end) {
    if constexpr (kSeveralAtATime) {
      convert_runs(at);
      if (at.src == at.src_end) break;
    }
    // Without vectors the runs are of ASCII only, and a word's other letters need not look for them.
    do {
      const int32_t result = convert_one(at, strict);
      if (result != VEXA_UNICODE_OK) return result;
    } while (!kHasVectors && at.src < at.src_end && *at.src >= 0x80);
  }
  return VEXA_UNICODE_OK;
}

}  // namespace
}  // namespace vexa::text

int32_t vexa_util_ConvertUTF16toUTF8(const uint16_t** src, const uint16_t* src_end, uint8_t** dst,
                                     uint8_t* dst_end, int32_t flags) {
  if (!src || !dst) return VEXA_UNICODE_SOURCE_ILLEGAL;
  vexa::text::Cursor at{*src, src_end, *dst, dst_end};
  const int32_t result = vexa::text::convert(at, flags == VEXA_UNICODE_STRICT);
  *src = at.src;
  *dst = at.dst;
  return result;
}
