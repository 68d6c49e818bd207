// SPDX-License-Identifier: MIT
// What the library may do with damaged files. Looks at them, starts the library, reads, writes and
// reads again, and holds each answer against what the files held.
#ifndef VEXADM_TESTS_FAULTS_CORRUPTION_ORACLE_H
#define VEXADM_TESTS_FAULTS_CORRUPTION_ORACLE_H

#include <cstddef>
#include <map>
#include <set>
#include <string>

#include "faults/corruption_facts.h"
#include "faults/corruption_items.h"

namespace vexa_test {

// For a process of its own. Prints "note:<name>" for each thing that is given up, by the name
// under which the caveats have it; whatever else is given up fails the test.
class CorruptionOracle {
 public:
  static constexpr const char* kNote = "note:";

  void run();

 private:
  using ByKey = std::map<std::string, bool>;  // whether the stored value was read

  ByKey read_all(const char* when);
  bool read_one(const Item& item, const char* when);
  bool is_explained(const Item& item, const std::string& value);
  bool write();
  bool must_succeed() const;
  std::string cause_of(std::int32_t code) const;
  std::string cause_of_refusal() const;
  void explain_reads(const ByKey& before) const;
  void explain_losses(const ByKey& before, const ByKey& after, bool written) const;
  bool said(const std::string& text) const;
  bool write_said(const char* text) const;
  std::string lines_of_the_write() const;

  const Facts primary_ = facts_of(kPrimary, current_items());
  const Facts backup_ = facts_of(kBackup, current_items());
  const Facts factory_ = facts_of(kFactory, factory_items());
  LogCapture log_;
  std::size_t log_at_write_ = 0;
};

}  // namespace vexa_test

#endif
