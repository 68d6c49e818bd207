// SPDX-License-Identifier: MIT
// How the backup is refreshed: atomically, durably, and without hurting anybody who has it open.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vexadm/vexadm.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "support/child.h"
#include "support/device_fixture.h"
#include "support/emulated.h"
#include "support/log_capture.h"

using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;
using vexa_test::DeviceTest;
using vexa_test::LogCapture;
using vexa_test::run_in_child;

namespace {

constexpr char kPrimary[] = "/data/config.db";
constexpr char kBackup[] = "/data/configbak.db";

int exec(sqlite3* db, const char* sql) { return sqlite3_exec(db, sql, nullptr, nullptr, nullptr); }

class Copy : public DeviceTest {
 protected:
  void SetUp() override {
    DeviceTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    vexa_set_log_level(4);
    sqlite_reg(&slots);
    ASSERT_EQ(write("first"), 0);
  }

  int32_t write(const std::string& value) {
    return slots.write(1, &desc, value.data(), static_cast<int32_t>(value.size()));
  }
  std::string read() {
    std::string buffer(100000, '\0');
    const int32_t result = slots.read(1, &desc, reinterpret_cast<uint8_t*>(buffer.data()), 100000);
    return result < 0 ? std::to_string(result) : buffer.substr(0, static_cast<std::size_t>(result));
  }
  static bool identical() { return read_file(kPrimary) == read_file(kBackup); }
  static std::vector<std::string> names(const char* directory) {
    std::vector<std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
      found.push_back(entry.path().filename());
    }
    return found;
  }

  vexa_dm_backend_ops slots{};
  const vexa_dm_item_desc desc{"NET", "apn", VEXA_DM_STRING};
};

TEST_F(Copy, IsByteIdenticalAndLeavesNothingBehind) {
  ASSERT_EQ(write("second"), 0);
  EXPECT_TRUE(identical());
  EXPECT_THAT(names("/data"), UnorderedElementsAre("config.db", "configbak.db", "state.db"));
}

TEST_F(Copy, SaysWhatTheCommandRunnerSaidOfACopy) {
  LogCapture log;
  ASSERT_EQ(write("second"), 0);
  const auto& lines = log.lines();
  std::size_t at = 0;
  while (at < lines.size() && lines[at].message != "ERROR: cp /data/config.db /data/configbak.db") ++at;
  ASSERT_LT(at + 1, lines.size());
  EXPECT_EQ(lines[at].level, 3);
  EXPECT_EQ(lines[at].function, "dm_pal_write");
  EXPECT_EQ(lines[at + 1].level, 0);
  EXPECT_EQ(lines[at + 1].function, "dm_sqlite_system_cmd");
  EXPECT_EQ(lines[at + 1].message, "read_len=0\n");
  EXPECT_EQ(log.count("read_len=0\n"), 1U);
}

TEST_F(Copy, KeepsModeAndOwnerOfTheTarget) {
  ASSERT_EQ(chmod(kBackup, 0640), 0);
  ASSERT_EQ(chown(kBackup, 12, 34), 0) << "needs a user that may give files away";
  ASSERT_EQ(write("second"), 0);
  struct stat status {};
  ASSERT_EQ(stat(kBackup, &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640U);
  EXPECT_EQ(status.st_uid, 12U);
  EXPECT_EQ(status.st_gid, 34U);
  EXPECT_TRUE(identical());
}

TEST_F(Copy, GivesAMissingTargetTheModeOfTheSource) {
  ASSERT_EQ(chmod(kPrimary, 0600), 0);
  ASSERT_EQ(unlink(kBackup), 0);
  ASSERT_EQ(write("second"), 0);
  struct stat status {};
  ASSERT_EQ(stat(kBackup, &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600U);
  EXPECT_EQ(read(), "second");
}

TEST_F(Copy, FollowsASymbolicLink) {
  make_dirs("/data/elsewhere");
  ASSERT_EQ(rename(kBackup, "/data/elsewhere/real.db"), 0);
  ASSERT_EQ(symlink("elsewhere/real.db", kBackup), 0);
  ASSERT_EQ(write("second"), 0);
  struct stat status {};
  ASSERT_EQ(lstat(kBackup, &status), 0);
  EXPECT_TRUE(S_ISLNK(status.st_mode));
  EXPECT_EQ(read_file("/data/elsewhere/real.db"), read_file(kPrimary));
  EXPECT_THAT(names("/data/elsewhere"), ElementsAre("real.db"));
  EXPECT_EQ(read(), "second");
}

TEST_F(Copy, FollowsADanglingSymbolicLink) {
  make_dirs("/data/elsewhere");
  ASSERT_EQ(unlink(kBackup), 0);
  ASSERT_EQ(symlink("/data/elsewhere/new.db", kBackup), 0);
  ASSERT_EQ(write("second"), 0);
  struct stat status {};
  ASSERT_EQ(lstat(kBackup, &status), 0);
  EXPECT_TRUE(S_ISLNK(status.st_mode));
  EXPECT_EQ(read_file("/data/elsewhere/new.db"), read_file(kPrimary));
}

TEST_F(Copy, ClearsWhatAKilledCopyLeft) {
  write_file("/data/.vexadm-copy-configbak", std::string(100000, 'x'));
  ASSERT_EQ(write("second"), 0);
  EXPECT_TRUE(identical());
  EXPECT_FALSE(exists("/data/.vexadm-copy-configbak"));
}

TEST_F(Copy, IsNotMisledByALinkUnderItsTemporaryName) {
  write_file("/data/precious", "untouched");
  ASSERT_EQ(symlink("/data/precious", "/data/.vexadm-copy-configbak"), 0);
  ASSERT_EQ(write("second"), 0);
  EXPECT_EQ(read_file("/data/precious"), "untouched");
  EXPECT_TRUE(identical());
}

// A process dies while it writes to the backup: pages and rollback journal are on storage.
void leave_a_hot_journal(const char* path) {
  const auto result = run_in_child([path] {
    sqlite3* db = nullptr;
    sqlite3_open(path, &db);
    exec(db, "pragma cache_size=1; pragma cache_spill=1; begin; create table JUNK (a);");
    for (int i = 0; i < 200; ++i) exec(db, "insert into JUNK values (randomblob(2000))");
    raise(SIGKILL);
  });
  ASSERT_EQ(result.signal, SIGKILL);
}

TEST_F(Copy, IsNotSpoiltByAHotJournalOfTheTarget) {
  leave_a_hot_journal(kBackup);
  ASSERT_TRUE(exists("/data/configbak.db-journal"));
  ASSERT_EQ(write("second"), 0);
  EXPECT_FALSE(exists("/data/configbak.db-journal"));
  EXPECT_TRUE(identical());
  EXPECT_EQ(read(), "second");
  EXPECT_EQ(check_database_health(kBackup), 0U);
}

TEST_F(Copy, IsMadeAfterAHotJournalOfTheSourceIsRolledBack) {
  leave_a_hot_journal(kPrimary);
  ASSERT_TRUE(exists("/data/config.db-journal"));
  ASSERT_EQ(write("second"), 0);
  EXPECT_TRUE(identical());
  EXPECT_EQ(read(), "second");
}

TEST_F(Copy, OfAFileWithAHotJournalIsSeenAsHealthy) {
  leave_a_hot_journal(kBackup);
  EXPECT_EQ(check_database_health(kBackup), 0U);
  EXPECT_EQ(read(), "first");
}

TEST_F(Copy, ReplacesATargetThatIsNoDatabase) {
  write_file(
      kBackup,
      "this is no database, and never was one; it is long enough to have a header of 100 bytes ......");
  ASSERT_EQ(write("second"), 0);
  EXPECT_TRUE(identical());
  EXPECT_EQ(read(), "second");
}

TEST_F(Copy, ReplacesAnEmptyTarget) {
  write_file(kBackup, "");
  ASSERT_EQ(write("second"), 0);
  EXPECT_TRUE(identical());
}

TEST_F(Copy, DoesNotDropTheLocksOfItsOwnProcess) {
  for (const char* path : {kPrimary, kBackup}) {
    sqlite3* own = nullptr;
    ASSERT_EQ(sqlite3_open(path, &own), SQLITE_OK);
    // A read transaction: its shared lock must still keep an exclusive one of another process out.
    ASSERT_EQ(exec(own, "begin; select * from sqlite_master"), SQLITE_OK);
    const std::string before = read_file(path);
    check_database_health(path);
    read();
    const auto result = run_in_child([path] {
      sqlite3* other = nullptr;
      ASSERT_EQ(sqlite3_open(path, &other), SQLITE_OK);
      EXPECT_EQ(exec(other, "begin exclusive"), SQLITE_BUSY);
      sqlite3_close(other);
    });
    EXPECT_EQ(result.exit_code, 0) << result.out;
    sqlite3_close(own);
  }
}

TEST_F(Copy, LeavesNoDescriptorOpen) {
  const std::size_t before = names("/proc/self/fd").size();
  ASSERT_EQ(write("second"), 0);
  EXPECT_EQ(read(), "second");
  EXPECT_EQ(names("/proc/self/fd").size(), before);
}

TEST_F(Copy, NeverShowsAReaderOfAnotherProcessAnythingButAWholeValue) {
#ifdef __SANITIZE_ADDRESS__
  VEXA_NOT_EMULATED("so much memory comes from addresses that AddressSanitizer does not know on 32-bit ARM");
#endif
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_NONBLOCK), 0);
  const pid_t reader = fork();
  if (reader == 0) {
    close(ends[1]);
    int wrong = 0;
    char stop = 0;
    while (::read(ends[0], &stop, 1) != 1) {
      const std::string value = read();
      const bool whole =
          value == "first" || (value.size() >= 1000 && value == std::string(value.size(), value[0]));
      if (!whole) ++wrong;
    }
    _exit(wrong == 0 ? 0 : 1);
  }
  close(ends[0]);
  for (int i = 0; i < 200; ++i) {
    ASSERT_EQ(write(std::string(static_cast<std::size_t>(1000 + 50 * i), static_cast<char>('a' + i % 26))),
              0);
  }
  ASSERT_EQ(::write(ends[1], "s", 1), 1);
  int status = 0;
  ASSERT_EQ(waitpid(reader, &status, 0), reader);
  EXPECT_EQ(status, 0) << "the reader saw something else than a whole value";
}

TEST_F(Copy, OfTwoWritersKeepsTheLatestOfBoth) {
  constexpr int kWriters = 2;
  constexpr uint32_t kWrites = 100;
  pid_t writers[kWriters] = {};
  for (int w = 0; w < kWriters; ++w) {
    writers[w] = fork();
    if (writers[w] != 0) continue;
    vexa_dm_item_desc own{"NET", "left", VEXA_DM_U32};
    if (w == 1) std::strcpy(own.key, "right");
    for (uint32_t i = 1; i <= kWrites; ++i) {
      if (slots.write(10, &own, &i, sizeof i) != 0) _exit(1);
      uint32_t found = 0;
      if (slots.read(10, &own, reinterpret_cast<uint8_t*>(&found), 4) != 4 || found != i) _exit(2);
    }
    _exit(0);
  }
  for (const pid_t writer : writers) {
    int status = 0;
    ASSERT_EQ(waitpid(writer, &status, 0), writer);
    EXPECT_EQ(status, 0);
  }
  EXPECT_TRUE(identical());
  for (const char* key : {"left", "right"}) {
    uint32_t found = 0;
    ASSERT_EQ(dm_pal_read("NET", key, reinterpret_cast<uint8_t*>(&found), 4), 4) << key;
    EXPECT_EQ(found, kWrites) << key;
  }
}

// The start-up check writes one record into the backup: into the file that is there then.
TEST_F(Copy, IsNoticedByAProcessThatOpensTheTargetMeanwhile) {
  for (int round = 0; round < 50; ++round) {
    const pid_t checker = fork();
    if (checker == 0) {
      dm_write_state_db("NET", 1, "apn", VEXA_DM_STRING, 100, WS_WRITE_DONE);
      dm_sqlite_check_database();
      _exit(0);
    }
    const std::string value = "value " + std::to_string(round);
    ASSERT_EQ(write(value), 0);
    int status = 0;
    ASSERT_EQ(waitpid(checker, &status, 0), checker);
    ASSERT_EQ(read(), value);
    ASSERT_EQ(check_database_health(kBackup), 0U);
  }
}

TEST_F(Copy, ThatDoesNotFitStillPutsTheRecordIntoTheBackup) {
  make_dirs("/data/small");
  ASSERT_EQ(mount("small", "/data/small", "tmpfs", 0, "size=300k"), 0);
  ASSERT_EQ(sqlite_reg_store_area("/data/small/", "/data/small/"), 0U);
  // Grows until two files are there, and no room for a third.
  const std::string large(20000, 'x');
  for (int i = 0; i < 5; ++i) {
    const std::string key = "k" + std::to_string(i);
    ASSERT_EQ(dm_pal_write("BIG", 1, key.c_str(), VEXA_DM_BLOCK, large.data(), 20000), 0);
  }
  const std::string other(20000, 'y');
  ASSERT_EQ(dm_pal_write("BIG", 1, "k0", VEXA_DM_BLOCK, other.data(), 20000), 0);
  std::string buffer(20000, '\0');
  ASSERT_EQ(dm_pal_read("BIG", "k0", reinterpret_cast<uint8_t*>(buffer.data()), 20000), 20000);
  EXPECT_EQ(buffer, other);
}

TEST_F(Copy, OfAnUnhealthyPrimaryIsNotMade) {
  const std::string good = read_file(kBackup);
  // An index entry that is missing: reads and writes go on, the quick check objects.
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(kPrimary, &db), SQLITE_OK);
  ASSERT_EQ(exec(db,
                 "create table BAD (a not null); insert into BAD values (1); pragma writable_schema=on; "
                 "update sqlite_master set sql='create table BAD (a not null, b not null)' where name='BAD'"),
            SQLITE_OK);
  sqlite3_close(db);
  ASSERT_EQ(check_database_health(kPrimary), 1U);
  EXPECT_EQ(write("second"), 0);
  EXPECT_EQ(read_file(kBackup), good);
  EXPECT_EQ(read(), "first");
}

TEST_F(Copy, KeepsEveryModeBitOfTheTarget) {
  ASSERT_EQ(chmod(kBackup, 07777), 0);
  ASSERT_EQ(write("second"), 0);
  struct stat status {};
  ASSERT_EQ(stat(kBackup, &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 07777U);
}

TEST_F(Copy, FollowsADanglingLinkThatNamesAFileBesideIt) {
  make_dirs("/data/elsewhere");
  ASSERT_EQ(unlink(kBackup), 0);
  ASSERT_EQ(symlink("elsewhere/new.db", kBackup), 0);
  ASSERT_EQ(write("second"), 0);
  struct stat status {};
  ASSERT_EQ(lstat(kBackup, &status), 0);
  EXPECT_TRUE(S_ISLNK(status.st_mode));
  EXPECT_TRUE(read_file("/data/elsewhere/new.db") == read_file(kPrimary));
}

TEST_F(Copy, FollowsADanglingLinkOfTheWorkingDirectory) {
  ASSERT_EQ(chdir("/data"), 0);
  ASSERT_EQ(unlink(kBackup), 0);
  ASSERT_EQ(symlink("new.db", kBackup), 0);
  ASSERT_EQ(sqlite_reg_store_area("", ""), 0U);
  ASSERT_EQ(write("second"), 0);
  EXPECT_TRUE(read_file("/data/new.db") == read_file(kPrimary));
}

}  // namespace
