// SPDX-License-Identifier: MIT
#include "device_tree.h"

#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "look/tree_path.h"

namespace cli {
namespace {

// Where the library writes, or repairs from; without the slash in front.
constexpr const char kData[] = "data";
constexpr const char kDated[] = "mnt/vendor/nvdata";
constexpr const char* kPlaces[] = {kData, kDated, "vexanv", "vexanvbak"};
// What of the machine is not shown.
constexpr const char* kHidden[] = {"data", "mnt", "vexanv", "vexanvbak"};

class Entrance {
 public:
  Entrance(const char* tree, Dated dated, Text& why) : tree_(tree), dated_(dated), why_(why) {}

  bool enter() {
    return enter_namespaces() && make_private() && open_tree() && mount_root() && show_machine() &&
           show_places() && change_root();
  }

 private:
  bool failed(const char* what) {
    why_ = textf("%s: %s", what, std::strerror(errno));
    return false;
  }

  static bool write_text(const char* path, const Text& text) {
    const int fd = open(path, O_WRONLY | O_CLOEXEC);
    if (fd < 0) return false;
    const bool written = write(fd, text.c_str(), text.size()) == static_cast<ssize_t>(text.size());
    close(fd);
    return written;
  }

  bool enter_namespaces() {
    if (unshare(CLONE_NEWNS) == 0) return true;
    const uid_t user = geteuid();
    const gid_t group = getegid();
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return failed("no mount namespace");
    // Without this the kernel refuses an ordinary user's group map.
    write_text("/proc/self/setgroups", Text("deny"));
    if (!write_text("/proc/self/uid_map", textf("0 %u 1", user))) return failed("uid_map");
    return write_text("/proc/self/gid_map", textf("0 %u 1", group)) || failed("gid_map");
  }

  // Else the mounts made from here on would show up on the machine.
  bool make_private() {
    return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 || failed("private mounts");
  }

  // Only now: a descriptor of the machine's own namespace cannot be a source of mounts in this one.
  bool open_tree() {
    fd_ = open(tree_, O_PATH | O_DIRECTORY | O_CLOEXEC);
    return fd_ >= 0 || failed(tree_);
  }

  // Below the tree, whatever symbolic links say: one that leads to /data means the tree's.
  int open_in_tree(const char* path) const {
    return look::open_below(fd_, path, O_PATH | O_DIRECTORY | O_CLOEXEC);
  }

  // The new root has to be a file system of its own: a place cannot be mounted where the machine
  // has no directory for it.
  bool mount_root() {
    for (const char* place : {"/mnt", "/tmp"}) {
      if (mount("vexadm", place, "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755") != 0) continue;
      root_ = Text(place);
      return true;
    }
    return failed("no tmpfs");
  }

  static bool is_hidden(const char* name) {
    for (const char* hidden : kHidden) {
      if (std::strcmp(name, hidden) == 0) return true;
    }
    return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
  }

  bool show_entry(const char* name) {
    const Text from = textf("/%s", name);
    const Text to = textf("%s/%s", root_.c_str(), name);
    struct stat entry {};
    if (lstat(from.c_str(), &entry) != 0) return true;
    if (S_ISLNK(entry.st_mode)) {
      char target[4096] = {};
      if (readlink(from.c_str(), target, sizeof target - 1) < 0) return failed(from.c_str());
      return symlink(target, to.c_str()) == 0 || failed(from.c_str());
    }
    if (!S_ISDIR(entry.st_mode)) return true;
    if (mkdir(to.c_str(), 0755) != 0) return failed(to.c_str());
    // What the root lies over is shown empty. Recursively: a user namespace may not uncover what a
    // mount below covers.
    if (root_.view() == from.view()) return true;
    return mount(from.c_str(), to.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0 || failed(from.c_str());
  }

  bool show_machine() {
    DIR* entries = opendir("/");
    if (entries == nullptr) return failed("/");
    bool shown = true;
    while (const dirent* entry = shown ? readdir(entries) : nullptr) {
      if (!is_hidden(entry->d_name)) shown = show_entry(entry->d_name);
    }
    closedir(entries);
    return shown;
  }

  // Each directory of the path, by fd of the one above, so that no link leads out.
  bool make_in_tree(const char* path) {
    Text so_far;
    for (const char* at = path; *at != '\0';) {
      const char* end = std::strchr(at, '/');
      if (end == nullptr) end = at + std::strlen(at);
      const int above = open_in_tree(so_far.empty() ? "." : so_far.c_str());
      if (above < 0) return false;
      const Text name(std::string_view(at, static_cast<std::size_t>(end - at)));
      const bool there = mkdirat(above, name.c_str(), 0755) == 0 || errno == EEXIST;
      close(above);
      if (!there) return false;
      if (!so_far.empty()) so_far.add('/');
      so_far.add(name.view());
      at = *end == '/' ? end + 1 : end;
    }
    return true;
  }

  bool make_target(const char* path) {
    Text target(root_.view());
    for (const char* at = path; at != nullptr;) {
      const char* end = std::strchr(at, '/');
      target.add('/').add(
          std::string_view(at, end != nullptr ? static_cast<std::size_t>(end - at) : std::strlen(at)));
      if (mkdir(target.c_str(), 0755) != 0 && errno != EEXIST) return failed(target.c_str());
      at = end != nullptr ? end + 1 : nullptr;
    }
    return true;
  }

  bool show_place(const char* place) {
    if (!make_target(place)) return false;
    int fd = open_in_tree(place);
    const bool lacks = fd < 0 && errno == ENOENT;
    if (lacks && place == kDated && dated_ == Dated::kMade) {
      if (!make_in_tree(place)) return failed(textf("%s/%s", tree_, place).c_str());
      fd = open_in_tree(place);
    } else if (lacks && place != kData) {
      return true;  // stays empty
    }
    const Text target = textf("%s/%s", root_.c_str(), place);
    // By descriptor: its path may lie below the new root's mount point by now.
    const bool mounted =
        fd >= 0 && fchdir(fd) == 0 && mount(".", target.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0;
    if (!mounted) failed(textf("%s/%s", tree_, place).c_str());
    if (fd >= 0) close(fd);
    return mounted;
  }

  bool show_places() {
    for (const char* place : kPlaces) {
      if (!show_place(place)) return false;
    }
    return true;
  }

  bool change_root() {
    if (chdir(root_.c_str()) != 0) return failed(root_.c_str());
    if (syscall(SYS_pivot_root, ".", ".") == 0) {
      if (umount2(".", MNT_DETACH) != 0) return failed("old root");
    } else if (chroot(".") != 0) {
      return failed("new root");
    }
    close(fd_);
    return chdir("/") == 0 || failed("/");
  }

  const char* tree_;
  Dated dated_;
  Text& why_;
  Text root_;
  int fd_ = -1;
};

}  // namespace

bool enter_device_tree(const char* tree, Dated dated, Text& why) {
  return Entrance(tree, dated, why).enter();
}

}  // namespace cli
