// SPDX-License-Identifier: MIT
// The wait for a global IPv6 address, by the kernel's notifications.
#include <net/if.h>
#include <netinet/in.h>
#include <strings.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <ctime>

#include "log/call_site.h"
#include "netlink_socket.h"
#include "netlink_walk.h"
#include "owners.h"
#include "vexadm/netlink.h"

namespace {

using vexa::Descriptor;
using vexa::netlink::Attributes;
using vexa::netlink::Messages;

constexpr int kMostEvents = 32;
constexpr int kWaitMs = 2000;
constexpr std::size_t kDatagram = 4096;
constexpr std::size_t kAddressHeaders = NLMSG_HDRLEN + sizeof(ifaddrmsg);
static_assert(kAddressHeaders == 24);
constexpr uint32_t kGroups = RTMGRP_IPV6_IFADDR | RTMGRP_IPV6_PREFIX;
static_assert(kGroups == 0x20100);

// The two seconds that go by without a notification. A signal of the host does not give them anew:
// under a timer of less than two seconds the wait would have no end.
class QuietTime {
 public:
  void restart() { end_ms_ = now_ms() + 1 + kWaitMs; }  // one more: the one at hand has begun
  int left_ms() const { return static_cast<int>(std::clamp<int64_t>(end_ms_ - now_ms(), 0, kWaitMs)); }

 private:
  static int64_t now_ms() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
  }

  int64_t end_ms_ = 0;
};

// Eight groups of four digits each, so that the prefix stands in the same place of every text.
void format(const in6_addr& address, char* out) {
  const auto& b = address.s6_addr;
  // As large as the shortest buffer that hosts hand in.
  std::snprintf(out, 40, "%02x%02x:%02x%02x:%02x%02x:%02x%02x:%02x%02x:%02x%02x:%02x%02x:%02x%02x", b[0],
                b[1], b[2], b[3], b[4], b[5], b[6], b[7], b[8], b[9], b[10], b[11], b[12], b[13], b[14],
                b[15]);
}

bool is_link_local(const char* text) { return strncasecmp(text, "FE80", 4) == 0; }

// True when the message brings a global address. addr_out has the last one of any kind.
bool take_addresses(const nlmsghdr& message, const ifaddrmsg& header, char* addr_out) {
  constexpr const char* kName = "vexa_nl_netlink_handle";
  for (Attributes at = vexa::netlink::attributes_of(message, kAddressHeaders); at; at.advance()) {
    in6_addr address = {};
    if (at->rta_type != IFA_ADDRESS || !vexa::netlink::read_value(at.get(), address)) continue;
    format(address, addr_out);
    if (is_link_local(addr_out)) continue;
    VEXA_LOG(vexa::log::kDebug, kName, "Return IPv6 addr:%s scope:%d\n", addr_out, int{header.ifa_scope});
    VEXA_LOG(vexa::log::kDebug, kName, "Get IPv6 address\n");
    return true;
  }
  return false;
}

bool take_datagram(Messages messages, uint32_t index, char* addr_out) {
  for (; messages && messages->nlmsg_type != NLMSG_DONE; messages.advance()) {
    if (messages->nlmsg_type != RTM_NEWADDR || messages->nlmsg_len < kAddressHeaders) continue;
    const auto& header = vexa::netlink::family_header<ifaddrmsg>(*messages.get());
    // The kernel sends one interface's addresses in one datagram; the rest of it is not looked at.
    if (header.ifa_index != index) return false;
    if (take_addresses(*messages.get(), header, addr_out)) return true;
  }
  return false;
}

// vexa_nl_netlink_handle. The socket has to be emptied: it is announced again only when something
// comes in anew. Therefore an interrupted receive, and the news that the kernel had to drop
// something, are followed by what still waits there, now without waiting for more.
bool read_notifications(const Descriptor& socket, uint32_t index, char* addr_out) {
  alignas(nlmsghdr) std::array<char, kDatagram> buffer = {};
  int flags = 0;
  for (;;) {
    const ssize_t length = recv(socket.get(), buffer.data(), buffer.size(), flags);
    if (length == -1) {
      if (errno != EINTR && errno != ENOBUFS) return false;
      flags = MSG_DONTWAIT;
      continue;
    }
    VEXA_LOG(vexa::log::kDebug, "vexa_nl_netlink_handle", "rx len:%d \n", static_cast<int>(length));
    const void* const first = buffer.data();
    if (take_datagram({static_cast<const nlmsghdr*>(first), length}, index, addr_out)) return true;
  }
}

// vexa_epoll_event_handle.
void wait_for_address(const Descriptor& epoll, const Descriptor& socket, uint32_t index, char* addr_out) {
  constexpr const char* kName = "vexa_epoll_event_handle";
  std::array<epoll_event, kMostEvents> events = {};
  QuietTime quiet;
  quiet.restart();
  for (;;) {
    const int left_ms = quiet.left_ms();
    const int count = epoll_wait(epoll.get(), events.data(), kMostEvents, left_ms);
    // A failed wait is no notification; it counts as one that is over when its time is.
    if (count == 0 || (count < 0 && left_ms == 0)) {
      VEXA_LOG(vexa::log::kError, kName, "Timeout to wait for IPv6 event\n");
      return;
    }
    VEXA_LOG(vexa::log::kDebug, kName, "Process fd count:%d\n", count);
    for (int i = 0; i < count; ++i) {
      const epoll_event& event = events[static_cast<std::size_t>(i)];
      if (event.data.fd != socket.get() || (event.events & EPOLLIN) == 0) continue;
      if (read_notifications(socket, index, addr_out)) return;
    }
    if (count > 0) quiet.restart();
  }
}

// Without the time-out the first drained batch would hold the call for ever.
Descriptor open_patient_socket() {
  Descriptor socket = vexa::netlink::open_route_socket();
  const timeval second = {1, 0};
  if (socket && setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &second, sizeof second) != 0) return {};
  return socket;
}

bool watch(const Descriptor& epoll, const Descriptor& socket) {
  epoll_event event = {};
  event.events = EPOLLIN | EPOLLET;
  event.data.fd = socket.get();
  return epoll_ctl(epoll.get(), EPOLL_CTL_ADD, socket.get(), &event) == 0;
}

}  // namespace

int32_t vexa_check_global_ipv6_addr(const char* ifname, char* addr_out) {
  constexpr const char* kName = "vexa_check_global_ipv6_addr";
  const unsigned index = ifname ? if_nametoindex(ifname) : 0;
  if (index == 0) {
    VEXA_LOG(vexa::log::kError, kName, "if_nametoindex failed:%s\n", ifname ? ifname : "(null)");
    return 1;
  }
  if (!addr_out) return 1;
  // The size that epoll_create() asked for has never had a meaning; this one is closed in commands.
  const Descriptor epoll(epoll_create1(EPOLL_CLOEXEC));
  if (!epoll) {
    VEXA_LOG(vexa::log::kError, kName, "epoll create failure:%d\n", errno);
    return 1;
  }
  const Descriptor socket = open_patient_socket();
  if (!socket) {
    VEXA_LOG(vexa::log::kError, kName, "couldn't open NETLINK_ROUTE socket:%d\n", errno);
    return 1;
  }
  // The process id as port lets one wait run at a time; a second one is refused here.
  if (!vexa::netlink::bind_socket(socket, static_cast<uint32_t>(getpid()), kGroups)) {
    VEXA_LOG(vexa::log::kError, kName, "couldn't bind:%d\n", errno);
    return 1;
  }
  if (!watch(epoll, socket)) {
    VEXA_LOG(vexa::log::kError, kName, "epoll add sock_fd error\n");
    return 1;
  }
  wait_for_address(epoll, socket, index, addr_out);
  return 0;
}
