// SPDX-License-Identifier: MIT
// Captured log lines as short texts that a test can write down literally.
#ifndef VEXADM_TESTS_LOG_TEXT_H
#define VEXADM_TESTS_LOG_TEXT_H

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "support/log_capture.h"

namespace vexa_test {

// "3 dm_read_db|sqlite3_step error 101\n". A message that starts with its own source line number
// shows LINE in its place.
inline std::string log_text(const LogLine& line) {
  const std::string number = std::to_string(line.line);
  std::string message = line.message;
  const bool bracketed = message.starts_with("[" + number + "]");
  if (bracketed || message.starts_with(number + " "))
    message.replace(bracketed ? 1 : 0, number.size(), "LINE");
  return std::to_string(line.level) + " " + line.function + "|" + message;
}

// True when the text is the pattern, in which "<any>" stands for any run of characters and a
// leading "?" for any level.
inline bool log_matches(std::string_view text, std::string_view pattern) {
  static constexpr std::string_view kAny = "<any>";
  if (pattern.starts_with("? ") && text.find(' ') != std::string_view::npos) {
    pattern.remove_prefix(1);
    text.remove_prefix(text.find(' '));
  }
  auto any = pattern.find(kAny);
  if (any == std::string_view::npos) return text == pattern;
  if (!text.starts_with(pattern.substr(0, any))) return false;
  text.remove_prefix(any);
  pattern.remove_prefix(any + kAny.size());
  while ((any = pattern.find(kAny)) != std::string_view::npos) {
    const auto at = text.find(pattern.substr(0, any));
    if (at == std::string_view::npos) return false;
    text.remove_prefix(at + any);
    pattern.remove_prefix(any + kAny.size());
  }
  return text.ends_with(pattern);
}

inline std::vector<std::string> log_texts(const LogCapture& log, std::string_view function = {}) {
  std::vector<std::string> texts;
  for (const LogLine& line : log.lines()) {
    if (function.empty() || line.function == function) texts.push_back(log_text(line));
  }
  return texts;
}

// The whole log (of one function, where named) in order.
inline ::testing::AssertionResult log_is(const LogCapture& log, const std::vector<std::string>& expected,
                                         std::string_view function = {}) {
  const std::vector<std::string> texts = log_texts(log, function);
  bool same = texts.size() == expected.size();
  for (std::size_t i = 0; same && i < texts.size(); ++i) same = log_matches(texts[i], expected[i]);
  if (same) return ::testing::AssertionSuccess();
  auto result = ::testing::AssertionFailure() << "the log differs\n";
  for (const std::string& text : expected) result << "  expected: " << ::testing::PrintToString(text) << "\n";
  for (const std::string& text : texts) result << "  logged:   " << ::testing::PrintToString(text) << "\n";
  return result;
}

// How many lines match.
inline std::size_t log_count(const LogCapture& log, std::string_view pattern) {
  std::size_t found = 0;
  for (const std::string& text : log_texts(log)) found += log_matches(text, pattern) ? 1u : 0u;
  return found;
}

}  // namespace vexa_test

#endif
