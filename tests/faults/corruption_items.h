// SPDX-License-Identifier: MIT
// What the store holds before the corruption tests damage it.
#ifndef VEXADM_TESTS_FAULTS_CORRUPTION_ITEMS_H
#define VEXADM_TESTS_FAULTS_CORRUPTION_ITEMS_H

#include <cstddef>
#include <string>
#include <vector>

#include "support/storage_fixture.h"

namespace vexa_test {

inline constexpr std::size_t kPage = 4096;
inline const std::vector<std::string> kFiles = {kPrimary, kBackup, kJournal, kDefaults, kFactory};
inline constexpr const char* kDefaultKeys[] = {"cfg_key_aaa", "cfg_key_bbb"};

inline std::string default_of(const std::string& key) { return "default of " + key; }

// No two rows have a key in common: a page of another table is never an answer.
inline std::vector<Item> items_of(const std::string& origin) {
  std::vector<Item> items;
  for (unsigned i = 0; i < 14; ++i) {
    const std::string table = i < 10 ? "cfg" : "net";
    const std::string key = table + "_key_" + std::string(3, static_cast<char>('a' + i));
    std::string value = origin + " value of " + key + " ";
    const std::size_t size = i == 4 ? 9000 : 20 + 37 * i;
    while (value.size() < size) value += static_cast<char>('A' + (value.size() * 7 + i) % 50);
    items.push_back({table, 100 + i, key, i == 11 ? 5 : 6, value});
  }
  return items;
}

// In primary and backup.
inline const std::vector<Item>& current_items() {
  static const std::vector<Item> items = items_of("current");
  return items;
}

// In the factory copy.
inline const std::vector<Item>& factory_items() {
  static const std::vector<Item> items = items_of("factory");
  return items;
}

// What is written after the damage.
inline const Item kChanged = {"cfg", 103, "cfg_key_ddd", 6, "a new value after the damage, and a word more"};

}  // namespace vexa_test

#endif
