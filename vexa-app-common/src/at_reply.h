// SPDX-License-Identifier: MIT
// What the modem has said so far.
#ifndef VEXADM_COMMON_AT_REPLY_H
#define VEXADM_COMMON_AT_REPLY_H

#include <span>
#include <string_view>

#include "owners.h"
#include "vexadm/at_command.h"

namespace vexa::at {

// Bytes as they were received, terminated and zero behind their end. False when memory is short.
class Reply {
 public:
  static constexpr std::size_t kSize = VEXA_AT_REPLY_SIZE;

  Reply() : text_(HeapText::zeroed(kSize)) {}

  explicit operator bool() const { return static_cast<bool>(text_); }
  const char* text() const { return text_.get(); }
  std::string_view bytes() const { return {text_.get(), total_}; }
  std::size_t total() const { return total_; }

  // Where the next datagram goes; what does not fit is lost.
  std::span<char> room() { return {text_.get() + total_, kSize - 1 - total_}; }
  void take(std::size_t received) { total_ += received; }

  // The first datagram: without the command, if the modem has repeated it.
  void take_without_echo(std::size_t received, std::string_view command);

  // The line that stands for every failure, over whatever was received.
  void fail();

  char* release() { return text_.release(); }

 private:
  HeapText text_;
  std::size_t total_ = 0;
};

}  // namespace vexa::at

#endif
