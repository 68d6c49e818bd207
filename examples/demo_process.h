// SPDX-License-Identifier: MIT
// Restarts: the library's state belongs to a process, so each start is a process of its own.
#ifndef VEXADM_EXAMPLES_DEMO_PROCESS_H
#define VEXADM_EXAMPLES_DEMO_PROCESS_H

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace demo {

using Arguments = std::vector<std::string>;

// What a step hoped for and what it met; one line of the summary.
struct Finding {
  bool passed = false;
  std::string expected;
  std::string found;
};

// Runs this program again in a mode and waits for it. Its screen is ours.
// False when it ended otherwise than with exit code 0.
bool run_self(const Arguments& arguments);

// As run_self(), for a mode that ends in report(). A mode that dies without one has failed.
Finding run_step(const Arguments& arguments);
// Called in that mode: hands the finding to the waiting process. Returns the exit code.
int report(const Finding& finding);

// A program in a mode that sends numbers until it is killed.
class Burst {
 public:
  explicit Burst(const Arguments& arguments);
  Burst(const Burst&) = delete;
  Burst& operator=(const Burst&) = delete;
  ~Burst();

  // The next number, or false when no more come.
  bool receive(uint32_t& number);
  // kill -9, and waits for the process to be gone.
  void kill();
  pid_t pid() const { return pid_; }

 private:
  pid_t pid_ = -1;
  int numbers_ = -1;
};

// Called in the mode of a Burst.
bool send_number(uint32_t number);

}  // namespace demo

#endif
