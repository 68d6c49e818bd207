// SPDX-License-Identifier: MIT
#include "vexadm/netlink.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "support/child.h"
#include "support/emulated.h"
#include "support/failing_calloc.h"
#include "support/log_capture.h"
#include "support/log_text.h"
#include "support/netlink_calls.h"
#include "support/netlink_message.h"
#include "support/network_fixture.h"
#include "vexadm/log.h"

namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsNull;
using vexa_test::address;
using vexa_test::Arrival;
using vexa_test::attribute;
using vexa_test::bytes_of;
using vexa_test::ChildResult;
using vexa_test::Exact;
using vexa_test::FailingCalloc;
using vexa_test::log_count;
using vexa_test::log_is;
using vexa_test::LogCapture;
using vexa_test::message;
using vexa_test::NetlinkCalls;
using vexa_test::NetworkTest;
using vexa_test::new_address;
using vexa_test::route;
using vexa_test::run_in_child;
using vexa_test::through;
using vexa_test::via;

using Lines = std::vector<std::string>;
const Lines kNothing;

// ---- Attributes -------------------------------------------------------------

// A table with a place behind it that must not be touched.
template <std::size_t N>
std::array<rtattr*, N> parsed(const Exact& exact, std::int32_t max, std::int32_t length) {
  static rtattr untouched = {};
  std::array<rtattr*, N> table;
  table.fill(&untouched);
  vexa_parse_rtattr(table.data(), max, exact.attributes(), length);
  for (std::size_t i = static_cast<std::size_t>(max + 1); i < N; ++i) EXPECT_EQ(table[i], &untouched) << i;
  return table;
}

std::string value_of(const rtattr* found) {
  if (found == nullptr) return "(none)";
  return std::string(reinterpret_cast<const char*>(found + 1), found->rta_len - 4U);
}

TEST(Attributes, AreSortedByTypeAndTheOthersAreNone) {
  const std::string bytes = attribute(3, "three") + attribute(1, "one") + attribute(0, "");
  const Exact exact(bytes);
  const auto table = parsed<6>(exact, 4, static_cast<std::int32_t>(bytes.size()));
  EXPECT_EQ(value_of(table[0]), "");
  EXPECT_EQ(value_of(table[1]), "one");
  EXPECT_THAT(table[2], IsNull());
  EXPECT_EQ(value_of(table[3]), "three");
  EXPECT_THAT(table[4], IsNull());
}

TEST(Attributes, TheLastOfATypeCounts) {
  const std::string bytes = attribute(1, "first") + attribute(1, "last");
  const Exact exact(bytes);
  EXPECT_EQ(value_of(parsed<3>(exact, 1, static_cast<std::int32_t>(bytes.size()))[1]), "last");
}

TEST(Attributes, TypesAboveTheLargestAreSkipped) {
  const std::string bytes = attribute(2, "above") + attribute(0x8001, "flagged") + attribute(1, "kept");
  const Exact exact(bytes);
  const auto table = parsed<3>(exact, 1, static_cast<std::int32_t>(bytes.size()));
  EXPECT_THAT(table[0], IsNull());
  EXPECT_EQ(value_of(table[1]), "kept");
}

TEST(Attributes, OneThatIsTooShortOrTooLongEndsTheWalk) {
  for (const int length : {0, 3, 9, 0xFFFF}) {
    const std::string bytes = attribute(0, "good") + attribute(1, "last", length);
    const Exact exact(bytes);
    const auto table = parsed<4>(exact, 2, static_cast<std::int32_t>(bytes.size()));
    EXPECT_EQ(value_of(table[0]), "good") << length;
    EXPECT_THAT(table[1], IsNull()) << length;
  }
}

TEST(Attributes, FewerThanFourBytesAtTheEndAreNone) {
  const std::string bytes = attribute(0, "good") + std::string(3, '\4');
  const Exact exact(bytes);
  EXPECT_EQ(value_of(parsed<3>(exact, 1, 11)[0]), "good");
}

TEST(Attributes, TheLastOneNeedsNoPadding) {
  const std::string bytes = attribute(0, "good") + attribute(1, "a").substr(0, 5);
  const Exact exact(bytes);
  EXPECT_EQ(value_of(parsed<3>(exact, 1, 13)[1]), "a");
}

TEST(Attributes, AHeaderAloneIsAnAttribute) {
  const Exact exact(attribute(1, ""));
  EXPECT_EQ(parsed<3>(exact, 1, 4)[1], exact.attributes());
}

TEST(Attributes, NoneLeaveATableOfNone) {
  const Exact exact(attribute(1, ""));
  EXPECT_THAT((parsed<2>(exact, 1, 0)), Each(IsNull()));
  EXPECT_THAT((parsed<2>(exact, 1, -4)), Each(IsNull()));
  rtattr other = {};
  std::array<rtattr*, 2> table = {&other, &other};
  vexa_parse_rtattr(table.data(), 1, nullptr, 100);
  EXPECT_THAT(table, Each(IsNull()));
}

TEST(Attributes, ATableOfOnePlaceIsFilled) {
  const Exact exact(attribute(0, "good"));
  EXPECT_EQ(parsed<2>(exact, 0, 8)[0], exact.attributes());
}

TEST(Attributes, ATableWithoutPlacesIsLeftAlone) {
  const Exact exact(attribute(0, ""));
  for (const std::int32_t max : {-1, -2, INT32_MIN}) {
    std::array<rtattr*, 1> table = {exact.attributes()};
    vexa_parse_rtattr(table.data(), max, exact.attributes(), 4);
    EXPECT_EQ(table[0], exact.attributes()) << max;
  }
  vexa_parse_rtattr(nullptr, 1, exact.attributes(), 4);
}

// ---- Routes by hand ---------------------------------------------------------

constexpr char kUntouched[] = "untouched";

class Route : public NetworkTest {
 protected:
  std::int32_t dump(const std::string& bytes, const char* ifname = "lo") {
    const Exact exact(bytes);
    return vexa_dump_route(exact.message(), ifname, gateway_);
  }

  char gateway_[46] = "untouched";
};

TEST_F(Route, ItsGatewayIsWritten) {
  LogCapture log;
  EXPECT_EQ(dump(route(through(1) + via("2001:db8::1"))), 0);
  EXPECT_STREQ(gateway_, "2001:db8::1");
  EXPECT_TRUE(log_is(log, {"0 oem_dump_route|IPv6 gateway via 2001:db8::1\n"}));
}

TEST_F(Route, TheLongestGatewayFits) {
  EXPECT_EQ(dump(route(via("ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"))), 0);
  EXPECT_STREQ(gateway_, "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff");
}

TEST_F(Route, WithoutAnInterfaceFitsEachOne) {
  EXPECT_EQ(dump(route(via("fe80::1"))), 0);
  EXPECT_STREQ(gateway_, "fe80::1");
}

TEST_F(Route, ThroughAnotherInterfaceIsPassedOver) {
  LogCapture log;
  EXPECT_EQ(dump(route(through(2) + via("2001:db8::1"))), -1);
  EXPECT_STREQ(gateway_, kUntouched);
  EXPECT_TRUE(log_is(log, kNothing));
}

TEST_F(Route, WithoutAGatewayIsPassedOver) {
  LogCapture log;
  EXPECT_EQ(dump(route(through(1))), -1);
  EXPECT_EQ(dump(route("")), -1);
  EXPECT_STREQ(gateway_, kUntouched);
  EXPECT_TRUE(log_is(log, kNothing));
}

TEST_F(Route, OfAnotherFamilyIsPassedOver) {
  LogCapture log;
  EXPECT_EQ(dump(route(through(1) + via("2001:db8::1"), AF_INET)), -1);
  EXPECT_STREQ(gateway_, kUntouched);
  EXPECT_TRUE(log_is(log, kNothing));
}

TEST_F(Route, ItsMessageTypeIsNotLookedAt) {
  rtmsg header = {};
  header.rtm_family = AF_INET6;
  EXPECT_EQ(dump(message(RTM_DELROUTE, bytes_of(header) + via("fe80::1"))), 0);
}

TEST_F(Route, AMessageTooShortForOneIsLoggedWithItsLengths) {
  LogCapture log;
  EXPECT_EQ(dump(message(NLMSG_DONE, std::string(4, '\0'))), -1);
  EXPECT_EQ(dump(message(RTM_NEWROUTE, std::string(11, '\0'))), -1);
  EXPECT_EQ(dump(message(RTM_NEWROUTE, "", 0, 0)), -1);
  EXPECT_TRUE(log_is(log, {"3 oem_dump_route|Wrong message length:20:-8:28\n",
                           "3 oem_dump_route|Wrong message length:27:-1:28\n",
                           "3 oem_dump_route|Wrong message length:0:-28:28\n"}));
}

TEST_F(Route, ALengthThatIsNoPositiveNumberIsTooShort) {
  LogCapture log;
  EXPECT_EQ(dump(message(RTM_NEWROUTE, std::string(12, '\0'), 0, 0x80000000)), -1);
  EXPECT_EQ(dump(message(RTM_NEWROUTE, std::string(12, '\0'), 0, 0xFFFFFFFF)), -1);
  EXPECT_TRUE(log_is(log, {"3 oem_dump_route|Wrong message length:-2147483648:<any>:28\n",
                           "3 oem_dump_route|Wrong message length:-1:-29:28\n"}));
}

TEST_F(Route, AnUnknownInterfaceIsLoggedWhateverTheFamily) {
  LogCapture log;
  EXPECT_EQ(dump(route(via("fe80::1"), AF_INET), "nosuch0"), -1);
  EXPECT_STREQ(gateway_, kUntouched);
  EXPECT_TRUE(log_is(log, {"3 oem_dump_route|Can't map iface name(nosuch0) to index\n"}));
}

TEST_F(Route, TheLengthIsLookedAtBeforeTheInterface) {
  LogCapture log;
  EXPECT_EQ(dump(message(NLMSG_DONE, std::string(4, '\0')), "nosuch0"), -1);
  EXPECT_TRUE(log_is(log, {"3 oem_dump_route|Wrong message length:20:-8:28\n"}));
}

TEST_F(Route, AnAttributeTooShortForItsValueIsAbsent) {
  EXPECT_EQ(dump(route(attribute(RTA_GATEWAY, std::string(15, '\1')))), -1);
  EXPECT_EQ(dump(route(attribute(RTA_GATEWAY, ""))), -1);
  EXPECT_STREQ(gateway_, kUntouched);
  EXPECT_EQ(dump(route(via("fe80::1") + attribute(RTA_OIF, "\2"))), 0);
}

TEST_F(Route, TheLastAttributeOfATypeCounts) {
  EXPECT_EQ(dump(route(through(2) + via("fe80::1") + through(1) + via("fe80::2"))), 0);
  EXPECT_STREQ(gateway_, "fe80::2");
}

TEST_F(Route, NullIsRefused) {
  LogCapture log;
  const Exact exact(route(via("fe80::1")));
  EXPECT_EQ(vexa_dump_route(nullptr, "lo", gateway_), -1);
  EXPECT_EQ(vexa_dump_route(exact.message(), "lo", nullptr), -1);
  EXPECT_EQ(vexa_dump_route(exact.message(), nullptr, gateway_), -1);
  EXPECT_STREQ(gateway_, kUntouched);
  EXPECT_TRUE(log_is(log, {"3 oem_dump_route|Can't map iface name((null)) to index\n"}));
}

// ---- Links of the kernel ----------------------------------------------------

int open_descriptors() {
  int count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) ++count;
  return count;
}

// Two ends of one cable, up, without addresses that the kernel makes up by itself.
class Links : public NetworkTest {
 protected:
  void SetUp() override {
    NetworkTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    setenv("PATH", "/usr/sbin:/usr/bin:/sbin:/bin", 1);
    shell("ip link add wan0 type veth peer name lan0");
    for (const char* link : {"wan0", "lan0"}) {
      shell(std::string("ip link set ") + link + " addrgenmode none");
      shell(std::string("ip link set ") + link + " up");
    }
    NetlinkCalls::reset();
    index_ = if_nametoindex("wan0");
    descriptors_ = open_descriptors();
  }

  void TearDown() override {
    NetlinkCalls::reset();
    if (descriptors_ > 0) {
      EXPECT_EQ(open_descriptors(), descriptors_) << "left open";
    }
    NetworkTest::TearDown();
  }

  std::uint32_t index_ = 0;
  int descriptors_ = 0;
};

// From a socket of its own to that of a port; the kernel carries it as any other.
void send_to_port(std::uint32_t port, const std::string& bytes) {
  const int fd = static_cast<int>(syscall(SYS_socket, AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
  sockaddr_nl to = {};
  to.nl_family = AF_NETLINK;
  to.nl_pid = port;
  const long sent = syscall(SYS_sendto, fd, bytes.data(), bytes.size(), 0, &to, sizeof to);
  EXPECT_EQ(sent, static_cast<long>(bytes.size())) << strerror(errno);
  close(fd);
}

// ---- The gateway ------------------------------------------------------------

class Gateway : public Links {
 protected:
  void SetUp() override {
    Links::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    shell("ip -6 addr add 2001:db8:1::1/64 dev wan0 nodad");
    shell("ip -6 addr add 2001:db8:2::1/64 dev lan0 nodad");
  }

  std::int32_t ask(const char* ifname = "wan0") { return vexa_get_ipv6_default_gw(ifname, gateway_); }

  static std::size_t routes_of_the_kernel() {
    shell("ip -6 route show table all > /tmp/routes");
    std::ifstream routes("/tmp/routes");
    std::size_t count = 0;
    for (std::string line; std::getline(routes, line);) ++count;
    return count;
  }

  char gateway_[46] = "untouched";
};

constexpr char kDump[] = "0 oem_get_route_dump_response|Dump IPv6 default gateway:<any>\n";

TEST_F(Gateway, OfTheDefaultRouteIsFound) {
  shell("ip -6 route add default via 2001:db8:1::2 dev wan0");
  LogCapture log;
  EXPECT_EQ(ask(), 0);
  EXPECT_STREQ(gateway_, "2001:db8:1::2");
  EXPECT_TRUE(log_is(log, {kDump, "0 oem_dump_route|IPv6 gateway via 2001:db8:1::2\n"}));
}

TEST_F(Gateway, OfALinkLocalRouterIsFound) {
  shell("ip -6 route add default via fe80::1 dev wan0");
  EXPECT_EQ(ask(), 0);
  EXPECT_STREQ(gateway_, "fe80::1");
}

TEST_F(Gateway, OfAnotherInterfaceIsNotTaken) {
  shell("ip -6 route add default via 2001:db8:2::2 dev lan0");
  EXPECT_EQ(ask(), 0);
  EXPECT_STREQ(gateway_, "");
  EXPECT_EQ(ask("lan0"), 0);
  EXPECT_STREQ(gateway_, "2001:db8:2::2");
}

TEST_F(Gateway, OfAnyRouteCountsWhereverItLeads) {
  shell("ip -6 route add 2001:db8:9::/48 via 2001:db8:1::9 dev wan0");
  EXPECT_EQ(ask(), 0);
  EXPECT_STREQ(gateway_, "2001:db8:1::9");
}

TEST_F(Gateway, OfRoutesWithoutOneIsAnEmptyText) {
  LogCapture log;
  EXPECT_EQ(ask(), 0);
  EXPECT_STREQ(gateway_, "");
  EXPECT_EQ(log_count(log, "0 oem_dump_route|IPv6 gateway via <any>\n"), 0u);
}

TEST_F(Gateway, OfSeveralNextHopsIsNotTaken) {
  shell("ip -6 route add default nexthop via 2001:db8:1::2 dev wan0 nexthop via 2001:db8:1::3 dev wan0");
  EXPECT_EQ(ask(), 0);
  EXPECT_STREQ(gateway_, "");
}

TEST_F(Gateway, OfAnUnknownInterfaceIsAnEmptyTextAndEachRouteSaysSo) {
  shell("ip -6 route add default via 2001:db8:1::2 dev wan0");
  // The kernel adds routes of its own when an address or a link comes up, at a moment of its choice.
  for (std::size_t before = routes_of_the_kernel();;) {
    LogCapture log;
    EXPECT_EQ(ask("nosuch0"), 0);
    EXPECT_STREQ(gateway_, "");
    const std::size_t after = routes_of_the_kernel();
    if (before == after) {
      EXPECT_GT(before, 4u);
      EXPECT_EQ(log_count(log, "3 oem_dump_route|Can't map iface name(nosuch0) to index\n"), before);
      return;
    }
    before = after;
  }
}

TEST_F(Gateway, BehindTheFirstDatagramIsNotReached) {
  std::ofstream batch("/tmp/batch");
  for (int i = 0; i < 1500; ++i)
    batch << "route add 2001:db8:3:" << std::hex << i << "::/64 via 2001:db8:2::2 dev lan0\n";
  batch << "route add 2001:db8:ffff::/48 via 2001:db8:1::2 dev wan0\n";
  batch.close();
  shell("ip -6 -batch /tmp/batch");
  LogCapture log;
  EXPECT_EQ(ask(), 0);
  EXPECT_STREQ(gateway_, "");
  EXPECT_TRUE(log_is(log, {kDump}));
  EXPECT_EQ(NetlinkCalls::receives, 2) << "a look at the size, and one datagram";
  EXPECT_EQ(ask("lan0"), 0);
  EXPECT_STREQ(gateway_, "2001:db8:2::2") << "what was left behind harms nobody";
}

TEST_F(Gateway, IsAskedForByTheseBytesOnASocketThatCommandsDoNotInherit) {
  std::string sent;
  int flags = 0;
  NetlinkCalls::before_send = [&](int fd, const std::string& bytes) {
    sent = bytes;
    flags = fcntl(fd, F_GETFD);
  };
  EXPECT_EQ(ask(), 0);
  const unsigned char expected[] = {28, 0, 0,  0, 26, 0, 0x01, 0x03, 0x31, 0x12, 0, 0,    0, 0,
                                    0,  0, 10, 0, 0,  0, 0,    0,    0,    0,    0, 0x02, 0, 0};
  EXPECT_EQ(sent, std::string(reinterpret_cast<const char*>(expected), sizeof expected));
  EXPECT_EQ(flags, FD_CLOEXEC);
}

struct SetupFailure {
  const char* call;
  int error;
  const char* line;
};

class GatewayWithout : public Gateway, public ::testing::WithParamInterface<SetupFailure> {};

TEST_P(GatewayWithout, IsNotAskedForAndTheTextUntouched) {
  LogCapture log;
  NetlinkCalls::failing = GetParam().call;
  NetlinkCalls::error = GetParam().error;
  EXPECT_EQ(ask(), -1);
  EXPECT_STREQ(gateway_, "untouched");
  EXPECT_TRUE(log_is(log, {GetParam().line}));
}

INSTANTIATE_TEST_SUITE_P(
    Setup, GatewayWithout,
    ::testing::Values(SetupFailure{"socket", EMFILE,
                                   "3 oem_get_ipv6_default_gw|couldn't open NETLINK_ROUTE socket:24\n"},
                      SetupFailure{"bind", EADDRINUSE, "3 oem_get_ipv6_default_gw|couldn't bind:98\n"},
                      SetupFailure{"send", ENOBUFS, "3 oem_get_ipv6_default_gw|Failed to perfom request\n"}));

TEST_F(Gateway, NullIsRefusedAndNothingIsSaid) {
  LogCapture log;
  EXPECT_EQ(ask(nullptr), -1);
  EXPECT_STREQ(gateway_, "untouched");
  EXPECT_EQ(vexa_get_ipv6_default_gw("wan0", nullptr), -1);
  EXPECT_TRUE(log_is(log, kNothing));
}

TEST_F(Gateway, InterruptedSendingAndReceivingIsTriedAgain) {
  shell("ip -6 route add default via 2001:db8:1::2 dev wan0");
  NetlinkCalls::sends_interrupted = 3;
  NetlinkCalls::arrivals = {{EINTR}, {EAGAIN}, {EINTR}};
  LogCapture log;
  EXPECT_EQ(ask(), 0);
  EXPECT_STREQ(gateway_, "2001:db8:1::2");
  EXPECT_TRUE(log_is(log, {kDump, "0 oem_dump_route|IPv6 gateway via 2001:db8:1::2\n"}));
}

TEST_F(Gateway, WhoseReplyCannotBeLookedAtIsAnEmptyText) {
  LogCapture log;
  NetlinkCalls::arrivals = {{ENOBUFS}};
  EXPECT_EQ(ask(), 0);
  EXPECT_STREQ(gateway_, "");
  EXPECT_TRUE(log_is(log, {"3 oem_rtnl_receive|Can't receive from socket:105\n",
                           "0 oem_get_route_dump_response|Dump IPv6 default gateway:-1\n"}));
}

TEST_F(Gateway, WhoseReplyCannotBeReadIsAnEmptyText) {
  LogCapture log;
  NetlinkCalls::arrivals = {{0, route(via("fe80::1")), 0, EIO}};
  EXPECT_EQ(ask(), 0);
  EXPECT_STREQ(gateway_, "");
  EXPECT_TRUE(log_is(log, {"3 oem_rtnl_receive|Can't receive from socket:5\n",
                           "0 oem_get_route_dump_response|Dump IPv6 default gateway:-1\n"}));
}

TEST_F(Gateway, OfAClosedLinkIsAnEmptyText) {
  LogCapture log;
  NetlinkCalls::arrivals = {{}, {}};
  EXPECT_EQ(ask(), 0);
  EXPECT_STREQ(gateway_, "");
  EXPECT_TRUE(log_is(log, {"3 oem_rtnl_receive|EOF in the link\n", "3 oem_rtnl_receive|EOF in the link\n",
                           "0 oem_get_route_dump_response|Dump IPv6 default gateway:0\n"}));
}

TEST_F(Gateway, WithoutMemoryForTheReplyIsAnEmptyText) {
  VEXA_NEEDS_OWN_CALLOC();
  LogCapture log;
  NetlinkCalls::arrivals = {{0, std::string(7777, '\0')}};
  {
    const FailingCalloc no_memory(7777);
    EXPECT_EQ(ask(), 0);
  }
  NetlinkCalls::arrivals.clear();
  EXPECT_STREQ(gateway_, "");
  EXPECT_TRUE(log_is(log, {"3 oem_rtnl_recvmsg|oem_MALLOC failed\n",
                           "0 oem_get_route_dump_response|Dump IPv6 default gateway:-12\n"}));
}

std::string done() { return message(NLMSG_DONE, std::string(4, '\0')); }

class Reply : public Gateway {
 protected:
  // Asks, with this datagram for the kernel's answer. What was logged behind its size.
  Lines answer(const std::string& bytes, std::uint32_t sender = 0) {
    LogCapture log;
    NetlinkCalls::arrivals = {{0, bytes, sender}};
    EXPECT_EQ(ask(), 0);
    EXPECT_TRUE(NetlinkCalls::arrivals.empty());
    Lines lines = vexa_test::log_texts(log);
    EXPECT_EQ(lines.at(0), "0 oem_get_route_dump_response|Dump IPv6 default gateway:" +
                               std::to_string(bytes.size()) + "\n");
    lines.erase(lines.begin());
    return lines;
  }
};

TEST_F(Reply, ItsFirstRouteThatFitsCounts) {
  const Lines log = answer(route(through(index_ + 50) + via("fe80::1")) + route(through(index_)) +
                           route(through(index_) + via("fe80::2")) + route(through(index_) + via("fe80::3")));
  EXPECT_STREQ(gateway_, "fe80::2");
  EXPECT_EQ(log, (Lines{"0 oem_dump_route|IPv6 gateway via fe80::2\n"}));
}

TEST_F(Reply, TheEndOfTheDumpIsTakenForAShortRoute) {
  const Lines log = answer(route(through(index_)) + done() + route(via("fe80::1")));
  EXPECT_STREQ(gateway_, "fe80::1") << "and does not end the walk";
  EXPECT_EQ(log, (Lines{"3 oem_dump_route|Wrong message length:20:-8:28\n",
                        "0 oem_dump_route|IPv6 gateway via fe80::1\n"}));
}

TEST_F(Reply, AnInterruptedDumpEndsTheWalk) {
  const Lines log = answer(route(through(index_), AF_INET6, NLM_F_DUMP_INTR) + route(via("fe80::1")));
  EXPECT_STREQ(gateway_, "");
  EXPECT_EQ(log, (Lines{"3 oem_get_route_dump_response|Dump was interrupted\n"}));
}

TEST_F(Reply, AnInterruptedDumpIsSeenBeforeItsSender) {
  const Lines log = answer(route(via("fe80::1"), AF_INET6, NLM_F_DUMP_INTR), 4711);
  EXPECT_STREQ(gateway_, "");
  EXPECT_EQ(log, (Lines{"3 oem_get_route_dump_response|Dump was interrupted\n"}));
}

TEST_F(Reply, AnErrorEndsTheWalk) {
  const Lines log = answer(message(NLMSG_ERROR, std::string(20, '\0')) + route(via("fe80::1")));
  EXPECT_STREQ(gateway_, "");
  EXPECT_EQ(log, (Lines{"3 oem_get_route_dump_response|netlink reported error\n"}));
}

TEST_F(Reply, AMessageThatIsCutEndsTheWalk) {
  for (const std::int64_t length : {0LL, 15LL, 49LL, 0x7FFFFFFFLL, 0xFFFFFFFFLL}) {
    const Lines log =
        answer(route(through(index_)) + message(RTM_NEWROUTE, std::string(32, '\0'), 0, length));
    EXPECT_EQ(log, kNothing) << length;
  }
  EXPECT_EQ(answer(route(through(index_)) + std::string(15, '\x10')), kNothing);
  EXPECT_STREQ(gateway_, "");
}

TEST_F(Reply, AShortDatagramIsNoMessage) {
  EXPECT_EQ(answer("x"), kNothing);
  EXPECT_EQ(answer(std::string(15, '\x10')), kNothing);
  EXPECT_STREQ(gateway_, "");
}

TEST_F(Reply, TheLastMessageNeedsNoPadding) {
  // One byte behind the gateway, too few for another attribute.
  const std::string body = route(via("fe80::1")).substr(16) + "x";
  answer(route(through(index_)) + message(RTM_NEWROUTE, body).substr(0, 16 + body.size()));
  EXPECT_STREQ(gateway_, "fe80::1");
}

struct Foreign {
  const char* name;
  std::string bytes;
};

class AMessageOfAnotherProcess : public Gateway, public ::testing::WithParamInterface<Foreign> {};

TEST_P(AMessageOfAnotherProcess, HoldsTheCallForEverAndNothingIsSaidOfIt) {
  const ChildResult child = run_in_child(
      [&] {
        vexa_set_log_level(0);
        set_print_interface([](const char* line) { std::printf("%s", std::strrchr(line, '|') + 2); });
        // A host's signals do not end it either.
        std::signal(SIGALRM, [](int) {});
        const itimerval often = {{0, 50000}, {0, 50000}};
        setitimer(ITIMER_REAL, &often, nullptr);
        NetlinkCalls::before_send = [](int fd, const std::string&) {
          sockaddr_nl own = {};
          socklen_t size = sizeof own;
          getsockname(fd, reinterpret_cast<sockaddr*>(&own), &size);
          send_to_port(own.nl_pid, GetParam().bytes);
        };
        std::setvbuf(stdout, nullptr, _IONBF, 0);
        std::printf("asking\n");
        ask();
        std::printf("returned\n");
      },
      2);
  EXPECT_TRUE(child.timed_out);
  EXPECT_EQ(child.out, "asking\nDump IPv6 default gateway:" + std::to_string(GetParam().bytes.size()) + "\n");
}

INSTANTIATE_TEST_SUITE_P(Kinds, AMessageOfAnotherProcess,
                         ::testing::Values(Foreign{"Route", route(via("fe80::bad"))},
                                           Foreign{"Error", message(NLMSG_ERROR, std::string(20, '\0'))},
                                           Foreign{"End", done()}),
                         [](const auto& tested) { return tested.param.name; });

TEST_F(Gateway, IsAskedForThroughASocketWhosePortTheKernelChooses) {
  ask();
  ASSERT_EQ(NetlinkCalls::sockets.size(), 1u);
  EXPECT_THAT(NetlinkCalls::sockets[0], ElementsAre(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
  ASSERT_EQ(NetlinkCalls::addresses.size(), 1u);
  EXPECT_EQ(NetlinkCalls::addresses[0].nl_family, AF_NETLINK);
  EXPECT_EQ(NetlinkCalls::addresses[0].nl_pid, 0u);
  EXPECT_EQ(NetlinkCalls::addresses[0].nl_groups, 0u);
}

// ---- The wait for an address ------------------------------------------------

constexpr char kBefore[] = "before";

class AddressWait : public Links {
 protected:
  std::int32_t wait(const char* ifname = "wan0") { return vexa_check_global_ipv6_addr(ifname, address_); }

  // What happens as soon as the library listens.
  static void meanwhile(std::function<void()> event) {
    NetlinkCalls::before_wait = [event = std::move(event)](int turn) {
      if (turn == 1) event();
    };
  }
  static void told(const std::vector<std::string>& datagrams) {
    meanwhile([datagrams] {
      for (const std::string& bytes : datagrams) send_to_port(static_cast<std::uint32_t>(getpid()), bytes);
    });
  }

  char address_[40] = "before";
};

TEST_F(AddressWait, ANewGlobalAddressEndsIt) {
  meanwhile([] { shell("ip -6 addr add 2001:db8::1/64 dev wan0 nodad"); });
  LogCapture log;
  EXPECT_EQ(wait(), 0);
  EXPECT_STREQ(address_, "2001:0db8:0000:0000:0000:0000:0000:0001");
  EXPECT_TRUE(log_is(
      log, {"0 oem_epoll_event_handle|Process fd count:1\n", "0 oem_nl_netlink_handle|rx len:<any> \n",
            "0 oem_nl_netlink_handle|Return IPv6 addr:2001:0db8:0000:0000:0000:0000:0000:0001 scope:0\n",
            "0 oem_nl_netlink_handle|Get IPv6 address\n"}));
}

// True once somebody listens on that port of the routing netlink.
bool is_listening(pid_t port) {
  std::ifstream table("/proc/net/netlink");
  std::string line;
  while (std::getline(table, line)) {
    std::istringstream words(line);
    std::string socket;
    int protocol = -1;
    pid_t found = 0;
    words >> socket >> protocol >> found;
    if (words && protocol == 0 && found == port) return true;
  }
  return false;
}

TEST_F(AddressWait, AnotherProcessBringsTheAddress) {
  const pid_t waiting = getpid();
  const pid_t child = fork();
  if (child == 0) {
    while (!is_listening(waiting)) usleep(1000);
    _exit(std::system("ip -6 addr add 2001:db8::7/64 dev wan0 nodad") == 0 ? 0 : 1);
  }
  EXPECT_EQ(wait(), 0);
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_STREQ(address_, "2001:0db8:0000:0000:0000:0000:0000:0007");
}

TEST_F(AddressWait, AnUnknownInterfaceIsRefused) {
  LogCapture log;
  EXPECT_EQ(wait("nosuch0"), 1);
  EXPECT_EQ(wait(nullptr), 1);
  EXPECT_STREQ(address_, kBefore);
  EXPECT_TRUE(log_is(log, {"3 oem_check_global_ipv6_addr|if_nametoindex failed:nosuch0\n",
                           "3 oem_check_global_ipv6_addr|if_nametoindex failed:(null)\n"}));
}

TEST_F(AddressWait, NoBufferIsRefused) {
  LogCapture log;
  EXPECT_EQ(vexa_check_global_ipv6_addr("wan0", nullptr), 1);
  EXPECT_TRUE(log_is(log, kNothing));
}

class AddressWaitWithout : public AddressWait, public ::testing::WithParamInterface<SetupFailure> {};

TEST_P(AddressWaitWithout, IsRefusedAndLeavesNothingOpen) {
  LogCapture log;
  NetlinkCalls::failing = GetParam().call;
  NetlinkCalls::error = GetParam().error;
  EXPECT_EQ(wait(), 1);
  EXPECT_STREQ(address_, kBefore);
  EXPECT_TRUE(log_is(log, {GetParam().line}));
}

INSTANTIATE_TEST_SUITE_P(
    Setup, AddressWaitWithout,
    ::testing::Values(
        SetupFailure{"epoll_create1", EMFILE, "3 oem_check_global_ipv6_addr|epoll create failure:24\n"},
        SetupFailure{"socket", ENFILE,
                     "3 oem_check_global_ipv6_addr|couldn't open NETLINK_ROUTE socket:23\n"},
        SetupFailure{"setsockopt", ENOMEM,
                     "3 oem_check_global_ipv6_addr|couldn't open NETLINK_ROUTE socket:12\n"},
        SetupFailure{"bind", EPERM, "3 oem_check_global_ipv6_addr|couldn't bind:1\n"},
        SetupFailure{"epoll_ctl", ENOSPC, "3 oem_check_global_ipv6_addr|epoll add sock_fd error\n"}));

TEST_F(AddressWait, ASecondOneInTheProcessIsRefused) {
  std::int32_t second = -1;
  char second_address[40] = "";
  meanwhile([&] {
    second = vexa_check_global_ipv6_addr("wan0", second_address);
    shell("ip -6 addr add 2001:db8::1/64 dev wan0 nodad");
  });
  LogCapture log;
  EXPECT_EQ(wait(), 0);
  EXPECT_EQ(second, 1);
  EXPECT_STREQ(second_address, "");
  EXPECT_STREQ(address_, "2001:0db8:0000:0000:0000:0000:0000:0001");
  EXPECT_EQ(log_count(log, "3 oem_check_global_ipv6_addr|couldn't bind:98\n"), 1u);
}

TEST_F(AddressWait, OfSeveralAddressesTheFirstGlobalOneCounts) {
  told({new_address(index_, address("fe80::1") + address("2001:db8::abcd") + address("2001:db8::2"), 7)});
  LogCapture log;
  EXPECT_EQ(wait(), 0);
  EXPECT_STREQ(address_, "2001:0db8:0000:0000:0000:0000:0000:abcd");
  EXPECT_EQ(log_count(log, "0 oem_nl_netlink_handle|Return IPv6 addr:<any> scope:7\n"), 1u);
}

TEST_F(AddressWait, EachByteOfTheAddressStandsInItsPlace) {
  told({new_address(index_, address("2001:0db8:1234:5678:9abc:def0:1357:abcd"))});
  EXPECT_EQ(wait(), 0);
  EXPECT_STREQ(address_, "2001:0db8:1234:5678:9abc:def0:1357:abcd");
}

TEST_F(AddressWait, OnlyFe80ItselfIsLinkLocal) {
  told({new_address(index_, address("fe80:1234::1") + address("FE80::2") + address("fe81::3"))});
  EXPECT_EQ(wait(), 0);
  EXPECT_STREQ(address_, "fe81:0000:0000:0000:0000:0000:0000:0003");
}

TEST_F(AddressWait, BehindAnotherInterfaceADatagramIsNotLookedAt) {
  told({new_address(index_ + 50, address("2001:db8::1")) + new_address(index_, address("2001:db8::2")),
        new_address(index_, address("2001:db8::3"))});
  EXPECT_EQ(wait(), 0);
  EXPECT_STREQ(address_, "2001:0db8:0000:0000:0000:0000:0000:0003");
}

TEST_F(AddressWait, BehindAnotherInterfaceWithoutAttributesADatagramIsNotLookedAtEither) {
  told({new_address(index_ + 50, "") + new_address(index_, address("2001:db8::1")),
        new_address(index_, address("2001:db8::2"))});
  EXPECT_EQ(wait(), 0);
  EXPECT_STREQ(address_, "2001:0db8:0000:0000:0000:0000:0000:0002");
}

TEST_F(AddressWait, OtherMessagesArePassedOver) {
  VEXA_NOT_EMULATED("the emulator sends no netlink messages that it does not know");
  told({new_address(index_, address("2001:db8::1"), 0, RTM_DELADDR) +
        message(RTM_NEWADDR, std::string(7, '\0')) + message(RTM_NEWPREFIX, std::string(40, '\xFF')) +
        new_address(index_, address("2001:db8::2"))});
  EXPECT_EQ(wait(), 0);
  EXPECT_STREQ(address_, "2001:0db8:0000:0000:0000:0000:0000:0002");
}

TEST_F(AddressWait, TheEndOfADumpEndsTheDatagram) {
  const std::string good = new_address(index_, address("2001:db8::1"));
  told({done() + good, new_address(index_, address("fe80::1")) + done() + good,
        new_address(index_, address("2001:db8::2"))});
  EXPECT_EQ(wait(), 0);
  EXPECT_STREQ(address_, "2001:0db8:0000:0000:0000:0000:0000:0002");
}

TEST_F(AddressWait, DamagedDatagramsArePassedOver) {
  const std::string good = new_address(index_, address("2001:db8::1"));
  std::string cut = good;
  cut.resize(cut.size() - 4);
  std::string tiny = good;
  tiny[0] = 15;
  told({std::string(15, '\x10'), cut, tiny, message(RTM_NEWADDR, std::string(8, '\0'), 0, 0xFFFFFFFF),
        new_address(index_, attribute(IFA_ADDRESS, std::string(15, '\x20')) + address("2001:db8::2"))});
  LogCapture log;
  EXPECT_EQ(wait(), 0);
  EXPECT_STREQ(address_, "2001:0db8:0000:0000:0000:0000:0000:0002");
  EXPECT_EQ(log_count(log, "0 oem_nl_netlink_handle|rx len:<any> \n"), 5u);
  EXPECT_EQ(log_count(log, "0 oem_nl_netlink_handle|rx len:15 \n"), 1u);
}

TEST_F(AddressWait, OtherAttributesArePassedOver) {
  told({new_address(index_, attribute(IFA_LOCAL, vexa_test::ipv6("2001:db8::1")) + address("2001:db8::2"))});
  EXPECT_EQ(wait(), 0);
  EXPECT_STREQ(address_, "2001:0db8:0000:0000:0000:0000:0000:0002");
}

TEST_F(AddressWait, AnInterruptedWaitGoesOn) {
  NetlinkCalls::waits_interrupted = 2;
  meanwhile([] { shell("ip -6 addr add 2001:db8::1/64 dev wan0 nodad"); });
  LogCapture log;
  EXPECT_EQ(wait(), 0);
  EXPECT_STREQ(address_, "2001:0db8:0000:0000:0000:0000:0000:0001");
  EXPECT_EQ(log_count(log, "0 oem_epoll_event_handle|Process fd count:-1\n"), 2u);
}

TEST_F(AddressWait, ReceivingThatIsInterruptedOrHasLostSomethingTakesWhatIsLeft) {
  for (const int error : {EINTR, ENOBUFS}) {
    NetlinkCalls::waits = 0;
    NetlinkCalls::arrivals = {{error}};
    told({new_address(index_, address("2001:db8::1"))});
    EXPECT_EQ(wait(), 0);
    EXPECT_STREQ(address_, "2001:0db8:0000:0000:0000:0000:0000:0001") << error;
    EXPECT_EQ(NetlinkCalls::waits, 1) << error;
    std::strcpy(address_, kBefore);
  }
}

TEST_F(AddressWait, ReceivingGoesOnUntilNothingIsLeft) {
  NetlinkCalls::arrivals = {{EINTR}, {ENOBUFS}, {EINTR}};
  told({new_address(index_, address("fe80::1")), new_address(index_, address("2001:db8::1"))});
  EXPECT_EQ(wait(), 0);
  EXPECT_STREQ(address_, "2001:0db8:0000:0000:0000:0000:0000:0001");
  EXPECT_EQ(NetlinkCalls::waits, 1) << "what has been announced is not announced again";
}

TEST_F(AddressWait, AnyOtherErrorEndsTheReadingUntilTheNextNotification) {
  NetlinkCalls::arrivals = {{EIO}};
  NetlinkCalls::before_wait = [&](int turn) {
    const char* const text = turn == 1 ? "2001:db8::1" : "2001:db8::2";
    send_to_port(static_cast<std::uint32_t>(getpid()), new_address(index_, address(text)));
  };
  EXPECT_EQ(wait(), 0);
  EXPECT_STREQ(address_, "2001:0db8:0000:0000:0000:0000:0000:0001");
  EXPECT_EQ(NetlinkCalls::waits, 2);
}

TEST_F(AddressWait, ListensToAddressesAndPrefixesAndReadsForOneSecond) {
  told({new_address(index_, address("2001:db8::1"))});
  EXPECT_EQ(wait(), 0);
  ASSERT_EQ(NetlinkCalls::sockets.size(), 1u);
  EXPECT_THAT(NetlinkCalls::sockets[0], ElementsAre(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
  ASSERT_EQ(NetlinkCalls::options.size(), 1u);
  EXPECT_EQ(NetlinkCalls::options[0].level, SOL_SOCKET);
  EXPECT_EQ(NetlinkCalls::options[0].name, SO_RCVTIMEO);
  EXPECT_EQ(NetlinkCalls::options[0].value.tv_sec, 1);
  EXPECT_EQ(NetlinkCalls::options[0].value.tv_usec, 0);
  ASSERT_EQ(NetlinkCalls::addresses.size(), 1u);
  EXPECT_EQ(NetlinkCalls::addresses[0].nl_family, AF_NETLINK);
  EXPECT_EQ(NetlinkCalls::addresses[0].nl_pid, static_cast<std::uint32_t>(getpid()));
  EXPECT_EQ(NetlinkCalls::addresses[0].nl_groups, 0x20100u);
}

TEST_F(AddressWait, WaitsForEachArrivalOnceWithRoomForThirtyTwo) {
  told({new_address(index_, address("2001:db8::1"))});
  EXPECT_EQ(wait(), 0);
  EXPECT_THAT(NetlinkCalls::watched, ElementsAre(EPOLLIN | EPOLLET));
  ASSERT_EQ(NetlinkCalls::limits.size(), 1u);
  EXPECT_THAT(NetlinkCalls::limits[0], ElementsAre(32, 2000));
}

TEST_F(AddressWait, TheMillisecondThatHasBegunIsNotTakenFromItsTwoSeconds) {
  told({new_address(index_, address("2001:db8::1"))});
  NetlinkCalls::monotonic = {{10, 999999}, {10, 1000000}};  // a nanosecond later the next one begins
  EXPECT_EQ(wait(), 0);
  ASSERT_EQ(NetlinkCalls::limits.size(), 1u);
  EXPECT_THAT(NetlinkCalls::limits[0], ElementsAre(32, 2000));
}

TEST_F(AddressWait, WhatIsLeftOfItsTwoSecondsIsCountedInMilliseconds) {
  told({new_address(index_, address("2001:db8::1"))});
  NetlinkCalls::monotonic = {{10, 0}, {10, 999999999}};
  EXPECT_EQ(wait(), 0);
  ASSERT_EQ(NetlinkCalls::limits.size(), 1u);
  EXPECT_THAT(NetlinkCalls::limits[0], ElementsAre(32, 1002));
}

TEST_F(AddressWait, NewsOfTheSocketWithoutADatagramAreNotRead) {
  NetlinkCalls::announced = {EPOLLERR};
  told({new_address(index_, address("2001:db8::1"))});
  EXPECT_EQ(wait(), 0);
  EXPECT_STREQ(address_, "2001:0db8:0000:0000:0000:0000:0000:0001");
  EXPECT_EQ(NetlinkCalls::waits, 2);
}

TEST_F(AddressWait, NothingIsInheritedByCommands) {
  std::string flags;
  meanwhile([&] {
    for (int fd = 3; fd < 64; ++fd) {
      const int of = fcntl(fd, F_GETFD);
      if (of == 0) flags += " " + std::to_string(fd);
    }
    shell("ip -6 addr add 2001:db8::1/64 dev wan0 nodad");
  });
  EXPECT_EQ(wait(), 0);
  std::string before;
  for (int fd = 3; fd < 64; ++fd) {
    if (fcntl(fd, F_GETFD) == 0) before += " " + std::to_string(fd);
  }
  EXPECT_EQ(flags, before);
}

}  // namespace
