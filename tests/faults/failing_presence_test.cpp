// SPDX-License-Identifier: MIT
// Who cannot tell whether a row is there must not add one: reads find the first of two.
#include <cerrno>

#include "faults/failing_alloc.h"
#include "support/storage_fixture.h"
#include "vexadm/log.h"

namespace vexa_test {
namespace {

class FailingPresence : public StorageTest {
 protected:
  void SetUp() override {
    StorageTest::SetUp();
#if !VEXA_TEST_OWN_ALLOC
    GTEST_SKIP() << "the sanitizer has its own allocator";
#endif
  }
};

// Runs with each allocation failing in turn, as often as it allocates.
template <typename Run>
void starve(Run run) {
  expect_in_child([&] {
    vexa_set_log_level(4);
    run();
    for (std::uint64_t place = 1;; ++place) {
      const FailingAlloc injector({place, 1, ENOMEM});
      run();
      if (FailingAlloc::failed() == 0) break;
    }
  });
}

TEST_F(FailingPresence, OfAnItemAddsNoSecondRow) {
  starve([] { dm_write_db(DB_CONFIG, "cfg", 7, "k", 6, "value", 5); });
  EXPECT_EQ(rows(kPrimary, "select count(*) from cfg"), "1");
}

TEST_F(FailingPresence, OfADefaultAddsNoSecondRow) {
  starve([] { dm_write_def_db("cfg", "k", 6, "value", 5); });
  EXPECT_EQ(rows(kDefaults, "select count(*) from cfg"), "1");
}

TEST_F(FailingPresence, OfTheJournalAddsNoSecondRow) {
  starve([] { dm_write_state_db("cfg", 7, "k", 6, 5, WS_READY); });
  EXPECT_EQ(rows(kJournal, "select count(*) from state"), "1");
}

}  // namespace
}  // namespace vexa_test
