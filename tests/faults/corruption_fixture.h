// SPDX-License-Identifier: MIT
// A filled store that is damaged again and again, each time seen by a new process.
#ifndef VEXADM_TESTS_FAULTS_CORRUPTION_FIXTURE_H
#define VEXADM_TESTS_FAULTS_CORRUPTION_FIXTURE_H

#include <vexadm/log.h>

#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "faults/corruption_damage.h"
#include "faults/corruption_items.h"
#include "faults/corruption_oracle.h"
#include "faults/fault_table.h"
#include "faults/quick_child.h"
#include "faults/saved_files.h"
#include "support/storage_fixture.h"

namespace vexa_test {

// Instrumented code is several times slower, and emulated code as well.
inline unsigned slower() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  return 4;
#else
  return is_emulated() ? kOneOfEmulated : 1;
#endif
}

class Corruption : public StorageTest {
 protected:
  using PathAndDamage = std::pair<std::string, Damage>;

  void SetUp() override {
    StorageTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    SavedFiles::clear();
    make_dirs("/vexanvbak/data");
    fill(factory_items());
    const std::string factory_copy = read_file(kPrimary);
    for (const std::string& name : names_in("/data")) unlink(("/data/" + name).c_str());
    fill(current_items());
    write_file(kFactory, factory_copy);
    with_factory_ = SavedFiles::take();
    unlink(kFactory.c_str());
    without_factory_ = SavedFiles::take();
    ASSERT_GE(with_factory_.files.at(kPrimary).size(), 6 * kPage);
    count_.kind = "corruption";
  }

  void TearDown() override {
    if (count_.tried == 0) return;
    // Only now: a failure of the test would be inherited by the processes of later cases.
    for (const std::string& failure : failures_) ADD_FAILURE() << failure;
    for (const auto& [name, cases] : count_.named) {
      std::printf("  %6llu  %s\n", static_cast<unsigned long long>(cases), name.c_str());
    }
    report(count_);
  }

  std::size_t size_of(const std::string& path) const { return with_factory_.files.at(path).size(); }
  std::size_t pages_of(const std::string& path) const { return size_of(path) / kPage; }

  // One case: the damages are done in their order to the files that are there.
  void try_one(bool factory_copy, const std::vector<PathAndDamage>& damages) {
    (factory_copy ? with_factory_ : without_factory_).put_back();
    std::string name = factory_copy ? "with a factory copy" : "without a factory copy";
    for (const auto& [path, damage] : damages) {
      name += "; " + path + ": " + damage.name;
      if (access(path.c_str(), F_OK) == 0) damage.apply(path);
    }
    const QuickResult result = run_quickly([] { CorruptionOracle().run(); });
    ++count_.tried;
    if (result.exit_code == 0) {
      take_notes(result.out);
      return;
    }
    ++count_.failed;
    failures_.push_back(name + "\nsignal " + std::to_string(result.signal) + "\n" + result.out);
  }

  // With a factory copy and without; damage of the factory copy itself only with it.
  void try_both_ways(const std::vector<PathAndDamage>& damages) {
    try_one(true, damages);
    if (damages.size() != 1 || damages.front().first != kFactory) try_one(false, damages);
  }

  // Of a long list, instrumented and emulated code tries each fourth.
  bool leaves_out() { return next_++ % slower() != 0; }

  // Of a short list, instrumented code tries all.
  bool leaves_out_emulated() { return is_emulated() && leaves_out(); }

  // A failing library would fail in thousands of cases: the first few tell.
  bool goes_on() const { return count_.failed < 5; }

  const FaultCount& count() const { return count_; }

  static std::mt19937 seeded() {
    const auto seed = static_cast<unsigned>(how_many("VEXA_CORRUPTION_SEED", 2026, 2027));
    std::printf("seed %u\n", seed);
    return std::mt19937(seed);
  }

 private:
  static void fill(const std::vector<Item>& items) {
    expect_in_child([&] {
      vexa_set_log_level(4);
      vexa_dm_backend_ops slots = {};
      sqlite_reg(&slots);
      // A large value that shrinks leaves free pages.
      const std::string large(14000, 'L');
      ASSERT_EQ(write_item("cfg_key_large", large), 0);
      ASSERT_EQ(write_item("cfg_key_large", "small"), 0);
      for (const Item& item : items) {
        const auto size = static_cast<std::int32_t>(item.value.size());
        ASSERT_EQ(
            dm_pal_write(item.table.c_str(), item.id, item.key.c_str(), item.type, item.value.data(), size),
            0);
      }
      for (const char* key : kDefaultKeys) {
        vexa_dm_item_desc desc = item_desc("cfg", key, 5);
        const std::string text = default_of(key);
        const char* value = text.c_str();
        ASSERT_EQ(dm_sqlite_def_db_const(1, &desc, &value, 0), 0u);
      }
    });
  }

  // A case counts once under a name, however many items it concerns.
  void take_notes(const std::string& out) {
    const std::string mark = std::string("\n") + CorruptionOracle::kNote;
    const std::string text = "\n" + out;
    std::map<std::string, int> once;
    for (std::size_t at = text.find(mark); at != std::string::npos; at = text.find(mark, at + 1)) {
      const std::size_t begin = at + mark.size();
      once[text.substr(begin, text.find('\n', begin) - begin)] = 1;
    }
    for (const auto& [name, cases] : once) ++count_.named[name];
    if (!once.empty()) ++count_.with_a_name;
  }

  SavedFiles with_factory_;
  SavedFiles without_factory_;
  FaultCount count_;
  unsigned next_ = 0;
  std::vector<std::string> failures_;
};

}  // namespace vexa_test

#endif
