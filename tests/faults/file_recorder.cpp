// SPDX-License-Identifier: MIT
// Preloaded into a program: records each successful operation that changes or syncs a file or
// directory below /data. Silent until file_recorder_start() is called; programs started from
// then on (a shell that removes a file) record into the same log.
#include "faults/file_recorder.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace {

using vexa_test::FileOp;
using vexa_test::FileRecord;

constexpr char kLogVariable[] = "VEXA_FILE_RECORDER_LOG";
constexpr std::string_view kPlace = "/data";

int log_fd = -1;

void start(const char* log) {
  // Not a number that a program could expect for its own first file.
  const int fd = static_cast<int>(syscall(SYS_openat, AT_FDCWD, log, O_WRONLY | O_CREAT | O_APPEND, 0644));
  if (fd < 0) std::abort();
  log_fd = fcntl(fd, F_DUPFD_CLOEXEC, 500);
  syscall(SYS_close, fd);
  if (log_fd < 0) std::abort();
}

__attribute__((constructor)) void start_in_a_started_program() {
  const char* log = std::getenv(kLogVariable);
  if (log != nullptr) start(log);
}

template <typename Function>
Function next(const char* name) {
  void* found = dlsym(RTLD_NEXT, name);
  if (found == nullptr) std::abort();
  return reinterpret_cast<Function>(found);
}

bool is_recorded(std::string_view path) {
  return path.starts_with(kPlace) && (path.size() == kPlace.size() || path[kPlace.size()] == '/');
}

// One call for the whole record: several processes append to one log. A record that is lost
// would let the test claim what it has not seen, so that ends the program.
void record(FileOp op, std::uint64_t file, std::uint64_t offset, std::string_view path,
            std::string_view other = {}, std::string_view data = {}) {
  FileRecord head = {op,
                     static_cast<std::uint32_t>(path.size()),
                     static_cast<std::uint32_t>(other.size()),
                     static_cast<std::uint32_t>(data.size()),
                     file,
                     offset};
  const auto part = [](std::string_view text) { return iovec{const_cast<char*>(text.data()), text.size()}; };
  const std::array<iovec, 4> parts = {iovec{&head, sizeof head}, part(path), part(other), part(data)};
  const std::size_t size = sizeof head + path.size() + other.size() + data.size();
  if (syscall(SYS_writev, log_fd, parts.data(), parts.size()) != static_cast<long>(size)) std::abort();
}

// The path that a descriptor was opened with. Asked of the kernel each time: descriptors are
// also opened and closed behind the recorder's back.
class OpenedPath {
 public:
  explicit OpenedPath(int fd) {
    if (log_fd < 0) return;
    std::array<char, 32> link;
    std::snprintf(link.data(), link.size(), "/proc/self/fd/%d", fd);
    const ssize_t size = readlink(link.data(), text_.data(), text_.size());
    if (size > 0) size_ = static_cast<std::size_t>(size);
    struct stat status = {};
    if (fstat(fd, &status) == 0) file_ = status.st_ino;
  }
  bool is_recorded() const { return ::is_recorded(path()); }
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

int open_recorded(int directory, const char* path, int flags, mode_t mode) {
  const auto real = [&] { return static_cast<int>(syscall(SYS_openat, directory, path, flags, mode)); };
  if (log_fd < 0 || !is_recorded(path)) return real();
  struct stat status = {};
  const bool present = stat(path, &status) == 0;
  const int fd = real();
  const KeepErrno keep;
  if (fd < 0) return fd;
  fstat(fd, &status);
  record(present ? FileOp::kOpen : FileOp::kCreate, status.st_ino, 0, path);
  if (present && (flags & O_TRUNC) != 0) record(FileOp::kTruncate, status.st_ino, 0, path);
  return fd;
}

void record_write(int fd, ssize_t written, std::uint64_t offset, const void* data) {
  if (written <= 0 || log_fd < 0) return;
  const KeepErrno keep;
  const OpenedPath opened(fd);
  if (!opened.is_recorded()) return;
  record(FileOp::kWrite, opened.file(), offset, opened.path(), {},
         {static_cast<const char*>(data), static_cast<std::size_t>(written)});
}

// What the kernel has written by itself is read back from the file.
void record_copied(int fd, ssize_t written, std::uint64_t offset) {
  const KeepErrno keep;
  std::array<char, 32> link;
  std::snprintf(link.data(), link.size(), "/proc/self/fd/%d", fd);
  const int copy = static_cast<int>(syscall(SYS_openat, AT_FDCWD, link.data(), O_RDONLY | O_CLOEXEC));
  void* bytes = std::malloc(static_cast<std::size_t>(written));
  if (copy < 0 || bytes == nullptr ||
      pread(copy, bytes, static_cast<std::size_t>(written), static_cast<off_t>(offset)) != written) {
    std::abort();
  }
  record_write(fd, written, offset, bytes);
  std::free(bytes);
  syscall(SYS_close, copy);
}

void record_on(int fd, int result, FileOp op, std::uint64_t offset) {
  if (result != 0 || log_fd < 0) return;
  const KeepErrno keep;
  const OpenedPath opened(fd);
  if (opened.is_recorded()) record(op, opened.file(), offset, opened.path());
}

mode_t mode_of(int flags, va_list arguments) {
  return (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) void file_recorder_start(const char* log);
__attribute__((visibility("default"))) void file_recorder_mark(const char* text, std::size_t size);
int __open_2(const char* path, int flags);
int __open64_2(const char* path, int flags);

void file_recorder_start(const char* log) {
  setenv(kLogVariable, log, 1);
  start(log);
}

void file_recorder_mark(const char* text, std::size_t size) {
  if (log_fd >= 0) record(FileOp::kMark, 0, 0, {}, {}, {text, size});
}

int open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = mode_of(flags, arguments);
  va_end(arguments);
  return open_recorded(AT_FDCWD, path, flags, mode);
}

int open64(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = mode_of(flags, arguments);
  va_end(arguments);
  return open_recorded(AT_FDCWD, path, flags, mode);
}

int openat(int directory, const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = mode_of(flags, arguments);
  va_end(arguments);
  return open_recorded(directory, path, flags, mode);
}

int openat64(int directory, const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = mode_of(flags, arguments);
  va_end(arguments);
  return open_recorded(directory, path, flags, mode);
}

int __open_2(const char* path, int flags) { return open_recorded(AT_FDCWD, path, flags, 0); }
int __open64_2(const char* path, int flags) { return open_recorded(AT_FDCWD, path, flags, 0); }

ssize_t write(int fd, const void* data, size_t size) {
  const ssize_t written = syscall(SYS_write, fd, data, size);
  if (written > 0 && log_fd >= 0) {
    const off_t end = lseek(fd, 0, SEEK_CUR);
    record_write(fd, written, static_cast<std::uint64_t>(end - written), data);
  }
  return written;
}

ssize_t pwrite64(int fd, const void* data, size_t size, off64_t offset) {
  static const auto real = next<decltype(&pwrite64)>("pwrite64");
  const ssize_t written = real(fd, data, size, offset);
  record_write(fd, written, static_cast<std::uint64_t>(offset), data);
  return written;
}

ssize_t pwrite(int fd, const void* data, size_t size, off_t offset) {
  return pwrite64(fd, data, size, offset);
}

// How cp copies.
ssize_t copy_file_range(int from, off64_t* from_at, int fd, off64_t* at, size_t size, unsigned flags) {
  const ssize_t written = syscall(SYS_copy_file_range, from, from_at, fd, at, size, flags);
  if (written > 0 && log_fd >= 0) {
    const off64_t end = at != nullptr ? *at : lseek(fd, 0, SEEK_CUR);
    record_copied(fd, written, static_cast<std::uint64_t>(end - written));
  }
  return written;
}

int ftruncate64(int fd, off64_t length) noexcept {
  static const auto real = next<decltype(&ftruncate64)>("ftruncate64");
  const int result = real(fd, length);
  record_on(fd, result, FileOp::kTruncate, static_cast<std::uint64_t>(length));
  return result;
}

int ftruncate(int fd, off_t length) noexcept { return ftruncate64(fd, length); }

int fsync(int fd) {
  const int result = static_cast<int>(syscall(SYS_fsync, fd));
  record_on(fd, result, FileOp::kSync, 0);
  return result;
}

int fdatasync(int fd) {
  const int result = static_cast<int>(syscall(SYS_fdatasync, fd));
  record_on(fd, result, FileOp::kSync, 0);
  return result;
}

int rename(const char* from, const char* to) noexcept {
  const int result = static_cast<int>(syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0));
  if (result == 0 && log_fd >= 0 && is_recorded(from)) record(FileOp::kRename, 0, 0, from, to);
  return result;
}

int unlinkat(int directory, const char* path, int flags) noexcept {
  const int result = static_cast<int>(syscall(SYS_unlinkat, directory, path, flags));
  if (result == 0 && log_fd >= 0 && is_recorded(path)) record(FileOp::kUnlink, 0, 0, path);
  return result;
}

int unlink(const char* path) noexcept { return unlinkat(AT_FDCWD, path, 0); }

}  // extern "C"
