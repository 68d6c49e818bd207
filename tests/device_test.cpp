// SPDX-License-Identifier: MIT
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vexadm/device.h>
#include <vexadm/log.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "support/log_text.h"
#include "support/network_fixture.h"

namespace {

// So many that work, and then one that fails; none fails below 0.
int g_reads_before_failure = -1;

}  // namespace

extern "C" __attribute__((visibility("default"))) ssize_t read(int fd, void* into, size_t size) {
  if (g_reads_before_failure >= 0 && g_reads_before_failure-- == 0) {
    errno = EIO;
    return -1;
  }
  return syscall(SYS_read, fd, into, size);
}

namespace {

using namespace std::string_literals;
using vexa_test::log_is;
using vexa_test::LogCapture;

int open_descriptors() {
  int count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) ++count;
  return count;
}

// While it lives, no descriptor can be had.
class NoDescriptors {
 public:
  NoDescriptors() {
    getrlimit(RLIMIT_NOFILE, &before_);
    const rlimit none = {0, before_.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
  }
  ~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }

 private:
  rlimit before_ = {};
};

// ---- Numbers in files ----

struct Content {
  const char* name;
  std::string bytes;
  std::int32_t value;
};

class FileValue : public vexa_test::DeviceTest {};
class FileValueOf : public FileValue, public ::testing::WithParamInterface<Content> {};

TEST_P(FileValueOf, IsTheNumberItBeginsWith) {
  if (IsSkipped()) return;
  write_file("/tmp/value", GetParam().bytes);
  EXPECT_EQ(vexa_util_get_file_int_value("/tmp/value"), GetParam().value);
}

INSTANTIATE_TEST_SUITE_P(Contents, FileValueOf,
                         ::testing::ValuesIn(std::vector<Content>{
                             {"ALine", "42\n", 42},
                             {"NoLineEnd", "42", 42},
                             {"Negative", "-5", -5},
                             {"WithASign", "+7\n", 7},
                             {"BehindWhiteSpace", " \t\n 12 34", 12},
                             {"BeforeOtherText", "100%", 100},
                             {"DecimalAlone", "0x1F", 0},
                             {"NoOctal", "010", 10},
                             {"Empty", "", 0},
                             {"NoNumber", "on\n", 0},
                             {"ATerminatorFirst", "\0"s + "42", 0},
                             {"TheGreatest", "2147483647", 2147483647},
                             {"TheLeast", "-2147483648", -2147483647 - 1},
                             {"TooGreat", "2147483648", 2147483647},
                             {"FarTooGreat", "99999999999999999999", 2147483647},
                             {"TooSmall", "-2147483649", -2147483647 - 1},
                             {"WithinTheFirst256Bytes", std::string(254, ' ') + "123", 12},
                             {"BehindThem", std::string(256, ' ') + "123", 0},
                         }),
                         [](const auto& tested) { return tested.param.name; });

TEST_F(FileValue, WhatWasReadIsLogged) {
  if (IsSkipped()) return;
  write_file("/tmp/value", "42\n");
  LogCapture log;
  vexa_util_get_file_int_value("/tmp/value");
  EXPECT_TRUE(log_is(log, {"0 oem_util_get_file_int_value|read content:42\n\n"}));
}

TEST_F(FileValue, ALongContentIsShownToTheLastByteThatWasRead) {
  if (IsSkipped()) return;
  write_file("/tmp/value", std::string(1000, '1'));
  LogCapture log;
  EXPECT_EQ(vexa_util_get_file_int_value("/tmp/value"), 2147483647);
  EXPECT_TRUE(log_is(log, {"0 oem_util_get_file_int_value|read content:" + std::string(256, '1') + "\n"}));
}

TEST_F(FileValue, NothingReadIsNotLogged) {
  if (IsSkipped()) return;
  write_file("/tmp/value", "");
  LogCapture log;
  EXPECT_EQ(vexa_util_get_file_int_value("/tmp/value"), 0);
  EXPECT_EQ(vexa_util_get_file_int_value("/tmp"), 0);
  EXPECT_TRUE(log_is(log, {}));
}

TEST_F(FileValue, OfAPipeIsReadUntilItsWriterHasClosed) {
  if (IsSkipped()) return;
  ASSERT_EQ(mkfifo("/tmp/pipe", 0600), 0);
  std::signal(SIGPIPE, SIG_IGN);
  std::int32_t value = 0;
  std::thread reader([&] { value = vexa_util_get_file_int_value("/tmp/pipe"); });
  const int writer = open("/tmp/pipe", O_WRONLY | O_CLOEXEC);
  EXPECT_EQ(write(writer, "4", 1), 1);
  for (int waiting = 1; waiting != 0; std::this_thread::yield()) ioctl(writer, FIONREAD, &waiting);
  EXPECT_EQ(write(writer, "2\n", 2), 2) << "nobody reads on";
  close(writer);
  reader.join();
  EXPECT_EQ(value, 42);
}

TEST_F(FileValue, OfAFileThatFailsOnceInItsMiddleIsZero) {
  if (IsSkipped()) return;
  write_file("/tmp/value", "42\n");
  g_reads_before_failure = 1;
  EXPECT_EQ(vexa_util_get_file_int_value("/tmp/value"), 0);
  EXPECT_EQ(g_reads_before_failure, -1) << "nobody read on";
}

TEST_F(FileValue, OfAMissingFileIsZero) {
  if (IsSkipped()) return;
  LogCapture log;
  EXPECT_EQ(vexa_util_get_file_int_value("/tmp/missing"), 0);
  EXPECT_EQ(vexa_util_get_file_int_value(nullptr), 0);
  EXPECT_TRUE(log_is(log, {"3 oem_util_get_file_int_value|Not exist file=/tmp/missing\n",
                           "3 oem_util_get_file_int_value|Not exist file\n"}));
}

TEST_F(FileValue, IsReadFromAnAttributeFile) {
  if (IsSkipped()) return;
  EXPECT_EQ(vexa_util_get_file_int_value("/proc/self/oom_score_adj"),
            std::atoi(read_file("/proc/self/oom_score_adj").c_str()));
}

TEST_F(FileValue, LeavesExactlyTheNumber) {
  if (IsSkipped()) return;
  LogCapture log;
  write_file("/tmp/value", "a longer text that was there\n");
  EXPECT_EQ(vexa_util_set_file_int_value("/tmp/value", -5), 0);
  EXPECT_EQ(read_file("/tmp/value"), "-5");
  for (const std::int32_t value : {0, 7, 2147483647, -2147483647 - 1}) {
    EXPECT_EQ(vexa_util_set_file_int_value("/tmp/value", value), 0);
    EXPECT_EQ(read_file("/tmp/value"), std::to_string(value));
  }
  EXPECT_TRUE(log_is(log, {}));
}

TEST_F(FileValue, AnInterruptionOfTheHostsEarlierCallsIsNotItsOwn) {
  if (IsSkipped()) return;
  errno = EINTR;
  EXPECT_EQ(vexa_util_set_file_int_value("/tmp/value", 7), 0);
  EXPECT_EQ(read_file("/tmp/value"), "7");
}

TEST_F(FileValue, ANewFileHasTheModeThatTheUmaskLeaves) {
  if (IsSkipped()) return;
  umask(027);
  EXPECT_EQ(vexa_util_set_file_int_value("/tmp/new", 1), 0);
  struct stat status = {};
  ASSERT_EQ(stat("/tmp/new", &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0640U);
}

TEST_F(FileValue, ThatCannotBeOpenedIsNotWritten) {
  if (IsSkipped()) return;
  LogCapture log;
  EXPECT_EQ(vexa_util_set_file_int_value("/tmp/no/value", 1), 7);
  EXPECT_EQ(vexa_util_set_file_int_value("/tmp", 1), 7);
  EXPECT_EQ(vexa_util_set_file_int_value(nullptr, 1), 7);
  EXPECT_TRUE(log_is(log, {"3 oem_util_set_file_int_value|Not exist file=/tmp/no/value\n",
                           "3 oem_util_set_file_int_value|Not exist file=/tmp\n",
                           "3 oem_util_set_file_int_value|Not exist file\n"}));
}

TEST_F(FileValue, OnAFullStorageSaysHowFarItCame) {
  if (IsSkipped()) return;
  const int before = open_descriptors();
  LogCapture log;
  EXPECT_EQ(vexa_util_set_file_int_value("/dev/full", -123), 7);
  EXPECT_TRUE(log_is(log, {"3 oem_util_set_file_int_value|fwrite() failed, only [0] written, total_len=[4], "
                           "reason=[No space left on device]28"}));
  EXPECT_EQ(open_descriptors(), before);
}

TEST_F(FileValue, CutByALimitSaysHowFarItCame) {
  if (IsSkipped()) return;
  std::signal(SIGXFSZ, SIG_IGN);
  const rlimit two = {2, RLIM_INFINITY};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &two), 0);
  LogCapture log;
  EXPECT_EQ(vexa_util_set_file_int_value("/tmp/value", 12345), 7);
  EXPECT_TRUE(log_is(log, {"3 oem_util_set_file_int_value|fwrite() failed, only [2] written, total_len=[5], "
                           "reason=[File too large]27"}));
}

// The kernel refuses it in the write, and has nothing to sync.
TEST_F(FileValue, TakesEffectInAnAttributeFile) {
  if (IsSkipped()) return;
  EXPECT_EQ(vexa_util_set_file_int_value("/proc/self/oom_score_adj", 500), 0);
  EXPECT_EQ(read_file("/proc/self/oom_score_adj"), "500\n");
  LogCapture log;
  EXPECT_EQ(vexa_util_set_file_int_value("/proc/self/oom_score_adj", 5000), 7);
  EXPECT_TRUE(log_is(log, {"3 oem_util_set_file_int_value|fwrite() failed, only [0] written, total_len=[4], "
                           "reason=[Invalid argument]22"}));
  EXPECT_EQ(vexa_util_get_file_int_value("/proc/self/oom_score_adj"), 500);
}

TEST_F(FileValue, WithoutADescriptorIsAFailure) {
  if (IsSkipped()) return;
  write_file("/tmp/value", "42");
  LogCapture log;
  {
    const NoDescriptors none;
    EXPECT_EQ(vexa_util_get_file_int_value("/tmp/value"), 0);
    EXPECT_EQ(vexa_util_set_file_int_value("/tmp/value", 1), 7);
  }
  EXPECT_TRUE(log_is(log, {"3 oem_util_get_file_int_value|Not exist file=/tmp/value\n",
                           "3 oem_util_set_file_int_value|Not exist file=/tmp/value\n"}));
  EXPECT_EQ(read_file("/tmp/value"), "42");
}

TEST_F(FileValue, LeavesNoDescriptorOpen) {
  if (IsSkipped()) return;
  const int before = open_descriptors();
  vexa_util_set_file_int_value("/tmp/value", 1);
  vexa_util_get_file_int_value("/tmp/value");
  vexa_util_get_file_int_value("/tmp");
  EXPECT_EQ(open_descriptors(), before);
}

// ---- LAN bridge ----

class BridgeAddress : public vexa_test::NetworkTest {
 protected:
  static void add_bridge(const std::string& name, const std::string& address) {
    shell("ip link add " + name + " type bridge");
    if (!address.empty()) shell("ip addr add " + address + "/24 dev " + name);
  }

  static std::string address() {
    std::uint32_t found = 0;
    if (vexa_util_get_main_bridge_addr(&found) != 0) return "none";
    char text[INET_ADDRSTRLEN];
    return inet_ntop(AF_INET, &found, text, sizeof text);
  }
};

TEST_F(BridgeAddress, IsThatOfTheFirstNameThatHasOne) {
  if (IsSkipped()) return;
  add_bridge("br0", "10.0.0.4");
  EXPECT_EQ(address(), "10.0.0.4");
  add_bridge("brlan0", "10.0.0.3");
  EXPECT_EQ(address(), "10.0.0.3");
  add_bridge("br-lan", "10.0.0.2");
  EXPECT_EQ(address(), "10.0.0.2");
  add_bridge("bridge0", "");
  EXPECT_EQ(address(), "10.0.0.2");
  shell("ip addr add 10.0.0.1/24 dev bridge0");
  EXPECT_EQ(address(), "10.0.0.1");
}

TEST_F(BridgeAddress, IsInNetworkByteOrderAndLogged) {
  if (IsSkipped()) return;
  add_bridge("br-lan", "192.168.1.254");
  shell("ip link set br-lan up");
  std::uint32_t found = 0;
  LogCapture log;
  EXPECT_EQ(vexa_util_get_main_bridge_addr(&found), 0);
  EXPECT_EQ(found, htonl(0xC0A801FE));
  EXPECT_TRUE(log_is(log, {"0 oem_util_get_if_addr|getip:ifname=br-lan,ip=0xFE01A8C0\n"}));
}

TEST_F(BridgeAddress, WithoutABridgeIsNone) {
  if (IsSkipped()) return;
  add_bridge("br1", "10.0.0.9");
  const int before = open_descriptors();
  std::uint32_t found = 0x12345678;
  LogCapture log;
  EXPECT_EQ(vexa_util_get_main_bridge_addr(&found), -1);
  EXPECT_EQ(found, 0U);
  EXPECT_TRUE(log_is(log, {}));
  EXPECT_EQ(open_descriptors(), before);
}

TEST_F(BridgeAddress, WithoutAPlaceIsRefused) {
  if (IsSkipped()) return;
  LogCapture log;
  EXPECT_EQ(vexa_util_get_main_bridge_addr(nullptr), -1);
  EXPECT_TRUE(log_is(log, {"3 oem_util_get_main_bridge_addr|if_addr is NULL\n"}));
}

TEST_F(BridgeAddress, WithoutADescriptorIsTriedForEachName) {
  if (IsSkipped()) return;
  add_bridge("br-lan", "10.0.0.2");
  std::uint32_t found = 7;
  LogCapture log;
  {
    const NoDescriptors none;
    EXPECT_EQ(vexa_util_get_main_bridge_addr(&found), -1);
  }
  EXPECT_EQ(found, 0U);
  const std::string line = "3 oem_util_get_if_addr|sfd is invalid\n";
  EXPECT_TRUE(log_is(log, {line, line, line, line}));
}

// ---- Processes ----

// A process that shows up in ps under a name.
class Named {
 public:
  explicit Named(const char* name) {
    int ready[2];
    if (pipe(ready) != 0) std::abort();
    process_ = fork();
    if (process_ == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      prctl(PR_SET_NAME, name);
      close(ready[0]);
      close(ready[1]);
      for (;;) pause();
    }
    close(ready[1]);
    char none;
    EXPECT_EQ(read(ready[0], &none, 1), 0);
    close(ready[0]);
  }
  Named(const Named&) = delete;
  Named& operator=(const Named&) = delete;
  ~Named() {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }
  pid_t id() const { return process_; }

 private:
  pid_t process_ = -1;
};

class ProcessId : public vexa_test::DeviceTest {
 protected:
  // In place of the machine's ps, whose list others change meanwhile.
  static void list_processes(const std::string& list) {
    write_file("/tmp/list", list);
    write_file("/tmp/ps", "#!/bin/sh\n[ \"$*\" = -e ] && cat /tmp/list\n");
    ASSERT_EQ(chmod("/tmp/ps", 0755), 0);
    ASSERT_EQ(setenv("PATH", ("/tmp:"s + std::getenv("PATH")).c_str(), 1), 0);
  }
};

TEST_F(ProcessId, IsFoundByName) {
  if (IsSkipped()) return;
  const Named process("vexa-wanted-1");
  LogCapture log;
  EXPECT_EQ(oem_get_pid_by_name("vexa-wanted-1"), process.id());
  EXPECT_EQ(oem_get_pid_by_name("wanted-1"), process.id());
  EXPECT_TRUE(log_is(log, {}));
}

TEST_F(ProcessId, OfNobodyIsMinusOne) {
  if (IsSkipped()) return;
  EXPECT_EQ(oem_get_pid_by_name("vexa-nobody"), -1);
}

TEST_F(ProcessId, IsOfTheFirstLineThatHasTheTextAnywhere) {
  if (IsSkipped()) return;
  list_processes(
      "    PID TTY          TIME CMD\n      1 ?        00:00:02 init\n"
      "   4711 ?        00:00:02 webd\n      7 ?        00:00:00 webd2\n    815 ?        00:00:00 grep\n");
  EXPECT_EQ(oem_get_pid_by_name("webd"), 4711);
  EXPECT_EQ(oem_get_pid_by_name("webd2"), 7);
  EXPECT_EQ(oem_get_pid_by_name("7"), 4711);
  EXPECT_EQ(oem_get_pid_by_name("815"), -1) << "grep itself is no process to find";
  EXPECT_EQ(oem_get_pid_by_name("CMD"), -1) << "nothing to scan";
}

TEST_F(ProcessId, IsScannedFromTheStartOfTheLine) {
  if (IsSkipped()) return;
  list_processes("12abc\n-3 minus\n\t 42 tab\nx 9 none\n" + std::string(300, ' ') + "77 far\n");
  EXPECT_EQ(oem_get_pid_by_name("abc"), 12);
  EXPECT_EQ(oem_get_pid_by_name("minus"), -3);
  EXPECT_EQ(oem_get_pid_by_name("tab"), 42);
  EXPECT_EQ(oem_get_pid_by_name("none"), -1);
  EXPECT_EQ(oem_get_pid_by_name("far"), -1) << "behind what is read";
}

TEST_F(ProcessId, OfANameThatDoesNotFitIsNotLookedFor) {
  if (IsSkipped()) return;
  list_processes("5 " + std::string(227, 'x') + "\n6 " + std::string(228, 'x') + "\n");
  LogCapture log;
  EXPECT_EQ(oem_get_pid_by_name(std::string(227, 'x').c_str()), 5);
  EXPECT_TRUE(log_is(log, {}));
  EXPECT_EQ(oem_get_pid_by_name(std::string(228, 'x').c_str()), -1);
  EXPECT_EQ(oem_get_pid_by_name(nullptr), -1);
  const std::string line = "3 oem_get_pid_by_name|command popen error!!!\n";
  EXPECT_TRUE(log_is(log, {line, line}));
}

TEST_F(ProcessId, WithoutADescriptorIsAFailure) {
  if (IsSkipped()) return;
  LogCapture log;
  {
    const NoDescriptors none;
    EXPECT_EQ(oem_get_pid_by_name("init"), -1);
  }
  EXPECT_TRUE(log_is(log, {"3 oem_get_pid_by_name|command popen error!!!\n"}));
}

TEST_F(ProcessId, LeavesNothingBehind) {
  if (IsSkipped()) return;
  const int before = open_descriptors();
  oem_get_pid_by_name("e");
  EXPECT_EQ(open_descriptors(), before);
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

// ---- Directories ----

class Directory : public vexa_test::DeviceTest {
 protected:
  void SetUp() override {
    DeviceTest::SetUp();
    if (IsSkipped()) return;
    umask(022);
    ASSERT_EQ(chdir("/tmp"), 0);
  }
  static bool is_directory(const char* path) { return std::filesystem::is_directory(path); }
  static std::string made(const std::string& path) {
    return "0 oem_create_and_check_directory|Directory " + path + " created.\n";
  }
  static std::string failed(const std::string& path) {
    return "3 oem_create_and_check_directory|Directory " + path + " creation error.\n";
  }
  static std::string there(const std::string& path) {
    return "0 oem_create_and_check_directory|Directory " + path + " already exists.\n";
  }
};

TEST_F(Directory, IsCreatedWithItsParents) {
  if (IsSkipped()) return;
  ASSERT_EQ(mkdir("a", 0700), 0);
  LogCapture log;
  oem_create_and_check_directory("a/b/c/");
  EXPECT_TRUE(is_directory("/tmp/a/b/c"));
  oem_create_and_check_directory("/tmp/x/y");
  EXPECT_TRUE(is_directory("/tmp/x/y"));
  oem_create_and_check_directory("z");
  EXPECT_TRUE(is_directory("/tmp/z"));
  EXPECT_TRUE(log_is(log, {made("a/b/c/"), made("/tmp/x/y"), made("z")}));
}

TEST_F(Directory, HasTheModeThatTheUmaskLeaves) {
  if (IsSkipped()) return;
  umask(002);
  oem_create_and_check_directory("a/b");
  for (const char* path : {"a", "a/b"}) {
    struct stat status = {};
    ASSERT_EQ(stat(path, &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0775U) << path;
  }
}

TEST_F(Directory, ThatExistsIsLeftAlone) {
  if (IsSkipped()) return;
  ASSERT_EQ(mkdir("a", 0700), 0);
  LogCapture log;
  oem_create_and_check_directory("a");
  oem_create_and_check_directory("a/");
  oem_create_and_check_directory("/");
  struct stat status = {};
  ASSERT_EQ(stat("a", &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0700U);
  EXPECT_TRUE(log_is(log, {there("a"), there("a/"), there("/")}));
}

TEST_F(Directory, AFileInItsPlaceCountsAsExisting) {
  if (IsSkipped()) return;
  write_file("/tmp/file", "content");
  LogCapture log;
  oem_create_and_check_directory("file");
  EXPECT_TRUE(log_is(log, {there("file")}));
  EXPECT_EQ(read_file("/tmp/file"), "content");
}

TEST_F(Directory, BelowAFileIsAFailure) {
  if (IsSkipped()) return;
  write_file("/tmp/file", "content");
  LogCapture log;
  oem_create_and_check_directory("file/b/c");
  EXPECT_TRUE(log_is(log, {failed("file/b/c")}));
}

TEST_F(Directory, OnlyOneSlashIsDropped) {
  if (IsSkipped()) return;
  LogCapture log;
  oem_create_and_check_directory("a//");
  EXPECT_TRUE(is_directory("a"));
  EXPECT_TRUE(log_is(log, {failed("a//")}));
}

TEST_F(Directory, SlashesBetweenNamesDoNotMatter) {
  if (IsSkipped()) return;
  LogCapture log;
  oem_create_and_check_directory("a//b///c");
  EXPECT_TRUE(is_directory("a/b/c"));
  EXPECT_TRUE(log_is(log, {made("a//b///c")}));
}

TEST_F(Directory, ALinkToNowhereIsAFailure) {
  if (IsSkipped()) return;
  ASSERT_EQ(symlink("/tmp/nowhere", "link"), 0);
  LogCapture log;
  oem_create_and_check_directory("link");
  EXPECT_TRUE(log_is(log, {failed("link")}));
}

TEST_F(Directory, OnAReadOnlyStorageIsAFailure) {
  if (IsSkipped()) return;
  ASSERT_EQ(mkdir("fixed", 0755), 0);
  ASSERT_EQ(mount("none", "/tmp/fixed", "tmpfs", MS_RDONLY, nullptr), 0);
  LogCapture log;
  oem_create_and_check_directory("fixed/a");
  EXPECT_TRUE(log_is(log, {failed("fixed/a")}));
  EXPECT_EQ(umount("/tmp/fixed"), 0);
}

TEST_F(Directory, WithoutANameIsAFailure) {
  if (IsSkipped()) return;
  LogCapture log;
  oem_create_and_check_directory("");
  oem_create_and_check_directory(nullptr);
  EXPECT_TRUE(log_is(log, {failed(""), failed("(null)")}));
}

TEST_F(Directory, TooLongAPathIsRefusedAsAWhole) {
  if (IsSkipped()) return;
  std::string path = "a";
  while (path.size() < 255) path += path.size() % 50 == 49 ? "/" : "a";
  ASSERT_EQ(path.size(), 255U);
  LogCapture log;
  oem_create_and_check_directory((path + "b").c_str());
  EXPECT_FALSE(exists(path.substr(0, path.find('/')))) << "nothing may be created under a part of the path";
  oem_create_and_check_directory(path.c_str());
  EXPECT_TRUE(is_directory(path.c_str()));
  EXPECT_TRUE(log_is(log, {failed(path + "b"), made(path)}));
}

TEST_F(Directory, ASlashAtTheEndIsNotCounted) {
  if (IsSkipped()) return;
  std::string path = "a";
  while (path.size() < 255) path += path.size() % 50 == 49 ? "/" : "a";
  LogCapture log;
  oem_create_and_check_directory((path + "//").c_str());
  EXPECT_FALSE(exists(path.substr(0, path.find('/'))));
  oem_create_and_check_directory((path + "/").c_str());
  EXPECT_TRUE(is_directory(path.c_str()));
  EXPECT_TRUE(log_is(log, {failed(path + "//"), made(path + "/")}));
}

// ---- Features ----

TEST(Features, ThisBuildHasNone) {
  EXPECT_EQ(vexa_support_PRIMARY_INTERFACE(), 0);
  EXPECT_EQ(vexa_support_SECONDARY_INTERFACE(), 0);
  EXPECT_EQ(vexa_support_USB_DETECT(), 0);
}

}  // namespace
