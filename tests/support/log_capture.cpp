// SPDX-License-Identifier: MIT
#include "support/log_capture.h"

#include <vexadm/log.h>

#include <array>
#include <cstdlib>

namespace vexa_test {
namespace {

std::vector<LogLine> g_lines;

int level_of(std::string_view tag) {
  static constexpr std::array<std::string_view, 5> kTags = {" DBUG", " INFO", "-WRN-", "=ERR=", "*CRT*"};
  for (std::size_t level = 0; level < kTags.size(); ++level) {
    if (tag == kTags[level]) return static_cast<int>(level);
  }
  return -1;
}

// "<time> : <tag> | [<pid> | <tid>-<thread>] | <function> <line> | <message>"
LogLine parse(std::string_view text) {
  constexpr auto kNone = std::string_view::npos;
  const LogLine unknown{-1, "", 0, std::string(text)};

  const auto tag = text.find(" : ");
  const auto origin = tag == kNone ? kNone : text.find(" | [", tag);
  const auto place = origin == kNone ? kNone : text.find("] | ", origin);
  const auto message = place == kNone ? kNone : text.find(" | ", place + 4);
  if (message == kNone) return unknown;

  const std::string_view call_site = text.substr(place + 4, message - place - 4);
  const auto space = call_site.rfind(' ');
  if (space == kNone) return unknown;
  return LogLine{level_of(text.substr(tag + 3, origin - tag - 3)), std::string(call_site.substr(0, space)),
                 std::atoi(std::string(call_site.substr(space + 1)).c_str()),
                 std::string(text.substr(message + 3))};
}

void take(const char* line) { g_lines.push_back(parse(line)); }

}  // namespace

LogCapture::LogCapture() : level_before_(vexa_get_log_level()) {
  g_lines.clear();
  set_print_interface(take);
  vexa_set_log_level(0);
}

LogCapture::~LogCapture() {
  set_print_interface(nullptr);
  vexa_set_log_level(level_before_);
}

const std::vector<LogLine>& LogCapture::lines() const { return g_lines; }

void LogCapture::clear() { g_lines.clear(); }

bool LogCapture::has(int level, std::string_view function, std::string_view message) const {
  for (const LogLine& line : g_lines) {
    if (line.level == level && line.function == function && line.message == message) return true;
  }
  return false;
}

std::size_t LogCapture::count(std::string_view message) const {
  std::size_t found = 0;
  for (const LogLine& line : g_lines) found += line.message == message ? 1u : 0u;
  return found;
}

std::vector<std::string> LogCapture::messages() const {
  std::vector<std::string> all;
  for (const LogLine& line : g_lines) all.push_back(line.message);
  return all;
}

}  // namespace vexa_test
