// SPDX-License-Identifier: MIT
#include "commands/repair_files.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>

#include "look/places.h"

namespace cli::repair {

std::string_view name_of(const Text& path) { return part(path.view(), path.view().rfind('/') + 1); }

bool sync_directory(const char* path) {
  const int fd = open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return false;
  const bool synced = fsync(fd) == 0;
  close(fd);
  return synced;
}

Text real_path(const Text& path) {
  constexpr int kMostLinks = 40;
  if (char* real = realpath(path.c_str(), nullptr)) {
    Text found{std::string_view(real)};
    std::free(real);
    return found;
  }
  Text at(path.view());
  for (int followed = 0; followed < kMostLinks; ++followed) {
    char link[4096] = {};
    if (readlink(at.c_str(), link, sizeof link - 1) < 0) return at;
    at = link[0] == '/' ? Text(std::string_view(link)) : textf("%s%s", look::directory_of(at).c_str(), link);
  }
  return Text(path.view());
}

}  // namespace cli::repair
