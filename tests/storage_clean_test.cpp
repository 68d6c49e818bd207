// SPDX-License-Identifier: MIT
// Shell commands of the backend, and the clean with its rotation of dated copies.
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "support/storage_fixture.h"

namespace vexa_test {
namespace {

// No further descriptor can be had, so that no pipe to a command can be made.
void use_up_descriptors() {
  close_range(3, ~0U, 0);
  const rlimit none_left = {3, 3};
  setrlimit(RLIMIT_NOFILE, &none_left);
}

// ---- dm_sqlite_system_cmd ----

class Command : public StorageTest {
 protected:
  std::array<char, 16> out_ = {};
};

TEST_F(Command, GivesTheOutputUnterminated) {
  out_.fill('#');
  const LogCapture log;

  EXPECT_EQ(dm_sqlite_system_cmd("printf hello", out_.data(), 15), 0u);

  EXPECT_EQ(std::string(out_.data(), 6), "hello#");
  EXPECT_TRUE(log_is(log, {"0 dm_sqlite_system_cmd|read_len=5\n"}));
}

TEST_F(Command, GivesNoMoreThanTheCapacity) {
  out_.fill('#');
  const LogCapture log;

  EXPECT_EQ(dm_sqlite_system_cmd("printf hello", out_.data(), 3), 0u);

  EXPECT_EQ(std::string(out_.data(), 4), "hel#");
  EXPECT_TRUE(log_is(log, {"0 dm_sqlite_system_cmd|read_len=3\n"}));
}

TEST_F(Command, WithoutABufferReadsNothing) {
  const LogCapture log;

  EXPECT_EQ(dm_sqlite_system_cmd("echo ignored > /data/made", nullptr, 0), 0u);

  EXPECT_TRUE(log_is(log, {}));
  EXPECT_EQ(read_file("/data/made"), "ignored\n") << "it waits for the end of the command";
}

TEST_F(Command, DoesNotLookAtTheExitCode) {
  EXPECT_EQ(dm_sqlite_system_cmd("exit 7", out_.data(), 15), 0u);
  EXPECT_EQ(dm_sqlite_system_cmd("no-such-program-anywhere 2>/dev/null", out_.data(), 15), 0u);
}

TEST_F(Command, RefusesNull) {
  const LogCapture log;

  EXPECT_EQ(dm_sqlite_system_cmd(nullptr, out_.data(), 15), 0xFFFFFFFFu);

  EXPECT_TRUE(log_is(log, {"3 dm_sqlite_system_cmd|dm_sqlite_system_cmd NULL\n"}));
}

TEST_F(Command, ThatCannotBeStarted) {
  expect_in_child([] {
    use_up_descriptors();
    const LogCapture log;
    std::array<char, 16> out = {};

    EXPECT_EQ(dm_sqlite_system_cmd("true", out.data(), 15), 0xFFFFFFFFu);

    EXPECT_TRUE(log_is(log, {"3 dm_sqlite_system_cmd|system command failed: (24) Too many open files\n"}));
  });
}

// ---- Clean ----

const std::string kRotation = "/mnt/vendor/nvdata/";

class Clean : public StorageTest {
 protected:
  void SetUp() override {
    StorageTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    vexa_dm_backend_ops slots = {};
    sqlite_reg(&slots);
    EXPECT_EQ(write_item("k", "value"), 0);
    EXPECT_EQ(dm_write_def_db("defs", "d", 5, "abc", 3), 0);
  }

  static std::int32_t clean(bool with_backup) {
    char backup[] = "not looked at";
    return static_cast<std::int32_t>(dm_sqlite_clean(with_backup ? backup : nullptr));
  }

  const std::vector<std::string> only_defaults_ = {"DefItems.db"};
};

std::string number_line(int count) {
  return "0 dm_sqlite_clean|-----------------Get db num:" + std::to_string(count) + "---------------\n";
}
std::string name_line(const std::string& captured) {
  return "? dm_sqlite_clean|-----------------Get db name:" + captured + "-----------\n";
}

TEST_F(Clean, WithoutBackupRemovesItemDatabasesAndJournal) {
  const LogCapture log;

  EXPECT_EQ(clean(false), 0);

  EXPECT_EQ(names_in("/data"), only_defaults_);
  EXPECT_EQ(names_in(kRotation), std::vector<std::string>{});
  EXPECT_TRUE(log_is(log, {number_line(0), "0 dm_sqlite_clean|just clean database no need backup\n"},
                     "dm_sqlite_clean"));
  EXPECT_EQ(log_count(log, "0 dm_sqlite_system_cmd|read_len=2\n"), 1u);
}

TEST_F(Clean, WithBackupMakesADatedCopyEndingInOne) {
  const std::string primary = read_file(kPrimary);
  const std::time_t before = std::time(nullptr);
  const LogCapture log;

  EXPECT_EQ(clean(true), 0);

  const std::time_t after = std::time(nullptr);
  EXPECT_EQ(names_in("/data"), only_defaults_);
  const std::vector<std::string> copies = names_in(kRotation);
  ASSERT_EQ(copies.size(), 1u);
  EXPECT_THAT(copies[0],
              ::testing::MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}_[0-9]{2}_[0-9]{2}_[0-9]{2}\\.db1"));
  std::tm stamp = {};
  ASSERT_NE(strptime(copies[0].c_str(), "%Y-%m-%d_%H_%M_%S", &stamp), nullptr);
  stamp.tm_isdst = -1;
  const std::time_t made = std::mktime(&stamp);
  EXPECT_GE(made, before);
  EXPECT_LE(made, after);
  EXPECT_EQ(read_file(kRotation + copies[0]), primary);
  EXPECT_TRUE(log_is(log, {number_line(0)}, "dm_sqlite_clean"));
}

TEST_F(Clean, NumbersTheCopiesUpToThree) {
  write_file(kRotation + "2001-01-01_01_01_01.db1", "first");
  EXPECT_EQ(clean(true), 0);
  write_file(kPrimary, "");
  write_file(kBackup, "");
  write_file(kJournal, "");
  EXPECT_EQ(clean(true), 0);

  const std::vector<std::string> copies = names_in(kRotation);
  ASSERT_EQ(copies.size(), 3u);
  EXPECT_EQ(copies[0], "2001-01-01_01_01_01.db1");
  EXPECT_TRUE(copies[1].ends_with(".db2")) << copies[1];
  EXPECT_TRUE(copies[2].ends_with(".db3")) << copies[2];
}

TEST_F(Clean, WithThreeCopiesDropsTheOldestAndRenamesTheOthers) {
  write_file(kRotation + "2001-01-01_01_01_01.db1", "first");
  write_file(kRotation + "2002-02-02_02_02_02.db2", "second");
  write_file(kRotation + "2003-03-03_03_03_03.db3", "third");
  const std::string primary = read_file(kPrimary);
  const LogCapture log;

  EXPECT_EQ(clean(true), 0);

  const std::vector<std::string> copies = names_in(kRotation);
  ASSERT_EQ(copies.size(), 3u);
  EXPECT_EQ(copies[0], "2002-02-02_02_02_02.db1");
  EXPECT_EQ(copies[1], "2003-03-03_03_03_03.db2");
  EXPECT_TRUE(copies[2].ends_with(".db3"));
  EXPECT_EQ(read_file(kRotation + copies[0]), "second");
  EXPECT_EQ(read_file(kRotation + copies[1]), "third");
  EXPECT_EQ(read_file(kRotation + copies[2]), primary);
  EXPECT_TRUE(log_is(log,
                     {number_line(3), name_line("/mnt/vendor/nvdata/2002-02-02_02_02_02.db2\n"),
                      name_line("/mnt/vendor/nvdata/2003-03-03_03_03_03.db3\n")},
                     "dm_sqlite_clean"));
}

TEST_F(Clean, WithThreeCopiesAndNoSecondGoesOn) {
  write_file(kRotation + "2001-01-01_01_01_01.db1", "first");
  write_file(kRotation + "2003-03-03_03_03_03.db3", "third");
  write_file(kRotation + "notes.db-text", "counted too");
  const LogCapture log;

  EXPECT_EQ(clean(true), 0);

  const std::vector<std::string> copies = names_in(kRotation);
  ASSERT_EQ(copies.size(), 3u);
  EXPECT_EQ(copies[0], "2003-03-03_03_03_03.db2");
  EXPECT_TRUE(copies[1].ends_with(".db3"));
  EXPECT_EQ(copies[2], "notes.db-text");
  EXPECT_TRUE(
      log_is(log, {number_line(3), name_line(""), name_line("/mnt/vendor/nvdata/2003-03-03_03_03_03.db3\n")},
             "dm_sqlite_clean"));
}

TEST_F(Clean, CountsEveryFileWhoseNameHoldsDbAlsoBelow) {
  make_dirs(kRotation + "below");
  write_file(kRotation + "below/a.db", "");
  write_file(kRotation + "b.dbx", "");
  write_file(kRotation + "plain", "");
  const LogCapture log;

  EXPECT_EQ(clean(true), 0);

  EXPECT_EQ(log_count(log, number_line(2)), 1u);
  bool third = false;
  for (const std::string& name : names_in(kRotation)) third = third || name.ends_with(".db3");
  EXPECT_TRUE(third);
}

TEST_F(Clean, WithFourFilesUsesAFourthNumber) {
  write_file(kRotation + "2001-01-01_01_01_01.db1", "first");
  write_file(kRotation + "2002-02-02_02_02_02.db2", "second");
  write_file(kRotation + "2003-03-03_03_03_03.db3", "third");
  write_file(kRotation + "2004-04-04_04_04_04.db4", "fourth");

  EXPECT_EQ(clean(true), 0);

  const std::vector<std::string> copies = names_in(kRotation);
  ASSERT_EQ(copies.size(), 4u);
  EXPECT_EQ(copies[0], "2002-02-02_02_02_02.db1");
  EXPECT_EQ(copies[1], "2003-03-03_03_03_03.db2");
  EXPECT_EQ(copies[2], "2004-04-04_04_04_04.db3");
  EXPECT_TRUE(copies[3].ends_with(".db4"));
}

TEST_F(Clean, ARenameThatDoesNotFitItsCommandIsCut) {
  const std::string name(60, 'n');
  write_file(kRotation + "2001-01-01_01_01_01.db1", "first");
  write_file(kRotation + name + ".db2", "second");
  write_file(kRotation + "2003-03-03_03_03_03.db3", "third");

  EXPECT_EQ(clean(true), 0);

  // 127 characters of "mv <directory><name>.db2 <directory><name>.db1".
  const std::string command = "mv " + kRotation + name + ".db2 " + kRotation + name + ".db1";
  const std::string cut = command.substr(0, 127).substr(("mv " + kRotation + name + ".db2 ").size());
  EXPECT_TRUE(exists(cut)) << cut;
  EXPECT_FALSE(exists(kRotation + name + ".db2"));
  EXPECT_FALSE(exists(kRotation + name + ".db1"));
}

TEST_F(Clean, TheCopyIgnoresTheRotationDirectorysName) {
  make_dirs("/vexanv/rotation");
  write_file("/vexanv/rotation/one.db", "");
  std::snprintf(db_rst_bak, sizeof db_rst_bak, "/vexanv/rotation/");
  const LogCapture log;

  EXPECT_EQ(clean(true), 0);

  EXPECT_EQ(log_count(log, number_line(1)), 1u);
  EXPECT_EQ(names_in("/vexanv/rotation"), std::vector<std::string>{"one.db"});
  const std::vector<std::string> copies = names_in(kRotation);
  ASSERT_EQ(copies.size(), 1u);
  EXPECT_TRUE(copies[0].ends_with(".db2")) << copies[0];
}

TEST_F(Clean, WithoutARotationDirectoryLosesTheCopyNotTheClean) {
  std::filesystem::remove(kRotation);

  expect_in_child([] { EXPECT_EQ(clean(true), 0); });

  EXPECT_EQ(names_in("/data"), only_defaults_);
}

TEST_F(Clean, WithoutPrimaryStopsAtOnce) {
  unlink(kPrimary.c_str());
  const LogCapture log;

  EXPECT_EQ(clean(false), -1);

  EXPECT_EQ(names_in("/data"), (std::vector<std::string>{"DefItems.db", "configbak.db", "state.db"}));
  EXPECT_TRUE(log_is(log,
                     {number_line(0), "0 dm_sqlite_clean|just clean database no need backup\n",
                      "3 dm_sqlite_clean|unlink error: No such file or directory\n"},
                     "dm_sqlite_clean"));
}

TEST_F(Clean, WithoutBackupFileKeepsTheJournal) {
  unlink(kBackup.c_str());
  const LogCapture log;

  EXPECT_EQ(clean(false), -1);

  EXPECT_EQ(names_in("/data"), (std::vector<std::string>{"DefItems.db", "state.db"}));
  EXPECT_EQ(log_count(log, "3 dm_sqlite_clean|unlink bak error: No such file or directory\n"), 1u);
}

TEST_F(Clean, WithoutJournalFails) {
  unlink(kJournal.c_str());
  const LogCapture log;

  EXPECT_EQ(clean(false), -1);

  EXPECT_EQ(names_in("/data"), only_defaults_);
  EXPECT_EQ(log_count(log, "3 dm_sqlite_clean|unlink state error: No such file or directory\n"), 1u);
}

TEST_F(Clean, GivesTheMutexBackOnEveryWay) {
  const vexa_dm_item_desc desc = item_desc("cfg", "k", 6);

  EXPECT_EQ(clean(true), 0);
  EXPECT_EQ(clean(false), -1);
  EXPECT_EQ(clean(true), -1);

  expect_in_child([&] { EXPECT_EQ(dm_sqlite_write(7, &desc, "value", 5), 0); }, 5);
}

TEST_F(Clean, ThatCannotStartItsFirstCommandDeletesNothing) {
#if defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "without descriptors the sanitizer cannot look up the name that its suppression needs";
#endif
  expect_in_child([] {
    use_up_descriptors();
    const LogCapture log;

    EXPECT_EQ(clean(true), -1);

    EXPECT_TRUE(log_is(log, {"3 dm_sqlite_system_cmd|system command failed: (24) Too many open files\n"}));
  });

  EXPECT_EQ(names_in("/data"),
            (std::vector<std::string>{"DefItems.db", "config.db", "configbak.db", "state.db"}));
}

TEST_F(Clean, FollowsTheStoreArea) {
  make_dirs("/vexanv/a");
  sqlite_reg_store_area("/vexanv/a/", "/vexanv/a/");
  EXPECT_EQ(write_item("k", "value"), 0);

  EXPECT_EQ(clean(false), 0);

  EXPECT_EQ(names_in("/vexanv/a"), std::vector<std::string>{});
  EXPECT_EQ(names_in("/data"),
            (std::vector<std::string>{"DefItems.db", "config.db", "configbak.db", "state.db"}));
}

TEST_F(Clean, TheNextWriteStartsAfresh) {
  EXPECT_EQ(clean(false), 0);

  EXPECT_EQ(write_item("new", "value"), 0);

  EXPECT_EQ(read_item("new").value, "value");
  EXPECT_EQ(read_item("k").code, -1);
}

}  // namespace
}  // namespace vexa_test
