// SPDX-License-Identifier: MIT
// Directory paths made as a whole.
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>

#include "log/call_site.h"
#include "vexadm/strings.h"

namespace {

constexpr const char* kName = "dir_make_path";
constexpr uint32_t kPathBuffer = 512;

bool make_one(const char* path, mode_t mode) { return mkdir(path, mode) == 0 || errno == EEXIST; }

// Every directory above the last name. The search starts at the second character, so that an
// absolute path does not ask for a directory without a name. Restores what it cuts.
bool make_parents(char* path, mode_t mode) {
  if (path[0] == '\0') return true;
  for (char* slash = std::strchr(path + 1, '/'); slash; slash = std::strchr(slash + 1, '/')) {
    *slash = '\0';
    const bool made = make_one(path, mode);
    *slash = '/';
    if (!made) return false;
  }
  return true;
}

}  // namespace

int32_t dir_make_path(const char* path, uint32_t mode) {
  std::array<char, kPathBuffer> buffer{};
  if (vexa_utf8_Copy(buffer.data(), path, kPathBuffer, nullptr) != 0) {
    VEXA_LOG(vexa::log::kError, kName, "Directory path overflowed.\n");
    return -1;
  }
  const std::size_t length = std::strlen(buffer.data());
  if (length > 0 && buffer[length - 1] == '/') buffer[length - 1] = '\0';

  if (!make_parents(buffer.data(), mode) || !make_one(buffer.data(), mode)) {
    VEXA_LOG(vexa::log::kError, kName, "Could not create directory '%s'.\n", path);
    return -1;
  }
  return 0;
}
