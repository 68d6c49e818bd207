// SPDX-License-Identifier: MIT
#include "at_end.h"

#include <array>

#include "log/call_site.h"

namespace vexa::at {
namespace {

constexpr const char* kName = "vexa_util_send_at";

// In words and, for a modem told so by ATV0, in numbers. The bare "3" is meant: it ends the read at
// an identity number, which hosts ask for, before the modem's OK.
constexpr std::array<const char*, 8> kMarkers = {"ERROR", "OK\r\n", "0\r",        "3\r",
                                                 "3",     "4\r",    "NO CARRIER", "+CME ERROR:"};

bool ends_line(char c) { return c == '\r' || c == '\n' || c == '\0'; }

bool has_marker(std::string_view reply, std::string_view marker) {
  // Through terminators that a service sends along, to the end of what was received.
  std::size_t from = 0;
  for (std::size_t at; (at = reply.find(marker, from)) != std::string_view::npos; from = at + marker.size()) {
    // Directly behind a refused one counts as well: the search begins anew there.
    if (at == from || ends_line(reply[at - 1])) return true;
    VEXA_LOG(vexa::log::kDebug, kName, "no correct end:<%s>,<%s>,<%d>\r\n", reply.data() + from,
             reply.data() + at - 1, static_cast<unsigned char>(reply[at - 1]));
  }
  return false;
}

}  // namespace

bool has_end(std::string_view reply) {
  for (const char* marker : kMarkers) {
    VEXA_LOG(vexa::log::kDebug, kName, "str_end_rsp[k]=%s\r\n", marker);
    if (has_marker(reply, marker)) return true;
  }
  return false;
}

}  // namespace vexa::at
