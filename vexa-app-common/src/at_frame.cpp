// SPDX-License-Identifier: MIT
#include "at_frame.h"

#include <algorithm>

namespace vexa::at {
namespace {

// Knows no locale: what a modem takes for a letter does not depend on the host's language.
char upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

// One line end, in the order in which a terminal writes it.
std::string_view without_line_end(std::string_view command) {
  if (command.ends_with('\n')) command.remove_suffix(1);
  if (command.ends_with('\r')) command.remove_suffix(1);
  return command;
}

}  // namespace

Frame::Frame(std::string_view command) : text_(HeapText::zeroed(command.size() + 2)) {
  if (!text_) return;
  const std::string_view bare = without_line_end(command);
  // Also within quotes: hosts write their commands with that in mind, and match the echo to it.
  char* const end = std::transform(bare.begin(), bare.end(), text_.get(), upper);
  *end = '\r';
  length_ = bare.size() + 1;
}

}  // namespace vexa::at
