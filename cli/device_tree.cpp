// SPDX-License-Identifier: MIT
#include "device_tree.h"

#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <utility>

#include "look/places.h"
#include "look/tree_path.h"

namespace cli {
namespace {

// Where the library writes, or repairs from; without the slash in front.
constexpr const char kData[] = "data";
constexpr const char kDated[] = "mnt/vendor/nvdata";
constexpr const char* kPlaces[] = {kData, "vexanv", "vexanvbak"};
// What of the machine is not shown.
constexpr const char* kHidden[] = {"data", "mnt", "tmp", "vexanv", "vexanvbak"};
// What a store must not cover: the library runs the machine's programs, and never those of a tree.
constexpr const char* kPrograms[] = {".",        "bin",     "sbin",      "lib", "lib64", "usr",  "usr/bin",
                                     "usr/sbin", "usr/lib", "usr/lib64", "etc", "dev",   "proc", "sys"};

// The same on all processors. The C library's headers may be older than the kernel.
constexpr long kMountSetattr = 442;
struct MountAttributes {
  uint64_t set;
  uint64_t clear;
  uint64_t propagation;
  uint64_t user_namespace;
};
constexpr uint64_t kReadOnly = 1;

const char* without_slash(const char* path) {
  while (*path == '/') ++path;
  return *path == '\0' ? "." : path;
}

// A descriptor of where a path leads.
class Way {
 public:
  Way(int root, const char* path, uint64_t flags = 0)
      : fd_(look::open_below(root, path, O_PATH | O_CLOEXEC | flags)), error_(fd_ < 0 ? errno : 0) {
    if (fd_ >= 0) fstat(fd_, &entry_);
  }
  Way(const Way&) = delete;
  Way& operator=(const Way&) = delete;
  ~Way() {
    if (fd_ >= 0) close(fd_);
  }

  bool found() const { return fd_ >= 0; }
  bool is_missing() const { return error_ == ENOENT || error_ == ENOTDIR; }
  bool is_link() const { return found() && S_ISLNK(entry_.st_mode); }
  bool is_same(const Way& other) const {
    return found() && other.found() && entry_.st_dev == other.entry_.st_dev &&
           entry_.st_ino == other.entry_.st_ino;
  }
  bool is_on_file_system_of(const Way& other) const { return entry_.st_dev == other.entry_.st_dev; }
  int fd() const { return fd_; }
  int error() const { return error_; }

 private:
  int fd_;
  int error_;
  struct stat entry_ {};
};

class Entrance {
 public:
  Entrance(const char* tree, const char* store, const char* backup_store, Dated dated, Text& why)
      : tree_(tree), store_(store), backup_store_(backup_store), dated_(dated), why_(why) {}
  Entrance(const Entrance&) = delete;
  Entrance& operator=(const Entrance&) = delete;
  ~Entrance() {
    if (fd_ >= 0) close(fd_);
    if (root_fd_ >= 0) close(root_fd_);
  }

  // What is made in the tree comes when nothing can be refused any more.
  bool enter() {
    return enter_namespaces() && make_private() && open_tree() && mount_root() && show_machine() &&
           show_places() && show_store(store_) && show_store(backup_store_) && check_files() &&
           show_place(kDated) && change_root();
  }

 private:
  bool refused(Text why) {
    why_ = std::move(why);
    return false;
  }

  // What the system does not allow, or does not know.
  bool failed(const char* what) {
    return refused(
        textf("the library cannot work in a device tree here: %s: %s; as root, or where user "
              "namespaces are allowed, it can",
              what, std::strerror(errno)));
  }

  // What the tree is to blame for.
  bool failed_in_tree(const char* path, int error) {
    const Text name = textf("%s/%s", tree_, without_slash(path));
    switch (error) {
      case ENOENT:
        return refused(textf("%s is not there: make it first", name.c_str()));
      case ENOTDIR:
        return refused(textf("%s: where the library needs a directory is something else", name.c_str()));
      case ELOOP:
        return refused(textf("%s is a link that leads nowhere in the tree", name.c_str()));
      default:
        return refused(textf("%s: %s", name.c_str(), std::strerror(error)));
    }
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
    return fd_ >= 0 || refused(Text(std::strerror(errno)));
  }

  // The new root has to be a file system of its own: a place cannot be mounted where the machine
  // has no directory for it.
  bool mount_root() {
    for (const char* place : {"/mnt", "/tmp"}) {
      if (mount("vexadm", place, "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755") != 0) continue;
      root_ = Text(place);
      root_fd_ = open(place, O_PATH | O_DIRECTORY | O_CLOEXEC);
      if (root_fd_ < 0) break;
      // For SQLite, which finds no other place for temporary files.
      const Text temporary = textf("%s/tmp", place);
      return (mkdir(temporary.c_str(), 0755) == 0 && chmod(temporary.c_str(), 01777) == 0) ||
             failed(temporary.c_str());
    }
    return failed("no tmpfs");
  }

  static bool is_hidden(const char* name) {
    for (const char* hidden : kHidden) {
      if (std::strcmp(name, hidden) == 0) return true;
    }
    return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
  }

  // With all that is mounted below. Devices can be written all the same, /dev/null among them. Kernels
  // before 5.12 know it of one mount only, and not even that is what keeps the machine's files:
  // check_files() does.
  static void make_read_only(const Text& path) {
    const MountAttributes attributes = {kReadOnly, 0, 0, 0};
    if (syscall(kMountSetattr, AT_FDCWD, path.c_str(), AT_RECURSIVE, &attributes, sizeof attributes) == 0) {
      return;
    }
    struct statvfs now {};
    if (statvfs(path.c_str(), &now) != 0) return;
    // A user namespace may not take away what the mount has; the flags have the same numbers.
    constexpr unsigned long kKept = MS_NOSUID | MS_NODEV | MS_NOEXEC | MS_NOATIME | MS_NODIRATIME;
    unsigned long flags = MS_REMOUNT | MS_BIND | MS_RDONLY | (now.f_flag & kKept);
    if ((now.f_flag & ST_RELATIME) != 0) flags |= MS_RELATIME;
    mount(nullptr, path.c_str(), nullptr, flags, nullptr);
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
    // Recursively: a user namespace may not uncover what a mount below covers.
    if (mount(from.c_str(), to.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0) return failed(from.c_str());
    make_read_only(to);
    return true;
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

  // Each directory of the path that is not there, by descriptor of the one above, so that no link leads
  // out of that root. 0, or why not. With a file system given: there alone.
  static int make_directories(int root, const char* path, const Way* only_on = nullptr) {
    Text so_far(".");
    for (const char* at = path; *at != '\0';) {
      const char* end = std::strchr(at, '/');
      if (end == nullptr) end = at + std::strlen(at);
      const Text name(std::string_view(at, static_cast<std::size_t>(end - at)));
      at = *end == '/' ? end + 1 : end;
      if (name.empty()) continue;
      const Way above(root, so_far.c_str(), O_DIRECTORY);
      if (!above.found()) return above.error();
      so_far.add('/').add(name.view());
      const Way there(root, so_far.c_str(), O_DIRECTORY);
      if (there.found()) continue;
      if (there.error() != ENOENT) return there.error();
      if (only_on != nullptr && !above.is_on_file_system_of(*only_on)) return EROFS;
      if (mkdirat(above.fd(), name.c_str(), 0755) != 0) return errno;
    }
    return 0;
  }

  // On the way to a place nothing is made in what is the machine's.
  int make_in_root(const char* path) const {
    const Way root(root_fd_, ".");
    return make_directories(root_fd_, path, &root);
  }

  // Over the directory of that path in the new root, whatever links lead there.
  bool show(const Way& source, const char* path) {
    const Way target(root_fd_, path, O_DIRECTORY);
    // By descriptor: its path may lie below the new root's mount point by now.
    return target.found() && fchdir(source.fd()) == 0 &&
           mount(".", textf("/proc/self/fd/%d", target.fd()).c_str(), nullptr, MS_BIND | MS_REC, nullptr) ==
               0;
  }

  bool show_place(const char* place) {
    const bool makes = place == kDated && dated_ == Dated::kMade;
    if (makes) {
      if (const int error = make_directories(fd_, place); error != 0) return failed_in_tree(place, error);
    }
    const Way source(fd_, place, O_DIRECTORY);
    if (source.error() == ENOENT && place != kData) {
      make_in_root(place);  // stays empty
      return true;
    }
    if (!source.found()) return failed_in_tree(place, source.error());
    if (const int error = make_in_root(place); error != 0) return failed_in_tree(place, error);
    return show(source, place) || failed(place);
  }

  bool show_places() {
    for (const char* place : kPlaces) {
      if (!show_place(place)) return false;
    }
    return true;
  }

  // A store outside the places. A relative name counts from the root, as the library is there.
  bool show_store(const char* store) {
    if (store == nullptr) return true;
    const Way source(fd_, store, O_DIRECTORY);
    if (!source.found()) return failed_in_tree(store, source.error());
    if (source.is_same(Way(root_fd_, store, O_DIRECTORY))) return true;
    const int error = make_in_root(store);
    bool shown = error == 0;
    const Way target(root_fd_, store, O_DIRECTORY);
    for (const char* program : kPrograms) {
      if (target.is_same(Way(root_fd_, program))) shown = false;
    }
    if (shown && show(source, store)) return true;
    return refused(
        textf("the tree's %s cannot take the place of the machine's; move a copy below %s/data, and "
              "name that",
              store, tree_));
  }

  // By each name the library must reach what the name means in the tree: a file there may be a link to
  // anywhere.
  bool check_files() {
    const look::Places places = look::Places::below("", store_, backup_store_);
    for (const Text* file : {&places.primary, &places.backup, &places.journal, &places.defaults,
                             &places.factory, &places.export_csv}) {
      const Way meant(fd_, file->c_str());
      const Way reached(root_fd_, file->c_str());
      const bool fits = reached.is_same(meant) || (reached.is_missing() && meant.is_missing() &&
                                                   !Way(root_fd_, file->c_str(), O_NOFOLLOW).is_link());
      if (fits) continue;
      return refused(
          textf("%s/%s is a link that leads nowhere, or out of what the library sees of the tree: put "
                "the file itself there",
                tree_, without_slash(file->c_str())));
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
    return chdir("/") == 0 || failed("/");
  }

  const char* tree_;
  const char* store_;
  const char* backup_store_;
  Dated dated_;
  Text& why_;
  Text root_;
  int fd_ = -1;
  int root_fd_ = -1;
};

}  // namespace

bool enter_device_tree(const char* tree, const char* store, const char* backup_store, Dated dated,
                       Text& why) {
  return Entrance(tree, store, backup_store, dated, why).enter();
}

}  // namespace cli
