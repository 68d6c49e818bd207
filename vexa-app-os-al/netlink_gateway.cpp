// SPDX-License-Identifier: MIT
// The IPv6 default gateway of an interface, out of the kernel's table of routes.
#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>

#include "log/call_site.h"
#include "netlink_socket.h"
#include "netlink_walk.h"
#include "owners.h"
#include "vexadm/netlink.h"

namespace {

using vexa::Descriptor;
using vexa::Heap;

constexpr uint32_t kSequence = 0x1231;
constexpr std::size_t kRouteHeaders = NLMSG_HDRLEN + sizeof(rtmsg);

struct DumpRequest {
  nlmsghdr header;
  rtmsg route;
};
static_assert(sizeof(DumpRequest) == 28 && sizeof(DumpRequest) == kRouteHeaders);

bool request_dump(const Descriptor& socket) {
  DumpRequest request = {};
  request.header.nlmsg_len = sizeof request;
  request.header.nlmsg_type = RTM_GETROUTE;
  request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  request.header.nlmsg_seq = kSequence;
  request.route.rtm_family = AF_INET6;
  request.route.rtm_flags = RTM_F_CLONED;
  ssize_t sent = 0;
  do {
    sent = send(socket.get(), &request, sizeof request, 0);
  } while (sent < 0 && errno == EINTR);
  return sent == static_cast<ssize_t>(sizeof request);
}

// Up to the first route that fits. The walk stays at a message that did not come from the kernel (its
// port is 0) and the call never returns, which hosts rely on: a forged route is never answered with.
// Between two looks it gives the processor away.
void find_gateway(vexa::netlink::Messages messages, uint32_t sender, const char* ifname, char* gw_out) {
  constexpr const char* kName = "vexa_get_route_dump_response";
  while (messages) {
    if ((messages->nlmsg_flags & NLM_F_DUMP_INTR) != 0) {
      VEXA_LOG(vexa::log::kError, kName, "Dump was interrupted\n");
      return;
    }
    if (sender != 0) {
      pause();
      continue;
    }
    if (messages->nlmsg_type == NLMSG_ERROR) {
      VEXA_LOG(vexa::log::kError, kName, "netlink reported error\n");
      return;
    }
    // The end of the dump (NLMSG_DONE) is not told from a route: it is too short for one, and logged so.
    if (vexa_dump_route(messages.get(), ifname, gw_out) == 0) return;
    messages.advance();
  }
}

// One datagram of the answer and no more: the call stays short however many routes there are. The
// others are dropped with the socket.
void read_response(const Descriptor& socket, const char* ifname, char* gw_out) {
  sockaddr_nl sender = {};
  msghdr message = {};
  message.msg_name = &sender;
  message.msg_namelen = sizeof sender;
  Heap<char> datagram;
  const int size = vexa::netlink::receive_datagram(socket, message, datagram);
  VEXA_LOG(vexa::log::kDebug, "vexa_get_route_dump_response", "Dump IPv6 default gateway:%d\n", size);
  const void* const first = datagram.get();
  find_gateway({static_cast<const nlmsghdr*>(first), size}, sender.nl_pid, ifname, gw_out);
}

}  // namespace

int32_t vexa_get_ipv6_default_gw(const char* ifname, char* gw_out) {
  constexpr const char* kName = "vexa_get_ipv6_default_gw";
  if (!ifname || !gw_out) return -1;
  const Descriptor socket = vexa::netlink::open_route_socket();
  if (!socket) {
    VEXA_LOG(vexa::log::kError, kName, "couldn't open NETLINK_ROUTE socket:%d\n", errno);
    return -1;
  }
  if (!vexa::netlink::bind_socket(socket, 0, 0)) {
    VEXA_LOG(vexa::log::kError, kName, "couldn't bind:%d\n", errno);
    return -1;
  }
  if (!request_dump(socket)) {
    VEXA_LOG(vexa::log::kError, kName, "Failed to perfom request\n");
    return -1;
  }
  gw_out[0] = '\0';
  // What was not received has no gateway: the caller looks at gw_out.
  read_response(socket, ifname, gw_out);
  return 0;
}

int32_t vexa_dump_route(const struct nlmsghdr* msg, const char* ifname, char* gw_out) {
  constexpr const char* kName = "vexa_dump_route";
  if (!msg || !gw_out) return -1;
  const auto length = static_cast<int32_t>(msg->nlmsg_len);
  const int64_t payload = int64_t{length} - static_cast<int64_t>(kRouteHeaders);
  if (payload < 0) {
    VEXA_LOG(vexa::log::kError, kName, "Wrong message length:%d:%d:%ld\n", length, static_cast<int>(payload),
             static_cast<long>(kRouteHeaders));
    return -1;
  }
  const unsigned index = ifname ? if_nametoindex(ifname) : 0;
  if (index == 0) {
    VEXA_LOG(vexa::log::kError, kName, "Can't map iface name(%s) to index\n", ifname ? ifname : "(null)");
    return -1;
  }
  const vexa::netlink::Attributes attributes = vexa::netlink::attributes_of(*msg, kRouteHeaders);
  std::array<rtattr*, RTA_MAX + 1> table = {};
  vexa_parse_rtattr(table.data(), RTA_MAX, attributes.get(), static_cast<int32_t>(payload));

  if (vexa::netlink::family_header<rtmsg>(*msg).rtm_family != AF_INET6) return -1;
  uint32_t out_index = 0;
  if (vexa::netlink::read_value(table[RTA_OIF], out_index) && out_index != index) return -1;
  // Where the route leads to is not asked: the first one with a gateway is taken for the default.
  in6_addr gateway = {};
  if (!vexa::netlink::read_value(table[RTA_GATEWAY], gateway)) return -1;
  if (!inet_ntop(AF_INET6, &gateway, gw_out, INET6_ADDRSTRLEN)) return -1;
  VEXA_LOG(vexa::log::kDebug, kName, "IPv6 gateway via %s\n", gw_out);
  return 0;
}
