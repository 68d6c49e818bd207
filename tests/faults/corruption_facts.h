// SPDX-License-Identifier: MIT
// What a file of the store holds, seen without the library and without changing it.
#ifndef VEXADM_TESTS_FAULTS_CORRUPTION_FACTS_H
#define VEXADM_TESTS_FAULTS_CORRUPTION_FACTS_H

#include <map>
#include <string>
#include <vector>

#include "support/storage_fixture.h"

namespace vexa_test {

struct Facts {
  bool reachable = false;   // a file, or a name that a file can be made under
  bool empty = false;       // counts as healthy: SQLite makes the database anew
  bool obstructed = false;  // no file, but something else, under the name of a companion of SQLite
  int prepare = SQLITE_OK;
  bool healthy = false;               // by the quick check
  bool takes_rows = false;            // a row of the item to be written can be written
  bool healthy_then = false;          // by the quick check once a row is written: that mends some headers
  std::map<std::string, bool> holds;  // by key: the row is there with its value

  bool has(const std::string& key) const {
    const auto found = holds.find(key);
    return found != holds.end() && found->second;
  }
};

Facts facts_of(const std::string& path, const std::vector<Item>& items);

}  // namespace vexa_test

#endif
