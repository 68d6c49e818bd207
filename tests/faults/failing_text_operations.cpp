// SPDX-License-Identifier: MIT
// GSM and Unicode text.
#include <vexadm/vexadm.h>

#include <cstring>

#include "faults/failing_operations.h"

namespace vexa_test {
namespace {

constexpr std::uint8_t kPackedHello[] = {0xE8, 0x32, 0x9B, 0xFD, 0x06};

std::int64_t verdict(bool good) { return good ? 0 : 999; }

char g_text[64];

// What a conversion gave: nothing or all of it.
std::int64_t hello_or_nothing(unsigned written) {
  if (written == 0) return -1;
  return verdict(written == 5 && std::strcmp(g_text, "hello") == 0);
}

std::int64_t convert_units() {
  const char source[] = "h\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";
  std::uint16_t units[16];
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(source);
  std::uint16_t* end = units;
  bool good = CALL(vexa_util_ConvertUTF8toUTF16)(&bytes, bytes + 10, &end, units + 16, 0) == 0;
  good = good && end == units + 5;
  const std::uint16_t* from = units;
  auto* to = reinterpret_cast<std::uint8_t*>(g_text);
  good = good && CALL(vexa_util_ConvertUTF16toUTF8)(&from, end, &to, to + sizeof g_text, 0) == 0;
  good = good && std::memcmp(g_text, source, 10) == 0;
  good = good && CALL(vexa_util_convert_utf8_to_ucs2)(source, 10, units, sizeof units) == 10;
  good = good && CALL(vexa_util_convert_ucs2_to_utf8)(units, 10, g_text, sizeof g_text) == 10;
  const std::uint8_t latin1[] = {'h', 0xE9, 13};
  return verdict(good && CALL(vexa_util_ss_ascii_to_utf8)(latin1, 3, g_text, sizeof g_text) == 3);
}

std::int64_t convert_septets() {
  std::uint8_t septets[8];
  bool good = CALL(vexa_util_UssdStringIsAscii)("hello") == 1;
  good = good && CALL(vexa_util_ussd_unpack)(septets, 8, kPackedHello, 5) == 5;
  good = good && CALL(vexa_util_convert_gsm8bit_alpha_string_to_utf8)(septets, 5, g_text, sizeof g_text) == 5;
  return verdict(good && vexa_util_convert_ussd_string_to_utf8(0x44, septets, 5, g_text, sizeof g_text) == 5);
}

std::int64_t refuse_texts() {
  const std::uint8_t latin1[] = {0xE9};
  std::uint16_t units[2];
  bool good = vexa_util_convert_utf8_to_ucs2("\xFF", 1, units, sizeof units) == 0;
  good = good && vexa_util_convert_ucs2_to_utf8(nullptr, 2, g_text, sizeof g_text) == 0;
  good = good && vexa_util_ss_ascii_to_utf8(latin1, 1, g_text, 1) == 0;
  good = good && vexa_util_convert_gsm8bit_alpha_string_to_utf8(latin1, 0, g_text, 8) == 0;
  return verdict(good && vexa_util_convert_ussd_string_to_utf8(0x44, latin1, 1, g_text, 2) == 0);
}

std::int64_t convert_ussd(std::uint8_t dcs, const std::uint8_t* text, std::size_t length) {
  return hello_or_nothing(
      CALL(vexa_util_convert_ussd_string_to_utf8)(dcs, text, length, g_text, sizeof g_text));
}

}  // namespace

std::vector<Operation> text_conversion_operations() {
  return {
      {.name = "UnicodeText", .run = convert_units, .answers = {{0}}, .reach = Reach::kNothing},
      {.name = "Septets", .run = convert_septets, .answers = {{0}}, .reach = Reach::kNothing},
      {.name = "TextConversionsRefused",
       .run = refuse_texts,
       .answers = {{0, "3 oem_util_convert_utf8_to_ucs2|Error in converting utf8 string to ucs2\n"}}},
      {.name = "PackedText",
       .run =
           [] {
             return hello_or_nothing(CALL(vexa_util_convert_gsm_def_alpha_string_to_utf8)(
                 kPackedHello, 5, g_text, sizeof g_text));
           },
       .answers =
           {{0},
            {-1,
             "3 oem_util_convert_gsm_def_alpha_string_to_utf8|Fail to allocate buffer for GSM alphabet "
             "to UTF8 conversion\n"}},
       .reach = Reach::kMemory},
      {.name = "UssdSevenBit",
       .run = [] { return convert_ussd(0x0F, kPackedHello, sizeof kPackedHello); },
       .answers =
           {{0},
            {-1,
             "3 oem_util_convert_gsm_def_alpha_string_to_utf8|Fail to allocate buffer for GSM alphabet "
             "to UTF8 conversion\n"}},
       .reach = Reach::kMemory},
      {.name = "UssdUcs2",
       .run =
           [] {
             constexpr std::uint8_t kHello[] = {0, 'h', 0, 'e', 0, 'l', 0, 'l', 0, 'o'};
             return convert_ussd(0x48, kHello, sizeof kHello);
           },
       .answers = {{0},
                   {-1,
                    "3 oem_util_convert_ussd_string_to_utf8|USC2 to UTF8 conversion failed due to lack of "
                    "memory\n"}},
       .reach = Reach::kMemory},
  };
}

}  // namespace vexa_test
