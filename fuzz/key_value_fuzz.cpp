// SPDX-License-Identifier: MIT
// Key-value text of any content, over a backend in memory: the pairs read are those of the text,
// the text written is the one that docs describe, and no buffer is overrun.
#include <vexadm/data_manager.h>

#include <cstring>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "fuzz_target.h"

using vexa_fuzz::check;

namespace {

using Pair = std::pair<std::string, std::string>;
constexpr std::size_t kRow = VEXA_DM_KEY_VALUE_ROW_SIZE;
constexpr std::size_t kMost = DM_MAX_KEY_VALUE_STRLEN;

// ---- The backend: one item, whichever is asked for ----

struct Backend {
  std::optional<std::string> stored;
  std::int32_t missing = -1;
  std::int32_t write_result = 0;
  bool leaves_bytes_behind = false;  // as one that finds a checksum wrong after the copy
} backend;

std::int32_t backend_write(std::uint32_t, const vexa_dm_item_desc*, const void* data, std::int32_t length) {
  check(length >= 0, "the backend is handed a negative length");
  if (backend.write_result != 0) return backend.write_result;
  backend.stored = std::string(static_cast<const char*>(data), static_cast<std::size_t>(length));
  return 0;
}

std::int32_t backend_read(std::uint32_t, const vexa_dm_item_desc*, std::uint8_t* buffer,
                          std::int32_t length) {
  if (!backend.stored || backend.stored->empty()) {
    if (backend.leaves_bytes_behind) std::memset(buffer, 'z', static_cast<std::size_t>(length));
    return backend.missing;
  }
  const std::size_t count = std::min(backend.stored->size(), static_cast<std::size_t>(length));
  std::memcpy(buffer, backend.stored->data(), count);
  return static_cast<std::int32_t>(count);
}

// ---- The items: none, short, long and wide defaults ----

const std::string long_text(1500, 'l');
const std::string block = "a,1;b,2;" + std::string(3000, '\0');
vexa_dm_default_item items[] = {
    {1, {"CFG", "none", 5}, {}, 5, -1},   {2, {"CFG", "text", 5}, {}, 5, 8},
    {3, {"CFG", "long", 5}, {}, 5, 1500}, {4, {"CFG", "block", 6}, {}, 6, 3008},
    {5, {"CFG", "byte", 1}, {}, 1, 1},    {-1, {}, {}, 0, 0},
};
constexpr unsigned kItems = 5;
vexa_dm_handle* handle = nullptr;

// What a read of the item with the capacity of a text gives; nothing where it fails.
std::optional<std::string> expected_text(unsigned item) {
  std::string text;
  if (backend.stored && !backend.stored->empty()) {
    text = backend.stored->substr(0, kMost);
  } else {
    switch (item) {
      case 0:
        return std::nullopt;
      case 1:
        text = "k,v;m,n;";
        break;
      case 2:
        text = long_text.substr(0, kMost);
        break;
      case 3:
        text = block;
        break;
      default:
        text = "7";
        break;
    }
  }
  return text.substr(0, text.find('\0'));
}

std::vector<Pair> pairs_of(const std::string& text) {
  std::vector<Pair> pairs;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find(';', at), text.size());
    const std::string pair = text.substr(at, end - at);
    if (pair.empty()) break;
    const std::size_t comma = std::min(pair.find(','), pair.size());
    pairs.emplace_back(pair.substr(0, comma), pair.substr(std::min(comma + 1, pair.size())));
    at = end + 1;
  }
  return pairs;
}

std::string with_pair(const std::string& text, const std::string& key, const std::string& value) {
  const std::size_t at = text.find(key + ",");
  if (at == std::string::npos) return text + key + "," + value + ";";
  const std::size_t end = text.find(';', at);
  const std::string rest = end == std::string::npos ? "" : text.substr(end + 1);
  return text.substr(0, at) + key + "," + value + ";" + rest;
}

// ---- The calls ----

std::size_t bytes_needed(const std::vector<Pair>& pairs, std::string Pair::*part) {
  std::size_t most = 1;
  for (std::size_t i = 0; i < pairs.size(); ++i) {
    most = std::max(most, i * kRow + (pairs[i].*part).size() + 1);
  }
  return most;
}

void read_pairs(unsigned item) {
  const std::optional<std::string> text = expected_text(item);
  const std::vector<Pair> pairs = text ? pairs_of(*text) : std::vector<Pair>();
  // Exactly what the rows take, so that one byte more is seen.
  const auto keys = std::make_unique<char[]>(bytes_needed(pairs, &Pair::first));
  const auto values = std::make_unique<char[]>(bytes_needed(pairs, &Pair::second));
  std::int32_t count = -7;
  const std::int32_t result =
      vexa_dm_read_key_value_pairs(handle, item + 1, reinterpret_cast<char(*)[kRow]>(keys.get()),
                                   reinterpret_cast<char(*)[kRow]>(values.get()), &count);
  check(result == (text ? 0 : -1), "reading pairs gives another result");
  check(count == static_cast<std::int32_t>(pairs.size()), "another number of pairs");
  for (std::size_t i = 0; i < pairs.size(); ++i) {
    // A row longer than its place is overwritten by the next.
    if (pairs[i].first.size() < kRow) check(keys.get() + i * kRow == pairs[i].first, "another key");
    if (pairs[i].second.size() < kRow) check(values.get() + i * kRow == pairs[i].second, "another value");
  }
}

void write_pair(unsigned item, const std::string& raw_key, const std::string& raw_value) {
  const std::string key = raw_key.c_str();
  const std::string value = raw_value.c_str();
  const std::optional<std::string> text = expected_text(item);
  const std::optional<std::string> before = backend.stored;
  std::int32_t length = -7;
  const std::int32_t result =
      vexa_dm_write_key_value_pairs(handle, item + 1, key.c_str(), value.c_str(), &length);
  if (key.empty() || value.empty() || key.size() + value.size() > VEXA_DM_KEY_VALUE_PAIR_MAX) {
    check(result == 3 && length == -7, "a pair of bad length is taken");
  } else if (!text) {
    check(result == -1, "a pair is put into an item that cannot be read");
  } else if (key.size() + value.size() + 2 + text->size() > kMost) {
    check(result == 3, "a text grows beyond its limit");
  } else {
    const std::string expected = with_pair(*text, key, value).substr(0, kMost - 1);
    check(length == static_cast<std::int32_t>(expected.size()), "another length is told");
    if (expected == *text && (result == 0)) return;  // equal to what a read gives: nothing to write
    check(result == backend.write_result, "another result than the backend's");
    if (result == 0) check(backend.stored == expected, "another text is stored");
    return;
  }
  check(backend.stored == before, "a refused pair changes the item");
}

// The cache has the item in the backend's stead once it was read: forget it.
void forget(unsigned item) {
  const Backend kept = std::exchange(backend, Backend());
  check(vexa_dm_empty(handle, static_cast<std::int32_t>(item) + 1) == 0, "an item cannot be emptied");
  backend = kept;
}

}  // namespace

void vexa_fuzz::set_up() {
  items[1].value.text = "k,v;m,n;";
  items[2].value.text = long_text.c_str();
  items[3].value.block = block.data();
  items[4].value.u8 = '7';
  check(vexa_dm_reg_def_items(items) == 0, "items cannot be registered");
  handle = vexa_dm_reg(2);  // a type without a backend of its own
  handle->ops = {backend_write, backend_read, nullptr, nullptr, nullptr, nullptr, nullptr};
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const vexa_fuzz::Watch watch;
  vexa_fuzz::Source source(data, size);
  backend = Backend();
  const unsigned item = source.below(kItems);
  forget(item);
  const unsigned kind = source.byte();
  backend.missing = (kind & 1) != 0 ? -100 : -1;
  backend.leaves_bytes_behind = (kind & 2) != 0;
  if ((kind & 4) != 0) backend.stored = source.bytes(source.below(1200));
  for (int steps = 0; source.left() > 0 && steps < 16; ++steps) {
    const unsigned step = source.byte();
    backend.write_result = step % 8 == 7 ? -1 : 0;
    if (step % 4 == 0) {
      read_pairs(item);
    } else {
      const std::string key = source.bytes(source.below(step % 16 == 15 ? 600 : 12));
      write_pair(item, key, source.bytes(source.below(step % 16 == 14 ? 600 : 12)));
    }
  }
  return 0;
}
