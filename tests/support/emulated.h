// SPDX-License-Identifier: MIT
// Tests whose programs are for another processor than the machine's: an emulator runs them.
//
// What the programs start themselves is the machine's own, such as the shell and its commands; only
// what has been built with the library needs the emulator again. VEXA_EMULATOR is the one place that
// says how, set by the line that starts every test program (tests/CMakeLists.txt).
#ifndef VEXADM_TESTS_EMULATED_H
#define VEXADM_TESTS_EMULATED_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <cstdlib>
#include <string>
#include <vector>

// Ends a test that an emulator cannot run, and says so in the log. Such a test stays in the native run.
#define VEXA_NOT_EMULATED(reason)                                                    \
  do {                                                                               \
    if (vexa_test::is_emulated()) GTEST_SKIP() << "not under emulation: " << reason; \
  } while (false)

namespace vexa_test {

// The emulator and its options, as a shell takes them; empty where none is needed.
inline std::string emulator() {
  const char* const command = std::getenv("VEXA_EMULATOR");
  return command == nullptr ? "" : command;
}

inline bool is_emulated() { return !emulator().empty(); }

// The file of the running program.
inline std::string own_program() {
  std::array<char, PATH_MAX> path = {};
  return readlink("/proc/self/exe", path.data(), path.size() - 1) > 0 ? path.data() : "";
}

// Starts this program once more, in place of itself. Returns only where that fails.
inline void run_again(char** arguments) {
  if (!is_emulated()) {
    execv("/proc/self/exe", arguments);
    return;
  }
  std::string program = own_program();
  std::string script = "exec " + emulator() + " \"$0\" \"$@\"";
  std::string shell = "sh";
  std::string option = "-c";
  std::vector<char*> words = {shell.data(), option.data(), script.data(), program.data()};
  for (char** argument = arguments + 1; *argument != nullptr; ++argument) words.push_back(*argument);
  words.push_back(nullptr);
  execv("/bin/sh", words.data());
}

}  // namespace vexa_test

#endif
