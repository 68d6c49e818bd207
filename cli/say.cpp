// SPDX-License-Identifier: MIT
// What the program says on standard error, and in colour.
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "base/value.h"
#include "command.h"
#include "look/database.h"

namespace cli {
namespace {

bool g_colour = false;

void say(const char* format, std::va_list arguments) {
  Text said;
  said.vaddf(format, arguments);
  // Names of a damaged store may hold what moves a terminal's cursor.
  Text line("vexadm: ");
  line.add(printable(said.view()).view()).add('\n');
  std::fflush(stdout);
  std::fwrite(line.c_str(), 1, line.size(), stderr);
}

}  // namespace

int fail(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  say(format, arguments);
  va_end(arguments);
  return kFailed;
}

int wrong_usage(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  say(format, arguments);
  va_end(arguments);
  return kUsage;
}

void note(const Arguments& arguments, const char* format, ...) {
  if (arguments.quiet) return;
  std::va_list values;
  va_start(values, format);
  say(format, values);
  va_end(values);
}

Progress::Progress(const Arguments& arguments) : shown_(!arguments.quiet && isatty(STDERR_FILENO) == 1) {}

void Progress::step(const char* what, std::size_t done, std::size_t all) {
  if (!shown_) return;
  std::fprintf(stderr, "\r%s %zu of %zu", what, done, all);
  dirty_ = true;
}

void Progress::end() {
  if (dirty_) std::fputs("\r\033[K", stderr);
  dirty_ = false;
}

namespace {

bool g_waiting_told = false;

void tell_waiting(const char* path) {
  if (path == nullptr) {
    if (g_waiting_told) std::fputs("\r\033[K", stderr);
    g_waiting_told = false;
  } else if (!g_waiting_told) {
    std::fprintf(stderr, "waiting for a lock on %s", path);
    g_waiting_told = true;
  }
}

}  // namespace

void tell_of_waiting(const Arguments& arguments) {
  if (!arguments.quiet && isatty(STDERR_FILENO) == 1) look::tell_of_waiting(tell_waiting);
}

void use_colour() {
  const char* never = std::getenv("NO_COLOR");
  const char* terminal = std::getenv("TERM");
  g_colour = (never == nullptr || never[0] == '\0') && isatty(STDOUT_FILENO) == 1 && terminal != nullptr &&
             std::string_view(terminal) != "dumb";
}

void add_coloured(Text& out, Colour colour, std::string_view text) {
  static constexpr const char* kCodes[] = {"", "32", "31", "33", "1"};
  const char* code = kCodes[static_cast<int>(colour)];
  if (!g_colour || code[0] == '\0') {
    out.add(text);
    return;
  }
  out.add("\033[").add(code).add('m').add(text).add("\033[0m");
}

void print(const Text& text) { std::fwrite(text.c_str(), 1, text.size(), stdout); }

}  // namespace cli
