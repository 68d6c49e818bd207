// SPDX-License-Identifier: MIT
// The IPv6 default gateway out of a table of routes: the library, libnl, and the bare system calls.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netlink/netlink.h>
#include <netlink/route/route.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vexadm/netlink.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "support/own_network.h"

namespace bench {
namespace {

constexpr char kName[] = "wan0";
constexpr char kGateway[] = "2001:db8::2";

// ---- The network: a cable, and routes of which the first one in the kernel's order counts ----

bool run(const std::string& command) {
  return std::system(("PATH=$PATH:/usr/sbin:/sbin; " + command + " >/dev/null").c_str()) == 0;
}

bool make_network() {
  return vexa_test::enter_own_network().empty() && run("ip link add wan0 type veth peer name lan0") &&
         run("ip link set wan0 addrgenmode none up && ip link set lan0 addrgenmode none up") &&
         run("ip -6 addr add 2001:db8::1/64 dev wan0 nodad && ip -6 addr add 2001:db8:1::1/64 dev lan0 "
             "nodad");
}

// One of the wanted number, which stands in the first datagram of every dump, leads through the interface,
// all others through its peer.
bool has_routes(std::int64_t count) {
  static const bool network = make_network();
  static std::int64_t current = -1;
  if (!network) return false;
  if (current == count) return true;
  current = count;
  run("ip -6 route flush proto static");
  const std::string wanted =
      "ip -6 route add 100::/48 proto static via " + std::string(kGateway) + " dev wan0";
  const std::string others =
      "i=1; while [ $i -lt " + std::to_string(count) +
      " ]; do echo \"route add 2001:db8:2:$i::/64 proto static via 2001:db8:1::2 dev lan0\";"
      " i=$((i + 1)); done | ip -6 -batch -";
  return run(others) && run(wanted);
}

bool prepare(benchmark::State& state) {
  if (has_routes(state.range(0))) return true;
  state.SkipWithError("no network of its own");
  return false;
}

template <typename Ask>
void measure(benchmark::State& state, Ask ask) {
  if (!prepare(state)) return;
  char gateway[46];
  for ([[maybe_unused]] auto round : state) {
    if (!ask(gateway)) {
      state.SkipWithError("another gateway");
      break;
    }
  }
}

// ---- The library ----

bool ask_library(char* gateway) {
  return vexa_get_ipv6_default_gw(kName, gateway) == 0 && std::strcmp(gateway, kGateway) == 0;
}

// ---- libnl, as its users do: a cache of all IPv6 routes ----

bool ask_libnl(char* gateway) {
  nl_sock* const socket = nl_socket_alloc();
  nl_cache* routes = nullptr;
  gateway[0] = '\0';
  const int index = static_cast<int>(if_nametoindex(kName));
  if (nl_connect(socket, NETLINK_ROUTE) == 0 && rtnl_route_alloc_cache(socket, AF_INET6, 0, &routes) == 0) {
    for (nl_object* at = nl_cache_get_first(routes); at != nullptr; at = nl_cache_get_next(at)) {
      auto* const route = reinterpret_cast<rtnl_route*>(at);
      rtnl_nexthop* const hop =
          rtnl_route_get_nnexthops(route) == 1 ? rtnl_route_nexthop_n(route, 0) : nullptr;
      nl_addr* const via = hop != nullptr ? rtnl_route_nh_get_gateway(hop) : nullptr;
      if (via == nullptr || rtnl_route_nh_get_ifindex(hop) != index) continue;
      inet_ntop(AF_INET6, nl_addr_get_binary_addr(via), gateway, 46);
      break;
    }
    nl_cache_free(routes);
  }
  nl_socket_free(socket);
  return std::strcmp(gateway, kGateway) == 0;
}

// ---- The system calls that cannot be saved ----

bool ask_kernel(char* gateway) {
  struct {
    nlmsghdr header;
    rtmsg route;
  } request = {};
  request.header = {sizeof request, RTM_GETROUTE, NLM_F_REQUEST | NLM_F_DUMP, 1, 0};
  request.route.rtm_family = AF_INET6;
  alignas(nlmsghdr) char answer[32768];
  const int index = static_cast<int>(if_nametoindex(kName));
  const int fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
  sockaddr_nl own = {};
  own.nl_family = AF_NETLINK;
  bind(fd, reinterpret_cast<sockaddr*>(&own), sizeof own);
  send(fd, &request, sizeof request, 0);
  // With a larger buffer the kernel would go on with a larger piece of its table.
  const ssize_t pending = recv(fd, nullptr, 0, MSG_PEEK | MSG_TRUNC);
  const ssize_t size = recv(fd, answer, std::min(static_cast<std::size_t>(pending), sizeof answer), 0);
  close(fd);
  gateway[0] = '\0';
  const nlmsghdr* at = nullptr;
  for (ssize_t from = 0; from < size && *gateway == '\0'; from += NLMSG_ALIGN(at->nlmsg_len)) {
    at = reinterpret_cast<const nlmsghdr*>(answer + from);
    const char* via = nullptr;
    int through = 0;
    const rtattr* of = nullptr;
    for (ssize_t next = sizeof request; next < static_cast<ssize_t>(at->nlmsg_len);
         next += RTA_ALIGN(of->rta_len)) {
      of = reinterpret_cast<const rtattr*>(answer + from + next);
      const char* const value = answer + from + next + sizeof *of;
      if (of->rta_type == RTA_GATEWAY) via = value;
      if (of->rta_type == RTA_OIF) std::memcpy(&through, value, sizeof through);
    }
    if (via != nullptr && through == index) inet_ntop(AF_INET6, via, gateway, 46);
  }
  return std::strcmp(gateway, kGateway) == 0;
}

void library(benchmark::State& state) { measure(state, ask_library); }
void libnl(benchmark::State& state) { measure(state, ask_libnl); }
void kernel(benchmark::State& state) { measure(state, ask_kernel); }

void counts(benchmark::internal::Benchmark* benchmark) { benchmark->ArgName("routes")->Arg(1)->Arg(200); }

BENCHMARK(library)->Name("IPv6 gateway")->Apply(counts);
BENCHMARK(kernel)->Name("floor: IPv6 gateway")->Apply(counts);
BENCHMARK(libnl)->Name("IPv6 gateway by libnl")->Apply(counts);
BENCHMARK(kernel)->Name("floor: IPv6 gateway by libnl")->Apply(counts);

}  // namespace
}  // namespace bench
