// SPDX-License-Identifier: MIT
#include "demo_modem.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <filesystem>

namespace demo {

Modem::Modem() {
  // Beside the directory of the examples.
  std::error_code ignored;
  const auto self = std::filesystem::read_symlink("/proc/self/exe", ignored);
  const std::string program = self.parent_path().parent_path() / "modem_simulator";
  int ends[2];
  std::fflush(stdout);
  if (pipe2(ends, O_CLOEXEC) != 0) return;
  pid_ = fork();
  if (pid_ == 0) {
    dup2(ends[1], STDOUT_FILENO);
    execl(program.c_str(), program.c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  close(ends[1]);
  // It says a line when it listens; its end without one is the end of the pipe.
  char first = 0;
  ready_ = pid_ > 0 && read(ends[0], &first, 1) == 1;
  close(ends[0]);
}

Modem::~Modem() {
  if (pid_ < 0) return;
  kill(pid_, SIGTERM);
  waitpid(pid_, nullptr, 0);
}

}  // namespace demo
