// SPDX-License-Identifier: MIT
#include "faults/failing_calls.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysinfo.h>
#include <sys/types.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "support/libc_calls.h"

namespace vexa_test {
namespace {

constexpr std::uint64_t kNamesKept = 8192;
constexpr std::size_t kWhereSize = 160;

struct State {
  bool armed = false;
  FaultPlan plan;
  std::uint64_t seen = 0;
  std::uint64_t failed = 0;
  std::int64_t slept_ns = 0;  // how far the clock is ahead
  char first_failed[kWhereSize] = "";
  bool copy_unsynced = false;
  std::uint64_t unsynced_renames = 0;
  std::array<const char*, kNamesKept> names = {};
  void (*watcher)(const char* name) = nullptr;
};

State g_state;

bool is_transfer(const char* name) {
  return std::strstr(name, "read") != nullptr || std::strstr(name, "write") != nullptr ||
         std::strcmp(name, "sendto") == 0;
}

using Where = char[kWhereSize - 32];

// The path of a descriptor. No allocation and no stream: the caller may be anywhere.
const char* path_of(int fd, Where& target) {
  char link[32];
  snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
  const long length = syscall(SYS_readlinkat, AT_FDCWD, link, target, sizeof target - 1);
  target[length > 0 ? length : 0] = '\0';
  return target;
}

// A file copy of the library under its temporary name.
constexpr char kCopy[] = "vexadm-copy";

bool is_copy(int fd) {
  Where target;
  return g_state.armed && std::strstr(path_of(fd, target), kCopy) != nullptr;
}

// The errno value that this operation has to fail with, kShortCount, or 0.
int due(const char* name, const char* path = nullptr, int fd = -1) {
  if (!g_state.armed) return 0;
  const FaultPlan& plan = g_state.plan;
  if (plan.call[0] != '\0' && std::strcmp(plan.call, name) != 0) return 0;
  Where target;
  if (plan.path[0] != '\0') {
    if (path == nullptr) path = path_of(fd, target);
    if (std::strstr(path, plan.path) == nullptr) return 0;
  }
  const std::uint64_t n = ++g_state.seen;
  if (n <= kNamesKept) g_state.names[static_cast<std::size_t>(n - 1)] = name;
  if (g_state.watcher != nullptr) g_state.watcher(name);
  if (plan.from == 0 || n < plan.from || n - plan.from >= plan.count) return 0;
  if (plan.error == kShortCount && !is_transfer(name)) return 0;
  if (g_state.failed++ == 0) {
    if (path == nullptr) path = path_of(fd, target);
    snprintf(g_state.first_failed, sizeof g_state.first_failed, "%s %.120s", name, path);
  }
  return plan.error;
}

template <typename Result, typename Forward>
Result or_fail(int error, Result failure, Forward forward) {
  if (error == 0) return forward();
  errno = error;
  return failure;
}

template <typename Forward>
ssize_t transfer(const char* name, int fd, std::size_t count, Forward forward) {
  const int error = due(name, nullptr, fd);
  if (error == kShortCount) return forward(count / 2 + count % 2);
  return or_fail<ssize_t>(error, -1, [&] { return forward(count); });
}

// The next definition in the search order: the C library's, or a sanitizer's before it.
template <typename Function>
Function next(Function, const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

int open_file(const char* path, int flags, va_list rest) {
  mode_t mode = 0;
  if ((flags & (O_CREAT | O_TMPFILE)) != 0) mode = static_cast<mode_t>(va_arg(rest, unsigned));
  return or_fail(due("open", path), -1, [&] { return openat(AT_FDCWD, path, flags, mode); });
}

int control(int fd, int command, va_list rest) {
  void* argument = va_arg(rest, void*);
  return or_fail(due("fcntl", nullptr, fd), -1, [&] { return kernel_fcntl(fd, command, argument); });
}

int sync_file(const char* name, long number, int fd) {
  const int result =
      or_fail(due(name, nullptr, fd), -1, [&] { return static_cast<int>(syscall(number, fd)); });
  if (result == 0 && is_copy(fd)) g_state.copy_unsynced = false;
  return result;
}

}  // namespace

FailingCalls::FailingCalls(const FaultPlan& plan) {
  g_state = {};
  g_state.plan = plan;
  g_state.armed = true;
}

FailingCalls::~FailingCalls() { g_state.armed = false; }

void FailingCalls::watch(void (*watcher)(const char* name)) { g_state.watcher = watcher; }
std::uint64_t FailingCalls::seen() { return g_state.seen; }
std::uint64_t FailingCalls::failed() { return g_state.failed; }
const char* FailingCalls::first_failed() { return g_state.first_failed; }
std::uint64_t FailingCalls::unsynced_renames() { return g_state.unsynced_renames; }

bool FailingCalls::is_own(std::uint64_t n) {
  static constexpr std::array<std::string_view, 18> kOwn = {
      "write", "fsync",  "rename", "realpath", "fchmod", "fchown",   "faccessat", "syncfs", "fopen",
      "popen", "system", "mkdir",  "socket",   "sendto", "recvfrom", "select",    "poll",   "ioctl"};
  if (n < 1 || n > kNamesKept || n > g_state.seen) return false;
  return std::find(kOwn.begin(), kOwn.end(), g_state.names[static_cast<std::size_t>(n - 1)]) != kOwn.end();
}

}  // namespace vexa_test

// ---- The operations, under the C library's names but not its declarations ----

#define VEXA_IN_PLACE_OF(name) __asm__(name) __attribute__((visibility("default"), used))

namespace {
using vexa_test::control;
using vexa_test::due;
using vexa_test::g_state;
using vexa_test::is_copy;
using vexa_test::kCopy;
using vexa_test::kernel_clock;
using vexa_test::kernel_fchown;
using vexa_test::kernel_pread;
using vexa_test::kernel_pwrite;
using vexa_test::kernel_sleep;
using vexa_test::kernel_truncate;
using vexa_test::next;
using vexa_test::open_file;
using vexa_test::or_fail;
using vexa_test::sync_file;
using vexa_test::transfer;
}  // namespace

extern "C" {

int vexa_open(const char* path, int flags, ...) VEXA_IN_PLACE_OF("open");
int vexa_open64(const char* path, int flags, ...) VEXA_IN_PLACE_OF("open64");
int vexa_close(int fd) VEXA_IN_PLACE_OF("close");
ssize_t vexa_read(int fd, void* bytes, std::size_t count) VEXA_IN_PLACE_OF("read");
ssize_t vexa_pread64(int fd, void* bytes, std::size_t count, off64_t offset) VEXA_IN_PLACE_OF("pread64");
ssize_t vexa_write(int fd, const void* bytes, std::size_t count) VEXA_IN_PLACE_OF("write");
ssize_t vexa_pwrite64(int fd, const void* bytes, std::size_t count, off64_t offset)
    VEXA_IN_PLACE_OF("pwrite64");
int vexa_fsync(int fd) VEXA_IN_PLACE_OF("fsync");
int vexa_fdatasync(int fd) VEXA_IN_PLACE_OF("fdatasync");
int vexa_syncfs(int fd) VEXA_IN_PLACE_OF("syncfs");
int vexa_ftruncate64(int fd, off64_t size) VEXA_IN_PLACE_OF("ftruncate64");
int vexa_rename(const char* from, const char* to) VEXA_IN_PLACE_OF("rename");
int vexa_unlink(const char* path) VEXA_IN_PLACE_OF("unlink");
int vexa_mkdir(const char* path, mode_t mode) VEXA_IN_PLACE_OF("mkdir");
int vexa_fcntl(int fd, int command, ...) VEXA_IN_PLACE_OF("fcntl");
int vexa_fcntl64(int fd, int command, ...) VEXA_IN_PLACE_OF(VEXA_FCNTL64);
int vexa_stat64(const char* path, struct stat64* status) VEXA_IN_PLACE_OF(VEXA_STAT64);
int vexa_lstat64(const char* path, struct stat64* status) VEXA_IN_PLACE_OF(VEXA_LSTAT64);
int vexa_fstat64(int fd, struct stat64* status) VEXA_IN_PLACE_OF(VEXA_FSTAT64);
int vexa_access(const char* path, int mode) VEXA_IN_PLACE_OF("access");
int vexa_faccessat(int at, const char* path, int mode, int flags) VEXA_IN_PLACE_OF("faccessat");
ssize_t vexa_readlink(const char* path, char* target, std::size_t size) VEXA_IN_PLACE_OF("readlink");
int vexa_fchmod(int fd, mode_t mode) VEXA_IN_PLACE_OF("fchmod");
int vexa_fchown(int fd, uid_t user, gid_t group) VEXA_IN_PLACE_OF("fchown");
char* vexa_realpath(const char* path, char* real) VEXA_IN_PLACE_OF("realpath");
FILE* vexa_fopen64(const char* path, const char* mode) VEXA_IN_PLACE_OF("fopen64");
FILE* vexa_popen(const char* command, const char* mode) VEXA_IN_PLACE_OF("popen");
int vexa_system(const char* command) VEXA_IN_PLACE_OF("system");
int vexa_socket(int family, int type, int protocol) VEXA_IN_PLACE_OF("socket");
int vexa_bind(int fd, const struct sockaddr* address, socklen_t size) VEXA_IN_PLACE_OF("bind");
int vexa_setsockopt(int fd, int level, int name, const void* value, socklen_t size)
    VEXA_IN_PLACE_OF(VEXA_SETSOCKOPT);
ssize_t vexa_send(int fd, const void* bytes, std::size_t count, int flags) VEXA_IN_PLACE_OF("send");
ssize_t vexa_recv(int fd, void* bytes, std::size_t count, int flags) VEXA_IN_PLACE_OF("recv");
ssize_t vexa_recvmsg(int fd, struct msghdr* message, int flags) VEXA_IN_PLACE_OF(VEXA_RECVMSG);
int vexa_epoll_create1(int flags) VEXA_IN_PLACE_OF("epoll_create1");
int vexa_epoll_ctl(int epoll, int operation, int fd, struct epoll_event* event) VEXA_IN_PLACE_OF("epoll_ctl");
int vexa_epoll_wait(int epoll, struct epoll_event* events, int most, int ms) VEXA_IN_PLACE_OF("epoll_wait");
unsigned vexa_if_nametoindex(const char* name) VEXA_IN_PLACE_OF("if_nametoindex");
int vexa_sysinfo(struct sysinfo* info) VEXA_IN_PLACE_OF("sysinfo");
int vexa_pipe2(int ends[2], int flags) VEXA_IN_PLACE_OF("pipe2");
int vexa_dup2(int from, int to) VEXA_IN_PLACE_OF("dup2");
pid_t vexa_fork() VEXA_IN_PLACE_OF("fork");
int vexa_execvp(const char* program, char* const words[]) VEXA_IN_PLACE_OF("execvp");
int vexa_select(int bound, fd_set* to_read, fd_set* to_write, fd_set* odd, timeval* most)
    VEXA_IN_PLACE_OF(VEXA_SELECT);
int vexa_kill(pid_t process, int number) VEXA_IN_PLACE_OF("kill");
pid_t vexa_waitpid(pid_t process, int* status, int options) VEXA_IN_PLACE_OF("waitpid");
ssize_t vexa_sendto(int fd, const void* bytes, std::size_t count, int flags, const sockaddr* to,
                    socklen_t size) VEXA_IN_PLACE_OF("sendto");
ssize_t vexa_recvfrom(int fd, void* bytes, std::size_t count, int flags, sockaddr* from, socklen_t* size)
    VEXA_IN_PLACE_OF("recvfrom");
int vexa_poll(pollfd* events, nfds_t count, int milliseconds) VEXA_IN_PLACE_OF("poll");
int vexa_ioctl(int fd, unsigned long request, ...) VEXA_IN_PLACE_OF(VEXA_IOCTL);
int vexa_nanosleep(const struct timespec* pause, struct timespec* left) VEXA_IN_PLACE_OF(VEXA_NANOSLEEP);
int vexa_clock_gettime(clockid_t clock, struct timespec* now) VEXA_IN_PLACE_OF(VEXA_CLOCK_GETTIME);

int vexa_open(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const int fd = open_file(path, flags, rest);
  va_end(rest);
  return fd;
}

int vexa_open64(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const int fd = open_file(path, flags, rest);
  va_end(rest);
  return fd;
}

// As on Linux: also a close that reports a failure has closed.
int vexa_close(int fd) {
  const int error = due("close", nullptr, fd);
  const int result = static_cast<int>(syscall(SYS_close, fd));
  return or_fail(error, -1, [&] { return result; });
}

ssize_t vexa_read(int fd, void* bytes, std::size_t count) {
  return transfer("read", fd, count, [&](std::size_t n) { return syscall(SYS_read, fd, bytes, n); });
}

ssize_t vexa_pread64(int fd, void* bytes, std::size_t count, off64_t offset) {
  return transfer("pread", fd, count, [&](std::size_t n) { return kernel_pread(fd, bytes, n, offset); });
}

ssize_t vexa_write(int fd, const void* bytes, std::size_t count) {
  if (is_copy(fd)) g_state.copy_unsynced = true;
  return transfer("write", fd, count, [&](std::size_t n) { return syscall(SYS_write, fd, bytes, n); });
}

ssize_t vexa_pwrite64(int fd, const void* bytes, std::size_t count, off64_t offset) {
  return transfer("pwrite", fd, count, [&](std::size_t n) { return kernel_pwrite(fd, bytes, n, offset); });
}

int vexa_fsync(int fd) { return sync_file("fsync", SYS_fsync, fd); }
int vexa_fdatasync(int fd) { return sync_file("fdatasync", SYS_fdatasync, fd); }
int vexa_syncfs(int fd) { return sync_file("syncfs", SYS_syncfs, fd); }

int vexa_ftruncate64(int fd, off64_t size) {
  return or_fail(due("ftruncate", nullptr, fd), -1, [&] { return kernel_truncate(fd, size); });
}

int vexa_rename(const char* from, const char* to) {
  if (g_state.copy_unsynced && std::strstr(from, kCopy) != nullptr) ++g_state.unsynced_renames;
  return or_fail(due("rename", to), -1, [&] { return renameat(AT_FDCWD, from, AT_FDCWD, to); });
}

int vexa_unlink(const char* path) {
  return or_fail(due("unlink", path), -1, [&] { return unlinkat(AT_FDCWD, path, 0); });
}

int vexa_mkdir(const char* path, mode_t mode) {
  return or_fail(due("mkdir", path), -1, [&] { return mkdirat(AT_FDCWD, path, mode); });
}

int vexa_fcntl(int fd, int command, ...) {
  va_list rest;
  va_start(rest, command);
  const int result = control(fd, command, rest);
  va_end(rest);
  return result;
}

int vexa_fcntl64(int fd, int command, ...) {
  va_list rest;
  va_start(rest, command);
  const int result = control(fd, command, rest);
  va_end(rest);
  return result;
}

int vexa_stat64(const char* path, struct stat64* status) {
  return or_fail(due("stat", path), -1, [&] { return fstatat64(AT_FDCWD, path, status, 0); });
}

int vexa_lstat64(const char* path, struct stat64* status) {
  return or_fail(due("lstat", path), -1,
                 [&] { return fstatat64(AT_FDCWD, path, status, AT_SYMLINK_NOFOLLOW); });
}

int vexa_fstat64(int fd, struct stat64* status) {
  return or_fail(due("fstat", nullptr, fd), -1, [&] { return fstatat64(fd, "", status, AT_EMPTY_PATH); });
}

int vexa_access(const char* path, int mode) {
  return or_fail(due("access", path), -1,
                 [&] { return static_cast<int>(syscall(SYS_faccessat, AT_FDCWD, path, mode)); });
}

int vexa_faccessat(int at, const char* path, int mode, int flags) {
  return or_fail(due("faccessat", path), -1,
                 [&] { return next(&vexa_faccessat, "faccessat")(at, path, mode, flags); });
}

ssize_t vexa_readlink(const char* path, char* target, std::size_t size) {
  return or_fail<ssize_t>(due("link", path), -1, [&] { return readlinkat(AT_FDCWD, path, target, size); });
}

int vexa_fchmod(int fd, mode_t mode) {
  return or_fail(due("fchmod", nullptr, fd), -1,
                 [&] { return static_cast<int>(syscall(SYS_fchmod, fd, mode)); });
}

int vexa_fchown(int fd, uid_t user, gid_t group) {
  return or_fail(due("fchown", nullptr, fd), -1, [&] { return kernel_fchown(fd, user, group); });
}

char* vexa_realpath(const char* path, char* real) {
  char* const none = nullptr;
  return or_fail(due("realpath", path), none, [&] { return next(&vexa_realpath, "realpath")(path, real); });
}

FILE* vexa_fopen64(const char* path, const char* mode) {
  FILE* const none = nullptr;
  return or_fail(due("fopen", path), none, [&] { return next(&vexa_fopen64, "fopen64")(path, mode); });
}

FILE* vexa_popen(const char* command, const char* mode) {
  FILE* const none = nullptr;
  return or_fail(due("popen", command), none, [&] { return next(&vexa_popen, "popen")(command, mode); });
}

int vexa_system(const char* command) {
  return or_fail(due("system", command), -1, [&] { return next(&vexa_system, "system")(command); });
}

int vexa_socket(int family, int type, int protocol) {
  return or_fail(due("socket", ""), -1,
                 [&] { return static_cast<int>(syscall(SYS_socket, family, type, protocol)); });
}

int vexa_bind(int fd, const struct sockaddr* address, socklen_t size) {
  return or_fail(due("bind", nullptr, fd), -1,
                 [&] { return static_cast<int>(syscall(SYS_bind, fd, address, size)); });
}

int vexa_setsockopt(int fd, int level, int name, const void* value, socklen_t size) {
  return or_fail(due("setsockopt", nullptr, fd), -1,
                 [&] { return next(&vexa_setsockopt, VEXA_SETSOCKOPT)(fd, level, name, value, size); });
}

ssize_t vexa_send(int fd, const void* bytes, std::size_t count, int flags) {
  return or_fail<ssize_t>(due("send", nullptr, fd), -1,
                          [&] { return syscall(SYS_sendto, fd, bytes, count, flags, nullptr, 0); });
}

ssize_t vexa_recv(int fd, void* bytes, std::size_t count, int flags) {
  return or_fail<ssize_t>(due("recv", nullptr, fd), -1,
                          [&] { return syscall(SYS_recvfrom, fd, bytes, count, flags, nullptr, nullptr); });
}

ssize_t vexa_recvmsg(int fd, struct msghdr* message, int flags) {
  return or_fail<ssize_t>(due("recvmsg", nullptr, fd), -1,
                          [&] { return syscall(SYS_recvmsg, fd, message, flags); });
}

int vexa_epoll_create1(int flags) {
  return or_fail(due("epoll_create1", ""), -1,
                 [&] { return static_cast<int>(syscall(SYS_epoll_create1, flags)); });
}

int vexa_epoll_ctl(int epoll, int operation, int fd, struct epoll_event* event) {
  return or_fail(due("epoll_ctl", nullptr, epoll), -1,
                 [&] { return static_cast<int>(syscall(SYS_epoll_ctl, epoll, operation, fd, event)); });
}

int vexa_epoll_wait(int epoll, struct epoll_event* events, int most, int ms) {
  return or_fail(due("epoll_wait", nullptr, epoll), -1, [&] {
    return static_cast<int>(syscall(SYS_epoll_pwait, epoll, events, most, ms, nullptr, 0));
  });
}

unsigned vexa_if_nametoindex(const char* name) {
  return or_fail(due("if_nametoindex", name), 0U,
                 [&] { return next(&vexa_if_nametoindex, "if_nametoindex")(name); });
}

int vexa_sysinfo(struct sysinfo* info) {
  return or_fail(due("sysinfo", ""), -1, [&] { return static_cast<int>(syscall(SYS_sysinfo, info)); });
}

int vexa_pipe2(int ends[2], int flags) {
  return or_fail(due("pipe2", ""), -1, [&] { return static_cast<int>(syscall(SYS_pipe2, ends, flags)); });
}

int vexa_dup2(int from, int to) {
  return or_fail(due("dup2", nullptr, from), -1, [&] { return next(&vexa_dup2, "dup2")(from, to); });
}

pid_t vexa_fork() {
  return or_fail(due("fork", ""), pid_t{-1}, [] { return next(&vexa_fork, "fork")(); });
}

int vexa_execvp(const char* program, char* const words[]) {
  return or_fail(due("execvp", program), -1, [&] { return next(&vexa_execvp, "execvp")(program, words); });
}

int vexa_select(int bound, fd_set* to_read, fd_set* to_write, fd_set* odd, timeval* most) {
  return or_fail(due("select", ""), -1,
                 [&] { return next(&vexa_select, VEXA_SELECT)(bound, to_read, to_write, odd, most); });
}

int vexa_kill(pid_t process, int number) {
  return or_fail(due("kill", ""), -1, [&] { return static_cast<int>(syscall(SYS_kill, process, number)); });
}

pid_t vexa_waitpid(pid_t process, int* status, int options) {
  return or_fail(due("waitpid", ""), pid_t{-1},
                 [&] { return next(&vexa_waitpid, "waitpid")(process, status, options); });
}

ssize_t vexa_sendto(int fd, const void* bytes, std::size_t count, int flags, const sockaddr* to,
                    socklen_t size) {
  return transfer("sendto", fd, count,
                  [&](std::size_t n) { return syscall(SYS_sendto, fd, bytes, n, flags, to, size); });
}

ssize_t vexa_recvfrom(int fd, void* bytes, std::size_t count, int flags, sockaddr* from, socklen_t* size) {
  return or_fail<ssize_t>(due("recvfrom", nullptr, fd), -1,
                          [&] { return syscall(SYS_recvfrom, fd, bytes, count, flags, from, size); });
}

int vexa_poll(pollfd* events, nfds_t count, int milliseconds) {
  return or_fail(due("poll", ""), -1, [&] { return next(&vexa_poll, "poll")(events, count, milliseconds); });
}

int vexa_ioctl(int fd, unsigned long request, ...) {
  va_list rest;
  va_start(rest, request);
  void* const argument = va_arg(rest, void*);
  va_end(rest);
  return or_fail(due("ioctl", nullptr, fd), -1,
                 [&] { return static_cast<int>(syscall(SYS_ioctl, fd, request, argument)); });
}

int vexa_nanosleep(const struct timespec* pause, struct timespec* left) {
  if (!g_state.armed) return kernel_sleep(pause, left);
  g_state.slept_ns += pause->tv_sec * 1000000000 + pause->tv_nsec;
  return 0;
}

int vexa_clock_gettime(clockid_t clock, struct timespec* now) {
  const int result = kernel_clock(clock, now);
  if (!g_state.armed || result != 0) return result;
  const std::int64_t ns = now->tv_nsec + g_state.slept_ns;
  now->tv_sec += ns / 1000000000;
  now->tv_nsec = static_cast<long>(ns % 1000000000);
  return 0;
}

#ifdef __USE_TIME_BITS64
// SQLite's, of which the record is another one: nothing here may look at it.
int vexa_fcntl64_time32(int fd, int command, ...) VEXA_IN_PLACE_OF("fcntl64");
int vexa_stat64_time32(const char* path, void* status) VEXA_IN_PLACE_OF("stat64");
int vexa_lstat64_time32(const char* path, void* status) VEXA_IN_PLACE_OF("lstat64");
int vexa_fstat64_time32(int fd, void* status) VEXA_IN_PLACE_OF("fstat64");

int vexa_fcntl64_time32(int fd, int command, ...) {
  va_list rest;
  va_start(rest, command);
  const int result = control(fd, command, rest);
  va_end(rest);
  return result;
}

int vexa_stat64_time32(const char* path, void* status) {
  return or_fail(due("stat", path), -1, [&] { return next(&vexa_stat64_time32, "stat64")(path, status); });
}

int vexa_lstat64_time32(const char* path, void* status) {
  return or_fail(due("lstat", path), -1, [&] { return next(&vexa_lstat64_time32, "lstat64")(path, status); });
}

int vexa_fstat64_time32(int fd, void* status) {
  return or_fail(due("fstat", nullptr, fd), -1,
                 [&] { return next(&vexa_fstat64_time32, "fstat64")(fd, status); });
}
#endif

}  // extern "C"
