// SPDX-License-Identifier: MIT
// What may be read of an item that several processes or threads write and read at once.
//
// Writes of an item are numbered. One writer at a time begins a number and, when its call has
// said 0, acknowledges it; a reader notes the lowest number it may see before it reads, and
// shows what it has found. Numbers never go back: not behind an acknowledged one, and not behind
// one that a finished read has seen. Everything is atomic and lies in shared memory, outside the
// store, so that a killed process leaves it whole.
#ifndef VEXADM_TESTS_FAULTS_ITEM_HISTORY_H
#define VEXADM_TESTS_FAULTS_ITEM_HISTORY_H

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

namespace vexa_test {

using Number = std::uint32_t;

// Some writes are emptyings: those, and the state before the first write, read as the default.
inline bool reads_as_default(Number number) { return number % 9 == 0; }

// The value of a write. Its number stands in all of it, so that half of another one shows, and its
// size changes, so that rows move between pages.
inline std::string value_of(unsigned item, Number number) {
  std::array<char, 17> unit = {};
  std::snprintf(unit.data(), unit.size(), "%04x%012x", item, number);
  const unsigned units = number % 10 == 7 ? 600 : 1 + (number * 37 + item * 11) % 180;
  std::string value;
  for (unsigned i = 0; i < units; ++i) value += unit.data();
  return value;
}

// The number of a whole value; nothing for a torn or foreign one.
inline std::optional<Number> number_of(unsigned item, std::string_view value) {
  if (value.size() < 16) return std::nullopt;
  const auto number =
      static_cast<Number>(std::strtoul(std::string(value.substr(4, 12)).c_str(), nullptr, 16));
  if (value != value_of(item, number)) return std::nullopt;
  return number;
}

inline void raise_to(std::atomic<Number>& number, Number at_least) {
  Number present = number;
  while (present < at_least && !number.compare_exchange_weak(present, at_least)) {
  }
}

// Where a read gets its answer. While a write is under way, the cache of a process runs behind the
// files: each by itself never goes back, and what the cache has shown is in the files.
enum class From : std::uint8_t { kFile, kCache, kFileIntoCache };

class ItemHistory {
 public:
  // What a reader notes before it reads.
  struct Before {
    Number lowest = 0;
    Number ended = 0;
    Number missed = 0;
  };

  // The writer's side; one writer at a time.
  Number begin() { return ++begun_; }
  void acknowledge(Number number) { acknowledged_ = number; }
  bool all_acknowledged() const { return acknowledged_ == begun_; }
  Number begun() const { return begun_; }
  Number acknowledged() const { return acknowledged_; }

  // The writer has been killed: what it began and did not acknowledge may appear, or not.
  void writer_ended() { ended_ = begun_.load(); }

  Before before(From from) const { return {lowest(from), ended_, missed_}; }

  // A finished read has found this number. False when it must not.
  bool accept(From from, const Before& before, Number found) {
    if (found < before.lowest || found > begun_) return false;
    raise_to(seen_in_files_, found);
    if (from != From::kFile) raise_to(seen_in_cache_, found);
    note_unacknowledged(before, found);
    return true;
  }

  // A finished read has found the default. That comes from the files and is not cached: while the
  // emptying is under way, the cache still has the value before it.
  bool accept_default(const Before& before) {
    for (Number number = before.lowest; number <= begun_; ++number) {
      if (reads_as_default(number)) return accept(From::kFile, before, number);
    }
    return false;
  }

  // Unacknowledged writes of killed writers that one read did not see and a later one did.
  Number came_back() const { return came_back_; }

  std::string text() const {
    return "acknowledged " + std::to_string(acknowledged_) + ", seen " + std::to_string(seen_in_files_) +
           ", from the cache " + std::to_string(seen_in_cache_) + ", begun " + std::to_string(begun_);
  }

 private:
  Number lowest(From from) const {
    return std::max<Number>(acknowledged_, from == From::kCache ? seen_in_cache_ : seen_in_files_);
  }

  void note_unacknowledged(const Before& before, Number found) {
    if (found < before.ended) return raise_to(missed_, before.ended);
    if (found > before.missed || found <= acknowledged_) return;
    Number last = last_back_;
    if (last < found && last_back_.compare_exchange_strong(last, found)) ++came_back_;
  }

  std::atomic<Number> begun_{0};
  std::atomic<Number> acknowledged_{0};
  std::atomic<Number> seen_in_files_{0};
  std::atomic<Number> seen_in_cache_{0};
  std::atomic<Number> ended_{0};   // no write up to this one is under way any more
  std::atomic<Number> missed_{0};  // some write up to this one had ended, and a read did not see it
  std::atomic<Number> last_back_{0};
  std::atomic<Number> came_back_{0};
};

}  // namespace vexa_test

#endif
