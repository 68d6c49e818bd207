// SPDX-License-Identifier: MIT
// Takes half a minute. Every operation of the backend with each of its file operations failing:
// a documented code, nothing left open, and the last good value where it was.
//
// VEXA_FAULT_CASES=all tries every place with every error, once and from there on (minutes); a
// number tries about so many cases for each operation.
#include <sys/mount.h>

#include <cerrno>

#include "faults/fault_case.h"

namespace vexa_test {
namespace {

constexpr std::array<int, 6> kErrors = {EIO, ENOSPC, EMFILE, EINTR, EACCES, kShortCount};

// SQLite tries again for as long as it is interrupted: a storm of signals ends at some time.
constexpr std::uint64_t kStorm = 100;

class FailingCallsOf : public StorageTest, public ::testing::WithParamInterface<Operation> {};

TEST_P(FailingCallsOf, AnywhereAreAnsweredWithACodeAndLoseNothing) {
  if (IsSkipped()) return;
#if defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "one thread: nothing for this sanitizer, and thousands of its processes";
#endif
  const Operation& operation = GetParam();
  FaultRun<FailingCalls> run(operation);
  const std::uint64_t places = run.places();
  ASSERT_GT(places, 0u);
  const std::uint64_t wanted = cases_wanted();
  const bool all = wanted == UINT64_MAX;
  const std::uint64_t step = all ? 1 : std::max<std::uint64_t>(1, 2 * places / wanted);

  std::uint64_t turn = 0;
  for (std::uint64_t place = 1; place <= places && !HasFailure(); ++place) {
    if (!run.is_chosen(place, step)) continue;
    for (const std::uint64_t count : {std::uint64_t{1}, kFromThereOn}) {
      for (std::size_t i = 0; i < (all ? kErrors.size() : 1); ++i) {
        const int error = kErrors[turn++ % kErrors.size()];
        run.attempt({place, error == EINTR && count != 1 ? kStorm : count, error});
      }
      if (!all) ++turn;
    }
    if (!all) turn += 3;
  }
  print_tally(operation, places, run.tally());
}

// One file that cannot be used any more, from any moment on, while all others can.
TEST_P(FailingCallsOf, OnOneFileAreAnsweredWithACodeAndLoseNothing) {
  if (IsSkipped()) return;
#if defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "one thread: nothing for this sanitizer, and thousands of its processes";
#endif
  const Operation& operation = GetParam();
  FaultRun<FailingCalls> run(operation);
  const std::uint64_t wanted = cases_wanted();
  const bool all = wanted == UINT64_MAX;
  std::uint64_t places = 0;
  std::uint64_t turn = 0;
  for (const char* file : {"config.db", "configbak", "state.db", "DefItems.db", "-journal", "vexadm-copy"}) {
    const std::uint64_t of_file = run.places(file);
    places += of_file;
    const std::uint64_t step = all ? 1 : std::max<std::uint64_t>(1, 8 * of_file / wanted);
    for (std::uint64_t place = 1; place <= of_file && !HasFailure(); place += step) {
      for (std::size_t i = 0; i < (all ? kErrors.size() : 1); ++i) {
        const int error = kErrors[turn++ % kErrors.size()];
        run.attempt({place, error == EINTR ? kStorm : kFromThereOn, error, file});
      }
    }
  }
  print_tally(operation, places, run.tally());
}

INSTANTIATE_TEST_SUITE_P(Storage, FailingCallsOf, ::testing::ValuesIn(all_operations()), operation_name);

// ---- A storage that is full, or may only be read ----

class SmallStorage : public StorageTest {
 protected:
  void SetUp() override {
    StorageTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    if (mount("small", "/data", "tmpfs", 0, "size=256k") != 0) GTEST_SKIP() << "no tmpfs on /data";
    mounted_ = true;
    prepare_store();
  }
  void TearDown() override {
    if (!mounted_) return;
    EXPECT_EQ(umount("/data"), 0) << "a file is still open";
  }

  // Leaves so many bytes.
  static void fill_up(std::uintmax_t left) {
    const std::uintmax_t available = std::filesystem::space("/data").available;
    if (available > left) write_file("/data/filler", std::string(available - left, 'f'));
  }

  static void expect_whole_again(const vexa_dm_item_desc& desc, unsigned allowed) {
    expect_in_child([&] {
      vexa_dm_backend_ops slots = {};
      sqlite_reg(&slots);
      EXPECT_NE(look(desc).found & allowed, 0u) << look(desc).found;
      EXPECT_TRUE(other_is_unharmed());
      EXPECT_EQ(store(desc, kNextValue), 0);
      EXPECT_EQ(look(desc).found, unsigned{kNext});
      EXPECT_TRUE(other_is_unharmed());
      EXPECT_EQ(check_database_health(DB_CONFIG), 0u);
      EXPECT_EQ(check_database_health(DB_CONFIGBAK), 0u);
      EXPECT_EQ(read_file(kBackup), read_file(kPrimary));
    });
  }

 private:
  bool mounted_ = false;
};

// From no page free to enough for the whole write.
TEST_F(SmallStorage, AFullStorageKeepsTheLastValueWhateverIsLeft) {
  Device before;
  before.keep();
  int refused = 0;
  int cases = 0;
  for (const vexa_dm_item_desc* desc : {&g_wanted, &g_fresh}) {
    const unsigned old = desc == &g_wanted ? unsigned{kOld} : unsigned{kMissing};
    for (std::uintmax_t left = 0; left <= 96 * 1024; left += 4096) {
      SCOPED_TRACE(std::to_string(left) + " bytes left, table " + desc->table);
      before.put_back();
      fill_up(left);
      std::int32_t result = 1;
      LogCapture log;
      result = store(*desc, kNewValue);
      const unsigned found = look(*desc).found;
      EXPECT_TRUE(result == 0 || result == -1) << result;
      EXPECT_NE(found & (old | kNew), 0u) << found;
      EXPECT_TRUE(other_is_unharmed());
      if (found != kNew) {
        ++refused;
        EXPECT_TRUE(result == -1 || log_count(log, "? dm_update_record|<any>failed<any>") > 0 ||
                    log_count(log, "? dm_update_record|<any>error<any>") > 0)
            << "acknowledged, not stored, and nothing said";
      }
      EXPECT_TRUE(left < 96 * 1024 || found == kNew) << "enough, but not used";
      unlink("/data/filler");
      expect_whole_again(*desc, old | kNew);
      ++cases;
    }
  }
  EXPECT_GT(refused, 0);
  std::printf("%d fillings tried, %d left the value as it was\n", cases, refused);
}

TEST_F(SmallStorage, AFullStorageIsRepairedWithWhatIsThere) {
  Device before;
  damage_schema(kPrimary);
  before.keep();
  for (std::uintmax_t left = 0; left <= 64 * 1024; left += 4096) {
    SCOPED_TRACE(std::to_string(left) + " bytes left");
    before.put_back();
    fill_up(left);
    EXPECT_EQ(look(g_wanted).found, unsigned{kOld});
    unlink("/data/filler");
    expect_whole_again(g_wanted, kOld);
  }
}

TEST_F(SmallStorage, AReadOnlyStorageIsReadAndRefusesWrites) {
  ASSERT_EQ(mount(nullptr, "/data", nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
  expect_in_child([] {
    LogCapture log;
    vexa_dm_backend_ops slots = {};
    sqlite_reg(&slots);
    EXPECT_EQ(look(g_wanted).found, unsigned{kOld});
    EXPECT_TRUE(other_is_unharmed());
    // The table is there, so the row alone fails: 0, and the log says why.
    EXPECT_EQ(store(g_wanted, kNewValue), 0);
    EXPECT_EQ(log_count(log, "3 dm_update_record|LINE step failed rc: 8\n"), 1u);
    EXPECT_EQ(store(g_fresh, kNewValue), -1);
    EXPECT_EQ(log_count(log, "3 dm_pal_write|dm_update_db: \n"), 1u);
    EXPECT_EQ(look(g_wanted).found, unsigned{kOld});
    EXPECT_EQ(dm_write_def_db("fresh", "k", 6, "v", 1), -1);
    EXPECT_EQ(check_database_health(DB_CONFIG), 0u);
    EXPECT_EQ(dm_sqlite_clean(nullptr), static_cast<std::uint32_t>(-1));
    EXPECT_EQ(log_count(log, "3 dm_sqlite_clean|unlink error: Read-only file system\n"), 1u);
    EXPECT_EQ(dm_read_all_tabs_from_db(DB_CONFIG), 4u);
  });
  ASSERT_EQ(mount(nullptr, "/data", nullptr, MS_REMOUNT, nullptr), 0);
  expect_whole_again(g_wanted, kOld);
}

}  // namespace
}  // namespace vexa_test
