// SPDX-License-Identifier: MIT
// The items of the power-cut tests, the values that are written to them, and what a program that
// was told "stored" may rely on.
#ifndef VEXADM_TESTS_FAULTS_POWER_CUT_ITEMS_H
#define VEXADM_TESTS_FAULTS_POWER_CUT_ITEMS_H

#include <vexadm/vexadm.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace vexa_test {

enum ItemId : std::int32_t {
  kChannel = 1,
  kAddress,
  kName,
  kPairs,
  kBlock,
  kLarge,  // spills into overflow pages
  kNeverWritten,
  kProbe,  // written by the starts after the cut
};
inline constexpr std::array<std::int32_t, 8> kItemIds = {kChannel, kAddress, kName,         kPairs,
                                                         kBlock,   kLarge,   kNeverWritten, kProbe};

inline vexa_dm_default_item* power_cut_items() {
  static std::array<std::uint8_t, 24> block = {0xb0, 0xb1, 0xb2};
  // clang-format off
  static std::array<vexa_dm_default_item, kItemIds.size() + 1> items = {{
      {kChannel,      {"wifi", "channel", 0}, {.u8 = 7},               VEXA_DM_U8,     1},
      {kAddress,      {"lan",  "address", 0}, {.u32 = 0xd0d0d0d0},     VEXA_DM_U32,    4},
      {kName,         {"wifi", "name", 0},    {.text = "router"},      VEXA_DM_STRING, 6},
      {kPairs,        {"lan",  "hosts", 0},   {.text = "self,0;"},     VEXA_DM_STRING, 7},
      {kBlock,        {"lan",  "routes", 0},  {.block = block.data()}, VEXA_DM_BLOCK,  24},
      {kLarge,        {"cert", "chain", 0},   {.block = block.data()}, VEXA_DM_BLOCK,  24},
      {kNeverWritten, {"sys",  "zone", 0},    {.text = "UTC"},         VEXA_DM_STRING, 3},
      {kProbe,        {"sys",  "probe", 0},   {.text = "none"},        VEXA_DM_STRING, 4},
      {-1, {}, {}, 0, 0},
  }};
  // clang-format on
  return items.data();
}

inline std::string default_value(std::int32_t id) {
  const vexa_dm_default_item& item = power_cut_items()[id - 1];
  const auto length = static_cast<std::size_t>(item.length);
  if (item.type == VEXA_DM_STRING) return item.value.text;
  if (item.type == VEXA_DM_BLOCK) return {static_cast<const char*>(item.value.block), length};
  return {reinterpret_cast<const char*>(&item.value), length};
}

// The n-th value of an item, n up to 99999: bytes that differ from those of every other in each
// of their sectors, so that a mixture is recognised. 0 is the default, which an emptied item
// reads as.
inline std::string item_value(std::int32_t id, int n) {
  if (n == 0) return default_value(id);
  const auto number = static_cast<std::uint32_t>(n);
  if (id == kChannel) return {static_cast<char>(8 + n % 240)};
  if (id == kAddress) return {reinterpret_cast<const char*>(&number), sizeof number};
  if (id == kPairs) return "self,0;peer," + std::to_string(n) + ";";
  const std::map<std::int32_t, std::size_t> sizes = {{kName, 20 + number % 7 * 9},
                                                     {kBlock, 300},
                                                     {kLarge, n % 2 != 0 ? 6000 : 9500},
                                                     {kProbe, 40},
                                                     {kNeverWritten, 10}};
  const std::string word = std::to_string(id) + ":" + std::to_string(n) + ".";
  std::string value;
  while (value.size() < sizes.at(id)) value += word;
  value.resize(sizes.at(id));
  return value;
}

// What the marks of a recording have promised so far.
struct Promise {
  // Numbers that a read may give: what was acknowledged, then those of calls that have begun.
  std::map<std::int32_t, std::vector<int>> values;
  // What a program has read after an earlier cut, where it was not the newest of them.
  std::map<std::int32_t, int> seen;
  // What was acknowledged although the primary failed its check, so that no backup has it.
  std::map<std::int32_t, int> owed;
  bool defaults_begun = false;
  bool defaults_done = false;
  bool cleaning = false;
  bool cleaned = false;
  bool damaged = false;  // the primary, where only its check meets it

  Promise() {
    for (const std::int32_t id : kItemIds) values[id] = {0};
  }

  bool half_defaults() const { return defaults_begun && !defaults_done; }
  bool allows(std::int32_t id, int n) const {
    const std::vector<int>& allowed = values.at(id);
    return std::find(allowed.begin(), allowed.end(), n) != allowed.end();
  }

  // "begin 3 2", "done 3 2", "saw 3 2", "now 3 2"; "begin defaults", "done clean", "damaged".
  void take(const std::string& mark) {
    std::istringstream words(mark);
    std::string word;
    std::string what;
    int n = 0;
    words >> word >> what >> n;
    const bool done = word == "done";
    if (word == "damaged") {
      damaged = true;
    } else if (what == "defaults") {
      defaults_begun = true;
      defaults_done = defaults_done || done;
    } else if (what == "clean") {
      cleaning = !done;
      if (done) *this = after_a_clean();
    } else {
      take(word, std::stoi(what), n);
    }
  }

  std::string text() const {
    std::string shown = defaults_done ? "defaults made" : defaults_begun ? "defaults begun" : "no defaults";
    if (cleaned) shown += ", cleaned";
    if (cleaning) shown += ", clean begun";
    if (damaged) shown += ", primary damaged";
    for (const auto& [id, numbers] : values) {
      shown += ", item " + std::to_string(id) + " =";
      for (const int number : numbers) shown += " " + std::to_string(number);
    }
    for (const auto& [id, n] : seen) shown += ", item " + std::to_string(id) + " seen " + std::to_string(n);
    return shown;
  }

 private:
  Promise after_a_clean() const {
    Promise promise;
    promise.defaults_begun = defaults_begun;
    promise.defaults_done = defaults_done;
    promise.cleaned = true;
    return promise;
  }

  void take(const std::string& word, std::int32_t id, int n) {
    std::vector<int>& allowed = values[id];
    if (word == "begin") {
      std::erase(allowed, n);
      allowed.push_back(n);
    } else if (word == "saw" && n != allowed.back()) {
      seen[id] = n;
    } else if (word == "done" && damaged) {
      owed[id] = n;
    } else {
      allowed = {n};
      seen.erase(id);
    }
  }
};

}  // namespace vexa_test

#endif
