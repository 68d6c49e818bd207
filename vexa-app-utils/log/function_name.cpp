// SPDX-License-Identifier: MIT
// Function names as log lines show them.
#include <array>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "vexadm/log.h"

namespace {

constexpr std::string_view kVendor = "vexa";
constexpr std::string_view kShown = "oem";
static_assert(kShown.size() + 1 == kVendor.size());  // each replacement makes the name one shorter

using FailureTable = std::array<std::size_t, kVendor.size()>;

// For each matched length, how much of the word is matched still after the next character misses.
constexpr FailureTable failure_table() {
  FailureTable table{};
  std::size_t matched = 0;
  for (std::size_t i = 1; i < kVendor.size(); ++i) {
    while (matched > 0 && kVendor[i] != kVendor[matched]) matched = table[matched - 1];
    if (kVendor[i] == kVendor[matched]) ++matched;
    table[i] = matched;
  }
  return table;
}

constexpr FailureTable kFailure = failure_table();

// Knuth-Morris-Pratt over a name, one character at a time. Occurrences do not overlap.
class VendorMatcher {
 public:
  // True when this character completes an occurrence.
  bool completes(char c) {
    while (matched_ > 0 && c != kVendor[matched_]) matched_ = kFailure[matched_ - 1];
    if (c == kVendor[matched_]) ++matched_;
    if (matched_ < kVendor.size()) return false;
    matched_ = 0;
    return true;
  }

 private:
  std::size_t matched_ = 0;
};

std::size_t count_vendor(std::string_view name) {
  VendorMatcher matcher;
  std::size_t count = 0;
  for (const char c : name) count += matcher.completes(c) ? 1U : 0U;
  return count;
}

}  // namespace

char* rewrite_func_name(const char* name) {
  if (!name) return nullptr;
  const std::string_view given(name);
  char* const copy = static_cast<char*>(std::malloc(given.size() + 1 - count_vendor(given)));
  if (!copy) return nullptr;

  VendorMatcher matcher;
  char* end = copy;
  for (const char c : given) {
    if (matcher.completes(c)) {
      std::memcpy(end - kShown.size(), kShown.data(), kShown.size());
    } else {
      *end++ = c;
    }
  }
  *end = '\0';
  return copy;
}
