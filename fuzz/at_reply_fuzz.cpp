// SPDX-License-Identifier: MIT
// A modem that answers anything: datagrams in any cut, interruptions, errors. What is sent, what
// comes back to its last byte, and how often the library waits are held against a model.
#include <sys/select.h>
#include <sys/socket.h>
#include <vexadm/at_command.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "fuzz_target.h"

using vexa_fuzz::check;
using vexa_fuzz::Source;

namespace {

// What one attempt to read meets.
struct Event {
  enum Kind { kDatagram, kNothingComes, kInterrupted, kNotReceived } kind = kNothingComes;
  std::string datagram = {};
};

struct Modem {
  std::vector<Event> events;
  std::size_t waits = 0;
  int sent_less = 0;  // bytes that the kernel leaves out of the command
  std::string sent;
};
Modem modem;

// ---- What must come out ----

constexpr std::array<const char*, 8> kEnds = {"ERROR", "OK\r\n", "0\r",        "3\r",
                                              "3",     "4\r",    "NO CARRIER", "+CME ERROR:"};

std::string framed(std::string command) {
  if (!command.empty() && command.back() == '\n') command.pop_back();
  if (!command.empty() && command.back() == '\r') command.pop_back();
  for (char& c : command) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 32);
  }
  return command + '\r';
}

bool stands_at(const std::string& buffer, std::size_t at, const std::string& text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (buffer[at + i] != text[i]) return false;
  }
  return true;
}

bool is_end(const std::string& buffer, std::size_t total, const std::string& marker) {
  std::size_t begin = 0;
  for (std::size_t at = 0; at + marker.size() <= total; ++at) {
    if (!stands_at(buffer, at, marker)) continue;
    const char before = at == begin ? '\n' : buffer[at - 1];
    if (before == '\r' || before == '\n' || before == '\0') return true;
    begin = at + marker.size();
    at = begin - 1;
  }
  return false;
}

// The reply as a whole, and in waits how many attempts it took.
std::string expected_reply(const std::string& command, std::size_t& waits) {
  std::string buffer(VEXA_AT_REPLY_SIZE, '\0');
  std::size_t total = 0;
  for (waits = 0; waits < 3;) {
    const Event& event = modem.events[waits++];
    if (event.kind != Event::kDatagram) continue;
    const std::size_t got = std::min(event.datagram.size(), buffer.size() - 1 - total);
    for (std::size_t i = 0; i < got; ++i) buffer[total + i] = event.datagram[i];
    std::size_t echo = 0;
    while (echo + command.size() <= got && !stands_at(buffer, echo, command)) ++echo;
    if (waits == 1 && echo + command.size() <= got) {
      std::size_t at = echo + command.size();
      for (const char blank : {' ', '\r', '\n'}) {
        while (at < got && buffer[at] == blank) ++at;
      }
      std::size_t end = got;
      while (at < end && buffer[at] == '\0') ++at;
      while (end > at && buffer[end - 1] == '\0') --end;
      const std::string rest = buffer.substr(at, end - at);
      buffer = rest + std::string(VEXA_AT_REPLY_SIZE - rest.size(), '\0');
      total = rest.size();
    } else {
      total += got;
    }
    for (const char* marker : kEnds) {
      if (is_end(buffer, total, marker)) return buffer;
    }
  }
  static constexpr char kFailure[] = "\r\nERROR\r\n";
  for (std::size_t i = 0; i < sizeof kFailure; ++i) buffer[i] = kFailure[i];
  return buffer;
}

// ---- The input ----

// Of pieces that mean something to the library, and of bytes.
std::string datagram_from(Source& source, const std::string& command) {
  static const std::array<std::string, 6> kPieces = {"\r\n", std::string(1, '\0'), " ", "\r", "\n", "x"};
  std::string datagram;
  while (source.left() > 0) {
    const unsigned piece = source.below(20);
    if (piece < 8) {
      datagram += kEnds[piece];
    } else if (piece == 8) {
      datagram += command;
    } else if (piece < 15) {
      datagram += kPieces[piece - 9];
    } else if (piece == 15) {
      datagram += source.bytes(source.below(24));
    } else if (piece == 16) {
      datagram += std::string(source.below(2200), 'x');
    } else {
      break;
    }
  }
  return datagram;
}

Event event_from(Source& source, const std::string& command) {
  const unsigned kind = source.byte();
  if (kind >= 16) return {Event::kDatagram, datagram_from(source, command)};
  if (kind % 3 == 0) return {Event::kNothingComes};
  return {kind % 3 == 1 ? Event::kInterrupted : Event::kNotReceived};
}

// Exactly as long as the text, so that one byte more is seen.
std::unique_ptr<char[]> exact(const std::string& text) {
  auto copy = std::make_unique<char[]>(text.size() + 1);
  std::memcpy(copy.get(), text.c_str(), text.size() + 1);
  return copy;
}

void ask(Source& source) {
  modem = Modem();
  const unsigned sending = source.byte();
  modem.sent_less = sending == 1 ? 1 : (sending == 2 ? -1 : 0);
  const std::string command = source.bytes(source.below(32)).c_str();
  const std::string sent = framed(command);
  for (int i = 0; i < 3; ++i) modem.events.push_back(event_from(source, sent));

  const auto given = exact(command);
  char* const reply = vexa_util_send_at(given.get());
  const std::string bytes(reply, VEXA_AT_REPLY_SIZE);
  std::free(reply);
  std::size_t waits = 0;
  std::string expected = std::string("\r\nERROR\r\n") + std::string(VEXA_AT_REPLY_SIZE - 9, '\0');
  if (!command.empty() && modem.sent_less == 0) expected = expected_reply(sent, waits);
  check(command == given.get(), "the command is changed");
  check(modem.sent == (command.empty() ? "" : sent), "another command is sent");
  check(modem.waits == waits, "it waits another number of times");
  check(bytes == expected, "another reply comes back");
}

void strip(Source& source) {
  const std::string set = source.bytes(source.below(8)).c_str();
  const std::string text = source.bytes(64).c_str();
  const auto buffer = exact(text);
  const auto removed = exact(set);
  const char* const result = vexa_at_param_strip(buffer.get(), removed.get());
  std::size_t begin = 0;
  while (begin < text.size() && set.find(text[begin]) != std::string::npos) ++begin;
  std::size_t end = text.size();
  while (end > begin && set.find(text[end - 1]) != std::string::npos) --end;
  check(result == buffer.get() + begin, "the text begins elsewhere");
  std::string expected = text;
  for (std::size_t i = end; i < text.size(); ++i) expected[i] = '\0';
  check(std::memcmp(buffer.get(), expected.c_str(), expected.size() + 1) == 0, "another text is left");
}

}  // namespace

// ---- In place of the C library's functions: the modem ----

extern "C" ssize_t sendto(int, const void* bytes, std::size_t count, int, const sockaddr*, socklen_t) {
  modem.sent.assign(static_cast<const char*>(bytes), count);
  if (modem.sent_less < 0) {
    errno = ENOBUFS;
    return -1;
  }
  return static_cast<ssize_t>(count) - modem.sent_less;
}

extern "C" int select(int, fd_set*, fd_set*, fd_set*, timeval* most) {
  check(most->tv_sec == 20 && most->tv_usec == 0, "it waits another time");
  check(modem.waits < 3, "it waits more than three times");
  const Event& event = modem.events[modem.waits++];
  if (event.kind == Event::kNothingComes) return 0;
  errno = EINTR;
  return event.kind == Event::kInterrupted ? -1 : 1;
}

extern "C" ssize_t recvfrom(int, void* bytes, std::size_t most, int flags, sockaddr*, socklen_t*) {
  check(flags == MSG_DONTWAIT, "it blocks in the receiving");
  const Event& event = modem.events[modem.waits - 1];
  errno = EAGAIN;
  if (event.kind == Event::kNotReceived) return -1;
  const std::size_t count = std::min(most, event.datagram.size());
  std::memcpy(bytes, event.datagram.data(), count);
  return static_cast<ssize_t>(count);
}

void vexa_fuzz::set_up() {}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const vexa_fuzz::Watch watch;
  Source source(data, size);
  if (source.byte() == 0) {
    strip(source);
  } else {
    ask(source);
  }
  return 0;
}
