// SPDX-License-Identifier: MIT
// UTF-8 by lead bytes.
#include <cstddef>
#include <cstring>

#include "log/call_site.h"
#include "vexadm/strings.h"

namespace {

int32_t finish(char* dst, uint32_t length, uint32_t* out_len, int32_t result) {
  dst[length] = '\0';
  if (out_len) *out_len = length;
  return result;
}

}  // namespace

int32_t vexa_utf8_NumBytesInChar(uint8_t lead) {
  if ((lead & 0x80) == 0x00) return 1;
  if ((lead & 0xE0) == 0xC0) return 2;
  if ((lead & 0xF0) == 0xE0) return 3;
  if ((lead & 0xF8) == 0xF0) return 4;
  return 0;
}

int32_t vexa_utf8_Copy(char* dst, const char* src, uint32_t dst_size, uint32_t* out_len) {
  VEXA_ASSERT(dst != nullptr && src != nullptr && dst_size > 0, "vexa_app_os_al");
  uint32_t pos = 0;
  while (src[pos] != '\0') {
    const auto length = static_cast<uint32_t>(vexa_utf8_NumBytesInChar(static_cast<uint8_t>(src[pos])));
    // Not an error: a text in another encoding counts as no text.
    if (length == 0) return finish(dst, 0, out_len, 0);
    if (length >= dst_size - pos) return finish(dst, pos, out_len, -1);
    // Never past the terminator, which may come before the character is complete.
    const auto present = static_cast<uint32_t>(strnlen(src + pos, length));
    std::memcpy(dst + pos, src + pos, present);
    pos += present;
  }
  return finish(dst, pos, out_len, 0);
}
