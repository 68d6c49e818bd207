// SPDX-License-Identifier: MIT
// One start of the router's software: a handle, the registered items, and shorthand for both.
#ifndef VEXADM_EXAMPLES_DEMO_STORE_H
#define VEXADM_EXAMPLES_DEMO_STORE_H

#include <vexadm/vexadm.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace demo {

class Store {
 public:
  // Registers backend and items; the first of a process looks at the files and mends them.
  Store();
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;
  ~Store();

  vexa_dm_handle* handle() const { return handle_; }

  // The bytes of the item, or nothing and a negative result.
  std::string read(int32_t id, int32_t* result = nullptr) const;
  // As people read it.
  std::string shown(int32_t id) const;
  bool write(int32_t id, std::string_view bytes) const;

 private:
  vexa_dm_handle* handle_;
};

// What the owner of the router sets in this story: one item of each value type at least.
using Change = std::pair<int32_t, std::string>;
const std::vector<Change>& changes();
// How many of them the store still holds.
int changes_kept(const Store& store);

// "3 of 5"
std::string of(int count, std::size_t total);

}  // namespace demo

#endif
