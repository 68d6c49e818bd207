// SPDX-License-Identifier: MIT
#include "faults/failing_alloc.h"

#include <malloc.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>

namespace vexa_test {
namespace {

struct State {
  bool armed = false;
  FaultPlan plan;
  std::uint64_t seen = 0;
  std::uint64_t failed = 0;
  std::size_t first_size = 0;
  std::array<bool, 4096> zeroed = {};
};

State g_state;
std::int64_t g_blocks = 0;

[[maybe_unused]] bool refused(std::size_t size, bool zeroed = false) {
  if (!g_state.armed) return false;
  const std::uint64_t n = ++g_state.seen;
  if (n <= g_state.zeroed.size()) g_state.zeroed[static_cast<std::size_t>(n - 1)] = zeroed;
  const FaultPlan& plan = g_state.plan;
  if (plan.from == 0 || n < plan.from || n - plan.from >= plan.count) return false;
  if (g_state.failed++ == 0) g_state.first_size = size;
  errno = ENOMEM;
  return true;
}

[[maybe_unused]] void* counted(void* block) {
  if (block != nullptr) ++g_blocks;
  return block;
}

}  // namespace

FailingAlloc::FailingAlloc(const FaultPlan& plan) {
  g_state = {};
  g_state.plan = plan;
  g_state.armed = true;
}

FailingAlloc::~FailingAlloc() { g_state.armed = false; }

std::uint64_t FailingAlloc::seen() { return g_state.seen; }
std::uint64_t FailingAlloc::failed() { return g_state.failed; }

bool FailingAlloc::is_own(std::uint64_t n) {
  return n >= 1 && n <= g_state.zeroed.size() && n <= g_state.seen &&
         g_state.zeroed[static_cast<std::size_t>(n - 1)];
}

const char* FailingAlloc::first_failed() {
  static char text[64];
  std::snprintf(text, sizeof text, "allocation of %zu bytes", g_state.first_size);
  return text;
}

std::int64_t live_blocks() { return g_blocks; }

}  // namespace vexa_test

#if VEXA_TEST_OWN_ALLOC
extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* block);

#define VEXA_OWN __attribute__((visibility("default")))

VEXA_OWN void* malloc(std::size_t size) noexcept {
  return vexa_test::refused(size) ? nullptr : vexa_test::counted(__libc_malloc(size));
}

VEXA_OWN void* calloc(std::size_t count, std::size_t size) noexcept {
  return vexa_test::refused(count * size, true) ? nullptr : vexa_test::counted(__libc_calloc(count, size));
}

VEXA_OWN void* realloc(void* block, std::size_t size) noexcept {
  if (vexa_test::refused(size)) return nullptr;
  void* const moved = __libc_realloc(block, size);
  if (block == nullptr) return vexa_test::counted(moved);
  if (size == 0) --vexa_test::g_blocks;
  return moved;
}

VEXA_OWN void* memalign(std::size_t alignment, std::size_t size) noexcept {
  return vexa_test::counted(__libc_memalign(alignment, size));
}

VEXA_OWN void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
  return vexa_test::counted(__libc_memalign(alignment, size));
}

VEXA_OWN int posix_memalign(void** block, std::size_t alignment, std::size_t size) noexcept {
  *block = vexa_test::counted(__libc_memalign(alignment, size));
  return *block != nullptr ? 0 : ENOMEM;
}

VEXA_OWN void free(void* block) noexcept {
  if (block != nullptr) --vexa_test::g_blocks;
  __libc_free(block);
}

}  // extern "C"
#endif
