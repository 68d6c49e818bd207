// SPDX-License-Identifier: MIT
#include "fuzz_target.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>
#include <vexadm/log.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>

namespace vexa_fuzz {
namespace {

constexpr int kSkipped = 77;

// Standard error as it was: libFuzzer's option against the library's own messages closes it.
int messages = STDERR_FILENO;

// The library's paths are fixed: outside a private device root they are somebody's settings.
void demand_device_root() {
  const char* const inside = std::getenv("VEXA_DEVICE_ROOT");
  if (inside != nullptr && std::strcmp(inside, "1") == 0) return;
  std::fprintf(stderr, "skipped: no private device root (start this by device_root)\n");
  const char* const ci = std::getenv("CI");
  std::_Exit(ci != nullptr && std::strcmp(ci, "true") == 0 ? EXIT_FAILURE : kSkipped);
}

constexpr int kNoBound = 1000000;
int steps_left = kNoBound;

// For every connection of the process, also the library's.
int bound_statements(sqlite3* db, char**, const sqlite3_api_routines*) {
  sqlite3_progress_handler(
      db, 1000, [](void*) { return --steps_left < 0 ? 1 : 0; }, nullptr);
  return SQLITE_OK;
}

int lowest_free_descriptor() {
  const int fd = open("/", O_PATH | O_CLOEXEC);
  close(fd);
  return fd;
}

}  // namespace

void check(bool holds, const char* words) {
  if (holds) return;
  dprintf(messages, "FINDING: %s\n", words);
  std::abort();
}

Watch::Watch(int most_steps) : lowest_free_descriptor_(lowest_free_descriptor()) { steps_left = most_steps; }

Watch::~Watch() { check(lowest_free_descriptor() == lowest_free_descriptor_, "a descriptor was left open"); }

bool Watch::stopped_statements() { return steps_left < 0; }

std::string bytes_of_file(const char* path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

// A new file each time: nothing of the old one's locks or contents is left.
void make_file(const char* path, const std::string& bytes) {
  unlink(path);
  const int fd = open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
  check(fd >= 0 && write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()),
        "the target cannot make a file");
  close(fd);
}

}  // namespace vexa_fuzz

int LLVMFuzzerInitialize(int*, char***) {
  vexa_fuzz::demand_device_root();
  vexa_fuzz::messages = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 100);
  // Every line is made, so that its making is tried too, and then dropped.
  vexa_set_log_level(0);
  set_print_interface([](const char*) {});
  sqlite3_auto_extension(reinterpret_cast<void (*)()>(vexa_fuzz::bound_statements));
  vexa_fuzz::set_up();
  return 0;
}
