// SPDX-License-Identifier: MIT
// A child in which something fails, and what it tells its parent.
#ifndef VEXADM_TESTS_FAULTS_FAILING_REPORT_H
#define VEXADM_TESTS_FAULTS_FAILING_REPORT_H

#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "support/log_text.h"

namespace vexa_test {

// ---- What a child found, in memory shared with the parent ----

struct Report {
  bool done;  // the child came to its end
  std::int64_t result;
  std::uint64_t seen;
  std::uint64_t failed;
  std::array<bool, 4096> own;  // operation n + 1 is the library's own, not SQLite's
  std::uint64_t unsynced_renames;
  int fds_before;
  int fds_after;
  bool no_child;         // nothing is left to wait for
  std::int64_t blocks;   // more than before
  int leaked;            // by the leak checker
  std::size_t log_size;  // of log: lines of warning level and above, as they came
  bool kept;
  unsigned found;
  std::int32_t found_code;
  unsigned primary_found;
  bool other;
  // The next process:
  int rows;  // of the item in the primary
  std::int32_t next_write;
  unsigned next_found;
  std::uint32_t health;
  std::uint32_t backup_health;
  char first_failed[192];
  char log[65536];
};

inline Report* g_report = nullptr;

// Under failing allocations: copies, nothing else.
inline void note_line(const char* line) {
  const std::size_t size = std::strlen(line) + 1;
  if (g_report->log_size + size > sizeof g_report->log) return;
  std::memcpy(g_report->log + g_report->log_size, line, size);
  g_report->log_size += size;
}

// "<time> : <tag> | [<pid> | <tid>-<thread>] | <function> <line> | <message>" in log_text form.
inline std::string text_of_line(std::string_view line) {
  static constexpr std::array<std::string_view, 5> kTags = {" DBUG", " INFO", "-WRN-", "=ERR=", "*CRT*"};
  const auto tag = line.find(" : ") + 3;
  const auto place = line.find("] | ", tag) + 4;
  const auto message = line.find(" | ", place);
  const std::string_view site = line.substr(place, message - place);
  const auto space = site.rfind(' ');
  const auto level = std::find(kTags.begin(), kTags.end(), line.substr(tag, line.find(" | ", tag) - tag));
  LogLine parsed{level == kTags.end() ? -1 : static_cast<int>(level - kTags.begin()),
                 std::string(site.substr(0, space)), std::atoi(std::string(site.substr(space + 1)).c_str()),
                 std::string(line.substr(message + 3))};
  // As it is where memory for the shown form is short.
  const auto vendor = parsed.function.find("vexa");
  if (vendor != std::string::npos) parsed.function.replace(vendor, 4, "oem");
  return log_text(parsed);
}

inline std::vector<std::string> logged_texts() {
  std::vector<std::string> texts;
  for (std::size_t at = 0; at < g_report->log_size; at += std::strlen(g_report->log + at) + 1) {
    texts.push_back(text_of_line(g_report->log + at));
  }
  return texts;
}

inline int open_descriptors() {
  DIR* const directory = opendir("/proc/self/fd");
  int count = -1;  // the directory's own
  while (const dirent* entry = readdir(directory)) count += entry->d_name[0] != '.' ? 1 : 0;
  closedir(directory);
  return count;
}

struct Ending {
  int signal;
  std::string output;
};

// Forks with both streams in a file; the alarm ends what hangs. Meanwhile the parent serves the
// injector, where that has a part there.
template <typename Injector, typename Body>
Ending in_child(Body body) {
  static const int output = memfd_create("output", MFD_CLOEXEC);
  if (ftruncate(output, 0) != 0) ADD_FAILURE() << "output";
  lseek(output, 0, SEEK_SET);
  std::fflush(nullptr);
  if constexpr (requires { Injector::before_fork(); }) Injector::before_fork();
  const pid_t child = fork();
  if (child == 0) {
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT}) std::signal(fault, SIG_DFL);
    alarm(30);
    // Uncaught, GoogleTest would catch it and go on with the parent's tests in the child.
    try {
      body();
    } catch (const std::exception& thrown) {
      std::printf("%s\n", thrown.what());
    }
    std::fflush(nullptr);
    _exit(0);
  }
  if constexpr (requires { Injector::supervise(child); }) Injector::supervise(child);
  int status = 0;
  waitpid(child, &status, 0);
  Ending ending{WIFSIGNALED(status) ? WTERMSIG(status) : (WEXITSTATUS(status) != 0 ? -1 : 0), {}};
  const off_t size = lseek(output, 0, SEEK_END);
  ending.output.resize(static_cast<std::size_t>(std::min<off_t>(size, 4000)));
  if (pread(output, ending.output.data(), ending.output.size(), 0) < 0) ending.output.clear();
  return ending;
}

struct NoInjector {};

}  // namespace vexa_test

#endif
