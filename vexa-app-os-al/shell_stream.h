// SPDX-License-Identifier: MIT
// Commands of the shell whose output is read, or whose input is written.
#ifndef VEXADM_OS_SHELL_STREAM_H
#define VEXADM_OS_SHELL_STREAM_H

#include <cstdio>
#include <utility>

namespace vexa {

inline constexpr const char* kToRead = "re";
inline constexpr const char* kToWrite = "we";
inline constexpr const char* kNotStarted = "";  // a mode that popen refuses

// A running shell with one end of a pipe to it. No other command of the process inherits the pipe.
class Shell {
 public:
  Shell(const char* command, const char* mode) : stream_(popen(command, mode)) {}
  Shell(const Shell&) = delete;
  Shell& operator=(const Shell&) = delete;
  ~Shell() { wait(); }

  explicit operator bool() const { return stream_ != nullptr; }
  std::FILE* stream() const { return stream_; }

  // Closes the pipe and waits for the shell. Its status.
  int wait() {
    std::FILE* const stream = std::exchange(stream_, nullptr);
    return stream ? pclose(stream) : -1;
  }

 private:
  std::FILE* stream_;
};

}  // namespace vexa

#endif
