// SPDX-License-Identifier: MIT
// Makes zeroed allocations of chosen sizes fail, in the whole test program. Include it in the one
// source of a program.
#ifndef VEXADM_TESTS_FAILING_CALLOC_H
#define VEXADM_TESTS_FAILING_CALLOC_H

#include <cstddef>
#include <cstdlib>

// The sanitizers have a calloc of their own; each compiler says in its own way that one is on.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define VEXA_TEST_OWN_CALLOC 0
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define VEXA_TEST_OWN_CALLOC 0
#endif
#endif
#ifndef VEXA_TEST_OWN_CALLOC
#define VEXA_TEST_OWN_CALLOC 1
#endif

namespace vexa_test {

// While it lives, calloc answers NULL for sizes from smallest to largest.
class FailingCalloc {
 public:
  FailingCalloc(std::size_t smallest, std::size_t largest) {
    smallest_ = smallest;
    largest_ = largest;
  }
  explicit FailingCalloc(std::size_t size) : FailingCalloc(size, size) {}
  ~FailingCalloc() {
    smallest_ = 1;
    largest_ = 0;
  }
  FailingCalloc(const FailingCalloc&) = delete;
  FailingCalloc& operator=(const FailingCalloc&) = delete;

  static bool fails(std::size_t size) { return smallest_ <= size && size <= largest_; }

 private:
  static inline std::size_t smallest_ = 1;
  static inline std::size_t largest_ = 0;
};

// Remembers the last block of a size that calloc gave.
class CallocSpy {
 public:
  explicit CallocSpy(std::size_t size) { size_ = size; }
  ~CallocSpy() { size_ = 0; }
  CallocSpy(const CallocSpy&) = delete;
  CallocSpy& operator=(const CallocSpy&) = delete;

  void* block() const { return block_; }
  static void* seen(std::size_t size, void* block) {
    if (size == size_) block_ = block;
    return block;
  }

 private:
  static inline std::size_t size_ = 0;
  static inline void* block_ = nullptr;
};

}  // namespace vexa_test

#if VEXA_TEST_OWN_CALLOC
extern "C" void* __libc_calloc(std::size_t count, std::size_t size);

extern "C" __attribute__((visibility("default"))) void* calloc(std::size_t count, std::size_t size) noexcept {
  if (vexa_test::FailingCalloc::fails(count * size)) return nullptr;
  return vexa_test::CallocSpy::seen(count * size, __libc_calloc(count, size));
}
#define VEXA_NEEDS_OWN_CALLOC() static_cast<void>(0)
#else
#define VEXA_NEEDS_OWN_CALLOC() GTEST_SKIP() << "the sanitizer has its own calloc"
#endif

#endif
