// SPDX-License-Identifier: MIT
#include "vexadm/strings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "support/child.h"
#include "support/device_fixture.h"
#include "support/log_capture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using vexa_test::ChildResult;
using vexa_test::DeviceTest;
using vexa_test::LogCapture;
using vexa_test::run_in_child;

constexpr int kDebug = 0;
constexpr int kError = 3;

// A buffer whose bytes beyond the text show whether they were touched.
template <std::size_t N>
std::array<char, N> filled(const char* text = nullptr) {
  std::array<char, N> buffer;
  buffer.fill('#');
  if (text) memcpy(buffer.data(), text, strlen(text) + 1);
  return buffer;
}

template <std::size_t N>
std::string bytes(const std::array<char, N>& buffer) {
  return std::string(buffer.data(), N);
}

using namespace std::string_literals;

// ---- Silence ----------------------------------------------------------------

// Also where they refuse: daemons call them in every line of their parsers.
TEST(Toolbox, TextFunctionsWithoutMessagesSayNothing) {
  const ChildResult child = run_in_child([] {
    const LogCapture log;
    char text[16] = " a,b ";
    char* parts[2] = {};
    std::array<std::uint8_t, 4> raw = {};
    std::uint32_t length = 0;
    vexa_strlcpy(nullptr, "a", 1);
    vexa_strlcpy(text, "a long text", 4);
    vexa_strlcat(nullptr, "a", 1);
    vexa_strlcat(text, "a long text", 2);
    vexa_trim_string(nullptr);
    vexa_trim_string(text);
    vexa_string_toupper(text);
    replace_str(text, "nowhere", "x");
    tolowercase('A');
    starts_with("abc", "b", 0);
    ends_with("abc", "b", 1);
    split_string_to_array(text, ",", parts, 0);
    vexa_hex_HexaToInteger("zz");
    vexa_change_hexstr_to_str("4", raw.data());
    vexa_utf8_NumBytesInChar(0xFF);
    vexa_utf8_Copy(text, "\xC3\xA4\xC3\xA4", 4, &length);
    EXPECT_EQ(log.lines().size(), 0u);
  });
  EXPECT_EQ(child.exit_code, 0) << child.out;
  EXPECT_EQ(child.out + child.err, "");
}

// ---- Bounded copies ---------------------------------------------------------

TEST(Strlcpy, SixCharactersIntoFourBytesKeepThree) {
  auto dst = filled<6>();
  EXPECT_EQ(vexa_strlcpy(dst.data(), "abcdef", 4), 6u);
  EXPECT_EQ(bytes(dst), "abc\0##"s);
}

TEST(Strlcpy, ExactFitIsNotCut) {
  auto dst = filled<5>();
  EXPECT_EQ(vexa_strlcpy(dst.data(), "abc", 4), 3u);
  EXPECT_EQ(bytes(dst), "abc\0#"s);
}

TEST(Strlcpy, SizeOneTerminatesAndSizeZeroWritesNothing) {
  auto dst = filled<2>();
  EXPECT_EQ(vexa_strlcpy(dst.data(), "abc", 0), 3u);
  EXPECT_EQ(bytes(dst), "##");
  EXPECT_EQ(vexa_strlcpy(dst.data(), "abc", 1), 3u);
  EXPECT_EQ(bytes(dst), "\0#"s);
}

TEST(Strlcpy, NullGivesZeroAndWritesNothing) {
  auto dst = filled<2>();
  EXPECT_EQ(vexa_strlcpy(nullptr, "abc", 4), 0u);
  EXPECT_EQ(vexa_strlcpy(dst.data(), nullptr, 2), 0u);
  EXPECT_EQ(bytes(dst), "##");
}

TEST(Strlcat, AppendsWhatFits) {
  auto dst = filled<8>("ab");
  EXPECT_EQ(vexa_strlcat(dst.data(), "cdef", 5), 6u);
  EXPECT_EQ(bytes(dst), "abcd\0###"s);
}

TEST(Strlcat, ExactFitIsNotCut) {
  auto dst = filled<6>("ab");
  EXPECT_EQ(vexa_strlcat(dst.data(), "cd", 5), 4u);
  EXPECT_EQ(bytes(dst), "abcd\0#"s);
}

TEST(Strlcat, WithoutATerminatorWritesNothing) {
  auto dst = filled<5>("abcd");
  EXPECT_EQ(vexa_strlcat(dst.data(), "xyz", 4), 7u);
  EXPECT_STREQ(dst.data(), "abcd");
  EXPECT_EQ(vexa_strlcat(dst.data(), "xyz", 0), 3u);
}

TEST(Strlcat, NullGivesZeroAndWritesNothing) {
  auto dst = filled<4>("ab");
  EXPECT_EQ(vexa_strlcat(nullptr, "abc", 4), 0u);
  EXPECT_EQ(vexa_strlcat(dst.data(), nullptr, 4), 0u);
  EXPECT_EQ(bytes(dst), "ab\0#"s);
}

TEST(StringMemcpy, ClearsTheFieldAndTerminatesAShorterText) {
  auto dst = filled<6>();
  vexa_string_memcpy(dst.data(), "ab", 5);
  EXPECT_EQ(bytes(dst), "ab\0\0\0#"s);
}

TEST(StringMemcpy, LongerTextFillsTheFieldWithoutATerminator) {
  auto dst = filled<4>();
  vexa_string_memcpy(dst.data(), "abcdef", 3);
  EXPECT_EQ(bytes(dst), "abc#");
}

TEST(StringMemcpy, NullIsReportedAndChangesNothing) {
  LogCapture log;
  auto dst = filled<3>();
  vexa_string_memcpy(nullptr, "a", 1);
  vexa_string_memcpy(dst.data(), nullptr, 3);
  EXPECT_EQ(bytes(dst), "###");
  EXPECT_EQ(log.lines().size(), 2u);
  EXPECT_EQ(log.count("Invalid string parameter.\n"), 2u);
  EXPECT_TRUE(log.has(kError, "oem_string_memcpy", "Invalid string parameter.\n"));
}

// ---- Quotes -----------------------------------------------------------------

constexpr const char* kStrip = "oem_strip_quotes_out";

TEST(StripQuotes, ThreeCharactersFitFourBytes) {
  LogCapture log;
  auto out = filled<5>();
  EXPECT_EQ(vexa_strip_quotes_out("\"abc\"", out.data(), 4), 1u);
  EXPECT_EQ(bytes(out), "abc\0#"s);
  EXPECT_THAT(log.messages(), IsEmpty());
}

TEST(StripQuotes, ThreeCharactersDoNotFitThreeBytes) {
  LogCapture log;
  auto out = filled<4>();
  EXPECT_EQ(vexa_strip_quotes_out("\"abc\"", out.data(), 3), 0u);
  EXPECT_EQ(out[3], '#');
  EXPECT_EQ(log.lines().size(), 1u);
  EXPECT_TRUE(log.has(kError, kStrip, "The in_str has opened quotes, or out_str is small: 3\n"));
}

TEST(StripQuotes, CharacterBehindTheClosingQuoteIsRefused) {
  LogCapture log;
  auto out = filled<8>();
  EXPECT_EQ(vexa_strip_quotes_out("\"abc\"d", out.data(), 8), 0u);
  EXPECT_EQ(log.lines().size(), 1u);
  EXPECT_TRUE(log.has(kError, kStrip, "String is not terminated after end quote found\n"));
}

TEST(StripQuotes, BackslashEscapesNothing) {
  LogCapture log;
  auto out = filled<8>();
  EXPECT_EQ(vexa_strip_quotes_out("\"a\\\"b\"", out.data(), 8), 0u);
  EXPECT_TRUE(log.has(kError, kStrip, "String is not terminated after end quote found\n"));
}

TEST(StripQuotes, WithoutAnOpeningQuoteIsRefused) {
  for (const char* in : {"abc\"", "", " \"abc\""}) {
    LogCapture log;
    auto out = filled<8>();
    EXPECT_EQ(vexa_strip_quotes_out(in, out.data(), 8), 0u);
    EXPECT_EQ(bytes(out), "########");
    EXPECT_TRUE(log.has(kError, kStrip, "The in_str must be quoted\n"));
    EXPECT_EQ(log.lines().size(), 1u);
  }
}

TEST(StripQuotes, WithoutAClosingQuoteIsRefused) {
  for (const char* in : {"\"", "\"abc"}) {
    LogCapture log;
    auto out = filled<8>();
    EXPECT_EQ(vexa_strip_quotes_out(in, out.data(), 8), 0u);
    EXPECT_TRUE(log.has(kError, kStrip, "The in_str has opened quotes, or out_str is small: 8\n"));
  }
}

TEST(StripQuotes, NoRoomAtAllIsRefused) {
  LogCapture log;
  auto out = filled<1>();
  EXPECT_EQ(vexa_strip_quotes_out("\"\"", out.data(), 0), 0u);
  EXPECT_EQ(bytes(out), "#");
  EXPECT_TRUE(log.has(kError, kStrip, "The in_str has opened quotes, or out_str is small: 0\n"));
}

TEST(StripQuotes, TwoQuotesAreAnEmptyText) {
  auto out = filled<2>();
  EXPECT_EQ(vexa_strip_quotes_out("\"\"", out.data(), 1), 1u);
  EXPECT_EQ(bytes(out), "\0#"s);
}

// ---- Editing in place ---------------------------------------------------------

TEST(Trim, RemovesWhiteSpaceFromBothEnds) {
  char text[] = " \t\r\n\v\fa b \n";
  EXPECT_EQ(vexa_trim_string(text), text);
  EXPECT_STREQ(text, "a b");
}

TEST(Trim, BlankTextBecomesEmptyAndNullStaysNull) {
  char blank[] = "  \t ";
  EXPECT_STREQ(vexa_trim_string(blank), "");
  char empty[] = "";
  EXPECT_STREQ(vexa_trim_string(empty), "");
  EXPECT_EQ(vexa_trim_string(nullptr), nullptr);
}

TEST(Case, UpperIsInPlace) {
  char text[] = "aZ09_z\xE4";
  EXPECT_EQ(vexa_string_toupper(text), text);
  EXPECT_STREQ(text, "AZ09_Z\xE4");
}

TEST(Case, LowerKnowsTheLettersAToZOnly) {
  EXPECT_EQ(tolowercase('A'), 'a');
  EXPECT_EQ(tolowercase('Z'), 'z');
  for (const int32_t c : {'@' + 0, '[' + 0, 'a' + 0, '0' + 0, -1, 0xC4, 0x141}) EXPECT_EQ(tolowercase(c), c);
}

TEST(Replace, ShorterResultLeavesTheFormerEnd) {
  char text[] = "hello world";
  EXPECT_EQ(replace_str(text, "world", "x"), 0);
  EXPECT_STREQ(text, "hello xorld");
}

TEST(Replace, LongerResultNeedsTheCallersTerminator) {
  char text[16] = "a-c";
  EXPECT_EQ(replace_str(text, "-", "bbb"), 0);
  EXPECT_STREQ(text, "abbbc");

  auto unterminated = filled<8>("a-c");
  EXPECT_EQ(replace_str(unterminated.data(), "-", "bbb"), 0);
  EXPECT_EQ(bytes(unterminated), "abbbc###");
}

TEST(Replace, FirstOccurrenceOnly) {
  char text[] = "a.a.a";
  EXPECT_EQ(replace_str(text, "a", "b"), 0);
  EXPECT_STREQ(text, "b.a.a");
}

TEST(Replace, EmptyResultWritesNothing) {
  char text[] = "all";
  EXPECT_EQ(replace_str(text, "all", ""), 0);
  EXPECT_STREQ(text, "all");
}

TEST(Replace, EmptyOldTextIsFoundAtTheStart) {
  char text[8] = "bc";
  EXPECT_EQ(replace_str(text, "", "a"), 0);
  EXPECT_STREQ(text, "abc");
}

TEST(Replace, MissingTextAndNullAreRefused) {
  LogCapture log;
  char text[] = "abc";
  EXPECT_EQ(replace_str(text, "x", "y"), -1);
  EXPECT_EQ(replace_str(text, nullptr, "y"), -1);
  EXPECT_EQ(replace_str(text, "a", nullptr), -1);
  EXPECT_EQ(replace_str(nullptr, "a", "y"), -1);
  EXPECT_STREQ(text, "abc");
  EXPECT_THAT(log.messages(), IsEmpty());
}

TEST(Replace, ResultIsCutTo1023Characters) {
  std::vector<char> text(4096, '\0');
  memcpy(text.data(), "<X>", 3);
  EXPECT_EQ(replace_str(text.data(), "X", std::string(2000, 'y').c_str()), 0);
  EXPECT_EQ(std::string(text.data()), "<" + std::string(1022, 'y'));
}

TEST(Replace, EndOfALongTextIsCutToo) {
  const std::string before(600, 'a'), after(600, 'b');
  std::string text = before + "X" + after;
  EXPECT_EQ(replace_str(text.data(), "X", "yy"), 0);
  // Behind the 1023 characters of the result the former text shows on.
  EXPECT_EQ(text, before + "yy" + std::string(421, 'b') + std::string(178, 'b'));

  std::string far(1500, 'a');
  far += "X";
  EXPECT_EQ(replace_str(far.data(), "X", "yy"), 0);
  EXPECT_EQ(far, std::string(1500, 'a') + "X");
}

// ---- Comparing ----------------------------------------------------------------

TEST(StartsWith, ComparesThePrefixWithAndWithoutCase) {
  EXPECT_EQ(starts_with("vexa_dm", "vexa", 0), 1u);
  EXPECT_EQ(starts_with("vexa_dm", "VEXA", 0), 0u);
  EXPECT_EQ(starts_with("vexa_dm", "VEXA", 1), 1u);
  EXPECT_EQ(starts_with("vexa_dm", "VEXA", -1), 1u);
  EXPECT_EQ(starts_with("vex", "vexa", 0), 0u);
}

TEST(StartsWith, EmptyPrefixFitsAndNullNever) {
  EXPECT_EQ(starts_with("a", "", 0), 1u);
  EXPECT_EQ(starts_with("", "", 0), 1u);
  EXPECT_EQ(starts_with(nullptr, "", 0), 0u);
  EXPECT_EQ(starts_with("a", nullptr, 0), 0u);
}

TEST(EndsWith, ComparesTheSuffixWithAndWithoutCase) {
  EXPECT_EQ(ends_with("config.db", ".db", 0), 1u);
  EXPECT_EQ(ends_with("config.db", ".DB", 0), 0u);
  EXPECT_EQ(ends_with("config.db", ".DB", 1), 1u);
  EXPECT_EQ(ends_with("db", "config.db", 0), 0u);
  EXPECT_EQ(ends_with("db.x", "db", 0), 0u);
}

TEST(EndsWith, EmptySuffixFitsAndNullNever) {
  EXPECT_EQ(ends_with("a", "", 0), 1u);
  EXPECT_EQ(ends_with("", "", 0), 1u);
  EXPECT_EQ(ends_with(nullptr, "", 0), 0u);
  EXPECT_EQ(ends_with("a", nullptr, 0), 0u);
}

// ---- Splitting ----------------------------------------------------------------

std::vector<std::string> split(std::string text, const char* delims, int32_t skip_empty) {
  std::array<char*, 16> pieces{};
  const int32_t count = split_string_to_array(text.data(), delims, pieces.data(), skip_empty);
  return {pieces.begin(), pieces.begin() + count};
}

TEST(Split, EmptyPiecesAreKeptOrSkipped) {
  EXPECT_THAT(split("a,,b", ",", 0), ElementsAre("a", "", "b"));
  EXPECT_THAT(split("a,,b", ",", 1), ElementsAre("a", "b"));
}

TEST(Split, BitZeroAloneDecides) {
  EXPECT_THAT(split("a,,b", ",", 2), ElementsAre("a", "", "b"));
  EXPECT_THAT(split("a,,b", ",", 3), ElementsAre("a", "b"));
}

TEST(Split, DelimitersAtTheEndsGiveEmptyPieces) {
  EXPECT_THAT(split(",a,", ",", 0), ElementsAre("", "a", ""));
  EXPECT_THAT(split(",a,", ",", 1), ElementsAre("a"));
  EXPECT_THAT(split("", ",", 0), ElementsAre(""));
  EXPECT_THAT(split("", ",", 1), IsEmpty());
}

TEST(Split, AnyCharacterOfTheSetCuts) { EXPECT_THAT(split("a b;c", "; ", 0), ElementsAre("a", "b", "c")); }

TEST(Split, NullIsRefused) {
  char text[] = "a";
  char* array[1];
  EXPECT_EQ(split_string_to_array(nullptr, ",", array, 0), -1);
  EXPECT_EQ(split_string_to_array(text, ",", nullptr, 0), -1);
}

TEST(Strsep, GivesPieceAfterPieceAndThenNull) {
  char text[] = "a,;b";
  char* rest = text;
  EXPECT_STREQ(strsep(&rest, ",;"), "a");
  EXPECT_STREQ(strsep(&rest, ",;"), "");
  EXPECT_STREQ(strsep(&rest, ",;"), "b");
  EXPECT_EQ(rest, nullptr);
  EXPECT_EQ(strsep(&rest, ",;"), nullptr);
}

TEST(Strsep, WithoutDelimitersGivesTheWholeText) {
  char text[] = "a,b";
  char* rest = text;
  EXPECT_EQ(strsep(&rest, ""), text);
  EXPECT_STREQ(text, "a,b");
  EXPECT_EQ(rest, nullptr);
}

// ---- Hexadecimal ----------------------------------------------------------------

constexpr const char* kToBinary = "oem_hex_StringToBinary";

TEST(HexToBinary, FourDigitsOfEitherCaseAreTwoBytes) {
  std::array<uint8_t, 3> out = {1, 2, 3};
  EXPECT_EQ(vexa_hex_StringToBinary("0a1B", 4, out.data(), 2), 2);
  EXPECT_THAT(out, ElementsAre(0x0A, 0x1B, 3));
}

TEST(HexToBinary, EveryByteComesBack) {
  for (unsigned value = 0; value < 256; ++value) {
    char hex[3];
    std::snprintf(hex, sizeof hex, "%02x", value);
    uint8_t out = 0;
    EXPECT_EQ(vexa_hex_StringToBinary(hex, 2, &out, 1), 1);
    EXPECT_EQ(out, value);
  }
}

TEST(HexToBinary, OddLengthIsADebugMessage) {
  LogCapture log;
  uint8_t out = 7;
  EXPECT_EQ(vexa_hex_StringToBinary("0a1B", 3, &out, 0), -1);
  EXPECT_EQ(out, 7);
  EXPECT_EQ(log.lines().size(), 1u);
  EXPECT_TRUE(log.has(kDebug, kToBinary, "The input stringLength=3 is not a multiple of 2\n"));
}

TEST(HexToBinary, TooSmallABufferIsADebugMessage) {
  LogCapture log;
  uint8_t out = 7;
  EXPECT_EQ(vexa_hex_StringToBinary("0a1B", 4, &out, 1), -1);
  EXPECT_EQ(out, 7);
  EXPECT_TRUE(log.has(kDebug, kToBinary,
                      "The stringLength (4) is too long to convert into a byte array of length (1)\n"));
  EXPECT_EQ(log.lines().size(), 1u);
}

TEST(HexToBinary, NothingGivesNothing) {
  LogCapture log;
  uint8_t out = 7;
  EXPECT_EQ(vexa_hex_StringToBinary("", 0, &out, 0), 0);
  EXPECT_EQ(out, 7);
  EXPECT_THAT(log.messages(), IsEmpty());
}

TEST(HexToBinary, AnotherCharacterIsADebugMessageAndEarlierBytesStay) {
  for (const char* hex : {"0a1G", "0aG1", "0a1", "0a", "0a g"}) {
    LogCapture log;
    std::array<uint8_t, 2> out = {1, 2};
    EXPECT_EQ(vexa_hex_StringToBinary(hex, 4, out.data(), 2), -1);
    EXPECT_THAT(out, ElementsAre(0x0A, 2));
    EXPECT_EQ(log.lines().size(), 1u);
    EXPECT_TRUE(log.has(kDebug, kToBinary, "Invalid string to convert ("s + hex + ")\n"));
  }
}

TEST(BinaryToHex, WritesUpperCaseDigitsHighFirst) {
  const std::array<uint8_t, 3> bin = {0x0A, 0xF1, 0x00};
  auto out = filled<8>();
  EXPECT_EQ(vexa_hex_BinaryToString(bin.data(), 3, out.data(), 7), 6);
  EXPECT_EQ(bytes(out), "0AF100\0#"s);
}

TEST(BinaryToHex, NoBytesAreAnEmptyText) {
  auto out = filled<2>();
  EXPECT_EQ(vexa_hex_BinaryToString(nullptr, 0, out.data(), 1), 0);
  EXPECT_EQ(bytes(out), "\0#"s);
}

TEST(BinaryToHex, NoRoomForTheTerminatorIsRefused) {
  LogCapture log;
  const std::array<uint8_t, 2> bin = {1, 2};
  auto out = filled<4>();
  EXPECT_EQ(vexa_hex_BinaryToString(bin.data(), 2, out.data(), 4), -1);
  EXPECT_EQ(bytes(out), "####");
  EXPECT_EQ(log.lines().size(), 1u);
  EXPECT_TRUE(
      log.has(kError, "oem_hex_BinaryToString", "Hex string array (4) is too small to convert (2) bytes\n"));
}

TEST(BinaryToHex, HugeCountDoesNotWrapAround) {
  LogCapture log;
  auto out = filled<4>();
  EXPECT_EQ(vexa_hex_BinaryToString(nullptr, 0x80000000u, out.data(), 4), -1);
  EXPECT_TRUE(log.has(kError, "oem_hex_BinaryToString",
                      "Hex string array (4) is too small to convert (2147483648) bytes\n"));
}

TEST(BinaryToHex, ALengthThatTheResultCannotHoldIsRefused) {
  LogCapture log;
  const uint8_t bin = 0;
  auto out = filled<4>();
  EXPECT_EQ(vexa_hex_BinaryToString(&bin, 0x40000000u, out.data(), 0xFFFFFFFFu), -1);
  EXPECT_EQ(bytes(out), "####");
  EXPECT_TRUE(log.has(kError, "oem_hex_BinaryToString",
                      "Hex string array (4294967295) is too small to convert (1073741824) bytes\n"));
}

struct HexRow {
  const char* hex;
  int32_t value;
};

class HexaToInteger : public ::testing::TestWithParam<HexRow> {};

TEST_P(HexaToInteger, GivesItsValueOrMinusOne) {
  EXPECT_EQ(vexa_hex_HexaToInteger(GetParam().hex), GetParam().value);
}

INSTANTIATE_TEST_SUITE_P(Rows, HexaToInteger,
                         ::testing::Values(HexRow{"", 0}, HexRow{"0", 0}, HexRow{"7FFFFFFF", 2147483647},
                                           HexRow{"80000000", -1}, HexRow{"FFFFFFFF", -1}, HexRow{"12G", -1},
                                           HexRow{"G", -1}, HexRow{"aBcDeF", 0xABCDEF},
                                           HexRow{"0000000012", 0x12}, HexRow{"7FFFFFFF0", -1},
                                           HexRow{"0x12", -1}, HexRow{" 1", -1}, HexRow{"-1", -1},
                                           HexRow{"9", 9}, HexRow{"7fffffff", 2147483647}));

TEST(HexCombine, DigitsAreOredIntoTheBuffer) {
  uint8_t out = 0x02;
  EXPECT_EQ(vexa_change_hexstr_to_str("41", &out), 0);
  EXPECT_EQ(out, 0x43);
}

TEST(HexCombine, ConvertsEitherCaseAndWritesNoTerminator) {
  std::array<uint8_t, 4> out = {0, 0, 0, 0x55};
  EXPECT_EQ(vexa_change_hexstr_to_str("aBCd09", out.data()), 0);
  EXPECT_THAT(out, ElementsAre(0xAB, 0xCD, 0x09, 0x55));
}

TEST(HexCombine, RefusalWritesNothing) {
  LogCapture log;
  uint8_t out[2] = {1, 2};
  EXPECT_EQ(vexa_change_hexstr_to_str(nullptr, out), -1);
  EXPECT_EQ(vexa_change_hexstr_to_str("41", nullptr), -1);
  EXPECT_EQ(vexa_change_hexstr_to_str("4", out), -1);
  EXPECT_EQ(vexa_change_hexstr_to_str("F04G", out), -1);
  EXPECT_EQ(out[0], 1);
  EXPECT_EQ(out[1], 2);
  EXPECT_THAT(log.messages(), IsEmpty());
}

TEST(HexCombine, EmptyTextIsConvertedToNothing) {
  uint8_t out = 9;
  EXPECT_EQ(vexa_change_hexstr_to_str("", &out), 0);
  EXPECT_EQ(out, 9);
}

TEST(HexCombine, LongTextIsConvertedWhole) {
  std::string hex;
  for (int i = 0; i < 5000; ++i) hex += "5a";
  std::vector<uint8_t> out(5000, 0);
  EXPECT_EQ(vexa_change_hexstr_to_str(hex.c_str(), out.data()), 0);
  EXPECT_EQ(out, std::vector<uint8_t>(5000, 0x5A));
}

// ---- UTF-8 ----------------------------------------------------------------------

TEST(Utf8Lead, EveryByteHasItsLength) {
  for (int lead = 0; lead < 256; ++lead) {
    const int expected = lead < 0x80   ? 1
                         : lead < 0xC0 ? 0
                         : lead < 0xE0 ? 2
                         : lead < 0xF0 ? 3
                         : lead < 0xF8 ? 4
                                       : 0;
    EXPECT_EQ(vexa_utf8_NumBytesInChar(static_cast<uint8_t>(lead)), expected) << lead;
  }
}

TEST(Utf8Copy, KeepsCharactersOfEveryLength) {
  auto dst = filled<12>();
  uint32_t length = 99;
  EXPECT_EQ(vexa_utf8_Copy(dst.data(), "a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80", 11, &length), 0);
  EXPECT_EQ(bytes(dst), "a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80\0#"s);
  EXPECT_EQ(length, 10u);
}

TEST(Utf8Copy, ThreeByteCharacterDoesNotFitThreeBytes) {
  auto dst = filled<3>();
  uint32_t length = 99;
  EXPECT_EQ(vexa_utf8_Copy(dst.data(), "\xE2\x82\xAC", 3, &length), -1);
  EXPECT_STREQ(dst.data(), "");
  EXPECT_EQ(length, 0u);
}

TEST(Utf8Copy, CutKeepsWholeCharactersOnly) {
  auto dst = filled<5>();
  uint32_t length = 99;
  EXPECT_EQ(vexa_utf8_Copy(dst.data(), "ab\xE2\x82\xAC", 5, &length), -1);
  EXPECT_EQ(bytes(dst), "ab\0##"s);
  EXPECT_EQ(length, 2u);
}

TEST(Utf8Copy, ByteThatBeginsNoCharacterEmptiesTheResultWithoutAnError) {
  for (const char* src : {"ab\x80"
                          "c",
                          "ab\xF8"
                          "c",
                          "\xFF"}) {
    auto dst = filled<8>();
    uint32_t length = 99;
    EXPECT_EQ(vexa_utf8_Copy(dst.data(), src, 8, &length), 0);
    EXPECT_STREQ(dst.data(), "");
    EXPECT_EQ(length, 0u);
  }
}

TEST(Utf8Copy, ByteThatBeginsNoCharacterIsSeenEvenWhenItWouldNotFit) {
  auto dst = filled<3>();
  EXPECT_EQ(vexa_utf8_Copy(dst.data(), "ab\x80", 3, nullptr), 0);
  EXPECT_STREQ(dst.data(), "");
}

TEST(Utf8Copy, FollowingBytesAreNotChecked) {
  auto dst = filled<8>();
  EXPECT_EQ(vexa_utf8_Copy(dst.data(), "\xE2zzb", 8, nullptr), 0);
  EXPECT_STREQ(dst.data(), "\xE2zzb");
}

TEST(Utf8Copy, IncompleteLastCharacterEndsTheTextAtItsTerminator) {
  auto dst = filled<8>();
  uint32_t length = 99;
  const char src[] = "a\xF0\x9F\0hidden";
  EXPECT_EQ(vexa_utf8_Copy(dst.data(), src, 8, &length), 0);
  EXPECT_EQ(bytes(dst), "a\xF0\x9F\0####"s);
  EXPECT_EQ(length, 3u);
}

TEST(Utf8Copy, EmptyTextAndOneByteAreEnough) {
  auto dst = filled<1>();
  uint32_t length = 99;
  EXPECT_EQ(vexa_utf8_Copy(dst.data(), "", 1, &length), 0);
  EXPECT_EQ(dst[0], '\0');
  EXPECT_EQ(length, 0u);
  EXPECT_EQ(vexa_utf8_Copy(dst.data(), "a", 1, &length), -1);
  EXPECT_EQ(dst[0], '\0');
}

TEST(Utf8Copy, ProgrammingErrorsSayWhereAndAbort) {
  static char dst[4];
  const std::vector<std::function<void()>> calls = {
      [] { vexa_utf8_Copy(nullptr, "a", 4, nullptr); },
      [] { vexa_utf8_Copy(dst, nullptr, 4, nullptr); },
      [] { vexa_utf8_Copy(dst, "a", 0, nullptr); },
  };
  for (const auto& call : calls) {
    const ChildResult child = run_in_child(call);
    EXPECT_EQ(child.signal, SIGABRT);
    EXPECT_THAT(child.out, MatchesRegex("vexa_app_os_al, line: [0-9]+\n"));
  }
}

// ---- Directories ------------------------------------------------------------------

class MakePath : public DeviceTest {
 protected:
  void SetUp() override {
    DeviceTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    umask(0);
    ASSERT_EQ(chdir("/tmp"), 0);
  }

  static bool is_directory(const char* path) {
    struct stat info;
    return stat(path, &info) == 0 && S_ISDIR(info.st_mode);
  }

  LogCapture log_;
};

TEST_F(MakePath, CreatesEveryDirectoryAndIsContentTheSecondTime) {
  EXPECT_EQ(dir_make_path("a/b/c/", 0755), 0);
  EXPECT_TRUE(is_directory("a"));
  EXPECT_TRUE(is_directory("a/b"));
  EXPECT_TRUE(is_directory("a/b/c"));
  EXPECT_EQ(dir_make_path("a/b/c/", 0755), 0);
  EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(MakePath, AbsolutePathsBeginBehindTheirSlash) {
  EXPECT_EQ(dir_make_path("/tmp/x//y", 0700), 0);
  struct stat info;
  ASSERT_EQ(stat("/tmp/x/y", &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0700u);
  EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(MakePath, SingleNameIsEnough) {
  EXPECT_EQ(dir_make_path("n", 0755), 0);
  EXPECT_TRUE(is_directory("n"));
}

TEST_F(MakePath, FileInTheMiddleIsReportedWithThePathAsGiven) {
  write_file("/tmp/file", "x");
  EXPECT_EQ(dir_make_path("/tmp/file/b/c/", 0755), -1);
  EXPECT_EQ(log_.lines().size(), 1u);
  EXPECT_TRUE(log_.has(kError, "dir_make_path", "Could not create directory '/tmp/file/b/c/'.\n"));
  EXPECT_EQ(errno, ENOTDIR);
}

TEST_F(MakePath, FailureAtTheLastNameIsReported) {
  write_file("/tmp/file", "x");
  EXPECT_EQ(dir_make_path("/tmp/file/b", 0755), -1);
  EXPECT_EQ(log_.lines().size(), 1u);
  EXPECT_TRUE(log_.has(kError, "dir_make_path", "Could not create directory '/tmp/file/b'.\n"));
}

TEST_F(MakePath, FileInTheLastPlaceCountsAsThere) {
  write_file("/tmp/file", "x");
  EXPECT_EQ(dir_make_path("/tmp/file", 0755), 0);
}

TEST_F(MakePath, EmptyPathAndTheRootAreRefused) {
  EXPECT_EQ(dir_make_path("", 0755), -1);
  EXPECT_TRUE(log_.has(kError, "dir_make_path", "Could not create directory ''.\n"));
  EXPECT_EQ(dir_make_path("/", 0755), -1);
  EXPECT_TRUE(log_.has(kError, "dir_make_path", "Could not create directory '/'.\n"));
}

TEST_F(MakePath, LongestPathHas511Bytes) {
  std::string path = "/tmp";
  while (path.size() < 511 - 100) path += "/" + std::string(99, 'd');
  path += "/" + std::string(510 - path.size(), 'e');
  ASSERT_EQ(path.size(), 511u);
  EXPECT_EQ(dir_make_path(path.c_str(), 0755), 0);
  EXPECT_TRUE(is_directory(path.c_str()));

  path += "e";
  EXPECT_EQ(dir_make_path(path.c_str(), 0755), -1);
  EXPECT_EQ(log_.lines().size(), 1u);
  EXPECT_TRUE(log_.has(kError, "dir_make_path", "Directory path overflowed.\n"));
}

}  // namespace
