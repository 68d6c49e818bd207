// SPDX-License-Identifier: MIT
// The Unicode conversions beside those of the C library, on random and damaged texts.
#include <gtest/gtest.h>
#include <iconv.h>

#include <cerrno>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "support/unicode_model.h"
#include "vexadm/unicode.h"

namespace {

using vexa_test::encoded16;
using vexa_test::encoded8;

class Peer {
 public:
  Peer(const char* to, const char* from) : descriptor_(iconv_open(to, from)) {}
  ~Peer() { iconv_close(descriptor_); }
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  struct Result {
    int error;         // 0, E2BIG, EILSEQ or EINVAL (incomplete)
    std::size_t used;  // bytes
    std::string bytes;
  };

  Result convert(std::string from, std::size_t room) {
    iconv(descriptor_, nullptr, nullptr, nullptr, nullptr);
    std::string to(room, '\0');
    char* src = from.data();
    char* dst = to.data();
    std::size_t left = from.size();
    std::size_t space = room;
    errno = 0;
    const bool good = iconv(descriptor_, &src, &left, &dst, &space) != static_cast<std::size_t>(-1);
    return {good ? 0 : errno, from.size() - left, to.substr(0, room - space)};
  }

 private:
  iconv_t descriptor_;
};

class Random {
 public:
  explicit Random(unsigned seed) : engine_(seed) {}
  unsigned below(unsigned limit) { return static_cast<unsigned>(engine_() % limit); }
  char byte() { return static_cast<char>(below(256)); }

 private:
  std::mt19937 engine_;
};

// Texts of runs: of ASCII, of two, three and four bytes, and of all mixed.
char32_t random_character(Random& random, unsigned kind) {
  constexpr char32_t kFirst[] = {0, 0x80, 0x800, 0x10000};
  constexpr char32_t kCount[] = {0x80, 0x780, 0xF800, 0x100000};
  for (;;) {
    const unsigned range = kind < 4 ? kind : random.below(4);
    const char32_t c = kFirst[range] + random.below(kCount[range]);
    if (c < 0xD800 || c > 0xDFFF) return c;
  }
}

std::u32string random_text(Random& random) {
  std::u32string text;
  for (unsigned runs = 1 + random.below(6); runs > 0; --runs) {
    const unsigned kind = random.below(5);
    for (unsigned count = random.below(40); count > 0; --count) text += random_character(random, kind);
  }
  return text;
}

// A few bytes changed, left out or put in.
void damage(std::string& bytes, Random& random) {
  for (unsigned count = random.below(4); count > 0 && !bytes.empty(); --count) {
    const std::size_t at = random.below(static_cast<unsigned>(bytes.size()));
    switch (random.below(3)) {
      case 0:
        bytes[at] = random.byte();
        break;
      case 1:
        bytes.erase(at, 1 + random.below(3));
        break;
      default:
        bytes.insert(at, 1, random.byte());
    }
  }
}

constexpr unsigned kSeeds = 4;
constexpr int kTexts = 4000;

class BesideTheCLibrary : public ::testing::TestWithParam<unsigned> {};

// Both say where a sequence begins that is not well-formed or not complete. Which of the two it is
// called differs: here the length counts before what the bytes are.
TEST_P(BesideTheCLibrary, Utf8ToUtf16IsTheSame) {
  Peer peer("UTF-16LE", "UTF-8");
  Random random(GetParam());
  for (int i = 0; i < kTexts; ++i) {
    SCOPED_TRACE("seed " + std::to_string(GetParam()) + ", text " + std::to_string(i));
    std::string bytes;
    for (const char32_t c : random_text(random)) bytes += encoded8(c);
    if (i % 2 == 1) damage(bytes, random);
    const std::size_t room =
        i % 3 == 0 ? random.below(static_cast<unsigned>(bytes.size() + 1)) : bytes.size() + 1;
    const Peer::Result expected = peer.convert(bytes, room * 2);

    std::vector<uint16_t> units(room);
    const auto* const begin = reinterpret_cast<const uint8_t*>(bytes.data());
    const uint8_t* src = begin;
    uint16_t* dst = units.data();
    const int32_t code = vexa_util_ConvertUTF8toUTF16(&src, begin + bytes.size(), &dst, dst + room, 0);
    const auto written = static_cast<std::size_t>(dst - units.data()) * 2;
    ASSERT_EQ(std::string(reinterpret_cast<const char*>(units.data()), written), expected.bytes);
    ASSERT_EQ(static_cast<std::size_t>(src - begin), expected.used);
    ASSERT_EQ(code == VEXA_UNICODE_OK, expected.error == 0);
    const bool unended = code == VEXA_UNICODE_SOURCE_EXHAUSTED;
    ASSERT_TRUE(unended || expected.error != EINVAL);
    ASSERT_TRUE(unended || code == VEXA_UNICODE_SOURCE_ILLEGAL || expected.error != EILSEQ);
  }
}

TEST_P(BesideTheCLibrary, Utf16ToUtf8IsTheSame) {
  Peer peer("UTF-8", "UTF-16LE");
  Random random(GetParam());
  for (int i = 0; i < kTexts; ++i) {
    SCOPED_TRACE("seed " + std::to_string(GetParam()) + ", text " + std::to_string(i));
    std::u16string units;
    for (const char32_t c : random_text(random)) units += encoded16(c);
    if (i % 2 == 1) {
      for (unsigned count = random.below(4); count > 0 && !units.empty(); --count) {
        units[random.below(static_cast<unsigned>(units.size()))] =
            static_cast<char16_t>(0xD800 + random.below(0x800));
      }
    }
    const std::size_t room =
        i % 3 == 0 ? random.below(static_cast<unsigned>(units.size() * 3 + 1)) : units.size() * 3 + 1;
    const std::string source(reinterpret_cast<const char*>(units.data()), units.size() * 2);
    const Peer::Result expected = peer.convert(source, room);

    const std::vector<uint16_t> from(units.begin(), units.end());
    std::string bytes(room, '\0');
    const uint16_t* src = from.data();
    auto* const begin = reinterpret_cast<uint8_t*>(bytes.data());
    uint8_t* dst = begin;
    const int32_t code = vexa_util_ConvertUTF16toUTF8(&src, src + from.size(), &dst, begin + room, 0);
    ASSERT_EQ(bytes.substr(0, static_cast<std::size_t>(dst - begin)), expected.bytes);
    ASSERT_EQ(static_cast<std::size_t>(src - from.data()) * 2, expected.used);
    const int expected_code = expected.error == 0        ? VEXA_UNICODE_OK
                              : expected.error == EINVAL ? VEXA_UNICODE_SOURCE_EXHAUSTED
                              : expected.error == EILSEQ ? VEXA_UNICODE_SOURCE_ILLEGAL
                                                         : VEXA_UNICODE_TARGET_EXHAUSTED;
    ASSERT_EQ(code, expected_code);
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, BesideTheCLibrary, ::testing::Range(1u, kSeeds + 1));

}  // namespace
