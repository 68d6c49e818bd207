// SPDX-License-Identifier: MIT
#include "vexadm/watch_log.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <locale.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "support/child.h"
#include "support/device_fixture.h"
#include "support/log_text.h"
#include "support/replaced_file.h"

namespace {

using vexa_test::LogCapture;
using vexa_test::ReplacedFile;
using vexa_test::run_in_child;
using namespace std::string_literals;

constexpr const char* kA = "/data/oem/logs/fwawatchA.log";
constexpr const char* kB = "/data/oem/logs/fwawatchB.log";
constexpr const char* kOption = "/vexanv/data/fwawatch_option";
constexpr const char* kUptime = "/proc/uptime";
constexpr std::size_t kLimit = 1048576;

class WatchLog : public vexa_test::DeviceTest {
 protected:
  void SetUp() override {
    DeviceTest::SetUp();
    if (IsSkipped()) return;
    make_dirs("/data/oem/logs");
    make_dirs("/vexanv/data");
  }
  void TearDown() override {
    if (IsSkipped()) return;
    for (const char* place : {"/data/oem", "/vexanv/data"}) std::filesystem::remove_all(place);
  }

  static void fill(const char* path, std::size_t size) { write_file(path, std::string(size, 'x')); }
  static std::uintmax_t size_of(const char* path) { return std::filesystem::file_size(path); }
  static std::string line() {
    oem_watch("here", 7, "text");
    return exists(kA) ? read_file(kA) : "";
  }
};

// ---- Lines ------------------------------------------------------------------

TEST_F(WatchLog, HasUptimePlaceAndMessage) {
  const ReplacedFile uptime(kUptime, "12345.67 8910.11\n");
  EXPECT_EQ(oem_watch("vexa_some_function", 42, "%s %d", "text", 5), 0);
  EXPECT_EQ(oem_watch("file.c", -1, "100%%\n"), 0);
  EXPECT_EQ(read_file(kA), "[12345.67] vexa_some_function:42 text 5\n[12345.67] file.c:-1 100%\n\n");
  EXPECT_FALSE(exists(kB));
}

TEST_F(WatchLog, HasTheUptimeOfTheSystem) {
  timespec before = {};
  clock_gettime(CLOCK_BOOTTIME, &before);
  const std::string text = line();
  timespec after = {};
  clock_gettime(CLOCK_BOOTTIME, &after);
  ASSERT_THAT(text, ::testing::MatchesRegex("\\[[0-9]+\\.[0-9][0-9]\\] here:7 text\n"));
  const double seconds = std::strtod(text.c_str() + 1, nullptr);
  EXPECT_GE(seconds, static_cast<double>(before.tv_sec));
  EXPECT_LE(seconds, static_cast<double>(after.tv_sec + 1));
}

TEST_F(WatchLog, DoesNotCutLongMessages) {
  const ReplacedFile uptime(kUptime, "1");
  const std::string message(20000, 'm');
  oem_watch("here", 7, "%s", message.c_str());
  EXPECT_EQ(read_file(kA), "[1.00] here:7 " + message + "\n");
}

TEST_F(WatchLog, ReadsOneNumberOfAnyForm) {
  const ReplacedFile uptime(kUptime, "");
  const struct {
    const char* text;
    const char* shown;
  } rows[] = {{" \n7", "[7.00]"},
              {"0.005", "[0.01]"},
              {"1e3 x", "[1000.00]"},
              {"-1.5", "[-1.50]"},
              {"0x10", "[16.00]"},
              {"4294967296.25", "[4294967296.25]"},
              {"86400.99\0 5", "[86400.99]"}};
  for (const auto& row : rows) {
    uptime.write(row.text);
    unlink(kA);
    EXPECT_EQ(line(), row.shown + " here:7 text\n"s) << row.text;
  }
}

TEST_F(WatchLog, IsSilentWithoutAnUptime) {
  {
    const ReplacedFile uptime(kUptime, "");
    EXPECT_EQ(line(), "");
    uptime.write("up");
    EXPECT_EQ(line(), "");
  }
  // No line can be read there.
  ASSERT_EQ(mount("/proc/self/mem", kUptime, nullptr, MS_BIND, nullptr), 0);
  EXPECT_EQ(oem_watch("here", 7, "text"), 0);
  umount2(kUptime, MNT_DETACH);
  EXPECT_FALSE(exists(kA));
}

TEST_F(WatchLog, IsSilentWhereTheUptimeCannotBeOpened) {
  // Opening a socket's place fails, for root as well.
  const int socket_place = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const sockaddr_un address = {AF_UNIX, "/tmp/no-uptime"};
  ASSERT_EQ(bind(socket_place, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(mount("/tmp/no-uptime", kUptime, nullptr, MS_BIND, nullptr), 0);
  const int opened = open(kUptime, O_RDONLY | O_CLOEXEC);
  const int result = oem_watch("here", 7, "text");
  umount2(kUptime, MNT_DETACH);
  close(socket_place);
  unlink("/tmp/no-uptime");
  EXPECT_EQ(opened, -1);
  EXPECT_EQ(result, 0);
  EXPECT_FALSE(exists(kA));
}

TEST_F(WatchLog, ShowsAMissingPlaceAndWritesNothingForAMissingFormat) {
  const ReplacedFile uptime(kUptime, "1");
  EXPECT_EQ(oem_watch("here", 7, nullptr), 0);
  EXPECT_FALSE(exists(kA));
  EXPECT_EQ(oem_watch(nullptr, 7, "text"), 0);
  EXPECT_EQ(read_file(kA), "[1.00] (null):7 text\n");
}

TEST_F(WatchLog, HasADecimalPointInEveryLanguage) {
  // One with a decimal comma: made here, since machines differ in which they have.
  ASSERT_EQ(std::system("localedef -i de_DE -f UTF-8 /tmp/de_DE.UTF-8 > /dev/null 2>&1 || "
                        "localedef -c -i de_DE -f UTF-8 /tmp/de_DE.UTF-8 > /dev/null 2>&1 || true"),
            0);
  setenv("LOCPATH", "/tmp", 1);
  if (setlocale(LC_ALL, "de_DE.UTF-8") == nullptr) GTEST_SKIP() << "no sources of locales here";
  const ReplacedFile uptime(kUptime, "12345.67 1\n");
  oem_watch("here", 7, "%.1f", 2.5);
  setlocale(LC_ALL, "C");
  EXPECT_EQ(read_file(kA), "[12345.67] here:7 2,5\n");
}

TEST_F(WatchLog, LogsNothing) {
  LogCapture log;
  line();
  unlink(kA);
  rmdir("/data/oem/logs");
  line();
  EXPECT_TRUE(log.lines().empty());
}

// ---- Option file ------------------------------------------------------------

struct Option {
  const char* name;
  std::string bytes;
  bool on;
};

class WatchOption : public WatchLog, public ::testing::WithParamInterface<Option> {};

TEST_P(WatchOption, SwitchesTheLog) {
  write_file(kOption, GetParam().bytes);
  EXPECT_EQ(line() != "", GetParam().on);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, WatchOption,
    ::testing::Values(Option{"Zero", "0", false}, Option{"ZeroAndLineFeed", "0\n", false},
                      Option{"OneAndLineFeed", "1\n", true}, Option{"Negative", "-1", true},
                      Option{"Empty", "", true}, Option{"LineFeed", "\n", false},
                      Option{"NoNumber", "on\n", false}, Option{"ZeroAndMore", "0 1", false},
                      Option{"Octal", "010", true}, Option{"Hexadecimal", "0x10", false},
                      Option{"SpaceBefore", " \t\n+7", true}, Option{"ZeroByte", "\0001"s, false},
                      Option{"Huge", std::string(60, '9'), true},
                      Option{"OneAtTheEndOf128", std::string(127, ' ') + "1", true},
                      Option{"OneBehind128", std::string(128, ' ') + "1", false},
                      Option{"TenAcross128", std::string(127, ' ') + "10", true},
                      Option{"ZerosUpTo128", std::string(128, '0') + "1", false}),
    [](const auto& option) { return option.param.name; });

TEST_F(WatchLog, IsOnWithoutAnOptionFileThatCanBeRead) {
  EXPECT_NE(line(), "");
  unlink(kA);
  ASSERT_EQ(mkdir(kOption, 0755), 0);
  EXPECT_NE(line(), "");
}

TEST_F(WatchLog, FollowsTheOptionFromCallToCall) {
  write_file(kOption, "0\n");
  EXPECT_EQ(line(), "");
  write_file(kOption, "1\n");
  EXPECT_NE(line(), "");
}

// ---- Which file -------------------------------------------------------------

TEST_F(WatchLog, IsNotFullAtTheLimit) {
  fill(kA, kLimit);
  line();
  EXPECT_GT(size_of(kA), kLimit);
  EXPECT_FALSE(exists(kB));
}

TEST_F(WatchLog, GoesToTheOtherFileBeyondTheLimit) {
  fill(kA, kLimit + 1);
  const ReplacedFile uptime(kUptime, "1");
  line();
  EXPECT_EQ(size_of(kA), kLimit + 1);
  EXPECT_EQ(read_file(kB), "[1.00] here:7 text\n");
  fill(kB, kLimit);
  line();
  EXPECT_EQ(size_of(kB), kLimit + 19);
  EXPECT_EQ(size_of(kA), kLimit + 1);
}

TEST_F(WatchLog, ReturnsToTheFirstFileOnceThatIsGone) {
  fill(kA, kLimit + 1);
  fill(kB, 5);
  unlink(kA);
  line();
  EXPECT_TRUE(exists(kA));
  EXPECT_EQ(size_of(kB), 5u);
}

TEST_F(WatchLog, EmptiesTheFullFilesInTurn) {
  const ReplacedFile uptime(kUptime, "1");
  const auto child = run_in_child([] {
    const std::string written = "[1.00] here:7 text\n";
    fill(kA, kLimit + 1);
    fill(kB, kLimit + 1);
    line();
    EXPECT_EQ(read_file(kA), written);
    EXPECT_EQ(size_of(kB), kLimit + 1);

    fill(kA, kLimit + 1);
    line();
    EXPECT_EQ(read_file(kB), written);
    EXPECT_EQ(size_of(kA), kLimit + 1);

    fill(kB, kLimit + 1);
    line();
    EXPECT_EQ(read_file(kA), written);
  });
  EXPECT_EQ(child.exit_code, 0) << child.out;
}

TEST_F(WatchLog, SaysThatAFileCannotBeEmptiedAndTakesTurnsAllTheSame) {
  // A full file that cannot be opened for writing, by root either.
  const auto make_stubborn = [](const char* path) {
    fill("/tmp/full", kLimit + 1);
    write_file(path, "");
    ASSERT_EQ(mount("/tmp/full", path, nullptr, MS_BIND, nullptr), 0);
    ASSERT_EQ(mount(nullptr, path, nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr), 0);
  };
  make_stubborn(kA);
  make_stubborn(kB);
  const auto child = run_in_child([] {
    LogCapture log;
    for (int i = 0; i < 3; ++i) oem_watch("here", 7, "text");
    EXPECT_TRUE(log.lines().empty());
  });
  umount2(kA, MNT_DETACH);
  umount2(kB, MNT_DETACH);
  EXPECT_EQ(child.exit_code, 0);
  EXPECT_EQ(child.out,
            "trunk /data/oem/logs/fwawatchA.log file failed!!!\n"
            "trunk /data/oem/logs/fwawatchB.log file failed!!!\n"
            "trunk /data/oem/logs/fwawatchA.log file failed!!!\n");
}

TEST_F(WatchLog, IsAppendedToAFullFileThatCannotBeEmptied) {
  // An append-only file may grow and may not be emptied; not every file system knows that.
  fill(kA, kLimit + 1);
  fill(kB, kLimit + 1);
  if (std::system("chattr +a /data/oem/logs/fwawatchA.log 2> /dev/null") != 0) {
    GTEST_SKIP() << "no append-only files here";
  }
  const ReplacedFile uptime(kUptime, "1");
  const auto child = run_in_child([] { line(); });
  EXPECT_EQ(child.out, "trunk /data/oem/logs/fwawatchA.log file failed!!!\n");
  EXPECT_EQ(size_of(kA), kLimit + 1 + 19);
  EXPECT_EQ(std::system("chattr -a /data/oem/logs/fwawatchA.log"), 0);
}

// ---- What is missing --------------------------------------------------------

TEST_F(WatchLog, MakesNoDirectory) {
  rmdir("/data/oem/logs");
  const auto child = run_in_child([] { EXPECT_EQ(oem_watch("here", 7, "text"), 0); });
  EXPECT_EQ(child.exit_code, 0);
  EXPECT_EQ(child.out, "");
  EXPECT_FALSE(exists("/data/oem/logs"));
}

TEST_F(WatchLog, LeavesNoDescriptorOpen) {
  const auto open_descriptors = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
  };
  const auto before = open_descriptors();
  line();
  fill(kA, kLimit + 1);
  fill(kB, kLimit + 1);
  line();
  write_file(kOption, "0");
  line();
  EXPECT_EQ(open_descriptors(), before);
}

TEST_F(WatchLog, KeepsTheLinesOfThreadsWhole) {
  const ReplacedFile uptime(kUptime, "1");
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([] {
      for (int n = 0; n < 50; ++n) oem_watch("here", 7, "text");
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::string expected;
  for (int i = 0; i < 200; ++i) expected += "[1.00] here:7 text\n";
  EXPECT_EQ(read_file(kA), expected);
}

TEST_F(WatchLog, MayFindBothFilesFullInSeveralThreads) {
  std::vector<std::thread> threads;
  fill(kA, kLimit + 1);
  fill(kB, kLimit + 1);
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([] { oem_watch("here", 7, "text"); });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_TRUE(size_of(kA) <= kLimit || size_of(kB) <= kLimit);
}

}  // namespace
