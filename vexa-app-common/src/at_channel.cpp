// SPDX-License-Identifier: MIT
// One AT command and its reply, over the router's local AT service.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include "at_end.h"
#include "at_frame.h"
#include "at_reply.h"
#include "log/call_site.h"
#include "vexadm/at_command.h"

namespace {

using vexa::Descriptor;
using vexa::at::Frame;
using vexa::at::Reply;

constexpr const char* kName = "vexa_util_send_at";
constexpr int kAttempts = 3;
constexpr int kWaitSeconds = 20;

sockaddr_in service() {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(VEXA_AT_PORT);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

bool send_command(int fd, std::string_view command) {
  const sockaddr_in address = service();
  const auto* const to = reinterpret_cast<const sockaddr*>(&address);
  ssize_t sent = -1;
  do {
    sent = sendto(fd, command.data(), command.size(), 0, to, sizeof address);
  } while (sent < 0 && errno == EINTR);
  return sent == static_cast<ssize_t>(command.size());
}

// What select() answers. In a host with very many descriptors the socket has no place in a set, and
// setting its bit would write behind it: poll() waits for that one.
int wait_for_datagram(int fd) {
  if (fd >= FD_SETSIZE) {
    pollfd readable = {fd, POLLIN, 0};
    return poll(&readable, 1, kWaitSeconds * 1000);
  }
  fd_set readable;
  FD_ZERO(&readable);
  FD_SET(fd, &readable);
  timeval time_out = {kWaitSeconds, 0};
  return select(fd + 1, &readable, nullptr, nullptr, &time_out);
}

// Bytes that are new in the reply, which do not count in it yet; -1 when there are none to look at.
ssize_t receive(int fd, int attempt, Reply& reply) {
  const int ready = wait_for_datagram(fd);
  if (ready <= 0) {
    // An interruption by a signal uses up an attempt: hosts rely on the bound of three waits.
    VEXA_LOG(vexa::log::kError, kName, "select fail:ret=%d\n", ready);
    return -1;
  }
  // From whoever it comes: the socket is all that a reply is known by.
  const std::span<char> room = reply.room();
  const ssize_t count = recvfrom(fd, room.data(), room.size(), MSG_DONTWAIT, nullptr, nullptr);
  if (count < 0) {
    VEXA_LOG(vexa::log::kError, kName, "recvfrom fail:error=%d,[%s]\n", errno, std::strerror(errno));
    return -1;
  }
  VEXA_LOG(vexa::log::kInfo, kName, "recvfrom[%d,%d] %d bytes:[%d, %s]\n", attempt,
           static_cast<int>(reply.total()), static_cast<int>(count),
           static_cast<int>(std::strlen(reply.text())), reply.text());
  return count;
}

bool read_reply(int fd, std::string_view command, Reply& reply) {
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    const ssize_t received = receive(fd, attempt, reply);
    if (received < 0) continue;
    if (attempt == 0) {
      reply.take_without_echo(static_cast<std::size_t>(received), command);
    } else {
      reply.take(static_cast<std::size_t>(received));
    }
    if (vexa::at::has_end(reply.bytes())) return true;
  }
  return false;
}

bool ask(std::string_view command, Reply& reply) {
  const Descriptor service(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!service) {
    VEXA_LOG(vexa::log::kError, kName, "socket error [%s]%d\n", std::strerror(errno), errno);
    return false;
  }
  VEXA_LOG(vexa::log::kInfo, kName, "send at cmd:[%d,%s]\n", static_cast<int>(command.size()),
           command.data());
  return send_command(service.get(), command) && read_reply(service.get(), command, reply);
}

}  // namespace

char* vexa_util_send_at(const char* command) {
  Reply reply;
  const std::string_view asked = command ? command : "";
  const Frame frame(asked);
  VEXA_ASSERT(reply && frame, "vexa_common_def");
  // Modems do not answer an empty line: nobody should wait a minute for that.
  if (asked.empty() || !ask(frame.text(), reply)) reply.fail();
  return reply.release();
}
