// SPDX-License-Identifier: MIT
// One integer in a file, as the kernel's attribute files have it.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <span>
#include <string_view>

#include "descriptor_read.h"
#include "log/call_site.h"
#include "owners.h"
#include "vexadm/device.h"

namespace {

using vexa::Descriptor;

constexpr int32_t kFailed = 7;

// In one name of the log, because both functions say the same.
Descriptor open_value(const char* function, const char* path, int flags) {
  if (!path) {
    VEXA_LOG(vexa::log::kError, function, "Not exist file\n");
    return Descriptor();
  }
  int fd = -1;
  do {
    fd = open(path, flags | O_CLOEXEC, 0666);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) VEXA_LOG(vexa::log::kError, function, "Not exist file=%s\n", path);
  return Descriptor(fd);
}

std::size_t write_as_far_as_it_goes(int fd, std::string_view text) {
  std::size_t count = 0;
  while (count < text.size()) {
    const ssize_t written = write(fd, text.data() + count, text.size() - count);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) break;
    count += static_cast<std::size_t>(written);
  }
  return count;
}

// EINVAL comes from files that have nothing to sync, as attribute files of the kernel: theirs took
// effect when it was written.
bool sync_to_storage(int fd) {
  int result = fsync(fd);
  while (result != 0 && errno == EINTR) result = fsync(fd);
  return result == 0 || errno == EINVAL;
}

// As where a long has 32 bits: a number beyond them is the nearest they can hold, on every machine.
int32_t number_of(const char* text) {
  using Limits = std::numeric_limits<int32_t>;
  return static_cast<int32_t>(std::clamp<long>(std::strtol(text, nullptr, 10), Limits::min(), Limits::max()));
}

}  // namespace

int32_t vexa_util_get_file_int_value(const char* path) {
  constexpr const char* kName = "vexa_util_get_file_int_value";
  const Descriptor file = open_value(kName, path, O_RDONLY);
  if (!file) return 0;
  std::array<char, 257> content = {};  // 256 and a terminator
  if (vexa::read_full(file.get(), std::span(content).first<256>()) <= 0) return 0;
  VEXA_LOG(vexa::log::kDebug, kName, "read content:%s\n", content.data());
  return number_of(content.data());
}

int32_t vexa_util_set_file_int_value(const char* path, int32_t value) {
  constexpr const char* kName = "vexa_util_set_file_int_value";
  const Descriptor file = open_value(kName, path, O_WRONLY | O_CREAT | O_TRUNC);
  if (!file) return kFailed;
  std::array<char, 16> text = {};
  const int length = std::snprintf(text.data(), text.size(), "%d", value);
  // Without a stream between: an attribute file refuses a value in the write itself.
  const std::size_t written =
      write_as_far_as_it_goes(file.get(), {text.data(), static_cast<std::size_t>(length)});
  if (static_cast<int>(written) == length && sync_to_storage(file.get())) return 0;
  VEXA_LOG(vexa::log::kError, kName, "fwrite() failed, only [%d] written, total_len=[%d], reason=[%s]%d",
           static_cast<int>(written), length, std::strerror(errno), errno);
  return kFailed;
}
