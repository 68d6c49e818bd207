// SPDX-License-Identifier: MIT
#include "demo_screen.h"

#include <unistd.h>
#include <vexadm/vexadm.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace demo {
namespace {

bool g_colour = false;
bool g_repair_log = false;
std::vector<std::string> g_told;  // a repair is tried by several reads: each line is told once

std::string painted(const char* code, std::string_view text) {
  if (!g_colour) return std::string(text);
  return "\033[" + std::string(code) + "m" + std::string(text) + "\033[0m";
}

// "<time> : <tag> | [<process>] | <function> <line> | <message>": people want the message.
std::string_view message_of(std::string_view line) {
  const auto end = line.find_last_not_of("\r\n");
  line = line.substr(0, end == std::string_view::npos ? 0 : end + 1);
  for (int field = 0; field < 4; ++field) {
    const auto bar = line.find(" | ");
    if (bar == std::string_view::npos) return line;
    line = line.substr(bar + 3);
  }
  return line;
}

void take_log_line(const char* line) {
  if (!g_repair_log) return;
  static constexpr std::array<std::string_view, 3> kTelling = {"is damaged", "ERROR: cp",
                                                               "corruption detected"};
  const std::string_view message = message_of(line);
  for (const std::string_view part : kTelling) {
    if (message.find(part) == std::string_view::npos) continue;
    if (std::ranges::find(g_told, message) != g_told.end()) return;
    g_told.emplace_back(message);
    std::printf("      %s\n", dimmed("library log: " + g_told.back()).c_str());
    return;
  }
}

}  // namespace

void set_up_screen() {
  const char* no_colour = std::getenv("NO_COLOR");
  const bool wanted = no_colour == nullptr || *no_colour == '\0';
  g_colour = wanted && isatty(STDOUT_FILENO) != 0;
  // Lines of several processes go to one output: each whole, and in order.
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
}

void heading(int number, std::string_view title) {
  std::printf("\n%s\n", painted("1;36", std::to_string(number) + ". " + std::string(title)).c_str());
}

void say(const char* format, ...) {
  std::va_list values;
  va_start(values, format);
  std::printf("   ");
  std::vprintf(format, values);
  std::printf("\n");
  va_end(values);
}

void show(const char* format, ...) {
  std::va_list values;
  va_start(values, format);
  std::printf("      ");
  std::vprintf(format, values);
  std::printf("\n");
  va_end(values);
}

std::string passed(std::string_view text) { return painted("1;32", text); }
std::string failed(std::string_view text) { return painted("1;31", text); }
std::string dimmed(std::string_view text) { return painted("2", text); }

void quiet_log() {
  set_print_interface(take_log_line);
  vexa_set_log_level(3);
}

void show_repair_log(bool on) {
  g_repair_log = on;
  g_told.clear();
}

}  // namespace demo
