// SPDX-License-Identifier: MIT
// Calls that change files and that the replay does not know. None of them may occur in a recorded
// run: one that does is recorded by name, and the reading of that recording fails.
//
// Not here: chmod and chown (an image has no modes and owners), and reads. What reaches the
// kernel past the C library's names is found by the comparison of replay and files after each run.
#include <dirent.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "faults/file_recorder_log.h"

namespace {

using vexa_test::recorder::FullPath;
using vexa_test::recorder::is_on;
using vexa_test::recorder::next;
using vexa_test::recorder::record_unmodelled;

template <typename Result>
Result changed(const char* call, int fd, Result result) {
  if (result != static_cast<Result>(-1) && is_on()) record_unmodelled(call, fd);
  return result;
}

int changed_path(const char* call, int directory, const char* path, int result) {
  if (result == 0 && is_on()) record_unmodelled(call, FullPath(directory, path).path());
  return result;
}

FILE* opened_stream(const char* path, const char* mode, FILE* stream) {
  const bool changes = std::strpbrk(mode, "wa+") != nullptr;
  if (stream != nullptr && changes && is_on()) record_unmodelled("fopen", FullPath(AT_FDCWD, path).path());
  return stream;
}

}  // namespace

extern "C" {

ssize_t writev(int fd, const iovec* parts, int count) {
  return changed("writev", fd, static_cast<ssize_t>(syscall(SYS_writev, fd, parts, count)));
}
ssize_t pwritev64(int fd, const iovec* parts, int count, off64_t offset) {
  static const auto real = next<decltype(&pwritev64)>("pwritev64");
  return changed("pwritev", fd, real(fd, parts, count, offset));
}
ssize_t pwritev(int fd, const iovec* parts, int count, off_t offset) {
  return pwritev64(fd, parts, count, offset);
}
ssize_t sendfile64(int to, int from, off64_t* offset, size_t size) noexcept {
  static const auto real = next<decltype(&sendfile64)>("sendfile64");
  return changed("sendfile", to, real(to, from, offset, size));
}
ssize_t sendfile(int to, int from, off_t* offset, size_t size) noexcept {
  static const auto real = next<decltype(&sendfile)>("sendfile");
  return changed("sendfile", to, real(to, from, offset, size));
}
ssize_t splice(int from, off64_t* from_at, int to, off64_t* to_at, size_t size, unsigned flags) {
  static const auto real = next<decltype(&splice)>("splice");
  return changed("splice", to, real(from, from_at, to, to_at, size, flags));
}

int fallocate64(int fd, int mode, off64_t offset, off64_t size) {
  static const auto real = next<decltype(&fallocate64)>("fallocate64");
  return changed("fallocate", fd, real(fd, mode, offset, size));
}
int fallocate(int fd, int mode, off_t offset, off_t size) { return fallocate64(fd, mode, offset, size); }
int posix_fallocate64(int fd, off64_t offset, off64_t size) {
  static const auto real = next<decltype(&posix_fallocate64)>("posix_fallocate64");
  const int code = real(fd, offset, size);
  if (code == 0) record_unmodelled("posix_fallocate", fd);
  return code;
}
int posix_fallocate(int fd, off_t offset, off_t size) { return posix_fallocate64(fd, offset, size); }

int truncate64(const char* path, off64_t size) noexcept {
  static const auto real = next<decltype(&truncate64)>("truncate64");
  return changed_path("truncate", AT_FDCWD, path, real(path, size));
}
int truncate(const char* path, off_t size) noexcept { return truncate64(path, size); }

int mkdirat(int directory, const char* path, mode_t mode) noexcept {
  const auto result = static_cast<int>(syscall(SYS_mkdirat, directory, path, mode));
  return changed_path("mkdir", directory, path, result);
}
int mkdir(const char* path, mode_t mode) noexcept { return mkdirat(AT_FDCWD, path, mode); }
int rmdir(const char* path) noexcept { return unlinkat(AT_FDCWD, path, AT_REMOVEDIR); }
int remove(const char* path) noexcept {
  static const auto real = next<decltype(&remove)>("remove");
  return changed_path("remove", AT_FDCWD, path, real(path));
}

int linkat(int from_directory, const char* from, int directory, const char* path, int flags) noexcept {
  const auto result = static_cast<int>(syscall(SYS_linkat, from_directory, from, directory, path, flags));
  return changed_path("link", directory, path, result);
}
int link(const char* from, const char* path) noexcept { return linkat(AT_FDCWD, from, AT_FDCWD, path, 0); }
int symlinkat(const char* target, int directory, const char* path) noexcept {
  const auto result = static_cast<int>(syscall(SYS_symlinkat, target, directory, path));
  return changed_path("symlink", directory, path, result);
}
int symlink(const char* target, const char* path) noexcept { return symlinkat(target, AT_FDCWD, path); }
int mknodat(int directory, const char* path, mode_t mode, dev_t device) noexcept {
  const auto result = static_cast<int>(syscall(SYS_mknodat, directory, path, mode, device));
  return changed_path("mknod", directory, path, result);
}
int mknod(const char* path, mode_t mode, dev_t device) noexcept {
  return mknodat(AT_FDCWD, path, mode, device);
}

FILE* fopen(const char* path, const char* mode) {
  static const auto real = next<decltype(&fopen)>("fopen");
  return opened_stream(path, mode, real(path, mode));
}
FILE* fopen64(const char* path, const char* mode) {
  static const auto real = next<decltype(&fopen64)>("fopen64");
  return opened_stream(path, mode, real(path, mode));
}

int mkostemps(char* path, int suffix, int flags) {
  static const auto real = next<decltype(&mkostemps)>("mkostemps");
  const int fd = real(path, suffix, flags);
  return changed("mkstemp", fd, fd);
}
int mkostemp(char* path, int flags) { return mkostemps(path, 0, flags); }
int mkstemp(char* path) { return mkostemps(path, 0, 0); }

int ioctl(int fd, unsigned long request, ...) noexcept {
  va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  const auto result = static_cast<int>(syscall(SYS_ioctl, fd, request, argument));
  if (result == 0 && (request == FICLONE || request == FICLONERANGE)) record_unmodelled("clone", fd);
  return result;
}

#ifdef SYS_mmap
void* mmap64(void* address, size_t size, int protection, int flags, int fd, off64_t offset) noexcept {
  void* const mapped =
      reinterpret_cast<void*>(syscall(SYS_mmap, address, size, protection, flags, fd, offset));
  const bool shared = (flags & MAP_SHARED) != 0 && (flags & MAP_ANONYMOUS) == 0;
  if (mapped != MAP_FAILED && shared && (protection & PROT_WRITE) != 0) record_unmodelled("mmap", fd);
  return mapped;
}
void* mmap(void* address, size_t size, int protection, int flags, int fd, off_t offset) noexcept {
  return mmap64(address, size, protection, flags, fd, offset);
}
#endif

}  // extern "C"
