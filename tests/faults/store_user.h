// SPDX-License-Identifier: MIT
// One process or thread that reads and writes the shared store and checks what it reads.
#ifndef VEXADM_TESTS_FAULTS_STORE_USER_H
#define VEXADM_TESTS_FAULTS_STORE_USER_H

#include <vexadm/vexadm.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>

#include "faults/shared_store.h"

namespace vexa_test {

class StoreUser {
 public:
  StoreUser(Board& board, vexa_dm_handle* handle, unsigned seed);

  const std::string& complaints() const { return complaints_; }
  unsigned below(unsigned end) { return static_cast<unsigned>(random_() % end); }

  // Writing; only one user may write an item at a time.
  enum class By : std::uint8_t { kWrite, kWriteDb };   // the latter leaves the cache as it was
  void write_next(unsigned item, By by = By::kWrite);  // value, emptying or pair, by the number
  void write_same(unsigned item);                      // what is there already
  void expect_stored(unsigned item);                   // the file holds what was just written
  void build_defaults();

  // Reading, each judged by the item's history.
  void read(unsigned item, From from);  // vexa_dm_read
  void read_file(unsigned item);        // vexa_dm_read_db
  void refresh(unsigned item);          // vexa_dm_read_from_dbconfigfile
  void read_again(unsigned item);       // vexa_dm_read: what this process, alone, has cached

  // The change callback: in the writer's thread.
  static void count_event(std::int32_t id, const void* data, std::int32_t length);

 private:
  // What is noted before a read.
  struct Floor {
    From from;
    ItemHistory::Before item;
    std::array<Number, 2> pair;
  };
  Floor floor(unsigned item, From from) const;

  // Calls, and notes whether that took as long as a call waits for locks of others: then its
  // answer may be that it gave up.
  template <typename Call>
  std::int32_t timed(Call call);
  std::int32_t write_number(unsigned item, Number number, By by);
  void judge(unsigned item, const Floor& floor, std::string_view value);
  void judge_pairs(const Floor& floor, std::string_view text);
  void judge_nothing(unsigned item, const Floor& floor, std::int32_t code);
  void accept(unsigned item, const Floor& floor, Number number);
  void accept_default(unsigned item, const Floor& floor);
  void complain(unsigned item, const std::string& what);
  std::string_view delivered(std::int32_t length) const;
  bool defaults_unfinished() const;  // before this user's last call

  Board& board_;
  vexa_dm_handle* handle_;
  std::mt19937 random_;
  std::array<char, 16384> buffer_ = {};
  std::array<std::string, kItems + 1> cached_;  // as far as this user knows; empty: a default
  std::array<bool, kItems + 1> written_directly_ = {};
  bool late_ = false;
  unsigned finished_before_ = 0;
  std::string complaints_;
};

}  // namespace vexa_test

#endif
