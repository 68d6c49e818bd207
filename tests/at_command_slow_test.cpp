// SPDX-License-Identifier: MIT
// Modems that do not come to an end: each wait has its 20 seconds.
#include <sys/resource.h>
#include <sys/select.h>
#include <unistd.h>
#include <vexadm/at_command.h>

#include <chrono>
#include <cstdlib>
#include <string>

#include "support/at_peer.h"
#include "support/log_text.h"
#include "support/modem_simulator.h"
#include "support/network_fixture.h"

namespace {

using namespace std::string_literals;
using Clock = std::chrono::steady_clock;
using vexa_test::AtPeer;
using vexa_test::log_is;
using vexa_test::LogCapture;

// Of the failure reply and what is left behind it.
std::string reply_with(const std::string& left) {
  std::string bytes = "\r\nERROR\r\n\0"s + left;
  bytes.resize(VEXA_AT_REPLY_SIZE, '\0');
  return bytes;
}

class SilentModem : public vexa_test::NetworkTest {
 protected:
  // The whole buffer, and how long it took.
  static std::string ask(const char* command, int at_least, int at_most) {
    const auto start = Clock::now();
    char* const reply = vexa_util_send_at(command);
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    const std::string bytes(reply, VEXA_AT_REPLY_SIZE);
    std::free(reply);
    EXPECT_GE(seconds, at_least - 0.5);
    EXPECT_LT(seconds, at_most);
    return bytes;
  }
};

TEST_F(SilentModem, NoServiceAtAllIsWaitedForThreeTimes) {
  if (IsSkipped()) return;
  LogCapture log;
  EXPECT_EQ(ask("AT", 60, 75), reply_with(""));
  EXPECT_TRUE(
      log_is(log, {"1 oem_util_send_at|send at cmd:[3,AT\r]\n", "3 oem_util_send_at|select fail:ret=0\n",
                   "3 oem_util_send_at|select fail:ret=0\n", "3 oem_util_send_at|select fail:ret=0\n"}));
}

TEST_F(SilentModem, OneThatTakesTheCommandIsWaitedForThreeTimes) {
  if (IsSkipped()) return;
  const vexa_test::ModemSimulator modem;
  EXPECT_EQ(ask("AT+SIM=DUMB", 60, 75), reply_with(""));
}

TEST_F(SilentModem, AnEchoAloneIsWaitedBehind) {
  if (IsSkipped()) return;
  AtPeer peer({"AT\r\r\n"});
  EXPECT_EQ(ask("AT", 40, 55), reply_with(""));
}

TEST_F(SilentModem, AFullBufferWithoutAnEndIsWaitedBehind) {
  if (IsSkipped()) return;
  const vexa_test::ModemSimulator modem;
  EXPECT_EQ(ask("AT+SIM=FULL", 40, 55), reply_with(std::string(2037, 'x')));
}

// Echo removal belongs to the first attempt, not to the first datagram.
TEST_F(SilentModem, AnEchoThatComesAfterTheFirstWaitStays) {
  if (IsSkipped()) return;
  AtPeer peer({"AT\r\r\nOK\r\n"}, [] { sleep(22); });
  std::string expected = "AT\r\r\nOK\r\n";
  expected.resize(VEXA_AT_REPLY_SIZE, '\0');
  EXPECT_EQ(ask("AT", 22, 37), expected);
}

// A descriptor for which a set has no place is waited for as long.
TEST_F(SilentModem, AHostWithVeryManyDescriptorsWaitsAsLong) {
  if (IsSkipped()) return;
  const rlimit many = {2000, 2000};
  if (setrlimit(RLIMIT_NOFILE, &many) != 0) GTEST_SKIP() << "the limit of descriptors cannot be set";
  while (dup(STDERR_FILENO) < FD_SETSIZE) {
  }
  EXPECT_EQ(ask("AT", 60, 75), reply_with(""));
}

}  // namespace
