// SPDX-License-Identifier: MIT
// Sockets of the kernel's routing netlink.
#ifndef VEXADM_OS_NETLINK_SOCKET_H
#define VEXADM_OS_NETLINK_SOCKET_H

#include <sys/socket.h>

#include <cstdint>

#include "owners.h"

namespace vexa::netlink {

// Without an answer errno says why.
Descriptor open_route_socket();

// Port 0 lets the kernel choose one. False with errno.
bool bind_socket(const Descriptor& socket, uint32_t port, uint32_t groups);

// vexa_rtnl_receive: one message. Bytes received; 0 at the end of the link, -1 for an error.
int receive(const Descriptor& socket, msghdr& message, int flags);

// vexa_rtnl_recvmsg: one whole datagram of any size, in memory of its own, and who sent it when
// message has room for that. Bytes received; -1 for an error, -ENOMEM.
int receive_datagram(const Descriptor& socket, msghdr& message, Heap<char>& datagram);

}  // namespace vexa::netlink

#endif
