// SPDX-License-Identifier: MIT
// What each fuzz target is made of. A target defines set_up() and LLVMFuzzerTestOneInput(); it
// links with libFuzzer, or with run_corpus.cpp, which feeds it files and needs no clang.
#ifndef VEXADM_FUZZ_FUZZ_TARGET_H
#define VEXADM_FUZZ_FUZZ_TARGET_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

extern "C" {
int LLVMFuzzerInitialize(int* count, char*** arguments);
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t capacity);
std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t capacity,
                                    unsigned seed);
}

namespace vexa_fuzz {

// Once, before the first input, in a private device root and with the log silenced.
void set_up();

// Ends the process with the words: a finding.
void check(bool holds, const char* words);

// Watches one input from its beginning to its end: what it opened is closed again, and statements
// end. The pages of a damaged tree may be each other's children many times over; SQLite walks that
// for hours, and a fuzzer finds nothing in it.
class Watch {
 public:
  // Thousands of steps of SQLite's machine that all statements of the input may take.
  explicit Watch(int most_steps = 500);
  ~Watch();
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

  static bool stopped_statements();

 private:
  int lowest_free_descriptor_;
};

// Time that the library has spent in waits. None of it passes: the clock is moved instead.
std::int64_t waited_us();

std::string bytes_of_file(const char* path);
void make_file(const char* path, const std::string& bytes);

// The input as numbers and texts; zeros behind its end.
class Source {
 public:
  Source(const std::uint8_t* data, std::size_t size) : data_(data), left_(size) {}

  std::size_t left() const { return left_; }
  unsigned byte() {
    if (left_ == 0) return 0;
    --left_;
    return *data_++;
  }
  unsigned word() {
    const unsigned high = byte();
    return high << 8 | byte();
  }
  unsigned below(unsigned limit) { return limit > 256 ? word() % limit : byte() % limit; }
  std::string bytes(std::size_t most) {
    const std::size_t count = std::min(most, left_);
    const std::string result(reinterpret_cast<const char*>(data_), count);
    data_ += count;
    left_ -= count;
    return result;
  }

 private:
  const std::uint8_t* data_;
  std::size_t left_;
};

}  // namespace vexa_fuzz

#endif
