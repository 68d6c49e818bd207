// SPDX-License-Identifier: MIT
// Makes chosen allocations fail, and counts what is not given back. Compile failing_alloc.cpp
// into the test program itself; the C library, SQLite and the library all allocate through it.
#ifndef VEXADM_TESTS_FAULTS_FAILING_ALLOC_H
#define VEXADM_TESTS_FAULTS_FAILING_ALLOC_H

#include <cstdint>

#include "faults/failing_calls.h"

// The sanitizers have an allocator of their own; each compiler says in its own way that one is on.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define VEXA_TEST_OWN_ALLOC 0
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define VEXA_TEST_OWN_ALLOC 0
#endif
#endif
#ifndef VEXA_TEST_OWN_ALLOC
#define VEXA_TEST_OWN_ALLOC 1
#endif

namespace vexa_test {

// While it lives, malloc, calloc and realloc are counted and answer NULL by the plan (its error is
// not used). Works in a single-threaded process; one at a time.
class FailingAlloc {
 public:
  explicit FailingAlloc(const FaultPlan& plan);
  ~FailingAlloc();
  FailingAlloc(const FailingAlloc&) = delete;
  FailingAlloc& operator=(const FailingAlloc&) = delete;

  // Of the one that lives, or lived last.
  static std::uint64_t seen();
  static std::uint64_t failed();
  // True for an allocation that the library makes itself: SQLite never asks for zeroed memory.
  static bool is_own(std::uint64_t n);
  static const char* first_failed();
};

// Blocks that the process holds; a constant where the allocator is a sanitizer's.
std::int64_t live_blocks();

}  // namespace vexa_test

#endif
