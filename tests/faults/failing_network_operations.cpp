// SPDX-License-Identifier: MIT
// Queries to the routing netlink, and addresses.
#include <net/if.h>
#include <signal.h>
#include <sys/prctl.h>
#include <vexadm/vexadm.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "faults/failing_operations.h"
#include "support/netlink_message.h"
#include "support/own_network.h"

namespace vexa_test {
namespace {

std::int64_t verdict(bool good) { return good ? 0 : 999; }

// ---- A network with a router and an address that comes when it is waited for ----

void command(const char* line) { EXPECT_EQ(std::system(line), 0) << line; }

void make_links() {
  ASSERT_EQ(enter_own_network(), "");
  setenv("PATH", "/usr/sbin:/usr/bin:/sbin:/bin", 1);
  command("ip link add wan0 type veth peer name lan0");
  command("ip link set wan0 addrgenmode none && ip link set wan0 up");
  command("ip link set lan0 addrgenmode none && ip link set lan0 up");
}

void make_network() {
  make_links();
  command("ip -6 addr add 2001:db8::1/64 dev wan0 nodad");
  command("ip -6 route add default via 2001:db8::2 dev wan0");
}

// The inode of the socket that listens to address notifications; empty for none. (Process ids are
// used again, and the processes that wait here are many.)
std::string listener() {
  std::ifstream table("/proc/self/net/netlink");
  for (std::string line; std::getline(table, line);) {
    std::istringstream words(line);
    std::string socket, protocol, port, groups, word;
    words >> socket >> protocol >> port >> groups;
    if (protocol != "0" || groups != "00020100") continue;
    while (words >> word) {
    }
    return word;
  }
  return {};
}

// The kernel tells of an address that is replaced by itself at once, and of nothing else.
void tell_of_address() { command("ip -6 addr replace 2001:db8::7/64 dev wan0 nodad"); }

// Tells each socket that listens as often as it asks for: also one that lost what came first. But
// not for ever, as one that never receives anything has to see two quiet seconds.
[[noreturn]] void bring_addresses() {
  constexpr int kMost = 10;
  std::string served;
  for (int told = 0;; usleep(told == 0 ? 1000 : 50000)) {
    const std::string waiting = listener();
    if (waiting != served) told = 0;
    served = waiting;
    if (waiting.empty() || told == kMost) continue;
    tell_of_address();
    ++told;
  }
}

// No other address there: the kernel tells of a new one as late as it likes, also those who only
// began to listen after it.
void make_network_that_brings_addresses() {
  make_links();
  const pid_t parent = getpid();
  if (fork() != 0) return;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) _exit(0);
  bring_addresses();
}

// ---- Queries ----

char g_text[46];

// 1: asked, but no gateway.
std::int64_t ask_for_gateway() {
  std::strcpy(g_text, "untouched");
  const std::int32_t code = CALL(vexa_get_ipv6_default_gw)("wan0", g_text);
  if (code != 0) return std::strcmp(g_text, "untouched") == 0 ? code : 999;
  if (*g_text == '\0') return 1;
  return verdict(std::strcmp(g_text, "2001:db8::2") == 0);
}

// 2: waited, but no address.
std::int64_t wait_for_address() {
  std::strcpy(g_text, "untouched");
  const std::int32_t code = CALL(vexa_check_global_ipv6_addr)("wan0", g_text);
  if (std::strcmp(g_text, "untouched") == 0) return code == 0 ? 2 : code;
  return verdict(code == 0 && std::strcmp(g_text, "2001:0db8:0000:0000:0000:0000:0000:0007") == 0);
}

const std::string g_route = route(via("2001:db8::2"));

std::int64_t look_into_route() {
  const void* const bytes = g_route.data();
  const auto* const message = static_cast<const nlmsghdr*>(bytes);
  rtattr* table[RTA_MAX + 1];
  rtattr attribute = {sizeof attribute, RTA_OIF};
  CALL(vexa_parse_rtattr)(table, RTA_MAX, &attribute, sizeof attribute);
  if (table[RTA_OIF] != &attribute) return 999;
  const std::int32_t code = CALL(vexa_dump_route)(message, "lo", g_text);
  return code != 0 ? code : verdict(std::strcmp(g_text, "2001:db8::2") == 0);
}

std::vector<Operation> query_operations() {
  return {
      {.name = "Ipv6Gateway",
       .prepare = make_network,
       .run = ask_for_gateway,
       .answers = {{0},
                   {1, "3 oem_rtnl_receive|Can't receive from socket:<any>\n"},
                   {1, "3 oem_rtnl_recvmsg|oem_MALLOC failed\n"},
                   {1, "3 oem_dump_route|Can't map iface name(wan0) to index\n", Line::kElsewhere},
                   {-1, "3 oem_get_ipv6_default_gw|couldn't open NETLINK_ROUTE socket:<any>\n"},
                   {-1, "3 oem_get_ipv6_default_gw|couldn't bind:<any>\n"},
                   {-1, "3 oem_get_ipv6_default_gw|Failed to perfom request\n"}}},
      {.name = "Ipv6AddressAwaited",
       .prepare = make_network_that_brings_addresses,
       .run = wait_for_address,
       .answers = {{0},
                   {2, "3 oem_epoll_event_handle|Timeout to wait for IPv6 event\n"},
                   {1, "3 oem_check_global_ipv6_addr|if_nametoindex failed:wan0\n"},
                   {1, "3 oem_check_global_ipv6_addr|epoll create failure:<any>\n"},
                   {1, "3 oem_check_global_ipv6_addr|couldn't open NETLINK_ROUTE socket:<any>\n"},
                   {1, "3 oem_check_global_ipv6_addr|couldn't bind:<any>\n"},
                   {1, "3 oem_check_global_ipv6_addr|epoll add sock_fd error\n"}},
       .reach = Reach::kSystem},
      {.name = "RouteMessage",
       .run = look_into_route,
       .answers = {{0}, {-1, "3 oem_dump_route|Can't map iface name(lo) to index\n"}},
       .reach = Reach::kSystem},
  };
}

// ---- Addresses ----

std::int64_t use_addresses() {
  static const std::uint8_t bytes[16] = {0x20, 1, 0x0d, 0xb8};
  bool good = CALL(ConvertIPv4ArrayToStr)(bytes, g_text, sizeof g_text) == 0 && g_text[0] == '3';
  good = good && CALL(ConvertIPv4NumToStr)(0xC0A80101, g_text, 16) == 0 && g_text[10] == '1';
  good = good && CALL(ConvertIPv6NumToStr)(bytes, g_text, 46) == 0 && std::strcmp(g_text, "2001:db8::") == 0;
  good = good && CALL(hex_BinaryToString)(bytes, 2, g_text, 5) == 4 && std::strcmp(g_text, "2001") == 0;
  good = good && CALL(DecToHex)(11) == 'B' && CALL(htoi)("0x1F") == 31;
  good = good && CALL(vexa_check_v4_ip)("1.2.3.4") == 1 && CALL(is_valid_ip)("1.2.3") == 0;
  return verdict(good && CALL(is_valid_ipv6)("::1") == 1 && CALL(Is_valid_SubnetMask)("255.255.0.0") == 1);
}

std::int64_t match() {
  return CALL(ereg)("^[ab]+[0-9]{2,3}$", "abba12") == 0 && CALL(Is_valid_Mac)("00:1A:2b:3C:4d:5E") == 1 ? 0
                                                                                                        : -1;
}

std::int64_t refuse_addresses() {
  return verdict(ConvertIPv4NumToStr(1, g_text, 15) == -1 && ConvertIPv6NumToStr(nullptr, g_text, 46) == -1);
}

std::vector<Operation> address_operations() {
  return {
      {.name = "Addresses", .run = use_addresses, .answers = {{0}}, .reach = Reach::kNothing},
      // The C library loses a block when it runs out of memory within an expression. With many
      // that have a group, glibc before 2.42 frees one twice (docs/caveats.md): nothing that calls it can
      // mend that.
      {.name = "AddressPatterns",
       .run = match,
       .answers = {{0}, {-1}},
       .keeps_memory = true,
       .reach = Reach::kMemory},
      {.name = "AddressesRefused",
       .run = refuse_addresses,
       .answers = {{0, "3 ConvertIPv6NumToStr|input ipNum is NULL now !!!\n"}}},
  };
}

}  // namespace

std::vector<Operation> network_operations() {
  std::vector<Operation> all = query_operations();
  for (const Operation& operation : address_operations()) all.push_back(operation);
  return all;
}

}  // namespace vexa_test
