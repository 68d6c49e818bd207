// SPDX-License-Identifier: MIT
// The runs that are cut.
#ifndef VEXADM_TESTS_FAULTS_POWER_CUT_SCENARIOS_H
#define VEXADM_TESTS_FAULTS_POWER_CUT_SCENARIOS_H

#include <ostream>
#include <span>
#include <vector>

#include "faults/power_cut_stage.h"

namespace vexa_test {

struct Scenario {
  const char* name;
  const char* kind;  // the row of the table of faults
  // Long ones only differ by their seed; the others take no notice of it.
  std::vector<Stage> (*record)(unsigned seed);
  unsigned seeds_everyday;
  unsigned seeds_long;
  unsigned first_seed;
};

inline void PrintTo(const Scenario& scenario, std::ostream* stream) { *stream << scenario.name; }

std::span<const Scenario> scenarios();

// Several programs one after the other on a device in use; what they do is drawn from the seed.
std::vector<Stage> random_writes(unsigned seed);

// Primary and backup in directories of their own, on file systems of their own.
inline StoreArea moved_area() { return {"/vexanv/store/", "/vexanvbak/second/"}; }

}  // namespace vexa_test

#endif
