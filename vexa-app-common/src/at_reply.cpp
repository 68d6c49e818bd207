// SPDX-License-Identifier: MIT
#include "at_reply.h"

#include <algorithm>
#include <cstring>

namespace vexa::at {
namespace {

constexpr char kFailure[] = "\r\nERROR\r\n";

void skip(std::string_view& text, char c) {
  text.remove_prefix(std::min(text.find_first_not_of(c), text.size()));
}

}  // namespace

void Reply::take_without_echo(std::size_t received, std::string_view command) {
  const std::string_view datagram(text_.get(), received);
  const std::size_t echo = datagram.find(command);
  if (echo == std::string_view::npos) {
    take(received);
    return;
  }
  // What stands before the echo answers an earlier command and goes with it.
  std::string_view rest = datagram;
  rest.remove_prefix(echo + command.size());
  for (const char blank : {' ', '\r', '\n'}) skip(rest, blank);
  // A service may send terminators along: text begins the reply, and the next datagram joins it. Those in
  // between stay, for an end may stand behind them.
  skip(rest, '\0');
  rest = rest.substr(0, rest.find_last_not_of('\0') + 1);
  total_ = rest.size();
  std::memmove(text_.get(), rest.data(), total_);
  std::memset(text_.get() + total_, 0, kSize - total_);
}

void Reply::fail() { std::memcpy(text_.get(), kFailure, sizeof kFailure); }

}  // namespace vexa::at
