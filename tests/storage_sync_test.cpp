// SPDX-License-Identifier: MIT
// What a copy puts on storage, and in which order; and system calls that answer oddly.
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <string>
#include <vector>

#include <vexadm/log.h>

#include "support/emulated.h"
#include "support/storage_fixture.h"

namespace {

// While one lives, it writes down the calls, and may answer in their place.
class Calls {
 public:
  Calls() { active_ = this; }
  ~Calls() { active_ = nullptr; }
  Calls(const Calls&) = delete;
  Calls& operator=(const Calls&) = delete;

  std::vector<std::string> seen;
  int interrupted_syncs = 0;    // so many of a copy fail with EINTR
  bool leaves_errno = false;    // a sync that succeeds leaves EINTR behind
  bool writes_nothing = false;  // write() answers 0
  static Calls* active() { return active_; }

 private:
  static inline Calls* active_ = nullptr;
};

std::string path_of(int fd) {
  std::array<char, PATH_MAX> path = {};
  const std::string link = "/proc/self/fd/" + std::to_string(fd);
  return readlink(link.c_str(), path.data(), path.size() - 1) < 0 ? "?" : path.data();
}

int sync_call(int fd, long number) {
  Calls* const calls = Calls::active();
  if (calls == nullptr) return static_cast<int>(syscall(number, fd));
  const std::string path = path_of(fd);
  calls->seen.push_back("sync " + path);
  if (calls->interrupted_syncs > 0 && path.find("vexadm-copy") != std::string::npos) {
    --calls->interrupted_syncs;
    errno = EINTR;
    return -1;
  }
  const auto result = static_cast<int>(syscall(number, fd));
  if (calls->leaves_errno) errno = EINTR;
  return result;
}

}  // namespace

// Part of the program: what is defined here comes before the C library.
extern "C" __attribute__((visibility("default"))) int fsync(int fd) { return sync_call(fd, SYS_fsync); }

extern "C" __attribute__((visibility("default"))) int rename(const char* from, const char* to) noexcept {
  if (Calls* const calls = Calls::active()) calls->seen.push_back("rename to " + std::string(to));
  return static_cast<int>(syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0));
}

extern "C" __attribute__((visibility("default"))) ssize_t write(int fd, const void* bytes, size_t count) {
  const Calls* const calls = Calls::active();
  if (calls != nullptr && calls->writes_nothing) return 0;
  return syscall(SYS_write, fd, bytes, count);
}

namespace vexa_test {
namespace {

const std::string kCopyName = "/data/.vexadm-copy-configbak";

// The library's own syncs: SQLite's stand before the first of them and are its own business.
std::vector<std::string> from_the_copy_on(const Calls& calls) {
  const auto begin = std::find(calls.seen.begin(), calls.seen.end(), "sync " + kCopyName);
  const auto renamed = std::find(begin, calls.seen.end(), "rename to " + kBackup);
  const auto end = calls.seen.end() - renamed < 2 ? calls.seen.end() : renamed + 2;
  return {begin, end};
}

class Sync : public StorageTest {
 protected:
  void SetUp() override {
    StorageTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    vexa_set_log_level(4);
    ASSERT_EQ(write_item("k", "old"), 0);
  }
};

TEST_F(Sync, OfACopyIsTheFileThenTheRenameThenTheDirectory) {
  Calls calls;

  EXPECT_EQ(write_item("k", "new"), 0);

  EXPECT_EQ(from_the_copy_on(calls),
            (std::vector<std::string>{"sync " + kCopyName, "rename to " + kBackup, "sync /data"}));
}

// Else a power cut could bring the journal back, beside a file that it does not belong to.
TEST_F(Sync, OfAnOldJournalsRemovalComesBeforeTheRename) {
  const ChildResult killed = run_in_child([] {
    Sqlite db(kBackup);
    db.exec("pragma cache_size=1; pragma cache_spill=1; begin; create table JUNK (a);");
    for (int i = 0; i < 200; ++i) db.exec("insert into JUNK values (randomblob(2000))");
    raise(SIGKILL);
  });
  ASSERT_EQ(killed.signal, SIGKILL);
  ASSERT_TRUE(exists(kBackup + "-journal"));
  Calls calls;

  EXPECT_EQ(write_item("k", "new"), 0);

  EXPECT_EQ(from_the_copy_on(calls), (std::vector<std::string>{"sync " + kCopyName, "sync /data",
                                                               "rename to " + kBackup, "sync /data"}));
}

TEST_F(Sync, OfAnOldSharedMemorysRemovalComesBeforeTheRenameToo) {
  write_file(kBackup + "-shm", "left by another version");
  Calls calls;

  EXPECT_EQ(write_item("k", "new"), 0);

  EXPECT_FALSE(exists(kBackup + "-shm"));
  EXPECT_EQ(from_the_copy_on(calls), (std::vector<std::string>{"sync " + kCopyName, "sync /data",
                                                               "rename to " + kBackup, "sync /data"}));
}

TEST_F(Sync, ThatIsInterruptedIsRepeated) {
  Calls calls;
  calls.interrupted_syncs = 2;

  EXPECT_EQ(write_item("k", "new"), 0);

  const std::string sync = "sync " + kCopyName;
  EXPECT_EQ(from_the_copy_on(calls),
            (std::vector<std::string>{sync, sync, sync, "rename to " + kBackup, "sync /data"}));
}

TEST_F(Sync, ThatSucceedsIsNotRepeatedWhateverErrnoSays) {
  Calls calls;
  calls.leaves_errno = true;

  EXPECT_EQ(write_item("k", "new"), 0);

  EXPECT_EQ(from_the_copy_on(calls),
            (std::vector<std::string>{"sync " + kCopyName, "rename to " + kBackup, "sync /data"}));
}

TEST_F(Sync, OfAFileInTheRootDirectorySyncsTheRoot) {
  VEXA_NOT_EMULATED("the emulator opens its folder of ARM libraries in place of /");
  ASSERT_EQ(sqlite_reg_store_area("/", "/"), 0u);
  Calls calls;

  EXPECT_EQ(write_item("k", "new"), 0);

  EXPECT_NE(std::find(calls.seen.begin(), calls.seen.end(), "sync /"), calls.seen.end());
  EXPECT_EQ(read_file("/configbak.db"), read_file("/config.db"));
}

TEST_F(Sync, OfACopyThatCannotBeWrittenDoesNotHangAndTheRecordStillReachesTheBackup) {
  Calls calls;
  calls.writes_nothing = true;

  EXPECT_EQ(write_item("k", "new"), 0);

  calls.writes_nothing = false;
  EXPECT_EQ(read_item("k").value, "new");
  EXPECT_FALSE(exists(kCopyName));
}

// A power cut must not bring back what a clean has reported as gone.
TEST_F(Sync, OfAClean) {
  make_dirs("/data/a");
  make_dirs("/data/b");
  ASSERT_EQ(sqlite_reg_store_area("/data/a/", "/data/b/"), 0u);
  ASSERT_EQ(write_item("k", "old"), 0);
  Calls calls;

  EXPECT_EQ(dm_sqlite_clean(nullptr), 0u);

  EXPECT_EQ(calls.seen, (std::vector<std::string>{"sync /data/a", "sync /data/b", "sync /data/a"}));
}

}  // namespace
}  // namespace vexa_test
