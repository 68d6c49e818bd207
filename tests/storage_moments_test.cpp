// SPDX-License-Identifier: MIT
// What other processes do at the worst moment of a call, and what the library asks of SQLite:
// seen and brought about from inside, by SQLite's own hooks.
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdarg>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <vexadm/log.h>

#include "support/sqlite_stat.h"
#include "support/storage_fixture.h"

namespace vexa_test {
namespace {

using Texts = std::vector<std::string>;

// What every connection of this process asks for, and a chance to act or to deny it.
class Asked {
 public:
  Asked() {
    active_ = this;
    sqlite3_auto_extension(as_entry(watch));
  }
  ~Asked() {
    sqlite3_cancel_auto_extension(as_entry(watch));
    active_ = nullptr;
  }
  Asked(const Asked&) = delete;
  Asked& operator=(const Asked&) = delete;

  Texts transactions;  // "PRAGMA synchronous=EXTRA", "BEGIN", "COMMIT"
  Texts begun;         // the files on which transactions were begun
  int selects = 0;
  bool denies_begin = false;
  std::string denies_reading;                       // a table
  int opens_as = SQLITE_OK;                         // the result of every opening
  std::function<void(const std::string&)> on_open;  // with the file's path
  std::function<void()> on_select;

 private:
  static void (*as_entry(int (*entry)(sqlite3*, char**, const void*)))() {
    return reinterpret_cast<void (*)()>(entry);
  }

  static int watch(sqlite3* db, char**, const void*) {
    if (active_ == nullptr) return SQLITE_OK;
    sqlite3_set_authorizer(db, ask, db);
    const char* path = sqlite3_db_filename(db, "main");
    if (active_->on_open && path != nullptr) active_->on_open(path);
    return active_->opens_as;
  }

  static int ask(void* db, int what, const char* first, const char* second, const char*, const char*) {
    if (active_ == nullptr) return SQLITE_OK;
    if (what == SQLITE_PRAGMA && second != nullptr) {
      active_->transactions.push_back("PRAGMA " + std::string(first) + "=" + second);
    }
    if (what == SQLITE_TRANSACTION) {
      const bool begins = std::string_view(first) == "BEGIN";
      if (active_->denies_begin && begins) return SQLITE_DENY;
      if (begins) active_->begun.emplace_back(sqlite3_db_filename(static_cast<sqlite3*>(db), "main"));
      active_->transactions.emplace_back(first);
    }
    if (what == SQLITE_READ && active_->denies_reading == first) return SQLITE_DENY;
    if (what == SQLITE_SELECT) {
      ++active_->selects;
      if (active_->on_select) active_->on_select();
    }
    return SQLITE_OK;
  }

  static inline Asked* active_ = nullptr;
};

// A system call that SQLite makes, answered by the test while this lives.
class SystemCall {
 public:
  SystemCall(const char* name, sqlite3_syscall_ptr own)
      : name_(name), before_(vfs()->xGetSystemCall(vfs(), name)) {
    vfs()->xSetSystemCall(vfs(), name, own);
  }
  ~SystemCall() { vfs()->xSetSystemCall(vfs(), name_, before_); }
  SystemCall(const SystemCall&) = delete;
  SystemCall& operator=(const SystemCall&) = delete;

 private:
  static sqlite3_vfs* vfs() { return sqlite3_vfs_find("unix"); }
  const char* name_;
  sqlite3_syscall_ptr before_;
};

template <typename Function>
sqlite3_syscall_ptr as_call(Function* function) {
  return reinterpret_cast<sqlite3_syscall_ptr>(reinterpret_cast<void (*)()>(function));
}

// Whether a look at a path says that another file is there now; counts the looks.
std::function<bool(const char*)> looks_replaced;

int stat_of_a_replaced_file(const char* path, void* status) {
  return vexa_test::stat_for_sqlite(path, status, looks_replaced(path));
}

// Another program that acts at a moment of this one's choice. Started before: a process forked in
// the middle of a call of SQLite could wait for locks of SQLite's that nobody will give back.
class OtherProcess {
 public:
  explicit OtherProcess(const std::function<void()>& body) {
    EXPECT_EQ(pipe(start_.data()), 0);
    child_ = fork();
    if (child_ != 0) return;
    char byte = 0;
    if (read(start_[0], &byte, 1) == 1) body();
    _exit(0);
  }
  ~OtherProcess() {
    if (child_ > 0) act();
    close(start_[0]);
    close(start_[1]);
  }
  OtherProcess(const OtherProcess&) = delete;
  OtherProcess& operator=(const OtherProcess&) = delete;

  void act() {
    EXPECT_EQ(write(start_[1], "s", 1), 1);
    EXPECT_GT(waitpid(std::exchange(child_, -1), nullptr, 0), 0);
  }

 private:
  std::array<int, 2> start_ = {-1, -1};
  pid_t child_ = -1;
};

class Moments : public StorageTest {
 protected:
  void SetUp() override {
    StorageTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    vexa_set_log_level(4);
  }
  static std::int32_t write_db(const std::string& value) {
    return dm_write_db(kPrimary.c_str(), "cfg", 7, "k", 6, value.data(), static_cast<int>(value.size()));
  }
  std::int32_t read_db() {
    std::uint32_t crc = 0;
    return dm_read_db(kPrimary.c_str(), "cfg", "k", buffer_.data(), &crc, 16);
  }
  std::string text(std::int32_t length) const {
    return {buffer_.begin(), buffer_.begin() + std::max(length, 0)};
  }
  std::array<std::uint8_t, 16> buffer_ = {};
};

// ---- What is asked of SQLite ----

const Texts kDurable = {"PRAGMA synchronous=EXTRA", "BEGIN", "COMMIT"};

TEST_F(Moments, AWriteOfAnItemIsOneTransactionThatSurvivesAPowerCut) {
  const Asked asked;
  EXPECT_EQ(write_db("value"), 0);
  EXPECT_EQ(asked.transactions, kDurable);
}

TEST_F(Moments, AWriteOfADefaultIsOneTransactionThatSurvivesAPowerCut) {
  const Asked asked;
  EXPECT_EQ(dm_write_def_db("cfg", "k", 5, "value", 5), 0);
  EXPECT_EQ(asked.transactions, kDurable);
}

TEST_F(Moments, AStepOfTheJournalIsOneTransactionThatSurvivesAPowerCut) {
  const Asked asked;
  EXPECT_EQ(dm_write_state_db("cfg", 7, "k", 6, 5, WS_READY), 0);
  EXPECT_EQ(asked.transactions, kDurable);
}

TEST_F(Moments, ACopyLocksItsSourceAndItsTargetByATransaction) {
  ASSERT_EQ(write_item("k", "old"), 0);
  const Asked asked;
  EXPECT_EQ(write_item("k", "new"), 0);
  EXPECT_EQ(asked.begun, (Texts{kJournal, kPrimary, kPrimary, kBackup, kJournal, kJournal}));
}

// It would open a rollback journal under a name that may by then be that of the new file's.
TEST_F(Moments, ACopyBeginsNoTransactionOnAnEmptyTarget) {
  ASSERT_EQ(write_item("k", "old"), 0);
  write_file(kBackup, "");
  const Asked asked;
  EXPECT_EQ(write_item("k", "new"), 0);
  EXPECT_EQ(asked.begun, (Texts{kJournal, kPrimary, kPrimary, kJournal, kJournal}));
}

TEST_F(Moments, AReadPreparesOneStatement) {
  ASSERT_EQ(write_db("value"), 0);
  const Asked asked;
  EXPECT_EQ(read_db(), 5);
  EXPECT_EQ(asked.selects, 1);
}

// Once in the primary, and once more in the backup than a good checksum needs.
TEST_F(Moments, AReadLooksTwiceAtABackupWhoseChecksumFails) {
  put_item(kPrimary, {"cfg", 7, "k", 6, "value"});
  put_item(kBackup, {"cfg", 7, "k", 6, "value"}, 5);
  std::array<std::uint8_t, 8> buffer = {};
  const Asked asked;

  EXPECT_EQ(dm_pal_read("cfg", "k", buffer.data(), 8), -102);

  EXPECT_EQ(asked.selects, 3);
}

// Without its lock the primary is not copied: a later write of another process could be overtaken.
TEST_F(Moments, WithoutTransactionsAWriteReachesThePrimaryAndSaysThatTheBackupWaits) {
  ASSERT_EQ(write_item("k", "old"), 0);
  {
    const LogCapture log;
    Asked asked;
    asked.denies_begin = true;
    EXPECT_EQ(write_item("k", "new"), 0);
    EXPECT_EQ(log_count(log, "3 dm_pal_write|/data/configbak.db keeps the previous value of cfg k\n"), 1u);
  }
  EXPECT_EQ(stored(kPrimary, "cfg", "k"), "new");
  EXPECT_EQ(stored(kBackup, "cfg", "k"), "old");
}

// Nothing waits for the backup: the primary has the previous value as well.
TEST_F(Moments, ARowThatCannotBeLookedForIsNotWritten) {
  ASSERT_EQ(write_item("k", "old"), 0);
  {
    const LogCapture log;
    Asked asked;
    asked.denies_begin = true;
    asked.denies_reading = "cfg";
    EXPECT_EQ(write_item("k", "new"), 0);
    EXPECT_EQ(
        log_count(log,
                  "3 dm_record_exist|[<any>] get table existence error: access to cfg.key is prohibited\n"),
        1u);
    EXPECT_EQ(log_count(log, "3 dm_pal_write|/data/configbak.db keeps the previous value of cfg k\n"), 0u);
  }
  EXPECT_EQ(stored(kPrimary, "cfg", "k"), "old");
  EXPECT_EQ(stored(kBackup, "cfg", "k"), "old");
}

TEST_F(Moments, WithoutMemoryForSqliteNothingIsOpenedOrWritten) {
  ASSERT_EQ(write_item("k", "old"), 0);
  LogCapture log;
  sqlite3_hard_heap_limit64(1);

  EXPECT_EQ(write_db("new"), -101);
  EXPECT_EQ(read_db(), -101);
  EXPECT_EQ(dm_write_def_db("cfg", "k", 5, "new", 3), -101);
  EXPECT_EQ(dm_write_state_db("cfg", 7, "k", 6, 3, WS_READY), -1);

  sqlite3_hard_heap_limit64(0);
  EXPECT_EQ(log.count("sqlite3_open failed: out of memory\n"), 4u);
  EXPECT_EQ(read_item("k").value, "old");
}

TEST_F(Moments, AFileThatIsFoundCorruptWhenItIsOpenedIsCorrupt) {
  ASSERT_EQ(write_db("value"), 0);
  Asked asked;
  asked.opens_as = SQLITE_CORRUPT;
  const LogCapture log;

  EXPECT_EQ(check_database_health(kPrimary.c_str()), 1u);

  EXPECT_TRUE(log_is(log, {"3 check_database_health|Database is corrupted upon opening: <any> (Code: 11)\n",
                           "3 check_database_health|is_corrupted=1\n"}));
}

TEST_F(Moments, AStartWithoutAJournalKeepsNoMemory) {
  dm_sqlite_check_database();
  const sqlite3_int64 before = sqlite3_memory_used();
  for (int i = 0; i < 10; ++i) dm_sqlite_check_database();
  EXPECT_EQ(sqlite3_memory_used(), before);
}

// ---- Files that are replaced ----

TEST_F(Moments, AFileThatIsReplacedForEverIsUsedAsItIs) {
  ASSERT_EQ(write_db("value"), 0);
  int looks = 0;
  looks_replaced = [&looks](const char* path) { return path == kPrimary && ++looks < 100000; };
  const SystemCall call("stat", as_call(stat_of_a_replaced_file));

  EXPECT_EQ(read_db(), 5);

  EXPECT_LT(looks, 100000);
}

TEST_F(Moments, AFileThatGoesAwayDuringItsHealthCheckIsNotChecked) {
  ASSERT_EQ(write_db("value"), 0);
  int looks = 0;
  looks_replaced = [&looks](const char* path) {
    if (path == kPrimary && ++looks == 2) unlink(path);  // the first is that of opening
    return false;
  };
  LogCapture log;
  const SystemCall call("stat", as_call(stat_of_a_replaced_file));

  EXPECT_EQ(check_database_health(kPrimary.c_str()), static_cast<std::uint32_t>(-2));

  EXPECT_TRUE(
      log_is(log, {"3 check_database_health|/data/config.db Quick check error: Unknown error (Code: 14)\n",
                   "3 check_database_health|is_corrupted=0\n"}));
}

// The old file must not be touched any more: its rollback journal has the name of the new one's.
TEST_F(Moments, ATransactionIsNotBegunOnAFileThatWasReplacedMeanwhile) {
  ASSERT_EQ(write_db("old"), 0);
  int looks = 0;
  looks_replaced = [&looks](const char* path) {
    return path == kPrimary && ++looks == 3;
  };  // after opening and the first pin
  const SystemCall call("stat", as_call(stat_of_a_replaced_file));
  const Asked asked;

  EXPECT_EQ(write_db("new"), 0);

  EXPECT_EQ(asked.transactions,
            (Texts{"PRAGMA synchronous=EXTRA", "PRAGMA synchronous=EXTRA", "BEGIN", "COMMIT"}));
}

TEST_F(Moments, APrimaryThatAnotherProcessHasRepairedIsLeftToIt) {
  put_item(kPrimary, {"cfg", 7, "k", 6, "x"});
  damage_schema(kPrimary);
  put_item(kBackup, {"cfg", 7, "k", 6, "backup"});
  put_item("/data/repaired", {"cfg", 7, "k", 6, "repaired"});
  bool done = false;
  Asked asked;
  asked.on_open = [&done](const std::string& path) {
    if (path == kBackup && !std::exchange(done, true)) rename("/data/repaired", kPrimary.c_str());
  };

  EXPECT_EQ(text(read_db()), "repaired");

  EXPECT_EQ(stored(kPrimary, "cfg", "k"), "repaired");
}

// ---- Other writers ----

// Run before the next lock that is taken to read.
std::function<void()> before_read_lock;

int fcntl_after_another_process(int fd, int command, ...) {
  std::va_list values;
  va_start(values, command);
  void* const argument = va_arg(values, void*);
  va_end(values);
  const bool reads = command == F_SETLK && static_cast<struct flock*>(argument)->l_type == F_RDLCK;
  if (reads && before_read_lock) std::exchange(before_read_lock, nullptr)();
  return fcntl(fd, command, argument);
}

TEST_F(Moments, ATableThatAnotherProcessAddsBetweenPrepareAndStepDoesNotFailARead) {
  ASSERT_EQ(write_db("value"), 0);
  OtherProcess other([] { Sqlite(kPrimary).exec("create table MORE (a)"); });
  Asked asked;
  asked.on_select = [&] {
    if (asked.selects == 1) before_read_lock = [&other] { other.act(); };
  };
  const SystemCall call("fcntl", as_call(fcntl_after_another_process));

  EXPECT_EQ(text(read_db()), "value");

  EXPECT_EQ(asked.selects, 2) << "prepared again for the new schema";
  EXPECT_EQ(query(kPrimary, "select count(*) from sqlite_master where name='MORE'"), "1");
}

// The start-up check has read the primary when another process writes it, and before it holds the lock.
TEST_F(Moments, AStartPutsTheLatestValueIntoTheBackupEvenOneByte) {
  put_item(kPrimary, {"cfg", 7, "k", 6, "A"});
  ASSERT_EQ(dm_write_state_db("cfg", 7, "k", 6, 1, WS_WRITE_DONE), 0);
  OtherProcess other([] { put_item(kPrimary, {"cfg", 7, "k", 6, "B"}); });
  int opened = 0;
  Asked asked;
  asked.on_open = [&](const std::string& path) {
    if (path == kPrimary && ++opened == 2) other.act();
  };

  EXPECT_EQ(dm_sqlite_check_database(), 0u);

  EXPECT_EQ(stored(kBackup, "cfg", "k"), "B");
}

// The other one's write brings the later value; ours alone would put the earlier one behind it.
TEST_F(Moments, ARecordThatAnotherProcessHasWrittenSinceDoesNotGoIntoTheBackup) {
  ASSERT_EQ(write_item("k", "old"), 0);
  for (const std::string& name : {std::string(), "." + std::to_string(getpid())}) {
    make_dirs("/data/.vexadm-copy-configbak" + name);  // where a copy would be made
  }
  OtherProcess other([] { put_item(kPrimary, {"cfg", 7, "k", 6, "later"}); });
  int opened = 0;
  const LogCapture log;
  Asked asked;
  asked.on_open = [&](const std::string& path) {
    if (path == kPrimary && ++opened == 2) other.act();
  };

  EXPECT_EQ(write_item("k", "new"), 0);

  EXPECT_EQ(stored(kPrimary, "cfg", "k"), "later");
  EXPECT_EQ(stored(kBackup, "cfg", "k"), "old");
  EXPECT_EQ(log_count(log, "3 dm_pal_write|/data/configbak.db keeps the previous value of cfg k\n"), 0u);
}

// ---- A read-only partition ----

TEST_F(Moments, AFactoryCopyOnAReadOnlyPartitionRepairsThePrimary) {
  put_item(kPrimary, {"cfg", 7, "k", 6, "x"});
  damage_schema(kPrimary);
  make_dirs("/vexanvbak/data");
  ASSERT_EQ(mount("factory", "/vexanvbak/data", "tmpfs", 0, nullptr), 0);
  put_item(kFactory, {"cfg", 7, "k", 6, "factory"});
  ASSERT_EQ(mount("factory", "/vexanvbak/data", nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);

  EXPECT_EQ(text(read_db()), "factory");

  EXPECT_TRUE(read_file(kPrimary) == read_file(kFactory));
}

TEST_F(Moments, AnExportOfNoDatabaseKeepsNoMemory) {
  write_file("/data/notes.txt", std::string(5000, 'x'));
  dm_read_all_tabs_from_db("/data/notes.txt");
  const sqlite3_int64 before = sqlite3_memory_used();
  for (int i = 0; i < 10; ++i) dm_read_all_tabs_from_db("/data/notes.txt");
  EXPECT_EQ(sqlite3_memory_used(), before);
}

}  // namespace
}  // namespace vexa_test
