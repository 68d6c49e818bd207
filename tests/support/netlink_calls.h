// SPDX-License-Identifier: MIT
// What a netlink socket asks of the kernel: watched, made to fail, or answered in its place, for what
// the kernel does not send when one wants it. Include it in the one source of a program.
#ifndef VEXADM_TESTS_NETLINK_CALLS_H
#define VEXADM_TESTS_NETLINK_CALLS_H

#include <dlfcn.h>
#include <linux/netlink.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "support/libc_calls.h"

namespace vexa_test {

// What a receiving call gives in the kernel's place: an error, or a datagram and who sent it. No
// bytes are the end of the link. Looking at a datagram leaves it there, and may be all that works.
struct Arrival {
  int error = 0;
  std::string bytes = {};
  std::uint32_t sender = 0;
  int reading_error = 0;
};

// Of a socket, with a time for its value.
struct Option {
  int level;
  int name;
  timeval value;
};

// Of all sockets of the process; every test is a process of its own.
struct NetlinkCalls {
  static inline std::string failing;  // the name of the call that fails, with the error
  static inline int error = 0;
  static inline std::function<void(int fd, const std::string& bytes)> before_send;
  static inline std::function<void(int turn)> before_wait;  // turns count from 1
  static inline std::deque<Arrival> arrivals;               // before those of the kernel
  static inline std::deque<std::uint32_t> announced;  // events of the socket, before those of the kernel
  static inline std::deque<timespec> monotonic;       // what the clock says, before the kernel's
  static inline int sends_interrupted = 0;            // so many that follow
  static inline int waits_interrupted = 0;
  static inline int receives = 0;  // by recvmsg
  static inline int waits = 0;

  // What the library asked of its netlink sockets.
  static inline std::vector<std::array<int, 3>> sockets;  // family, type, protocol
  static inline std::vector<sockaddr_nl> addresses;
  static inline std::vector<Option> options;
  static inline std::vector<std::uint32_t> watched;      // events
  static inline int watched_fd = -1;                     // the last one
  static inline std::vector<std::array<int, 2>> limits;  // events at most, milliseconds

  static void reset() {
    sockets.clear();
    addresses.clear();
    options.clear();
    watched.clear();
    limits.clear();
    failing.clear();
    before_send = nullptr;
    before_wait = nullptr;
    arrivals.clear();
    announced.clear();
    monotonic.clear();
    sends_interrupted = waits_interrupted = receives = waits = 0;
  }

  static bool fails(const char* name) {
    if (failing != name) return false;
    errno = error;
    return true;
  }
};

inline ssize_t take_arrival(void* into, std::size_t size, int flags, sockaddr_nl* sender) {
  const Arrival arrival = NetlinkCalls::arrivals.front();
  const bool only_looks = (flags & MSG_PEEK) != 0;
  const int error = only_looks || arrival.error != 0 ? arrival.error : arrival.reading_error;
  if (!only_looks || error != 0 || arrival.bytes.empty()) NetlinkCalls::arrivals.pop_front();
  if (error != 0) {
    errno = error;
    return -1;
  }
  const std::size_t count = std::min(size, arrival.bytes.size());
  if (count > 0) std::memcpy(into, arrival.bytes.data(), count);
  if (sender != nullptr) {
    *sender = {};
    sender->nl_family = AF_NETLINK;
    sender->nl_pid = arrival.sender;
  }
  return static_cast<ssize_t>((flags & MSG_TRUNC) != 0 ? arrival.bytes.size() : count);
}

}  // namespace vexa_test

#define VEXA_IN_PLACE __attribute__((visibility("default")))

extern "C" {

VEXA_IN_PLACE int socket(int family, int type, int protocol) noexcept {
  if (vexa_test::NetlinkCalls::fails("socket")) return -1;
  vexa_test::NetlinkCalls::sockets.push_back({family, type, protocol});
  return static_cast<int>(syscall(SYS_socket, family, type, protocol));
}

VEXA_IN_PLACE int bind(int fd, const sockaddr* address, socklen_t size) noexcept {
  if (vexa_test::NetlinkCalls::fails("bind")) return -1;
  if (size == sizeof(sockaddr_nl)) {
    std::memcpy(&vexa_test::NetlinkCalls::addresses.emplace_back(), address, size);
  }
  return static_cast<int>(syscall(SYS_bind, fd, address, size));
}

VEXA_IN_PLACE int setsockopt(int fd, int level, int name, const void* value, socklen_t size) noexcept {
  if (vexa_test::NetlinkCalls::fails("setsockopt")) return -1;
  if (size == sizeof(timeval)) {
    auto& option = vexa_test::NetlinkCalls::options.emplace_back(vexa_test::Option{level, name, {}});
    std::memcpy(&option.value, value, size);
  }
  // By the C library: it knows kernels that take no times of 64 bits.
  static const auto next = reinterpret_cast<decltype(&setsockopt)>(dlsym(RTLD_NEXT, VEXA_SETSOCKOPT));
  return next(fd, level, name, value, size);
}

VEXA_IN_PLACE ssize_t send(int fd, const void* bytes, size_t size, int flags) {
  using Calls = vexa_test::NetlinkCalls;
  if (Calls::fails("send")) return -1;
  if (Calls::sends_interrupted > 0) {
    --Calls::sends_interrupted;
    errno = EINTR;
    return -1;
  }
  if (Calls::before_send) Calls::before_send(fd, std::string(static_cast<const char*>(bytes), size));
  return syscall(SYS_sendto, fd, bytes, size, flags, nullptr, 0);
}

VEXA_IN_PLACE ssize_t recvmsg(int fd, msghdr* message, int flags) {
  using Calls = vexa_test::NetlinkCalls;
  ++Calls::receives;
  if (Calls::arrivals.empty()) return syscall(SYS_recvmsg, fd, message, flags);
  const iovec& data = message->msg_iov[0];
  return vexa_test::take_arrival(data.iov_base, data.iov_len, flags,
                                 static_cast<sockaddr_nl*>(message->msg_name));
}

VEXA_IN_PLACE ssize_t recv(int fd, void* bytes, size_t size, int flags) {
  if (!vexa_test::NetlinkCalls::arrivals.empty()) return vexa_test::take_arrival(bytes, size, flags, nullptr);
  return syscall(SYS_recvfrom, fd, bytes, size, flags, nullptr, nullptr);
}

VEXA_IN_PLACE int epoll_create1(int flags) noexcept {
  if (vexa_test::NetlinkCalls::fails("epoll_create1")) return -1;
  return static_cast<int>(syscall(SYS_epoll_create1, flags));
}

VEXA_IN_PLACE int epoll_ctl(int epoll, int operation, int fd, epoll_event* event) noexcept {
  if (vexa_test::NetlinkCalls::fails("epoll_ctl")) return -1;
  vexa_test::NetlinkCalls::watched.push_back(event->events);
  vexa_test::NetlinkCalls::watched_fd = fd;
  return static_cast<int>(syscall(SYS_epoll_ctl, epoll, operation, fd, event));
}

VEXA_IN_PLACE int epoll_wait(int epoll, epoll_event* events, int most, int milliseconds) {
  using Calls = vexa_test::NetlinkCalls;
  Calls::limits.push_back({most, milliseconds});
  if (Calls::before_wait) Calls::before_wait(++Calls::waits);
  if (Calls::waits_interrupted > 0) {
    --Calls::waits_interrupted;
    errno = EINTR;
    return -1;
  }
  if (!Calls::announced.empty()) {
    events[0].events = Calls::announced.front();
    events[0].data.fd = Calls::watched_fd;
    Calls::announced.pop_front();
    return 1;
  }
  return static_cast<int>(syscall(SYS_epoll_pwait, epoll, events, most, milliseconds, nullptr, 0));
}

VEXA_IN_PLACE int clock_gettime(clockid_t clock, timespec* time) noexcept {
  using Calls = vexa_test::NetlinkCalls;
  if (clock == CLOCK_MONOTONIC && !Calls::monotonic.empty()) {
    *time = Calls::monotonic.front();
    Calls::monotonic.pop_front();
    return 0;
  }
  return vexa_test::kernel_clock(clock, time);
}

}  // extern "C"

#endif
