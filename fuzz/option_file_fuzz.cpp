// SPDX-License-Identifier: MIT
// An option file, an uptime and a pair of watch files in any state: whether a line is written, into
// which file, and what stands in it.
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vexadm/watch_log.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "fuzz_target.h"

using vexa_fuzz::check;

namespace {

constexpr char kOption[] = "/vexanv/data/fwawatch_option";
constexpr char kUptime[] = "/tmp/uptime";
constexpr std::array<const char*, 2> kFiles = {"/data/oem/logs/fwawatchA.log",
                                               "/data/oem/logs/fwawatchB.log"};
constexpr off_t kLimit = 1048576;

// ---- What must come out ----

bool is_space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
bool is_digit(char c) { return c >= '0' && c <= '9'; }

std::size_t digits_from(const std::string& text, std::size_t at) {
  std::size_t end = at;
  while (end < text.size() && is_digit(text[end])) ++end;
  return end - at;
}

// Behind white space and a sign.
std::size_t number_begins(const std::string& text) {
  std::size_t at = 0;
  while (at < text.size() && is_space(text[at])) ++at;
  if (at < text.size() && (text[at] == '+' || text[at] == '-')) ++at;
  return at;
}

bool is_on(const std::optional<std::string>& option) {
  if (!option || option->empty()) return true;
  const std::string text = option->substr(0, 128).c_str();
  const std::size_t at = number_begins(text);
  const std::string digits = text.substr(at, digits_from(text, at));
  return digits.find_first_not_of('0') != std::string::npos;
}

struct Uptime {
  enum { kNone, kNumber, kOdd } kind;  // odd: written otherwise than with decimal digits
  std::string shown;
};

Uptime uptime_of(const std::string& bytes) {
  const std::string text = bytes.substr(0, 127).c_str();
  std::size_t at = number_begins(text);
  const std::size_t sign = at;
  const std::size_t whole = digits_from(text, at);
  at += whole;
  std::size_t fraction = 0;
  if (at < text.size() && text[at] == '.') {
    fraction = digits_from(text, at + 1);
    if (whole + fraction > 0) at += 1 + fraction;
  }
  if (whole + fraction == 0) {
    const bool word = sign < text.size() && std::strchr("iInN", text[sign]) != nullptr;
    return {word ? Uptime::kOdd : Uptime::kNone, ""};
  }
  if (at < text.size() && std::strchr("eExX", text[at]) != nullptr) return {Uptime::kOdd, ""};
  char shown[512];
  const std::size_t begin = sign > 0 && text[sign - 1] == '-' ? sign - 1 : sign;
  std::snprintf(shown, sizeof shown, "[%.2f] ", std::strtod(text.substr(begin, at - begin).c_str(), nullptr));
  return {Uptime::kNumber, shown};
}

bool empties_b = false;  // as the library does, from process start

// ---- Files ----

off_t size_of(const char* path) {
  struct stat status = {};
  return stat(path, &status) == 0 ? status.st_size : -1;
}

std::string tail(const char* path, off_t from) {
  const int fd = open(path, O_RDONLY | O_CLOEXEC);
  std::string bytes(16384, '\0');
  const ssize_t count = pread(fd, bytes.data(), bytes.size(), from);
  close(fd);
  bytes.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  return bytes;
}

// Missing, small, at the limit, or full.
void make_sized(const char* path, unsigned state) {
  static constexpr std::array<off_t, 4> kSizes = {-1, 7, kLimit, kLimit + 1};
  unlink(path);
  if (kSizes[state % 4] < 0) return;
  vexa_fuzz::make_file(path, "");
  check(truncate(path, kSizes[state % 4]) == 0, "no watch file");
}

bool is_full(const char* path) { return size_of(path) > kLimit; }

}  // namespace

void vexa_fuzz::set_up() {
  for (const char* directory : {"/data/oem", "/data/oem/logs", "/vexanv/data"}) mkdir(directory, 0755);
  make_file(kUptime, "1");
  check(mount(kUptime, "/proc/uptime", nullptr, MS_BIND, nullptr) == 0, "no mount");
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const vexa_fuzz::Watch watch;
  vexa_fuzz::Source source(data, size);
  const unsigned state = source.byte();
  make_sized(kFiles[0], state);
  make_sized(kFiles[1], state >> 2);
  std::optional<std::string> option;
  if ((state & 16) != 0) option = source.bytes(source.below(140));
  if ((state & 32) != 0) option = std::string(120, '0') + option.value_or("");
  const std::string uptime = source.bytes(source.below(140));
  const std::string where = source.bytes(source.below(20)).c_str();
  const auto line = static_cast<std::int32_t>(source.word() << 16 | source.word());
  const std::string message = source.bytes(source.left()).c_str();

  unlink(kOption);
  if (option) vexa_fuzz::make_file(kOption, *option);
  const int fd = open(kUptime, O_WRONLY | O_TRUNC | O_CLOEXEC);
  check(fd >= 0 && write(fd, uptime.data(), uptime.size()) == static_cast<ssize_t>(uptime.size()),
        "no uptime");
  close(fd);

  const Uptime expected = is_on(option) ? uptime_of(uptime) : Uptime{Uptime::kNone, ""};
  const bool both_full = is_full(kFiles[0]) && is_full(kFiles[1]);
  const unsigned chosen = both_full ? (empties_b ? 1 : 0) : (is_full(kFiles[0]) ? 1 : 0);
  const std::array<off_t, 2> before = {size_of(kFiles[0]), size_of(kFiles[1])};

  check(oem_watch(where.c_str(), line, "%s", message.c_str()) == 0, "another result");

  check(size_of(kFiles[1 - chosen]) == before[1 - chosen], "the other file is changed");
  if (size_of(kFiles[chosen]) == before[chosen]) {
    check(expected.kind != Uptime::kNumber, "no line is written");
    return 0;
  }
  check(expected.kind != Uptime::kNone, "a line is written");
  if (both_full) empties_b = !empties_b;
  const off_t from = both_full || before[chosen] < 0 ? 0 : before[chosen];
  const std::string written = tail(kFiles[chosen], from);
  const std::string rest = where + ":" + std::to_string(line) + " " + message + "\n";
  if (expected.kind == Uptime::kNumber) {
    check(written == expected.shown + rest, "another line is written");
  } else {
    check(written.starts_with("[") && written.ends_with("] " + rest), "a line of another form");
  }
  return 0;
}
