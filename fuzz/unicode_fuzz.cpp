// SPDX-License-Identifier: MIT
// Texts of any content through the Unicode conversions: code, position and every character are those
// of a model that goes by the standard's table, and no buffer is overrun.
#include <vexadm/unicode.h>

#include <cstring>
#include <memory>

#include "../tests/support/unicode_model.h"
#include "fuzz_target.h"

using vexa_fuzz::check;
using vexa_test::Converted16;
using vexa_test::Converted8;
using vexa_test::model_to16;
using vexa_test::model_to8;

namespace {

// A copy at an address of exactly its size, so that one element too many is seen.
template <typename To, typename From>
std::unique_ptr<To[]> exact(const From& from) {
  auto copy = std::make_unique<To[]>(from.size());
  std::copy(from.begin(), from.end(), copy.get());
  return copy;
}

std::u16string units_of(const std::string& bytes) {
  std::u16string units(bytes.size() / 2, u'\0');
  std::memcpy(units.data(), bytes.data(), units.size() * 2);
  return units;
}

void to_utf16(const std::string& bytes, std::size_t room, std::int32_t flags) {
  const auto from = exact<std::uint8_t>(bytes);
  const auto to = std::make_unique<std::uint16_t[]>(room);
  const std::uint8_t* src = from.get();
  std::uint16_t* dst = to.get();
  Converted16 result;
  result.code = vexa_util_ConvertUTF8toUTF16(&src, src + bytes.size(), &dst, dst + room, flags);
  result.used = static_cast<std::size_t>(src - from.get());
  result.units.assign(to.get(), dst);
  check(result == model_to16(bytes, room), "UTF-8 becomes another UTF-16");
}

void to_utf8(const std::u16string& units, std::size_t room, std::int32_t flags) {
  const auto from = exact<std::uint16_t>(units);
  const auto to = std::make_unique<std::uint8_t[]>(room);
  const std::uint16_t* src = from.get();
  std::uint8_t* dst = to.get();
  Converted8 result;
  result.code = vexa_util_ConvertUTF16toUTF8(&src, src + units.size(), &dst, dst + room, flags);
  result.used = static_cast<std::size_t>(src - from.get());
  result.bytes.assign(to.get(), dst);
  check(result == model_to8(units, room, flags == 0), "UTF-16 becomes another UTF-8");
}

void to_ucs2_text(const std::string& bytes, std::size_t size) {
  const auto from = exact<char>(bytes);
  const auto to = std::make_unique<std::uint16_t[]>(size / 2);
  const std::size_t written = vexa_util_convert_utf8_to_ucs2(from.get(), bytes.size(), to.get(), size);
  if (size < 2) return check(written == 0, "a text is written into no room");
  const Converted16 model = model_to16(bytes, size / 2 - 1);
  check(written == model.units.size() * 2, "another length of UCS-2");
  check(std::memcmp(to.get(), model.units.data(), written) == 0, "another UCS-2");
  check(to[written / 2] == 0, "UCS-2 is not terminated");
}

void to_utf8_text(const std::string& bytes, std::size_t size) {
  std::u16string units = units_of(bytes);
  const auto from = exact<std::uint16_t>(units);
  const auto to = std::make_unique<char[]>(size);
  // The odd last byte is not there.
  const std::size_t written = vexa_util_convert_ucs2_to_utf8(from.get(), bytes.size(), to.get(), size);
  if (size == 0 || bytes.empty()) return check(written == 0, "nothing is written somewhere");
  const Converted8 model = model_to8(units, size - 1, false);
  check(std::string(to.get(), written) == model.bytes, "another UTF-8 text");
  check(to[written] == '\0', "UTF-8 is not terminated");
}

void latin1_text(const std::string& bytes, std::size_t size) {
  const auto from = exact<std::uint8_t>(bytes);
  const auto to = std::make_unique<char[]>(size);
  const std::uint32_t written = vexa_util_ss_ascii_to_utf8(
      from.get(), static_cast<std::uint32_t>(bytes.size()), to.get(), static_cast<std::uint32_t>(size));
  if (bytes.empty() || size < bytes.size() * 2) return check(written == 0, "Latin-1 is not refused");
  std::string expected;
  for (const char byte : bytes) {
    if (byte == '\r') continue;
    const std::string form = vexa_test::encoded8(static_cast<unsigned char>(byte));
    if (expected.size() + form.size() < size) expected += form;
  }
  check(std::string(to.get(), written) == expected, "Latin-1 becomes another UTF-8");
  check(to[written] == '\0', "UTF-8 of Latin-1 is not terminated");
}

}  // namespace

void vexa_fuzz::set_up() {}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  vexa_fuzz::Source source(data, size);
  const unsigned kind = source.byte();
  const std::size_t tight = source.byte();  // below what is enough for any text; 0: enough
  const std::string bytes = source.bytes(source.left());
  const std::size_t plenty = bytes.size() * 2 + 2;
  const std::size_t room = tight > plenty ? 0 : plenty - tight;
  const auto flags = static_cast<std::int32_t>(kind / 8 % 2);
  switch (kind % 8) {
    case 0:
    case 1:
      to_utf16(bytes, room, flags);
      break;
    case 2:
    case 3:
      to_utf8(units_of(bytes), room, flags);
      break;
    case 4:
      to_ucs2_text(bytes, room);
      break;
    case 5:
      to_utf8_text(bytes, room);
      break;
    case 6:
      latin1_text(bytes, room);
      break;
    default:
      // There and back: what was UTF-8 is so again.
      const Converted16 model = model_to16(bytes, bytes.size());
      to_utf16(bytes, bytes.size(), flags);
      to_utf8(model.units, model.used, flags);
      break;
  }
  return 0;
}
