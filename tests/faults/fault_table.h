// SPDX-License-Identifier: MIT
// How many faults a test tries, and the table of what came of them.
//
// Each test tries as many as fit into the everyday run. VEXA_FAULTS=long (./dev fault) makes it
// the long form; a variable of its own, named where it is used, sets any other number. The table
// is the file that VEXA_FAULT_TABLE names: a line for each test, of which tools/fault-table makes
// the sums.
#ifndef VEXADM_TESTS_FAULTS_FAULT_TABLE_H
#define VEXADM_TESTS_FAULTS_FAULT_TABLE_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

#include "support/emulated.h"

namespace vexa_test {

inline bool is_long_form() {
  const char* const form = std::getenv("VEXA_FAULTS");
  return form != nullptr && std::strcmp(form, "long") == 0;
}

inline std::uint64_t how_many(const char* variable, std::uint64_t everyday, std::uint64_t long_form) {
  const char* const text = std::getenv(variable);
  if (text != nullptr) return std::strtoull(text, nullptr, 10);
  return is_long_form() ? long_form : everyday;
}

// Emulated code is some ten times slower: of the everyday run's cases it tries each fourth, and what
// goes by strides takes those of instrumented code. The native run, on the same sources, tries all.
constexpr unsigned kOneOfEmulated = 4;

// For a number of cases: so many of them everyday.
inline std::uint64_t how_many_cases(const char* variable, std::uint64_t everyday, std::uint64_t long_form) {
  if (is_emulated()) everyday = everyday > kOneOfEmulated ? everyday / kOneOfEmulated : 1;
  return how_many(variable, everyday, long_form);
}

// What one test has tried.
struct FaultCount {
  const char* kind = "";  // "power cut", "kill", "failing call", ...: the rows of the table
  std::uint64_t tried = 0;
  std::uint64_t failed = 0;
  // Cases in which a value was given up, or less was done than 0 seems to say, by the name under
  // which the caveats have it. A case may stand under several.
  std::map<std::string, std::uint64_t> named = {};
  std::uint64_t with_a_name = 0;  // cases that stand under any
};

inline void report(const FaultCount& count) {
  const ::testing::TestInfo& test = *::testing::UnitTest::GetInstance()->current_test_info();
  std::string line = std::string(count.kind) + "\t" + test.test_suite_name() + "." + test.name() + "\t" +
                     std::to_string(count.tried) + "\t" + std::to_string(count.failed) + "\t" +
                     std::to_string(count.with_a_name);
  for (const auto& [name, cases] : count.named) line += "\t" + name + "=" + std::to_string(cases);
  std::printf("%s\n", line.c_str());
  line += '\n';
  const char* const table = std::getenv("VEXA_FAULT_TABLE");
  if (table == nullptr) return;
  const int fd = open(table, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  // One call: tests that run beside each other append to one file.
  EXPECT_EQ(write(fd, line.data(), line.size()), static_cast<ssize_t>(line.size())) << table;
  close(fd);
}

}  // namespace vexa_test

#endif
