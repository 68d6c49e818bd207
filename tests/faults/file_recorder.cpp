// SPDX-License-Identifier: MIT
// Preloaded into a program: records each successful call that changes or syncs a file or a
// directory of the store. Silent until file_recorder_start() is called; programs started from
// then on (the shell's cp, mv and rm) record into the same log. Two runs of one program record
// the same: what SQLite draws at random is fixed, and the date follows from the log's length.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "faults/file_recorder_log.h"

namespace {

using vexa_test::FileOp;
using vexa_test::recorder::FullPath;
using vexa_test::recorder::is_on;
using vexa_test::recorder::KeepErrno;
using vexa_test::recorder::next;
using vexa_test::recorder::OpenedPath;
using vexa_test::recorder::record;
using vexa_test::recorder::record_unmodelled;

int open_recorded(int directory, const char* path, int flags, mode_t mode) {
  const bool random = is_on() && std::strcmp(path, "/dev/urandom") == 0;
  const char* const name = random ? "/dev/zero" : path;
  const auto real = [&] { return static_cast<int>(syscall(SYS_openat, directory, name, flags, mode)); };
  const FullPath full(directory, path);
  if (!full.is_recorded()) return real();
  struct stat status = {};
  const bool present = fstatat(directory, path, &status, 0) == 0;
  const int fd = real();
  const KeepErrno keep;
  if (fd < 0) return fd;
  if ((flags & (O_SYNC | O_DSYNC)) != 0) record_unmodelled("O_SYNC", full.path());
  if ((flags & O_TMPFILE) == O_TMPFILE) record_unmodelled("O_TMPFILE", full.path());
  fstat(fd, &status);
  record(present ? FileOp::kOpen : FileOp::kCreate, status.st_ino, 0, full.path());
  if (present && (flags & O_TRUNC) != 0) record(FileOp::kTruncate, status.st_ino, 0, full.path());
  return fd;
}

void record_write(int fd, ssize_t written, std::uint64_t offset, const void* data) {
  if (written <= 0 || !is_on()) return;
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
  if (result != 0 || !is_on()) return;
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
__attribute__((visibility("default"))) void file_recorder_die_after(unsigned operations);
int __open_2(const char* path, int flags);
int __open64_2(const char* path, int flags);
int __openat_2(int directory, const char* path, int flags);
int __openat64_2(int directory, const char* path, int flags);

void file_recorder_start(const char* log) { vexa_test::recorder::start(log); }

void file_recorder_mark(const char* text, std::size_t size) {
  if (is_on()) record(FileOp::kMark, 0, 0, {}, {}, {text, size});
}

void file_recorder_die_after(unsigned operations) { vexa_test::recorder::die_after(operations); }

int openat64(int directory, const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = mode_of(flags, arguments);
  va_end(arguments);
  return open_recorded(directory, path, flags, mode);
}

int openat(int directory, const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = mode_of(flags, arguments);
  va_end(arguments);
  return open_recorded(directory, path, flags, mode);
}

int open64(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = mode_of(flags, arguments);
  va_end(arguments);
  return open_recorded(AT_FDCWD, path, flags, mode);
}

int open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = mode_of(flags, arguments);
  va_end(arguments);
  return open_recorded(AT_FDCWD, path, flags, mode);
}

int __open_2(const char* path, int flags) { return open_recorded(AT_FDCWD, path, flags, 0); }
int __open64_2(const char* path, int flags) { return open_recorded(AT_FDCWD, path, flags, 0); }
int __openat_2(int directory, const char* path, int flags) {
  return open_recorded(directory, path, flags, 0);
}
int __openat64_2(int directory, const char* path, int flags) {
  return open_recorded(directory, path, flags, 0);
}

int creat(const char* path, mode_t mode) {
  return open_recorded(AT_FDCWD, path, O_CREAT | O_WRONLY | O_TRUNC, mode);
}
int creat64(const char* path, mode_t mode) { return creat(path, mode); }

ssize_t write(int fd, const void* data, size_t size) {
  const ssize_t written = syscall(SYS_write, fd, data, size);
  if (written > 0 && is_on()) {
    const KeepErrno keep;
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
  if (written > 0 && is_on()) {
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

int syncfs(int fd) noexcept {
  const int result = static_cast<int>(syscall(SYS_syncfs, fd));
  record_on(fd, result, FileOp::kSyncPlace, 0);
  return result;
}

void sync() noexcept {
  syscall(SYS_sync);
  if (is_on()) record(FileOp::kSyncAll, 0, 0, {});
}

int renameat2(int from_directory, const char* from, int to_directory, const char* to,
              unsigned flags) noexcept {
  const FullPath source(from_directory, from);
  const FullPath target(to_directory, to);
  const int result = static_cast<int>(syscall(SYS_renameat2, from_directory, from, to_directory, to, flags));
  if (result != 0 || (!source.is_recorded() && !target.is_recorded())) return result;
  const KeepErrno keep;
  // RENAME_NOREPLACE, which mv asks for first, changes nothing about a rename that succeeded.
  if ((flags & ~1U) != 0) record_unmodelled("renameat2 with flags", source.path());
  record(FileOp::kRename, 0, 0, source.path(), target.path());
  return result;
}

int renameat(int from_directory, const char* from, int to_directory, const char* to) noexcept {
  return renameat2(from_directory, from, to_directory, to, 0);
}

int rename(const char* from, const char* to) noexcept { return renameat2(AT_FDCWD, from, AT_FDCWD, to, 0); }

int unlinkat(int directory, const char* path, int flags) noexcept {
  const FullPath full(directory, path);
  const int result = static_cast<int>(syscall(SYS_unlinkat, directory, path, flags));
  if (result != 0 || !full.is_recorded()) return result;
  const KeepErrno keep;
  if ((flags & AT_REMOVEDIR) != 0) record_unmodelled("rmdir", full.path());
  record(FileOp::kUnlink, 0, 0, full.path());
  return result;
}

int unlink(const char* path) noexcept { return unlinkat(AT_FDCWD, path, 0); }

int clock_gettime(clockid_t clock, timespec* now) noexcept {
  constexpr time_t kNewYear = 1767225600;  // 2026
  const int result = static_cast<int>(syscall(SYS_clock_gettime, clock, now));
  if (result == 0 && is_on() && clock == CLOCK_REALTIME) {
    *now = {kNewYear + static_cast<time_t>(vexa_test::recorder::log_size() / 1024), 0};
  }
  return result;
}

#if __SIZEOF_LONG__ == 4
// What the library calls; SQLite calls the other.
struct Time64 {
  std::int64_t seconds;
  std::int64_t nanoseconds;
};
int __clock_gettime64(clockid_t clock, Time64* now) noexcept;
int __clock_gettime64(clockid_t clock, Time64* now) noexcept {
  timespec narrow = {};
  const int result = clock_gettime(clock, &narrow);
  *now = {narrow.tv_sec, narrow.tv_nsec};
  return result;
}
#endif

}  // extern "C"
