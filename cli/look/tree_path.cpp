// SPDX-License-Identifier: MIT
#include "look/tree_path.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

namespace cli::look {
namespace {

constexpr char kLeadsNowhere[] = " (a link that leads nowhere in the tree)";

Text path_of(int fd) {
  char path[4096] = {};
  const ssize_t size = readlink(textf("/proc/self/fd/%d", fd).c_str(), path, sizeof path - 1);
  return size > 0 ? Text(std::string_view(path, static_cast<std::size_t>(size))) : Text();
}

bool is_link(const Text& path) {
  struct stat entry {};
  return lstat(path.c_str(), &entry) == 0 && S_ISLNK(entry.st_mode);
}

// The part of the path that is there, with all links followed; what is not there behind it.
Text follow(int tree, std::string_view path) {
  std::size_t size = path.size();
  for (;;) {
    const std::string_view there = part(path, 0, size);
    const int fd = open_below(tree, there.empty() ? "." : Text(there).c_str(), O_PATH | O_CLOEXEC);
    if (fd >= 0) {
      Text found = path_of(fd);
      close(fd);
      const std::string_view rest = part(path, size);
      const std::size_t end = rest.find('/', 1);
      found.add(part(rest, 0, end));
      if (!rest.empty() && is_link(found)) found.add(kLeadsNowhere);
      if (end != std::string_view::npos) found.add(part(rest, end));
      return found;
    }
    if (size == 0 || (errno != ENOENT && errno != ENOTDIR && errno != ELOOP && errno != EACCES))
      return Text();
    size = path.rfind('/', size - 1);
  }
}

}  // namespace

int open_below(int tree, const char* path, uint64_t flags) {
  open_how how = {};
  how.flags = flags;
  how.resolve = RESOLVE_IN_ROOT;
  return static_cast<int>(syscall(SYS_openat2, tree, path, &how, sizeof how));
}

Text path_below(std::string_view root, std::string_view path) {
  while (root.ends_with('/')) root.remove_suffix(1);
  Text plain(root);
  plain.add(path);
  if (root.empty()) return plain;
  const int tree = open(Text(root).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  if (tree < 0) return plain;
  const bool directory = path.ends_with('/');
  if (directory) path.remove_suffix(1);
  Text found = follow(tree, path);
  Text expected = path_of(tree);
  close(tree);
  expected.add(path);
  // As the user calls it, where no link leads elsewhere. Kernels before 5.6 cannot tell.
  if (found.empty() || found.view() == expected.view()) return plain;
  if (directory) found.add('/');
  return found;
}

}  // namespace cli::look
