// SPDX-License-Identifier: MIT
// Locks that other processes hold on the database files.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vexadm/vexadm.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>
#include <string>

#include "support/device_fixture.h"
#include "support/log_capture.h"

using vexa_test::DeviceTest;
using vexa_test::LogCapture;
using vexa_test::LogLine;

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr milliseconds kMoment{300};
constexpr milliseconds kTooLong{60000};  // the holder is killed when the test is done
constexpr milliseconds kBound{VEXA_STORAGE_BUSY_MS};

// Another process that runs a statement on a file and keeps what it locks.
class LockHolder {
 public:
  LockHolder(const char* path, const char* sql, milliseconds time) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    pid_ = fork();
    if (pid_ == 0) hold(ends[1], path, sql, time);
    close(ends[1]);
    char locked = 0;
    EXPECT_EQ(read(ends[0], &locked, 1), 1) << "the lock on " << path << " was not had";
    close(ends[0]);
  }
  LockHolder(const LockHolder&) = delete;
  LockHolder& operator=(const LockHolder&) = delete;
  ~LockHolder() { release(); }

  void release() {
    if (pid_ <= 0) return;
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    pid_ = -1;
  }

 private:
  [[noreturn]] static void hold(int pipe_end, const char* path, const char* sql, milliseconds time) {
    sqlite3* db = nullptr;
    if (sqlite3_open(path, &db) != SQLITE_OK) _exit(1);
    if (sqlite3_exec(db, sql, nullptr, nullptr, nullptr) != SQLITE_OK) _exit(2);
    if (write(pipe_end, "L", 1) != 1) _exit(3);
    const auto count = time.count();
    const timespec wait{static_cast<time_t>(count / 1000), static_cast<long>(count % 1000 * 1000000)};
    nanosleep(&wait, nullptr);
    sqlite3_close(db);
    _exit(0);
  }

  pid_t pid_ = -1;
};

class Busy : public DeviceTest {
 protected:
  void SetUp() override {
    DeviceTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    vexa_set_log_level(4);
    sqlite_reg(&slots);
    ASSERT_EQ(write("old"), 0);
    ASSERT_EQ(dm_write_def_db("NET", "apn", 5, "factory", 7), 0);
  }

  int32_t write(const std::string& value) {
    return slots.write(1, &desc, value.data(), static_cast<int32_t>(value.size()));
  }
  std::string read() {
    char buffer[64] = {};
    const int32_t result = slots.read(1, &desc, reinterpret_cast<uint8_t*>(buffer), sizeof buffer);
    return result < 0 ? std::to_string(result) : std::string(buffer, static_cast<std::size_t>(result));
  }

  vexa_dm_backend_ops slots{};
  const vexa_dm_item_desc desc{"NET", "apn", VEXA_DM_STRING};
};

struct Lock {
  const char* name;
  const char* path;
  const char* sql;
};

class BusyFor : public Busy, public ::testing::WithParamInterface<Lock> {};

TEST_P(BusyFor, AMomentIsWaitedForByAWrite) {
  LockHolder other(GetParam().path, GetParam().sql, kMoment);
  EXPECT_EQ(write("new"), 0);
  EXPECT_EQ(read(), "new");
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(DB_STATE, &db), SQLITE_OK);
  EXPECT_EQ(dm_record_exist(db, "state", "write_state' and state='102"), 1);
  sqlite3_close(db);
}

TEST_P(BusyFor, AMomentIsWaitedForByARead) {
  LockHolder other(GetParam().path, GetParam().sql, kMoment);
  EXPECT_EQ(read(), "old");
}

TEST_P(BusyFor, AMomentIsWaitedForByADefault) {
  LockHolder other(GetParam().path, GetParam().sql, kMoment);
  ASSERT_EQ(dm_write_def_db("NET", "apn", 5, "changed", 7), 0);
  int32_t type = 0;
  char buffer[16] = {};
  ASSERT_EQ(dm_read_def_db("NET", "apn", &type, reinterpret_cast<uint8_t*>(buffer), sizeof buffer), 7);
  EXPECT_STREQ(buffer, "changed");
}

TEST_P(BusyFor, LongerThanTheBoundEndsAWriteWithinIt) {
  LockHolder other(GetParam().path, GetParam().sql, kTooLong);
  const auto start = Clock::now();
  write("new");
  EXPECT_LT(Clock::now() - start, kBound + milliseconds(1000));
  other.release();
  const std::string found = read();
  EXPECT_TRUE(found == "new" || found == "old") << found;
  EXPECT_EQ(write("newest"), 0);
  EXPECT_EQ(read(), "newest");
}

TEST_P(BusyFor, LongerThanTheBoundEndsAReadWithinIt) {
  LockHolder other(GetParam().path, GetParam().sql, kTooLong);
  const auto start = Clock::now();
  read();
  EXPECT_LT(Clock::now() - start, kBound + milliseconds(1000));
  other.release();
  EXPECT_EQ(read(), "old");
}

INSTANTIATE_TEST_SUITE_P(EachFile, BusyFor,
                         ::testing::Values(Lock{"PrimaryReserved", "/data/config.db", "begin immediate"},
                                           Lock{"PrimaryExclusive", "/data/config.db", "begin exclusive"},
                                           Lock{"PrimaryRead", "/data/config.db", "begin; select * from NET"},
                                           Lock{"BackupReserved", "/data/configbak.db", "begin immediate"},
                                           Lock{"BackupExclusive", "/data/configbak.db", "begin exclusive"},
                                           Lock{"BackupRead", "/data/configbak.db",
                                                "begin; select * from NET"},
                                           Lock{"JournalReserved", "/data/state.db", "begin immediate"},
                                           Lock{"JournalExclusive", "/data/state.db", "begin exclusive"},
                                           Lock{"DefaultsExclusive", "/data/DefItems.db", "begin exclusive"}),
                         [](const auto& lock) { return std::string(lock.param.name); });

TEST_F(Busy, ABackupThatAToolReadsForLongIsStillReplaced) {
  LockHolder tool(DB_CONFIGBAK, "begin; select * from NET", kTooLong);
  EXPECT_EQ(write("new"), 0);
  EXPECT_EQ(read(), "new");
}

TEST_F(Busy, ALockedJournalDoesNotEatTheTimeThatThePrimaryNeeds) {
  LockHolder journal(DB_STATE, "begin exclusive", kTooLong);
  LockHolder primary(DB_CONFIG, "begin immediate", milliseconds(1500));
  EXPECT_EQ(write("new"), 0);
  EXPECT_EQ(read(), "new");
}

TEST_F(Busy, AWriteThatThePrimaryRefusesDoesNotReachTheBackup) {
  LockHolder holder(DB_CONFIG, "begin immediate", kTooLong);
  LogCapture log;
  EXPECT_EQ(write("new"), 0);
  EXPECT_EQ(read(), "old");
  const auto& lines = log.lines();
  EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [](const LogLine& line) {
    return line.level == 3 && line.function == "dm_update_record" &&
           line.message == std::to_string(line.line) + " step failed rc: 5\n";
  }));
}

TEST_F(Busy, ABackupLockedForTooLongKeepsThePreviousValueUntilTheNextWrite) {
  LockHolder holder(DB_CONFIGBAK, "begin immediate", kTooLong);
  {
    const LogCapture log;
    EXPECT_EQ(write("new"), 0);
    EXPECT_TRUE(log.has(3, "dm_pal_write", "/data/configbak.db keeps the previous value of NET apn\n"));
  }
  holder.release();
  EXPECT_EQ(read(), "old");
  const vexa_dm_item_desc other{"NET", "other", VEXA_DM_STRING};
  EXPECT_EQ(slots.write(2, &other, "x", 1), 0);
  EXPECT_EQ(read(), "new");
}

// What the default stands in for could not be looked at: 0 would be a lie.
TEST_F(Busy, ALockThatOutlastsTheBoundIsNotTakenForAnItemThatHoldsNothing) {
  vexa_dm_handle* const handle = vexa_dm_reg(VEXA_DM_BACKEND_SQLITE);
  vexa_dm_default_item items[] = {{1, {"NET", "apn", 0}, {.text = "factory"}, VEXA_DM_STRING, 7},
                                  {-1, {}, {}, 0, 0}};
  ASSERT_EQ(vexa_dm_reg_def_items(items), 0);
  {
    LockHolder holder(DB_CONFIGBAK, "begin exclusive", kTooLong);
    LogCapture log;
    vexa_dm_write(handle, 1, "factory", 7);
    EXPECT_EQ(log.count("Try to write the same data\n"), 0U);
  }
  const vexa_dm_item_desc other{"NET", "other", VEXA_DM_STRING};
  EXPECT_EQ(slots.write(2, &other, "x", 1), 0);
  EXPECT_EQ(read(), "factory");
  vexa_dm_unreg(handle);
}

// The backup has answered, whatever the primary's lock kept from being looked at.
TEST_F(Busy, ALockedPrimaryDoesNotKeepTheSameBytesFromBeingSkipped) {
  vexa_dm_handle* const handle = vexa_dm_reg(VEXA_DM_BACKEND_SQLITE);
  vexa_dm_default_item items[] = {{1, {"NET", "apn", 0}, {}, VEXA_DM_STRING, -1}, {-1, {}, {}, 0, 0}};
  ASSERT_EQ(vexa_dm_reg_def_items(items), 0);
  {
    const LockHolder holder(DB_CONFIG, "begin exclusive", kTooLong);
    LogCapture log;
    EXPECT_EQ(vexa_dm_write(handle, 1, "old", 3), 0);
    EXPECT_EQ(log.count("Try to write the same data\n"), 1U);
  }
  vexa_dm_unreg(handle);
}

TEST_F(Busy, APrimaryLockedForTooLongGivesMinusOneForANewTable) {
  const vexa_dm_item_desc other{"FRESH", "key", VEXA_DM_STRING};
  LockHolder holder(DB_CONFIG, "begin exclusive", kTooLong);
  EXPECT_EQ(slots.write(2, &other, "x", 1), -1);
}

TEST_F(Busy, ABackupLockedForTooLongGivesMinus100) {
  LockHolder holder(DB_CONFIGBAK, "begin exclusive", kTooLong);
  EXPECT_EQ(read(), "-100");
}

TEST_F(Busy, AHealthCheckWaitsForAMoment) {
  LockHolder holder(DB_CONFIG, "begin exclusive", kMoment);
  EXPECT_EQ(check_database_health(DB_CONFIG), 0U);
}

TEST_F(Busy, AReadThatFindsEverythingFreeDoesNotWaitForTheBackendOfOthers) {
  // Readers do not exclude each other, in whatever order they come.
  LockHolder primary(DB_CONFIG, "begin; select * from NET", kTooLong);
  LockHolder backup(DB_CONFIGBAK, "begin; select * from NET", kTooLong);
  const auto start = Clock::now();
  EXPECT_EQ(read(), "old");
  EXPECT_LT(Clock::now() - start, kMoment);
}

}  // namespace
