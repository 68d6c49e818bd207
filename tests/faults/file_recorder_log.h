// SPDX-License-Identifier: MIT
// What the wrapped calls of the recorder share: the log, and the paths of descriptors.
#ifndef VEXADM_TESTS_FAULTS_FILE_RECORDER_LOG_H
#define VEXADM_TESTS_FAULTS_FILE_RECORDER_LOG_H

#include <dlfcn.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "faults/file_recorder.h"

namespace vexa_test::recorder {

void start(const char* log);
bool is_on();
void die_after(unsigned operations);
// Bytes that the log has so far.
std::uint64_t log_size();

void record(FileOp op, std::uint64_t file, std::uint64_t offset, std::string_view path,
            std::string_view other = {}, std::string_view data = {});

// For a call that changed something and that no replay knows. Leaves errno.
void record_unmodelled(const char* call, std::string_view path);
void record_unmodelled(const char* call, int fd);

template <typename Function>
Function next(const char* name) {
  void* found = dlsym(RTLD_NEXT, name);
  if (found == nullptr) std::abort();
  return reinterpret_cast<Function>(found);
}

// A path as the kernel would take it, from the root on.
class FullPath {
 public:
  FullPath(int directory, const char* path);
  bool is_recorded() const { return !recorded_place(path()).empty(); }
  std::string_view path() const { return {text_.data(), size_}; }

 private:
  std::array<char, PATH_MAX> text_ = {};
  std::size_t size_ = 0;
};

// The path that a descriptor was opened with. Asked of the kernel each time: descriptors are
// also opened and closed behind the recorder's back.
class OpenedPath {
 public:
  explicit OpenedPath(int fd);
  bool is_recorded() const { return !recorded_place(path()).empty(); }
  std::string_view path() const { return {text_.data(), size_}; }
  std::uint64_t file() const { return file_; }

 private:
  std::array<char, PATH_MAX> text_ = {};
  std::size_t size_ = 0;
  std::uint64_t file_ = 0;
};

// Leaves errno as the recorded call left it.
class KeepErrno {
 public:
  KeepErrno() : saved_(errno) {}
  KeepErrno(const KeepErrno&) = delete;
  KeepErrno& operator=(const KeepErrno&) = delete;
  ~KeepErrno() { errno = saved_; }

 private:
  int saved_;
};

}  // namespace vexa_test::recorder

#endif
