// SPDX-License-Identifier: MIT
#include "netlink_socket.h"

#include <linux/netlink.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>

#include "log/call_site.h"

namespace vexa::netlink {

Descriptor open_route_socket() {
  return Descriptor(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
}

bool bind_socket(const Descriptor& socket, uint32_t port, uint32_t groups) {
  sockaddr_nl address = {};
  address.nl_family = AF_NETLINK;
  address.nl_pid = port;
  address.nl_groups = groups;
  const void* const generic = &address;
  return bind(socket.get(), static_cast<const sockaddr*>(generic), sizeof address) == 0;
}

int receive(const Descriptor& socket, msghdr& message, int flags) {
  constexpr const char* kName = "vexa_rtnl_receive";
  ssize_t count = 0;
  do {
    count = recvmsg(socket.get(), &message, flags);
  } while (count < 0 && (errno == EINTR || errno == EAGAIN));
  if (count < 0) {
    VEXA_LOG(log::kError, kName, "Can't receive from socket:%d\n", errno);
    return -1;
  }
  if (count == 0) VEXA_LOG(log::kError, kName, "EOF in the link\n");
  return static_cast<int>(count);
}

int receive_datagram(const Descriptor& socket, msghdr& message, Heap<char>& datagram) {
  iovec data = {};
  message.msg_iov = &data;
  message.msg_iovlen = 1;
  const int size = receive(socket, message, MSG_PEEK | MSG_TRUNC);
  if (size < 0) return size;
  // No allocator may take an empty datagram for a lack of memory.
  datagram = Heap<char>::zeroed(static_cast<std::size_t>(std::max(size, 1)));
  if (!datagram) {
    VEXA_LOG(log::kError, "vexa_rtnl_recvmsg", "oem_MALLOC failed\n");
    return -ENOMEM;
  }
  data = {datagram.get(), static_cast<std::size_t>(size)};
  const int count = receive(socket, message, 0);
  if (count < 0) datagram = {};
  return count;
}

}  // namespace vexa::netlink
