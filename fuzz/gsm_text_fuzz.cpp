// SPDX-License-Identifier: MIT
// USSD messages of any content and scheme: what comes out is what a model says that takes septets
// from a row of bits, and no buffer is overrun.
#include <vexadm/gsm_text.h>

#include <cstring>
#include <memory>
#include <vector>

#include "../tests/support/unicode_model.h"
#include "fuzz_target.h"

using vexa_fuzz::check;

namespace {

using Bytes = std::basic_string<std::uint8_t>;

std::unique_ptr<std::uint8_t[]> exact(const Bytes& bytes) {
  auto copy = std::make_unique<std::uint8_t[]>(bytes.size());
  std::copy(bytes.begin(), bytes.end(), copy.get());
  return copy;
}

// ---- The model ----

// The characters of the default alphabet that ASCII does not have, by septet.
char32_t character_of(std::uint8_t septet) {
  static const std::u32string kLow =
      U"\x40\xA3\x24\xA5\xE8\xE9\xF9\xEC\xF2\xC7\x0A\xD8\xF8\x0D\xC5\xE5"
      U"\x394\x5F\x3A6\x393\x39B\x3A9\x3A0\x3A8\x3A3\x398\x39E\x20\xC6\xE6\xDF\xC9";
  if (septet < 32) return kLow[septet];
  switch (septet) {
    case 0x24:
      return 0xA4;
    case 0x40:
      return 0xA1;
    case 0x5B:
      return 0xC4;
    case 0x5C:
      return 0xD6;
    case 0x5D:
      return 0xD1;
    case 0x5E:
      return 0xDC;
    case 0x5F:
      return 0xA7;
    case 0x60:
      return 0xBF;
    case 0x7B:
      return 0xE4;
    case 0x7C:
      return 0xF6;
    case 0x7D:
      return 0xF1;
    case 0x7E:
      return 0xFC;
    case 0x7F:
      return 0xE0;
    default:
      return septet;
  }
}

Bytes septets_of(const Bytes& packed, std::size_t length, std::size_t most) {
  Bytes septets;
  if (length == 0 || most == 0) return septets;
  const std::size_t octets = length % 256 == 0 ? 256 : length % 256;
  for (std::size_t bit = 0; bit + 7 <= octets * 8; bit += 7) {
    unsigned value = 0;
    for (std::size_t i = 0; i < 7; ++i) {
      value |= static_cast<unsigned>(packed[(bit + i) / 8] >> (bit + i) % 8 & 1) << i;
    }
    septets.push_back(static_cast<std::uint8_t>(value));
  }
  if (octets % 7 == 0 && septets.back() == '\r') septets.pop_back();
  return septets.substr(0, std::min<std::size_t>(most, 255));
}

std::string text_of(const Bytes& septets, std::size_t size) {
  std::string text;
  for (const std::uint8_t septet : septets) {
    if (septet == '\r') continue;
    const std::string form =
        septet < 128 ? vexa_test::encoded8(character_of(septet)) : std::string(1, static_cast<char>(septet));
    if (text.size() + form.size() < size) text += form;
  }
  return text;
}

std::string packed_text_of(const Bytes& packed, std::size_t length, std::size_t size) {
  return text_of(septets_of(packed, length, 2 * length), size);
}

std::string ucs2_text_of(const Bytes& bytes, std::size_t size, bool language) {
  std::u16string units;
  for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
    char16_t unit = static_cast<char16_t>(bytes[i] * 256 + bytes[i + 1]);
    if (language && i == 0) std::memcpy(&unit, bytes.data(), 2);
    units += unit;
  }
  return vexa_test::model_to8(units, size - 1, false).bytes;
}

// '7', '8', 'U', 'L' (language and UCS-2) or '-'.
char scheme_of(unsigned dcs) {
  const unsigned group = dcs / 16;
  const char by_bits = "78U-"[dcs / 4 % 4];
  if (group == 0 || group == 2 || group == 3 || dcs == 0x10) return '7';
  if (dcs == 0x11) return 'L';
  if ((group >= 4 && group <= 7) || group == 9 || (group >= 12 && group <= 14)) return by_bits;
  return group == 15 ? "78"[dcs / 4 % 2] : '-';
}

// ---- The calls ----

void unpack(const Bytes& packed, unsigned limit) {
  const auto from = exact(packed);
  const std::int32_t most =
      limit > 250 ? static_cast<std::int32_t>(limit) - 254 : static_cast<std::int32_t>(limit);
  const std::size_t room = most < 0 ? 255 : static_cast<std::size_t>(most);
  const auto out = std::make_unique<std::uint8_t[]>(room);
  const std::int32_t count =
      vexa_util_ussd_unpack(out.get(), most, from.get(), static_cast<std::int32_t>(packed.size()));
  const Bytes expected = septets_of(packed, packed.size(), room);
  check(count == static_cast<std::int32_t>(expected.size()), "another number of septets");
  check(std::equal(expected.begin(), expected.end(), out.get()), "other septets");
}

void expect_text(const char* text, unsigned written, const std::string& expected) {
  check(written == (expected.size() & 0xFFFF), "another length");
  check(expected.compare(0, expected.size(), text, expected.size()) == 0, "another text");
  check(text[expected.size()] == '\0', "a text is not terminated");
}

void convert(const Bytes& bytes, std::size_t size, bool is_packed) {
  const auto from = exact(bytes);
  const auto to = std::make_unique<char[]>(size);
  const auto length = static_cast<std::int32_t>(bytes.size());
  const std::uint16_t written =
      is_packed ? vexa_util_convert_gsm_def_alpha_string_to_utf8(from.get(), length, to.get(), size)
                : vexa_util_convert_gsm8bit_alpha_string_to_utf8(from.get(), length, to.get(), size);
  if (bytes.empty() || size == 0) return check(written == 0, "nothing is not refused");
  expect_text(to.get(), written,
              is_packed ? packed_text_of(bytes, bytes.size(), size) : text_of(bytes, size));
}

void ussd(const Bytes& bytes, std::size_t size, unsigned dcs) {
  const auto from = exact(bytes);
  const auto to = std::make_unique<char[]>(size);
  const std::uint16_t written = vexa_util_convert_ussd_string_to_utf8(
      static_cast<std::uint8_t>(dcs), from.get(), bytes.size(), to.get(), size);
  const char scheme = scheme_of(dcs);
  const bool room = scheme == '8' ? size >= bytes.size() + 2 : size > 0;
  const bool text = scheme == '8' || bytes.size() % (scheme == '7' ? 256 : SIZE_MAX) != 0;
  if (scheme == '-' || !room || !text) return check(written == 0, "a message is not refused");
  if (scheme == '7') {
    expect_text(to.get(), written, packed_text_of(bytes, bytes.size() % 256, size));
  } else if (scheme == '8') {
    expect_text(to.get(), written, std::string(bytes.begin(), bytes.end()));
  } else {
    expect_text(to.get(), written, ucs2_text_of(bytes, size, scheme == 'L'));
  }
}

}  // namespace

void vexa_fuzz::set_up() {}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  vexa_fuzz::Source source(data, size);
  const unsigned kind = source.byte();
  const unsigned dcs = source.byte();
  const std::size_t tight = source.byte();  // below what is enough for any text; 0: enough
  const std::string rest = source.bytes(source.left());
  const Bytes bytes(rest.begin(), rest.end());
  const std::size_t plenty = bytes.size() * 3 + 3;
  const std::size_t room = tight > plenty ? 0 : plenty - tight;
  switch (kind % 4) {
    case 0:
      unpack(bytes, static_cast<unsigned>(tight));
      break;
    case 1:
      convert(bytes, room, false);
      break;
    case 2:
      convert(bytes, room, true);
      break;
    default:
      ussd(bytes, room, dcs);
      break;
  }
  check(vexa_util_UssdStringIsAscii(rest.c_str()) ==
            (std::all_of(rest.c_str(), rest.c_str() + std::strlen(rest.c_str()),
                         [](char c) { return static_cast<unsigned char>(c) < 128; })
                 ? 1
                 : 0),
        "ASCII is told wrongly");
  return 0;
}
