// SPDX-License-Identifier: MIT
// Messages of the routing netlink, put together by hand.
#ifndef VEXADM_TESTS_NETLINK_MESSAGE_H
#define VEXADM_TESTS_NETLINK_MESSAGE_H

#include <arpa/inet.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

namespace vexa_test {

template <typename Record>
std::string bytes_of(const Record& record) {
  return std::string(reinterpret_cast<const char*>(&record), sizeof record);
}

inline std::string padded(std::string bytes) {
  bytes.resize((bytes.size() + 3) / 4 * 4);
  return bytes;
}

// An attribute with its padding; a length other than its own where one is given.
inline std::string attribute(std::uint16_t type, const std::string& value, int length = -1) {
  rtattr header = {};
  header.rta_type = type;
  header.rta_len = static_cast<std::uint16_t>(length >= 0 ? length : static_cast<int>(4 + value.size()));
  return padded(bytes_of(header) + value);
}

inline std::string ipv6(const char* text) {
  std::string bytes(16, '\0');
  if (inet_pton(AF_INET6, text, bytes.data()) != 1) std::abort();
  return bytes;
}

// A message with its padding; a length other than its own where one is given.
inline std::string message(std::uint16_t type, const std::string& body, std::uint16_t flags = 0,
                           std::int64_t length = -1) {
  nlmsghdr header = {};
  header.nlmsg_type = type;
  header.nlmsg_flags = flags;
  header.nlmsg_len = static_cast<std::uint32_t>(length >= 0 ? length : std::int64_t(16 + body.size()));
  return padded(bytes_of(header) + body);
}

inline std::string route(const std::string& attributes, std::uint8_t family = AF_INET6,
                         std::uint16_t flags = 0) {
  rtmsg header = {};
  header.rtm_family = family;
  return message(RTM_NEWROUTE, bytes_of(header) + attributes, flags);
}

inline std::string via(const char* gateway) { return attribute(RTA_GATEWAY, ipv6(gateway)); }
inline std::string through(std::uint32_t index) { return attribute(RTA_OIF, bytes_of(index)); }

inline std::string new_address(std::uint32_t index, const std::string& attributes, std::uint8_t scope = 0,
                               std::uint16_t type = RTM_NEWADDR) {
  ifaddrmsg header = {};
  header.ifa_family = AF_INET6;
  header.ifa_scope = scope;
  header.ifa_index = index;
  return message(type, bytes_of(header) + attributes);
}

inline std::string address(const char* text) { return attribute(IFA_ADDRESS, ipv6(text)); }

// The bytes in memory of exactly their size, so that a sanitizer sees one byte too many.
class Exact {
 public:
  explicit Exact(const std::string& bytes) : memory_(std::malloc(bytes.size()), &std::free) {
    std::memcpy(memory_.get(), bytes.data(), bytes.size());
  }
  nlmsghdr* message() const { return static_cast<nlmsghdr*>(memory_.get()); }
  rtattr* attributes() const { return static_cast<rtattr*>(memory_.get()); }

 private:
  std::unique_ptr<void, decltype(&std::free)> memory_;
};

}  // namespace vexa_test

#endif
