// SPDX-License-Identifier: MIT
// Copies into buffers of a given size.
#include <algorithm>
#include <cstddef>
#include <cstring>

#include "log/call_site.h"
#include "vexadm/strings.h"

uint32_t vexa_strlcpy(char* dst, const char* src, uint32_t size) {
  if (!dst || !src) return 0;
  const std::size_t length = std::strlen(src);
  if (size > 0) {
    const std::size_t kept = std::min<std::size_t>(length, size - 1);
    std::memcpy(dst, src, kept);
    dst[kept] = '\0';
  }
  return static_cast<uint32_t>(length);
}

uint32_t vexa_strlcat(char* dst, const char* src, uint32_t size) {
  if (!dst || !src) return 0;
  const auto used = static_cast<uint32_t>(strnlen(dst, size));
  // Without a terminator nothing is left of the size, and nothing is written.
  return used + vexa_strlcpy(dst + used, src, size - used);
}

void vexa_string_memcpy(char* dst, const char* src, uint32_t size) {
  if (!dst || !src) {
    VEXA_LOG(vexa::log::kError, "vexa_string_memcpy", "Invalid string parameter.\n");
    return;
  }
  std::memset(dst, 0, size);
  std::memcpy(dst, src, strnlen(src, size));
}
