// SPDX-License-Identifier: MIT
// Addresses as text, and the hexadecimal digits for bytes that are none.
#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "hex_digits.h"
#include "log/call_site.h"
#include "vexadm/address.h"

namespace {

constexpr uint32_t kIpv6Bytes = 16;

// The one limit for every address of a kind, however short its text: a caller whose buffer is too
// small learns it from the first address and not from the longest. No buffer has no room.
bool has_room(const char* function, const char* out, uint32_t out_size, uint32_t needed) {
  const uint32_t size = out ? out_size : 0;
  if (size >= needed) return true;
  VEXA_LOG(vexa::log::kError, function, "ipStr size is %d; must be at least %i\n", static_cast<int>(size),
           static_cast<int>(needed));
  return false;
}

bool is_given(const char* function, const uint8_t* ip) {
  if (ip) return true;
  VEXA_LOG(vexa::log::kError, function, "input ipNum is NULL now !!!\n");
  return false;
}

}  // namespace

int32_t ConvertIPv4ArrayToStr(const uint8_t ip[4], char* out, uint32_t out_size) {
  constexpr const char* kName = "ConvertIPv4ArrayToStr";
  if (!has_room(kName, out, out_size, INET_ADDRSTRLEN) || !is_given(kName, ip)) return -1;
  std::memset(out, 0, out_size);
  std::snprintf(out, out_size, "%u.%u.%u.%u", unsigned{ip[0]}, unsigned{ip[1]}, unsigned{ip[2]},
                unsigned{ip[3]});
  return 0;
}

int32_t ConvertIPv4NumToStr(uint32_t ip, char* out, uint32_t out_size) {
  constexpr const char* kName = "ConvertIPv4NumToStr";
  if (!has_room(kName, out, out_size, INET_ADDRSTRLEN)) return -1;
  const in_addr address = {htonl(ip)};
  if (!inet_ntop(AF_INET, &address, out, out_size)) {
    VEXA_LOG(vexa::log::kError, kName, "Error converting %X to IP string\n", ip);
    return -1;
  }
  return 0;
}

int32_t ConvertIPv6NumToStr(const uint8_t ip[16], char* out, uint32_t out_size) {
  constexpr const char* kName = "ConvertIPv6NumToStr";
  if (!has_room(kName, out, out_size, INET6_ADDRSTRLEN) || !is_given(kName, ip)) return -1;
  std::memset(out, 0, out_size);
  if (!inet_ntop(AF_INET6, ip, out, out_size)) {
    vexa::write_hex_text(ip, kIpv6Bytes, out);
    VEXA_LOG(vexa::log::kError, kName, "Error converting %s to IP string\n", out);
    return -1;
  }
  return 0;
}

int32_t hex_BinaryToString(const uint8_t* bin, uint32_t n, char* out, uint32_t out_size) {
  if (!out || (!bin && n > 0) || !vexa::hex_text_fits(n, out_size)) return -1;
  vexa::write_hex_text(bin, n, out);
  return static_cast<int32_t>(n * 2);
}

char DecToHex(uint32_t nibble) { return nibble < vexa::kHexDigits.size() ? vexa::kHexDigits[nibble] : '\0'; }

uint32_t htoi(const char* text) {
  if (!text) return 0;
  if (text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) text += 2;
  uint32_t value = 0;
  // Every letter counts, those behind 'f' too ('g' 16 ... 'z' 35): callers get a number for whatever
  // a page or a file holds. Beyond 32 bits the value wraps.
  for (;; ++text) {
    const char lower = static_cast<char>(*text | 0x20);
    if (*text >= '0' && *text <= '9') {
      value = value * 16 + static_cast<uint32_t>(*text - '0');
    } else if (lower >= 'a' && lower <= 'z') {
      value = value * 16 + static_cast<uint32_t>(lower - 'a' + 10);
    } else {
      return value;
    }
  }
}
