// SPDX-License-Identifier: MIT
// Netlink messages of any content, handed over directly and as the kernel's answers: what is found in
// them is what a second parser finds, and no byte outside of them is looked at.
//
// The sender is always the kernel: the queries stay at a message of anybody else for ever.
#include <arpa/inet.h>
#include <net/if.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <vexadm/netlink.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <deque>
#include <memory>
#include <vector>

#include "fuzz_target.h"

using vexa_fuzz::check;

namespace {

constexpr unsigned kIndex = 7;
constexpr char kName[] = "wan0";

// ---- In the kernel's place ----

struct Kernel {
  std::deque<std::string> datagrams;
  unsigned errors = 0;  // a bit for each receiving call that fails
  int socket = -1;
} kernel;

bool fails_now() {
  const bool fails = (kernel.errors & 1U) != 0;
  kernel.errors >>= 1;
  if (fails) errno = EINTR;
  return fails;
}

ssize_t give(void* into, std::size_t size, int flags) {
  const std::string datagram = kernel.datagrams.front();
  if ((flags & MSG_PEEK) == 0) kernel.datagrams.pop_front();
  const std::size_t count = std::min(size, datagram.size());
  if (count > 0) std::memcpy(into, datagram.data(), count);
  return static_cast<ssize_t>((flags & MSG_TRUNC) != 0 ? datagram.size() : count);
}

}  // namespace

#define VEXA_IN_PLACE __attribute__((visibility("default")))

extern "C" {

VEXA_IN_PLACE int socket(int, int, int) noexcept { return kernel.socket = eventfd(0, EFD_CLOEXEC); }
VEXA_IN_PLACE int bind(int, const sockaddr*, socklen_t) noexcept { return 0; }
VEXA_IN_PLACE int setsockopt(int, int, int, const void*, socklen_t) noexcept { return 0; }
VEXA_IN_PLACE ssize_t send(int, const void*, size_t size, int) { return static_cast<ssize_t>(size); }
VEXA_IN_PLACE int epoll_ctl(int, int, int, epoll_event*) noexcept { return 0; }
VEXA_IN_PLACE unsigned if_nametoindex(const char* name) noexcept {
  return std::strcmp(name, kName) == 0 ? kIndex : 0;
}

VEXA_IN_PLACE ssize_t recvmsg(int, msghdr* message, int flags) {
  if (fails_now()) return -1;
  if (kernel.datagrams.empty()) return 0;
  auto* const sender = static_cast<sockaddr_nl*>(message->msg_name);
  *sender = {};
  sender->nl_family = AF_NETLINK;
  return give(message->msg_iov->iov_base, message->msg_iov->iov_len, flags);
}

VEXA_IN_PLACE ssize_t recv(int, void* bytes, size_t size, int flags) {
  if (fails_now()) return -1;
  if (!kernel.datagrams.empty()) return give(bytes, size, flags);
  errno = EAGAIN;
  return -1;
}

VEXA_IN_PLACE int epoll_wait(int, epoll_event* events, int, int) {
  if (kernel.datagrams.empty()) return 0;
  events[0].events = EPOLLIN;
  events[0].data.fd = kernel.socket;
  return 1;
}

}  // extern "C"

namespace {

// ---- The second parser ----

template <typename Number>
Number number_at(const std::string& bytes, std::size_t at) {
  Number number = 0;
  std::memcpy(&number, bytes.data() + at, sizeof number);
  return number;
}

std::size_t rounded(std::size_t length) { return (length + 3) / 4 * 4; }

struct Part {
  std::size_t at;
  std::size_t length;
};

// Attributes, or messages: whole ones, one behind the other.
template <typename Length>
std::vector<Part> parts_of(const std::string& bytes, std::size_t at, std::size_t end, std::size_t header) {
  std::vector<Part> parts;
  while (at < end && end - at >= header) {
    const std::size_t length = number_at<Length>(bytes, at);
    if (length < header || length > end - at) break;
    parts.push_back({at, length});
    at += rounded(length);
  }
  return parts;
}

std::vector<Part> attributes_of(const std::string& bytes, std::size_t at, std::size_t end) {
  return parts_of<std::uint16_t>(bytes, at, end, 4);
}
std::vector<Part> messages_of(const std::string& bytes) {
  return parts_of<std::uint32_t>(bytes, 0, bytes.size(), 16);
}

// The gateway's text; empty for none.
std::string gateway_of(const std::string& bytes, const Part& message, const std::string& name) {
  if (message.length < 28 || name != kName) return {};
  std::string gateway;
  std::uint32_t index = kIndex;
  for (const Part& attribute : attributes_of(bytes, message.at + 28, message.at + message.length)) {
    const auto type = number_at<std::uint16_t>(bytes, attribute.at + 2);
    if (type == 4) index = attribute.length >= 8 ? number_at<std::uint32_t>(bytes, attribute.at + 4) : kIndex;
    if (type == 5) gateway = attribute.length >= 20 ? bytes.substr(attribute.at + 4, 16) : "";
  }
  if (bytes[message.at + 16] != AF_INET6 || index != kIndex || gateway.empty()) return {};
  char text[46];
  return inet_ntop(AF_INET6, gateway.data(), text, sizeof text);
}

std::string gateway_of_dump(const std::string& bytes, const std::string& name) {
  for (const Part& message : messages_of(bytes)) {
    if ((number_at<std::uint16_t>(bytes, message.at + 6) & 0x10) != 0) return {};
    if (number_at<std::uint16_t>(bytes, message.at + 4) == 2) return {};
    const std::string gateway = gateway_of(bytes, message, name);
    if (!gateway.empty()) return gateway;
  }
  return {};
}

std::string address_text(const std::string& bytes, std::size_t at) {
  std::string text;
  for (std::size_t i = 0; i < 16; ++i) {
    char digits[4];
    std::snprintf(digits, sizeof digits, "%02x",
                  static_cast<unsigned>(static_cast<unsigned char>(bytes[at + i])));
    text += (i > 0 && i % 2 == 0 ? ":" : "") + std::string(digits);
  }
  return text;
}

// True when the datagram ends the wait.
bool take_addresses(const std::string& bytes, std::string& text) {
  for (const Part& message : messages_of(bytes)) {
    const auto type = number_at<std::uint16_t>(bytes, message.at + 4);
    if (type == 3) return false;
    if (type != 20 || message.length < 24) continue;
    if (number_at<std::uint32_t>(bytes, message.at + 20) != kIndex) return false;
    for (const Part& attribute : attributes_of(bytes, message.at + 24, message.at + message.length)) {
      if (number_at<std::uint16_t>(bytes, attribute.at + 2) != 1 || attribute.length < 20) continue;
      text = address_text(bytes, attribute.at + 4);
      if (!text.starts_with("fe80")) return true;
    }
  }
  return false;
}

// ---- The calls ----

// In memory of exactly their size.
class Exact {
 public:
  explicit Exact(const std::string& bytes) : memory_(std::malloc(bytes.size()), &std::free) {
    if (!bytes.empty()) std::memcpy(memory_.get(), bytes.data(), bytes.size());
  }
  template <typename Record>
  Record* as() const {
    return static_cast<Record*>(memory_.get());
  }

 private:
  std::unique_ptr<void, decltype(&std::free)> memory_;
};

void parse_attributes(const std::string& bytes, std::int32_t max) {
  const Exact exact(bytes);
  const auto places = static_cast<std::size_t>(max + 1);
  rtattr untouched = {};
  const auto table = std::make_unique<rtattr*[]>(places);
  std::fill_n(table.get(), places, &untouched);
  vexa_parse_rtattr(table.get(), max, exact.as<rtattr>(), static_cast<std::int32_t>(bytes.size()));
  std::vector<const char*> expected(places, nullptr);
  for (const Part& attribute : attributes_of(bytes, 0, bytes.size())) {
    const auto type = number_at<std::uint16_t>(bytes, attribute.at + 2);
    if (type < places) expected[type] = exact.as<char>() + attribute.at;
  }
  for (std::size_t i = 0; i < places; ++i) {
    const void* const found = table[i];
    check(found == expected[i], "another attribute");
  }
}

void dump_route(std::string bytes, const std::string& name) {
  bytes.resize(std::max<std::size_t>(bytes.size(), 16));
  // A length beyond the memory would be the caller's lie.
  if (number_at<std::uint32_t>(bytes, 0) > bytes.size()) {
    const auto size = static_cast<std::uint32_t>(bytes.size());
    std::memcpy(bytes.data(), &size, sizeof size);
  }
  const Exact exact(bytes);
  const Exact text(std::string("untouched") + std::string(37, '\0'));
  const std::string gateway = gateway_of(bytes, {0, number_at<std::uint32_t>(bytes, 0)}, name);
  const std::int32_t result = vexa_dump_route(exact.as<nlmsghdr>(), name.c_str(), text.as<char>());
  check(result == (gateway.empty() ? -1 : 0), "a route is judged differently");
  check(text.as<char>() == (gateway.empty() ? "untouched" : gateway), "another gateway of a route");
}

void ask_for_gateway(const std::string& bytes, const std::string& name) {
  kernel.datagrams = {bytes};
  const Exact text(std::string(46, '#'));
  check(vexa_get_ipv6_default_gw(name.c_str(), text.as<char>()) == 0, "the answer could not be asked for");
  check(text.as<char>() == gateway_of_dump(bytes, name), "another gateway of an answer");
}

void wait_for_address(const std::vector<std::string>& datagrams) {
  kernel.datagrams.assign(datagrams.begin(), datagrams.end());
  const Exact out(std::string("untouched") + std::string(31, '\0'));
  check(vexa_check_global_ipv6_addr(kName, out.as<char>()) == 0, "the wait was refused");
  std::string text = "untouched";
  for (const std::string& datagram : datagrams) {
    if (take_addresses(datagram.substr(0, 4096), text)) break;
  }
  check(out.as<char>() == text, "another address");
}

}  // namespace

void vexa_fuzz::set_up() {}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const vexa_fuzz::Watch watch;
  vexa_fuzz::Source source(data, size);
  const unsigned kind = source.byte();
  const std::string name = (kind & 4) != 0 ? "wan1" : kName;
  kernel = {};
  kernel.errors = source.byte();
  switch (kind % 4) {
    case 0: {
      const auto max = static_cast<std::int32_t>(source.below(40)) - 1;
      parse_attributes(source.bytes(2000), max);
      break;
    }
    case 1:
      dump_route(source.bytes(2000), name);
      break;
    case 2:
      ask_for_gateway(source.bytes(6000), name);
      break;
    default: {
      std::vector<std::string> datagrams;
      while (source.left() > 0 && datagrams.size() < 8)
        datagrams.push_back(source.bytes(source.word() % 5000));
      wait_for_address(datagrams);
      break;
    }
  }
  return 0;
}
