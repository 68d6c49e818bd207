// SPDX-License-Identifier: MIT
// A kernel command line and a fallback file of any content: the value found is that of the words
// in the headers, no byte more is written, and the log says why there is none.
#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>
#include <vexadm/identity.h>
#include <vexadm/log.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>

#include "fuzz_target.h"

using vexa_fuzz::check;

namespace {

constexpr char kCommandLine[] = "/tmp/cmdline";
constexpr char kFallback[] = "/tmp/non_signal_info";

// ---- The log: the errors of one call ----

struct Errors {
  int missing = 0;
  int only_space = 0;
  int no_match = 0;
  int others = 0;
  bool operator==(const Errors&) const = default;
} errors;

void take(const char* line) {
  if (std::strstr(line, " : =ERR= | ") == nullptr) return;
  if (std::strstr(line, " | Could not find oem.project in ") != nullptr) {
    ++errors.missing;
  } else if (std::strstr(line, " | Only containe space in ") != nullptr) {
    ++errors.only_space;
  } else if (std::strstr(line, " | can't not match project\n") != nullptr) {
    ++errors.no_match;
  } else {
    ++errors.others;
  }
}

// ---- What must come out ----

struct Expected {
  std::optional<std::string> value;
  Errors said;
};

Expected value_of(const std::string& key, const std::string& bytes) {
  std::string text = bytes.substr(0, 2047);
  if (!text.empty() && text.back() == '\n') text.pop_back();
  text = text.c_str();
  std::size_t at = text.find(key);
  if (at == std::string::npos) return {std::nullopt, {.missing = 1}};
  at = text.find_first_not_of("= \t", at + key.size());
  if (at == std::string::npos) return {std::nullopt, {.only_space = 1}};
  return {text.substr(at, text.find_first_of(" \t", at) - at), {}};
}

// The text of a call that succeeds without a value is what was there before.
struct Fallback {
  bool found = false;
  std::optional<std::string> name;
  int no_match = 0;
};

Fallback fallback_of(const std::string& bytes) {
  Fallback result;
  for (std::size_t at = 0; at < bytes.size(); at += 2048) {
    const std::string piece = bytes.substr(at, 2048).c_str();
    if (piece.find("project") == std::string::npos) {
      ++result.no_match;
      continue;
    }
    result.found = true;
    char name[2049];
    if (std::sscanf(piece.c_str(), "%*[^=]=%2048s[^\n]", name) == 1) result.name = name;
    break;
  }
  return result;
}

// ---- The calls: into exactly as many bytes as they may write ----

void find_value(const std::string& key, const std::string& line, std::int32_t room) {
  const Expected expected = value_of(key, line);
  const auto dst = std::make_unique<char[]>(room > 0 ? static_cast<std::size_t>(room) : 0);
  errors = {};
  const std::int32_t code = odm_get_value_from_string(key.c_str(), dst.get(), room);
  check(errors == expected.said, "the log says something else about the command line");
  check(code == (expected.value && room > 0 ? 0 : -1), "another result for the command line");
  if (code != 0) return;
  const std::size_t written = std::min(static_cast<std::size_t>(room), expected.value->size());
  check(std::string(dst.get(), written) == expected.value->substr(0, written), "another value");
  for (std::size_t i = written; i < static_cast<std::size_t>(room); ++i) {
    check(dst[i] == '\0', "something is written behind the value");
  }
}

void find_para(const std::string& bytes) {
  const Fallback expected = fallback_of(bytes);
  const auto dst = std::make_unique<char[]>(expected.name ? expected.name->size() + 1 : 0);
  errors = {};
  const std::int32_t code = get_project_para(dst.get());
  check(code == (expected.found ? 0 : -1), "another result for the file");
  check(errors == Errors{.no_match = expected.no_match}, "the log says something else about the file");
  if (expected.name) check(*expected.name == dst.get(), "another name of the file");
}

void find_project(const std::string& line, const std::string& bytes, std::int32_t room) {
  Expected expected = value_of("vexa.project", line);
  const bool usable = room > 0;
  bool found = expected.value && usable;
  bool terminated = false;
  if (!found && usable) {
    const Fallback fallback = fallback_of(bytes);
    found = fallback.found;
    expected.value = fallback.name;
    expected.said.no_match = fallback.no_match;
    terminated = true;
  }
  const std::size_t size = usable ? static_cast<std::size_t>(room) : 0;
  const auto dst = std::make_unique<char[]>(size);
  std::memset(dst.get(), '#', size);
  errors = {};
  const std::int32_t code = vexa_get_project_name_cmdline(dst.get(), room);
  check(code == (found ? 0 : -1), "another result for the project name");
  check(errors == expected.said, "the log says something else about the project name");
  std::string left(size, '#');
  if (found && expected.value) {
    const std::string written = expected.value->substr(0, size);
    left.replace(0, written.size(), written);
    if (terminated && written.size() < size) left[written.size()] = '\0';
  }
  check(left == std::string(dst.get(), size), "another project name");
}

}  // namespace

void vexa_fuzz::set_up() {
  make_file(kCommandLine, "");
  check(mount(kCommandLine, "/proc/cmdline", nullptr, MS_BIND, nullptr) == 0, "no mount");
  set_print_interface(take);
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static constexpr const char* kKeys[] = {"vexa.project", "oem.project", "", "k"};
  const vexa_fuzz::Watch watch;
  vexa_fuzz::Source source(data, size);
  const unsigned choice = source.byte();
  std::string key = kKeys[choice % 4];
  if ((choice & 4) != 0) key = source.bytes(source.below(6)).c_str();
  const auto room = static_cast<std::int32_t>(source.below(80)) - 2;
  const bool filled = (choice & 8) != 0;
  std::string line = source.bytes(source.word() % 2100);
  if (filled) line = std::string(2040, 'f') + line;
  std::string bytes = source.bytes(source.left());
  if ((choice & 16) != 0) bytes = std::string(2040, 'f') + bytes;

  // The same file for ever: the mount shows it, and not what takes its name.
  const int fd = open(kCommandLine, O_WRONLY | O_TRUNC | O_CLOEXEC);
  check(fd >= 0 && write(fd, line.data(), line.size()) == static_cast<ssize_t>(line.size()), "no line");
  close(fd);
  vexa_fuzz::make_file(kFallback, bytes);

  find_value(key, line, room);
  find_para(bytes);
  find_project(line, bytes, room);
  return 0;
}
