// SPDX-License-Identifier: MIT
// Stores of known size, on real storage, for library and floor alike.
#ifndef VEXADM_BENCH_STORE_H
#define VEXADM_BENCH_STORE_H

#include <vexadm/vexadm.h>

#include <cstddef>
#include <string>
#include <vector>

namespace bench {

inline constexpr char kTable[] = "items";
inline constexpr char kVersionTable[] = "SQL_VER_TAB";
inline constexpr char kVersionKey[] = "SQL_VER_KEY";
inline constexpr int kMostItems = 1000;

// Makes the benchmarks' directory the working directory. VEXA_BENCH_DIR names one; without it,
// one beside the program is made and later removed. A memory file system makes syncs free, so
// the numbers of a store mean little there.
class WorkingDirectory {
 public:
  WorkingDirectory();
  WorkingDirectory(const WorkingDirectory&) = delete;
  WorkingDirectory& operator=(const WorkingDirectory&) = delete;
  ~WorkingDirectory();

 private:
  std::string made_;
};

// The item of that number is registered as this id, in kTable under key_of(number).
int32_t id_of(int number);
std::string key_of(int number);

// The handle of this process, with kMostItems items of one size registered. On the first call
// the backend looks at the store that is selected.
vexa_dm_handle* handle();
// An item table of kMostItems rows, for registration.
std::vector<vexa_dm_default_item> item_table(const char* text);

// Caches every item with a short value. Before anything else: the cache keeps the order of first
// stores and is searched from its start, so the first n items then cost what a cache of n costs.
inline constexpr int kCachedSize = 4;
void fill_cache();

// A directory with primary, backup and journal of that many items of that many bytes each, made
// when it is not there, and selected as the library's store area.
void select_store(std::size_t value_size, int items);

}  // namespace bench

#endif
