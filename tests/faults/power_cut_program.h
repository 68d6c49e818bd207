// SPDX-License-Identifier: MIT
// The runs that are recorded, each in a process of its own.
#ifndef VEXADM_TESTS_FAULTS_POWER_CUT_PROGRAM_H
#define VEXADM_TESTS_FAULTS_POWER_CUT_PROGRAM_H

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vexadm/vexadm.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "faults/file_recorder.h"
#include "faults/power_cut_items.h"

namespace vexa_test {

inline constexpr char kLog[] = "/tmp/power-cut-recording";
inline constexpr int kPatienceMs = 10000;  // the library gives up a lock after 3 seconds

template <typename Function>
Function recorder(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_DEFAULT, name));
}

inline void mark(const std::string& text) {
  recorder<MarkRecording>(kMarkRecording)(text.data(), text.size());
}

struct Report {
  std::vector<std::string> lines;
  std::string fault;  // how it ended, when not by itself
};

// The body reports lines; nothing of the library's state outlives it.
inline Report in_process(const std::function<void(std::vector<std::string>&)>& body) {
  std::array<int, 2> ends;
  if (pipe2(ends.data(), O_CLOEXEC) != 0) std::abort();
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    std::vector<std::string> lines;
    body(lines);
    std::string text;
    for (const std::string& line : lines) text += line + "\n";
    _exit(::write(ends[1], text.data(), text.size()) == static_cast<ssize_t>(text.size()) ? 0 : 9);
  }
  close(ends[1]);
  Report report;
  std::string text;
  std::array<char, 4096> chunk;
  pollfd input = {ends[0], POLLIN, 0};
  for (;;) {
    if (poll(&input, 1, kPatienceMs) <= 0) {
      report.fault = "hangs";
      kill(child, SIGKILL);
      break;
    }
    const ssize_t got = read(ends[0], chunk.data(), chunk.size());
    if (got <= 0) break;
    text.append(chunk.data(), static_cast<std::size_t>(got));
  }
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  if (report.fault.empty() && status != 0) report.fault = "ends with status " + std::to_string(status);
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) report.lines.push_back(line);
  return report;
}

inline vexa_dm_handle* start_program() {
  vexa_set_log_level(4);
  vexa_dm_handle* store = vexa_dm_reg(VEXA_DM_BACKEND_SQLITE);
  vexa_dm_reg_def_items(power_cut_items());
  return store;
}

class Writer {
 public:
  explicit Writer(std::vector<std::string>& lines) : lines_(lines), store_(start_program()) {}

  void put(std::int32_t id, int n) {
    const std::string value = item_value(id, n);
    promised(id, n, [&] {
      return vexa_dm_write(store_, id, value.data(), static_cast<std::int32_t>(value.size()));
    });
  }
  void put_pair(int n) {
    promised(kPairs, n, [&] {
      std::int32_t length = 0;
      return vexa_dm_write_key_value_pairs(store_, kPairs, "peer", std::to_string(n).c_str(), &length);
    });
  }
  void empty(std::int32_t id) {
    promised(id, 0, [&] { return vexa_dm_empty(store_, id); });
  }
  void make_defaults() {
    promised(0, 0, [] { return vexa_dm_construct_def_database(VEXA_DM_BACKEND_SQLITE); });
  }
  void clean() {
    promised(-1, 0, [&] {
      char backup[] = "keep a copy";
      return static_cast<std::int32_t>(vexa_dm_clean(store_, backup));
    });
  }
  void read_all() {
    for (const std::int32_t id : kItemIds) {
      std::array<std::uint8_t, 10000> buffer;
      vexa_dm_read(store_, id, buffer.data(), buffer.size());
    }
  }

 private:
  template <typename Call>
  void promised(std::int32_t id, int n, Call call) {
    const std::string what = " " + std::to_string(id) + " " + std::to_string(n);
    mark("begin" + what);
    const std::int32_t result = call();
    if (result == 0) mark("done" + what);
    if (result != 0) lines_.push_back("the recorded program got " + std::to_string(result) + " for" + what);
  }

  std::vector<std::string>& lines_;
  vexa_dm_handle* store_;
};

inline void recorded(const std::function<void(std::vector<std::string>&)>& body) {
  const Report report = in_process([&](std::vector<std::string>& lines) {
    recorder<StartRecorder>(kStartRecorder)(kLog);
    body(lines);
  });
  ASSERT_EQ(report.fault, "");
  ASSERT_EQ(report.lines, std::vector<std::string>());
}

inline void first_start(std::vector<std::string>& lines) {
  Writer writer(lines);
  writer.put(kChannel, 1);
  writer.make_defaults();
  writer.put(kName, 1);
  writer.put(kLarge, 1);
  writer.put_pair(1);
  writer.put(kBlock, 1);
  writer.put(kAddress, 1);
  writer.put_pair(2);
  writer.put(kLarge, 2);
  writer.empty(kBlock);
  writer.put(kName, 2);
}

// The head of the first page's tree: SQLite finds the primary malformed when it prepares.
inline void damage_primary(std::vector<std::string>& lines) {
  const int fd = open("/data/config.db", O_WRONLY | O_CLOEXEC);
  const std::array<char, 8> no_tree = {};
  if (pwrite(fd, no_tree.data(), no_tree.size(), 100) != 8 || fsync(fd) != 0) lines.push_back("not damaged");
  close(fd);
}

inline void start_that_repairs(std::vector<std::string>& lines) {
  Writer writer(lines);
  writer.read_all();
  writer.put(kBlock, 2);
  writer.put(kChannel, 2);
}

inline void start_that_cleans(std::vector<std::string>& lines) {
  Writer writer(lines);
  writer.clean();
}

inline void start_after_a_cut(std::vector<std::string>& lines) {
  Writer writer(lines);
  writer.read_all();
  writer.put(kProbe, 1);
}

}  // namespace vexa_test

#endif
