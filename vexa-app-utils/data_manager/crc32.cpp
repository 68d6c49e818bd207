// SPDX-License-Identifier: MIT
// The checksum that guards stored values, and its table.
#include <vexadm/data_manager.h>

namespace {

constexpr uint32_t kPolynomial = 0x04C11DB7;
constexpr uint32_t kTopBit = 0x80000000;

constexpr uint32_t shift_out_one_bit(uint32_t crc, uint32_t input) {
  return ((crc ^ input) & kTopBit) != 0 ? (crc << 1) ^ kPolynomial : crc << 1;
}

constexpr uint32_t entry(uint32_t byte) {
  uint32_t crc = byte << 24;
  for (int bit = 0; bit < 8; ++bit) crc = shift_out_one_bit(crc, 0);
  return crc;
}

static_assert(entry(0) == 0 && entry(1) == kPolynomial && entry(255) == 0xB1F740B4);

// Whole bytes are counted in 13 bits: counts of bits from 65544 on wrap around. Stored values
// stay below that, as the backend passes at most 65535.
constexpr uint32_t whole_bytes(uint32_t bits) { return bits < 8 ? 0 : (((bits - 8) >> 3) & 0x1fff) + 1; }

}  // namespace

// A plain array cannot be filled by a function, and the exported object has to stay one: programs
// index it directly. Expanding the indices keeps it computed by the compiler and read-only.
#define VEXA_CRC_4(i) entry(i), entry((i) + 1), entry((i) + 2), entry((i) + 3)
#define VEXA_CRC_16(i) VEXA_CRC_4(i), VEXA_CRC_4((i) + 4), VEXA_CRC_4((i) + 8), VEXA_CRC_4((i) + 12)
#define VEXA_CRC_64(i) VEXA_CRC_16(i), VEXA_CRC_16((i) + 16), VEXA_CRC_16((i) + 32), VEXA_CRC_16((i) + 48)
constexpr uint32_t vexa_dm_crc32_table[256] = {VEXA_CRC_64(0), VEXA_CRC_64(64), VEXA_CRC_64(128),
                                               VEXA_CRC_64(192)};

int32_t vexa_dm_Crc32Calc(const uint8_t* data, uint32_t bits, uint32_t initial) {
  if (data == nullptr) return -1;

  uint32_t crc = initial;
  for (uint32_t left = whole_bytes(bits); left > 0; --left) {
    crc = vexa_dm_crc32_table[*data++ ^ (crc >> 24)] ^ (crc << 8);
  }

  const uint32_t odd_bits = bits % 8;
  if (odd_bits > 0) {
    uint32_t word = uint32_t{*data} << 24;
    for (uint32_t bit = 0; bit < odd_bits; ++bit, word <<= 1) crc = shift_out_one_bit(crc, word);
  }
  return static_cast<int32_t>(crc);
}
