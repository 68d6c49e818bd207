// SPDX-License-Identifier: MIT
// Conversions between UTF-8 and UTF-16 beside those of ICU and of the C library, and for ASCII
// beside copying what comes out, or goes in where that is more.
#include <benchmark/benchmark.h>
#include <iconv.h>
#include <unicode/ustring.h>
#include <vexadm/unicode.h>

#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

namespace bench {
namespace {

constexpr std::size_t kLong = 4096;  // bytes of UTF-8
constexpr std::size_t kShort = 64;

struct Text {
  std::string utf8;
  std::u16string utf16;
};

using Texts = std::vector<Text>;

// Words of 2 to 10 letters.
class Writer {
 public:
  explicit Writer(unsigned seed) : random_(seed) {}

  unsigned below(unsigned limit) { return static_cast<unsigned>(random_() % limit); }
  std::u32string word(const std::function<char32_t()>& letter) {
    std::u32string text;
    for (unsigned count = 2 + below(9); count > 0; --count) text += letter();
    return text;
  }

 private:
  std::mt19937 random_;
};

using Script = std::u32string (*)(Writer&);

std::u32string ascii(Writer& writer) {
  return writer.word([&] { return U'a' + writer.below(26); }) + U" ";
}
std::u32string latin(Writer& writer) {
  return writer.word([&] {
    return writer.below(12) == 0 ? U'\xC0' + writer.below(64) : U'a' + writer.below(26);
  }) + U" ";
}
std::u32string cyrillic(Writer& writer) {
  return writer.word([&] { return U'\x430' + writer.below(32); }) + (writer.below(8) == 0 ? U", " : U" ");
}
std::u32string cjk(Writer& writer) {
  return writer.word([&] { return U'\x4E00' + writer.below(0x5000); }) +
         (writer.below(2) == 0 ? U"\x3002" : U"");
}
std::u32string emoji(Writer& writer) { return {U'\x1F600' + writer.below(64)}; }

// ASCII words with some faces between them.
std::u32string chat(Writer& writer) { return writer.below(5) == 0 ? emoji(writer) + U" " : ascii(writer); }

void append(Text& text, char32_t c) {
  const uint16_t pair[] = {static_cast<uint16_t>(0xD7C0 + (c >> 10)),
                           static_cast<uint16_t>(0xDC00 + (c & 0x3FF))};
  const uint16_t unit = static_cast<uint16_t>(c);
  const uint16_t* src = c < 0x10000 ? &unit : pair;
  const uint16_t* const src_end = src + (c < 0x10000 ? 1 : 2);
  text.utf16.append(src, src_end);
  uint8_t bytes[4];
  uint8_t* dst = bytes;
  vexa_util_ConvertUTF16toUTF8(&src, src_end, &dst, bytes + sizeof bytes, VEXA_UNICODE_STRICT);
  text.utf8.append(bytes, dst);
}

// Different ones in turn: a processor learns the branches of a single text of this size by heart.
Texts texts_of(Script script, std::size_t size) {
  Texts texts(16);
  Writer writer(1);
  for (Text& text : texts) {
    while (text.utf8.size() + 4 <= size) {
      for (const char32_t c : script(writer)) {
        if (text.utf8.size() + 4 <= size) append(text, c);
      }
    }
    while (text.utf8.size() < size) append(text, U'.');
  }
  return texts;
}

// ---- One direction of one library ----
// Room is what is needed and no more; each gives the number of elements that came out.

template <typename To>
using Convert = std::size_t (*)(const Text&, To*, std::size_t room);

std::size_t ours_to16(const Text& text, uint16_t* to, std::size_t room) {
  const auto* src = reinterpret_cast<const uint8_t*>(text.utf8.data());
  uint16_t* dst = to;
  vexa_util_ConvertUTF8toUTF16(&src, src + text.utf8.size(), &dst, to + room, VEXA_UNICODE_STRICT);
  return static_cast<std::size_t>(dst - to);
}

std::size_t ours_to8(const Text& text, uint8_t* to, std::size_t room) {
  const auto* src = reinterpret_cast<const uint16_t*>(text.utf16.data());
  uint8_t* dst = to;
  vexa_util_ConvertUTF16toUTF8(&src, src + text.utf16.size(), &dst, to + room, VEXA_UNICODE_STRICT);
  return static_cast<std::size_t>(dst - to);
}

std::size_t our_text_to16(const Text& text, uint16_t* to, std::size_t room) {
  return vexa_util_convert_utf8_to_ucs2(text.utf8.data(), text.utf8.size(), to, (room + 1) * 2) / 2;
}

std::size_t our_text_to8(const Text& text, uint8_t* to, std::size_t room) {
  return vexa_util_convert_ucs2_to_utf8(reinterpret_cast<const uint16_t*>(text.utf16.data()),
                                        text.utf16.size() * 2, reinterpret_cast<char*>(to), room + 1);
}

std::size_t icu_to16(const Text& text, uint16_t* to, std::size_t room) {
  UErrorCode error = U_ZERO_ERROR;
  int32_t written = 0;
  u_strFromUTF8(reinterpret_cast<UChar*>(to), static_cast<int32_t>(room), &written, text.utf8.data(),
                static_cast<int32_t>(text.utf8.size()), &error);
  return static_cast<std::size_t>(written);
}

std::size_t icu_to8(const Text& text, uint8_t* to, std::size_t room) {
  UErrorCode error = U_ZERO_ERROR;
  int32_t written = 0;
  u_strToUTF8(reinterpret_cast<char*>(to), static_cast<int32_t>(room), &written, text.utf16.data(),
              static_cast<int32_t>(text.utf16.size()), &error);
  return static_cast<std::size_t>(written);
}

std::size_t convert_by_iconv(iconv_t descriptor, const void* from, std::size_t left, void* to,
                             std::size_t room) {
  std::size_t space = room;
  char* src = const_cast<char*>(static_cast<const char*>(from));
  char* dst = static_cast<char*>(to);
  iconv(descriptor, &src, &left, &dst, &space);
  return room - space;
}

std::size_t iconv_to16(const Text& text, uint16_t* to, std::size_t room) {
  static const iconv_t descriptor = iconv_open("UTF-16LE", "UTF-8");
  return convert_by_iconv(descriptor, text.utf8.data(), text.utf8.size(), to, room * 2) / 2;
}

std::size_t iconv_to8(const Text& text, uint8_t* to, std::size_t room) {
  static const iconv_t descriptor = iconv_open("UTF-8", "UTF-16LE");
  return convert_by_iconv(descriptor, text.utf16.data(), text.utf16.size() * 2, to, room);
}

std::size_t copy_to16(const Text& text, uint16_t* to, std::size_t) {
  std::memcpy(to, text.utf16.data(), text.utf16.size() * 2);
  return text.utf16.size();
}

std::size_t copy_to8(const Text& text, uint8_t* to, std::size_t) {
  std::memcpy(to, text.utf8.data(), text.utf8.size());
  return text.utf8.size();
}

// ---- Rows ----

const std::u16string& result_of(const Text& text, const uint16_t*) { return text.utf16; }
const std::string& result_of(const Text& text, const uint8_t*) { return text.utf8; }

template <typename To>
void measure(benchmark::State& state, Script script, std::size_t size, Convert<To> convert) {
  const Texts texts = texts_of(script, size);
  std::vector<To> to(size + 16);
  for (const Text& text : texts) {
    const auto& expected = result_of(text, to.data());
    const std::size_t written = convert(text, to.data(), expected.size());
    if (written != expected.size() || std::memcmp(to.data(), expected.data(), written * sizeof(To)) != 0)
      state.SkipWithError("another text came out");
  }
  std::size_t turn = 0;
  for ([[maybe_unused]] auto round : state) {
    const Text& text = texts[turn++ % texts.size()];
    benchmark::DoNotOptimize(convert(text, to.data(), result_of(text, to.data()).size()));
    benchmark::ClobberMemory();
  }
}

template <typename To>
void add(const std::string& name, Script script, std::size_t size, Convert<To> convert) {
  benchmark::RegisterBenchmark(name.c_str(),
                               [=](benchmark::State& state) { measure<To>(state, script, size, convert); });
}

template <typename To, typename PeerTo = To>
void add_row(const std::string& row, Script script, std::size_t size, Convert<To> ours,
             Convert<PeerTo> peer) {
  add<To>(row, script, size, ours);
  add<PeerTo>("floor: " + row, script, size, peer);
}

bool add_rows() {
  struct Named {
    const char* name;
    Script script;
  };
  for (const auto& [name, script] :
       {Named{"ASCII", ascii}, Named{"Latin", latin}, Named{"Cyrillic", cyrillic}, Named{"CJK", cjk},
        Named{"emoji", emoji}, Named{"chat", chat}}) {
    for (const std::size_t size : {kLong, kShort}) {
      const std::string end = std::string(name) + " " + std::to_string(size);
      add_row<uint16_t>("to UTF-16, " + end + " (floor: ICU)", script, size, ours_to16, icu_to16);
      add_row<uint8_t>("to UTF-8, " + end + " (floor: ICU)", script, size, ours_to8, icu_to8);
    }
    const std::string end = std::string(name) + " (floor: iconv)";
    add_row<uint16_t>("to UTF-16, " + end, script, kLong, ours_to16, iconv_to16);
    add_row<uint8_t>("to UTF-8, " + end, script, kLong, ours_to8, iconv_to8);
  }
  add_row<uint16_t>("to UTF-16, ASCII (floor: memcpy)", ascii, kLong, ours_to16, copy_to16);
  add_row<uint8_t>("to UTF-8, ASCII (floor: memcpy)", ascii, kLong, ours_to8, copy_to8);
  // Twice the bytes of the result are there to be read.
  add_row<uint8_t, uint16_t>("to UTF-8, ASCII (floor: memcpy of UTF-16)", ascii, kLong, ours_to8, copy_to16);
  add_row<uint16_t>("to UCS-2 text, Latin 64 (floor: ICU)", latin, kShort, our_text_to16, icu_to16);
  add_row<uint8_t>("UCS-2 text, Latin 64 (floor: ICU)", latin, kShort, our_text_to8, icu_to8);
  return true;
}

[[maybe_unused]] const bool rows_added = add_rows();

}  // namespace
}  // namespace bench
