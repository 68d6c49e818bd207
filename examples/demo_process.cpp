// SPDX-License-Identifier: MIT
#include "demo_process.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>

namespace demo {
namespace {

// Where a started program finds the pipe to its starter.
constexpr int kReportDescriptor = 3;
constexpr char kSeparator = '\n';

[[noreturn]] void become_self(const Arguments& arguments) {
  std::vector<char*> list;
  std::string name = "router_demo";
  list.push_back(name.data());
  Arguments copy = arguments;
  for (std::string& argument : copy) list.push_back(argument.data());
  list.push_back(nullptr);
  execv("/proc/self/exe", list.data());
  _exit(127);
}

struct Started {
  pid_t pid;
  int from_child;
};

Started start(const Arguments& arguments) {
  int ends[2];
  std::fflush(stdout);
  if (pipe2(ends, O_CLOEXEC) != 0) std::abort();
  const pid_t pid = fork();
  if (pid < 0) std::abort();
  if (pid == 0) {
    // dup2 onto itself would leave close-on-exec set.
    if (ends[1] == kReportDescriptor) {
      fcntl(ends[1], F_SETFD, 0);
    } else {
      dup2(ends[1], kReportDescriptor);
    }
    become_self(arguments);
  }
  close(ends[1]);
  return {pid, ends[0]};
}

bool ended_well(pid_t pid) {
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

std::string read_all(int fd) {
  std::string text;
  char chunk[512];
  for (;;) {
    const ssize_t count = read(fd, chunk, sizeof chunk);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return text;
    text.append(chunk, static_cast<std::size_t>(count));
  }
}

std::string next_line(std::string& text) {
  const auto end = text.find(kSeparator);
  const std::string line = text.substr(0, end);
  text.erase(0, end == std::string::npos ? end : end + 1);
  return line;
}

bool write_all(int fd, const char* bytes, std::size_t count) {
  while (count > 0) {
    const ssize_t written = write(fd, bytes, count);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    bytes += written;
    count -= static_cast<std::size_t>(written);
  }
  return true;
}

}  // namespace

bool run_self(const Arguments& arguments) {
  const Started child = start(arguments);
  close(child.from_child);
  return ended_well(child.pid);
}

Finding run_step(const Arguments& arguments) {
  const Started child = start(arguments);
  std::string text = read_all(child.from_child);
  close(child.from_child);
  const bool well = ended_well(child.pid);
  Finding finding;
  finding.passed = next_line(text) == "passed" && well;
  finding.expected = next_line(text);
  finding.found = next_line(text);
  if (finding.expected.empty()) finding = {false, "the step runs to its end", "the process ended early"};
  return finding;
}

int report(const Finding& finding) {
  const std::string text = std::string(finding.passed ? "passed" : "failed") + kSeparator + finding.expected +
                           kSeparator + finding.found + kSeparator;
  return write_all(kReportDescriptor, text.data(), text.size()) ? 0 : 1;
}

Burst::Burst(const Arguments& arguments) {
  const Started child = start(arguments);
  pid_ = child.pid;
  numbers_ = child.from_child;
}

Burst::~Burst() {
  kill();
  close(numbers_);
}

bool Burst::receive(uint32_t& number) {
  ssize_t count = read(numbers_, &number, sizeof number);
  while (count < 0 && errno == EINTR) count = read(numbers_, &number, sizeof number);
  return count == sizeof number;
}

void Burst::kill() {
  if (pid_ < 0) return;
  ::kill(pid_, SIGKILL);
  ended_well(pid_);
  pid_ = -1;
}

bool send_number(uint32_t number) {
  return write_all(kReportDescriptor, reinterpret_cast<const char*>(&number), sizeof number);
}

}  // namespace demo
