// SPDX-License-Identifier: MIT
// The items of a store that many use at once, and what is known about them.
#ifndef VEXADM_TESTS_FAULTS_SHARED_STORE_H
#define VEXADM_TESTS_FAULTS_SHARED_STORE_H

#include <sys/mman.h>
#include <unistd.h>
#include <vexadm/vexadm.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <new>
#include <string>

#include "faults/item_history.h"
#include "support/storage_fixture.h"

namespace vexa_test {

inline constexpr unsigned kItems = 6;      // ids 1 to 6
inline constexpr unsigned kPairs = 6;      // the last one holds key-value text
inline constexpr std::int32_t kProbe = 7;  // written once a round, when all is quiet
inline constexpr const char* kDefault = "the default";
inline constexpr const char* kDefaultPairs = "even,0;odd,0;";

inline vexa_dm_default_item text_row(std::int32_t id, const char* table, const char* key, const char* text) {
  vexa_dm_default_item row = {};
  row.id = id;
  std::snprintf(row.desc.table, sizeof row.desc.table, "%s", table);
  std::snprintf(row.desc.key, sizeof row.desc.key, "%s", key);
  row.value.text = text;
  row.type = VEXA_DM_STRING;
  row.length = 0;
  return row;
}

// Lives as long as the process: the library keeps pointers into it.
inline vexa_dm_default_item* shared_item_table() {
  static std::array<vexa_dm_default_item, 8> table = {
      text_row(1, "cfg", "one", kDefault),        text_row(2, "net", "two", kDefault),
      text_row(3, "cfg", "three", kDefault),      text_row(4, "net", "four", kDefault),
      text_row(5, "wifi", "five", kDefault),      text_row(6, "cfg", "pairs", kDefaultPairs),
      text_row(kProbe, "cfg", "probe", kDefault), text_row(-1, "", "", nullptr)};
  return table.data();
}

// Each counts single calls; a round of a test may hold several.
enum Count : std::uint8_t {
  kWrites,         // acknowledged
  kEmptied,        // acknowledged
  kPairWrites,     // acknowledged
  kSkipped,        // "same data"
  kReads,          // values and defaults, from files
  kCachedReads,    // answered by the process
  kStarts,         // registrations
  kDefaultsBuilt,  // default-items database written whole
  kLateWrites,     // took as long as a call waits for locks: done or not
  kLateReads,      // the same: the value or the default
  kDefaultsCut,    // -1, because the default-items database was never finished
  kOperations,     // of threads, of every kind
  kCounts
};

// What is known about a store; everybody adds to it.
struct Board {
  std::array<ItemHistory, kItems + 1> items;
  // Of the key-value text: the last acknowledged number of each of its two keys.
  std::array<std::atomic<Number>, 2> acknowledged_pair{};
  std::atomic<unsigned> defaults_begun{0};
  std::atomic<unsigned> defaults_finished{0};
  std::array<std::atomic<std::uint64_t>, kCounts> counts{};

  void add(Count count) { ++counts[count]; }
  std::uint64_t came_back() const {
    std::uint64_t sum = 0;
    for (const ItemHistory& item : items) sum += item.came_back();
    return sum;
  }
};

// A board in memory that a forked process shares with its parent, and the sums over all boards.
class SharedBoard {
 public:
  SharedBoard()
      : board_(new (mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))
                   Board) {}
  ~SharedBoard() { munmap(board_, sizeof(Board)); }
  SharedBoard(const SharedBoard&) = delete;
  SharedBoard& operator=(const SharedBoard&) = delete;

  Board& operator*() const { return *board_; }
  Board* operator->() const { return board_; }

  // Of an empty device nothing is known.
  void begin_with_empty_device() {
    for (const std::string& name : names_in("/data")) unlink(("/data/" + name).c_str());
    for (std::size_t i = 0; i < kCounts; ++i) sums_[i] += board_->counts[i];
    came_back_ += board_->came_back();
    board_ = new (board_) Board;
  }

  std::uint64_t sum(Count count) const { return sums_[count] + board_->counts[count]; }
  std::uint64_t came_back() const { return came_back_ + board_->came_back(); }

 private:
  Board* board_;
  std::array<std::uint64_t, kCounts> sums_ = {};
  std::uint64_t came_back_ = 0;
};

}  // namespace vexa_test

#endif
