// SPDX-License-Identifier: MIT
// Waits for an address that run their full time.
#include <gtest/gtest.h>
#include <net/if.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vexadm/netlink.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "support/log_capture.h"
#include "support/log_text.h"
#include "support/netlink_calls.h"
#include "support/netlink_message.h"
#include "support/network_fixture.h"

namespace {

using vexa_test::log_count;
using vexa_test::log_is;
using vexa_test::LogCapture;
using vexa_test::NetlinkCalls;
using Milliseconds = std::chrono::milliseconds;

class LongAddressWait : public vexa_test::NetworkTest {
 protected:
  void SetUp() override {
    NetworkTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    NetlinkCalls::reset();
    setenv("PATH", "/usr/sbin:/usr/bin:/sbin:/bin", 1);
    shell("ip link add wan0 type veth peer name lan0");
    for (const char* link : {"wan0", "lan0"}) {
      shell(std::string("ip link set ") + link + " addrgenmode none");
      shell(std::string("ip link set ") + link + " up");
    }
  }

  Milliseconds wait() {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(vexa_check_global_ipv6_addr("wan0", address_), 0);
    return std::chrono::duration_cast<Milliseconds>(std::chrono::steady_clock::now() - begin);
  }

  char address_[40] = "before";
};

constexpr char kTimeout[] = "3 oem_epoll_event_handle|Timeout to wait for IPv6 event\n";

TEST_F(LongAddressWait, EndsTwoSecondsAfterItBeganWhenNothingIsTold) {
  LogCapture log;
  const Milliseconds taken = wait();
  EXPECT_GE(taken.count(), 2000);
  EXPECT_LT(taken.count(), 3000);
  EXPECT_STREQ(address_, "before");
  EXPECT_TRUE(log_is(log, {kTimeout}));
}

TEST_F(LongAddressWait, IsNotToldOfAnAddressThatIsThereAlready) {
  // The kernel tells of it some time after the command has ended.
  NetlinkCalls::before_wait = [](int turn) {
    if (turn == 1) shell("ip -6 addr add 2001:db8::1/64 dev wan0 nodad");
  };
  wait();
  EXPECT_STREQ(address_, "2001:0db8:0000:0000:0000:0000:0000:0001");
  std::strcpy(address_, "before");
  wait();
  EXPECT_STREQ(address_, "before");
}

TEST_F(LongAddressWait, KeepsALinkLocalAddressAndEndsTwoSecondsAfterIt) {
  NetlinkCalls::before_wait = [](int turn) {
    if (turn == 1) shell("ip -6 addr add fe80::1/64 dev wan0 nodad");
  };
  LogCapture log;
  const Milliseconds taken = wait();
  EXPECT_GE(taken.count(), 3000) << "one to read, two without another";
  EXPECT_LT(taken.count(), 4500);
  EXPECT_STREQ(address_, "fe80:0000:0000:0000:0000:0000:0000:0001");
  EXPECT_TRUE(log_is(log, {"0 oem_epoll_event_handle|Process fd count:1\n",
                           "0 oem_nl_netlink_handle|rx len:<any> \n", kTimeout}));
}

TEST_F(LongAddressWait, IsStartedAnewByAnotherInterfaceToo) {
  NetlinkCalls::before_wait = [](int turn) {
    if (turn == 1) shell("ip -6 addr add 2001:db8:2::1/64 dev lan0 nodad");
  };
  const Milliseconds taken = wait();
  EXPECT_GE(taken.count(), 3000);
  EXPECT_STREQ(address_, "before");
}

TEST_F(LongAddressWait, GoesOnAsLongAsNotificationsComeAndThenFinds) {
  std::thread router;
  NetlinkCalls::before_wait = [&](int turn) {
    if (turn != 1) return;
    router = std::thread([] {
      for (int i = 1; i <= 3; ++i) {
        usleep(1500000);
        if (std::system(("ip -6 addr add fe80::" + std::to_string(i) + "/64 dev wan0 nodad").c_str()) != 0)
          return;
      }
      usleep(1500000);
      if (std::system("ip -6 addr add 2001:db8::1/64 dev wan0 nodad") != 0) return;
    });
  };
  LogCapture log;
  const Milliseconds taken = wait();
  router.join();
  EXPECT_GE(taken.count(), 6000);
  EXPECT_STREQ(address_, "2001:0db8:0000:0000:0000:0000:0000:0001");
  EXPECT_EQ(log_count(log, kTimeout), 0u);
}

TEST_F(LongAddressWait, IsNotMadeLongerBySignalsOfTheHost) {
  struct sigaction action = {};
  action.sa_handler = [](int) {};
  sigaction(SIGALRM, &action, nullptr);
  const itimerval often = {{0, 300000}, {0, 300000}};
  setitimer(ITIMER_REAL, &often, nullptr);
  LogCapture log;
  const Milliseconds taken = wait();
  const itimerval never = {};
  setitimer(ITIMER_REAL, &never, nullptr);
  EXPECT_GE(taken.count(), 2000);
  EXPECT_LT(taken.count(), 3000);
  EXPECT_EQ(log_count(log, kTimeout), 1u);
  EXPECT_GE(log_count(log, "0 oem_epoll_event_handle|Process fd count:-1\n"), 3u);
}

TEST_F(LongAddressWait, FindsWhatCameWhileASignalInterruptedTheReading) {
  struct sigaction action = {};
  action.sa_handler = [](int) {};
  sigaction(SIGALRM, &action, nullptr);
  NetlinkCalls::before_wait = [](int turn) {
    if (turn == 1) {
      // While the library reads for its second: the signal first, the address soon after.
      const itimerval soon = {{}, {0, 200000}};
      shell("ip -6 addr add fe80::1/64 dev wan0 nodad");
      setitimer(ITIMER_REAL, &soon, nullptr);
    }
    if (turn == 2) shell("ip -6 addr add 2001:db8::1/64 dev wan0 nodad");
  };
  const Milliseconds taken = wait();
  EXPECT_LT(taken.count(), 1000);
  EXPECT_STREQ(address_, "2001:0db8:0000:0000:0000:0000:0000:0001");
}

}  // namespace
