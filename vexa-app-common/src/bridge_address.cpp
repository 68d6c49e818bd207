// SPDX-License-Identifier: MIT
// The IPv4 address of the LAN bridge.
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <array>
#include <cstring>

#include "log/call_site.h"
#include "owners.h"
#include "vexadm/device.h"
#include "vexadm/strings.h"

namespace {

// Product lines name their bridge differently; the first that has an address is it.
constexpr std::array<const char*, 4> kBridges = {"bridge0", "br-lan", "brlan0", "br0"};

// 0, with the address in network byte order.
int get_if_addr(const char* name, uint32_t& address) {
  constexpr const char* kName = "vexa_util_get_if_addr";
  const vexa::Descriptor any_socket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!any_socket) {
    VEXA_LOG(vexa::log::kError, kName, "sfd is invalid\n");
    return -1;
  }
  ifreq request = {};
  vexa_strlcpy(request.ifr_name, name, sizeof request.ifr_name);
  const int result = ioctl(any_socket.get(), SIOCGIFADDR, &request);
  if (result != 0) return result;
  sockaddr_in found = {};
  std::memcpy(&found, &request.ifr_addr, sizeof found);
  address = found.sin_addr.s_addr;
  VEXA_LOG(vexa::log::kDebug, kName, "getip:ifname=%s,ip=0x%X\n", name, address);
  return 0;
}

}  // namespace

int32_t vexa_util_get_main_bridge_addr(uint32_t* out) {
  if (!out) {
    VEXA_LOG(vexa::log::kError, "vexa_util_get_main_bridge_addr", "if_addr is NULL\n");
    return -1;
  }
  int result = -1;
  uint32_t address = 0;
  for (const char* name : kBridges) {
    result = get_if_addr(name, address);
    if (result == 0) break;
  }
  *out = address;
  return result;
}
