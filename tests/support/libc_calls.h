// SPDX-License-Identifier: MIT
// For tests that put themselves in place of functions of the C library, or call the kernel past it.
// Where long has 32 bits the library uses times and file offsets of 64 bits (as the tests do, see
// tests/CMakeLists.txt): the C library has those functions under names of their own, and the kernel
// under numbers of their own.
#ifndef VEXADM_TESTS_LIBC_CALLS_H
#define VEXADM_TESTS_LIBC_CALLS_H

#include <sys/syscall.h>
#include <sys/types.h>
#include <time.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>

#ifdef __USE_TIME_BITS64
#define VEXA_TIME64_NAME(name, name_of_64_bits) name_of_64_bits
#else
#define VEXA_TIME64_NAME(name, name_of_64_bits) name
#endif

#define VEXA_CLOCK_GETTIME VEXA_TIME64_NAME("clock_gettime", "__clock_gettime64")
#define VEXA_COND_TIMEDWAIT VEXA_TIME64_NAME("pthread_cond_timedwait", "__pthread_cond_timedwait64")
#define VEXA_FCNTL64 VEXA_TIME64_NAME("fcntl64", "__fcntl_time64")
#define VEXA_FSTAT64 VEXA_TIME64_NAME("fstat64", "__fstat64_time64")
#define VEXA_IOCTL VEXA_TIME64_NAME("ioctl", "__ioctl_time64")
#define VEXA_LSTAT64 VEXA_TIME64_NAME("lstat64", "__lstat64_time64")
#define VEXA_NANOSLEEP VEXA_TIME64_NAME("nanosleep", "__nanosleep64")
#define VEXA_RECVMSG VEXA_TIME64_NAME("recvmsg", "__recvmsg64")
#define VEXA_SELECT VEXA_TIME64_NAME("select", "__select64")
#define VEXA_SETSOCKOPT VEXA_TIME64_NAME("setsockopt", "__setsockopt64")
#define VEXA_STAT64 VEXA_TIME64_NAME("stat64", "__stat64_time64")

namespace vexa_test {

inline int kernel_clock(clockid_t clock, timespec* now) {
#ifdef __USE_TIME_BITS64
  return static_cast<int>(syscall(SYS_clock_gettime64, clock, now));
#else
  return static_cast<int>(syscall(SYS_clock_gettime, clock, now));
#endif
}

inline int kernel_sleep(const timespec* pause, timespec* left) {
#ifdef __USE_TIME_BITS64
  return static_cast<int>(syscall(SYS_clock_nanosleep_time64, CLOCK_REALTIME, 0, pause, left));
#else
  return static_cast<int>(syscall(SYS_nanosleep, pause, left));
#endif
}

inline int kernel_fcntl(int fd, int command, void* argument) {
#ifdef SYS_fcntl64
  return static_cast<int>(syscall(SYS_fcntl64, fd, command, argument));
#else
  return static_cast<int>(syscall(SYS_fcntl, fd, command, argument));
#endif
}

inline int kernel_fchown(int fd, uid_t user, gid_t group) {
#ifdef SYS_fchown32
  return static_cast<int>(syscall(SYS_fchown32, fd, user, group));
#else
  return static_cast<int>(syscall(SYS_fchown, fd, user, group));
#endif
}

// ARM passes a number of 64 bits in an even register and the next one.
#if defined(__arm__)
#define VEXA_OFFSET_ARGUMENT(offset) \
  0, static_cast<long>((offset)&0xFFFFFFFF), static_cast<long>((offset) >> 32)
#elif __SIZEOF_LONG__ == 8
#define VEXA_OFFSET_ARGUMENT(offset) (offset)
#else
#error "how does this processor pass a number of 64 bits to the kernel?"
#endif

inline ssize_t kernel_pread(int fd, void* bytes, std::size_t count, std::int64_t offset) {
  return syscall(SYS_pread64, fd, bytes, count, VEXA_OFFSET_ARGUMENT(offset));
}

inline ssize_t kernel_pwrite(int fd, const void* bytes, std::size_t count, std::int64_t offset) {
  return syscall(SYS_pwrite64, fd, bytes, count, VEXA_OFFSET_ARGUMENT(offset));
}

inline int kernel_truncate(int fd, std::int64_t size) {
#ifdef SYS_ftruncate64
  return static_cast<int>(syscall(SYS_ftruncate64, fd, VEXA_OFFSET_ARGUMENT(size)));
#else
  return static_cast<int>(syscall(SYS_ftruncate, fd, size));
#endif
}

}  // namespace vexa_test

#undef VEXA_OFFSET_ARGUMENT

#endif
