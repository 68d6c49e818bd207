// SPDX-License-Identifier: MIT
#include "vexadm/identity.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <string>

#include "support/child.h"
#include "support/log_text.h"
#include "support/network_fixture.h"
#include "support/replaced_file.h"

namespace {

using vexa_test::DeviceTest;
using vexa_test::log_is;
using vexa_test::LogCapture;
using vexa_test::ReplacedFile;
using namespace std::string_literals;

constexpr const char* kCommandLine = "/proc/cmdline";
constexpr const char* kFallback = "/tmp/non_signal_info";
constexpr const char* kNoMatch = "3 get_project_para|can't not match project\n";

// What a call leaves in a buffer of '#', with its code in front.
std::string value_of(const std::string& key, std::int32_t length = 11) {
  std::array<char, 12> dst;
  dst.fill('#');
  const std::int32_t code = odm_get_value_from_string(key.c_str(), dst.data(), length);
  return std::to_string(code) + " " + std::string(dst.data(), dst.size());
}

std::string para() {
  std::string dst(2048, '#');
  const std::int32_t code = get_project_para(dst.data());
  return std::to_string(code) + " " + dst.substr(0, dst.find_last_not_of('#') + 1);
}

std::string project(std::int32_t length = 11) {
  std::array<char, 12> dst = {};
  const std::int32_t code = vexa_get_project_name_cmdline(dst.data(), length);
  return std::to_string(code) + " " + dst.data();
}

// ---- Kernel command line ----------------------------------------------------

class CommandLineValue : public DeviceTest {
 protected:
  LogCapture log;
};

TEST_F(CommandLineValue, IsTheWordBehindTheKey) {
  const ReplacedFile file(kCommandLine, "console=ttyS0 vexa.project=ABC quiet\n");
  EXPECT_EQ(value_of("vexa.project"), "0 ABC#########");
  EXPECT_EQ(value_of("console"), "0 ttyS0#######");
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(CommandLineValue, GetsNoTerminator) {
  const ReplacedFile file(kCommandLine, "vexa.project=ABCDEF");
  EXPECT_EQ(value_of("vexa.project", 6), "0 ABCDEF######");
  EXPECT_EQ(value_of("vexa.project", 4), "0 ABCD########");
  EXPECT_EQ(value_of("vexa.project", 1), "0 A###########");
}

TEST_F(CommandLineValue, WithoutRoomIsRefusedSilently) {
  const ReplacedFile file(kCommandLine, "vexa.project=ABC");
  EXPECT_EQ(value_of("vexa.project", 0), "-1 ############");
  EXPECT_EQ(value_of("vexa.project", -1), "-1 ############");
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(CommandLineValue, EndsBeforeABlankOrATabButNotBeforeALineFeed) {
  const ReplacedFile file(kCommandLine, "a=1\tb=2 c=3\nd=4\n\n");
  EXPECT_EQ(value_of("a"), "0 1###########");
  EXPECT_EQ(value_of("b"), "0 2###########");
  EXPECT_EQ(value_of("c"), "0 3\nd=4\n######");  // one line feed of the two at the end is dropped
}

TEST_F(CommandLineValue, OfAnEmptyOneIsTheNextWord) {
  const ReplacedFile file(kCommandLine, "vexa.project= \t== quiet splash");
  EXPECT_EQ(value_of("vexa.project"), "0 quiet#######");
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(CommandLineValue, OfAKeyInsideALongerWordCounts) {
  const ReplacedFile file(kCommandLine, "not.vexa.projects=ABC vexa.project=DEF");
  EXPECT_EQ(value_of("vexa.project"), "0 s=ABC#######");
}

TEST_F(CommandLineValue, OfAnEmptyKeyIsTheFirstWord) {
  const ReplacedFile file(kCommandLine, "quiet splash");
  EXPECT_EQ(value_of(""), "0 quiet#######");
}

TEST_F(CommandLineValue, AtItsEndWithNothingBehindIsOnlySpace) {
  const ReplacedFile file(kCommandLine, "quiet vexa.project=\n");
  EXPECT_EQ(value_of("vexa.project"), "-1 ############");
  file.write("quiet vexa.project== \t\n");
  EXPECT_EQ(value_of("vexa.project"), "-1 ############");
  EXPECT_TRUE(log_is(log, {"3 odm_get_value_from_string|Only containe space in quiet vexa.project=\n",
                           "3 odm_get_value_from_string|Only containe space in quiet vexa.project== \t\n"}));
}

TEST_F(CommandLineValue, OfAMissingKeyNamesTheOemKeyWhateverWasAskedFor) {
  const ReplacedFile file(kCommandLine, "quiet splash\n");
  EXPECT_EQ(value_of("vexa.project"), "-1 ############");
  EXPECT_TRUE(log_is(log, {"3 odm_get_value_from_string|Could not find oem.project in quiet splash\n"}));
}

TEST_F(CommandLineValue, OfAnEmptyFileIsMissing) {
  const ReplacedFile file(kCommandLine, "");
  EXPECT_EQ(value_of("a"), "-1 ############");
  EXPECT_TRUE(log_is(log, {"3 odm_get_value_from_string|Could not find oem.project in \n"}));
}

TEST_F(CommandLineValue, OfAFileThatCannotBeReadIsMissing) {
  // Reading fails there: nothing is mapped at the start of the process's memory.
  ASSERT_EQ(mount("/proc/self/mem", kCommandLine, nullptr, MS_BIND, nullptr), 0);
  EXPECT_EQ(value_of("a"), "-1 ############");
  umount2(kCommandLine, MNT_DETACH);
  EXPECT_TRUE(log_is(log, {"3 odm_get_value_from_string|Could not find oem.project in \n"}));
}

TEST_F(CommandLineValue, IsLookedForIn2047Bytes) {
  const ReplacedFile file(kCommandLine, std::string(2045, 'x') + "k=ABC");
  EXPECT_EQ(value_of("k"), "-1 ############");  // "k=" is all that was read
  file.write(std::string(2044, 'x') + "k=ABC");
  EXPECT_EQ(value_of("k"), "0 A###########");
}

TEST_F(CommandLineValue, EndsAtAZeroByte) {
  const ReplacedFile file(kCommandLine, "a=1\0b=2"s);
  EXPECT_EQ(value_of("a"), "0 1###########");
  EXPECT_EQ(value_of("b"), "-1 ############");
}

TEST_F(CommandLineValue, WithoutABufferOrAKeyIsRefused) {
  EXPECT_EQ(odm_get_value_from_string("a", nullptr, 4), -1);
  char dst[4] = "abc";
  EXPECT_EQ(odm_get_value_from_string(nullptr, dst, 3), -1);
  EXPECT_STREQ(dst, "abc");
  EXPECT_TRUE(log_is(
      log, {"3 odm_get_value_from_string|NULL Pointer\n", "3 odm_get_value_from_string|NULL Pointer\n"}));
}

TEST_F(CommandLineValue, OfTheRunningKernelIsFound) {
  const std::string line = read_file(kCommandLine);
  const std::string first = line.substr(0, line.find_first_of(" \t\n"));
  ASSERT_FALSE(first.empty());
  std::array<char, 2048> dst = {};
  EXPECT_EQ(odm_get_value_from_string("", dst.data(), 2047), 0);
  EXPECT_EQ(dst.data(), first);
}

// ---- File -------------------------------------------------------------------

class ProjectPara : public DeviceTest {
 protected:
  void TearDown() override {
    if (!IsSkipped()) unlink(kFallback);
  }
  LogCapture log;
};

TEST_F(ProjectPara, IsTheWordBehindTheFirstEqualsSign) {
  write_file(kFallback, "project=ABC\nother=DEF\n");
  EXPECT_EQ(para(), "0 ABC\0"s);
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(ProjectPara, IsSoughtFromTheStartOfThePieceAndNotFromTheKey) {
  write_file(kFallback, "other=DEF\nproject=ABC\n");
  EXPECT_EQ(para(), "0 DEF\0"s);
}

TEST_F(ProjectPara, BeginsBehindWhiteSpace) {
  write_file(kFallback, "the project = \n\t ABC DEF");
  EXPECT_EQ(para(), "0 ABC\0"s);
}

TEST_F(ProjectPara, WithoutAValueChangesNothingAndStillSucceeds) {
  for (const char* text : {"project", "project ABC", "=project", "project=", "project= \n"}) {
    write_file(kFallback, text);
    EXPECT_EQ(para(), "0 ") << text;
  }
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(ProjectPara, EndsAtAZeroByte) {
  write_file(kFallback, "project=AB\0C"s);
  EXPECT_EQ(para(), "0 AB\0"s);
  write_file(kFallback, "none\0project=ABC"s);
  EXPECT_EQ(para(), "-1 ");
  EXPECT_TRUE(log_is(log, {kNoMatch}));
}

TEST_F(ProjectPara, IsFoundInALaterPiece) {
  write_file(kFallback, std::string(4096, 'x') + "project=ABC");
  EXPECT_EQ(para(), "0 ABC\0"s);
  EXPECT_TRUE(log_is(log, {kNoMatch, kNoMatch}));
}

TEST_F(ProjectPara, AcrossTwoPiecesIsNotFound) {
  write_file(kFallback, std::string(2044, 'x') + "project=ABC");
  EXPECT_EQ(para(), "-1 ");
  EXPECT_TRUE(log_is(log, {kNoMatch, kNoMatch}));
}

TEST_F(ProjectPara, FillsAtMost2047Bytes) {
  write_file(kFallback, "project=" + std::string(2040, 'v') + "more");
  EXPECT_EQ(para(), "0 " + std::string(2040, 'v') + '\0');
  write_file(kFallback, "p=project" + std::string(2039, 'v') + "more");
  EXPECT_EQ(para(), "0 project" + std::string(2039, 'v') + '\0');
}

TEST_F(ProjectPara, OfAnEmptyOrMissingFileIsNotFoundSilently) {
  EXPECT_EQ(para(), "-1 ");
  write_file(kFallback, "");
  EXPECT_EQ(para(), "-1 ");
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(ProjectPara, OfAFileOfOneByteIsLookedForInIt) {
  write_file(kFallback, "p");
  EXPECT_EQ(para(), "-1 ");
  EXPECT_TRUE(log_is(log, {kNoMatch}));
}

TEST_F(ProjectPara, DoesNotWaitForAPipeOrReadADirectory) {
  ASSERT_EQ(mkfifo(kFallback, 0600), 0);
  EXPECT_EQ(para(), "-1 ");
  ASSERT_EQ(unlink(kFallback), 0);
  ASSERT_EQ(mkdir(kFallback, 0700), 0);
  EXPECT_EQ(para(), "-1 ");
  ASSERT_EQ(rmdir(kFallback), 0);
}

TEST_F(ProjectPara, DoesNotReadADeviceForEver) {
  for (const char* device : {"/dev/zero", "/dev/null"}) {
    ASSERT_EQ(symlink(device, kFallback), 0);
    const auto child = vexa_test::run_in_child(
        [&] {
          EXPECT_EQ(para(), "-1 ");
          EXPECT_TRUE(log.lines().empty());
        },
        5);
    EXPECT_EQ(child.exit_code, 0) << device << child.out;
    ASSERT_EQ(unlink(kFallback), 0);
  }
}

TEST_F(ProjectPara, OfALinkToAFileIsFound) {
  write_file("/tmp/elsewhere", "project=ABC");
  ASSERT_EQ(symlink("/tmp/elsewhere", kFallback), 0);
  EXPECT_EQ(para(), "0 ABC\0"s);
}

TEST_F(ProjectPara, WithoutABufferIsRefused) {
  write_file(kFallback, "project=ABC");
  EXPECT_EQ(get_project_para(nullptr), -1);
  EXPECT_TRUE(log_is(log, {"3 get_project_para|NULL Pointer\n"}));
}

// ---- Project name -----------------------------------------------------------

class ProjectName : public ProjectPara {};

TEST_F(ProjectName, OfTheCommandLineComesFirst) {
  const ReplacedFile file(kCommandLine, "console=ttyS0 vexa.project=ABC oem.project=DEF quiet\n");
  write_file(kFallback, "project=GHI");
  EXPECT_EQ(project(), "0 ABC");
  char dst[4] = {};
  EXPECT_EQ(vexa_get_project_name_cmdline_oem_version(dst, 3), 0);
  EXPECT_STREQ(dst, "DEF");
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(ProjectName, ComesFromTheFileWhenTheCommandLineHasNone) {
  const ReplacedFile file(kCommandLine, "quiet\n");
  write_file(kFallback, "project=GHI\n");
  EXPECT_EQ(project(), "0 GHI");
  file.write("vexa.project=\n");
  EXPECT_EQ(project(), "0 GHI");
  EXPECT_TRUE(log_is(log, {"3 __oem_get_project_name_cmdline|Could not find oem.project in quiet\n",
                           "3 __oem_get_project_name_cmdline|Only containe space in vexa.project=\n"}));
}

TEST_F(ProjectName, ThatIsNowhereIsReportedUnderOneName) {
  const ReplacedFile file(kCommandLine, "quiet\n");
  write_file(kFallback, "nothing here\n");
  char dst[4] = "abc";
  EXPECT_EQ(vexa_get_project_name_cmdline_oem_version(dst, 3), -1);
  EXPECT_STREQ(dst, "abc");
  EXPECT_TRUE(log_is(log, {"3 __oem_get_project_name_cmdline|Could not find oem.project in quiet\n",
                           "3 __oem_get_project_name_cmdline|can't not match project\n"}));
}

TEST_F(ProjectName, OfOnlySpaceIsNotFoundWithoutAFile) {
  const ReplacedFile file(kCommandLine, "quiet vexa.project= \n");
  EXPECT_EQ(project(), "-1 ");
  EXPECT_TRUE(
      log_is(log, {"3 __oem_get_project_name_cmdline|Only containe space in quiet vexa.project= \n"}));
  log.clear();
  file.write("quiet oem.project= \n");
  char dst[4] = "abc";
  EXPECT_EQ(vexa_get_project_name_cmdline_oem_version(dst, 3), -1);
  EXPECT_STREQ(dst, "abc");
  EXPECT_TRUE(log_is(log, {"3 __oem_get_project_name_cmdline|Only containe space in quiet oem.project= \n"}));
}

TEST_F(ProjectName, OfTheFileStaysWithinTheBuffer) {
  const ReplacedFile file(kCommandLine, "quiet\n");
  write_file(kFallback, "project=ABCDEF\n");
  std::array<char, 8> dst;
  dst.fill('#');
  EXPECT_EQ(vexa_get_project_name_cmdline(dst.data(), 4), 0);
  EXPECT_EQ(std::string(dst.data(), dst.size()), "ABCD####");
  EXPECT_EQ(vexa_get_project_name_cmdline(dst.data(), 7), 0);
  EXPECT_EQ(std::string(dst.data(), dst.size()), "ABCDEF\0#"s);
}

TEST_F(ProjectName, WithoutRoomIsRefused) {
  write_file(kFallback, "project=ABC\n");
  EXPECT_EQ(project(0), "-1 ");
  EXPECT_EQ(project(-5), "-1 ");
  log.clear();
  EXPECT_EQ(vexa_get_project_name_cmdline(nullptr, 4), -1);
  EXPECT_EQ(vexa_get_project_name_cmdline_oem_version(nullptr, 4), -1);
  EXPECT_TRUE(log_is(log, {"3 __oem_get_project_name_cmdline|NULL Pointer\n",
                           "3 __oem_get_project_name_cmdline|NULL Pointer\n"}));
}

// ---- Ping -------------------------------------------------------------------

constexpr const char* kPing = "oem_ping_state";
constexpr const char* kSuccess = "0 oem_ping_state|>>>ping status:success>>>\n";
constexpr const char* kFail = "3 oem_ping_state|>>>ping status:fail>>>\n";

class Ping : public vexa_test::NetworkTest {
 protected:
  LogCapture log;
};

TEST_F(Ping, OfTheLoopbackAddressIsAnswered) {
  EXPECT_EQ(vexa_ping_state("127.0.0.1"), 0);
  EXPECT_TRUE(log_is(log, {kSuccess}, kPing));
  EXPECT_TRUE(log.has(0, "oem_system_call_ex", "system call: ping -c 2 -W 3 127.0.0.1 > /dev/null 2>&1\n"));
}

TEST_F(Ping, OfAnAddressWithoutARouteFailsThreeTimes) {
  EXPECT_EQ(vexa_ping_state("192.0.2.1"), -1);
  EXPECT_TRUE(log_is(log, {kFail, kFail, kFail}, kPing));
}

TEST_F(Ping, OfNoHostIsRefusedSilently) {
  EXPECT_EQ(vexa_ping_state(nullptr), 3);
  EXPECT_TRUE(log.lines().empty());
}

// A program of the test's in ping's place, which takes down what it is asked.
class FakePing : public Ping {
 protected:
  void SetUp() override {
    Ping::SetUp();
    if (IsSkipped()) return;
    make_dirs("/tmp/bin");
    setenv("PATH", "/tmp/bin:/usr/bin:/bin", 1);
  }
  void TearDown() override {
    if (!IsSkipped()) unlink("/tmp/asked");
  }
  static void answer(const std::string& script) {
    write_file("/tmp/bin/ping", "#!/bin/sh\necho \"$*\" >> /tmp/asked\necho noise\n" + script);
    ASSERT_EQ(chmod("/tmp/bin/ping", 0755), 0);
  }
};

TEST_F(FakePing, IsAskedAgainUntilItAnswers) {
  answer("[ $(wc -l < /tmp/asked) = 2 ]\n");
  EXPECT_EQ(vexa_ping_state("router"), 0);
  EXPECT_EQ(read_file("/tmp/asked"), "-c 2 -W 3 router\n-c 2 -W 3 router\n");
  EXPECT_TRUE(log_is(log, {kFail, kSuccess}, kPing));
}

TEST_F(FakePing, IsAskedThreeTimesAtMost) {
  answer("exit 2\n");
  EXPECT_EQ(vexa_ping_state("router"), -1);
  EXPECT_EQ(read_file("/tmp/asked"), "-c 2 -W 3 router\n-c 2 -W 3 router\n-c 2 -W 3 router\n");
}

TEST_F(FakePing, IsAskedForAHostOf223Bytes) {
  answer("exit 0\n");
  const std::string host(223, 'h');
  EXPECT_EQ(vexa_ping_state(host.c_str()), 0);
  EXPECT_EQ(read_file("/tmp/asked"), "-c 2 -W 3 " + host + "\n");
}

TEST_F(FakePing, IsNotAskedForALongerHostThatWouldBeCut) {
  answer("exit 0\n");
  const std::string host(224, 'h');
  EXPECT_EQ(vexa_ping_state(host.c_str()), -1);
  EXPECT_FALSE(exists("/tmp/asked"));
  EXPECT_TRUE(log_is(log, {kFail, kFail, kFail}, kPing));
  EXPECT_EQ(log.count("system call length mismatch: 256 != 255\n"), 3u);
}

}  // namespace
