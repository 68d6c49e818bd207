// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>
#include <vexadm/at_command.h>
#include <vexadm/log.h>

#include <array>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <thread>

#include "support/at_peer.h"
#include "support/child.h"
#include "support/failing_calloc.h"
#include "support/log_text.h"
#include "support/modem_simulator.h"
#include "support/network_fixture.h"

namespace {

using namespace std::string_literals;
using vexa_test::AtPeer;
using vexa_test::log_count;
using vexa_test::log_is;
using vexa_test::LogCapture;
using vexa_test::ModemSimulator;
using Texts = std::vector<std::string>;

const std::string kFailure = "\r\nERROR\r\n";

// The whole buffer, whose last byte is never filled.
std::string whole_reply(const char* command) {
  char* const reply = vexa_util_send_at(command);
  const std::string bytes(reply, VEXA_AT_REPLY_SIZE);
  std::free(reply);
  EXPECT_EQ(bytes.back(), '\0');
  return bytes;
}

std::string ask(const char* command) { return whole_reply(command).c_str(); }

std::string padded(std::string text) {
  text.resize(VEXA_AT_REPLY_SIZE, '\0');
  return text;
}

class AtCommand : public vexa_test::NetworkTest {
 protected:
  void SetUp() override {
    NetworkTest::SetUp();
    vexa_set_log_level(4);
  }
};

// ---- What is sent ----

struct Framed {
  const char* name;
  std::string command;
  std::string sent;
};

class AtFraming : public AtCommand, public ::testing::WithParamInterface<Framed> {};

TEST_P(AtFraming, SendsCapitalsWithOneCarriageReturn) {
  if (IsSkipped()) return;
  AtPeer peer({"\r\r\nOK\r\n"});
  EXPECT_THAT(ask(GetParam().command.c_str()), ::testing::EndsWith("OK\r\n"));
  EXPECT_EQ(peer.command(), GetParam().sent);
}

INSTANTIATE_TEST_SUITE_P(Commands, AtFraming,
                         ::testing::ValuesIn(std::vector<Framed>{
                             {"Bare", "AT", "AT\r"},
                             {"WithALineFeed", "AT\n", "AT\r"},
                             {"WithACarriageReturn", "AT\r", "AT\r"},
                             {"WithBoth", "AT\r\n", "AT\r"},
                             {"WithTwoCarriageReturns", "AT\r\r\n", "AT\r\r"},
                             {"WithTwoLineFeeds", "AT\n\n", "AT\n\r"},
                             {"WithBothTheOtherWayRound", "AT\n\r", "AT\n\r"},
                             {"InSmallLetters", "at+cgdcont=1,\"ip\"", "AT+CGDCONT=1,\"IP\"\r"},
                             {"QuotedTextToo", "AT+CPWD=\"sc\",\"pass{word}z\"",
                              "AT+CPWD=\"SC\",\"PASS{WORD}Z\"\r"},
                             {"OtherLettersStay", "AT`{\xE4\xC3\xA4", "AT`{\xE4\xC3\xA4\r"},
                             {"Long", "AT" + std::string(5000, 'z'), "AT" + std::string(5000, 'Z') + "\r"},
                             {"ALineFeedAlone", "\n", "\r"},
                             {"LineEndAlone", "\r\n", "\r"},
                         }),
                         [](const auto& tested) { return tested.param.name; });

TEST_F(AtCommand, WithoutACommandIsAFailureAndSendsNothing) {
  if (IsSkipped()) return;
  LogCapture log;
  EXPECT_EQ(whole_reply(nullptr), padded(kFailure));
  EXPECT_EQ(whole_reply(""), padded(kFailure));
  EXPECT_TRUE(log_is(log, {}));
}

TEST_F(AtCommand, LeavesTheCommandAsItIs) {
  if (IsSkipped()) return;
  AtPeer peer({"OK\r\n"});
  char command[] = "at+csq\r\n";
  ask(command);
  EXPECT_STREQ(command, "at+csq\r\n");
}

// ---- Echo ----

struct Reply {
  const char* name;
  Texts datagrams;
  std::string text;
};

class AtEcho : public AtCommand, public ::testing::WithParamInterface<Reply> {};

TEST_P(AtEcho, IsRemovedFromTheFirstDatagramWithTheLineEndsBehindIt) {
  if (IsSkipped()) return;
  AtPeer peer(GetParam().datagrams);
  EXPECT_EQ(ask("AT+CSQ"), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    Replies, AtEcho,
    ::testing::ValuesIn(std::vector<Reply>{
        {"Usual", {"AT+CSQ\r\r\n+CSQ: 20,99\r\n\r\nOK\r\n"}, "+CSQ: 20,99\r\n\r\nOK\r\n"},
        {"None", {"\r\n+CSQ: 20,99\r\n\r\nOK\r\n"}, "\r\n+CSQ: 20,99\r\n\r\nOK\r\n"},
        {"WithWhatStandsBefore", {"\r\nRING\r\nAT+CSQ\r\r\n+CSQ: 1\r\nOK\r\n"}, "+CSQ: 1\r\nOK\r\n"},
        {"WithATerminatorBefore", {"a\0AT+CSQ\r\r\nOK\r\n"s}, "OK\r\n"},
        {"WithEachRunOfBlanks", {"AT+CSQ\r   \r\r\n\n\nOK\r\n"}, "OK\r\n"},
        {"BlanksInOneOrderOnly", {"AT+CSQ\r\n\r +CSQ: 1\r\nOK\r\n"}, "\r +CSQ: 1\r\nOK\r\n"},
        {"BlanksOnceOnly", {"AT+CSQ\r \r\n OK\rOK\r\n"}, " OK\rOK\r\n"},
        {"OnlyTheFirst", {"AT+CSQ\rAT+CSQ\r\nOK\r\n"}, "AT+CSQ\r\nOK\r\n"},
        {"NotInOtherLetters", {"at+csq\r\r\nOK\r\n"}, "at+csq\r\r\nOK\r\n"},
        {"NotWithoutItsCarriageReturn", {"AT+CSQ\nOK\r\n"}, "AT+CSQ\nOK\r\n"},
        {"NotFromTheSecondDatagram", {"\r\n", "AT+CSQ\r\r\nOK\r\n"}, "\r\nAT+CSQ\r\r\nOK\r\n"},
        {"NotFromTwoDatagrams", {"AT+", "CSQ\r\r\nOK\r\n"}, "AT+CSQ\r\r\nOK\r\n"},
        {"Alone", {"AT+CSQ\r", "\r\n+CSQ: 1\r\n", "\r\nOK\r\n"}, "\r\n+CSQ: 1\r\n\r\nOK\r\n"},
        {"AloneWithItsLineEnds", {"AT+CSQ\r\r\n", "OK\r\n"}, "OK\r\n"},
        {"AloneWithATerminator", {"AT+CSQ\r\0"s, "OK\r\n"}, "OK\r\n"},
        {"AloneWithTerminatorsBehindItsLineEnds", {"AT+CSQ\r\r\n\0\0"s, "OK\r\n"}, "OK\r\n"},
        {"WithATerminatorBehindIt", {"AT+CSQ\r\0\r\nOK\r\n"s, "x"}, "\r\nOK\r\n"},
        {"ThenATerminatorAndMoreInTheSecond", {"AT+CSQ\r\r\n+CSQ: 1\r\n\0"s, "OK\r\n"}, "+CSQ: 1\r\nOK\r\n"},
        {"ThenMoreInTheSecond", {"AT+CSQ\r\r\n+CSQ: 1\r\n", "OK\r\n"}, "+CSQ: 1\r\nOK\r\n"},
    }),
    [](const auto& tested) { return tested.param.name; });

TEST_F(AtCommand, NothingOfARemovedEchoIsLeftInTheBuffer) {
  if (IsSkipped()) return;
  AtPeer peer({"\r\nRING\r\nAT+CSQ\r\r\nOK\r\n"});
  EXPECT_EQ(whole_reply("AT+CSQ"), padded("OK\r\n"));
}

TEST_F(AtCommand, ATerminatorInTheRestBehindAnEchoIsKeptWithWhatFollows) {
  if (IsSkipped()) return;
  AtPeer peer({"AT+CSQ\r\r\n+X: 1\0\r\nOK\r\n"s, "x"});
  EXPECT_EQ(whole_reply("AT+CSQ"), padded("+X: 1\0\r\nOK\r\n"s));
}

TEST_F(AtCommand, AnEchoAloneIsClearedAndTheNextDatagramStandsAtTheStart) {
  if (IsSkipped()) return;
  AtPeer peer({"AT\r\r\n", "\r\nOK\r\n"});
  LogCapture log;
  EXPECT_EQ(whole_reply("AT"), padded("\r\nOK\r\n"));
  EXPECT_TRUE(log_is(
      log, {"1 oem_util_send_at|send at cmd:[3,AT\r]\n",
            "1 oem_util_send_at|recvfrom[0,0] 5 bytes:[5, AT\r\r\n]\n",
            "0 oem_util_send_at|str_end_rsp[k]=ERROR\r\n", "0 oem_util_send_at|str_end_rsp[k]=OK\r\n\r\n",
            "0 oem_util_send_at|str_end_rsp[k]=0\r\r\n", "0 oem_util_send_at|str_end_rsp[k]=3\r\r\n",
            "0 oem_util_send_at|str_end_rsp[k]=3\r\n", "0 oem_util_send_at|str_end_rsp[k]=4\r\r\n",
            "0 oem_util_send_at|str_end_rsp[k]=NO CARRIER\r\n",
            "0 oem_util_send_at|str_end_rsp[k]=+CME ERROR:\r\n",
            "1 oem_util_send_at|recvfrom[1,0] 6 bytes:[6, \r\nOK\r\n]\n",
            "0 oem_util_send_at|str_end_rsp[k]=ERROR\r\n", "0 oem_util_send_at|str_end_rsp[k]=OK\r\n\r\n"}));
}

// ---- Ends ----

struct End {
  const char* name;
  std::string text;
};

class AtEnd : public AtCommand, public ::testing::WithParamInterface<End> {
 protected:
  // The second datagram is only read where the first one does not end the reply.
  static std::string after(const std::string& before) {
    AtPeer peer({before + GetParam().text, "\r\nERROR\r\n"});
    return ask("AT");
  }
};

TEST_P(AtEnd, CountsWhereALineBegins) {
  if (IsSkipped()) return;
  for (const char* before : {"", "\r", "\n", "\r\nx\r\n", "x y\n"}) {
    EXPECT_EQ(after(before), before + GetParam().text) << ::testing::PrintToString(before);
  }
}

TEST_P(AtEnd, CountsBehindATerminator) {
  if (IsSkipped()) return;
  // Their text is the same: the second datagram would stand behind it.
  AtPeer peer({"x\0"s + GetParam().text, "\r\nERROR\r\n"});
  EXPECT_EQ(whole_reply("AT"), padded("x\0"s + GetParam().text));
}

TEST_P(AtEnd, DoesNotCountWithinALine) {
  if (IsSkipped()) return;
  for (const char* before : {"x", " ", "\r\n+X: ", "\"", "\t", "\xFF"}) {
    EXPECT_EQ(after(before), before + GetParam().text + "\r\nERROR\r\n") << ::testing::PrintToString(before);
  }
}

INSTANTIATE_TEST_SUITE_P(Markers, AtEnd,
                         ::testing::ValuesIn(std::vector<End>{{"Error", "ERROR"},
                                                              {"Ok", "OK\r\n"},
                                                              {"NumericOk", "0\r"},
                                                              {"NumericNoCarrier", "3\r"},
                                                              {"Three", "3"},
                                                              {"NumericError", "4\r"},
                                                              {"NoCarrier", "NO CARRIER"},
                                                              {"CmeError", "+CME ERROR:"}}),
                         [](const auto& tested) { return tested.param.name; });

class AtNoEnd : public AtCommand, public ::testing::WithParamInterface<End> {};

TEST_P(AtNoEnd, IsReadOn) {
  if (IsSkipped()) return;
  AtPeer peer({GetParam().text, "\r\nOK\r\n"});
  EXPECT_EQ(ask("AT"), GetParam().text + "\r\nOK\r\n");
}

INSTANTIATE_TEST_SUITE_P(Texts, AtNoEnd,
                         ::testing::ValuesIn(std::vector<End>{{"OkWithoutItsLineEnd", "OK"},
                                                              {"OkWithHalfALineEnd", "OK\r"},
                                                              {"ZeroWithoutACarriageReturn", "0"},
                                                              {"Four", "4"},
                                                              {"OtherNumbers", "1\r2\r5\r"},
                                                              {"CmsError", "+CMS ERROR: 500"},
                                                              {"CmeWithoutItsColon", "+CME ERROR 10"},
                                                              {"SmallLetters", "error"},
                                                              {"NothingAtAll", "\r\n"}}),
                         [](const auto& tested) { return tested.param.name; });

TEST_F(AtCommand, OneMarkerDirectlyBehindOneWithinALineCounts) {
  if (IsSkipped()) return;
  AtPeer peer({"xERRORERROR", "OK\r\n"});
  EXPECT_EQ(ask("AT"), "xERRORERROR");
}

TEST_F(AtCommand, AMarkerMayComeInTwoDatagrams) {
  if (IsSkipped()) return;
  AtPeer peer({"\r\nNO CA", "RRIER\r\n", "x"});
  EXPECT_EQ(ask("ATD1"), "\r\nNO CARRIER\r\n");
}

TEST_F(AtCommand, ALineThatBeginsWithThreeEndsTheReplyAtOnce) {
  if (IsSkipped()) return;
  AtPeer peer({"\r\n358240051111110\r\n", "\r\nOK\r\n"});
  EXPECT_EQ(ask("AT+CGSN"), "\r\n358240051111110\r\n");
}

// ---- Bounds ----

TEST_F(AtCommand, ReadsThreeDatagramsAndNoMore) {
  if (IsSkipped()) return;
  AtPeer peer({"a\r\n", "b\r\n", "c\r\n", "OK\r\n"});
  EXPECT_EQ(ask("AT"), kFailure);
}

TEST_F(AtCommand, AFailureStandsOverThePartialReply) {
  if (IsSkipped()) return;
  AtPeer peer({"0123456789abcdef", "g", "h"});
  EXPECT_EQ(whole_reply("AT"), padded("\r\nERROR\r\n\0abcdefgh"s.replace(10, 6, "abcdef")));
}

TEST_F(AtCommand, AnEmptyDatagramUsesUpAnAttempt) {
  if (IsSkipped()) return;
  AtPeer peer({"", "OK\r\n"});
  EXPECT_EQ(ask("AT"), "OK\r\n");
}

TEST_F(AtCommand, AFullBufferTakesNothingMore) {
  if (IsSkipped()) return;
  const std::string full(2047, 'x');
  AtPeer peer({full, "\r\nOK\r\n", "\r\nOK\r\n"});
  LogCapture log;
  vexa_set_log_level(1);
  EXPECT_EQ(whole_reply("AT"), kFailure + "\0"s + full.substr(10) + "\0"s);
  EXPECT_TRUE(log_is(log, {"1 oem_util_send_at|send at cmd:[3,AT\r]\n",
                           "1 oem_util_send_at|recvfrom[0,0] 2047 bytes:[2047, " + full + "]\n",
                           "1 oem_util_send_at|recvfrom[1,2047] 0 bytes:[2047, " + full + "]\n",
                           "1 oem_util_send_at|recvfrom[2,2047] 0 bytes:[2047, " + full + "]\n"}));
}

TEST_F(AtCommand, ALongerDatagramIsCut) {
  if (IsSkipped()) return;
  AtPeer peer({"\r\nOK\r\n" + std::string(5000, 'x')});
  EXPECT_EQ(whole_reply("AT"), "\r\nOK\r\n" + std::string(2041, 'x') + "\0"s);
}

TEST_F(AtCommand, AnEndInTheLastBytesOfTheBufferCounts) {
  if (IsSkipped()) return;
  const std::string text = std::string(2042, 'x') + "\nOK\r\n";
  AtPeer peer({text});
  EXPECT_EQ(ask("AT"), text);
}

// ---- The log ----

TEST_F(AtCommand, LogsEachMarkerAsItIsTried) {
  if (IsSkipped()) return;
  AtPeer peer({"AT\r\r\nxOK\r\n", "+CME ERROR: 10\r\n"});
  LogCapture log;
  EXPECT_EQ(ask("at\n"), "xOK\r\n+CME ERROR: 10\r\n");
  EXPECT_TRUE(log_is(log, {
                              "1 oem_util_send_at|send at cmd:[3,AT\r]\n",
                              "1 oem_util_send_at|recvfrom[0,0] 10 bytes:[10, AT\r\r\nxOK\r\n]\n",
                              "0 oem_util_send_at|str_end_rsp[k]=ERROR\r\n",
                              "0 oem_util_send_at|str_end_rsp[k]=OK\r\n\r\n",
                              "0 oem_util_send_at|no correct end:<xOK\r\n>,<xOK\r\n>,<120>\r\n",
                              "0 oem_util_send_at|str_end_rsp[k]=0\r\r\n",
                              "0 oem_util_send_at|str_end_rsp[k]=3\r\r\n",
                              "0 oem_util_send_at|str_end_rsp[k]=3\r\n",
                              "0 oem_util_send_at|str_end_rsp[k]=4\r\r\n",
                              "0 oem_util_send_at|str_end_rsp[k]=NO CARRIER\r\n",
                              "0 oem_util_send_at|str_end_rsp[k]=+CME ERROR:\r\n",
                              "1 oem_util_send_at|recvfrom[1,5] 16 bytes:[21, xOK\r\n+CME ERROR: 10\r\n]\n",
                              "0 oem_util_send_at|str_end_rsp[k]=ERROR\r\n",
                              "0 oem_util_send_at|no correct end:<xOK\r\n+CME ERROR: 10\r\n>,"
                              "< ERROR: 10\r\n>,<32>\r\n",
                              "0 oem_util_send_at|str_end_rsp[k]=OK\r\n\r\n",
                              "0 oem_util_send_at|no correct end:<xOK\r\n+CME ERROR: 10\r\n>,"
                              "<xOK\r\n+CME ERROR: 10\r\n>,<120>\r\n",
                              "0 oem_util_send_at|str_end_rsp[k]=0\r\r\n",
                              "0 oem_util_send_at|no correct end:<xOK\r\n+CME ERROR: 10\r\n>,"
                              "<10\r\n>,<49>\r\n",
                              "0 oem_util_send_at|str_end_rsp[k]=3\r\r\n",
                              "0 oem_util_send_at|str_end_rsp[k]=3\r\n",
                              "0 oem_util_send_at|str_end_rsp[k]=4\r\r\n",
                              "0 oem_util_send_at|str_end_rsp[k]=NO CARRIER\r\n",
                              "0 oem_util_send_at|str_end_rsp[k]=+CME ERROR:\r\n",
                          }));
}

TEST_F(AtCommand, TheSearchGoesOnBehindARefusedMarker) {
  if (IsSkipped()) return;
  AtPeer peer(
      {"xERROR\xE4"
       "ERROR\r\nERROR"});
  LogCapture log;
  ask("AT");
  EXPECT_EQ(log_count(log,
                      "0 oem_util_send_at|no correct end:<xERROR\xE4"
                      "ERROR\r\nERROR>,<xERROR\xE4"
                      "ERROR\r\nERROR>,<120>\r\n"),
            1u);
  // The code of a character is that of a byte, on machines with signed characters as well.
  EXPECT_EQ(log_count(log,
                      "0 oem_util_send_at|no correct end:<\xE4"
                      "ERROR\r\nERROR>,<\xE4"
                      "ERROR\r\nERROR>,<228>\r\n"),
            1u);
  EXPECT_EQ(log_count(log, "0 oem_util_send_at|no correct end:<any>"), 2u);
}

TEST_F(AtCommand, TheTextShownEndsAtATerminator) {
  if (IsSkipped()) return;
  AtPeer peer({"a\0b"s, "\nOK\r\n"});
  LogCapture log;
  vexa_set_log_level(1);
  EXPECT_EQ(whole_reply("AT"), padded("a\0b\nOK\r\n"s));
  EXPECT_TRUE(log_is(
      log, {"1 oem_util_send_at|send at cmd:[3,AT\r]\n", "1 oem_util_send_at|recvfrom[0,0] 3 bytes:[1, a]\n",
            "1 oem_util_send_at|recvfrom[1,3] 5 bytes:[1, a]\n"}));
}

// ---- Failures ----

int open_descriptors() {
  int count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) ++count;
  return count;
}

TEST_F(AtCommand, WithoutADescriptorIsAFailureThatSaysSo) {
  if (IsSkipped()) return;
  LogCapture log;
  rlimit none = {};
  getrlimit(RLIMIT_NOFILE, &none);
  const rlimit before = none;
  none.rlim_cur = 0;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  const std::string reply = whole_reply("AT");
  setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_EQ(reply, padded(kFailure));
  EXPECT_TRUE(log_is(log, {"3 oem_util_send_at|socket error [Too many open files]24\n"}));
}

TEST_F(AtCommand, ThatCannotBeSentIsAFailure) {
  if (IsSkipped()) return;
  shell("ip addr flush dev lo");
  const int before = open_descriptors();
  LogCapture log;
  EXPECT_EQ(whole_reply("AT"), padded(kFailure));
  EXPECT_TRUE(log_is(log, {"1 oem_util_send_at|send at cmd:[3,AT\r]\n"}));
  EXPECT_EQ(open_descriptors(), before);
}

TEST_F(AtCommand, TooLongForADatagramIsAFailure) {
  if (IsSkipped()) return;
  EXPECT_EQ(whole_reply(std::string(70000, 'x').c_str()), padded(kFailure));
}

TEST_F(AtCommand, ASignalUsesUpAnAttempt) {
  if (IsSkipped()) return;
  struct sigaction action = {};
  action.sa_handler = [](int) {};
  sigaction(SIGALRM, &action, nullptr);
  const int before = open_descriptors();
  LogCapture log;
  const itimerval often = {{0, 20000}, {0, 20000}};
  setitimer(ITIMER_REAL, &often, nullptr);
  const std::string reply = whole_reply("AT");
  const itimerval never = {};
  setitimer(ITIMER_REAL, &never, nullptr);
  EXPECT_EQ(reply, padded(kFailure));
  EXPECT_TRUE(
      log_is(log, {"1 oem_util_send_at|send at cmd:[3,AT\r]\n", "3 oem_util_send_at|select fail:ret=-1\n",
                   "3 oem_util_send_at|select fail:ret=-1\n", "3 oem_util_send_at|select fail:ret=-1\n"}));
  EXPECT_EQ(open_descriptors(), before);
}

TEST_F(AtCommand, WithoutMemoryEndsTheProcess) {
  if (IsSkipped()) return;
  VEXA_NEEDS_OWN_CALLOC();
  for (const std::size_t size : {std::size_t{2048}, std::size_t{4}}) {
    const auto child = vexa_test::run_in_child([&] {
      const vexa_test::FailingCalloc failing(size);
      vexa_util_send_at("AT");
    });
    EXPECT_EQ(child.signal, SIGABRT);
    EXPECT_TRUE(vexa_test::log_matches(child.out, "vexa_common_def, line: <any>\n")) << child.out;
  }
}

// ---- Descriptors ----

TEST_F(AtCommand, LeavesNoDescriptorOpen) {
  if (IsSkipped()) return;
  AtPeer peer({"OK\r\n"});
  const int before = open_descriptors();
  ask("AT");
  EXPECT_EQ(open_descriptors(), before);
}

TEST_F(AtCommand, TheSocketIsClosedInTheHostsCommands) {
  if (IsSkipped()) return;
  int inherited = 0;
  int sockets = 0;
  AtPeer peer({"OK\r\n"}, [&] {
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
      std::error_code gone;
      if (!std::filesystem::read_symlink(entry, gone).string().starts_with("socket:")) continue;
      ++sockets;
      if ((fcntl(std::atoi(entry.path().filename().c_str()), F_GETFD) & FD_CLOEXEC) == 0) ++inherited;
    }
  });
  ask("AT");
  peer.command();
  EXPECT_EQ(sockets, 3);  // two are the peer's
  EXPECT_EQ(inherited, 0);
}

TEST_F(AtCommand, WorksInAHostWithVeryManyDescriptors) {
  if (IsSkipped()) return;
  const rlimit many = {2000, 2000};
  if (setrlimit(RLIMIT_NOFILE, &many) != 0) GTEST_SKIP() << "the limit of descriptors cannot be set";
  AtPeer peer({"AT\r\r\n", "OK\r\n"});
  while (dup(STDERR_FILENO) < FD_SETSIZE) {
  }
  EXPECT_EQ(whole_reply("AT"), padded("OK\r\n"));
}

TEST_F(AtCommand, TakesAReplyFromWhoeverSendsIt) {
  if (IsSkipped()) return;
  AtPeer peer({"\r\nOK\r\n"}, {}, AtPeer::Answers::kFromElsewhere);
  EXPECT_EQ(ask("AT"), "\r\nOK\r\n");
}

// ---- With a modem ----

class WithAModem : public AtCommand {
 protected:
  void start(std::vector<std::string> options = {}) {
    modem_ = std::make_unique<ModemSimulator>(std::move(options));
    ASSERT_EQ(modem_->ready(), "modem_simulator: ready on 127.0.0.1:5555\n");
  }
  std::unique_ptr<ModemSimulator> modem_;
};

TEST_F(WithAModem, AnswersComeAsItsSettingsSay) {
  if (IsSkipped()) return;
  start();
  EXPECT_EQ(ask("at+csq"), "+CSQ: 20,99\r\n\r\nOK\r\n");
  EXPECT_EQ(ask("ATE0"), "OK\r\n");
  EXPECT_EQ(ask("AT+CSQ\r\n"), "\r\n+CSQ: 20,99\r\n\r\nOK\r\n");
  EXPECT_EQ(ask("ATV0"), "0\r");
  EXPECT_EQ(ask("AT+CSQ"), "\r\n+CSQ: 20,99\r\n0\r");
  EXPECT_EQ(ask("ATD*99#"), "3\r");
  EXPECT_EQ(ask("AT+NONE"), "4\r");
  EXPECT_EQ(ask("ATE1"), "0\r");
  EXPECT_EQ(ask("ATV1"), "OK\r\n");
  EXPECT_EQ(ask("ATD*99#"), "NO CARRIER\r\n");
  EXPECT_EQ(ask("AT+NONE"), "ERROR\r\n");
  EXPECT_EQ(ask("AT+CGSN"), "358240051111110\r\n\r\nOK\r\n");
  EXPECT_EQ(ask("AT+CPIN?"), "+CME ERROR: 10\r\n");
}

TEST_F(WithAModem, AnswersComeInPiecesAndLate) {
  if (IsSkipped()) return;
  start();
  EXPECT_EQ(ask("AT+SIM=ECHO"), "\r\n+CSQ: 20,99\r\n\r\nOK\r\n");
  EXPECT_EQ(ask("AT+SIM=SPLIT"), "+CSQ: 20,99\r\n\r\nOK\r\n");
  EXPECT_EQ(ask("AT+SIM=LATE"), "OK\r\n");
  EXPECT_EQ(ask("AT+SIM=LOUD"), kFailure);
  EXPECT_EQ(ask("AT+SIM=JUNK"), kFailure);
}

TEST_F(WithAModem, ItsOptionsAreWhereItStarts) {
  if (IsSkipped()) return;
  write_file("/tmp/rules",
             "# a comment\n\nAT+CSQ  fill:3 \"\\n+CSQ: \\\"\\x39\\\\\\r\" OK\nATI* \"I\\r\\n\" OK\n");
  start({"--no-echo", "--numeric", "--rules", "/tmp/rules"});
  EXPECT_EQ(ask("AT"), "0\r");
  EXPECT_EQ(ask("AT+CSQ"), "xxx\n+CSQ: \"9\\\r0\r");
  EXPECT_EQ(modem_->end(), 0);
}

TEST_F(WithAModem, TwoOnOnePortAreOneTooMany) {
  if (IsSkipped()) return;
  start();
  ModemSimulator second;
  EXPECT_EQ(second.ready(), "");
  EXPECT_EQ(WEXITSTATUS(second.end()), EXIT_FAILURE);
}

TEST_F(WithAModem, ThreadsGetTheirOwnAnswers) {
  if (IsSkipped()) return;
  start();
  constexpr std::array<std::pair<const char*, const char*>, 4> kAsked = {{
      {"AT", "OK\r\n"},
      {"AT+CSQ", "+CSQ: 20,99\r\n\r\nOK\r\n"},
      {"AT+CPIN?", "+CME ERROR: 10\r\n"},
      {"AT+NONE", "ERROR\r\n"},
  }};
  std::vector<std::thread> threads;
  for (const auto& asked : kAsked) {
    threads.emplace_back([&asked] {
      for (int i = 0; i < 50; ++i) EXPECT_EQ(ask(asked.first), asked.second);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

// ---- Parameters ----

struct Stripped {
  const char* name;
  std::string text;
  std::string set;
  std::size_t skipped;
  std::string bytes;  // of the buffer afterwards
};

class AtParameter : public ::testing::TestWithParam<Stripped> {};

TEST_P(AtParameter, LosesTheCharactersOfTheSetAtBothEnds) {
  const Stripped& tested = GetParam();
  std::string buffer = tested.text + '\0';
  EXPECT_EQ(vexa_at_param_strip(buffer.data(), tested.set.c_str()), buffer.data() + tested.skipped);
  EXPECT_EQ(buffer, tested.bytes + '\0');
}

INSTANTIATE_TEST_SUITE_P(Texts, AtParameter,
                         ::testing::ValuesIn(std::vector<Stripped>{
                             {"QuotedInBlanks", "  \"abc\"  ", " \"", 3, "  \"abc\0\0\0"s},
                             {"NothingToRemove", "abc", " \"", 0, "abc"},
                             {"InTheMiddleTheyStay", " a b ", " ", 1, " a b\0"s},
                             {"NothingIsLeft", " \"\" ", " \"", 4, " \"\" "},
                             {"Empty", "", " \"", 0, ""},
                             {"EmptySet", " a ", "", 0, " a "},
                             {"OneCharacter", " a ", " ", 1, " a\0"s},
                             {"OnlyAtTheEnd", "a;;", ";", 0, "a\0\0"s},
                             {"HighBytes", "\xA0x\xA0", "\xA0", 1, "\xA0x\0"s},
                         }),
                         [](const auto& tested) { return tested.param.name; });

TEST(AtParameterWithoutAnArgument, StaysAsItIs) {
  char text[] = " a ";
  EXPECT_EQ(vexa_at_param_strip(nullptr, " "), nullptr);
  EXPECT_EQ(vexa_at_param_strip(text, nullptr), text);
  EXPECT_STREQ(text, " a ");
}

}  // namespace
