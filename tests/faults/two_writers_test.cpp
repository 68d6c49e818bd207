// SPDX-License-Identifier: MIT
// Two processes write, and one of them is killed in the middle of its burst.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vexadm/vexadm.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <random>
#include <string>

#include "support/child.h"
#include "support/device_fixture.h"

using vexa_test::DeviceTest;
using vexa_test::run_in_child;

namespace {

constexpr uint32_t kItems = 4;

vexa_dm_item_desc descriptor(uint32_t item) {
  vexa_dm_item_desc desc{};
  std::snprintf(desc.table, sizeof desc.table, "T%u", static_cast<unsigned>(item % 2));
  std::snprintf(desc.key, sizeof desc.key, "k%u", static_cast<unsigned>(item));
  desc.type = VEXA_DM_BLOCK;
  return desc;
}

// A value that shows when half of it is another one's: its number over and over, and of a
// size that changes, so that rows move between pages.
std::string value_of(uint32_t number) {
  std::string value;
  const std::size_t words = 20 + number % 200;
  for (std::size_t i = 0; i < words; ++i) {
    value.append(reinterpret_cast<const char*>(&number), sizeof number);
  }
  return value;
}

// Registers and writes number after number, telling the pipe about each that was acknowledged.
[[noreturn]] void write_burst(int pipe_end, uint32_t first) {
  vexa_set_log_level(4);
  vexa_dm_backend_ops slots{};
  sqlite_reg(&slots);
  for (uint32_t number = first;; ++number) {
    const vexa_dm_item_desc desc = descriptor(number % kItems);
    const std::string value = value_of(number);
    if (slots.write(number % kItems, &desc, value.data(), static_cast<int32_t>(value.size())) != 0) _exit(3);
    if (write(pipe_end, &number, sizeof number) != sizeof number) _exit(4);
  }
}

// Lets a burst run for a while and kills it. Returns the last acknowledged number.
uint32_t kill_a_burst(uint32_t first, long nanoseconds) {
  int ends[2];
  EXPECT_EQ(pipe(ends), 0);
  const pid_t writer = fork();
  if (writer == 0) {
    close(ends[0]);
    write_burst(ends[1], first);
  }
  close(ends[1]);
  uint32_t last = first - 1;
  // The first acknowledgement is waited for; then the moment is chance.
  if (read(ends[0], &last, sizeof last) != sizeof last) ADD_FAILURE() << "no write was acknowledged";
  const timespec moment{0, nanoseconds};
  nanosleep(&moment, nullptr);
  kill(writer, SIGKILL);
  uint32_t number = 0;
  while (read(ends[0], &number, sizeof number) == sizeof number) last = number;
  close(ends[0]);
  int status = 0;
  EXPECT_EQ(waitpid(writer, &status, 0), writer);
  EXPECT_TRUE(WIFSIGNALED(status)) << "the writer stopped by itself: " << status;
  return last;
}

// In a process that starts anew: every acknowledged number, or the one under way; both files
// sound; the next write goes through.
void check_after(uint32_t first, uint32_t last) {
  vexa_set_log_level(4);
  vexa_dm_backend_ops slots{};
  sqlite_reg(&slots);
  for (uint32_t item = 0; item < kItems; ++item) {
    const uint32_t acknowledged = last - (last + kItems - item) % kItems;
    if (acknowledged < first || acknowledged > last) continue;
    const vexa_dm_item_desc desc = descriptor(item);
    std::array<uint8_t, 2048> buffer{};
    const int32_t length = slots.read(item, &desc, buffer.data(), static_cast<int32_t>(buffer.size()));
    ASSERT_GT(length, 0) << "item " << item << " after " << last;
    const std::string found(reinterpret_cast<char*>(buffer.data()), static_cast<std::size_t>(length));
    const bool whole = found == value_of(acknowledged) ||
                       (acknowledged + kItems == last + 1 && found == value_of(acknowledged + kItems));
    EXPECT_TRUE(whole) << "item " << item << " after " << last;
  }
  EXPECT_EQ(check_database_health(DB_CONFIG), 0U);
  EXPECT_EQ(check_database_health(DB_CONFIGBAK), 0U);
}

class TwoWriters : public DeviceTest {};

TEST_F(TwoWriters, KillingOneLosesNothingOfTheOther) {
  std::mt19937 chance(7);
  uint32_t next = 1;
  for (int round = 0; round < 30; ++round) {
    const auto result = run_in_child([&] {
      vexa_set_log_level(4);
      vexa_dm_backend_ops slots{};
      sqlite_reg(&slots);
      const vexa_dm_item_desc desc{"OTHER", "counter", VEXA_DM_U32};
      const pid_t killed = fork();
      if (killed == 0) {
        const long moment = std::uniform_int_distribution<long>(0, 6'000'000)(chance);
        const uint32_t last = kill_a_burst(next, moment);
        check_after(next, last);
        _exit(::testing::Test::HasFailure() ? 1 : 0);
      }
      for (uint32_t count = 1; count <= 10; ++count) {
        ASSERT_EQ(slots.write(9, &desc, &count, sizeof count), 0);
        uint32_t found = 0;
        ASSERT_EQ(slots.read(9, &desc, reinterpret_cast<uint8_t*>(&found), sizeof found), 4);
        ASSERT_EQ(found, count);
      }
      int status = 0;
      ASSERT_EQ(waitpid(killed, &status, 0), killed);
      EXPECT_EQ(status, 0);
    });
    ASSERT_EQ(result.exit_code, 0) << "round " << round << "\n" << result.out << result.err;
    next += 1000;
  }
}

}  // namespace
