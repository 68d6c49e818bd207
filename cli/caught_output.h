// SPDX-License-Identifier: MIT
// What the library and its shell commands print by themselves, kept from the terminal.
#ifndef VEXADM_CLI_CAUGHT_OUTPUT_H
#define VEXADM_CLI_CAUGHT_OUTPUT_H

namespace cli {

// While it lives, standard output and standard error lead into memory: the one is for the answer
// alone, and each line of the other is this program's own.
class CaughtOutput {
 public:
  CaughtOutput();
  CaughtOutput(const CaughtOutput&) = delete;
  CaughtOutput& operator=(const CaughtOutput&) = delete;
  ~CaughtOutput();

  // Gives both back, and tells what standard error was to have: a shell that lacks files grumbles
  // where the call is good, so only for calls that failed.
  void tell();
  void give_back();

 private:
  int memory_[2] = {-1, -1};
  int saved_[2] = {-1, -1};
};

}  // namespace cli

#endif
