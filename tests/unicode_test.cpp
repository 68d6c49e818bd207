// SPDX-License-Identifier: MIT
#include "vexadm/unicode.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "support/log_text.h"
#include "support/unicode_model.h"

namespace {

using ::testing::ElementsAre;
using vexa_test::Converted16;
using vexa_test::Converted8;
using vexa_test::encoded16;
using vexa_test::encoded8;
using vexa_test::log_is;
using vexa_test::LogCapture;
using vexa_test::model_to16;
using vexa_test::model_to8;
using namespace std::string_literals;

constexpr std::size_t kPlenty = 4096;

// From and to buffers of exactly these sizes, so that a sanitizer sees one byte too many; without
// one, a mark behind the room is looked at.
Converted16 to16(const std::string& text, std::size_t room = kPlenty, int32_t flags = 0) {
  const auto from = std::make_unique<uint8_t[]>(text.size());
  std::copy(text.begin(), text.end(), from.get());
#ifdef __SANITIZE_ADDRESS__
  constexpr std::size_t kMarks = 0;
#else
  constexpr std::size_t kMarks = 8;
#endif
  const auto to = std::make_unique<uint16_t[]>(room + kMarks);
  std::fill_n(to.get(), room + kMarks, uint16_t{0xEEEE});
  const uint8_t* src = from.get();
  uint16_t* dst = to.get();
  Converted16 result;
  result.code = vexa_util_ConvertUTF8toUTF16(&src, src + text.size(), &dst, dst + room, flags);
  result.used = static_cast<std::size_t>(src - from.get());
  result.units.assign(to.get(), dst);
  for (std::size_t i = 0; i < kMarks; ++i) EXPECT_EQ(to[room + i], 0xEEEE) << "behind the room";
  return result;
}

Converted8 to8(const std::u16string& text, std::size_t room = kPlenty, int32_t flags = 0) {
  const auto from = std::make_unique<uint16_t[]>(text.size());
  std::copy(text.begin(), text.end(), from.get());
#ifdef __SANITIZE_ADDRESS__
  constexpr std::size_t kMarks = 0;
#else
  constexpr std::size_t kMarks = 16;
#endif
  const auto to = std::make_unique<uint8_t[]>(room + kMarks);
  std::fill_n(to.get(), room + kMarks, uint8_t{0xEE});
  const uint16_t* src = from.get();
  uint8_t* dst = to.get();
  Converted8 result;
  result.code = vexa_util_ConvertUTF16toUTF8(&src, src + text.size(), &dst, dst + room, flags);
  result.used = static_cast<std::size_t>(src - from.get());
  result.bytes.assign(to.get(), dst);
  for (std::size_t i = 0; i < kMarks; ++i) EXPECT_EQ(to[room + i], 0xEE) << "behind the room";
  return result;
}

// ---- UTF-8 to UTF-16 ----------------------------------------------------------

TEST(Utf8ToUtf16, GrinningFaceIsAPair) {
  EXPECT_EQ(to16("\xF0\x9F\x98\x80"), (Converted16{0, 4, u"\xD83D\xDE00"}));
}

TEST(Utf8ToUtf16, PairThatDoesNotFitLeavesTheRoomAsItWas) {
  const uint8_t face[] = {0xF0, 0x9F, 0x98, 0x80};
  uint16_t room = 0xEEEE;
  const uint8_t* src = face;
  uint16_t* dst = &room;
  EXPECT_EQ(vexa_util_ConvertUTF8toUTF16(&src, face + 4, &dst, &room + 1, VEXA_UNICODE_STRICT),
            VEXA_UNICODE_TARGET_EXHAUSTED);
  EXPECT_EQ(src, face);
  EXPECT_EQ(dst, &room);
  EXPECT_EQ(room, 0xEEEE);
}

TEST(Utf8ToUtf16, SurrogateIsIllegalInBothModes) {
  for (const int32_t flags : {0, 1, -1}) {
    EXPECT_EQ(to16("\xED\xA0\x80", kPlenty, flags), (Converted16{3, 0, u""}));
    EXPECT_EQ(to16("\xED\xBF\xBF", kPlenty, flags), (Converted16{3, 0, u""}));
  }
}

TEST(Utf8ToUtf16, EmptySourceIsDoneWithoutAnyRoom) {
  EXPECT_EQ(to16("", 0), (Converted16{0, 0, u""}));
  const uint8_t* src = nullptr;
  uint16_t* dst = nullptr;
  EXPECT_EQ(vexa_util_ConvertUTF8toUTF16(&src, nullptr, &dst, nullptr, 0), VEXA_UNICODE_OK);
}

TEST(Utf8ToUtf16, NullPositionsAreRefused) {
  const uint8_t byte = 'a';
  const uint8_t* src = &byte;
  uint16_t unit = 0;
  uint16_t* dst = &unit;
  EXPECT_EQ(vexa_util_ConvertUTF8toUTF16(nullptr, src + 1, &dst, dst + 1, 0), VEXA_UNICODE_SOURCE_ILLEGAL);
  EXPECT_EQ(vexa_util_ConvertUTF8toUTF16(&src, src + 1, nullptr, dst + 1, 0), VEXA_UNICODE_SOURCE_ILLEGAL);
}

TEST(Utf8ToUtf16, ZeroBytesAreCharacters) { EXPECT_EQ(to16("a\0b"s), (Converted16{0, 3, u"a\0b"s})); }

struct Malformed {
  const char* name;
  std::string bytes;
  int code;
};

std::ostream& operator<<(std::ostream& out, const Malformed& malformed) { return out << malformed.name; }

class MalformedUtf8 : public ::testing::TestWithParam<Malformed> {};

// Alone, and where eight or more characters at a time are looked at.
TEST_P(MalformedUtf8, StopsAtTheStartOfTheSequence) {
  const auto& [name, bytes, code] = GetParam();
  for (const std::string& before : {""s, "a"s, "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa"s, "\xC3\xA9"s,
                                    "\xE2\x82\xAC\xE2\x82\xAC"s, "\xF0\x9F\x98\x80"s}) {
    for (const int32_t flags : {0, 1}) {
      const Converted16 whole = to16(before, kPlenty);
      EXPECT_EQ(to16(before + bytes, kPlenty, flags), (Converted16{code, before.size(), whole.units}));
      // What follows completes what was incomplete, but not well.
      const std::string after = bytes + std::string(40, 'z');
      EXPECT_EQ(to16(before + after, kPlenty, flags), (Converted16{3, before.size(), whole.units}));
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, MalformedUtf8,
    ::testing::Values(
        Malformed{"LoneTrail80", "\x80", 3}, Malformed{"LoneTrailBF", "\xBF", 3},
        Malformed{"OverlongC0", "\xC0\x80", 3}, Malformed{"OverlongC1", "\xC1\xBF", 3},
        Malformed{"OverlongE0", "\xE0\x9F\xBF", 3}, Malformed{"OverlongF0", "\xF0\x8F\xBF\xBF", 3},
        Malformed{"FirstSurrogate", "\xED\xA0\x80", 3}, Malformed{"LastSurrogate", "\xED\xBF\xBF", 3},
        Malformed{"Above10FFFF", "\xF4\x90\x80\x80", 3}, Malformed{"LeadF5", "\xF5\x80\x80\x80", 3},
        Malformed{"LeadF7", "\xF7\xBF\xBF\xBF", 3}, Malformed{"FiveBytes", "\xF8\x88\x80\x80\x80", 3},
        Malformed{"FiveBytesFB", "\xFB\xBF\xBF\xBF\xBF", 3},
        Malformed{"SixBytes", "\xFC\x84\x80\x80\x80\x80", 3},
        Malformed{"LeadFE", "\xFE\x80\x80\x80\x80\x80", 3},
        Malformed{"LeadFF", "\xFF\xBF\xBF\xBF\xBF\xBF", 3}, Malformed{"TwoWithoutTrail", "\xC3\x41", 3},
        Malformed{"ThreeWithoutFirstTrail", "\xE2\x41\xAC", 3},
        Malformed{"ThreeWithoutSecondTrail", "\xE2\x82\x41", 3},
        Malformed{"FourWithoutFirstTrail", "\xF0\x41\x98\x80", 3},
        Malformed{"FourWithoutSecondTrail", "\xF0\x9F\x41\x80", 3},
        Malformed{"FourWithoutThirdTrail", "\xF0\x9F\x98\xC0", 3}, Malformed{"OneOfTwo", "\xC3", 1},
        Malformed{"TwoOfThree", "\xE2\x82", 1}, Malformed{"ThreeOfFour", "\xF0\x9F\x98", 1},
        // The length counts before what it is of.
        Malformed{"OneOfTwoOverlong", "\xC0", 1}, Malformed{"TwoOfThreeWrong", "\xE2\x41", 1},
        Malformed{"ThreeOfFourWrong", "\xF5\x41\x41", 1}, Malformed{"FourOfFive", "\xF8\x88\x80\x80", 1},
        Malformed{"FiveOfSix", "\xFC\x84\x80\x80\x80", 1},
        Malformed{"FiveOfSixFE", "\xFE\xFE\xFF\xFF\xFF", 1}),
    [](const auto& kind) { return std::string(kind.param.name); });

TEST(Utf8ToUtf16, LegalityIsLookedAtBeforeTheRoom) {
  EXPECT_EQ(to16("\xFF\x80\x80\x80\x80\x80", 0), (Converted16{3, 0, u""}));
  EXPECT_EQ(to16("\x80", 0), (Converted16{3, 0, u""}));
  EXPECT_EQ(to16("\xC3", 0), (Converted16{1, 0, u""}));
  EXPECT_EQ(to16("a", 0), (Converted16{2, 0, u""}));
}

// Bytes at the edges of every range of the standard's table.
const std::string kEdges =
    "\x00\x41\x7F\x80\x8F\x90\x9F\xA0\xBF\xC0\xC1\xC2\xDF\xE0\xE1\xEC\xED\xEE\xEF\xF0\xF1\xF3\xF4\xF5\xF8\xFF"s;

TEST(Utf8ToUtf16, EverySequenceOfEdgeBytesIsAsTheModelSays) {
  const std::string ascii(20, 'x');
  for (const char a : kEdges) {
    for (const char b : kEdges) {
      for (const char c : kEdges) {
        for (const char d : kEdges) {
          const std::string text = {a, b, c, d};
          ASSERT_EQ(to16(text, 8), model_to16(text, 8)) << ::testing::PrintToString(text);
          const std::string longer = text + text + ascii;
          ASSERT_EQ(to16(longer, 40), model_to16(longer, 40)) << ::testing::PrintToString(longer);
        }
      }
    }
  }
}

// ---- UTF-16 to UTF-8 ----------------------------------------------------------

TEST(Utf16ToUtf8, LoneHighSurrogateIsThreeBytesWhenLenient) {
  EXPECT_EQ(to8(u"\xD800x", kPlenty, VEXA_UNICODE_LENIENT), (Converted8{0, 2, "\xED\xA0\x80x"}));
  EXPECT_EQ(to8(u"\xD800x", kPlenty, VEXA_UNICODE_STRICT), (Converted8{3, 0, ""}));
}

TEST(Utf16ToUtf8, LoneLowSurrogateIsThreeBytesWhenLenient) {
  EXPECT_EQ(to8(u"a\xDFFF", kPlenty, VEXA_UNICODE_LENIENT), (Converted8{0, 2, "a\xED\xBF\xBF"}));
  EXPECT_EQ(to8(u"a\xDFFF", kPlenty, VEXA_UNICODE_STRICT), (Converted8{3, 1, "a"}));
}

TEST(Utf16ToUtf8, AnyNonzeroFlagIsLenient) {
  for (const int32_t flags : {2, -1, 0x100}) {
    EXPECT_EQ(to8(u"\xDC00", kPlenty, flags), (Converted8{0, 1, "\xED\xB0\x80"}));
  }
}

TEST(Utf16ToUtf8, HighSurrogateAtTheEndIsExhaustedInBothModes) {
  for (const int32_t flags : {0, 1}) {
    EXPECT_EQ(to8(u"a\xDBFF", kPlenty, flags), (Converted8{1, 1, "a"}));
    EXPECT_EQ(to8(u"\xD800", 0, flags), (Converted8{1, 0, ""}));
  }
}

TEST(Utf16ToUtf8, TwoHighSurrogatesAndALowOneAreALoneOneAndAPair) {
  EXPECT_EQ(to8(u"\xD83D\xD83D\xDE00", kPlenty, 1), (Converted8{0, 3, "\xED\xA0\xBD\xF0\x9F\x98\x80"}));
}

TEST(Utf16ToUtf8, LegalityIsLookedAtBeforeTheRoom) {
  EXPECT_EQ(to8(u"\xDC00", 0, 0), (Converted8{3, 0, ""}));
  EXPECT_EQ(to8(u"\xD800z", 0, 0), (Converted8{3, 0, ""}));
  EXPECT_EQ(to8(u"\xD800z", 2, 1), (Converted8{2, 0, ""}));
  EXPECT_EQ(to8(u"a", 0, 0), (Converted8{2, 0, ""}));
}

TEST(Utf16ToUtf8, CharacterThatDoesNotFitLeavesTheRoomAsItWas) {
  const uint16_t pair[] = {0xD83D, 0xDE00};
  uint8_t room[4] = {1, 2, 3, 4};
  const uint16_t* src = pair;
  uint8_t* dst = room;
  EXPECT_EQ(vexa_util_ConvertUTF16toUTF8(&src, pair + 2, &dst, room + 3, 0), VEXA_UNICODE_TARGET_EXHAUSTED);
  EXPECT_EQ(src, pair);
  EXPECT_EQ(dst, room);
  EXPECT_THAT(room, ElementsAre(1, 2, 3, 4));
}

TEST(Utf16ToUtf8, NullPositionsAreRefusedAndAnEmptySourceIsDone) {
  const uint16_t unit = 'a';
  const uint16_t* src = &unit;
  uint8_t byte = 0;
  uint8_t* dst = &byte;
  EXPECT_EQ(vexa_util_ConvertUTF16toUTF8(nullptr, src + 1, &dst, dst + 1, 0), VEXA_UNICODE_SOURCE_ILLEGAL);
  EXPECT_EQ(vexa_util_ConvertUTF16toUTF8(&src, src + 1, nullptr, dst + 1, 0), VEXA_UNICODE_SOURCE_ILLEGAL);
  EXPECT_EQ(to8(u"", 0), (Converted8{0, 0, ""}));
}

// Alone, and in every place of the units that are looked at together.
TEST(Utf16ToUtf8, EveryUnitIsAsTheModelSays) {
  const std::u16string before = u"abcdefgh", after = u"\x431\x431\x431\x431\x4E2D\x4E2D\x4E2D\x4E2D";
  for (unsigned unit = 0; unit <= 0xFFFF; ++unit) {
    const std::u16string text = {static_cast<char16_t>(unit)};
    for (const bool strict : {true, false}) {
      const int32_t flags = strict ? 0 : 1;
      ASSERT_EQ(to8(text, 8, flags), model_to8(text, 8, strict)) << unit;
      const std::u16string longer = before.substr(unit % 9) + text + after;
      ASSERT_EQ(to8(longer, 64, flags), model_to8(longer, 64, strict)) << unit;
    }
  }
}

// Units at the edges of every length and of the surrogates.
TEST(Utf16ToUtf8, EverySequenceOfEdgeUnitsIsAsTheModelSays) {
  const std::u16string edges = u"\x0000\x007F\x0080\x07FF\x0800\xD7FF\xD800\xDBFF\xDC00\xDFFF\xE000\xFFFF"s;
  for (const char16_t a : edges) {
    for (const char16_t b : edges) {
      for (const char16_t c : edges) {
        for (const char16_t d : edges) {
          const std::u16string text = {a, b, c, d};
          for (const bool strict : {true, false}) {
            ASSERT_EQ(to8(text, 16, strict ? 0 : 1), model_to8(text, 16, strict));
            const std::u16string longer = text + text + text;
            ASSERT_EQ(to8(longer, 64, strict ? 0 : 1), model_to8(longer, 64, strict));
          }
        }
      }
    }
  }
}

// ---- Both -----------------------------------------------------------------------

TEST(Unicode, EveryCharacterGoesThereAndBack) {
  for (char32_t c = 0; c <= 0x10FFFF; ++c) {
    if (c >= 0xD800 && c <= 0xDFFF) continue;
    const std::string bytes = encoded8(c);
    const std::u16string units = encoded16(c);
    ASSERT_EQ(to16(bytes, 2), (Converted16{0, bytes.size(), units})) << static_cast<unsigned>(c);
    ASSERT_EQ(to8(units, 4), (Converted8{0, units.size(), bytes})) << static_cast<unsigned>(c);
  }
}

TEST(Unicode, EveryCharacterInOneLongTextGoesThereAndBack) {
  std::string bytes;
  std::u16string units;
  for (char32_t c = 0; c <= 0x10FFFF; ++c) {
    if (c >= 0xD800 && c <= 0xDFFF) continue;
    bytes += encoded8(c);
    units += encoded16(c);
  }
  EXPECT_TRUE(to16(bytes, units.size()) == (Converted16{0, bytes.size(), units}));
  EXPECT_TRUE(to8(units, bytes.size()) == (Converted8{0, units.size(), bytes}));
}

// One character or a lack of room in every place of every block of ASCII.
TEST(Unicode, LongAsciiEndsAtItsFirstOtherCharacterAndWithTheRoom) {
  std::string ascii;
  for (int i = 0; i < 400; ++i) ascii += static_cast<char>(i % 128);
  for (std::size_t place = 0; place < ascii.size(); ++place) {
    ASSERT_EQ(to16(ascii, place), model_to16(ascii, place)) << place;
    const std::u16string plain(ascii.begin(), ascii.end());
    ASSERT_EQ(to8(plain, place), model_to8(plain, place, true)) << place;
    std::string bytes = ascii;
    bytes[place] = '\x80';
    ASSERT_EQ(to16(bytes, 400), model_to16(bytes, 400)) << place;
    for (const unsigned unit : {0x80U, 0x100U, 0x4041U, 0x8041U, 0xDC41U, 0xFF41U}) {
      std::u16string units = plain;
      units[place] = static_cast<char16_t>(unit);
      ASSERT_EQ(to8(units, 410), model_to8(units, 410, true)) << place << ", " << unit;
    }
  }
}

// Texts in which each kind of character meets each other.
std::vector<std::u16string> texts() {
  return {
      u"plain ASCII that is longer than one block of it, and then some more of the same",
      u"Größe: élan, œuvre, naïveté à côté de l’été",
      u"Съешь ещё этих мягких французских булок, да выпей чаю.",
      u"我能吞下玻璃而不伤身体。中文、日本語、한국어",
      u"\xD83D\xDE00\xD83D\xDE01\xD83D\xDE02\xD83D\xDE03\xD83D\xDE04",
      u"ok \xD83D\xDC4D, 好的 \xD83D\xDC4D\xD83C\xDFFD да, señor: 20 € \xD835\xDD38!",
  };
}

TEST(Unicode, EveryRoomStopsAtTheLastCharacterThatFits) {
  for (const std::u16string& units : texts()) {
    const std::string bytes = model_to8(units, kPlenty, true).bytes;
    for (std::size_t room = 0; room <= units.size() + 2; ++room) {
      ASSERT_EQ(to16(bytes, room), model_to16(bytes, room)) << room;
    }
    for (std::size_t room = 0; room <= bytes.size() + 2; ++room) {
      ASSERT_EQ(to8(units, room), model_to8(units, room, true)) << room;
    }
  }
}

TEST(Unicode, EveryCutStopsAtTheLastWholeCharacter) {
  for (const std::u16string& units : texts()) {
    const std::string bytes = model_to8(units, kPlenty, true).bytes;
    for (std::size_t length = 0; length <= bytes.size(); ++length) {
      const std::string cut = bytes.substr(0, length);
      ASSERT_EQ(to16(cut), model_to16(cut, kPlenty)) << length;
    }
    for (std::size_t length = 0; length <= units.size(); ++length) {
      const std::u16string cut = units.substr(0, length);
      ASSERT_EQ(to8(cut, kPlenty, 1), model_to8(cut, kPlenty, false)) << length;
    }
  }
}

TEST(Unicode, TextsAreConvertedFromAndToEveryOffset) {
  const std::u16string units = texts().back();
  const std::string bytes = model_to8(units, kPlenty, true).bytes;
  for (std::size_t offset = 0; offset < 8; ++offset) {
    const std::string prefix(offset, '.');
    const std::u16string prefix16(offset, u'.');
    ASSERT_EQ(to16(prefix + bytes), (Converted16{0, offset + bytes.size(), prefix16 + units}));
    ASSERT_EQ(to8(prefix16 + units), (Converted8{0, offset + units.size(), prefix + bytes}));
  }
}

// ---- Terminated texts -------------------------------------------------------------

constexpr const char* kToUcs2 = "oem_util_convert_utf8_to_ucs2";
constexpr const char* kToUtf8 = "oem_util_convert_ucs2_to_utf8";
constexpr const char* kLatin1 = "oem_util_ss_ascii_to_utf8";

std::string line(const char* start, const std::string& message) { return std::string(start) + "|" + message; }
std::string error(const char* function, const std::string& message) {
  return line(("3 "s + function).c_str(), message);
}
std::string debug(const char* function, const std::string& message) {
  return line(("0 "s + function).c_str(), message);
}

TEST(Utf8ToUcs2, IsTerminatedAndCountedInBytes) {
  LogCapture log;
  uint16_t ucs2[8];
  std::fill_n(ucs2, 8, uint16_t{0xEEEE});
  EXPECT_EQ(vexa_util_convert_utf8_to_ucs2("a\xC3\xA9\xE2\x82\xAC", 6, ucs2, sizeof ucs2), 6u);
  EXPECT_THAT(ucs2, ElementsAre('a', 0xE9, 0x20AC, 0, 0xEEEE, 0xEEEE, 0xEEEE, 0xEEEE));
  EXPECT_TRUE(log_is(log, {}));
}

TEST(Utf8ToUcs2, NothingIsAnEmptyText) {
  LogCapture log;
  uint16_t ucs2[1] = {0xEEEE};
  EXPECT_EQ(vexa_util_convert_utf8_to_ucs2("", 0, ucs2, 2), 0u);
  EXPECT_EQ(ucs2[0], 0);
  EXPECT_TRUE(log_is(log, {}));
}

TEST(Utf8ToUcs2, NullIsRefused) {
  LogCapture log;
  uint16_t ucs2[1] = {0xEEEE};
  EXPECT_EQ(vexa_util_convert_utf8_to_ucs2(nullptr, 1, ucs2, 2), 0u);
  EXPECT_EQ(vexa_util_convert_utf8_to_ucs2("a", 1, nullptr, 2), 0u);
  EXPECT_EQ(ucs2[0], 0xEEEE);
  EXPECT_TRUE(log_is(log, {error(kToUcs2, "Invalid parameters. utf8str: (nil), ucs2str: 0x<any>\n"),
                           error(kToUcs2, "Invalid parameters. utf8str: 0x<any>, ucs2str: (nil)\n")}));
}

TEST(Utf8ToUcs2, EverySizeKeepsWhatFitsWithATerminator) {
  const std::string bytes =
      "ab\xF0\x9F\x98\x80"
      "cdefghijklmnop";
  const std::u16string units =
      u"ab\xD83D\xDE00"
      u"cdefghijklmnop";
  for (std::size_t size = 2; size <= units.size() * 2 + 4; ++size) {
    LogCapture log;
    std::vector<uint16_t> ucs2(size / 2 + 1, 0xEEEE);
    const std::size_t written = vexa_util_convert_utf8_to_ucs2(bytes.data(), bytes.size(), ucs2.data(), size);
    const Converted16 model = model_to16(bytes, size / 2 - 1);
    EXPECT_EQ(written, model.units.size() * 2);
    EXPECT_EQ(std::u16string(ucs2.begin(), ucs2.begin() + static_cast<long>(written / 2)), model.units);
    EXPECT_EQ(ucs2[written / 2], 0);
    EXPECT_EQ(ucs2.back(), 0xEEEE);
    std::vector<std::string> lines;
    if (model.code != 0)
      lines = {error(kToUcs2, "String has been truncated. Buffer size of " + std::to_string(size) +
                                  " not large enough\n")};
    EXPECT_TRUE(log_is(log, lines)) << size;
  }
}

TEST(Utf8ToUcs2, WithoutRoomForATerminatorNothingIsWritten) {
  LogCapture log;
  uint16_t ucs2[1] = {0xEEEE};
  EXPECT_EQ(vexa_util_convert_utf8_to_ucs2("a", 1, ucs2, 0), 0u);
  EXPECT_EQ(vexa_util_convert_utf8_to_ucs2("", 0, ucs2, 1), 0u);
  EXPECT_EQ(ucs2[0], 0xEEEE);
  EXPECT_TRUE(
      log_is(log, {error(kToUcs2, "String has been truncated. Buffer size of 0 not large enough\n"),
                   error(kToUcs2, "String has been truncated. Buffer size of 1 not large enough\n")}));
}

TEST(Utf8ToUcs2, WhatComesBeforeAnErrorIsKept) {
  for (const char* bytes : {"ab\xED\xA0\x80", "ab\xC3", "ab\xFF!!!!!"}) {
    LogCapture log;
    uint16_t ucs2[8] = {};
    EXPECT_EQ(vexa_util_convert_utf8_to_ucs2(bytes, strlen(bytes), ucs2, sizeof ucs2), 4u);
    EXPECT_THAT(std::vector<uint16_t>(ucs2, ucs2 + 3), ElementsAre('a', 'b', 0));
    EXPECT_TRUE(log_is(log, {error(kToUcs2, "Error in converting utf8 string to ucs2\n")}));
  }
}

std::string to_text(const std::u16string& units, std::size_t length_bytes, std::size_t size) {
  std::vector<uint16_t> ucs2(units.begin(), units.end());
  std::vector<char> text(size + 1, '#');
  const std::size_t written = vexa_util_convert_ucs2_to_utf8(ucs2.data(), length_bytes, text.data(), size);
  EXPECT_EQ(text[written], '\0');
  EXPECT_EQ(text[size], '#');
  return std::string(text.data(), written);
}

TEST(Ucs2ToUtf8, IsTerminatedAndCounted) {
  LogCapture log;
  EXPECT_EQ(to_text(u"a\xE9\x20AC\xD83D\xDE00", 10, 64), "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
  EXPECT_TRUE(log_is(log, {}));
}

TEST(Ucs2ToUtf8, IsLenientAboutLoneSurrogates) {
  LogCapture log;
  EXPECT_EQ(to_text(u"\xDC00\xD800!", 6, 64), "\xED\xB0\x80\xED\xA0\x80!");
  EXPECT_TRUE(log_is(log, {}));
}

TEST(Ucs2ToUtf8, HighSurrogateAtTheEndIsAnErrorAndTheRestIsKept) {
  LogCapture log;
  EXPECT_EQ(to_text(u"ab\xD83D", 6, 64), "ab");
  EXPECT_TRUE(log_is(log, {error(kToUtf8, "Error in converting ucs2 string to utf8\n")}));
}

TEST(Ucs2ToUtf8, OddLastByteIsNotUsed) {
  LogCapture log;
  EXPECT_EQ(to_text(u"abc", 5, 64), "ab");
  EXPECT_EQ(to_text(u"a", 1, 64), "");
  EXPECT_TRUE(log_is(log, {}));
}

TEST(Ucs2ToUtf8, ZeroUnitsAreCharacters) { EXPECT_EQ(to_text(u"a\0b"s, 6, 64), "a\0b"s); }

TEST(Ucs2ToUtf8, EverySizeKeepsWhatFitsWithATerminator) {
  const std::u16string units = u"aé€\xD83D\xDE00 and twenty letters of more";
  const std::size_t need = model_to8(units, kPlenty, true).bytes.size() + 1;
  for (std::size_t size = 1; size <= need + 2; ++size) {
    LogCapture log;
    EXPECT_EQ(to_text(units, units.size() * 2, size), model_to8(units, size - 1, false).bytes);
    std::vector<std::string> lines;
    if (size < need) {
      lines = {debug(kToUtf8, "String has been truncated. Buffer size of " + std::to_string(size) +
                                  " not large enough\n")};
    }
    EXPECT_TRUE(log_is(log, lines)) << size;
  }
}

TEST(Ucs2ToUtf8, NullAndNothingAreRefused) {
  LogCapture log;
  const uint16_t ucs2[] = {'a'};
  char text[2] = {'#', '#'};
  EXPECT_EQ(vexa_util_convert_ucs2_to_utf8(nullptr, 2, text, 2), 0u);
  EXPECT_EQ(vexa_util_convert_ucs2_to_utf8(ucs2, 0, text, 2), 0u);
  EXPECT_EQ(vexa_util_convert_ucs2_to_utf8(ucs2, 2, nullptr, 2), 0u);
  EXPECT_EQ(vexa_util_convert_ucs2_to_utf8(ucs2, 2, text, 0), 0u);
  EXPECT_THAT(text, ElementsAre('#', '#'));
  EXPECT_TRUE(log_is(log, std::vector(4, error(kToUtf8, "utf8str or utf8Start is NULL\n"))));
}

// ---- Latin-1 ------------------------------------------------------------------------

std::string from_latin1(const std::string& latin1, uint32_t size) {
  std::vector<char> text(size + 1, '#');
  const uint32_t written =
      vexa_util_ss_ascii_to_utf8(reinterpret_cast<const uint8_t*>(latin1.data()),
                                 static_cast<uint32_t>(latin1.size()), text.data(), size);
  EXPECT_EQ(text[written], '\0');
  EXPECT_EQ(text[size], '#');
  return std::string(text.data(), written);
}

TEST(Latin1, ExtendedCharacterBecomesTwoBytes) {
  LogCapture log;
  EXPECT_EQ(from_latin1("\xE9", 3), "\xC3\xA9");
  EXPECT_TRUE(log_is(log, {}));
}

TEST(Latin1, EveryByteIsItsCharacter) {
  LogCapture log;
  std::string latin1, expected;
  for (int byte = 0; byte < 256; ++byte) {
    latin1 += static_cast<char>(byte);
    if (byte != 13) expected += encoded8(static_cast<char32_t>(byte));
  }
  EXPECT_EQ(from_latin1(latin1, 512), expected);
  EXPECT_TRUE(log_is(log, {debug(kLatin1, "ignored charecter at index = 13 \n")}));
}

TEST(Latin1, CarriageReturnIsDroppedWhereverItStands) {
  for (std::size_t at = 0; at < 24; ++at) {
    LogCapture log;
    const std::string before(at, 'a'), after(23 - at, '\x0C');
    EXPECT_EQ(from_latin1(before + "\r" + after, 48), before + after);
    EXPECT_TRUE(log_is(log, {debug(kLatin1, "ignored charecter at index = " + std::to_string(at) + " \n")}));
  }
}

TEST(Latin1, TenBytesNeedTwentyBytesOfRoom) {
  LogCapture log;
  char text[20];
  std::fill_n(text, 20, '#');
  const uint8_t latin1[] = {'0', '1', '2', '3', '4', '5', '6', '7', '8', '9'};
  EXPECT_EQ(vexa_util_ss_ascii_to_utf8(latin1, 10, text, 19), 0u);
  EXPECT_EQ(text[0], '#');
  EXPECT_TRUE(log_is(log, {error(kLatin1, "the utf8 str buffer length is not enough\n")}));
  EXPECT_EQ(vexa_util_ss_ascii_to_utf8(latin1, 10, text, 20), 10u);
  EXPECT_STREQ(text, "0123456789");
}

TEST(Latin1, LastOfNothingButExtendedCharactersHasNoRoom) {
  LogCapture log;
  EXPECT_EQ(from_latin1("\xE9\xE8\xE7", 6), "\xC3\xA9\xC3\xA8");
  EXPECT_TRUE(log_is(log, {debug(kLatin1,
                                 "ignored extended character at index = 2 not enough bytes. "
                                 "al: 3ui: 4 us: 6\n")}));
}

TEST(Latin1, NullAndNothingAreRefused) {
  LogCapture log;
  const uint8_t latin1[] = {'a'};
  char text[2] = {'#', '#'};
  EXPECT_EQ(vexa_util_ss_ascii_to_utf8(nullptr, 1, text, 2), 0u);
  EXPECT_EQ(vexa_util_ss_ascii_to_utf8(latin1, 0, text, 2), 0u);
  EXPECT_EQ(vexa_util_ss_ascii_to_utf8(latin1, 1, nullptr, 2), 0u);
  EXPECT_EQ(vexa_util_ss_ascii_to_utf8(latin1, 1, text, 0), 0u);
  EXPECT_THAT(text, ElementsAre('#', '#'));
  EXPECT_TRUE(log_is(
      log, std::vector(4, error(kLatin1, "Invalid parameters; ascii_str = <any>, utf8_str = <any>\n"))));
}

TEST(Latin1, RoomForTheTerminatorAloneIsTooLittleForAnyText) {
  LogCapture log;
  const uint8_t latin1[] = {'a'};
  char text[1] = {'#'};
  EXPECT_EQ(vexa_util_ss_ascii_to_utf8(latin1, 1, text, 1), 0u);
  EXPECT_EQ(text[0], '#');
  EXPECT_TRUE(log_is(log, {error(kLatin1, "the utf8 str buffer length is not enough\n")}));
}

TEST(Latin1, LengthsThatDoubleBeyond32BitsAreRefused) {
  LogCapture log;
  const uint8_t latin1[] = {'a'};
  char text[4] = {'#'};
  EXPECT_EQ(vexa_util_ss_ascii_to_utf8(latin1, 0x80000000u, text, 4), 0u);
  EXPECT_EQ(text[0], '#');
}

}  // namespace
