// SPDX-License-Identifier: MIT
// Takes several seconds. Processes that are killed while they write; the next start finds
// every value that was acknowledged.
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <set>
#include <string>

#include "support/storage_fixture.h"

namespace vexa_test {
namespace {

constexpr unsigned kItems = 4;
constexpr int kRounds = 200;

std::string item_key(unsigned item) { return "item" + std::to_string(item); }

// More than a page, the number throughout.
std::string numbered(unsigned number) {
  std::array<char, 17> unit = {};
  std::snprintf(unit.data(), unit.size(), "%016x", number);
  std::string value;
  for (int i = 0; i < 300; ++i) value += unit.data();
  return value;
}

struct Acknowledged {
  unsigned item;
  unsigned number;
};

// Registers and writes numbers above `last`, one item after the other, until it is killed.
[[noreturn]] void write_until_killed(unsigned last, int report) {
  vexa_dm_backend_ops slots = {};
  sqlite_reg(&slots);
  for (unsigned number = last + 1;; ++number) {
    const unsigned item = number % kItems;
    const vexa_dm_item_desc desc = item_desc("cfg", item_key(item), 6);
    const std::string value = numbered(number);
    if (slots.write(item, &desc, value.data(), static_cast<std::int32_t>(value.size())) != 0) _exit(1);
    const Acknowledged done = {item, number};
    if (write(report, &done, sizeof done) != static_cast<ssize_t>(sizeof done)) _exit(2);
  }
}

class Kill : public StorageTest {
 protected:
  // Kills one writer after so many reports and microseconds; what it may have written goes into
  // the sets of possible numbers.
  void kill_one_writer(unsigned reports, unsigned microseconds) {
    std::array<int, 2> report;
    ASSERT_EQ(pipe(report.data()), 0);
    const pid_t writer = fork();
    if (writer == 0) {
      close(report[0]);
      write_until_killed(last_, report[1]);
    }
    close(report[1]);
    for (unsigned i = 0; i < reports && take(report[0]); ++i) {
    }
    usleep(microseconds);
    kill(writer, SIGKILL);
    int status = 0;
    waitpid(writer, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status)) << "a write failed";
    while (take(report[0])) {
    }
    close(report[0]);
    ++last_;  // the one in flight
    possible_[last_ % kItems].insert(last_);
  }

  // The next start: every item is whole and no older than acknowledged, the files are healthy and
  // writing works.
  void expect_nothing_lost(int round) {
    expect_in_child([&] {
      vexa_dm_backend_ops slots = {};
      sqlite_reg(&slots);
      for (unsigned item = 0; item < kItems; ++item) expect_possible(item);
      const vexa_dm_item_desc desc = item_desc("cfg", "probe", 6);
      const std::string value = "probe " + std::to_string(round);
      EXPECT_EQ(slots.write(9, &desc, value.data(), static_cast<std::int32_t>(value.size())), 0);
      EXPECT_EQ(read_item("probe").value, value);
      for (unsigned item = 0; item < kItems; ++item) expect_possible(item);
      EXPECT_EQ(check_database_health(kPrimary.c_str()), 0u);
      EXPECT_EQ(check_database_health(kBackup.c_str()), 0u);
      EXPECT_EQ(read_file(kBackup), read_file(kPrimary));
    });
  }

  std::array<bool, kItems> acknowledged_ = {};
  std::array<std::set<unsigned>, kItems> possible_;
  unsigned last_ = 0;

 private:
  bool take(int report) {
    Acknowledged done = {};
    if (read(report, &done, sizeof done) != static_cast<ssize_t>(sizeof done)) return false;
    acknowledged_[done.item] = true;
    possible_[done.item] = {done.number};
    last_ = done.number;
    return true;
  }

  void expect_possible(unsigned item) {
    const ReadResult result = read_item(item_key(item));
    if (result.code < 0) {
      EXPECT_FALSE(acknowledged_[item]) << item_key(item) << " is gone, code " << result.code;
      EXPECT_TRUE(result.code == -1 || result.code == -100) << result.code;
      return;
    }
    const auto number = static_cast<unsigned>(std::strtoul(result.value.substr(0, 16).c_str(), nullptr, 16));
    EXPECT_EQ(result.value, numbered(number)) << item_key(item) << " is not whole";
    EXPECT_EQ(possible_[item].count(number), 1u)
        << item_key(item) << " holds " << number << ", acknowledged was "
        << (possible_[item].empty() ? 0 : *possible_[item].begin());
  }
};

TEST_F(Kill, EveryAcknowledgedValueIsThereAtTheNextStart) {
  const unsigned seed = std::random_device()();
  std::printf("seed %u\n", seed);
  std::mt19937 random(seed);

  for (int round = 0; round < kRounds && !HasFailure(); ++round) {
    SCOPED_TRACE("seed " + std::to_string(seed) + " round " + std::to_string(round));
    const unsigned reports = static_cast<unsigned>(random() % 8);
    kill_one_writer(reports, static_cast<unsigned>(random() % 4000));
    expect_nothing_lost(round);
  }
}

// The window between a file and its first table, its first copy, its first version record.
TEST_F(Kill, AFirstStartThatIsKilledIsStartedAgain) {
  const unsigned seed = std::random_device()();
  std::printf("seed %u\n", seed);
  std::mt19937 random(seed);

  for (int round = 0; round < 60 && !HasFailure(); ++round) {
    SCOPED_TRACE("seed " + std::to_string(seed) + " round " + std::to_string(round));
    for (const std::string& name : names_in("/data")) unlink(("/data/" + name).c_str());
    acknowledged_ = {};
    possible_ = {};
    last_ = 0;
    kill_one_writer(0, static_cast<unsigned>(random() % 4000));
    expect_nothing_lost(round);
  }
}

}  // namespace
}  // namespace vexa_test
