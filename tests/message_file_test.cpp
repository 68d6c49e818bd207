// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "support/child.h"
#include "support/device_fixture.h"
#include "support/failing_calloc.h"
#include "support/log_text.h"
#include "support/wall_clock.h"
#include "vexadm/watch_log.h"

// ---- Memory that is short ---------------------------------------------------

namespace {

std::size_t g_refused_malloc = 0;

}  // namespace

#if VEXA_TEST_OWN_CALLOC
extern "C" void* __libc_malloc(std::size_t size);

extern "C" __attribute__((visibility("default"))) void* malloc(std::size_t size) noexcept {
  const bool refused = size != 0 && size == g_refused_malloc;
  return refused ? nullptr : __libc_malloc(size);
}
#endif

namespace {

using ::testing::MatchesRegex;
using vexa_test::log_is;
using vexa_test::LogCapture;
using vexa_test::wall_clock;

constexpr const char* kFile = "/tmp/messages";
constexpr const char* kSystem = "oem_system_call";

class MessageFile : public vexa_test::DeviceTest {
 protected:
  void SetUp() override {
    DeviceTest::SetUp();
    if (IsSkipped()) return;
    stop_clock();
  }
  void TearDown() override {
    wall_clock = {-1, 0};
    use_zone("UTC0");
    if (!IsSkipped()) unlink(kFile);
  }
  // 2024-02-29 12:34:56.789999 UTC
  static void stop_clock() { wall_clock = {1709210096, 789999}; }
  static void use_zone(const char* zone) {
    setenv("TZ", zone, 1);
    tzset();
  }
  std::array<char, 4220> buf = {};
  LogCapture log;
};

constexpr const char* kStamp = "[2024-02-29 12:34:56.789]";

// ---- Plain ------------------------------------------------------------------

TEST_F(MessageFile, HasTimeAndMessage) {
  EXPECT_EQ(vexa_write_msg2file(kFile, "hello world"), 0);
  EXPECT_EQ(vexa_write_msg2file(kFile, ""), 0);
  EXPECT_EQ(read_file(kFile), std::string(kStamp) + "hello world\n" + kStamp + "\n");
  EXPECT_TRUE(
      log.has(0, kSystem, "System call: echo \"[2024-02-29 12:34:56.789]hello world\" >> /tmp/messages\n"));
}

TEST_F(MessageFile, HasLocalTime) {
  use_zone("XYZ-5:30");
  EXPECT_EQ(vexa_write_msg2file(kFile, "hello"), 0);
  EXPECT_EQ(vexa_write_msg2file_ex(buf.data(), kFile, "f", "hello"), 0);
  EXPECT_EQ(read_file(kFile), "[2024-02-29 18:04:56.789]hello\n[2024-02-29 18:04:56.789]f: hello\n");
}

TEST_F(MessageFile, HasThreeDigitsOfMilliseconds) {
  wall_clock.tv_usec = 7999;
  vexa_write_msg2file(kFile, "");
  EXPECT_EQ(read_file(kFile), "[2024-02-29 12:34:56.007]\n");
}

// Not time(): it is read from the last tick and so may be a second behind the clock.
std::time_t clock_seconds() {
  timespec precise = {};
  clock_gettime(CLOCK_REALTIME, &precise);
  return precise.tv_sec;
}

TEST_F(MessageFile, HasTheTimeOfTheClock) {
  wall_clock = {-1, 0};
  const std::time_t before = clock_seconds();
  vexa_write_msg2file(kFile, "");
  const std::string text = read_file(kFile);
  std::tm fields = {};
  ASSERT_NE(strptime(text.c_str(), "[%Y-%m-%d %H:%M:%S", &fields), nullptr) << text;
  const std::time_t stamped = timegm(&fields);
  EXPECT_GE(stamped, before);
  EXPECT_LE(stamped, clock_seconds());
}

TEST_F(MessageFile, GivesTheMessageToTheShellAsItIs) {
  EXPECT_EQ(vexa_write_msg2file(kFile, "$((6 * 7)) \\\"quoted\\\" `echo run`"), 0);
  EXPECT_EQ(vexa_write_msg2file(kFile, "a\" ; echo \"b"), 0);
  EXPECT_EQ(read_file(kFile), std::string(kStamp) + "42 \"quoted\" run\nb\n");
}

TEST_F(MessageFile, GivesTheShellsStatus) {
  const int of_this_shell = std::system("true >> /tmp/missing/file");  // 1 or 2, by kind of shell
  EXPECT_GT(of_this_shell, 0);
  EXPECT_EQ(vexa_write_msg2file("/tmp/missing/file", "hello"), of_this_shell);
  EXPECT_EQ(vexa_write_msg2file(kFile, "\"; exit 3 #"), 3 << 8);
  EXPECT_EQ(log_count(log, "3 oem_system_call|run shell script fail=768, script exit code: 3\n"), 1u);
  EXPECT_FALSE(exists(kFile));
}

TEST_F(MessageFile, IsWrittenWhereTheHostIgnoresItsChildrenAlthoughTheStatusIsLost) {
  const auto child = vexa_test::run_in_child([this] {
    std::signal(SIGCHLD, SIG_IGN);
    EXPECT_EQ(vexa_write_msg2file(kFile, "hello"), -1);
    EXPECT_EQ(log_count(log, "3 oem_system_call|system error!\n"), 1u);
    EXPECT_EQ(vexa_write_msg2file_ex(buf.data(), kFile, "f", "hello"), -1);
  });
  EXPECT_EQ(child.exit_code, 0) << child.out;
  EXPECT_EQ(read_file(kFile), std::string(kStamp) + "hello\n" + kStamp + "f: hello\n");
}

TEST_F(MessageFile, TakesACommandOf2047Bytes) {
  const std::string message(2011 - std::strlen(kFile), 'm');
  EXPECT_EQ(vexa_write_msg2file(kFile, message.c_str()), 0);
  EXPECT_EQ(read_file(kFile), kStamp + message + "\n");
}

TEST_F(MessageFile, DoesNotRunALongerCommandThatWasCut) {
  const std::string message(2012 - std::strlen(kFile), 'm');
  EXPECT_EQ(vexa_write_msg2file(kFile, message.c_str()), -1);
  EXPECT_EQ(vexa_write_msg2file(kFile, std::string(9000, 'm').c_str()), -1);
  EXPECT_FALSE(exists(kFile));
  EXPECT_FALSE(exists("/tmp/message"));  // what is left of the path
  EXPECT_TRUE(log_is(log, {"3 oem_system_call|System call length mismatch: 2048 != 2047\n",
                           "3 oem_system_call|System call length mismatch: 9049 != 2047\n"}));
}

TEST_F(MessageFile, WithoutPathOrMessageIsRefused) {
  EXPECT_EQ(vexa_write_msg2file(nullptr, "hello"), -1);
  EXPECT_EQ(vexa_write_msg2file(kFile, nullptr), -1);
  EXPECT_FALSE(exists(kFile));
  EXPECT_TRUE(log.lines().empty());
}

// ---- With a function's name -------------------------------------------------

TEST_F(MessageFile, HasTheFunctionAsItIsShown) {
  EXPECT_EQ(vexa_write_msg2file_ex(buf.data(), kFile, "vexa_dm_write", "%s %d", "text", 5), 0);
  EXPECT_EQ(read_file(kFile), std::string(kStamp) + "oem_dm_write: text 5\n");
  EXPECT_STREQ(buf.data(), "text 5");
}

TEST_F(MessageFile, IsCutTo4219Characters) {
  std::string bytes(4221, '#');
  const std::string message(5000, 'm');
  EXPECT_EQ(vexa_write_msg2file_ex(bytes.data(), kFile, "f", "%s", message.c_str()), 0);
  EXPECT_EQ(bytes, message.substr(0, 4219) + '\0' + '#');
  EXPECT_EQ(read_file(kFile), std::string(kStamp) + "f: " + message.substr(0, 4219) + "\n");
}

TEST_F(MessageFile, HasALineOf8439Characters) {
  const std::string name(9000, 'n');
  EXPECT_EQ(vexa_write_msg2file_ex(buf.data(), kFile, name.c_str(), "text"), 0);
  EXPECT_EQ(read_file(kFile), kStamp + name.substr(0, 8439 - 25) + "\n");
}

TEST_F(MessageFile, DoesNotRunACommandOfMoreThan12659Bytes) {
  const std::string path = "/tmp/" + std::string(13000, 'p');
  EXPECT_EQ(vexa_write_msg2file_ex(buf.data(), path.c_str(), "f", "text"), -1);
  EXPECT_TRUE(log_is(log, {"3 oem_system_call|System call length mismatch: 13048 != 12659\n"}));
}

TEST_F(MessageFile, HasAnEmptyLineWithoutAName) {
  EXPECT_EQ(vexa_write_msg2file_ex(buf.data(), kFile, nullptr, "text"), 0);
  EXPECT_EQ(read_file(kFile), "\n");
  EXPECT_STREQ(buf.data(), "text");
}

TEST_F(MessageFile, HasAnEmptyLineWithoutMemoryForTheName) {
  VEXA_NEEDS_OWN_CALLOC();
  // Longer than whatever else is allocated, and shown as long as it is.
  const std::string name(5000, 'n');
  g_refused_malloc = name.size() + 1;
  const int result = vexa_write_msg2file_ex(buf.data(), kFile, name.c_str(), "text");
  g_refused_malloc = 0;
  EXPECT_EQ(result, 0);
  EXPECT_EQ(read_file(kFile), "\n");
  EXPECT_STREQ(buf.data(), "text");
}

TEST_F(MessageFile, IsNotWrittenWithoutMemory) {
  VEXA_NEEDS_OWN_CALLOC();
  for (const std::size_t size : {std::size_t{8440}, std::size_t{12660}}) {
    const vexa_test::FailingCalloc failing(size);
    EXPECT_EQ(vexa_write_msg2file_ex(buf.data(), kFile, "f", "text"), 0) << size;
    EXPECT_STREQ(buf.data(), "text");
  }
  EXPECT_FALSE(exists(kFile));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(MessageFile, BuiltInZeroedMemoryOfDocumentedSize) {
  VEXA_NEEDS_OWN_CALLOC();
  const vexa_test::CallocSpy line(8440);
  EXPECT_EQ(vexa_write_msg2file_ex(buf.data(), kFile, "f", "text"), 0);
  EXPECT_NE(line.block(), nullptr);
}

TEST_F(MessageFile, WithoutBufferPathOrFormatIsRefused) {
  EXPECT_EQ(vexa_write_msg2file_ex(nullptr, kFile, "f", "text"), -1);
  EXPECT_EQ(vexa_write_msg2file_ex(buf.data(), nullptr, "f", "text"), -1);
  EXPECT_EQ(vexa_write_msg2file_ex(buf.data(), kFile, "f", nullptr), -1);
  EXPECT_FALSE(exists(kFile));
}

}  // namespace
