// SPDX-License-Identifier: MIT
#include "support/own_network.h"

#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace vexa_test {

std::string enter_own_network() {
  if (unshare(CLONE_NEWNET) != 0) return std::string("no network namespace: ") + std::strerror(errno);
  const int any_socket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ifreq loopback = {};
  std::strcpy(loopback.ifr_name, "lo");
  loopback.ifr_flags = IFF_UP | IFF_RUNNING;
  const bool up = any_socket >= 0 && ioctl(any_socket, SIOCSIFFLAGS, &loopback) == 0;
  const int reason = errno;
  if (any_socket >= 0) close(any_socket);
  return up ? "" : std::string("no loopback interface: ") + std::strerror(reason);
}

}  // namespace vexa_test
