// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vexadm/vexadm.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <numeric>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "faults/signal_storm.h"
#include "support/child.h"
#include "support/device_fixture.h"
#include "support/failing_calloc.h"
#include "support/libc_calls.h"
#include "support/log_text.h"

// ---- The pauses of the library ----------------------------------------------

namespace {

// While it lives: each pause that is asked for, and what a buffer held then.
struct Pauses {
  explicit Pauses(const char* buffer) : watched(buffer) { current = this; }
  ~Pauses() { current = nullptr; }
  Pauses(const Pauses&) = delete;
  Pauses& operator=(const Pauses&) = delete;

  const char* watched;
  std::vector<std::chrono::nanoseconds> asked;
  std::string held;

  static inline Pauses* current = nullptr;
};

}  // namespace

extern "C" __attribute__((visibility("default"))) int nanosleep(const timespec* pause, timespec* left) {
  if (Pauses* const pauses = Pauses::current) {
    pauses->asked.push_back(std::chrono::seconds(pause->tv_sec) + std::chrono::nanoseconds(pause->tv_nsec));
    pauses->held = pauses->watched;
  }
  return vexa_test::kernel_sleep(pause, left);
}

namespace {

using vexa_test::ChildResult;
using vexa_test::DeviceTest;
using vexa_test::FailingCalloc;
using vexa_test::log_is;
using vexa_test::LogCapture;
using vexa_test::run_in_child;
using vexa_test::SignalStorm;
using Clock = std::chrono::steady_clock;
using namespace std::string_literals;

class Shell : public DeviceTest {
 protected:
  void TearDown() override {
    // Whatever was asked for: no shell is left to wait for.
    EXPECT_TRUE(waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD);
  }
};

uint32_t length(const std::string& text) { return static_cast<uint32_t>(text.size()); }

int32_t system_call(const std::string& command) { return vexa_system_call(command.c_str(), length(command)); }
int32_t system_call_ex(const std::string& command) {
  return vexa_system_call_ex(command.c_str(), length(command));
}

// A result buffer with a fence behind it.
class Result {
 public:
  explicit Result(uint32_t size) : size_(size), bytes_(size + 8, '#') {}

  char* data() { return bytes_.data(); }
  uint32_t size() const { return size_; }
  std::string all() const { return bytes_.substr(0, size_); }
  std::string text() const { return bytes_.c_str(); }
  bool fence_stands() const { return bytes_.substr(size_) == "########"; }

 private:
  uint32_t size_;
  std::string bytes_;
};

// No descriptor is free any more, in the child of run_in_child.
void use_up_descriptors() {
  const rlimit few = {64, 64};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
  while (open("/dev/null", O_RDONLY | O_CLOEXEC) >= 0) {
  }
}

// ---- vexa_system_call ----

TEST_F(Shell, AWrongLengthRunsNothing) {
  LogCapture log;
  EXPECT_EQ(vexa_system_call("true", 3), -1);
  EXPECT_EQ(vexa_system_call("touch /tmp/ran", 15), -1);
  EXPECT_EQ(vexa_system_call("", 1), -1);
  EXPECT_TRUE(log_is(log, {"3 oem_system_call|System call length mismatch: 3 != 4\n",
                           "3 oem_system_call|System call length mismatch: 15 != 14\n",
                           "3 oem_system_call|System call length mismatch: 1 != 0\n"}));
  EXPECT_FALSE(exists("/tmp/ran"));
}

TEST_F(Shell, ACommandThatSucceedsGivesZero) {
  LogCapture log;
  EXPECT_EQ(system_call("echo text > /tmp/out && grep -q text < /tmp/out"), 0);
  EXPECT_TRUE(log_is(log, {"0 oem_system_call|System call: echo text > /tmp/out && grep -q text < /tmp/out\n",
                           "0 oem_system_call|run shell script successfully result=0.\n"}));
  EXPECT_EQ(read_file("/tmp/out"), "text\n");
}

TEST_F(Shell, AnExitCodeIsGivenAsTheRawStatus) {
  LogCapture log;
  EXPECT_EQ(system_call("exit 3"), 768);
  EXPECT_EQ(system_call("exit 1"), 256);
  EXPECT_EQ(system_call("exit 255"), 65280);
  EXPECT_TRUE(log_is(log, {"0 oem_system_call|System call: exit 3\n",
                           "3 oem_system_call|run shell script fail=768, script exit code: 3\n",
                           "0 oem_system_call|System call: exit 1\n",
                           "3 oem_system_call|run shell script fail=256, script exit code: 1\n",
                           "0 oem_system_call|System call: exit 255\n",
                           "3 oem_system_call|run shell script fail=65280, script exit code: 255\n"}));
}

TEST_F(Shell, AShellEndedByASignalGivesTheRawStatus) {
  LogCapture log;
  EXPECT_EQ(system_call("kill -9 $$"), 9);
  EXPECT_EQ(system_call("kill -15 $$"), 15);
  EXPECT_TRUE(log_is(
      log,
      {"0 oem_system_call|System call: kill -9 $$\n", "3 oem_system_call|result=9, exit status = [0]\n",
       "0 oem_system_call|System call: kill -15 $$\n", "3 oem_system_call|result=15, exit status = [0]\n"}));
}

TEST_F(Shell, ACoreDumpIsPartOfTheStatus) {
  const ChildResult child = run_in_child([] {
    const rlimit enough = {RLIM_INFINITY, RLIM_INFINITY};
    if (setrlimit(RLIMIT_CORE, &enough) != 0 || chdir("/tmp") != 0) GTEST_SKIP();
    LogCapture log;
    // Not QUIT, which BusyBox's shell ignores.
    const int32_t status = system_call("kill -ABRT $$");
    EXPECT_EQ(status & 0x7F, SIGABRT);
    EXPECT_TRUE(
        log_is(log, {"0 oem_system_call|System call: kill -ABRT $$\n",
                     "3 oem_system_call|result=" + std::to_string(status) + ", exit status = [0]\n"}));
  });
  EXPECT_EQ(child.exit_code, 0) << child.out;
}

TEST_F(Shell, AnUnknownCommandIsTheShellsCode127) {
  LogCapture log;
  EXPECT_EQ(system_call("no_such_command 2> /dev/null"), 127 << 8);
}

TEST_F(Shell, NoCommandIsAnError) {
  LogCapture log;
  EXPECT_EQ(vexa_system_call(nullptr, 0), -1);
  EXPECT_EQ(vexa_system_call(nullptr, 4), -1);
  EXPECT_TRUE(log_is(log, {"0 oem_system_call|System call: (null)\n", "3 oem_system_call|system error!\n",
                           "0 oem_system_call|System call: (null)\n", "3 oem_system_call|system error!\n"}));
}

TEST_F(Shell, AnEmptyCommandRunsAndDoesNothing) {
  LogCapture log;
  EXPECT_EQ(vexa_system_call("", 0), 0);
  EXPECT_EQ(vexa_system_call_ex("", 0), 0);
}

TEST_F(Shell, AHostThatIgnoresItsChildrenLosesTheStatus) {
  const ChildResult child = run_in_child([] {
    std::signal(SIGCHLD, SIG_IGN);
    LogCapture log;
    EXPECT_EQ(system_call("exit 3"), -1);
    EXPECT_TRUE(
        log_is(log, {"0 oem_system_call|System call: exit 3\n", "3 oem_system_call|system error!\n"}));
    log.clear();
    EXPECT_EQ(system_call_ex("exit 3"), -1);
    EXPECT_TRUE(log_is(log, {"0 oem_system_call_ex|system call: exit 3\n",
                             "3 oem_system_call_ex|system command failed, rc=-1 errno: 10\n"}));
  });
  EXPECT_EQ(child.exit_code, 0) << child.out;
}

// ---- vexa_system_call_var_arg ----

TEST_F(Shell, ACommandIsBuiltFromItsFormat) {
  LogCapture log;
  Result buffer(64);
  EXPECT_EQ(vexa_system_call_var_arg(buffer.data(), buffer.size(), "exit %d # %s", 5, "text"), 5 << 8);
  EXPECT_EQ(buffer.text(), "exit 5 # text");
  EXPECT_TRUE(log_is(log, {"0 oem_system_call|System call: exit 5 # text\n",
                           "3 oem_system_call|run shell script fail=1280, script exit code: 5\n"}));
}

TEST_F(Shell, ACommandThatDoesNotFitIsRunAsFarAsItGoes) {
  LogCapture log;
  Result buffer(7);
  EXPECT_EQ(vexa_system_call_var_arg(buffer.data(), buffer.size(), "exit %d", 99), 9 << 8);
  EXPECT_EQ(buffer.all(), "exit 9\0"s);
  EXPECT_TRUE(buffer.fence_stands());
  Result exact(8);
  EXPECT_EQ(vexa_system_call_var_arg(exact.data(), exact.size(), "exit %d", 99), 99 << 8);
  Result smallest(1);
  EXPECT_EQ(vexa_system_call_var_arg(smallest.data(), smallest.size(), "exit 9"), 0);
  EXPECT_EQ(smallest.all(), "\0"s);
  EXPECT_TRUE(smallest.fence_stands());
}

TEST_F(Shell, AFormatThatComesToNothingRunsAnEmptyCommand) {
  LogCapture log;
  Result buffer(4);
  EXPECT_EQ(vexa_system_call_var_arg(buffer.data(), buffer.size(), "%s", ""), 0);
  EXPECT_TRUE(log_is(log, {"0 oem_system_call|System call: \n",
                           "0 oem_system_call|run shell script successfully result=0.\n"}));
}

TEST_F(Shell, WithoutABufferOrAFormatNothingRuns) {
  LogCapture log;
  Result buffer(8);
  const char* const no_format = nullptr;
  EXPECT_EQ(vexa_system_call_var_arg(nullptr, 8, "true"), -1);
  EXPECT_EQ(vexa_system_call_var_arg(buffer.data(), 0, "true"), -1);
  EXPECT_EQ(vexa_system_call_var_arg(buffer.data(), buffer.size(), no_format), -1);
  EXPECT_EQ(buffer.all(), "########");
  EXPECT_TRUE(
      log_is(log, {"3 oem_system_call_var_arg|system error!\n", "3 oem_system_call_var_arg|system error!\n",
                   "3 oem_system_call_var_arg|system error!\n"}));
}

// ---- vexa_system_call_ex ----

TEST_F(Shell, TheOtherOneComplainsInLowerCase) {
  LogCapture log;
  EXPECT_EQ(vexa_system_call_ex("touch /tmp/ran", 3), -1);
  EXPECT_TRUE(log_is(log, {"3 oem_system_call_ex|system call length mismatch: 3 != 14\n"}));
  EXPECT_FALSE(exists("/tmp/ran"));
}

TEST_F(Shell, ACommandThatSucceedsSaysNothingMore) {
  LogCapture log;
  EXPECT_EQ(system_call_ex("touch /tmp/ran"), 0);
  EXPECT_TRUE(log_is(log, {"0 oem_system_call_ex|system call: touch /tmp/ran\n"}));
  EXPECT_TRUE(exists("/tmp/ran"));
}

TEST_F(Shell, TheOtherOneGivesTheExitCode) {
  LogCapture log;
  errno = 0;
  EXPECT_EQ(system_call_ex("exit 3"), 3);
  EXPECT_EQ(system_call_ex("exit 255"), 255);
  EXPECT_TRUE(log_is(log, {"0 oem_system_call_ex|system call: exit 3\n",
                           "3 oem_system_call_ex|system command failed, rc=3 errno: 0\n",
                           "0 oem_system_call_ex|system call: exit 255\n",
                           "3 oem_system_call_ex|system command failed, rc=255 errno: 0\n"}));
}

TEST_F(Shell, TheOtherOneGivesTheRawStatusOfASignal) {
  LogCapture log;
  errno = 0;
  EXPECT_EQ(system_call_ex("kill -9 $$"), 9);
  EXPECT_TRUE(log_is(log, {"0 oem_system_call_ex|system call: kill -9 $$\n",
                           "3 oem_system_call_ex|system command failed, rc=9 errno: 0\n"}));
}

TEST_F(Shell, StandardInputIsAnEmptyPipe) {
  LogCapture log;
  EXPECT_EQ(system_call_ex("test -p /dev/stdin && test -z \"$(cat)\""), 0);
}

TEST_F(Shell, OutputGoesWhereTheCallersGoes) {
  const ChildResult child = run_in_child([] {
    vexa_set_log_level(4);
    system_call_ex("echo out; echo err >&2");
    system_call("echo other out");
  });
  EXPECT_EQ(child.out, "out\nother out\n");
  EXPECT_EQ(child.err, "err\n");
}

TEST_F(Shell, TheOtherOneHasNoCommandEither) {
  LogCapture log;
  EXPECT_EQ(vexa_system_call_ex(nullptr, 0), -1);
  EXPECT_TRUE(log_is(
      log, {"0 oem_system_call_ex|system call: (null)\n", "3 oem_system_call_ex|system command failed\n",
            "3 oem_system_call_ex|system command failed, rc=-1 errno: 22\n"}));
}

TEST_F(Shell, WithoutADescriptorTheOtherOneRunsNothing) {
  const ChildResult child = run_in_child([] {
    use_up_descriptors();
    LogCapture log;
    EXPECT_EQ(system_call_ex("true"), -1);
    EXPECT_TRUE(log_is(
        log, {"0 oem_system_call_ex|system call: true\n", "3 oem_system_call_ex|system command failed\n",
              "3 oem_system_call_ex|system command failed, rc=-1 errno: 24\n"}));
  });
  EXPECT_EQ(child.exit_code, 0) << child.out;
}

// ---- vexa_popen_call ----

TEST_F(Shell, TheOutputLandsInTheResult) {
  LogCapture log;
  Result result(16);
  EXPECT_EQ(vexa_popen_call("echo abc", result.data(), result.size()), 0);
  EXPECT_EQ(result.all(), "abc\n\0\0\0\0\0\0\0\0\0\0\0\0"s);
  EXPECT_TRUE(result.fence_stands());
  EXPECT_TRUE(log_is(log, {"0 oem_popen_call|Line string:abc\n",
                           "0 oem_popen_call|popen call: echo abc success. result string:abc\n\n"}));
}

TEST_F(Shell, APieceThatDoesNotFitEndsTheReading) {
  LogCapture log;
  Result result(4);
  EXPECT_EQ(vexa_popen_call("echo abc", result.data(), result.size()), 0);
  EXPECT_EQ(result.all(), "ab\0\0"s);
  EXPECT_TRUE(result.fence_stands());
  EXPECT_TRUE(
      log_is(log, {"0 oem_popen_call|Line string:ab", "3 oem_popen_call|result_buf Exceeded max len.\n",
                   "0 oem_popen_call|popen call: echo abc success. result string:ab\n"}));
}

TEST_F(Shell, LinesLongerThanAPieceArriveInSeveral) {
  LogCapture log;
  Result result(6);
  EXPECT_EQ(vexa_popen_call("printf abcde", result.data(), result.size()), 0);
  EXPECT_EQ(result.all(), "abcde\0"s);
  EXPECT_TRUE(log_is(log, {"0 oem_popen_call|Line string:abcd", "0 oem_popen_call|Line string:e",
                           "0 oem_popen_call|popen call: printf abcde success. result string:abcde\n"}));
}

TEST_F(Shell, OneCharacterMoreThanAnExactFitIsLeftOut) {
  LogCapture log;
  Result result(6);
  EXPECT_EQ(vexa_popen_call("printf abcdef", result.data(), result.size()), 0);
  EXPECT_EQ(result.all(), "abcd\0\0"s);
  EXPECT_TRUE(
      log_is(log, {"0 oem_popen_call|Line string:abcd", "3 oem_popen_call|result_buf Exceeded max len.\n",
                   "0 oem_popen_call|popen call: printf abcdef success. result string:abcd\n"}));
}

// The first piece that is too long is the last one looked at.
TEST_F(Shell, AShorterLineBehindOneThatDoesNotFitIsNotTaken) {
  LogCapture log;
  Result result(8);
  EXPECT_EQ(vexa_popen_call("printf 'abc\\nlonger\\nx\\n'", result.data(), result.size()), 0);
  EXPECT_EQ(result.text(), "abc\n");
}

TEST_F(Shell, SeveralLinesKeepTheirLineFeeds) {
  LogCapture log;
  Result result(32);
  EXPECT_EQ(vexa_popen_call("printf 'one\\n\\ntwo'", result.data(), result.size()), 0);
  EXPECT_EQ(result.text(), "one\n\ntwo");
  EXPECT_TRUE(log_is(
      log, {"0 oem_popen_call|Line string:one\n", "0 oem_popen_call|Line string:\n",
            "0 oem_popen_call|Line string:two",
            "0 oem_popen_call|popen call: printf 'one\\n\\ntwo' success. result string:one\n\ntwo\n"}));
}

TEST_F(Shell, ResultsWithoutRoomForACharacterReadNothing) {
  for (const uint32_t size : {0U, 1U, 2U}) {
    LogCapture log;
    Result result(size);
    EXPECT_EQ(vexa_popen_call("echo abc", result.data(), size), 0) << size;
    EXPECT_EQ(result.all(), std::string(size, '\0'));
    EXPECT_TRUE(result.fence_stands());
    EXPECT_TRUE(log_is(log, {"0 oem_popen_call|popen call: echo abc success. result string:\n"}));
  }
}

TEST_F(Shell, AResultOfThreeTakesOneCharacterAtATime) {
  LogCapture log;
  Result result(3);
  EXPECT_EQ(vexa_popen_call("echo a", result.data(), result.size()), 0);
  EXPECT_EQ(result.all(), "a\n\0"s);
  EXPECT_EQ(vexa_popen_call("echo abc", result.data(), result.size()), 0);
  EXPECT_EQ(result.all(), "ab\0"s);
  EXPECT_TRUE(result.fence_stands());
}

TEST_F(Shell, AFormerResultIsClearedEvenWithoutOutput) {
  LogCapture log;
  Result result(8);
  EXPECT_EQ(vexa_popen_call("true", result.data(), result.size()), 0);
  EXPECT_EQ(result.all(), std::string(8, '\0'));
}

TEST_F(Shell, TheExitCodeOfAReadCommandIsNotLookedAt) {
  LogCapture log;
  Result result(8);
  EXPECT_EQ(vexa_popen_call("echo a; exit 7", result.data(), result.size()), 0);
  EXPECT_EQ(vexa_popen_call("no_such_command 2> /dev/null", result.data(), result.size()), 0);
  EXPECT_EQ(result.text(), "");
}

TEST_F(Shell, WithoutAResultTheCommandRunsToItsEnd) {
  LogCapture log;
  EXPECT_EQ(vexa_popen_call("sleep 0.2; touch /tmp/ran", nullptr, 16), 0);
  EXPECT_TRUE(exists("/tmp/ran"));
  EXPECT_TRUE(log_is(
      log, {"0 oem_popen_call|popen call: sleep 0.2; touch /tmp/ran success. result string:(null)\n"}));
}

TEST_F(Shell, TheEndOfACommandIsWaitedForAfterTheReading) {
  LogCapture log;
  Result result(4);
  EXPECT_EQ(vexa_popen_call("echo abcdef; sleep 0.2; touch /tmp/ran", result.data(), result.size()), 0);
  EXPECT_TRUE(exists("/tmp/ran"));
}

// A reader's end is what stops a command that writes for ever, unless the host has it ignored.
TEST_F(Shell, ACommandThatWritesOnIsEndedByTheSignalThatTheHostMayIgnore) {
  const std::string writer =
      "i=0; while [ $i -lt 20 ]; do echo abcdefghij; sleep 0.05; i=$((i+1)); done 2> /dev/null; touch /tmp/";
  const auto cut_short = [&](const std::string& end) {
    LogCapture log;
    Result result(8);
    EXPECT_EQ(vexa_popen_call((writer + end).c_str(), result.data(), result.size()), 0);
    EXPECT_EQ(result.text(), "abcdef");
    EXPECT_EQ(log.lines().at(1).message, "result_buf Exceeded max len.\n");
  };
  const ChildResult child = run_in_child([&] {
    std::signal(SIGPIPE, SIG_DFL);
    cut_short("ended");
    EXPECT_FALSE(exists("/tmp/ended"));
    std::signal(SIGPIPE, SIG_IGN);
    cut_short("ignored");
    EXPECT_TRUE(exists("/tmp/ignored")) << "the command was not waited for";
  });
  EXPECT_EQ(child.exit_code, 0) << child.out;
}

TEST_F(Shell, AReadWithoutACommandIsRefused) {
  LogCapture log;
  Result result(8);
  EXPECT_EQ(vexa_popen_call(nullptr, result.data(), result.size()), -1);
  EXPECT_EQ(vexa_popen_call_ex(nullptr, result.data(), result.size()), -1);
  EXPECT_EQ(vexa_popen_call_ex("true", nullptr, 8), -1);
  EXPECT_EQ(result.all(), "########");
  EXPECT_TRUE(log_is(log, {"3 oem_popen_call|popen call:(null) fail[parameter invaild!]\n",
                           "3 oem_popen_call_ex|popen call:(null) fail[parameter invaild!]\n",
                           "3 oem_popen_call_ex|popen call:true fail[parameter invaild!]\n"}));
}

TEST_F(Shell, WithoutADescriptorNothingIsRead) {
  const ChildResult child = run_in_child([] {
    use_up_descriptors();
    LogCapture log;
    Result result(8);
    EXPECT_EQ(vexa_popen_call("echo abc", result.data(), result.size()), -1);
    EXPECT_EQ(vexa_popen_call_ex("echo abc", result.data(), result.size()), -1);
    EXPECT_EQ(result.all(), "########");
    EXPECT_TRUE(log_is(log, {"3 oem_popen_call|popen call:echo abc fail[Too many open files]\n",
                             "3 oem_popen_call_ex|popen call:echo abc fail[Too many open files]\n"}));
    EXPECT_EQ(vexa_check_process_exist("init"), 0);
    EXPECT_EQ(get_flash_type(), 4);
    EXPECT_EQ(log.lines().size(), 2u);
  });
  EXPECT_EQ(child.exit_code, 0) << child.out;
}

TEST_F(Shell, WithoutALineBufferTheCommandStillEnds) {
  VEXA_NEEDS_OWN_CALLOC();
  LogCapture log;
  Result result(7777);
  {
    const FailingCalloc failing(7777);
    EXPECT_EQ(vexa_popen_call("sleep 0.2; touch /tmp/ran", result.data(), result.size()), -1);
  }
  EXPECT_EQ(result.all(), std::string(7777, '#'));
  EXPECT_TRUE(log_is(log, {"3 oem_popen_call|result_str is NULL!"}));
  EXPECT_TRUE(exists("/tmp/ran"));
}

// Other programs end lines where a text has a zero byte; what is behind it in the piece is lost.
TEST_F(Shell, AZeroByteEndsItsPiece) {
  LogCapture log;
  Result result(16);
  EXPECT_EQ(vexa_popen_call("printf 'ab\\000cd\\nef\\n'", result.data(), result.size()), 0);
  EXPECT_EQ(result.text(), "abef\n");
}

TEST_F(Shell, SignalsDoNotCutTheOutput) {
  vexa_set_log_level(4);
  Result result(4096);
  Result other(4096);
  std::string expected;
  for (int i = 0; i < 50; ++i) expected += std::to_string(i) + "\n";
  {
    const SignalStorm storm(300);
    const char* const slow = "i=0; while [ $i -lt 50 ]; do echo $i; i=$((i+1)); sleep 0.005; done";
    EXPECT_EQ(vexa_popen_call(slow, result.data(), result.size()), 0);
    EXPECT_EQ(vexa_popen_call_ex(slow, other.data(), other.size()), 0);
    EXPECT_EQ(system_call("sleep 0.1; exit 3"), 768);
    EXPECT_EQ(system_call_ex("sleep 0.1; exit 3"), 3);
    EXPECT_EQ(vexa_check_process_exist("there_is_no_such_process"), 0);
  }
  EXPECT_GT(SignalStorm::seen(), 100u);
  EXPECT_EQ(result.text(), expected);
  EXPECT_EQ(other.text(), expected);
}

// How many pipes a command's shell has; without any of the library's, those of whoever runs the test.
// Not by a stream: the C library closes its other streams there by itself.
std::ptrdiff_t pipes_of_a_command() {
  EXPECT_EQ(system_call("readlink /proc/$$/fd/* >/tmp/links; true"), 0);
  std::ifstream links("/tmp/links");
  return std::count_if(std::istream_iterator<std::string>(links), {},
                       [](const std::string& link) { return link.starts_with("pipe:"); });
}

TEST_F(Shell, AStreamIsNotInheritedByTheCommandsOfOtherThreads) {
  vexa_set_log_level(4);
  const std::ptrdiff_t usual = pipes_of_a_command();
  std::atomic<bool> reading = true;
  std::thread reader([&] {
    Result result(16);  // without one nothing is read, and the stream is closed before the wait
    EXPECT_EQ(vexa_popen_call("sleep 0.5", result.data(), result.size()), 0);
    reading = false;
  });
  while (reading) EXPECT_EQ(pipes_of_a_command(), usual);
  reader.join();
}

TEST_F(Shell, SeveralThreadsEachReadTheirOwn) {
  vexa_set_log_level(4);
  std::vector<std::thread> threads;
  for (int n = 0; n < 8; ++n) {
    threads.emplace_back([n] {
      const std::string text = std::string(100, static_cast<char>('a' + n)) + "\n";
      for (int round = 0; round < 10; ++round) {
        Result result(256);
        EXPECT_EQ(vexa_popen_call(("printf '" + text + "'").c_str(), result.data(), result.size()), 0);
        EXPECT_EQ(result.text(), text);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

// ---- vexa_popen_call_ex ----

TEST_F(Shell, TheResultKeepsTwoLessThanItsSize) {
  LogCapture log;
  Result result(4);
  EXPECT_EQ(vexa_popen_call_ex("echo abcdef", result.data(), result.size()), 0);
  EXPECT_EQ(result.all(), "ab\0\0"s);
  EXPECT_TRUE(result.fence_stands());
  EXPECT_TRUE(log_is(log, {"0 oem_popen_call_ex|abcdef\n\n"}));
}

TEST_F(Shell, ASecondIsGivenBeforeTheReading) {
  LogCapture log;
  Result result(16);
  const auto start = Clock::now();
  EXPECT_EQ(vexa_popen_call_ex("echo abc", result.data(), result.size()), 0);
  EXPECT_GE(Clock::now() - start, std::chrono::seconds(1));
  EXPECT_EQ(result.all(), "abc\n\0\0\0\0\0\0\0\0\0\0\0\0"s);
}

// No longer either, and before anything is read.
TEST_F(Shell, TheWaitIsOneSecondAndTheResultIsTouchedBehindIt) {
#if defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the sanitizer has its own nanosleep";
#endif
  vexa_set_log_level(4);
  char result[16] = "before";
  Pauses pauses(result);
  EXPECT_EQ(vexa_popen_call_ex("echo abc", result, sizeof result), 0);
  ASSERT_FALSE(pauses.asked.empty());
  EXPECT_EQ(pauses.asked[0], std::chrono::seconds(1));
  // A pause that ended a moment early is followed by that moment.
  EXPECT_LT(std::accumulate(pauses.asked.begin() + 1, pauses.asked.end(), std::chrono::nanoseconds(0)),
            std::chrono::milliseconds(100));
  EXPECT_EQ(pauses.held, "before");
  EXPECT_STREQ(result, "abc\n");
}

TEST_F(Shell, SignalsDoNotCutTheSecond) {
  vexa_set_log_level(4);
  Result result(16);
  const auto start = Clock::now();
  {
    const SignalStorm storm(5000);
    EXPECT_EQ(vexa_popen_call_ex("echo abc", result.data(), result.size()), 0);
  }
  EXPECT_GE(Clock::now() - start, std::chrono::seconds(1));
  EXPECT_GT(SignalStorm::seen(), 10u);
  EXPECT_EQ(result.text(), "abc\n");
}

TEST_F(Shell, LinesAreJoinedUntilTheResultIsFull) {
  LogCapture log;
  Result result(9);
  EXPECT_EQ(vexa_popen_call_ex("printf 'abc\\ndefgh\\nx\\n'; touch /tmp/ran", result.data(), result.size()),
            0);
  EXPECT_EQ(result.all(), "abc\ndef\0\0"s);
  EXPECT_TRUE(log_is(
      log, {"0 oem_popen_call_ex|abc\n\n", "0 oem_popen_call_ex|defgh\n\n", "0 oem_popen_call_ex|x\n\n"}));
  EXPECT_TRUE(exists("/tmp/ran"));
}

TEST_F(Shell, OutputThatDoesNotFitIsReadAndDropped) {
  vexa_set_log_level(4);
  Result result(16);
  // Far more than a pipe holds: a command that nobody read from would never end.
  EXPECT_EQ(vexa_popen_call_ex("head -c 3000000 /dev/zero | tr '\\0' x; touch /tmp/ran", result.data(),
                               result.size()),
            0);
  EXPECT_EQ(result.all(), "xxxxxxxxxxxxxx\0\0"s);
  EXPECT_TRUE(exists("/tmp/ran"));
}

TEST_F(Shell, LongLinesAreReadInPiecesOf510) {
  LogCapture log;
  Result result(2048);
  EXPECT_EQ(vexa_popen_call_ex("head -c 1021 /dev/zero | tr '\\0' x", result.data(), result.size()), 0);
  EXPECT_EQ(result.text(), std::string(1021, 'x'));
  const std::string piece = "0 oem_popen_call_ex|" + std::string(510, 'x') + "\n";
  EXPECT_TRUE(log_is(log, {piece, piece, "0 oem_popen_call_ex|x\n"}));
}

TEST_F(Shell, AResultOfOneEndsTheReadingAtTheFirstLine) {
  LogCapture log;
  Result result(1);
  EXPECT_EQ(vexa_popen_call_ex("echo a; echo b", result.data(), result.size()), 0);
  EXPECT_EQ(result.all(), "\0"s);
  EXPECT_TRUE(result.fence_stands());
  EXPECT_TRUE(log_is(log, {"0 oem_popen_call_ex|a\n\n", "0 oem_popen_call_ex|len=0,0\n"}));
}

TEST_F(Shell, ResultsOfNothingTwoAndThreeStayInTheirBounds) {
  const std::vector<std::string> both = {"0 oem_popen_call_ex|a\n\n", "0 oem_popen_call_ex|b\n\n"};
  for (const uint32_t size : {0U, 2U, 3U}) {
    LogCapture log;
    Result result(size);
    EXPECT_EQ(vexa_popen_call_ex("echo a; echo b", result.data(), size), 0);
    EXPECT_EQ(result.all(), size == 3 ? "a\0\0"s : std::string(size, '\0'));
    EXPECT_TRUE(result.fence_stands());
    EXPECT_TRUE(log_is(log, both));
  }
}

TEST_F(Shell, WithoutOutputTheResultIsCleared) {
  LogCapture log;
  Result result(4);
  EXPECT_EQ(vexa_popen_call_ex("exit 9", result.data(), result.size()), 0);
  EXPECT_EQ(result.all(), std::string(4, '\0'));
  EXPECT_TRUE(log_is(log, {}));
}

// ---- vexa_check_process_exist ----

class FakePs : public Shell {
 protected:
  // What "ps" of the command line says.
  static void ps_says(const std::string& script) {
    make_dirs("/tmp/fake");
    write_file("/tmp/fake/ps", "#!/bin/sh\n" + script);
    ASSERT_EQ(chmod("/tmp/fake/ps", 0755), 0);
    setenv("PATH", "/tmp/fake:/usr/sbin:/usr/bin:/sbin:/bin", 1);
  }
};

TEST_F(FakePs, EachMatchingLineCounts) {
  LogCapture log;
  ps_says("printf '1 modemd\\n2 modemd_helper\\n3 grep modemd\\n4 other\\n'");
  EXPECT_EQ(vexa_check_process_exist("modemd"), 2);
  EXPECT_EQ(vexa_check_process_exist("modemd_helper"), 1);
  EXPECT_EQ(vexa_check_process_exist("none"), 0);
  EXPECT_TRUE(log_is(log, {}));
}

TEST_F(FakePs, OptionsAndPatternsReachGrepAsTheyAre) {
  ps_says("printf 'modemd\\nMODEMD\\nmodem1\\n'");
  EXPECT_EQ(vexa_check_process_exist("-i modemd"), 2);
  EXPECT_EQ(vexa_check_process_exist("'modem.$'"), 2);
}

TEST_F(FakePs, WhenNothingIsPrintedTheAnswerIsMinusOne) {
  ps_says("echo modemd");
  EXPECT_EQ(vexa_check_process_exist("modemd > /dev/null"), -1);
}

TEST_F(FakePs, ALongCountIsCutAfterSixteenBytes) {
  ps_says("echo modemd");
  EXPECT_EQ(vexa_check_process_exist("modemd > /dev/null; printf 0000000000000012345"), 12);
  EXPECT_EQ(vexa_check_process_exist("modemd > /dev/null; echo text"), 0);
}

TEST_F(FakePs, TheLongestNameThatFitsIsLookedFor) {
  const std::string longest(99, 'm');
  ps_says("echo " + longest + "\n");
  EXPECT_EQ(vexa_check_process_exist(longest.c_str()), 1);
  EXPECT_EQ(vexa_check_process_exist((longest + "m").c_str()), -1);
  EXPECT_EQ(vexa_check_process_exist(std::string(4000, 'm').c_str()), -1);
}

TEST_F(FakePs, WithoutANameNothingRuns) {
  const ChildResult child = run_in_child([] { EXPECT_EQ(vexa_check_process_exist(nullptr), -1); });
  EXPECT_EQ(child.exit_code, 0) << child.out;
  EXPECT_EQ(child.err, "") << "a shell has complained";
}

TEST_F(Shell, ARunningProcessIsFound) {
  LogCapture log;
  EXPECT_EQ(vexa_check_process_exist("vexa_unique"), 0);
  std::filesystem::copy_file("/bin/sleep", "/tmp/vexa_unique");
  const pid_t process = fork();
  if (process == 0) {
    execl("/tmp/vexa_unique", "vexa_unique", "30", nullptr);
    _exit(1);
  }
  // The exec has happened once the kernel shows the new name.
  const std::string comm = "/proc/" + std::to_string(process) + "/comm";
  while (read_file(comm) != "vexa_unique\n") usleep(1000);
  // ps shows processes of its own terminal, or those without one.
  EXPECT_EQ(vexa_check_process_exist("vexa_unique"), 1);
  kill(process, SIGKILL);
  EXPECT_EQ(waitpid(process, nullptr, 0), process);
  EXPECT_EQ(vexa_check_process_exist("vexa_unique"), 0);
  EXPECT_TRUE(log_is(log, {}));
}

// ---- get_flash_type ----

class Partitions : public Shell {
 protected:
  void SetUp() override {
    Shell::SetUp();
    if (IsSkipped()) return;
    write_file("/tmp/partitions", "");
    if (mount("/tmp/partitions", "/proc/partitions", nullptr, MS_BIND, nullptr) != 0)
      GTEST_SKIP() << "no bind mount over /proc/partitions";
    mounted_ = true;
  }
  void TearDown() override {
    EXPECT_TRUE(!mounted_ || umount("/proc/partitions") == 0);
    Shell::TearDown();
  }

 private:
  bool mounted_ = false;
};

TEST_F(Partitions, WithMtdLinesAreRawFlash) {
  LogCapture log;
  write_file("/tmp/partitions", "major minor  #blocks  name\n\n  31        0       1024 mtdblock0\n");
  EXPECT_EQ(get_flash_type(), 1);
  EXPECT_TRUE(log_is(log, {}));
}

TEST_F(Partitions, WithManyMtdLinesAreRawFlashToo) {
  std::string many;
  for (int i = 0; i < 5000; ++i)
    many += "  31 " + std::to_string(i) + " 1024 mtdblock" + std::to_string(i) + "\n";
  write_file("/tmp/partitions", many);
  EXPECT_EQ(get_flash_type(), 1);
}

TEST_F(Partitions, WithoutMtdLinesAreNone) {
  LogCapture log;
  write_file("/tmp/partitions", "major minor  #blocks  name\n\n 179        0    7634944 mmcblk0\n");
  EXPECT_EQ(get_flash_type(), 0);
  write_file("/tmp/partitions", "");
  EXPECT_EQ(get_flash_type(), 0);
  EXPECT_TRUE(log_is(log, {}));
}

}  // namespace
