// SPDX-License-Identifier: MIT
// Directories that a host wants to find.
#include <sys/stat.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <string_view>

#include "log/call_site.h"
#include "vexadm/device.h"

namespace {

constexpr const char* kName = "oem_create_and_check_directory";
constexpr mode_t kMode = 0777;

// What cannot be made, because it is there or for another reason, shows when the last one is made.
void make_parents(char* path) {
  for (char* slash = std::strchr(path + 1, '/'); slash; slash = std::strchr(slash + 1, '/')) {
    *slash = '\0';
    mkdir(path, kMode);
    *slash = '/';
  }
}

// A path that does not fit is refused: its beginning names another directory.
bool make_path(std::string_view path) {
  std::array<char, 256> copy = {};
  if (path.ends_with('/')) path.remove_suffix(1);
  if (path.empty() || path.size() >= copy.size()) return false;
  std::memcpy(copy.data(), path.data(), path.size());
  make_parents(copy.data());
  return mkdir(copy.data(), kMode) == 0;
}

}  // namespace

void oem_create_and_check_directory(const char* path) {
  struct stat status = {};
  // Of any kind: a plain file in its place is for the host to notice.
  if (path && stat(path, &status) == 0) {
    VEXA_LOG(vexa::log::kDebug, kName, "Directory %s already exists.\n", path);
  } else if (path && make_path(path)) {
    VEXA_LOG(vexa::log::kDebug, kName, "Directory %s created.\n", path);
  } else {
    VEXA_LOG(vexa::log::kError, kName, "Directory %s creation error.\n", path ? path : "(null)");
  }
}
