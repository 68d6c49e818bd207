// SPDX-License-Identifier: MIT
#include "call_budget.h"

#include <vexadm/storage.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <ctime>

namespace vexa {
namespace {

struct Budget {
  int depth;
  int64_t deadline_us;        // 0 until the first wait
  int64_t share_us;           // 0: no share
  int64_t share_deadline_us;  // 0 until the first wait of the share
  bool gave_up;
};

// Initial-exec: no call into the dynamic loader on each access, and none to link with.
[[gnu::tls_model("initial-exec")]] thread_local constinit Budget budget{};

int64_t monotonic_us() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return int64_t{now.tv_sec} * 1000000 + now.tv_nsec / 1000;
}

}  // namespace

void CallBudget::open() {
  if (budget.depth++ != 0) return;
  budget.deadline_us = 0;
  budget.gave_up = false;
}

void CallBudget::close() { --budget.depth; }

CallBudget::Share::Share(int most_ms) {
  budget.share_us = int64_t{most_ms} * 1000;
  budget.share_deadline_us = 0;
}

CallBudget::Share::~Share() { budget.share_us = 0; }

bool CallBudget::wait(int attempt) {
  const int64_t now = monotonic_us();
  if (budget.deadline_us == 0) budget.deadline_us = now + int64_t{VEXA_STORAGE_BUSY_MS} * 1000;
  if (budget.share_deadline_us == 0) budget.share_deadline_us = now + budget.share_us;
  int64_t left = budget.deadline_us - now;
  if (budget.share_us != 0) left = std::min(left, budget.share_deadline_us - now);
  if (left <= 0) {
    budget.gave_up = true;
    return false;
  }

  // A writer holds its lock for a few milliseconds: start short, never oversleep the budget.
  constexpr int64_t kShortestUs = 500;
  constexpr int64_t kLongestUs = 20000;
  const int64_t pause = std::min({kShortestUs << std::min(attempt, 6), kLongestUs, left});
  const timespec request{static_cast<time_t>(pause / 1000000), static_cast<long>(pause % 1000000 * 1000)};
  nanosleep(&request, nullptr);
  return true;
}

void CallBudget::give_up() { budget.gave_up = true; }

bool CallBudget::gave_up() { return budget.gave_up; }

}  // namespace vexa
