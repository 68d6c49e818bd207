// SPDX-License-Identifier: MIT
// The project name: on the kernel command line, else in a file.
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstddef>
#include <cstring>
#include <span>
#include <string_view>

#include "descriptor_read.h"
#include "log/call_site.h"
#include "owners.h"
#include "vexadm/identity.h"

namespace {

// The name that both wrappers report under, also what the functions below them say: one pattern
// then finds all there is about a missing project name.
constexpr const char* kProjectName = "__vexa_get_project_name_cmdline";

constexpr const char* kFallbackFile = "/tmp/non_signal_info";
constexpr const char* kFallbackWord = "project";
constexpr std::size_t kChunk = 2048;

class CommandLine {
 public:
  CommandLine() {
    const ssize_t count = vexa::read_start("/proc/cmdline", std::span(text_).first<kMost>());
    const std::size_t end = count > 0 ? static_cast<std::size_t>(count) : 0;
    text_[end] = '\0';
    if (end > 0 && text_[end - 1] == '\n') text_[end - 1] = '\0';
  }
  const char* text() const { return text_.data(); }

 private:
  static constexpr std::size_t kMost = 2047;
  std::array<char, kMost + 1> text_;
};

int32_t find_on_command_line(const char* function, const char* key, char* dst, int32_t dst_len) {
  const CommandLine line;
  if (!dst || !key) {
    VEXA_LOG(vexa::log::kError, function, "NULL Pointer\n");
    return -1;
  }
  const char* const found = std::strstr(line.text(), key);
  if (!found) {
    // The message names one key for all of them: hosts look for this text.
    VEXA_LOG(vexa::log::kError, function, "Could not find oem.project in %s\n", line.text());
    return -1;
  }
  const char* value = found + std::strlen(key);
  value += std::strspn(value, "= \t");
  if (*value == '\0') {
    VEXA_LOG(vexa::log::kError, function, "Only containe space in %s\n", line.text());
    return -1;
  }
  const std::string_view word(value, std::strcspn(value, " \t"));
  if (dst_len < 1) return -1;
  std::memcpy(dst, word.data(), std::min(static_cast<std::size_t>(dst_len), word.size()));
  return 0;
}

bool is_space(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

// The word behind the first equals sign, if that has anything before it. Deliberately counted from
// the start of the text and not from the key.
std::string_view word_behind_equals(std::string_view text) {
  const std::size_t equals = text.find('=');
  if (equals == 0 || equals == std::string_view::npos) return {};
  text.remove_prefix(equals + 1);
  const auto* const word = std::find_if_not(text.begin(), text.end(), is_space);
  return {word, std::find_if(word, text.end(), is_space)};
}

bool is_regular(int fd) {
  struct stat status = {};
  return fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
}

int32_t find_in_file(const char* function, char* dst, std::size_t room) {
  if (!dst) {
    VEXA_LOG(vexa::log::kError, function, "NULL Pointer\n");
    return -1;
  }
  // Anyone may have put it there: a pipe must not hold up the caller, nor a device that never ends.
  const vexa::Descriptor file(open(kFallbackFile, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!file || !is_regular(file.get())) return -1;
  std::array<char, kChunk + 1> chunk;
  for (;;) {
    const ssize_t count = vexa::read_full(file.get(), std::span(chunk).first<kChunk>());
    if (count <= 0) return -1;
    chunk[static_cast<std::size_t>(count)] = '\0';
    if (std::strstr(chunk.data(), kFallbackWord)) break;
    VEXA_LOG(vexa::log::kError, function, "can't not match %s\n", kFallbackWord);
  }
  const std::string_view word = word_behind_equals(chunk.data());
  if (word.empty()) return 0;
  const std::size_t copied = std::min(room, word.size());
  std::memcpy(dst, word.data(), copied);
  if (copied < room) dst[copied] = '\0';
  return 0;
}

int32_t project_name(const char* key, char* dst, int32_t len) {
  if (find_on_command_line(kProjectName, key, dst, len) == 0) return 0;
  return dst && len > 0 ? find_in_file(kProjectName, dst, static_cast<std::size_t>(len)) : -1;
}

}  // namespace

int32_t odm_get_value_from_string(const char* key, char* dst, int32_t dst_len) {
  return find_on_command_line("odm_get_value_from_string", key, dst, dst_len);
}

int32_t get_project_para(char* dst) { return find_in_file("get_project_para", dst, kChunk); }

int32_t vexa_get_project_name_cmdline(char* dst, int32_t len) {
  return project_name("vexa.project", dst, len);
}

int32_t vexa_get_project_name_cmdline_oem_version(char* dst, int32_t len) {
  return project_name("oem.project", dst, len);
}
