// SPDX-License-Identifier: MIT
// A program that uses the store, in a process of its own, and says what it was promised.
#ifndef VEXADM_TESTS_FAULTS_POWER_CUT_PROGRAM_H
#define VEXADM_TESTS_FAULTS_POWER_CUT_PROGRAM_H

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vexadm/vexadm.h>

#include <array>
#include <chrono>
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

inline constexpr int kPatienceMs = 10000;  // the library gives up a lock after 3 seconds

// Where the programs that are started from here on keep their store.
struct StoreArea {
  std::string first = "/data/";
  std::string second = "/data/";

  bool moved() const { return first != "/data/"; }
  std::string primary() const { return first + "config.db"; }
  std::string backup() const { return second + "configbak.db"; }
};
inline StoreArea store_area;

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
  double seconds = 0;
};

// The body reports lines; nothing of the library's state outlives it.
inline Report in_process(const std::function<void(std::vector<std::string>&)>& body) {
  const auto began = std::chrono::steady_clock::now();
  std::array<int, 2> ends;
  if (pipe2(ends.data(), O_CLOEXEC) != 0) std::abort();
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child < 0) std::abort();
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
  report.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
  return report;
}

inline vexa_dm_handle* start_program() {
  vexa_set_log_level(4);
  if (store_area.moved()) {
    vexa_dm_reg_store_area(VEXA_DM_BACKEND_SQLITE, store_area.first.c_str(), store_area.second.c_str());
  }
  vexa_dm_handle* store = vexa_dm_reg(VEXA_DM_BACKEND_SQLITE);
  vexa_dm_reg_def_items(power_cut_items());
  return store;
}

// Overwrites eight bytes of a file behind the library's back, and has them on storage.
inline bool overwrite(const std::string& path, off_t at, char byte) {
  std::array<char, 8> bytes;
  bytes.fill(byte);
  const int fd = open(path.c_str(), O_WRONLY | O_CLOEXEC);
  const bool done = pwrite(fd, bytes.data(), bytes.size(), at) == 8 && fsync(fd) == 0;
  close(fd);
  return done;
}

// The head of the first page's tree: SQLite finds the file malformed when it prepares.
inline constexpr off_t kHeadOfSchema = 100;

class Writer {
 public:
  explicit Writer(std::vector<std::string>& lines) : lines_(lines), store_(start_program()) {}

  void put(std::int32_t id, int n) {
    const std::string value = item_value(id, n);
    promised(id, n, [&] {
      return vexa_dm_write(store_, id, value.data(), static_cast<std::int32_t>(value.size()));
    });
  }
  void put_past_the_cache(std::int32_t id, int n) {
    const std::string value = item_value(id, n);
    promised(id, n, [&] {
      return vexa_dm_write_db(store_, id, reinterpret_cast<const std::uint8_t*>(value.data()),
                              static_cast<std::uint32_t>(value.size()));
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
    promised("defaults", [] { return vexa_dm_construct_def_database(VEXA_DM_BACKEND_SQLITE); });
  }
  void clean(bool with_backup) {
    promised("clean", [&] {
      char backup[] = "keep a copy";
      return static_cast<std::int32_t>(vexa_dm_clean(store_, with_backup ? backup : nullptr));
    });
  }
  void read_all() {
    for (const std::int32_t id : kItemIds) read(id);
  }
  // Reads everything and says what was seen, as a program does after a cut.
  void look_around(const Promise& promise) {
    for (const std::int32_t id : kItemIds) {
      const std::string value = read(id);
      for (const int n : promise.values.at(id)) {
        if (value != item_value(id, n) || promise.cleaning) continue;
        mark("saw " + std::to_string(id) + " " + std::to_string(n));
        break;
      }
    }
  }
  void damage(const std::string& path, off_t at, char byte) {
    if (!overwrite(path, at, byte)) lines_.push_back("not damaged: " + path);
  }

 private:
  std::string read(std::int32_t id) {
    std::array<std::uint8_t, 12000> buffer;
    const std::int32_t size = vexa_dm_read(store_, id, buffer.data(), buffer.size());
    return {reinterpret_cast<const char*>(buffer.data()), static_cast<std::size_t>(size > 0 ? size : 0)};
  }
  template <typename Call>
  void promised(const std::string& what, Call call) {
    mark("begin " + what);
    const std::int32_t result = call();
    if (result == 0) mark("done " + what);
    if (result != 0) lines_.push_back("the recorded program got " + std::to_string(result) + " for " + what);
  }
  template <typename Call>
  void promised(std::int32_t id, int n, Call call) {
    promised(std::to_string(id) + " " + std::to_string(n), call);
  }

  std::vector<std::string>& lines_;
  vexa_dm_handle* store_;
};

}  // namespace vexa_test

#endif
