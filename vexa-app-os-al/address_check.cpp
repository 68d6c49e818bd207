// SPDX-License-Identifier: MIT
// Texts of users and configuration files: are they addresses?
#include <arpa/inet.h>
#include <netinet/in.h>
#include <regex.h>

#include <array>
#include <cstdint>

#include "log/call_site.h"
#include "vexadm/address.h"

namespace {

// Four parts and nothing else: inet_aton and its like would take "1.2.3" and " 1.2.3.4" too.
bool parse_ipv4(const char* text, in_addr& address) {
  return text && inet_pton(AF_INET, text, &address) == 1;
}

uint32_t is_ipv4(const char* text) {
  in_addr address = {};
  return parse_ipv4(text, address) ? 1 : 0;
}

}  // namespace

uint32_t vexa_check_v4_ip(const char* text) { return is_ipv4(text); }

uint32_t is_valid_ip(const char* text) { return is_ipv4(text); }

uint32_t is_valid_ipv6(const char* text) {
  in6_addr address = {};
  return text && inet_pton(AF_INET6, text, &address) == 1 ? 1 : 0;
}

uint32_t Is_valid_SubnetMask(const char* text) {
  in_addr address = {};
  if (!parse_ipv4(text, address)) return 0;
  // -mask is the lowest set bit and all zeros above it: none of these may be left. No bit and all
  // bits are masks too, of everything and of one host.
  const uint32_t mask = ntohl(address.s_addr);
  return ((0U - mask) & ~mask) == 0 ? 1 : 0;
}

uint32_t ereg(const char* pattern, const char* text) {
  regex_t compiled = {};
  if (!pattern || !text || regcomp(&compiled, pattern, REG_EXTENDED) != 0) return 1;
  std::array<regmatch_t, 10> matches = {};
  const int result = regexec(&compiled, text, matches.size(), matches.data(), 0);
  regfree(&compiled);
  return result == 0 ? 0 : 1;
}

uint32_t Is_valid_Mac(const char* text) {
  constexpr const char* kName = "Is_valid_Mac";
  // In brackets a backslash is a character like others: pairs are joined by ':', '\' or 's', and by
  // no blank. Configurations hold such texts; do not repair the pattern.
  if (ereg("^([0-9a-fA-F]{2})(([\\s:][0-9a-fA-F]{2}){5})$", text) != 0) {
    VEXA_LOG(vexa::log::kError, kName, "No Match!!! \n");
    return 0;
  }
  VEXA_LOG(vexa::log::kDebug, kName, "Yes Match!!! \n");
  return 1;
}
