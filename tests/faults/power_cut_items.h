// SPDX-License-Identifier: MIT
// The items of the power-cut test, the values that are written to them, and what a program that
// was told "stored" may rely on.
#ifndef VEXADM_TESTS_FAULTS_POWER_CUT_ITEMS_H
#define VEXADM_TESTS_FAULTS_POWER_CUT_ITEMS_H

#include <vexadm/vexadm.h>

#include <array>
#include <cstdint>
#include <map>
#include <set>
#include <sstream>
#include <string>

namespace vexa_test {

enum ItemId : std::int32_t {
  kChannel = 1,
  kAddress,
  kName,
  kPairs,
  kBlock,
  kLarge,  // spills into overflow pages
  kNeverWritten,
  kProbe,  // written by the start after the cut
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

// The n-th value of an item: bytes that differ from those of every other everywhere, so that a
// mixture is recognised. 0 is the default, which an emptied item reads as.
inline std::string item_value(std::int32_t id, int n) {
  if (n == 0) return default_value(id);
  if (id == kPairs) return "self,0;peer," + std::to_string(n) + ";";
  const std::map<std::int32_t, std::size_t> sizes = {{kChannel, 1},
                                                     {kAddress, 4},
                                                     {kName, 20U + 9U * static_cast<unsigned>(n)},
                                                     {kBlock, 300},
                                                     {kLarge, n % 2 != 0 ? 6000 : 9500},
                                                     {kProbe, 40},
                                                     {kNeverWritten, 1}};
  std::string value;
  const std::size_t size = sizes.at(id);
  while (value.size() < size)
    value += static_cast<char>('a' + (value.size() / 16 + 3U * static_cast<unsigned>(n)) % 26);
  return value;
}

// What the marks of a recording have promised so far.
struct Promise {
  // Numbers that a read may give; a call that has not returned adds its own.
  std::map<std::int32_t, std::set<int>> values;
  bool defaults_begun = false;
  bool defaults_done = false;
  bool clean_begun = false;
  bool clean_done = false;

  Promise() {
    for (const std::int32_t id : kItemIds) values[id] = {0};
  }

  // "begin 3 2", "done 3 2"; item 0 is the default database, item -1 all of them: a clean.
  void take(const std::string& mark) {
    std::istringstream words(mark);
    std::string word;
    std::int32_t id = 0;
    int number = 0;
    words >> word >> id >> number;
    const bool done = word == "done";
    if (id < 0) {
      clean_begun = true;
      clean_done = clean_done || done;
    } else if (id == 0) {
      defaults_begun = true;
      defaults_done = defaults_done || done;
    } else if (done) {
      values[id] = {number};
    } else {
      values[id].insert(number);
    }
  }

  std::string text() const {
    std::string shown = defaults_done ? "defaults made" : defaults_begun ? "defaults begun" : "no defaults";
    if (clean_begun) shown += clean_done ? ", cleaned" : ", clean begun";
    for (const auto& [id, numbers] : values) {
      shown += ", item " + std::to_string(id) + " =";
      for (const int number : numbers) shown += " " + std::to_string(number);
    }
    return shown;
  }
};

}  // namespace vexa_test

#endif
