// SPDX-License-Identifier: MIT
#include "vexadm/address.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "support/log_capture.h"
#include "support/log_text.h"

namespace {

bool g_no_text = false;

}  // namespace

// In place of the C library's function, which never fails on what the library hands it.
extern "C" __attribute__((visibility("default"))) const char* inet_ntop(int family, const void* address,
                                                                        char* text, socklen_t size) noexcept {
  if (g_no_text) {
    errno = EAFNOSUPPORT;
    return nullptr;
  }
  static const auto next = reinterpret_cast<decltype(&inet_ntop)>(dlsym(RTLD_NEXT, "inet_ntop"));
  return next(family, address, text, size);
}

namespace {

using namespace std::string_literals;
using vexa_test::log_is;
using vexa_test::LogCapture;

using Lines = std::vector<std::string>;
const Lines kNothing;

// While it lives, inet_ntop fails.
class NoText {
 public:
  NoText() { g_no_text = true; }
  ~NoText() { g_no_text = false; }
  NoText(const NoText&) = delete;
  NoText& operator=(const NoText&) = delete;
};

// A buffer whose bytes beyond the text show whether they were touched.
template <std::size_t N>
std::array<char, N> filled() {
  std::array<char, N> buffer;
  buffer.fill('#');
  return buffer;
}

template <std::size_t N>
std::string bytes(const std::array<char, N>& buffer) {
  return std::string(buffer.data(), N);
}

std::string zeros(std::size_t count) { return std::string(count, '\0'); }

// ---- IPv4 to text -----------------------------------------------------------

TEST(ConvertIPv4Array, IsWrittenInArrayOrderAndTheRestIsCleared) {
  LogCapture log;
  auto out = filled<24>();
  const std::array<std::uint8_t, 4> ip = {192, 168, 1, 20};
  EXPECT_EQ(ConvertIPv4ArrayToStr(ip.data(), out.data(), 20), 0);
  EXPECT_EQ(bytes(out), "192.168.1.20"s + zeros(8) + "####");
  EXPECT_TRUE(log_is(log, kNothing));
}

TEST(ConvertIPv4Array, LongestAddressFillsSixteenBytes) {
  auto out = filled<17>();
  const std::array<std::uint8_t, 4> ip = {255, 255, 255, 255};
  EXPECT_EQ(ConvertIPv4ArrayToStr(ip.data(), out.data(), 16), 0);
  EXPECT_EQ(bytes(out), "255.255.255.255\0#"s);
}

TEST(ConvertIPv4Array, FifteenBytesAreRefusedAlsoForAShortAddress) {
  LogCapture log;
  auto out = filled<16>();
  const std::array<std::uint8_t, 4> ip = {1, 2, 3, 4};
  EXPECT_EQ(ConvertIPv4ArrayToStr(ip.data(), out.data(), 15), -1);
  EXPECT_EQ(bytes(out), std::string(16, '#'));
  EXPECT_TRUE(log_is(log, {"3 ConvertIPv4ArrayToStr|ipStr size is 15; must be at least 16\n"}));
}

TEST(ConvertIPv4Array, NoAddressIsRefusedAfterTheSize) {
  LogCapture log;
  auto out = filled<16>();
  EXPECT_EQ(ConvertIPv4ArrayToStr(nullptr, out.data(), 16), -1);
  EXPECT_EQ(ConvertIPv4ArrayToStr(nullptr, out.data(), 0), -1);
  EXPECT_EQ(bytes(out), std::string(16, '#'));
  EXPECT_TRUE(log_is(log, {"3 ConvertIPv4ArrayToStr|input ipNum is NULL now !!!\n",
                           "3 ConvertIPv4ArrayToStr|ipStr size is 0; must be at least 16\n"}));
}

TEST(ConvertIPv4Array, NoBufferHasNoRoom) {
  LogCapture log;
  const std::array<std::uint8_t, 4> ip = {1, 2, 3, 4};
  EXPECT_EQ(ConvertIPv4ArrayToStr(ip.data(), nullptr, 16), -1);
  EXPECT_TRUE(log_is(log, {"3 ConvertIPv4ArrayToStr|ipStr size is 0; must be at least 16\n"}));
}

TEST(ConvertIPv4Num, FirstOctetIsInTheHighByte) {
  LogCapture log;
  auto out = filled<16>();
  EXPECT_EQ(ConvertIPv4NumToStr(0xC0A80101, out.data(), 16), 0);
  EXPECT_STREQ(out.data(), "192.168.1.1");
  EXPECT_TRUE(log_is(log, kNothing));
}

TEST(ConvertIPv4Num, BytesBehindTheTextAreLeftAlone) {
  auto out = filled<20>();
  EXPECT_EQ(ConvertIPv4NumToStr(0x01020304, out.data(), 20), 0);
  EXPECT_EQ(bytes(out), "1.2.3.4\0############"s);
}

TEST(ConvertIPv4Num, EndsOfTheRange) {
  auto out = filled<16>();
  EXPECT_EQ(ConvertIPv4NumToStr(0, out.data(), 16), 0);
  EXPECT_STREQ(out.data(), "0.0.0.0");
  EXPECT_EQ(ConvertIPv4NumToStr(0xFFFFFFFF, out.data(), 16), 0);
  EXPECT_STREQ(out.data(), "255.255.255.255");
}

TEST(ConvertIPv4Num, FifteenBytesAndNoBufferAreRefused) {
  LogCapture log;
  auto out = filled<16>();
  EXPECT_EQ(ConvertIPv4NumToStr(0xC0A80101, out.data(), 15), -1);
  EXPECT_EQ(ConvertIPv4NumToStr(0xC0A80101, nullptr, 16), -1);
  EXPECT_EQ(bytes(out), std::string(16, '#'));
  EXPECT_TRUE(log_is(log, {"3 ConvertIPv4NumToStr|ipStr size is 15; must be at least 16\n",
                           "3 ConvertIPv4NumToStr|ipStr size is 0; must be at least 16\n"}));
}

TEST(ConvertIPv4Num, AFailedConversionShowsTheNumberInHexadecimal) {
  LogCapture log;
  auto out = filled<16>();
  const NoText no_text;
  EXPECT_EQ(ConvertIPv4NumToStr(0xC0A8010A, out.data(), 16), -1);
  EXPECT_TRUE(log_is(log, {"3 ConvertIPv4NumToStr|Error converting C0A8010A to IP string\n"}));
}

// ---- IPv6 to text -----------------------------------------------------------

using Ipv6 = std::array<std::uint8_t, 16>;

Ipv6 parsed(const char* text) {
  Ipv6 ip = {};
  EXPECT_EQ(inet_pton(AF_INET6, text, ip.data()), 1) << text;
  return ip;
}

TEST(ConvertIPv6Num, IsShortenedAndTheRestIsCleared) {
  LogCapture log;
  const Ipv6 ip = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
  auto out = filled<52>();
  EXPECT_EQ(ConvertIPv6NumToStr(ip.data(), out.data(), 50), 0);
  EXPECT_EQ(bytes(out), "2001:db8::1"s + zeros(39) + "##");
  EXPECT_TRUE(log_is(log, kNothing));
}

TEST(ConvertIPv6Num, EveryFormComesBack) {
  for (const char* text : {"::", "::1", "1::", "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", "::ffff:1.2.3.4",
                           "fe80::a:b:c:d", "1:2:3:4:5:6:7:8"}) {
    auto out = filled<46>();
    EXPECT_EQ(ConvertIPv6NumToStr(parsed(text).data(), out.data(), 46), 0);
    EXPECT_STREQ(out.data(), text);
  }
}

TEST(ConvertIPv6Num, FortyFiveBytesAreRefused) {
  LogCapture log;
  auto out = filled<46>();
  EXPECT_EQ(ConvertIPv6NumToStr(parsed("::").data(), out.data(), 45), -1);
  EXPECT_EQ(ConvertIPv6NumToStr(parsed("::").data(), nullptr, 46), -1);
  EXPECT_EQ(bytes(out), std::string(46, '#'));
  EXPECT_TRUE(log_is(log, {"3 ConvertIPv6NumToStr|ipStr size is 45; must be at least 46\n",
                           "3 ConvertIPv6NumToStr|ipStr size is 0; must be at least 46\n"}));
}

TEST(ConvertIPv6Num, NoAddressIsRefused) {
  LogCapture log;
  auto out = filled<46>();
  EXPECT_EQ(ConvertIPv6NumToStr(nullptr, out.data(), 46), -1);
  EXPECT_EQ(bytes(out), std::string(46, '#'));
  EXPECT_TRUE(log_is(log, {"3 ConvertIPv6NumToStr|input ipNum is NULL now !!!\n"}));
}

TEST(ConvertIPv6Num, AFailedConversionLeavesTheBytesAsDigits) {
  LogCapture log;
  auto out = filled<46>();
  const NoText no_text;
  EXPECT_EQ(ConvertIPv6NumToStr(parsed("2001:db8::abcd").data(), out.data(), 46), -1);
  EXPECT_EQ(bytes(out), "20010DB800000000000000000000ABCD"s + zeros(14));
  EXPECT_TRUE(log_is(
      log, {"3 ConvertIPv6NumToStr|Error converting 20010DB800000000000000000000ABCD to IP string\n"}));
}

// ---- Hexadecimal ------------------------------------------------------------

TEST(HexBinaryToString, TwoBytesFitIntoFive) {
  const std::array<std::uint8_t, 2> bin = {0x0A, 0xFF};
  auto out = filled<6>();
  EXPECT_EQ(hex_BinaryToString(bin.data(), 2, out.data(), 5), 4);
  EXPECT_EQ(bytes(out), "0AFF\0#"s);
}

TEST(HexBinaryToString, TwoBytesDoNotFitIntoFourAndNothingIsSaid) {
  LogCapture log;
  const std::array<std::uint8_t, 2> bin = {0x0A, 0xFF};
  auto out = filled<6>();
  EXPECT_EQ(hex_BinaryToString(bin.data(), 2, out.data(), 4), -1);
  EXPECT_EQ(bytes(out), "######");
  EXPECT_TRUE(log_is(log, kNothing));
}

TEST(HexBinaryToString, NoBytesGiveAnEmptyText) {
  auto out = filled<3>();
  EXPECT_EQ(hex_BinaryToString(nullptr, 0, out.data(), 1), 0);
  EXPECT_EQ(bytes(out), "\0##"s);
  EXPECT_EQ(hex_BinaryToString(nullptr, 0, out.data(), 0), -1);
}

TEST(HexBinaryToString, SizesWhoseSumDoesNotFitIntoAWordAreRefused) {
  const std::uint8_t bin = 0;
  auto out = filled<3>();
  EXPECT_EQ(hex_BinaryToString(&bin, 0x80000000U, out.data(), 3), -1);
  EXPECT_EQ(hex_BinaryToString(&bin, 0xFFFFFFFFU, out.data(), 3), -1);
  EXPECT_EQ(bytes(out), "###");
}

TEST(HexBinaryToString, ALengthThatTheResultCannotHoldIsRefused) {
  const std::uint8_t bin = 0;
  auto out = filled<3>();
  EXPECT_EQ(hex_BinaryToString(&bin, 0x40000000U, out.data(), 0xFFFFFFFFU), -1);
  EXPECT_EQ(hex_BinaryToString(&bin, 0x7FFFFFFFU, out.data(), 0xFFFFFFFFU), -1);
  EXPECT_EQ(bytes(out), "###");
}

TEST(HexBinaryToString, NullIsRefused) {
  const std::uint8_t bin = 0;
  auto out = filled<3>();
  EXPECT_EQ(hex_BinaryToString(nullptr, 1, out.data(), 3), -1);
  EXPECT_EQ(hex_BinaryToString(&bin, 1, nullptr, 3), -1);
}

TEST(HexBinaryToString, EveryByteIsTwoUpperCaseDigits) {
  for (unsigned value = 0; value < 256; ++value) {
    const auto bin = static_cast<std::uint8_t>(value);
    std::array<char, 3> out = {};
    std::array<char, 3> expected = {};
    std::snprintf(expected.data(), expected.size(), "%02X", value);
    EXPECT_EQ(hex_BinaryToString(&bin, 1, out.data(), 3), 2);
    EXPECT_STREQ(out.data(), expected.data());
  }
}

TEST(DecToHexDigit, SixteenNumbersHaveOne) {
  std::string digits;
  for (std::uint32_t nibble = 0; nibble < 16; ++nibble) digits += DecToHex(nibble);
  EXPECT_EQ(digits, "0123456789ABCDEF");
}

TEST(DecToHexDigit, LargerNumbersGiveATerminator) {
  for (const std::uint32_t nibble : {16U, 17U, 255U, 0x80000000U, 0xFFFFFFFFU})
    EXPECT_EQ(DecToHex(nibble), '\0');
}

struct Number {
  const char* text;
  std::uint32_t value;
};

class Htoi : public ::testing::TestWithParam<Number> {};

TEST_P(Htoi, ReadsTheLeadingNumber) { EXPECT_EQ(htoi(GetParam().text), GetParam().value); }

INSTANTIATE_TEST_SUITE_P(
    Texts, Htoi,
    ::testing::Values(Number{"0x1F", 31}, Number{"0X1f", 31}, Number{"1f", 31}, Number{"1g", 32},
                      Number{"", 0}, Number{nullptr, 0}, Number{"0x", 0}, Number{"0", 0}, Number{"z", 35},
                      Number{"Z", 35}, Number{"zz", 35 * 16 + 35}, Number{"aF", 0xAF}, Number{"12 34", 0x12},
                      Number{"12-34", 0x12}, Number{" 12", 0}, Number{"-1", 0}, Number{"+1", 0},
                      // A second prefix, or one without its zero, is letters.
                      Number{"0x0x1", 33 * 16 + 1}, Number{"x1", 33 * 16 + 1}, Number{"00x1", 33 * 16 + 1},
                      Number{"FFFFFFFF", 0xFFFFFFFF}, Number{"0xFFFFFFFF", 0xFFFFFFFF},
                      // Beyond 32 bits the upper digits are lost.
                      Number{"123456789", 0x23456789}, Number{"100000000", 0},
                      Number{"fffffffff", 0xFFFFFFFF}, Number{"fffffffz", 0xFFFFFFF0U + 35}));

TEST(HtoiOf, EverySingleCharacterCountsByItsPlaceInTheAlphabet) {
  for (int c = 1; c < 256; ++c) {
    const std::array<char, 2> text = {static_cast<char>(c), '\0'};
    unsigned expected = 0;
    if (c >= '0' && c <= '9') expected = static_cast<unsigned>(c - '0');
    if (c >= 'a' && c <= 'z') expected = static_cast<unsigned>(c - 'a') + 10;
    if (c >= 'A' && c <= 'Z') expected = static_cast<unsigned>(c - 'A') + 10;
    EXPECT_EQ(htoi(text.data()), expected) << c;
  }
}

TEST(HtoiOf, EveryOtherCharacterEndsTheNumber) {
  for (int c = 0; c < 256; ++c) {
    if ((c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z')) continue;
    const std::array<char, 4> text = {'2', static_cast<char>(c), '2', '\0'};
    EXPECT_EQ(htoi(text.data()), 2u) << c;
  }
}

// ---- IPv4 and IPv6 checks ---------------------------------------------------

struct Checked {
  const char* text;
  std::uint32_t good;
};

class Ipv4Text : public ::testing::TestWithParam<Checked> {};

TEST_P(Ipv4Text, IsJudgedBySilentChecks) {
  LogCapture log;
  EXPECT_EQ(vexa_check_v4_ip(GetParam().text), GetParam().good);
  EXPECT_EQ(is_valid_ip(GetParam().text), GetParam().good);
  EXPECT_TRUE(log_is(log, kNothing));
}

INSTANTIATE_TEST_SUITE_P(Texts, Ipv4Text,
                         ::testing::Values(Checked{"192.168.1.1", 1}, Checked{"0.0.0.0", 1},
                                           Checked{"255.255.255.255", 1}, Checked{nullptr, 0}, Checked{"", 0},
                                           Checked{"1.2.3", 0}, Checked{"1.2.3.4.5", 0}, Checked{"1.2.3.", 0},
                                           Checked{"1.2.3.4.", 0}, Checked{".1.2.3.4", 0},
                                           Checked{" 1.2.3.4", 0}, Checked{"1.2.3.4 ", 0},
                                           Checked{"1.2.3.4\n", 0}, Checked{"1.2.3.256", 0},
                                           Checked{"1.2.3.-4", 0}, Checked{"1.2.3.+4", 0},
                                           Checked{"1.2.3.0x4", 0}, Checked{"01.2.3.4", 0},
                                           Checked{"1,2,3,4", 0}, Checked{"1.2.3.4/24", 0},
                                           Checked{"16909060", 0}, Checked{"::1", 0}, Checked{"a.b.c.d", 0}));

class Ipv6Text : public ::testing::TestWithParam<Checked> {};

TEST_P(Ipv6Text, IsJudgedByASilentCheck) {
  LogCapture log;
  EXPECT_EQ(is_valid_ipv6(GetParam().text), GetParam().good);
  EXPECT_TRUE(log_is(log, kNothing));
}

INSTANTIATE_TEST_SUITE_P(Texts, Ipv6Text,
                         ::testing::Values(Checked{"::1", 1}, Checked{"::", 1}, Checked{"2001:db8::1", 1},
                                           Checked{"1:2:3:4:5:6:7:8", 1}, Checked{"FE80::1", 1},
                                           Checked{"::ffff:1.2.3.4", 1}, Checked{nullptr, 0}, Checked{"", 0},
                                           Checked{"1.2.3.4", 0}, Checked{"::1::", 0},
                                           Checked{"1:2:3:4:5:6:7", 0}, Checked{"1:2:3:4:5:6:7:8:9", 0},
                                           Checked{"12345::", 0}, Checked{"::g", 0}, Checked{" ::1", 0},
                                           Checked{"::1 ", 0}, Checked{"::1\n", 0}, Checked{"fe80::1%lo", 0},
                                           Checked{"2001:db8::/32", 0}, Checked{"[::1]", 0}));

// ---- Masks ------------------------------------------------------------------

std::string dotted(std::uint32_t number) {
  return std::to_string(number >> 24) + "." + std::to_string(number >> 16 & 255) + "." +
         std::to_string(number >> 8 & 255) + "." + std::to_string(number & 255);
}

class MaskText : public ::testing::TestWithParam<Checked> {};

TEST_P(MaskText, IsJudgedByASilentCheck) {
  LogCapture log;
  EXPECT_EQ(Is_valid_SubnetMask(GetParam().text), GetParam().good);
  EXPECT_TRUE(log_is(log, kNothing));
}

INSTANTIATE_TEST_SUITE_P(Texts, MaskText,
                         ::testing::Values(Checked{"255.255.255.0", 1}, Checked{"255.0.255.0", 0},
                                           Checked{"255.255.255.256", 0}, Checked{"0.0.0.0", 1},
                                           Checked{"255.255.255.255", 1}, Checked{"128.0.0.0", 1},
                                           Checked{"0.0.0.1", 0}, Checked{"0.255.255.255", 0},
                                           Checked{"127.255.255.255", 0}, Checked{"255.255.255.253", 0},
                                           Checked{nullptr, 0}, Checked{"", 0}, Checked{"255.255.255", 0},
                                           Checked{"255.255.255.0 ", 0}, Checked{"24", 0}));

TEST(Mask, AllThirtyThreeAreTaken) {
  for (unsigned length = 0; length <= 32; ++length) {
    const std::uint32_t mask = length == 0 ? 0 : 0xFFFFFFFFU << (32 - length);
    EXPECT_EQ(Is_valid_SubnetMask(dotted(mask).c_str()), 1u) << dotted(mask);
  }
}

TEST(Mask, OneWrongBitIsFound) {
  for (unsigned length = 0; length <= 32; ++length) {
    const std::uint32_t mask = length == 0 ? 0 : 0xFFFFFFFFU << (32 - length);
    for (unsigned bit = 0; bit < 32; ++bit) {
      // The bits next to the edge make the neighbouring mask of it.
      if (bit + 1 == 32 - length || bit == 32 - length) continue;
      const std::uint32_t broken = mask ^ (1U << bit);
      EXPECT_EQ(Is_valid_SubnetMask(dotted(broken).c_str()), 0u) << dotted(broken);
    }
  }
}

TEST(Mask, RandomNumbersAreJudgedAsByCountingBits) {
  std::minstd_rand random(7);
  for (int round = 0; round < 20000; ++round) {
    const auto number = static_cast<std::uint32_t>(random()) << (random() % 32);
    bool ended = false;
    bool good = true;
    for (unsigned bit = 32; bit-- > 0;) {
      const bool set = (number >> bit & 1) != 0;
      good = good && !(set && ended);
      ended = ended || !set;
    }
    EXPECT_EQ(Is_valid_SubnetMask(dotted(number).c_str()), good ? 1u : 0u) << dotted(number);
  }
}

// ---- Regular expressions and MAC addresses ----------------------------------

TEST(Ereg, MatchIsZeroAndEverythingElseOne) {
  LogCapture log;
  EXPECT_EQ(ereg("b+", "abbc"), 0u);
  EXPECT_EQ(ereg("^b+", "abbc"), 1u);
  EXPECT_EQ(ereg("(a|x){2}", "xa"), 0u);
  EXPECT_EQ(ereg("", ""), 0u);
  EXPECT_EQ(ereg("B", "b"), 1u) << "the case of letters counts";
  EXPECT_TRUE(log_is(log, kNothing));
}

TEST(Ereg, ABadPatternOrNoTextIsNoMatch) {
  EXPECT_EQ(ereg("(", "("), 1u);
  EXPECT_EQ(ereg("[z-a]", "z"), 1u);
  EXPECT_EQ(ereg("a{3,2}", "aaa"), 1u);
  EXPECT_EQ(ereg(nullptr, "text"), 1u);
  EXPECT_EQ(ereg("text", nullptr), 1u);
}

TEST(Ereg, MoreGroupsThanItHasRoomForStillMatch) {
  EXPECT_EQ(ereg("(a)(b)(c)(d)(e)(f)(g)(h)(i)(j)(k)(l)", "abcdefghijkl"), 0u);
}

TEST(Ereg, ALineFeedIsACharacterLikeOthers) {
  EXPECT_EQ(ereg("^b$", "a\nb\nc"), 1u);
  EXPECT_EQ(ereg("a.b", "a\nb"), 0u);
}

class MacText : public ::testing::TestWithParam<Checked> {};

TEST_P(MacText, IsJudgedAndTheVerdictLogged) {
  LogCapture log;
  EXPECT_EQ(Is_valid_Mac(GetParam().text), GetParam().good);
  EXPECT_TRUE(
      log_is(log, {GetParam().good ? "0 Is_valid_Mac|Yes Match!!! \n" : "3 Is_valid_Mac|No Match!!! \n"}));
}

INSTANTIATE_TEST_SUITE_P(Texts, MacText,
                         ::testing::Values(Checked{"00:1A:2b:3C:4d:5E", 1}, Checked{"00-1A-2B-3C-4D-5E", 0},
                                           Checked{"00 1A 2B 3C 4D 5E", 0}, Checked{"00s1As2Bs3Cs4Ds5E", 1},
                                           Checked{"00\\1A\\2B\\3C\\4D\\5E", 1},
                                           Checked{"00:1As2B\\3C:4D:5E", 1}, Checked{"00.1A.2B.3C.4D.5E", 0},
                                           Checked{"00:1A:2B:3C:4D:5E\n", 0},
                                           Checked{" 00:1A:2B:3C:4D:5E", 0}, Checked{"00:1A:2B:3C:4D:5E ", 0},
                                           Checked{"x\n00:1A:2B:3C:4D:5E", 0}, Checked{"00:1A:2B:3C:4D", 0},
                                           Checked{"00:1A:2B:3C:4D:5E:6F", 0}, Checked{"001A2B3C4D5E", 0},
                                           Checked{"00::1A:2B:3C:4D:5E", 0}, Checked{"0:1A:2B:3C:4D:5E", 0},
                                           Checked{"00:1A:2B:3C:4D:5G", 0}, Checked{"", 0},
                                           Checked{nullptr, 0}));

TEST(Mac, OfAllSeparatorsOnlyColonBackslashAndTheLetterSAreTaken) {
  for (int c = 1; c < 256; ++c) {
    for (std::size_t gap = 2; gap < 17; gap += 3) {
      std::string text = "00:1A:2b:3C:4d:5E";
      text[gap] = static_cast<char>(c);
      EXPECT_EQ(Is_valid_Mac(text.c_str()), c == ':' || c == '\\' || c == 's' ? 1u : 0u)
          << c << " at " << gap;
    }
  }
}

TEST(Mac, OfAllDigitsOnlyTheHexadecimalOnesAreTaken) {
  for (int c = 1; c < 256; ++c) {
    std::string text = "00:1A:2b:3C:4d:5E";
    text[16] = static_cast<char>(c);
    EXPECT_EQ(Is_valid_Mac(text.c_str()), c < 128 && isxdigit(c) != 0 ? 1u : 0u) << c;
  }
}

}  // namespace
