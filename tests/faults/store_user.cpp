// SPDX-License-Identifier: MIT
#include "faults/store_user.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace vexa_test {
namespace {

using Clock = std::chrono::steady_clock;

// A call that has given up on a lock has taken all of this.
constexpr auto kGivingUp = std::chrono::milliseconds(VEXA_STORAGE_BUSY_MS - 100);

constexpr std::int32_t kCapacity = 16000;  // short of the buffer: what is delivered stays terminated

thread_local unsigned events = 0;

std::string pair_of(Number number) {
  std::array<char, 9> unit = {};
  std::snprintf(unit.data(), unit.size(), "%08u", number);
  std::string value;
  for (unsigned i = 0; i <= number % 20; ++i) value += unit.data();
  return value;
}

const char* key_of(Number number) { return number % 2 == 0 ? "even" : "odd"; }

// Takes "key,value;" from the front of a text. Nothing when it is not there or not whole.
std::optional<Number> take_pair(std::string_view& text, unsigned parity) {
  const std::string key = std::string(key_of(parity)) + ",";
  const std::size_t end = text.find(';');
  if (!text.starts_with(key) || end == std::string_view::npos) return std::nullopt;
  const std::string value(text.substr(key.size(), end - key.size()));
  text.remove_prefix(end + 1);
  if (value == "0") return 0;
  const auto number = static_cast<Number>(std::strtoul(value.substr(0, 8).c_str(), nullptr, 10));
  if (value != pair_of(number) || number % 2 != parity) return std::nullopt;
  return number;
}

}  // namespace

StoreUser::StoreUser(Board& board, vexa_dm_handle* handle, unsigned seed)
    : board_(board), handle_(handle), random_(seed) {}

void StoreUser::count_event(std::int32_t, const void*, std::int32_t) { ++events; }

void StoreUser::complain(unsigned item, const std::string& what) {
  complaints_ += "process " + std::to_string(getpid()) + ", item " + std::to_string(item) + ": " + what +
                 " (" + board_.items[item].text() + (late_ ? ", waited for locks" : "") + ")\n";
}

bool StoreUser::defaults_unfinished() const { return board_.defaults_begun > 0 && finished_before_ == 0; }

std::string_view StoreUser::delivered(std::int32_t length) const {
  return {buffer_.data(), std::min(static_cast<std::size_t>(length), buffer_.size())};
}

template <typename Call>
std::int32_t StoreUser::timed(Call call) {
  std::fill(buffer_.begin(), buffer_.end(), '\0');
  finished_before_ = board_.defaults_finished;
  const auto start = Clock::now();
  const std::int32_t result = call();
  late_ = Clock::now() - start >= kGivingUp;
  return result;
}

// ---- Writing ----

std::int32_t StoreUser::write_number(unsigned item, Number number, By by) {
  const auto id = static_cast<std::int32_t>(item);
  if (item == kPairs) {
    std::int32_t length = 0;
    return vexa_dm_write_key_value_pairs(handle_, item, key_of(number), pair_of(number).c_str(), &length);
  }
  if (reads_as_default(number)) return vexa_dm_empty(handle_, id);
  const std::string value = value_of(item, number);
  if (by == By::kWrite) {
    return vexa_dm_write(handle_, id, value.data(), static_cast<std::int32_t>(value.size()));
  }
  return vexa_dm_write_db(handle_, id, reinterpret_cast<const std::uint8_t*>(value.data()),
                          static_cast<std::uint32_t>(value.size()));
}

void StoreUser::write_next(unsigned item, By by) {
  ItemHistory& history = board_.items[item];
  const Number number = history.begin();
  const unsigned events_before = events;
  written_directly_[item] = by == By::kWriteDb;
  const std::int32_t result = timed([&] { return write_number(item, number, by); });
  if (late_) {
    board_.add(kLateWrites);
    // The pair may have been put into the default, as its read gave up too.
    if (item == kPairs) board_.acknowledged_pair[0] = board_.acknowledged_pair[1] = 0;
    return;
  }
  // A pair is put into what a read gives.
  if (item == kPairs && result == -1 && defaults_unfinished()) return board_.add(kDefaultsCut);
  if (result != 0) {
    return complain(item, "write " + std::to_string(number) + " gives " + std::to_string(result));
  }
  if (events - events_before != 1) complain(item, "write " + std::to_string(number) + " was skipped");
  history.acknowledge(number);
  if (item == kPairs) {
    board_.acknowledged_pair[number % 2] = number;
    board_.add(kPairWrites);
  } else {
    board_.add(reads_as_default(number) ? kEmptied : kWrites);
  }
}

void StoreUser::write_same(unsigned item) {
  const ItemHistory& history = board_.items[item];
  const Number number = history.acknowledged();
  // Only where nothing can come back in between, and the cache is up to date.
  if (item == kPairs || !history.all_acknowledged() || reads_as_default(number)) return;
  if (written_directly_[item]) return;
  const unsigned events_before = events;
  const std::int32_t result = timed([&] { return write_number(item, number, By::kWrite); });
  if (late_) return board_.add(kLateWrites);
  if (result != 0) complain(item, "writing the same gives " + std::to_string(result));
  if (events != events_before) complain(item, "the same value was written again");
  board_.add(kSkipped);
}

void StoreUser::expect_stored(unsigned item) {
  if (board_.items[item].all_acknowledged()) read_file(item);
}

void StoreUser::build_defaults() {
  ++board_.defaults_begun;
  const std::int32_t result = timed([] { return vexa_dm_construct_def_database(VEXA_DM_BACKEND_SQLITE); });
  if (late_) return board_.add(kLateWrites);
  if (result != 0) complain(0, "building the defaults gives " + std::to_string(result));
  ++board_.defaults_finished;
  board_.add(kDefaultsBuilt);
}

// ---- Reading ----

StoreUser::Floor StoreUser::floor(unsigned item, From from) const {
  const std::array<Number, 2> pair = {board_.acknowledged_pair[0], board_.acknowledged_pair[1]};
  return {from, board_.items[item].before(from), pair};
}

void StoreUser::read(unsigned item, From from) {
  const Floor before = floor(item, from);
  board_.add(from == From::kFile ? kReads : kCachedReads);
  const std::int32_t result = timed([&] {
    return vexa_dm_read(handle_, static_cast<std::int32_t>(item),
                        reinterpret_cast<std::uint8_t*>(buffer_.data()), kCapacity);
  });
  cached_[item].clear();
  if (result < 0) return judge_nothing(item, before, result);
  const std::string_view value = delivered(result);
  if (value == (item == kPairs ? kDefaultPairs : kDefault)) return accept_default(item, before);
  cached_[item] = value;
  judge(item, before, value);
}

void StoreUser::read_file(unsigned item) {
  const Floor before = floor(item, From::kFile);
  board_.add(kReads);
  const std::int32_t result = timed(
      [&] { return vexa_dm_read_db(handle_, static_cast<std::int32_t>(item), buffer_.data(), kCapacity); });
  if (result != 0) return judge_nothing(item, before, result);
  judge(item, before, buffer_.data());
}

void StoreUser::refresh(unsigned item) {
  const Floor before = floor(item, From::kFileIntoCache);
  board_.add(kReads);
  const std::int32_t result = timed([&] {
    return vexa_dm_read_from_dbconfigfile(handle_, static_cast<std::int32_t>(item),
                                          reinterpret_cast<std::uint8_t*>(buffer_.data()), kCapacity);
  });
  if (result != 0) return judge_nothing(item, before, result);
  cached_[item] = buffer_.data();
  judge(item, before, buffer_.data());
}

void StoreUser::read_again(unsigned item) {
  if (cached_[item].empty()) return read(item, From::kFile);
  board_.add(kCachedReads);
  const std::int32_t result = timed([&] {
    return vexa_dm_read(handle_, static_cast<std::int32_t>(item),
                        reinterpret_cast<std::uint8_t*>(buffer_.data()), kCapacity);
  });
  if (result < 0 || delivered(result) != cached_[item]) complain(item, "the cache has another value");
}

// ---- Judging ----

void StoreUser::judge(unsigned item, const Floor& floor, std::string_view value) {
  if (item == kPairs) return judge_pairs(floor, value);
  const std::optional<Number> number = number_of(item, value);
  if (number) return accept(item, floor, *number);
  complain(item,
           "a torn value of " + std::to_string(value.size()) + " bytes: " + std::string(value.substr(0, 48)));
}

void StoreUser::judge_pairs(const Floor& floor, std::string_view text) {
  std::string_view left = text;
  const std::optional<Number> even = take_pair(left, 0);
  const std::optional<Number> odd = take_pair(left, 1);
  if (!even || !odd || !left.empty()) {
    return complain(kPairs, "a torn text: " + std::string(text.substr(0, 100)));
  }
  accept(kPairs, floor, std::max(*even, *odd));
  if (*even < floor.pair[0] || *odd < floor.pair[1]) {
    complain(kPairs, "a pair is lost: " + std::to_string(*even) + " and " + std::to_string(*odd));
  }
}

// A negative code, or 3: no value is stored, and nothing stands in for it.
void StoreUser::judge_nothing(unsigned item, const Floor& floor, std::int32_t code) {
  if (late_) return board_.add(kLateReads);
  // vexa_dm_read alone gives -1, where the stored defaults lack the item.
  if (code == -1) {
    if (!defaults_unfinished()) complain(item, "neither value nor default");
    board_.add(kDefaultsCut);
  }
  accept_default(item, floor);
}

void StoreUser::accept(unsigned item, const Floor& floor, Number number) {
  if (board_.items[item].accept(floor.from, floor.item, number)) return;
  complain(item, "found " + std::to_string(number) + ", where " + std::to_string(floor.item.lowest) +
                     " is the lowest possible");
}

void StoreUser::accept_default(unsigned item, const Floor& floor) {
  if (late_) return board_.add(kLateReads);
  ItemHistory& history = board_.items[item];
  // The key-value text is never emptied.
  const bool possible =
      item == kPairs ? history.accept(From::kFile, floor.item, 0) : history.accept_default(floor.item);
  if (possible) return;
  complain(item, "found no value, where " + std::to_string(floor.item.lowest) + " is the lowest possible");
}

}  // namespace vexa_test
