// SPDX-License-Identifier: MIT
// The store's files as a fuzz input finds them, and what it does to them.
#ifndef VEXADM_FUZZ_STORE_DAMAGE_H
#define VEXADM_FUZZ_STORE_DAMAGE_H

#include <array>
#include <string>

#include "fuzz_target.h"

namespace vexa_fuzz {

inline constexpr std::array<const char*, 5> kFiles = {"/data/config.db", "/data/configbak.db",
                                                      "/data/state.db", "/data/DefItems.db",
                                                      "/vexanvbak/data/config.db"};

// The sound files, which the library has made.
class GoodFiles {
 public:
  void take();
  void put_back() const;
  // A page of 512 bytes of one of them, chosen by the input.
  std::string page(Source& source) const;

 private:
  std::array<std::string, kFiles.size()> bytes_;
};

// More often the files that matter most.
const char* choose_file(Source& source);

// Takes a damage from the input and does it.
void damage(Source& source, const GoodFiles& good);

// Ends the process when an input has left a file of a name that the store does not know.
void check_names_in_data();

}  // namespace vexa_fuzz

#endif
