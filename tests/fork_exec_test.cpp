// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libintl.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vexadm/vexadm.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cerrno>
#include <chrono>
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "faults/signal_storm.h"
#include "support/child.h"
#include "support/device_fixture.h"
#include "support/emulated.h"
#include "support/failing_calloc.h"
#include "support/log_text.h"

namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;
using vexa_test::ChildResult;
using vexa_test::DeviceTest;
using vexa_test::FailingCalloc;
using vexa_test::log_is;
using vexa_test::log_matches;
using vexa_test::LogCapture;
using vexa_test::run_in_child;
using vexa_test::SignalStorm;
using Clock = std::chrono::steady_clock;
using Lines = std::vector<std::string>;
using namespace std::chrono_literals;
using namespace std::string_literals;

// ---- What a command answered ----

struct Answer {
  int32_t code;
  std::string bytes;  // of the buffer, which was full of '#'
  std::string text() const { return bytes.substr(0, bytes.find('\0')); }
};

Answer run(const std::string& command, uint32_t size = 256, bool verbose = false) {
  std::string bytes(size + 8, '#');
  const int32_t code = vexa_ds_system_call3(command.c_str(), 0, bytes.data(), size, verbose ? 1 : 0);
  EXPECT_EQ(bytes.substr(size), "########") << "written behind the result";
  return {code, bytes.substr(0, size)};
}

// ---- The lines of a log ----

const std::string kName = "oem_ds_exec_internal|";
const std::string kPipe = "0 " + kName + "ret=0\n";
const std::string kSilent = "1 " + kName + "[cpid:<any>] ds_exec kill()ed pid <any> with SIGKILL\n";

std::string spawned(const std::string& command) {
  return "1 " + kName + "[cpid:<any>] Spawned child PID(<any>) command:\"" + command + "\"\n";
}
std::string exited(int code) {
  return "1 " + kName + "[cpid:<any>] Process exited normally with rc=" + std::to_string(code) + "\n";
}
std::string waited(int value) {
  return "1 " + kName + "(): [cpid:<any>] wait_pid = " + std::to_string(value) + "\n";
}

// The process id that the line about the start has, twice.
pid_t child_of(const LogCapture& log) {
  for (const auto& line : log.lines()) {
    int first = 0;
    int second = 0;
    if (std::sscanf(line.message.c_str(), "[cpid:%d] Spawned child PID(%d)", &first, &second) == 2) {
      EXPECT_EQ(first, second);
      return first;
    }
  }
  ADD_FAILURE() << "no child";
  return -1;
}

std::size_t open_descriptors() {
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) ++count;
  return count;
}

bool no_child_is_left() { return waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD; }

class ForkExec : public DeviceTest {
 protected:
  void SetUp() override {
    DeviceTest::SetUp();
    vexa_set_log_level(1);
    descriptors_ = open_descriptors();
  }
  void TearDown() override {
    EXPECT_EQ(open_descriptors(), descriptors_);
    EXPECT_TRUE(no_child_is_left());
  }

  // A program that may run: its path has "/bin" in it.
  static std::string script(const std::string& text, const std::string& path = "/tmp/x/bin/program") {
    make_dirs(path.substr(0, path.rfind('/')));
    write_file(path, "#!/bin/sh\n" + text + "\n");
    EXPECT_EQ(chmod(path.c_str(), 0755), 0);
    return path;
  }

 private:
  std::size_t descriptors_ = 0;
};

// Waits for one that is left behind. Its wait status.
int reap(pid_t child) {
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return status;
}

// ---- The command line ----

TEST_F(ForkExec, ACommandRunsAndItsOutputLandsInTheResult) {
  LogCapture log;
  write_file("/tmp/hostname", "router\n");
  const Answer answer = run("/bin/cat /tmp/hostname", 16);
  EXPECT_EQ(answer.code, 0);
  EXPECT_EQ(answer.bytes, "router\n\0########"s);
  EXPECT_TRUE(log_is(log, {kPipe, kPipe, spawned("/bin/cat /tmp/hostname"), exited(0)}));
}

TEST_F(ForkExec, TheVerboseOneSaysTheCommandFirst) {
  LogCapture log;
  EXPECT_EQ(run("echo  \"a b\"", 256, true).text(), "\"a b\"\n");
  EXPECT_TRUE(log_is(log, {"1 " + kName + "(): Executing command \"echo  \"a b\"\"\n", kPipe, kPipe,
                           spawned("echo  \"a b\""), exited(0)}));
}

TEST_F(ForkExec, TheGivenLengthIsNotLookedAt) {
  LogCapture log;
  for (const uint32_t length : {0U, 3U, 4000000000U}) {
    EXPECT_EQ(vexa_ds_system_call3("echo a", length, nullptr, 0, 0), 0);
  }
}

TEST_F(ForkExec, FiveHundredAndElevenCharactersRunAndOneMoreDoesNot) {
  const std::string longest = "echo " + std::string(506, 'x');
  ASSERT_EQ(longest.size(), 511u);
  {
    LogCapture log;
    const Answer answer = run(longest, 600);
    EXPECT_EQ(answer.code, 0);
    EXPECT_EQ(answer.text(), std::string(506, 'x') + "\n");
    EXPECT_TRUE(log_is(log, {kPipe, kPipe, spawned(longest), exited(0)}));
  }
  for (const std::size_t more : {std::size_t{1}, std::size_t{100}, std::size_t{3000}}) {
    LogCapture log;
    const std::string command = longest + std::string(more, 'y');
    const Answer answer = run(command, 16, true);
    EXPECT_EQ(answer.code, -1);
    EXPECT_EQ(answer.bytes, std::string(16, '#'));
    EXPECT_TRUE(log_is(log, {"3 oem_ds_system_call3|unable to re-direct stderr: command string too "
                             "long.Command string was: " +
                             command + "\n"}));
  }
}

TEST_F(ForkExec, WhatIsNotAllowedIsRefusedInSilence) {
  LogCapture log;
  for (const char* command :
       {"cat /etc/passwd", "", " ", "    ", "ip6 addr", "IP addr", "ip\taddr", "\techo a", "./echo",
        "/usr/sb/ip", "/tmp/x/program", "\"ip\" addr", "bin/echo a", "sh -c /bin/sh", "rm; /bin/ls"}) {
    const Answer answer = run(command, 16, true);
    EXPECT_EQ(answer.code, -1) << command;
    EXPECT_EQ(answer.bytes, std::string(16, '#')) << command;
  }
  EXPECT_EQ(vexa_ds_system_call3(nullptr, 0, nullptr, 0, 1), -1);
  EXPECT_TRUE(log_is(log, {}));
}

TEST_F(ForkExec, AnyPathWithOneOfTheDirectoriesInItRuns) {
  LogCapture log;
  for (const char* path : {"/tmp/x/bin/a", "/tmp/binp/a", "/tmp/x/sbin/a", "/tmp/sbinary", "/tmp/usr/bin/a",
                           "/tmp/usr/sbin/a", "/tmp/system/bin/a"}) {
    script("echo $0", path);
    const Answer answer = run(path);
    EXPECT_EQ(answer.code, 0) << path;
    EXPECT_EQ(answer.text(), path + "\n"s);
  }
}

TEST_F(ForkExec, BlanksAloneSeparateAndManyCountAsOne) {
  LogCapture log;
  const std::string program = script("printf '<%s>' \"$@\"");
  EXPECT_EQ(run(program + "  a   b\tc  'd e' $HOME * \"f\"; |  ").text(),
            "<a><b\tc><'d><e'><$HOME><*><\"f\";><|>");
  EXPECT_EQ(run("   " + program + " a").text(), "<a>");
  EXPECT_EQ(run(program).text(), "<>");
}

TEST_F(ForkExec, AProgramsNameMayHaveEveryCharacterButABlank) {
  LogCapture log;
  const std::string program = "/tmp/x/bin/!\"#$%&'()*+,-.:;<=>?@[\\]^_`{|}~\tz";
  EXPECT_EQ(run(script("echo ran", program)).text(), "ran\n");
}

TEST_F(ForkExec, ArgumentZeroIsTheProgramThatRuns) {
  LogCapture log;
  EXPECT_EQ(run("/bin/cat /proc/self/cmdline", 64).bytes.substr(0, 28), "/bin/cat\0/proc/self/cmdline\0"s);
  make_dirs("/tmp/path");
  std::filesystem::create_symlink("/bin/cat", "/tmp/path/ndc");
  setenv("PATH", "/tmp/path:/bin", 1);
  EXPECT_EQ(run("ndc /proc/self/cmdline", 64).bytes.substr(0, 23), "ndc\0/proc/self/cmdline\0"s);
}

std::string words(int count) {
  std::string command = "echo";
  for (int i = 1; i < count; ++i) command += " " + std::to_string(i);
  return command;
}

TEST_F(ForkExec, ThirtyOneWordsRunAndThirtyTwoDoNot) {
  LogCapture log;
  EXPECT_EQ(run(words(31)).text(), words(31).substr(5) + "\n");
  for (const int count : {32, 33, 100}) {
    log.clear();
    const Answer answer = run(words(count), 8);
    EXPECT_EQ(answer.code, -1);
    EXPECT_EQ(answer.bytes, "########");
    EXPECT_TRUE(log_is(log, {kPipe, kPipe, spawned(words(count)), exited(255)}));
  }
}

// A program of the list, and where it is.
class Listed : public ForkExec, public ::testing::WithParamInterface<std::pair<const char*, const char*>> {};

TEST_P(Listed, IsExecutedByItsPath) {
  if (IsSkipped()) return;
  const auto [word, path] = GetParam();
  if (!std::filesystem::exists(path)) GTEST_SKIP() << path << " is not installed";
  script("echo \"$0:$#:$*\"");
  if (mount("/tmp/x/bin/program", path, nullptr, MS_BIND, nullptr) != 0) GTEST_SKIP() << "no bind mount";
  LogCapture log;
  const Answer answer = run(std::string(word) + "  addr");
  EXPECT_EQ(umount(path), 0);
  EXPECT_EQ(answer.code, 0);
  EXPECT_EQ(answer.text(), path + ":1:addr\n"s);
}

// Not the word that was typed. A script would not tell: the kernel gives it its path whatever it is.
TEST_P(Listed, HasItsPathAsArgumentZero) {
  if (IsSkipped()) return;
  const auto [word, path] = GetParam();
  if (!std::filesystem::exists(path)) GTEST_SKIP() << path << " is not installed";
  std::filesystem::copy("/bin/cat", "/tmp/cat");
  if (mount("/tmp/cat", path, nullptr, MS_BIND, nullptr) != 0) GTEST_SKIP() << "no bind mount";
  LogCapture log;
  const Answer answer = run(std::string(word) + "  /proc/self/cmdline", 64);
  EXPECT_EQ(umount(path), 0);
  const std::string expected = path + "\0/proc/self/cmdline\0"s;
  EXPECT_EQ(answer.bytes.substr(0, expected.size()), expected);
}

INSTANTIATE_TEST_SUITE_P(Programs, Listed,
                         ::testing::Values(std::pair("iptables", "/usr/sbin/iptables"),
                                           std::pair("ip6tables", "/usr/sbin/ip6tables"),
                                           std::pair("ip", "/sbin/ip"),
                                           std::pair("ifconfig", "/sbin/ifconfig"),
                                           std::pair("tc", "/sbin/tc"), std::pair("rm", "/bin/rm"),
                                           std::pair("echo", "/bin/echo"), std::pair("ls", "/bin/ls"),
                                           std::pair("sleep", "/bin/sleep")),
                         [](const auto& row) { return std::string(row.param.first); });

TEST_F(ForkExec, TheRouteToolTellsOfTheLoopbackInterface) {
  LogCapture log;
  const Answer answer = run("ip  -o link show lo", 512);
  EXPECT_EQ(answer.code, 0);
  EXPECT_THAT(answer.text(), StartsWith("1: lo: <"));
}

// ---- Output ----

TEST_F(ForkExec, ErrorsOfTheProgramAreInTheResult) {
  LogCapture log;
  const Answer answer = run("ls /nonexistent");
  EXPECT_EQ(answer.code, -1);
  EXPECT_THAT(answer.text(), HasSubstr("/nonexistent"));
  EXPECT_TRUE(log_is(log, {kPipe, kPipe, spawned("ls /nonexistent"), exited(2)}));
}

TEST_F(ForkExec, BothStreamsAreOneInTheOrderOfTheirBytes) {
  LogCapture log;
  EXPECT_EQ(run(script("echo 1; echo 2 >&2; echo 3; echo 4 >&2")).text(), "1\n2\n3\n4\n");
}

TEST_F(ForkExec, TheResultFillsExactly) {
  LogCapture log;
  const std::string program = script("printf abcdef");
  EXPECT_EQ(run(program, 4).bytes, "abc\0"s);
  EXPECT_EQ(run(program, 6).bytes, "abcde\0"s);
  EXPECT_EQ(run(program, 7).bytes, "abcdef\0"s);
  EXPECT_EQ(run(program, 9).bytes, "abcdef\0##"s);
  EXPECT_EQ(run(program, 1).bytes, "#");
  EXPECT_EQ(run(program, 2).bytes, "a\0"s);
  EXPECT_EQ(run(program, 0).code, 0);
}

// The capacity counts as a signed number.
TEST_F(ForkExec, CapacitiesOfANegativeNumberStoreNothing) {
  vexa_set_log_level(4);
  const std::string program = script("printf abc");
  for (const uint32_t size : {0U, 0x80000001U, 0xFFFFFFFFU}) {
    char result[8] = "#######";
    EXPECT_EQ(vexa_ds_system_call3(program.c_str(), 0, result, size, 0), 0);
    EXPECT_STREQ(result, "#######") << size;
  }
  char result[8] = "#######";
  EXPECT_EQ(vexa_ds_system_call3(program.c_str(), 0, result, 0x80000000U, 0), 0);
  EXPECT_STREQ(result, "abc");
}

TEST_F(ForkExec, WithoutOutputTheResultStaysAsItWas) {
  LogCapture log;
  const Answer answer = run(script("exit 0"), 8);
  EXPECT_EQ(answer.code, 0);
  EXPECT_EQ(answer.bytes, "########");
}

TEST_F(ForkExec, WithoutAResultTheOutputIsDropped) {
  LogCapture log;
  EXPECT_EQ(vexa_ds_system_call3("echo abc", 0, nullptr, 100, 0), 0);
}

TEST_F(ForkExec, AFloodIsReadToItsEnd) {
  vexa_set_log_level(4);
  const Answer answer = run("/usr/bin/head -c 1000000 /dev/zero", 16);
  EXPECT_EQ(answer.code, 0);
  EXPECT_EQ(answer.bytes, std::string(16, '\0'));
}

TEST_F(ForkExec, ZeroBytesAreBytesOfTheResult) {
  LogCapture log;
  EXPECT_EQ(run(script("printf 'a\\000b'"), 8).bytes, "a\0b\0####"s);
}

// ---- The end of the program ----

TEST_F(ForkExec, AnExitCodeIsAFailure) {
  LogCapture log;
  for (const int code : {1, 128, 255}) {
    log.clear();
    const std::string program = script("echo out; exit " + std::to_string(code));
    const Answer answer = run(program, 16);
    EXPECT_EQ(answer.code, -1);
    EXPECT_EQ(answer.text(), "out\n");
    EXPECT_TRUE(log_is(log, {kPipe, kPipe, spawned(program), exited(code)}));
  }
}

TEST_F(ForkExec, ASignalIsAFailure) {
  LogCapture log;
  const std::string program = script("kill -9 $$");
  EXPECT_EQ(run(program).code, -1);
  EXPECT_TRUE(log_is(log, {kPipe, kPipe, spawned(program), waited(1)}));
}

TEST_F(ForkExec, AHostThatIgnoresItsChildrenLosesTheCode) {
  const ChildResult child = run_in_child([] {
    std::signal(SIGCHLD, SIG_IGN);
    LogCapture log;
    const Answer answer = run("echo abc");
    EXPECT_EQ(answer.code, -1);
    EXPECT_EQ(answer.text(), "abc\n");
    EXPECT_TRUE(log_is(log, {kPipe, kPipe, spawned("echo abc"), waited(0)}));
  });
  EXPECT_EQ(child.exit_code, 0) << child.out;
}

TEST_F(ForkExec, AProgramThatIsNotThereExitsWith255) {
  LogCapture log;
  const Answer answer = run("/tmp/bin/none", 8);
  EXPECT_EQ(answer.code, -1);
  EXPECT_EQ(answer.bytes, "########");
  EXPECT_TRUE(log_is(log, {kPipe, kPipe, spawned("/tmp/bin/none"), exited(255)}));
}

TEST_F(ForkExec, ASilentProgramIsKilledAndLeftToTheHost) {
  LogCapture log;
  const auto start = Clock::now();
  const Answer answer = run("sleep 5", 8);
  const auto took = Clock::now() - start;
  EXPECT_EQ(answer.code, -1);
  EXPECT_EQ(answer.bytes, "########");
  EXPECT_GE(took, 2s);
  EXPECT_LT(took, 4s);
  EXPECT_TRUE(log_is(log, {kPipe, kPipe, spawned("sleep 5"), kSilent}));
  const int status = reap(child_of(log));
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
}

TEST_F(ForkExec, WhatWasWrittenBeforeTheSilenceIsInTheResult) {
  LogCapture log;
  const Answer answer = run(script("echo abc; exec sleep 5"), 8);
  EXPECT_EQ(answer.code, -1);
  EXPECT_EQ(answer.bytes, "abc\n\0###"s);
  reap(child_of(log));
}

TEST_F(ForkExec, EachByteBeginsTheTwoSecondsAnew) {
  LogCapture log;
  const Answer answer = run(script("for i in 1 2 3; do sleep 1.2; echo $i; done"));
  EXPECT_EQ(answer.code, 0);
  EXPECT_EQ(answer.text(), "1\n2\n3\n");
}

TEST_F(ForkExec, AClosedPipeBeginsTheTwoSecondsAnewToo) {
  LogCapture log;
  const auto start = Clock::now();
  EXPECT_EQ(run(script("sleep 1.3; exec > /dev/null 2>&1; sleep 1.3")).code, 0);
  EXPECT_GE(Clock::now() - start, 2600ms);
}

TEST_F(ForkExec, AProgramThatClosesItsOutputIsWaitedFor) {
  LogCapture log;
  const auto start = Clock::now();
  const Answer answer = run(script("echo a; exec >&- 2>&-; sleep 0.4; exit 7"));
  EXPECT_GE(Clock::now() - start, 400ms);
  EXPECT_EQ(answer.text(), "a\n");
  EXPECT_EQ(log.lines().back().message.substr(log.lines().back().message.rfind(' ')), " rc=7\n");
}

TEST_F(ForkExec, WhatAProgramLeavesBehindIsWaitedForToo) {
  LogCapture log;
  const auto start = Clock::now();
  const Answer answer = run(script("sleep 0.5 > /dev/null 2>&1 & exit 0"));
  EXPECT_GE(Clock::now() - start, 500ms);
  EXPECT_EQ(answer.code, 0);
}

TEST_F(ForkExec, ButNotLongerThanItsSilenceMayLast) {
  LogCapture log;
  const std::string program = script("sleep 3 > /dev/null 2>&1 & echo done; exit 0");
  const Answer answer = run(program);
  EXPECT_EQ(answer.code, -1);
  EXPECT_EQ(answer.text(), "done\n");
  EXPECT_TRUE(log_is(log, {kPipe, kPipe, spawned(program), kSilent}));
  EXPECT_EQ(reap(child_of(log)), 0) << "it had ended before";
}

TEST_F(ForkExec, BytesOnTheLivenessPipeMeanNothing) {
  LogCapture log;
  ASSERT_EQ(close_range(3, ~0U, CLOSE_RANGE_CLOEXEC), 0);  // what ctest leaves open
  const std::string program = script(
      "for f in /proc/$$/fd/*; do case $f in */[012]) ;; *) [ -p $f ] && printf lost > $f && echo sent;; "
      "esac; done");
  const Answer answer = run(program);
  EXPECT_EQ(answer.code, 0);
  EXPECT_EQ(answer.text(), "sent\n");
}

TEST_F(ForkExec, AProgramInheritsItsOutputAndTheLivenessPipeAlone) {
  LogCapture log;
  ASSERT_EQ(close_range(3, ~0U, CLOSE_RANGE_CLOEXEC), 0);  // what ctest leaves open
  const std::string program =
      script("for f in /proc/$$/fd/*; do case $f in */0) ;; *) [ -p $f ] && echo ${f##*/};; esac; done");
  const std::string numbers = run(program).text();
  EXPECT_THAT(numbers, StartsWith("1\n2\n"));
  EXPECT_EQ(std::count(numbers.begin(), numbers.end(), '\n'), 3) << "its two streams and the liveness pipe";
}

// ---- Signals ----

TEST_F(ForkExec, AnInterruptedWaitGoesOn) {
  LogCapture log;
  Answer answer;
  const std::string program = script("sleep 0.3; echo abc");
  {
    const SignalStorm storm(5000);
    answer = run(program);
  }
  EXPECT_EQ(answer.code, 0);
  EXPECT_EQ(answer.text(), "abc\n");
  const Lines lines = vexa_test::log_texts(log);
  ASSERT_GT(lines.size(), 8u);
  EXPECT_TRUE(
      log_matches(lines[3], "1 " + kName + "[cpid:<any>] Failed to select() -> 4:Interrupted system call\n"))
      << lines[3];
  EXPECT_EQ(lines[4], "1 " + kName + "(): select() was interrupted, continuing");
  EXPECT_TRUE(log_matches(lines.back(), exited(0))) << lines.back();
}

TEST_F(ForkExec, SignalsMoreOftenThanTwoSecondsSuspendTheTimeOut) {
  vexa_set_log_level(4);
  const SignalStorm storm(500000);
  EXPECT_EQ(run("sleep 2.6").code, 0);
}

TEST_F(ForkExec, AProgramGetsTheHostsMaskAndIgnoredSignalsButNoHandlers) {
  const ChildResult child = run_in_child([] {
    vexa_set_log_level(4);
    std::signal(SIGUSR1, [](int) {});
    std::signal(SIGUSR2, SIG_IGN);
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGHUP);
    pthread_sigmask(SIG_SETMASK, &blocked, nullptr);
    const std::string status = run("/bin/cat /proc/self/status", 4096).text();
    EXPECT_THAT(status, HasSubstr("SigBlk:\t0000000000000001\n"));
    EXPECT_THAT(status, HasSubstr("SigIgn:\t0000000000000800\n"));
    EXPECT_THAT(status, HasSubstr("SigCgt:\t0000000000000000\n"));
    sigset_t now;
    pthread_sigmask(SIG_SETMASK, nullptr, &now);
    EXPECT_TRUE(sigismember(&now, SIGHUP) == 1 && sigismember(&now, SIGUSR1) == 0) << "the host's own mask";
    struct sigaction handler = {};
    sigaction(SIGUSR1, nullptr, &handler);
    EXPECT_NE(handler.sa_handler, SIG_DFL) << "the host's own handler";
  });
  EXPECT_EQ(child.exit_code, 0) << child.out;
}

pid_t g_host = 0;
std::atomic<int>* g_handled_elsewhere = nullptr;  // in memory that the new processes share

// A signal to the whole group, as a terminal sends them, meets the new process too.
TEST_F(ForkExec, HandlersOfTheHostDoNotRunInTheNewProcess) {
  const ChildResult child = run_in_child([] {
    vexa_set_log_level(4);
    ASSERT_EQ(setpgid(0, 0), 0);
    void* const memory =
        mmap(nullptr, sizeof *g_handled_elsewhere, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    g_handled_elsewhere = new (memory) std::atomic<int>(0);
    g_host = getpid();
    struct sigaction action = {};
    action.sa_handler = [](int) {
      if (getpid() != g_host) ++*g_handled_elsewhere;
    };
    sigaction(SIGURG, &action, nullptr);  // by default it does nothing
    std::atomic<bool> stop = false;
    std::thread sender([&] {
      while (!stop) kill(0, SIGURG);
    });
    for (int round = 0; round < 50; ++round) EXPECT_EQ(run("sleep 0").code, 0);
    stop = true;
    sender.join();
    EXPECT_EQ(*g_handled_elsewhere, 0);
  });
  EXPECT_EQ(child.exit_code, 0) << child.out << child.err;
}

// ---- Descriptors ----

// Leaves so many free below a limit. In the child of run_in_child.
void leave_descriptors(std::size_t count) {
  const rlimit few = {64, 64};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
  std::vector<int> taken;
  for (int fd = 0; (fd = open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;) taken.push_back(fd);
  for (; count > 0; --count, taken.pop_back()) close(taken.back());
}

std::size_t used_descriptors() {
  std::size_t count = 0;
  for (int fd = 0; fd < 64; ++fd) count += fcntl(fd, F_GETFD) >= 0 ? 1u : 0u;
  return count;
}

struct Shortage {
  std::size_t free;
  std::size_t stay_open;
  Lines lines;
};

class WithoutDescriptors : public ForkExec, public ::testing::WithParamInterface<Shortage> {};

TEST_P(WithoutDescriptors, NothingRunsAndAFirstPipeStaysOpen) {
  if (IsSkipped()) return;
  const ChildResult child = run_in_child([] {
    const Shortage& shortage = GetParam();
    leave_descriptors(shortage.free);
    const std::size_t before = used_descriptors();
    LogCapture log;
    const Answer answer = run("echo abc", 8);
    EXPECT_EQ(answer.code, -1);
    EXPECT_EQ(answer.bytes, "########");
    EXPECT_EQ(used_descriptors(), before + shortage.stay_open);
    EXPECT_TRUE(log_is(log, shortage.lines));
  });
  EXPECT_EQ(child.exit_code, 0) << child.out;
}

const Lines kFirstFails = {"0 " + kName + "ret=-1\n"};
const Lines kSecondFails = {kPipe, "0 " + kName + "ret=-1\n"};
INSTANTIATE_TEST_SUITE_P(Left, WithoutDescriptors,
                         ::testing::Values(Shortage{0, 0, kFirstFails}, Shortage{1, 0, kFirstFails},
                                           Shortage{2, 2, kSecondFails}, Shortage{3, 2, kSecondFails}),
                         [](const auto& tested) { return std::to_string(tested.param.free); });

TEST_F(ForkExec, FourDescriptorsAreEnough) {
  const ChildResult child = run_in_child([] {
    leave_descriptors(4);
    const std::size_t before = used_descriptors();
    LogCapture log;
    EXPECT_EQ(run("echo abc").text(), "abc\n");
    EXPECT_EQ(used_descriptors(), before);
  });
  EXPECT_EQ(child.exit_code, 0) << child.out;
}

TEST_F(ForkExec, WhatTheNewProcessSaysNeverLandsInTheResult) {
  for (const std::size_t count : {4u, 5u, 6u, 7u}) {
    const ChildResult child = run_in_child([count] {
      leave_descriptors(count);
      const Answer answer = run("/tmp/bin/none", 128);
      EXPECT_EQ(answer.code, -1);
      EXPECT_EQ(answer.bytes, std::string(128, '#'));
    });
    EXPECT_EQ(child.exit_code, 0) << count << child.out;
    EXPECT_THAT(child.out, HasSubstr("exec() failed: 2:No such file or directory\nDying\n")) << count;
  }
}

TEST_F(ForkExec, NorDoesItForAHostWithoutStandardStreams) {
  for (const std::size_t count : {4u, 6u, 20u}) {
    for (unsigned closed = 1; closed < 8; ++closed) {
      const ChildResult child = run_in_child([count, closed] {
        std::array<int, 3> kept;
        for (int fd = 0; fd < 3; ++fd) kept[static_cast<std::size_t>(fd)] = fcntl(fd, F_DUPFD_CLOEXEC, 10);
        leave_descriptors(count - static_cast<std::size_t>(std::popcount(closed)));
        for (int fd = 0; fd < 3; ++fd) {
          if ((closed >> fd & 1U) != 0) close(fd);
        }
        std::string result(128, '#');
        const int32_t code = vexa_ds_system_call3("/tmp/bin/none", 0, result.data(), 128, 0);
        for (int fd = 0; fd < 3; ++fd) dup2(kept[static_cast<std::size_t>(fd)], fd);
        EXPECT_EQ(code, -1);
        EXPECT_EQ(result, std::string(128, '#'));
      });
      EXPECT_EQ(child.exit_code, 0) << count << " " << closed << child.out;
    }
  }
}

// Fills the table up to, but not with, this number.
void use_descriptors_below(int number) {
  const rlimit many = {4096, 4096};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &many), 0);
  while (true) {
    const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    if (fd < number) continue;
    close(fd);
    return;
  }
}

TEST_F(ForkExec, PipesAtTheEndOfTheBoundWork) {
  const ChildResult child = run_in_child([] {
    use_descriptors_below(1021);  // 1021 and 1023 are read, 1022 and 1024 written
    LogCapture log;
    EXPECT_EQ(run("echo abc").text(), "abc\n");
    EXPECT_TRUE(log_is(log, {kPipe, kPipe, spawned("echo abc"), exited(0)}));
  });
  EXPECT_EQ(child.exit_code, 0) << child.out;
}

TEST_F(ForkExec, PipesBeyondTheBoundAreAFailedWait) {
  for (const int first : {1022, 1024, 3000}) {
    const ChildResult child = run_in_child([first] {
      use_descriptors_below(first);
      LogCapture log;
      const std::string program = script("trap '' PIPE; sleep 0.2; exit 7");
      EXPECT_EQ(run(program, 8).bytes, "########");
      EXPECT_TRUE(log_is(log, {kPipe, kPipe, spawned(program),
                               "1 " + kName + "[cpid:<any>] Failed to select() -> 9:Bad file descriptor\n"}));
      EXPECT_EQ(reap(child_of(log)), 7 << 8) << "neither killed nor waited for";
      EXPECT_EQ(open("/dev/null", O_RDONLY | O_CLOEXEC), first) << "its descriptors are free again";
    });
    EXPECT_EQ(child.exit_code, 0) << child.out;
  }
}

TEST_F(ForkExec, AHostWithoutStandardStreamsGetsItsResult) {
  for (unsigned closed = 1; closed < 8; ++closed) {
    const ChildResult child = run_in_child([closed] {
      LogCapture log;
      const std::string program = script("echo out; echo err >&2; sleep 0.1 > /dev/null 2>&1 & exit 0");
      std::array<int, 3> kept;
      for (int fd = 0; fd < 3; ++fd) kept[static_cast<std::size_t>(fd)] = fcntl(fd, F_DUPFD_CLOEXEC, 10);
      for (int fd = 0; fd < 3; ++fd) {
        if ((closed >> fd & 1U) != 0) close(fd);
      }
      const auto start = Clock::now();
      const Answer answer = run(program);
      const auto took = Clock::now() - start;
      for (int fd = 0; fd < 3; ++fd) dup2(kept[static_cast<std::size_t>(fd)], fd);
      EXPECT_EQ(answer.code, 0) << closed;
      EXPECT_EQ(answer.text(), "out\nerr\n") << closed;
      EXPECT_GE(took, 100ms) << "what it left behind was not seen";
      EXPECT_TRUE(log_is(log, {kPipe, kPipe, spawned(program), exited(0)}));
    });
    EXPECT_EQ(child.exit_code, 0) << child.out;
  }
}

TEST_F(ForkExec, WithoutMemoryNothingRuns) {
  VEXA_NEEDS_OWN_CALLOC();
  LogCapture log;
  const FailingCalloc failing(256 + 8);
  const Answer answer = run("echo abc", 8, true);
  EXPECT_EQ(answer.code, -1);
  EXPECT_EQ(answer.bytes, "########");
  EXPECT_TRUE(log_is(log, {}));
}

// ---- What the new process says ----

// Lines of the new process reach the callback there: they come back by a pipe.
int g_said = -1;

void say(const char* line) {
  if (write(g_said, line, std::strlen(line)) < 0) std::abort();
}

std::string said_during(const std::string& command) {
  std::array<int, 2> ends;
  EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK), 0);
  g_said = ends[1];
  set_print_interface(say);
  EXPECT_EQ(run(command, 8).bytes, "########");
  set_print_interface(nullptr);
  std::string said(65536, '\0');
  const ssize_t count = read(ends[0], said.data(), said.size());
  for (const int end : ends) close(end);
  said.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  return said;
}

// By which the log names a process of this program.
std::string own_name() { return vexa_test::is_emulated() ? "qemu-arm" : "fork_exec_test"; }

TEST_F(ForkExec, TheNewProcessSaysWhyItCannotExecute) {
  const std::string said = said_during("/tmp/bin/none");
  EXPECT_THAT(said, ::testing::ContainsRegex(
                        "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} :  INFO \\| "
                        "\\[[0-9]+ \\| [0-9]+-" +
                        own_name() +
                        "\\] \\| oem_ds_exec_internal [0-9]+ \\| "
                        "exec\\(\\) failed: 2:No such file or directory\nDying\n"));
  write_file("/tmp/x_bin", "");
  make_dirs("/tmp/x/bin");
  write_file("/tmp/x/bin/data", "");
  EXPECT_THAT(said_during("/tmp/x/bin/data"), HasSubstr("| exec() failed: 13:Permission denied\nDying\n"));
  // The new process's own number, which is the one of the parent's lines.
  int pid = 0;
  int task = 0;
  int child = 0;
  const auto at = said.rfind("INFO | [", said.find("exec()"));
  EXPECT_EQ(std::sscanf(said.c_str() + at, "INFO | [%d | %d-", &pid, &task), 2);
  EXPECT_EQ(std::sscanf(said.c_str() + said.find("[cpid:"), "[cpid:%d]", &child), 1);
  EXPECT_EQ(pid, child);
  EXPECT_EQ(task, child);
}

TEST_F(ForkExec, TheNewProcessSaysThatTheCommandIsTooLong) {
  EXPECT_THAT(said_during(words(32)), ::testing::ContainsRegex("-" + own_name() +
                                                               "\\] \\| oem_ds_exec_internal [0-9]+ \\| "
                                                               "\\(\\): command is too long\n"));
}

TEST_F(ForkExec, BelowTheLevelItSaysNothing) {
  vexa_set_log_level(2);
  EXPECT_EQ(said_during("/tmp/bin/none"), "");
  EXPECT_EQ(said_during(words(32)), "");
}

TEST_F(ForkExec, WithoutACallbackItSaysSoOnTheHostsStandardOutput) {
  for (const std::string& command : {"/tmp/bin/none"s, words(32)}) {
    const ChildResult child = run_in_child([&] { EXPECT_EQ(run(command, 8).bytes, "########"); });
    EXPECT_EQ(child.exit_code, 0);
    EXPECT_EQ(child.err, "");
    EXPECT_THAT(child.out,
                HasSubstr(command[0] == '/' ? "| exec() failed: 2:No such file or directory\nDying\n"
                                            : "| (): command is too long\n"));
  }
}

TEST_F(ForkExec, ItReachesTheErrorStreamOfAHostWithoutOutput) {
  const ChildResult child = run_in_child([] {
    set_print_interface([](const char* line) {
      if (write(STDERR_FILENO, line, std::strlen(line)) < 0) std::abort();
    });
    close(STDOUT_FILENO);
    run("/tmp/bin/none", 8);
  });
  EXPECT_THAT(child.err, HasSubstr("| exec() failed: 2:No such file or directory\nDying\n"));
}

TEST_F(ForkExec, BothStreamsAreTheHostsAgainWithNoMoreDescriptorsThanThePipesNeed) {
  const ChildResult child = run_in_child([] {
    set_print_interface([](const char* line) {
      for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) {
        if (write(stream, line, std::strlen(line)) < 0) std::abort();
      }
    });
    leave_descriptors(4);
    run("/tmp/bin/none", 8);
  });
  EXPECT_THAT(child.out, HasSubstr("| exec() failed: 2:No such file or directory\nDying\n"));
  EXPECT_THAT(child.err, HasSubstr("| exec() failed: 2:No such file or directory\nDying\n"));
}

TEST_F(ForkExec, WithTheLogToolItSaysSoInShort) {
  const ChildResult child = run_in_child([] {
    vexa_set_log_tool_enable(1);
    run("/tmp/bin/none", 8);
  });
  EXPECT_THAT(child.out,
              ::testing::ContainsRegex("oem_fwa\\[[0-9]+\\] vexa_ds_exec_internal\\(\\): exec\\(\\) failed: "
                                       "2:No such file or directory\nDying\n"));
}

// What the host has not flushed yet is printed by the host, once.
TEST_F(ForkExec, PendingOutputOfTheHostIsNotPrintedTwice) {
#if defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "this sanitizer's _exit() flushes the streams";
#endif
  const auto host = [](vexa_print_fn callback) {
    return run_in_child([callback] {
      set_print_interface(callback);
      std::printf("pending ");
      EXPECT_EQ(run("/tmp/bin/none", 8).bytes, "########");
      EXPECT_EQ(run(words(32), 8).bytes, "########");
      EXPECT_EQ(run("echo abc").text(), "abc\n");
    });
  };
  const auto flush = [](const char*) {
    std::printf(".");
    std::fflush(stdout);
  };
  for (const vexa_print_fn callback : {vexa_print_fn{nullptr}, vexa_print_fn{flush}}) {
    const ChildResult child = host(callback);
    const auto first = child.out.find("pending ");
    EXPECT_NE(first, std::string::npos) << child.out;
    EXPECT_EQ(child.out.find("pending ", first + 1), std::string::npos) << child.out;
  }
}

// ---- Threads ----

TEST_F(ForkExec, SeveralThreadsRunTheirOwn) {
  vexa_set_log_level(4);
  std::vector<std::thread> threads;
  for (int n = 0; n < 8; ++n) {
    threads.emplace_back([n] {
      const std::string text(60, static_cast<char>('a' + n));
      for (int round = 0; round < 20; ++round) {
        const Answer answer = run("echo " + text);
        EXPECT_EQ(answer.code, 0);
        EXPECT_EQ(answer.text(), text + "\n");
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

// A command of another thread that lasts longer must not keep this one's pipes open.
TEST_F(ForkExec, ACommandDoesNotWaitForThoseOfOtherThreads) {
  vexa_set_log_level(4);
  // An emulated process takes tenths of a second to start another.
  const bool slow = vexa_test::is_emulated();
  const char* const command = slow ? "sleep 4" : "sleep 0.4";
  const auto limit = slow ? 3500ms : 350ms;
  std::atomic<bool> stop = false;
  std::thread other([&] {
    while (!stop) EXPECT_EQ(vexa_popen_call(command, nullptr, 0), 0);
  });
  for (int round = 0; round < 50; ++round) {
    const auto start = Clock::now();
    EXPECT_EQ(run("echo a").code, 0);
    EXPECT_LT(Clock::now() - start, limit);
  }
  stop = true;
  other.join();
}

std::mutex g_callback_mutex;
std::atomic<int> g_exits;
std::atomic<int> g_lines;

// With a lock and memory of its own, as the callbacks of hosts have them.
void busy_callback(const char* line) {
  const std::lock_guard lock(g_callback_mutex);
  const std::string copy(line);
  usleep(20);  // so that most forks find it held
  if (copy.find("exited normally with rc=255") != std::string::npos) ++g_exits;
  ++g_lines;
}

// A new process that finds a lock held, of the logger, a callback, the allocator, the time zone or the
// locale, is silent until it is killed.
TEST_F(ForkExec, AHostWhoseThreadsHoldLocksAllTheTimeIsNotHeldUp) {
  const ChildResult child = run_in_child(
      [] {
        set_print_interface(busy_callback);
        std::atomic<bool> stop = false;
        std::vector<std::thread> threads;
        threads.emplace_back([&] {
          char message[VEXA_LOG_MESSAGE_SIZE];
          while (!stop) {
            vexa_log_printf(3, message, "vexa_busy", 1, "text %d\n", 7);
            usleep(20);
          }
        });
        threads.emplace_back([&] {
          while (!stop) {
            const std::time_t now = std::time(nullptr);
            std::tm local;
            localtime_r(&now, &local);
            std::free(std::malloc(100));
          }
        });
        threads.emplace_back([&] {
          for (bool odd = false; !stop; odd = !odd) {
            bindtextdomain("host", odd ? "/tmp/a" : "/tmp/b");
            textdomain(odd ? "host" : "tool");
            setlocale(LC_MESSAGES, odd ? "C" : "C.UTF-8");
          }
        });
        for (int round = 0; round < 200; ++round) {
          EXPECT_EQ(run(round % 2 == 0 ? "/tmp/bin/none"s : words(32), 8).code, -1);
        }
        stop = true;
        for (std::thread& thread : threads) thread.join();
        set_print_interface(nullptr);
        EXPECT_EQ(g_exits, 200) << "none was killed for its silence";
        EXPECT_GT(g_lines, 400);
      },
      50);
  EXPECT_EQ(child.exit_code, 0) << child.out << child.err;
}

}  // namespace
