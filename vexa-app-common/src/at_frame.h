// SPDX-License-Identifier: MIT
// A command as the modem expects it.
#ifndef VEXADM_COMMON_AT_FRAME_H
#define VEXADM_COMMON_AT_FRAME_H

#include <string_view>

#include "owners.h"

namespace vexa::at {

// In capitals, with one carriage return at its end whatever line end it came with. False when memory
// is short.
class Frame {
 public:
  explicit Frame(std::string_view command);

  explicit operator bool() const { return static_cast<bool>(text_); }
  std::string_view text() const { return {text_.get(), length_}; }  // terminated

 private:
  HeapText text_;
  std::size_t length_ = 0;
};

}  // namespace vexa::at

#endif
