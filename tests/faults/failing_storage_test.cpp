// SPDX-License-Identifier: MIT
// A storage that is full at every level, may only be read, or is not there: the documented code and
// line, and the last good value where it was. Memory stands for the flash on any machine, and a
// real file system with blocks of its own wherever loop devices may be used.
#include "faults/failing_storage.h"

#include "faults/fault_case.h"

namespace vexa_test {
namespace {

const char* g_place = "/data";  // where the storage under test is mounted

// Leaves plan.from - 1 bytes while it lives.
class FullStorage {
 public:
  explicit FullStorage(const FaultPlan& plan) : filler_(std::string(g_place) + "/filler") {
    g_full = plan.from > 0;
    if (!g_full) return;
    const std::uintmax_t available = std::filesystem::space(g_place).available;
    const std::uintmax_t left = plan.from - 1;
    const int fd = open(filler_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    if (available > left && fallocate(fd, 0, 0, static_cast<off_t>(available - left)) != 0) {
      // Tables of the file system itself take their share.
      fallocate(fd, 0, 0, static_cast<off_t>(available - left - 4096));
    }
    close(fd);
  }
  ~FullStorage() {
    if (g_full) unlink(filler_.c_str());
  }
  FullStorage(const FullStorage&) = delete;
  FullStorage& operator=(const FullStorage&) = delete;

  static std::uint64_t seen() { return 0; }
  static std::uint64_t failed() { return g_full ? 1 : 0; }
  static bool is_own(std::uint64_t) { return false; }
  static const char* first_failed() { return "full storage"; }

 private:
  static inline bool g_full = false;
  std::string filler_;
};

class ReadOnlyStorage {
 public:
  explicit ReadOnlyStorage(const FaultPlan& plan) {
    g_on = plan.from > 0;
    if (g_on && mount(nullptr, g_place, nullptr, MS_REMOUNT | MS_RDONLY, nullptr) != 0) std::abort();
  }
  ~ReadOnlyStorage() {
    if (g_on) mount(nullptr, g_place, nullptr, MS_REMOUNT, nullptr);
  }
  ReadOnlyStorage(const ReadOnlyStorage&) = delete;
  ReadOnlyStorage& operator=(const ReadOnlyStorage&) = delete;

  static std::uint64_t seen() { return 0; }
  static std::uint64_t failed() { return g_on ? 1 : 0; }
  static bool is_own(std::uint64_t) { return false; }
  static const char* first_failed() { return "read-only storage"; }

 private:
  static inline bool g_on = false;
};

// The place under another name, so that its path leads nowhere.
class MissingStorage {
 public:
  explicit MissingStorage(const FaultPlan& plan) {
    g_on = plan.from > 0;
    if (g_on && rename(g_place, "/mnt/vendor/away") != 0) std::abort();
  }
  ~MissingStorage() {
    if (g_on) rename("/mnt/vendor/away", g_place);
  }
  MissingStorage(const MissingStorage&) = delete;
  MissingStorage& operator=(const MissingStorage&) = delete;

  static std::uint64_t seen() { return 0; }
  static std::uint64_t failed() { return g_on ? 1 : 0; }
  static bool is_own(std::uint64_t) { return false; }
  static const char* first_failed() { return "missing storage"; }

 private:
  static inline bool g_on = false;
};

constexpr char kKind[] = "full or read-only storage";
constexpr char kRotation[] = "/mnt/vendor/nvdata";

class StorageOf : public StorageTest, public ::testing::WithParamInterface<Operation> {
 protected:
  void SetUp() override {
    StorageTest::SetUp();
    if (IsSkipped()) return;
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "one thread: nothing for this sanitizer, and hundreds of its processes";
#endif
  }
  void TearDown() override {
    if (!mounted_) return;
    EXPECT_EQ(umount(g_place), 0) << "a file is still open";
  }

  // Everything goes on there; skips loudly where it cannot be had.
  bool use(const char* place, const std::string& reason) {
    g_place = place;
    mounted_ = reason.empty();
    return mounted_;
  }

  static void fill_at_every_level(std::uint64_t block) {
    FaultRun<FullStorage> run(GetParam(), kKind);
    run.places();
    const std::uint64_t steps = 96 * 1024 / block;
    const std::uint64_t levels = how_many_cases("VEXA_FAULT_FILLINGS", 6, steps);
    for (std::uint64_t level = 0; level <= levels && run.goes_on(); ++level) {
      run.attempt({1 + level * steps / levels * block, 1, ENOSPC});
    }
  }

 private:
  bool mounted_ = false;
};

TEST_P(StorageOf, MemoryThatIsFullKeepsTheLastValueWhateverIsLeft) {
  if (const std::string reason = mount_memory("/data"); !use("/data", reason)) GTEST_SKIP() << reason;
  fill_at_every_level(4096);
}

TEST_P(StorageOf, AFileSystemThatIsFullKeepsTheLastValueWhateverIsLeft) {
  if (const std::string reason = mount_loop("/data"); !use("/data", reason)) {
    GTEST_SKIP() << "no ext4 on a loop device, memory alone stands for it: " << reason;
  }
  fill_at_every_level(1024);
}

class ReadOnlyStorageOf : public StorageOf {};

TEST_P(ReadOnlyStorageOf, KeepsTheLastValue) {
  if (const std::string reason = mount_memory("/data"); !use("/data", reason)) GTEST_SKIP() << reason;
  FaultRun<ReadOnlyStorage> run(GetParam(), kKind);
  run.places();
  run.attempt({1, 1, EROFS});
}

class DatedCopiesOf : public StorageOf {};

TEST_P(DatedCopiesOf, AFullPlaceOfDatedCopiesCostsTheCopyAtMost) {
  if (const std::string reason = mount_memory(kRotation); !use(kRotation, reason)) GTEST_SKIP() << reason;
  fill_at_every_level(4096);
}

TEST_P(DatedCopiesOf, AReadOnlyPlaceOfDatedCopiesCostsTheCopyAtMost) {
  if (const std::string reason = mount_memory(kRotation); !use(kRotation, reason)) GTEST_SKIP() << reason;
  FaultRun<ReadOnlyStorage> run(GetParam(), kKind);
  run.places();
  run.attempt({1, 1, EROFS});
}

TEST_P(DatedCopiesOf, AMissingPlaceOfDatedCopiesCostsTheCopyAtMost) {
  g_place = kRotation;
  FaultRun<MissingStorage> run(GetParam(), kKind);
  run.places();
  run.attempt({1, 1, ENOENT});
}

INSTANTIATE_TEST_SUITE_P(Functions, StorageOf,
                         ::testing::ValuesIn(operations_where([](const Operation& operation) {
                           return operation.item != nullptr;
                         })),
                         operation_name);
// A file that is open for writing keeps a storage from being made read-only.
INSTANTIATE_TEST_SUITE_P(Functions, ReadOnlyStorageOf,
                         ::testing::ValuesIn(operations_where([](const Operation& operation) {
                           return operation.item != nullptr && operation.after == nullptr;
                         })),
                         operation_name);
INSTANTIATE_TEST_SUITE_P(Functions, DatedCopiesOf,
                         ::testing::ValuesIn(operations_where([](const Operation& operation) {
                           return std::string_view(operation.name).starts_with("Clean");
                         })),
                         operation_name);

}  // namespace
}  // namespace vexa_test
