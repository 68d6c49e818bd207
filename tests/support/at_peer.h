// SPDX-License-Identifier: MIT
// An AT service that answers one command with exactly the datagrams it is told.
#ifndef VEXADM_TESTS_AT_PEER_H
#define VEXADM_TESTS_AT_PEER_H

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace vexa_test {

// All datagrams are under way before the library waits for the second one: nothing depends on time.
class AtPeer {
 public:
  using Hook = std::function<void()>;
  enum class Answers { kFromItsPort, kFromElsewhere };

  // The hook is called when the command has come, before it is answered.
  explicit AtPeer(std::vector<std::string> datagrams, Hook hook = {}, Answers answers = Answers::kFromItsPort)
      : socket_(bound_socket(5555)), foreign_(bound_socket(0)) {
    const int answering = answers == Answers::kFromItsPort ? socket_ : foreign_;
    thread_ = std::thread([this, answering, datagrams = std::move(datagrams), hook = std::move(hook)] {
      char bytes[65536];
      sockaddr_in from = {};
      socklen_t length = sizeof from;
      auto* const address = reinterpret_cast<sockaddr*>(&from);
      const ssize_t count = recvfrom(socket_, bytes, sizeof bytes, 0, address, &length);
      if (count < 0) return;
      command_.assign(bytes, static_cast<std::size_t>(count));
      if (hook) hook();
      for (const std::string& datagram : datagrams) {
        EXPECT_EQ(sendto(answering, datagram.data(), datagram.size(), 0, address, length),
                  static_cast<ssize_t>(datagram.size()));
      }
    });
  }
  AtPeer(const AtPeer&) = delete;
  AtPeer& operator=(const AtPeer&) = delete;
  ~AtPeer() {
    if (thread_.joinable()) command();
    close(socket_);
    close(foreign_);
  }

  // The datagram that came; waits for it.
  const std::string& command() {
    if (thread_.joinable()) thread_.join();
    return command_;
  }

 private:
  static int bound_socket(std::uint16_t port) {
    const int bound = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const timeval most = {20, 0};  // a command that never comes must not hang the test
    EXPECT_EQ(setsockopt(bound, SOL_SOCKET, SO_RCVTIMEO, &most, sizeof most), 0);
    EXPECT_EQ(bind(bound, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    return bound;
  }

  int socket_;
  int foreign_;
  std::thread thread_;
  std::string command_;
};

}  // namespace vexa_test

#endif
