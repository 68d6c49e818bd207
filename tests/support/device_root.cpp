// SPDX-License-Identifier: MIT
// Runs a command inside a private copy of the machine's root in which the device's fixed paths
// are empty and the command's own:
//
//   device_root [--required] [--own-network] [--keep DIR]... -- COMMAND [ARGUMENT]...
//
// The library writes to /data and its like without asking; on a developer's machine these may
// hold anything. --keep names directories (the checkout, the build tree) that stay visible even
// where they lie below one of the hidden places. --own-network gives it a network of its own as well,
// with nothing but a loopback interface: VEXA_OWN_NETWORK=1, or VEXA_OWN_NETWORK_MISSING="<reason>".
// --required is for commands that do not look at these variables, such as a router's daemon: where
// something is refused they are not started, and the exit code is 1. Else the command sees one of three
// situations:
//
// 1. As root: a mount namespace of its own is enough. VEXA_DEVICE_ROOT=1.
// 2. As an ordinary user: a user namespace as well, in which the user counts as root, gives the
//    right to mount. VEXA_DEVICE_ROOT=1.
// 3. No namespaces (a container or kernel that forbids them): the command runs on the machine's
//    own root with VEXA_DEVICE_ROOT_MISSING="<reason>" and no VEXA_DEVICE_ROOT, and every test
//    that would touch a device path skips itself with that reason, or fails where CI=true.
//    VEXA_DEVICE_ROOT_FORCE_NONE=1 brings this about on purpose.
#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "support/own_network.h"

namespace {

// Top-level entries of which the command sees nothing.
constexpr std::array<std::string_view, 5> kHidden = {"/data", "/vexanv", "/vexanvbak", "/mnt", "/tmp"};

// Directories that the command has for itself.
constexpr std::array<const char*, 4> kOwn = {"/data", "/vexanv", "/vexanvbak", "/mnt/vendor/nvdata"};

struct Kept {
  std::string path;
  int fd;  // opened before its path is hidden
};

// What went wrong, empty while nothing did.
using Reason = std::string;

Reason failed(const std::string& what) { return what + ": " + std::strerror(errno); }

bool is_below(std::string_view path, std::string_view place) {
  return path.size() > place.size() && path.starts_with(place) && path[place.size()] == '/';
}

bool is_hidden(std::string_view path) {
  for (const std::string_view place : kHidden) {
    if (path == place || is_below(path, place)) return true;
  }
  return false;
}

// True when showing the directory again would show a place that has to be empty.
bool would_uncover(std::string_view path) {
  for (const std::string_view own : kOwn) {
    if (path == own || is_below(own, path)) return true;
  }
  return path == "/tmp";
}

bool write_text(const char* path, const std::string& text) {
  const int fd = open(path, O_WRONLY | O_CLOEXEC);
  if (fd < 0) return false;
  const bool written = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  close(fd);
  return written;
}

bool make_dirs(const std::string& path) {
  for (std::size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
    if (mkdir(path.substr(0, slash).c_str(), 0755) != 0 && errno != EEXIST) return false;
    if (slash == std::string::npos) return true;
  }
}

Reason enter_namespaces() {
  if (unshare(CLONE_NEWNS) == 0) return {};
  const uid_t user = geteuid();
  const gid_t group = getegid();
  if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return failed("no mount namespace");
  // Without this the kernel refuses an ordinary user's group map.
  write_text("/proc/self/setgroups", "deny");
  if (!write_text("/proc/self/uid_map", "0 " + std::to_string(user) + " 1")) return failed("uid_map");
  if (!write_text("/proc/self/gid_map", "0 " + std::to_string(group) + " 1")) return failed("gid_map");
  return {};
}

// In a chroot, "/" may be no mount point and cannot be made private by that name. The mount it
// lies on can: it is reached by climbing out, which only a child does.
bool make_private_from_chroot() {
  const pid_t child = fork();
  if (child == 0) {
    if (chdir("/") != 0 || chroot("/usr") != 0) _exit(1);
    struct stat here = {};
    struct stat above = {};
    do {
      if (stat(".", &here) != 0 || chdir("..") != 0 || stat(".", &above) != 0) _exit(1);
    } while (here.st_ino != above.st_ino || here.st_dev != above.st_dev);
    _exit(mount(nullptr, ".", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 ? 0 : 1);
  }
  int status = 0;
  return child > 0 && waitpid(child, &status, 0) == child && status == 0;
}

// Else the mounts made from here on would show up on the machine.
Reason make_private() {
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0) return {};
  if (errno == EINVAL && make_private_from_chroot()) return {};
  return failed("mounts cannot be made private");
}

// The new root has to be a file system of its own: /data cannot be mounted over where it does
// not exist and the machine's root cannot be written.
Reason mount_new_root(std::string& where) {
  for (const char* place : {"/mnt", "/tmp"}) {
    if (mount("device_root", place, "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755") == 0) {
      where = place;
      return {};
    }
  }
  return failed("no tmpfs");
}

Reason copy_symlink(const std::string& from, const std::string& to) {
  std::array<char, 4096> target = {};
  if (readlink(from.c_str(), target.data(), target.size() - 1) < 0) return failed(from);
  if (symlink(target.data(), to.c_str()) != 0) return failed(to);
  return {};
}

Reason show_entry(const std::string& from, const std::string& to) {
  struct stat entry = {};
  // Another user's FUSE mount is out of reach even for root.
  if (lstat(from.c_str(), &entry) != 0) return {};
  if (S_ISLNK(entry.st_mode)) return copy_symlink(from, to);
  if (!S_ISDIR(entry.st_mode)) return {};
  if (mkdir(to.c_str(), 0755) != 0) return failed(to);
  // Recursively: a user namespace may not uncover what a mount below covers.
  if (mount(from.c_str(), to.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0) return failed(from);
  return {};
}

Reason show_machine(const std::string& root) {
  DIR* entries = opendir("/");
  if (entries == nullptr) return failed("/");
  Reason reason;
  while (const dirent* entry = readdir(entries)) {
    const std::string_view name = entry->d_name;
    const std::string path = "/" + std::string(name);
    if (name == "." || name == ".." || is_hidden(path)) continue;
    reason = show_entry(path, root + path);
    if (!reason.empty()) break;
  }
  closedir(entries);
  return reason;
}

Reason make_own_places(const std::string& root) {
  for (const char* place : kOwn) {
    if (!make_dirs(root + place)) return failed(place);
  }
  const std::string temporary = root + "/tmp";
  if (mkdir(temporary.c_str(), 0755) != 0 || chmod(temporary.c_str(), 01777) != 0) return failed("/tmp");
  return {};
}

Reason show_kept(const std::string& root, const std::vector<Kept>& kept) {
  for (const Kept& directory : kept) {
    const std::string target = root + directory.path;
    if (!make_dirs(target)) return failed(directory.path);
    // By descriptor: its path may lie below the new root's mount point by now.
    if (fchdir(directory.fd) != 0) return failed(directory.path);
    if (mount(".", target.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0) return failed(directory.path);
  }
  return {};
}

Reason enter_root(const std::string& root) {
  if (chdir(root.c_str()) != 0) return failed(root);
  if (syscall(SYS_pivot_root, ".", ".") == 0) {
    if (umount2(".", MNT_DETACH) != 0) return failed("old root");
  } else if (chroot(".") != 0) {
    // pivot_root refuses where the root is no mount point (a chroot) or the initial RAM disk.
    return failed("new root");
  }
  if (chdir("/") != 0) return failed("/");
  // The copies of shared mounts are shared again.
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return failed("/");
  return {};
}

Reason open_kept(std::vector<Kept>& kept) {
  for (Kept& directory : kept) {
    if (would_uncover(directory.path)) return "--keep " + directory.path + " would show a device path";
    directory.fd = open(directory.path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (directory.fd < 0) return failed(directory.path);
  }
  return {};
}

Reason fill_and_enter(const std::string& root, const std::vector<Kept>& kept) {
  Reason reason = show_machine(root);
  if (reason.empty()) reason = make_own_places(root);
  if (reason.empty()) reason = show_kept(root, kept);
  if (reason.empty()) reason = enter_root(root);
  if (!reason.empty()) umount2(root.c_str(), MNT_DETACH);
  return reason;
}

Reason enter_device_root(std::vector<Kept>& kept) {
  const char* forced = getenv("VEXA_DEVICE_ROOT_FORCE_NONE");
  if (forced != nullptr && std::string_view(forced) == "1") return "VEXA_DEVICE_ROOT_FORCE_NONE is set";
  std::array<char, 4096> cwd = {};
  if (getcwd(cwd.data(), cwd.size()) == nullptr) cwd[0] = '\0';

  std::string root;
  Reason reason = enter_namespaces();
  if (reason.empty()) reason = make_private();
  // Only now: a descriptor of the machine's own namespace cannot be a source of mounts in this one.
  if (reason.empty()) reason = open_kept(kept);
  if (reason.empty()) reason = mount_new_root(root);
  if (reason.empty()) reason = fill_and_enter(root, kept);
  if (chdir(cwd.data()) != 0 && chdir("/") != 0 && reason.empty()) reason = failed("/");
  return reason;
}

// For what was asked for and given, "NAME=1"; for what was refused, "NAME_MISSING=<reason>".
void tell(const std::string& name, const Reason& reason) {
  if (reason.empty()) {
    setenv(name.c_str(), "1", 1);
  } else {
    setenv((name + "_MISSING").c_str(), reason.c_str(), 1);
  }
}

int usage() {
  std::fputs("usage: device_root [--required] [--own-network] [--keep DIR]... -- COMMAND [ARGUMENT]...\n",
             stderr);
  return 2;
}

// What the command line asks for.
struct Wanted {
  bool required = false;
  bool own_network = false;
  std::vector<Kept> kept;
  char** command = nullptr;  // none: the line was not understood
};

Wanted take_arguments(int argc, char** argv) {
  Wanted wanted;
  for (int next = 1; next + 1 < argc; ++next) {
    const std::string_view option = argv[next];
    if (option == "--") {
      wanted.command = argv + next + 1;
      return wanted;
    }
    if (option == "--required") {
      wanted.required = true;
    } else if (option == "--own-network") {
      wanted.own_network = true;
    } else if (option == "--keep") {
      char* real = realpath(argv[++next], nullptr);
      const std::string path = real == nullptr ? argv[next] : real;
      std::free(real);
      if (is_hidden(path)) wanted.kept.push_back({path, -1});
    } else {
      return wanted;
    }
  }
  return wanted;
}

int refuse(const char* command, const char* place, const Reason& reason) {
  std::fprintf(stderr, "device_root: %s is not started, as it would use this machine's own %s: %s\n", command,
               place, reason.c_str());
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  Wanted wanted = take_arguments(argc, argv);
  if (wanted.command == nullptr) return usage();
  const char* const program = wanted.command[0];

  for (const char* name : {"VEXA_DEVICE_ROOT", "VEXA_OWN_NETWORK"}) {
    unsetenv(name);
    unsetenv((std::string(name) + "_MISSING").c_str());
  }
  const Reason reason = enter_device_root(wanted.kept);
  if (wanted.required && !reason.empty()) return refuse(program, "/data", reason);
  tell("VEXA_DEVICE_ROOT", reason);
  if (reason.empty()) unsetenv("TMPDIR");  // may name a directory that is hidden now
  if (wanted.own_network) {
    const Reason network = reason.empty() ? vexa_test::enter_own_network() : reason;
    if (wanted.required && !network.empty()) return refuse(program, "network", network);
    tell("VEXA_OWN_NETWORK", network);
  }
  execvp(program, wanted.command);
  std::fprintf(stderr, "device_root: %s: %s\n", program, std::strerror(errno));
  return 127;
}
