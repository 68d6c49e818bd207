// SPDX-License-Identifier: MIT
#include "vexadm/gsm_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bitset>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "support/failing_calloc.h"
#include "support/log_text.h"

namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using vexa_test::FailingCalloc;
using vexa_test::log_is;
using vexa_test::LogCapture;
using namespace std::string_literals;

constexpr const char* k8Bit = "oem_util_convert_gsm8bit_alpha_string_to_utf8";
constexpr const char* k7Bit = "oem_util_convert_gsm_def_alpha_string_to_utf8";
constexpr const char* kUssd = "oem_util_convert_ussd_string_to_utf8";

std::string error(const char* function, const std::string& message) {
  return "3 "s + function + "|" + message;
}
std::string debug(const char* function, const std::string& message) {
  return "0 "s + function + "|" + message;
}
std::string invalid(const char* function, int length) {
  return error(function, "Invalid parameters for GSM alphabet to UTF8 conversion, input len = " +
                             std::to_string(length) + "\n");
}

using Bytes = std::vector<uint8_t>;

Bytes bytes_of(std::string_view text) { return {text.begin(), text.end()}; }

// Septets as one row of bits, the first bit of the first one in front, cut into octets.
Bytes packed(const Bytes& septets) {
  std::string bits;
  for (const uint8_t septet : septets) {
    for (int i = 0; i < 7; ++i) bits += (septet >> i & 1) != 0 ? '1' : '0';
  }
  while (bits.size() % 8 != 0) bits += '0';
  Bytes octets;
  for (std::size_t at = 0; at < bits.size(); at += 8) {
    const std::string octet(bits.rend() - static_cast<long>(at) - 8, bits.rend() - static_cast<long>(at));
    octets.push_back(static_cast<uint8_t>(std::bitset<8>(octet).to_ulong()));
  }
  return octets;
}

Bytes unpacked(const Bytes& octets, int32_t length, int32_t most) {
  const std::size_t room = most < 0 || most > 254 ? 255 : static_cast<std::size_t>(most);
  const auto exact = std::make_unique<uint8_t[]>(octets.size());
  std::copy(octets.begin(), octets.end(), exact.get());
  Bytes out(room + 8, 0xEE);
  const int32_t count = vexa_util_ussd_unpack(out.data(), most, exact.get(), length);
  EXPECT_LE(static_cast<std::size_t>(count), room);
  EXPECT_THAT(Bytes(out.begin() + count, out.end()), Each(0xEE)) << "written behind the count";
  out.resize(static_cast<std::size_t>(count));
  return out;
}

Bytes unpacked(const Bytes& octets) { return unpacked(octets, static_cast<int32_t>(octets.size()), -1); }

Bytes some_septets(std::size_t count) {
  Bytes septets;
  for (std::size_t i = 0; i < count; ++i) septets.push_back(static_cast<uint8_t>((i * 37 + 5) % 128));
  return septets;
}

// ---- ASCII ------------------------------------------------------------------

TEST(UssdStringIsAscii, LooksAtEveryByteBeforeTheTerminator) {
  EXPECT_EQ(vexa_util_UssdStringIsAscii("plain \x7F\x01"), 1);
  EXPECT_EQ(vexa_util_UssdStringIsAscii(""), 1);
  EXPECT_EQ(vexa_util_UssdStringIsAscii("a\x80"), 0);
  EXPECT_EQ(vexa_util_UssdStringIsAscii("\xFF"), 0);
  EXPECT_EQ(vexa_util_UssdStringIsAscii("a\0\xFF"), 1);
  EXPECT_EQ(vexa_util_UssdStringIsAscii(nullptr), 0);
}

// ---- Unpacking ----------------------------------------------------------------

TEST(Unpack, Hello) { EXPECT_EQ(unpacked({0xE8, 0x32, 0x9B, 0xFD, 0x06}), bytes_of("hello")); }

TEST(Unpack, PaddingCarriageReturnOfTheLastByteIsLeftOut) {
  EXPECT_EQ(unpacked(packed(bytes_of("abcdefg\r"))), bytes_of("abcdefg"));
  EXPECT_EQ(unpacked(packed(bytes_of("abcdefgh1234567\r"))), bytes_of("abcdefgh1234567"));
}

TEST(Unpack, OtherCarriageReturnsAreSeptetsLikeOthers) {
  EXPECT_EQ(unpacked(packed(bytes_of("abcdefg\r1234567x"))), bytes_of("abcdefg\r1234567x"));
  EXPECT_EQ(unpacked(packed(bytes_of("abcdef\r"))), bytes_of("abcdef\r\0"s));
  EXPECT_EQ(unpacked(packed(bytes_of("abcdef\rh"))), bytes_of("abcdef\rh"));
  EXPECT_EQ(unpacked(packed(bytes_of("\r"))), bytes_of("\r"));
}

TEST(Unpack, EveryNumberOfSeptetsComesBack) {
  for (std::size_t count = 1; count <= 250; ++count) {
    Bytes septets = some_septets(count);
    if (count % 8 == 0) septets.back() = 'x';
    Bytes expected = septets;
    // The seven bits that are left over are one more.
    if (count % 8 == 7) expected.push_back(0);
    ASSERT_EQ(unpacked(packed(septets)), expected) << count;
  }
}

TEST(Unpack, LengthIsTakenModulo256) {
  const Bytes septets = some_septets(342);
  const Bytes octets = packed(septets);
  ASSERT_EQ(octets.size(), 300u);
  const Bytes result = unpacked(octets, 300, 255);
  EXPECT_EQ(result.size(), 50u);
  EXPECT_EQ(result, Bytes(septets.begin(), septets.begin() + 50));
  EXPECT_EQ(unpacked(octets, 257, 255).size(), 1u);
  EXPECT_EQ(unpacked(octets, 512 + 44, 255).size(), 50u);
}

TEST(Unpack, LengthOf256IsNotNothing) {
  const Bytes septets = some_septets(292);
  EXPECT_EQ(unpacked(packed(septets), 256, -1), Bytes(septets.begin(), septets.begin() + 255));
}

// Padding is looked for in the last byte that is read, not in the last one that is there.
TEST(Unpack, PaddingCountsForTheLengthThatIsLeft) {
  Bytes octets = packed(bytes_of("abcdefg\r"));
  octets.resize(263, 0xFF);
  EXPECT_EQ(unpacked(octets, 263, -1), bytes_of("abcdefg"));
}

TEST(Unpack, LimitIs255WhenItIsNegativeOrAbove254) {
  const Bytes octets = packed(some_septets(292));
  for (const int32_t most : {-1, INT32_MIN, 255, 256, 1000, INT32_MAX}) {
    EXPECT_EQ(unpacked(octets, 256, most).size(), 255u) << most;
  }
  EXPECT_EQ(unpacked(octets, 256, 254).size(), 254u);
  EXPECT_EQ(unpacked(octets, 256, 1).size(), 1u);
}

// Also where a byte completes two septets, of which one has room.
TEST(Unpack, EveryLimitHolds) {
  const Bytes septets = some_septets(40);
  for (int32_t most = 1; most <= 40; ++most) {
    ASSERT_EQ(unpacked(packed(septets), 35, most), Bytes(septets.begin(), septets.begin() + most));
  }
  EXPECT_EQ(unpacked(packed(bytes_of("abcdefg\r")), 7, 7), bytes_of("abcdefg"));
}

TEST(Unpack, NothingOfNothing) {
  uint8_t out = 0xEE;
  const uint8_t octet = 'a';
  EXPECT_EQ(vexa_util_ussd_unpack(nullptr, 1, &octet, 1), 0);
  EXPECT_EQ(vexa_util_ussd_unpack(&out, 0, &octet, 1), 0);
  EXPECT_EQ(vexa_util_ussd_unpack(&out, 1, nullptr, 1), 0);
  EXPECT_EQ(vexa_util_ussd_unpack(&out, 1, &octet, 0), 0);
  EXPECT_EQ(vexa_util_ussd_unpack(&out, 1, &octet, -1), 0);
  EXPECT_EQ(out, 0xEE);
}

// ---- The alphabet -----------------------------------------------------------------

// The chart of 3GPP TS 23.038, 6.2.1, as it is printed: columns by bits 7 to 5, rows by bits 4 to 1.
constexpr uint16_t kChart[16][8] = {
    {0x0040, 0x0394, 0x0020, 0x0030, 0x00A1, 0x0050, 0x00BF, 0x0070},
    {0x00A3, 0x005F, 0x0021, 0x0031, 0x0041, 0x0051, 0x0061, 0x0071},
    {0x0024, 0x03A6, 0x0022, 0x0032, 0x0042, 0x0052, 0x0062, 0x0072},
    {0x00A5, 0x0393, 0x0023, 0x0033, 0x0043, 0x0053, 0x0063, 0x0073},
    {0x00E8, 0x039B, 0x00A4, 0x0034, 0x0044, 0x0054, 0x0064, 0x0074},
    {0x00E9, 0x03A9, 0x0025, 0x0035, 0x0045, 0x0055, 0x0065, 0x0075},
    {0x00F9, 0x03A0, 0x0026, 0x0036, 0x0046, 0x0056, 0x0066, 0x0076},
    {0x00EC, 0x03A8, 0x0027, 0x0037, 0x0047, 0x0057, 0x0067, 0x0077},
    {0x00F2, 0x03A3, 0x0028, 0x0038, 0x0048, 0x0058, 0x0068, 0x0078},
    {0x00C7, 0x0398, 0x0029, 0x0039, 0x0049, 0x0059, 0x0069, 0x0079},
    {0x000A, 0x039E, 0x002A, 0x003A, 0x004A, 0x005A, 0x006A, 0x007A},
    {0x00D8, 0x0020, 0x002B, 0x003B, 0x004B, 0x00C4, 0x006B, 0x00E4},
    {0x00F8, 0x00C6, 0x002C, 0x003C, 0x004C, 0x00D6, 0x006C, 0x00F6},
    {0x000D, 0x00E6, 0x002D, 0x003D, 0x004D, 0x00D1, 0x006D, 0x00F1},
    {0x00C5, 0x00DF, 0x002E, 0x003E, 0x004E, 0x00DC, 0x006E, 0x00FC},
    {0x00E5, 0x00C9, 0x002F, 0x003F, 0x004F, 0x00A7, 0x006F, 0x00E0},
};

std::string utf8_of(unsigned c) {
  if (c < 0x80) return {static_cast<char>(c)};
  return {static_cast<char>(0xC0 + c / 64), static_cast<char>(0x80 + c % 64)};
}

std::string text_of(const Bytes& septets, std::size_t size = 1024) {
  std::vector<char> text(size + 1, '#');
  const uint16_t written = vexa_util_convert_gsm8bit_alpha_string_to_utf8(
      septets.data(), static_cast<int32_t>(septets.size()), text.data(), size);
  EXPECT_LT(written, size);
  EXPECT_EQ(text[written], '\0');
  EXPECT_EQ(text.back(), '#');
  return std::string(text.data(), written);
}

TEST(GsmAlphabet, EverySeptetIsTheCharacterOfTheChart) {
  for (unsigned column = 0; column < 8; ++column) {
    for (unsigned row = 0; row < 16; ++row) {
      const auto septet = static_cast<uint8_t>(column * 16 + row);
      const std::string expected = septet == 13 ? "" : utf8_of(kChart[row][column]);
      EXPECT_EQ(text_of({septet}), expected) << unsigned{septet};
    }
  }
}

TEST(GsmAlphabet, PoundAndCapitalCedillaAndGreek) {
  EXPECT_EQ(text_of({1, 9, 16, 0x7F}), "\xC2\xA3\xC3\x87\xCE\x94\xC3\xA0");
}

TEST(GsmAlphabet, EscapeIsABlankAndWhatItEscapesIsItself) {
  EXPECT_EQ(text_of({27, 40}), " (");
  EXPECT_EQ(text_of({27, 0x65}), " e");
}

TEST(Gsm8Bit, BytesAbove127AreCopied) {
  for (unsigned byte = 128; byte < 256; ++byte) {
    EXPECT_EQ(text_of({static_cast<uint8_t>(byte)}), std::string(1, static_cast<char>(byte)));
  }
}

TEST(Gsm8Bit, CarriageReturnIsSkippedWithItsIndex) {
  LogCapture log;
  EXPECT_EQ(text_of({'a', 13, 1, 13}), "a\xC2\xA3");
  EXPECT_TRUE(log_is(log, {debug(k8Bit, "ignored CR charecter at index = 1\n"),
                           debug(k8Bit, "ignored CR charecter at index = 3\n")}));
}

TEST(Gsm8Bit, CharacterOfTwoBytesThatDoesNotFitIsDroppedAndTheScanGoesOn) {
  LogCapture log;
  EXPECT_EQ(text_of({'a', 1, 2, 'b'}, 3), "a$");
  EXPECT_EQ(text_of({'a', 1, 1, 'b'}, 3), "ab");
  EXPECT_EQ(text_of({'a', 1, 'b'}, 4), "a\xC2\xA3");
  EXPECT_EQ(text_of({1}, 2), "");
  EXPECT_EQ(text_of({1}, 3), "\xC2\xA3");
  EXPECT_TRUE(log_is(log, {}));
}

TEST(Gsm8Bit, ScanEndsWhereTheRoomDoes) {
  LogCapture log;
  EXPECT_EQ(text_of({'a', 'b', 13}, 3), "ab");
  EXPECT_TRUE(log_is(log, {})) << "what is behind the room is not looked at";
}

TEST(Gsm8Bit, SizeOneGivesAnEmptyText) {
  LogCapture log;
  EXPECT_EQ(text_of({'a', 13}, 1), "");
  EXPECT_TRUE(log_is(log, {}));
}

TEST(Gsm8Bit, NullAndNothingAreRefused) {
  LogCapture log;
  const uint8_t septet = 'a';
  char text[2] = {'#', '#'};
  EXPECT_EQ(vexa_util_convert_gsm8bit_alpha_string_to_utf8(nullptr, 7, text, 2), 0);
  EXPECT_EQ(vexa_util_convert_gsm8bit_alpha_string_to_utf8(&septet, 0, text, 2), 0);
  EXPECT_EQ(vexa_util_convert_gsm8bit_alpha_string_to_utf8(&septet, -1, text, 2), 0);
  EXPECT_EQ(vexa_util_convert_gsm8bit_alpha_string_to_utf8(&septet, 1, nullptr, 2), 0);
  EXPECT_EQ(vexa_util_convert_gsm8bit_alpha_string_to_utf8(&septet, 1, text, 0), 0);
  EXPECT_THAT(text, ElementsAre('#', '#'));
  EXPECT_TRUE(log_is(
      log, {invalid(k8Bit, 7), invalid(k8Bit, 0), invalid(k8Bit, -1), invalid(k8Bit, 1), invalid(k8Bit, 1)}));
}

TEST(Gsm8Bit, ResultHas16Bits) {
  const Bytes septets(65536 + 3, 'a');
  std::vector<char> text(70000);
  EXPECT_EQ(vexa_util_convert_gsm8bit_alpha_string_to_utf8(septets.data(), 65539, text.data(), text.size()),
            3);
  EXPECT_EQ(strlen(text.data()), 65539u);
}

std::string text_of_packed(const Bytes& octets, int32_t length, std::size_t size = 1024) {
  std::vector<char> text(size, '#');
  const uint16_t written =
      vexa_util_convert_gsm_def_alpha_string_to_utf8(octets.data(), length, text.data(), size);
  EXPECT_EQ(text[written], '\0');
  return std::string(text.data(), written);
}

TEST(Gsm7Bit, UnpacksAndConverts) {
  LogCapture log;
  EXPECT_EQ(text_of_packed(packed({'h', 0x05, 1, 27, 40}), 5), "h\xC3\xA9\xC2\xA3 (");
  EXPECT_TRUE(log_is(log, {}));
}

TEST(Gsm7Bit, CarriageReturnThatIsNoPaddingIsSkipped) {
  LogCapture log;
  EXPECT_EQ(text_of_packed(packed(bytes_of("a\rb")), 3), "ab");
  EXPECT_TRUE(log_is(log, {debug(k8Bit, "ignored CR charecter at index = 1\n")}));
}

TEST(Gsm7Bit, LongTextsEndAt255Septets) {
  const Bytes octets = packed(Bytes(292, 'a'));
  EXPECT_EQ(text_of_packed(octets, 256), std::string(255, 'a'));
  EXPECT_EQ(text_of_packed(packed(Bytes(342, 'a')), 300), std::string(50, 'a'));
  EXPECT_EQ(text_of_packed(packed(Bytes(292, 1)), 255, 600).size(), 510u);
}

TEST(Gsm7Bit, SizeOneGivesAnEmptyText) { EXPECT_EQ(text_of_packed({'a'}, 1, 1), ""); }

TEST(Gsm7Bit, NullAndNothingAreRefused) {
  LogCapture log;
  const uint8_t octet = 'a';
  char text[2] = {'#', '#'};
  EXPECT_EQ(vexa_util_convert_gsm_def_alpha_string_to_utf8(nullptr, 7, text, 2), 0);
  EXPECT_EQ(vexa_util_convert_gsm_def_alpha_string_to_utf8(&octet, 0, text, 2), 0);
  EXPECT_EQ(vexa_util_convert_gsm_def_alpha_string_to_utf8(&octet, -3, text, 2), 0);
  EXPECT_EQ(vexa_util_convert_gsm_def_alpha_string_to_utf8(&octet, 1, nullptr, 2), 0);
  EXPECT_EQ(vexa_util_convert_gsm_def_alpha_string_to_utf8(&octet, 1, text, 0), 0);
  EXPECT_THAT(text, ElementsAre('#', '#'));
  EXPECT_TRUE(log_is(
      log, {invalid(k7Bit, 7), invalid(k7Bit, 0), invalid(k7Bit, -3), invalid(k7Bit, 1), invalid(k7Bit, 1)}));
}

TEST(Gsm7Bit, WithoutMemoryThereIsNoTextAndOneLineSaysSo) {
  VEXA_NEEDS_OWN_CALLOC();
  LogCapture log;
  const Bytes octets(3889, 'a');
  char text[2] = {'#', '#'};
  {
    const FailingCalloc no_memory(7778);
    EXPECT_EQ(vexa_util_convert_gsm_def_alpha_string_to_utf8(octets.data(), 3889, text, 2), 0);
  }
  EXPECT_THAT(text, ElementsAre('#', '#'));
  EXPECT_TRUE(log_is(log, {error(k7Bit, "Fail to allocate buffer for GSM alphabet to UTF8 conversion\n")}));
}

// ---- USSD ---------------------------------------------------------------------------

// One row for each group of the data coding scheme, one letter for each low nibble: 7-bit, 8-bit,
// UCS-2, language and UCS-2, none.
constexpr std::string_view kGroups[16] = {
    "7777777777777777", "7L--------------", "7777777777777777", "7777777777777777",
    "77778888UUUU----", "77778888UUUU----", "77778888UUUU----", "77778888UUUU----",
    "----------------", "77778888UUUU----", "----------------", "----------------",
    "77778888UUUU----", "77778888UUUU----", "77778888UUUU----", "7777888877778888",
};

class UssdScheme : public ::testing::TestWithParam<int> {};

TEST_P(UssdScheme, IsDecodedByItsGroup) {
  const int hi = GetParam();
  const Bytes octets = packed(bytes_of("ok2x"));
  for (int lo = 0; lo < 16; ++lo) {
    LogCapture log;
    std::vector<char> text(64, '#');
    const uint16_t written = vexa_util_convert_ussd_string_to_utf8(
        static_cast<uint8_t>(hi * 16 + lo), octets.data(), octets.size(), text.data(), text.size());
    const std::string nibbles = " str, hi " + std::to_string(hi) + " lo " + std::to_string(lo) + ": ";
    const auto shown = [&](const char* name, const std::string& message) {
      return debug(kUssd, "USSD DCS "s + name + nibbles + message + "\n");
    };
    const std::string result(text.data(), written);
    std::vector<std::string> lines;
    switch (kGroups[hi][static_cast<std::size_t>(lo)]) {
      case '7':
        EXPECT_EQ(result, "ok2x");
        lines = {shown("7-bit", "ok2x")};
        break;
      case '8':
        EXPECT_EQ(result, std::string(octets.begin(), octets.end()));
        lines = {shown("8-bit", result)};
        break;
      case 'U':
      case 'L':
        EXPECT_GT(written, 0);
        lines = {debug(kUssd, kGroups[hi][static_cast<std::size_t>(lo)] == 'U'
                                  ? "ussd string size = 4\n"
                                  : "ussd string size preceded by language = 4\n"),
                 shown("UCS2", result)};
        break;
      default:
        EXPECT_EQ(written, 0);
        EXPECT_EQ(text[0], '#');
        break;
    }
    EXPECT_TRUE(log_is(log, lines)) << hi << " " << lo;
  }
}

INSTANTIATE_TEST_SUITE_P(Groups, UssdScheme, ::testing::Range(0, 16));

struct Decoded {
  uint16_t written;
  std::string text;
};

Decoded ussd(uint8_t dcs, const Bytes& src, std::size_t size = 256) {
  const auto exact = std::make_unique<uint8_t[]>(src.size());
  std::copy(src.begin(), src.end(), exact.get());
  std::vector<char> text(size + 1, '#');
  const uint16_t written =
      vexa_util_convert_ussd_string_to_utf8(dcs, exact.get(), src.size(), text.data(), size);
  EXPECT_EQ(text[size], '#');
  return {written, std::string(text.begin(), std::find(text.begin(), text.end(), '\0'))};
}

TEST(Ussd, PackedHello) {
  LogCapture log;
  const Decoded decoded = ussd(0x0F, {0xE8, 0x32, 0x9B, 0xFD, 0x06});
  EXPECT_EQ(decoded.written, 5);
  EXPECT_EQ(decoded.text, "hello");
  EXPECT_TRUE(log_is(log, {debug(kUssd, "USSD DCS 7-bit str, hi 0 lo 15: hello\n")}));
}

TEST(Ussd, LanguageBeforeSevenBitTextStaysInTheText) {
  EXPECT_EQ(ussd(0x10, packed(bytes_of("en\rhello"))).text, "enhello");
}

TEST(Ussd, SevenBitLengthIsTakenModulo256) {
  LogCapture log;
  EXPECT_EQ(ussd(0x0F, packed(Bytes(342, 'a'))).text, std::string(50, 'a'));
  log.clear();
  const Decoded decoded = ussd(0x0F, Bytes(256, 'a'));
  EXPECT_EQ(decoded.written, 0);
  EXPECT_EQ(decoded.text[0], '#');
  EXPECT_TRUE(log_is(log, {invalid(k7Bit, 0), debug(kUssd, "USSD DCS 7-bit str, hi 0 lo 15: \n")}));
}

TEST(Ussd, EmptySevenBitTextIsRefused) {
  LogCapture log;
  EXPECT_EQ(ussd(0x0F, {}).written, 0);
  EXPECT_TRUE(log_is(log, {invalid(k7Bit, 0), debug(kUssd, "USSD DCS 7-bit str, hi 0 lo 15: \n")}));
}

TEST(Ussd, SevenBitTextWithoutRoomIsRefused) {
  LogCapture log;
  EXPECT_EQ(ussd(0x00, {'a'}, 0).written, 0);
  EXPECT_TRUE(log_is(log, {invalid(k7Bit, 1), debug(kUssd, "USSD DCS 7-bit str, hi 0 lo 0: \n")}));
}

TEST(Ussd, EightBitBytesAreCopiedAsTheyAre) {
  LogCapture log;
  const Decoded decoded = ussd(0x44, {'a', 0x00, 0x0D, 0xE9, 0x1B});
  EXPECT_EQ(decoded.written, 5);
  EXPECT_EQ(decoded.text, "a");
  EXPECT_TRUE(log_is(log, {debug(kUssd, "USSD DCS 8-bit str, hi 4 lo 4: a\n")}));
}

TEST(Ussd, EightBitTextNeedsAByteMoreThanItsTerminator) {
  LogCapture log;
  const Bytes ten(10, 'x');
  const Decoded refused = ussd(0x44, ten, 11);
  EXPECT_EQ(refused.written, 0);
  EXPECT_EQ(refused.text, std::string(12, '#'));
  EXPECT_TRUE(log_is(log, {error(kUssd, "Destination buffer (sz 11) less than required 11\n")}));
  const Decoded done = ussd(0x44, ten, 12);
  EXPECT_EQ(done.written, 10);
  EXPECT_EQ(done.text, std::string(10, 'x'));
}

TEST(Ussd, EightBitTextWithoutRoomIsRefused) {
  LogCapture log;
  EXPECT_EQ(ussd(0xF4, {'a'}, 0).written, 0);
  EXPECT_EQ(ussd(0xF4, {}, 1).written, 0);
  EXPECT_TRUE(log_is(log, {error(kUssd, "Destination buffer (sz 0) less than required 2\n"),
                           error(kUssd, "Destination buffer (sz 1) less than required 1\n")}));
  log.clear();
  EXPECT_EQ(ussd(0xF4, {}, 2).text, "");
  EXPECT_TRUE(log_is(log, {debug(kUssd, "USSD DCS 8-bit str, hi 15 lo 4: \n")}));
}

TEST(Ussd, EightBitResultHas16Bits) { EXPECT_EQ(ussd(0x44, Bytes(65536 + 7, 'x'), 65546).written, 7); }

TEST(Ussd, Ucs2HasItsHighByteFirst) {
  LogCapture log;
  const Decoded decoded = ussd(0x48, {0x00, 'a', 0x20, 0xAC, 0xD8, 0x3D, 0xDE, 0x00});
  EXPECT_EQ(decoded.text, "a\xE2\x82\xAC\xF0\x9F\x98\x80");
  EXPECT_EQ(decoded.written, 8);
  EXPECT_TRUE(log_is(log, {debug(kUssd, "ussd string size = 8\n"),
                           debug(kUssd, "USSD DCS UCS2 str, hi 4 lo 8: a\xE2\x82\xAC\xF0\x9F\x98\x80\n")}));
}

TEST(Ussd, OddLastByteOfUcs2IsLeftOut) {
  EXPECT_EQ(ussd(0x48, {0x00, 'a', 0x00, 'b', 'c'}).text, "ab");
  EXPECT_EQ(ussd(0x48, {'c'}).written, 0);
  EXPECT_EQ(ussd(0x11, {'c'}).written, 0);
  EXPECT_EQ(ussd(0x48, {'c'}).text, "");
}

TEST(Ussd, LanguageBeforeUcs2IsTheFirstCharacterUnswapped) {
  LogCapture log;
  const Bytes text = {'e', 'n', 0x00, 'a', 0x04, 0x31};
  char first[4] = {};
  uint16_t host = 0;
  memcpy(&host, "en", sizeof host);
  first[0] = static_cast<char>(0xE0 | host >> 12);
  first[1] = static_cast<char>(0x80 | (host >> 6 & 0x3F));
  first[2] = static_cast<char>(0x80 | (host & 0x3F));
  const std::string expected = std::string(first) + "a\xD0\xB1";
  EXPECT_EQ(ussd(0x11, text).text, expected);
  EXPECT_TRUE(log_is(log, {debug(kUssd, "ussd string size preceded by language = 6\n"),
                           debug(kUssd, "USSD DCS UCS2 str, hi 1 lo 1: " + expected + "\n")}));
}

TEST(Ussd, EmptyUcs2IsRefused) {
  LogCapture log;
  EXPECT_EQ(ussd(0x48, {}).written, 0);
  EXPECT_TRUE(log_is(log, {debug(kUssd, "ussd string size = 0\n"),
                           error("oem_util_convert_ucs2_to_utf8", "utf8str or utf8Start is NULL\n"),
                           debug(kUssd, "USSD DCS UCS2 str, hi 4 lo 8: \n")}));
}

TEST(Ussd, Ucs2ThatDoesNotFitIsCut) {
  LogCapture log;
  const Decoded decoded = ussd(0x48, {0x20, 0xAC, 0x20, 0xAC}, 6);
  EXPECT_EQ(decoded.text, "\xE2\x82\xAC");
  EXPECT_TRUE(log_is(log, {debug(kUssd, "ussd string size = 4\n"),
                           debug("oem_util_convert_ucs2_to_utf8",
                                 "String has been truncated. Buffer size of 6 not large enough\n"),
                           debug(kUssd, "USSD DCS UCS2 str, hi 4 lo 8: \xE2\x82\xAC\n")}));
}

TEST(Ussd, Ucs2WithoutMemoryGivesNoTextAndOneLineSaysSo) {
  VEXA_NEEDS_OWN_CALLOC();
  LogCapture log;
  const Bytes octets(7776, 'a');
  char text[2] = {'#', '#'};
  {
    const FailingCalloc no_memory(7778);
    EXPECT_EQ(vexa_util_convert_ussd_string_to_utf8(0x48, octets.data(), octets.size(), text, 2), 0);
  }
  EXPECT_THAT(text, ElementsAre('#', '#'));
  EXPECT_TRUE(log_is(log, {error(kUssd, "USC2 to UTF8 conversion failed due to lack of memory\n")}));
}

TEST(Ussd, UnsupportedSchemeGivesNothingAndSaysNothing) {
  LogCapture log;
  const Decoded decoded = ussd(0x4C, {'a'});
  EXPECT_EQ(decoded.written, 0);
  EXPECT_EQ(decoded.text[0], '#');
  EXPECT_TRUE(log_is(log, {}));
}

TEST(Ussd, NullIsRefusedWhateverTheScheme) {
  for (const int dcs : {0x0F, 0x44, 0x48, 0x4C}) {
    LogCapture log;
    const uint8_t octet = 'a';
    char text[8] = {'#'};
    EXPECT_EQ(vexa_util_convert_ussd_string_to_utf8(static_cast<uint8_t>(dcs), nullptr, 1, text, 8), 0);
    EXPECT_EQ(vexa_util_convert_ussd_string_to_utf8(static_cast<uint8_t>(dcs), &octet, 1, nullptr, 8), 0);
    EXPECT_EQ(text[0], '#');
    EXPECT_TRUE(log_is(log, std::vector(2, error(kUssd, "FATAL : CHECK FAILED\n"))));
  }
}

}  // namespace
