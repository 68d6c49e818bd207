// SPDX-License-Identifier: MIT
// A process that has used up its file descriptors: documented codes, and nothing lost.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>
#include <vexadm/vexadm.h>

#include <cstring>
#include <string>
#include <vector>

#include "support/device_fixture.h"
#include "support/log_capture.h"

using vexa_test::DeviceTest;
using vexa_test::LogCapture;

namespace {

// Leaves the process so many descriptors, until it goes.
class DescriptorLimit {
 public:
  explicit DescriptorLimit(int left) {
    getrlimit(RLIMIT_NOFILE, &before_);
    const int next = dup(0);
    close(next);
    rlimit limit = before_;
    limit.rlim_cur = static_cast<rlim_t>(next + left);
    setrlimit(RLIMIT_NOFILE, &limit);
  }
  DescriptorLimit(const DescriptorLimit&) = delete;
  DescriptorLimit& operator=(const DescriptorLimit&) = delete;
  ~DescriptorLimit() { setrlimit(RLIMIT_NOFILE, &before_); }

 private:
  rlimit before_{};
};

class NoDescriptors : public DeviceTest {
 protected:
  void SetUp() override {
    DeviceTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    vexa_set_log_level(4);
    sqlite_reg(&slots);
    ASSERT_EQ(write("stored"), 0);
    ASSERT_EQ(dm_write_def_db("NET", "apn", VEXA_DM_STRING, "factory", 7), 0);
  }
  int32_t write(const std::string& value) {
    return slots.write(1, &desc, value.data(), static_cast<int32_t>(value.size()));
  }
  int32_t read() { return slots.read(1, &desc, buffer, sizeof buffer); }

  vexa_dm_backend_ops slots{};
  const vexa_dm_item_desc desc{"NET", "apn", VEXA_DM_STRING};
  uint8_t buffer[32] = {};
};

TEST_F(NoDescriptors, ACommandIsMinusOneWithTheReason) {
  LogCapture log;
  const DescriptorLimit limit(0);
  EXPECT_EQ(dm_sqlite_system_cmd("true", nullptr, 0), static_cast<uint32_t>(-1));
  EXPECT_TRUE(log.has(3, "dm_sqlite_system_cmd", "system command failed: (24) Too many open files\n"));
}

TEST_F(NoDescriptors, ACleanIsMinusOneAndRemovesNothing) {
#if defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "without descriptors the sanitizer cannot look up the name that its suppression needs";
#endif
  char backup[] = "";
  {
    const DescriptorLimit limit(0);
    EXPECT_EQ(dm_sqlite_clean(backup), static_cast<uint32_t>(-1));
  }
  ASSERT_EQ(read(), 6);
  EXPECT_EQ(memcmp(buffer, "stored", 6), 0);
}

TEST_F(NoDescriptors, ReadsAreMinus101) {
  LogCapture log;
  uint32_t crc = 0;
  int32_t type = 0;
  const DescriptorLimit limit(0);
  EXPECT_EQ(read(), -101);
  EXPECT_EQ(dm_read_db(DB_CONFIG, "NET", "apn", buffer, &crc, sizeof buffer), -101);
  EXPECT_EQ(dm_read_def_db("NET", "apn", &type, buffer, sizeof buffer), -101);
  EXPECT_TRUE(log.has(3, "dm_read_db", "sqlite3_open failed: unable to open database file\n"));
  EXPECT_TRUE(log.has(3, "dm_read_def_db", "sqlite3_open failed: unable to open database file\n"));
}

TEST_F(NoDescriptors, TheBackupIsTriedTwice) {
  LogCapture log;
  const DescriptorLimit limit(0);
  EXPECT_EQ(read(), -101);
  EXPECT_EQ(log.count("sqlite3_open failed: unable to open database file\n"), 3U);
}

TEST_F(NoDescriptors, WritesAreRefusedAndTheOldValueStays) {
  LogCapture log;
  {
    const DescriptorLimit limit(0);
    EXPECT_EQ(write("new"), -1);
    EXPECT_EQ(dm_write_db(DB_CONFIG, "NET", 1, "apn", 5, "new", 3), -101);
    EXPECT_EQ(dm_write_def_db("NET", "apn", 5, "new", 3), -101);
    EXPECT_EQ(dm_write_state_db("NET", 1, "apn", 5, 3, WS_READY), -1);
  }
  EXPECT_TRUE(log.has(3, "dm_pal_write", "dm_write_state_db  WS_READY failed: -1\n"));
  EXPECT_TRUE(log.has(3, "dm_pal_write", "dm_update_db: \n"));
  ASSERT_EQ(read(), 6);
  EXPECT_EQ(memcmp(buffer, "stored", 6), 0);
}

TEST_F(NoDescriptors, AHealthCheckIsMinusOne) {
  LogCapture log;
  const DescriptorLimit limit(0);
  EXPECT_EQ(check_database_health(DB_CONFIG), static_cast<uint32_t>(-1));
  EXPECT_TRUE(log.has(3, "check_database_health", "is_corrupted=0\n"));
}

TEST_F(NoDescriptors, TheStartUpCheckGivesSqlitesCode) {
  const DescriptorLimit limit(0);
  EXPECT_EQ(dm_sqlite_check_database(), 14U);  // SQLITE_CANTOPEN
}

TEST_F(NoDescriptors, AnExportIsMinus101) {
  const DescriptorLimit limit(0);
  EXPECT_EQ(dm_read_all_tabs_from_db(DB_CONFIG), static_cast<uint32_t>(-101));
}

// Whatever the number at which a write runs out of descriptors: it is refused or done, and
// the value before or after it is read, whole.
TEST_F(NoDescriptors, AnyShortageLeavesAWholeValue) {
  std::string last = "stored";
  for (int left = 0; left < 8; ++left) {
    const std::string value = "value " + std::to_string(left);
    int32_t result = 0;
    {
      const DescriptorLimit limit(left);
      result = write(value);
    }
    const int32_t length = read();
    ASSERT_GT(length, 0) << left;
    const std::string found(reinterpret_cast<char*>(buffer), static_cast<std::size_t>(length));
    EXPECT_TRUE(found == value || found == last) << left << ": " << result << " " << found;
    EXPECT_EQ(check_database_health(DB_CONFIG), 0U);
    EXPECT_EQ(check_database_health(DB_CONFIGBAK), 0U);
    last = found;
  }
  EXPECT_EQ(last, "value 7");
}

// Enough for the command that counts the copies, not for the one that makes a copy.
TEST_F(NoDescriptors, ACleanWhoseCopyCannotBeMadeRemovesNothing) {
#if defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "without descriptors the sanitizer cannot look up the name that its suppression needs";
#endif
  char backup[] = "";
  LogCapture log;
  {
    const DescriptorLimit limit(2);
    EXPECT_EQ(dm_sqlite_clean(backup), static_cast<uint32_t>(-1));
  }
  EXPECT_EQ(log.count("-----------------Get db num:0---------------\n"), 1U);
  EXPECT_EQ(read(), 6);
  EXPECT_TRUE(exists(DB_CONFIG));
  EXPECT_TRUE(exists(DB_STATE));
}

TEST_F(NoDescriptors, ACleanWithoutACopyIsMinusOneAndRemovesNothing) {
#if defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "without descriptors the sanitizer cannot look up the name that its suppression needs";
#endif
  {
    const DescriptorLimit limit(0);
    EXPECT_EQ(dm_sqlite_clean(nullptr), static_cast<uint32_t>(-1));
  }
  EXPECT_EQ(read(), 6);
  EXPECT_TRUE(exists(DB_CONFIG));
  EXPECT_TRUE(exists(DB_STATE));
}

}  // namespace
