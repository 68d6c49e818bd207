// SPDX-License-Identifier: MIT
// Terminated texts in UCS-2 and UTF-8.
#include <algorithm>
#include <cstddef>

#include "log/call_site.h"
#include "vexadm/unicode.h"

namespace {

// No conversion passes the end of its target; a text that did is at least terminated within its buffer.
std::size_t checked(std::size_t written, std::size_t most, const char* function) {
  if (written <= most) return written;
  VEXA_LOG(vexa::log::kError, function,
           "Bug in qcril_cm_ss_ConvertUTF16toUTF8. Buffer overrun detected. Size %zu greater than %zu\n",
           written, most);
  return most;
}

}  // namespace

std::size_t vexa_util_convert_utf8_to_ucs2(const char* utf8, std::size_t utf8_len, uint16_t* ucs2,
                                           std::size_t ucs2_size) {
  constexpr const char* kName = "vexa_util_convert_utf8_to_ucs2";
  if (!utf8 || !ucs2) {
    VEXA_LOG(vexa::log::kError, kName, "Invalid parameters. utf8str: %p, ucs2str: %p\n",
             static_cast<const void*>(utf8), static_cast<const void*>(ucs2));
    return 0;
  }
  const auto* src = reinterpret_cast<const uint8_t*>(utf8);
  uint16_t* dst = ucs2;
  int32_t result = VEXA_UNICODE_TARGET_EXHAUSTED;
  const std::size_t units = ucs2_size / sizeof *ucs2;
  if (units > 0)
    result = vexa_util_ConvertUTF8toUTF16(&src, src + utf8_len, &dst, ucs2 + units - 1, VEXA_UNICODE_STRICT);
  if (result == VEXA_UNICODE_TARGET_EXHAUSTED) {
    VEXA_LOG(vexa::log::kError, kName, "String has been truncated. Buffer size of %zu not large enough\n",
             ucs2_size);
  } else if (result != VEXA_UNICODE_OK) {
    VEXA_LOG(vexa::log::kError, kName, "Error in converting utf8 string to ucs2\n");
  }
  if (units == 0) return 0;
  const auto produced = static_cast<std::size_t>(dst - ucs2) * sizeof *ucs2;
  const std::size_t written = checked(produced, ucs2_size - sizeof *ucs2, kName);
  ucs2[written / sizeof *ucs2] = 0;
  return written;
}

std::size_t vexa_util_convert_ucs2_to_utf8(const uint16_t* ucs2, std::size_t ucs2_len_bytes, char* utf8,
                                           std::size_t utf8_size) {
  constexpr const char* kName = "vexa_util_convert_ucs2_to_utf8";
  if (!ucs2 || ucs2_len_bytes == 0 || !utf8 || utf8_size == 0) {
    VEXA_LOG(vexa::log::kError, kName, "utf8str or utf8Start is NULL\n");
    return 0;
  }
  const uint16_t* src = ucs2;
  auto* const begin = reinterpret_cast<uint8_t*>(utf8);
  uint8_t* dst = begin;
  const int32_t result = vexa_util_ConvertUTF16toUTF8(&src, src + ucs2_len_bytes / sizeof *ucs2, &dst,
                                                      begin + utf8_size - 1, VEXA_UNICODE_LENIENT);
  if (result == VEXA_UNICODE_TARGET_EXHAUSTED) {
    // Of no concern to a log of errors: displays are short, and replies are cut to them every day.
    VEXA_LOG(vexa::log::kDebug, kName, "String has been truncated. Buffer size of %zu not large enough\n",
             utf8_size);
  } else if (result != VEXA_UNICODE_OK) {
    VEXA_LOG(vexa::log::kError, kName, "Error in converting ucs2 string to utf8\n");
  }
  const std::size_t written = checked(static_cast<std::size_t>(dst - begin), utf8_size - 1, kName);
  utf8[written] = '\0';
  return written;
}
