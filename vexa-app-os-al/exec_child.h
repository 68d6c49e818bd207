// SPDX-License-Identifier: MIT
// The child of a command that runs without a shell: from the fork to its program.
#ifndef VEXADM_OS_EXEC_CHILD_H
#define VEXADM_OS_EXEC_CHILD_H

#include <sys/types.h>

#include <array>
#include <cstddef>

namespace vexa {

// Under which name all steps of such a command log.
inline constexpr const char* kExecName = "vexa_ds_exec_internal";

// A pipe: what is written to the second end is read from the first.
using PipeEnds = std::array<int, 2>;

// The words of a command line, as a program takes them.
class ArgumentVector {
 public:
  // Splits the text in place, at blanks alone: a tab is part of a word, and nothing is quoted. The
  // program stands in place of the first word. Text and program outlive the vector.
  ArgumentVector(char* text, const char* program);

  bool too_long() const { return too_long_; }
  char* const* words() const { return words_.data(); }

 private:
  std::array<char*, 32> words_{};
  bool too_long_ = false;
};

// Forks a child that runs the program with its standard output and standard error in the output
// pipe, and with the liveness pipe open. The child, or -1.
pid_t start_child(const ArgumentVector& arguments, const PipeEnds& liveness, const PipeEnds& output);

}  // namespace vexa

#endif
