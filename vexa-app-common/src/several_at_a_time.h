// SPDX-License-Identifier: MIT
// Several characters in one step: words and vectors of bytes and of 16-bit units, on any processor.
#ifndef VEXADM_TEXT_SEVERAL_AT_A_TIME_H
#define VEXADM_TEXT_SEVERAL_AT_A_TIME_H

#include <bit>
#include <cstdint>
#include <cstring>

namespace vexa::text {

// The steps find the first byte of a text in the lowest bits of a word.
inline constexpr bool kSeveralAtATime = std::endian::native == std::endian::little;

// Without vector registers the steps over vectors go member by member: several times the code of the
// rules, and only faster for UTF-8 of four bytes. Runs of ASCII and of two bytes are steps over words.
#if defined(__SSE2__) || defined(__ARM_NEON)
inline constexpr bool kHasVectors = kSeveralAtATime;
#else
inline constexpr bool kHasVectors = false;
#endif

// Of GCC and clang; in vector registers, or member by member where a processor has none.
using Bytes8 = uint8_t __attribute__((vector_size(8)));
using Bytes16 = uint8_t __attribute__((vector_size(16)));
using Units16 = uint16_t __attribute__((vector_size(32)));
using Units4 = uint16_t __attribute__((vector_size(8)));
using Units8 = uint16_t __attribute__((vector_size(16)));
using Words4 = uint32_t __attribute__((vector_size(16)));

// Unaligned, and of any type.
template <typename T>
inline T load(const void* from) {
  T value;
  std::memcpy(&value, from, sizeof value);
  return value;
}

template <typename T>
inline void store(void* to, const T& value) {
  std::memcpy(to, &value, sizeof value);
}

// For the result of comparing vectors.
template <typename Vector>
inline bool all_true(const Vector& compared) {
  uint64_t all = UINT64_MAX;
  for (unsigned i = 0; i < sizeof compared / sizeof all; ++i) {
    all &= load<uint64_t>(reinterpret_cast<const char*>(&compared) + i * sizeof all);
  }
  return all == UINT64_MAX;
}

// The bits of all words of a vector.
template <typename Vector>
inline uint64_t any_bits(const Vector& vector) {
  uint64_t any = 0;
  for (unsigned i = 0; i < sizeof vector / sizeof any; ++i) {
    any |= load<uint64_t>(reinterpret_cast<const char*>(&vector) + i * sizeof any);
  }
  return any;
}

inline void widen_eight(const uint8_t* from, uint16_t* to) {
  store(to, __builtin_convertvector(load<Bytes8>(from), Units8));
}

inline void narrow_eight(const uint16_t* from, uint8_t* to) {
  store(to, __builtin_convertvector(load<Units8>(from), Bytes8));
}

inline void widen_sixteen(const uint8_t* from, uint16_t* to) {
#if defined(__SSE2__) || defined(__ARM_NEON)
  constexpr Bytes16 kNone{};
  const auto bytes = load<Bytes16>(from);
  store(to, __builtin_shufflevector(bytes, kNone, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23));
  store(to + 8,
        __builtin_shufflevector(bytes, kNone, 8, 24, 9, 25, 10, 26, 11, 27, 12, 28, 13, 29, 14, 30, 15, 31));
#else  // A shuffle would go byte by byte there. Through memory: 32 bytes are no argument or result.
  Bytes16 bytes;
  std::memcpy(&bytes, from, sizeof bytes);
  const Units16 units = __builtin_convertvector(bytes, Units16);
  std::memcpy(to, &units, sizeof units);
#endif
}

inline void narrow_sixteen(const Units8& first, const Units8& second, uint8_t* to) {
  store(to, __builtin_shufflevector(reinterpret_cast<const Bytes16&>(first),
                                    reinterpret_cast<const Bytes16&>(second), 0, 2, 4, 6, 8, 10, 12, 14, 16,
                                    18, 20, 22, 24, 26, 28, 30));
}

// The same 16-bit unit, four times.
constexpr uint64_t four_times(uint64_t unit) { return unit * 0x0001000100010001U; }

}  // namespace vexa::text

#endif
