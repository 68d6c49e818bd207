// SPDX-License-Identifier: MIT
// GSM text beside plain loops: a septet at a time by its place among the bits, and a table of texts.
#include <benchmark/benchmark.h>
#include <vexadm/gsm_text.h>

#include <array>
#include <cstring>
#include <vector>

#include "call_count.h"

namespace bench {
namespace {

// A USSD message of the longest kind: 160 bytes, 182 septets.
constexpr std::size_t kOctets = 160;
constexpr std::size_t kSeptets = 182;

std::array<uint8_t, kOctets> message() {
  std::array<uint8_t, kOctets> octets{};
  for (std::size_t i = 0; i < kSeptets; ++i) {
    // Letters and blanks, and one character in twelve that takes two bytes.
    const std::size_t septet = i % 12 == 5 ? 0x05 : i % 7 == 0 ? 0x20 : 'a' + i % 26;
    const std::size_t bit = i * 7;
    octets[bit / 8] = static_cast<uint8_t>(octets[bit / 8] | septet << bit % 8);
    if (bit % 8 > 1) octets[bit / 8 + 1] = static_cast<uint8_t>(septet >> (8 - bit % 8));
  }
  return octets;
}

std::size_t plain_unpack(uint8_t* out, const uint8_t* octets, std::size_t count) {
  const std::size_t septets = count * 8 / 7;
  for (std::size_t i = 0; i < septets; ++i) {
    const std::size_t bit = i * 7;
    unsigned pair = octets[bit / 8];
    if (bit / 8 + 1 < count) pair |= unsigned{octets[bit / 8 + 1]} << 8;
    out[i] = static_cast<uint8_t>(pair >> bit % 8 & 0x7F);
  }
  return septets;
}

struct Character {
  uint8_t length;
  char bytes[2];
};

std::array<Character, 128> table() {
  std::array<Character, 128> characters{};
  for (std::size_t i = 0; i < characters.size(); ++i) {
    const auto septet = static_cast<uint8_t>(i);
    char text[4] = {};
    const uint16_t length = vexa_util_convert_gsm8bit_alpha_string_to_utf8(&septet, 1, text, sizeof text);
    characters[i] = {static_cast<uint8_t>(length), {text[0], text[1]}};
  }
  return characters;
}

std::size_t plain_convert(const uint8_t* septets, std::size_t count, char* to, std::size_t room) {
  static const std::array<Character, 128> characters = table();
  std::size_t written = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const Character& character = characters[septets[i] & 0x7F];
    if (written + character.length >= room) break;
    for (std::size_t k = 0; k < character.length; ++k) to[written++] = character.bytes[k];
  }
  to[written] = '\0';
  return written;
}

struct Buffers {
  std::array<uint8_t, kOctets> octets = message();
  std::array<uint8_t, 255> septets{};
  std::array<char, 512> text{};
};

void unpack(benchmark::State& state) {
  Buffers at;
  for ([[maybe_unused]] auto round : state) {
    benchmark::DoNotOptimize(vexa_util_ussd_unpack(at.septets.data(), 255, at.octets.data(), kOctets));
    benchmark::ClobberMemory();
  }
}
BENCHMARK(unpack)->Name("unpack 182 septets");

void least_unpack(benchmark::State& state) {
  Buffers at;
  for ([[maybe_unused]] auto round : state) {
    benchmark::DoNotOptimize(plain_unpack(at.septets.data(), at.octets.data(), kOctets));
    benchmark::ClobberMemory();
  }
}
BENCHMARK(least_unpack)->Name("floor: unpack 182 septets");

void convert(benchmark::State& state) {
  Buffers at;
  const auto count = static_cast<int32_t>(plain_unpack(at.septets.data(), at.octets.data(), kOctets));
  for ([[maybe_unused]] auto round : state) {
    benchmark::DoNotOptimize(vexa_util_convert_gsm8bit_alpha_string_to_utf8(at.septets.data(), count,
                                                                            at.text.data(), at.text.size()));
    benchmark::ClobberMemory();
  }
}
BENCHMARK(convert)->Name("182 septets to UTF-8");

void least_convert(benchmark::State& state) {
  Buffers at;
  const std::size_t count = plain_unpack(at.septets.data(), at.octets.data(), kOctets);
  for ([[maybe_unused]] auto round : state) {
    benchmark::DoNotOptimize(plain_convert(at.septets.data(), count, at.text.data(), at.text.size()));
    benchmark::ClobberMemory();
  }
}
BENCHMARK(least_convert)->Name("floor: 182 septets to UTF-8");

void ussd(benchmark::State& state) {
  Buffers at;
  const CountCalls calls(state);
  for ([[maybe_unused]] auto round : state) {
    benchmark::DoNotOptimize(vexa_util_convert_ussd_string_to_utf8(0x0F, at.octets.data(), at.octets.size(),
                                                                   at.text.data(), at.text.size()));
    benchmark::ClobberMemory();
  }
}
BENCHMARK(ussd)->Name("USSD message of 160 bytes");

void least_ussd(benchmark::State& state) {
  Buffers at;
  for ([[maybe_unused]] auto round : state) {
    std::vector<uint8_t> septets(2 * kOctets);
    const std::size_t count = plain_unpack(septets.data(), at.octets.data(), kOctets);
    benchmark::DoNotOptimize(plain_convert(septets.data(), count, at.text.data(), at.text.size()));
    benchmark::ClobberMemory();
  }
}
BENCHMARK(least_ussd)->Name("floor: USSD message of 160 bytes");

}  // namespace
}  // namespace bench
