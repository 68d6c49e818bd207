// SPDX-License-Identifier: MIT
// How long, and in which steps, a call waits for locks of other processes: on a clock that only
// waiting moves, so that seconds cost nothing and every pause is exact.
#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <ctime>
#include <functional>
#include <numeric>
#include <string>
#include <vector>

#include <vexadm/log.h>

#include "support/libc_calls.h"
#include "support/storage_fixture.h"

namespace {

// While one lives, pauses return at once and the monotonic clock goes on by them.
class WaitingClock {
 public:
  WaitingClock() { active_ = this; }
  ~WaitingClock() { active_ = nullptr; }
  WaitingClock(const WaitingClock&) = delete;
  WaitingClock& operator=(const WaitingClock&) = delete;

  std::vector<std::int64_t> pauses_us;
  std::function<void(std::size_t)> on_pause;  // with the number of pauses so far

  std::int64_t total_us() const {
    return std::accumulate(pauses_us.begin(), pauses_us.end(), std::int64_t{0});
  }

  static WaitingClock* active() { return active_; }
  void pause(const timespec& time) {
    const std::int64_t us = std::int64_t{time.tv_sec} * 1000000 + time.tv_nsec / 1000;
    pauses_us.push_back(us);
    now_us_ += us;
    if (on_pause) on_pause(pauses_us.size());
  }
  void tell(timespec& now) const {
    now = {static_cast<time_t>(now_us_ / 1000000), static_cast<long>(now_us_ % 1000000 * 1000)};
  }

 private:
  static inline WaitingClock* active_ = nullptr;
  static inline std::int64_t now_us_ = 1000000000;  // never goes back
};

}  // namespace

// Part of the program: what is defined here comes before the C library.
extern "C" __attribute__((visibility("default"))) int nanosleep(const timespec* request, timespec* rest) {
  if (WaitingClock* const clock = WaitingClock::active()) {
    clock->pause(*request);
    return 0;
  }
  return vexa_test::kernel_sleep(request, rest);
}

extern "C" __attribute__((visibility("default"))) int clock_gettime(clockid_t id, timespec* now) noexcept {
  const WaitingClock* const clock = WaitingClock::active();
  if (clock == nullptr || id != CLOCK_MONOTONIC) return vexa_test::kernel_clock(id, now);
  clock->tell(*now);
  return 0;
}

namespace vexa_test {
namespace {

using Pauses = std::vector<std::int64_t>;

// A reader that neither looks at the file nor at its rollback journal: SQLite's shared lock alone.
class SharedLock {
 public:
  explicit SharedLock(const std::string& path) {
    std::array<int, 2> ready;
    EXPECT_EQ(pipe(ready.data()), 0);
    child_ = fork();
    if (child_ == 0) {
      const int fd = open(path.c_str(), O_RDWR);
      struct flock lock = {};
      lock.l_type = F_RDLCK;
      lock.l_start = 0x40000002;
      lock.l_len = 510;
      if (fcntl(fd, F_SETLK, &lock) == 0 && write(ready[1], "L", 1) == 1) pause();
      _exit(1);
    }
    close(ready[1]);
    char locked = 0;
    EXPECT_EQ(read(ready[0], &locked, 1), 1);
    close(ready[0]);
  }
  ~SharedLock() { release(); }
  SharedLock(const SharedLock&) = delete;
  SharedLock& operator=(const SharedLock&) = delete;

  void release() {
    if (child_ <= 0) return;
    kill(child_, SIGKILL);
    waitpid(child_, nullptr, 0);
    child_ = -1;
  }

 private:
  pid_t child_ = -1;
};

// A process dies while it writes: pages and rollback journal are on storage.
void leave_a_hot_journal(const std::string& path) {
  const ChildResult result = run_in_child([&path] {
    Sqlite db(path);
    db.exec("pragma cache_size=1; pragma cache_spill=1; begin; create table JUNK (a);");
    for (int i = 0; i < 200; ++i) db.exec("insert into JUNK values (randomblob(2000))");
    raise(SIGKILL);
  });
  ASSERT_EQ(result.signal, SIGKILL);
  ASSERT_EQ(access((path + "-journal").c_str(), F_OK), 0);
}

Pauses first(const Pauses& pauses, std::size_t count) {
  return {pauses.begin(), pauses.begin() + static_cast<std::ptrdiff_t>(std::min(count, pauses.size()))};
}

class Waiting : public StorageTest {
 protected:
  void SetUp() override {
    StorageTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    vexa_set_log_level(4);
    ASSERT_EQ(write_item("k", "old"), 0);
  }
};

TEST_F(Waiting, BeginsShortAndEndsAfterThreeSeconds) {
  const LockHolder other(kJournal, "begin exclusive");
  const WaitingClock clock;

  EXPECT_EQ(dm_write_state_db("cfg", 7, "k", 6, 3, WS_READY), -1);

  EXPECT_EQ(first(clock.pauses_us, 8), (Pauses{500, 1000, 2000, 4000, 8000, 16000, 20000, 20000}));
  EXPECT_EQ(clock.total_us(), 3000000);
}

TEST_F(Waiting, ForTheJournalTakesAQuarterOfTheTimeEachOfThreeTimes) {
  const LockHolder other(kJournal, "begin exclusive");
  WaitingClock clock;

  EXPECT_EQ(write_item("k", "new"), 0);

  EXPECT_EQ(clock.total_us(), 2250000);
  EXPECT_EQ(read_item("k").value, "new");
}

TEST_F(Waiting, ForThePrimaryTakesThreeSecondsForTheWholeWrite) {
  const LockHolder other(kPrimary, "begin exclusive");
  const WaitingClock clock;

  EXPECT_EQ(write_item("k", "new"), -1);

  EXPECT_EQ(clock.total_us(), 3000000);
}

TEST_F(Waiting, BeginsShortAgainInTheNextCall) {
  const LockHolder other(kPrimary, "begin exclusive");
  for (int call = 0; call < 2; ++call) {
    const WaitingClock clock;
    EXPECT_EQ(write_item("k", "new"), -1);
    EXPECT_EQ(clock.total_us(), 3000000);
  }
}

TEST_F(Waiting, OfAReadBeforeAJournalThatAReaderKeepsFromBeingRolledBack) {
  leave_a_hot_journal(kBackup);
  SharedLock reader(kBackup);
  WaitingClock clock;
  clock.on_pause = [&reader](std::size_t pauses) {
    if (pauses == 4) reader.release();
  };
  std::array<std::uint8_t, 8> buffer = {};
  std::uint32_t crc = 0;

  EXPECT_EQ(dm_read_db(kBackup.c_str(), "cfg", "k", buffer.data(), &crc, 8), 3);

  EXPECT_EQ(clock.pauses_us, (Pauses{500, 1000, 2000, 4000}));
}

// A reader that stays is a person's tool: it keeps the old file, and the copy goes on.
TEST_F(Waiting, ForReadersOfTheBackupEndsAfterThirtyPauses) {
  const SharedLock reader(kBackup);
  const WaitingClock clock;

  EXPECT_EQ(write_item("k", "new"), 0);

  EXPECT_EQ(clock.pauses_us.size(), 30u);
  EXPECT_EQ(read_file(kBackup), read_file(kPrimary));
}

TEST_F(Waiting, InVainForABackupThatCannotBeRolledBackLeavesIt) {
  leave_a_hot_journal(kBackup);
  const SharedLock reader(kBackup);
  const std::string before = read_file(kBackup);
  const WaitingClock clock;

  EXPECT_EQ(write_item("k", "new"), 0);

  EXPECT_EQ(clock.total_us(), 3000000);
  EXPECT_EQ(read_file(kBackup), before);
  EXPECT_TRUE(exists(kBackup + "-journal"));
}

TEST_F(Waiting, ForJournalAndPrimaryTogetherTakesNoLonger) {
  const LockHolder journal(kJournal, "begin exclusive");
  const LockHolder primary(kPrimary, "begin exclusive");
  const WaitingClock clock;

  EXPECT_EQ(write_item("k", "new"), -1);

  EXPECT_EQ(clock.total_us(), 3000000);
}

TEST_F(Waiting, OfAReadForBothFilesTakesThreeSecondsTogether) {
  const LockHolder primary(kPrimary, "begin exclusive");
  const LockHolder backup(kBackup, "begin exclusive");
  const WaitingClock clock;

  EXPECT_LT(read_item("k").code, 0);

  EXPECT_EQ(clock.total_us(), 3000000);
}

}  // namespace
}  // namespace vexa_test
