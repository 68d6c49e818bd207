// SPDX-License-Identifier: MIT
// The modem simulator as a peer of a test.
#ifndef VEXADM_TESTS_MODEM_SIMULATOR_H
#define VEXADM_TESTS_MODEM_SIMULATOR_H

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace vexa_test {

// Runs, with its port open, as long as this lives. MODEM_SIMULATOR is the program.
class ModemSimulator {
 public:
  explicit ModemSimulator(std::vector<std::string> options = {}) {
    int output[2];
    if (pipe(output) != 0) std::abort();
    options.insert(options.begin(), MODEM_SIMULATOR);
    process_ = fork();
    if (process_ == 0) {
      dup2(output[1], STDOUT_FILENO);
      close(output[0]);
      close(output[1]);
      std::vector<char*> arguments;
      for (std::string& option : options) arguments.push_back(option.data());
      arguments.push_back(nullptr);
      execv(MODEM_SIMULATOR, arguments.data());
      _exit(127);
    }
    close(output[1]);
    std::FILE* const stream = fdopen(output[0], "r");
    char line[256] = "";
    if (std::fgets(line, sizeof line, stream) != nullptr) ready_ = line;
    std::fclose(stream);
  }
  ModemSimulator(const ModemSimulator&) = delete;
  ModemSimulator& operator=(const ModemSimulator&) = delete;
  ~ModemSimulator() { EXPECT_EQ(end(), 0) << "the simulator did not end as it should"; }

  // What it said when its port was open; empty when it could not open it.
  const std::string& ready() const { return ready_; }

  // Asks it to end, and waits. Its wait status.
  int end() {
    if (process_ <= 0) return 0;
    int status = 0;
    kill(process_, SIGTERM);
    waitpid(process_, &status, 0);
    process_ = -1;
    return status;
  }

 private:
  pid_t process_ = -1;
  std::string ready_;
};

}  // namespace vexa_test

#endif
