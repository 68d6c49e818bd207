// SPDX-License-Identifier: MIT
#include "sqlite3/src/replace_file.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "log/call_site.h"
#include "owners.h"

namespace vexa::storage {
namespace {

constexpr int kMostLinks = 40;

// Follows symbolic links to the file that a write through the path would reach, which need
// not exist yet: a link placed by an integrator stays a link.
bool resolve(const char* path, char (&real)[PATH_MAX]) {
  if (realpath(path, real) != nullptr) return true;
  if (errno != ENOENT || std::snprintf(real, PATH_MAX, "%s", path) >= PATH_MAX) return false;
  char link[PATH_MAX];
  for (int followed = 0; followed < kMostLinks; ++followed) {
    const ssize_t length = readlink(real, link, sizeof link - 1);
    if (length < 0) return errno == ENOENT || errno == EINVAL;
    link[length] = '\0';
    char* name = std::strrchr(real, '/');
    char* const start = link[0] == '/' || name == nullptr ? real : name + 1;
    const auto room = static_cast<std::size_t>(real + PATH_MAX - start);
    if (static_cast<std::size_t>(length) >= room) return false;
    std::memcpy(start, link, static_cast<std::size_t>(length) + 1);
  }
  return false;
}

bool write_all(int fd, const char* bytes, std::size_t count) {
  while (count > 0) {
    const ssize_t written = write(fd, bytes, count);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    bytes += written;
    count -= static_cast<std::size_t>(written);
  }
  return true;
}

bool sync_to_storage(int fd) {
  int result = fsync(fd);
  while (result != 0 && errno == EINTR) result = fsync(fd);
  return result == 0;
}

// Through SQLite's handle: a descriptor of our own on a database file would, when closed,
// drop every lock that this process holds on it.
bool copy_bytes(sqlite3_file* source, int target) {
  sqlite3_int64 size = 0;
  if (source->pMethods->xFileSize(source, &size) != SQLITE_OK) return false;
  char chunk[4096];
  for (sqlite3_int64 offset = 0; offset < size;) {
    const auto count = static_cast<int>(std::min<sqlite3_int64>(size - offset, sizeof chunk));
    if (source->pMethods->xRead(source, chunk, count, offset) != SQLITE_OK) return false;
    if (!write_all(target, chunk, static_cast<std::size_t>(count))) return false;
    offset += count;
  }
  return true;
}

// The file under its temporary name; gone again unless the rename has happened.
class TemporaryFile {
 public:
  // Beside the target, so that the rename stays on one file system. The name is hidden and
  // free of ".db", which the count of dated backups looks for. "alone" says that the locks
  // keep other copies to this target away: then the name is always the same, and what a
  // killed copy has left is cleared by the next. Otherwise, and where something stands there
  // that cannot be cleared, such as a directory, it is this process's own: a repair must not
  // depend on a person who tidies up.
  TemporaryFile(const char* target, bool alone) {
    const char* slash = std::strrchr(target, '/');
    const char* base = slash == nullptr ? target : slash + 1;
    const char* end = std::strstr(base, ".db");
    const auto stem = end == nullptr ? std::strlen(base) : static_cast<std::size_t>(end - base);
    const int length = std::snprintf(name_, sizeof name_, "%.*s.vexadm-copy-%.*s",
                                     static_cast<int>(base - target), target, static_cast<int>(stem), base);
    if (alone && (unlink(name_) == 0 || errno == ENOENT)) return;
    std::snprintf(name_ + length, sizeof name_ - static_cast<std::size_t>(length), ".%d", getpid());
    unlink(name_);
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile() {
    if (made_) unlink(name_);
  }

  // Mode and owner: those of the file being replaced, else what a plain copy would get.
  bool fill(sqlite3_file* source, const struct stat* replaced, mode_t source_mode) {
    const mode_t mode = replaced != nullptr ? S_IRUSR | S_IWUSR : source_mode & 0777;
    Descriptor file(::open(name_, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
    if (!file) return false;
    made_ = true;
    if (replaced != nullptr) {
      keep_owner(file.get(), *replaced);
      if (fchmod(file.get(), replaced->st_mode & 07777) != 0) return false;
    }
    // Closed before the rename: as a database file it must never be open under this descriptor.
    return copy_bytes(source, file.get()) && sync_to_storage(file.get()) && file.close();
  }

  bool rename_to(const char* target) {
    if (std::rename(name_, target) != 0) return false;
    made_ = false;
    return true;
  }

 private:
  // An ordinary user cannot give files away, but may share them with a group of his; the copy
  // matters more than its owner.
  static void keep_owner(int fd, const struct stat& replaced) {
    int result = fchown(fd, replaced.st_uid, replaced.st_gid);
    if (result != 0) result = fchown(fd, static_cast<uid_t>(-1), replaced.st_gid);
    static_cast<void>(result);
  }

  char name_[PATH_MAX + 48];
  bool made_ = false;
};

// A rollback journal or log of the old file would be replayed into the new one. Gone from
// storage before the new file appears; had_journal says that SQLite may have removed one.
bool remove_companions(const char* target, bool had_journal) {
  bool removed = had_journal;
  for (const char* suffix : {"-journal", "-wal", "-shm"}) {
    char name[PATH_MAX + 16];
    std::snprintf(name, sizeof name, "%s%s", target, suffix);
    removed = unlink(name) == 0 || removed;
  }
  return !removed || sync_directory_of(target);
}

bool has_journal(const char* target) {
  char name[PATH_MAX + 16];
  std::snprintf(name, sizeof name, "%s-journal", target);
  return access(name, F_OK) == 0;
}

// A file about to be replaced.
struct Target {
  char path[PATH_MAX];  // symbolic links followed
  bool present = false;
  bool had_journal = false;
  struct stat status {};
  WriteLock lock;

  // False for a file that this process may not write, or that another holds too long.
  bool take(const char* name) {
    if (!resolve(name, path)) return false;
    present = stat(path, &status) == 0;
    if (!present) return errno == ENOENT;
    if (!S_ISREG(status.st_mode) || faccessat(AT_FDCWD, path, W_OK, AT_EACCESS) != 0) return false;
    had_journal = has_journal(path);
    return lock.take_damaged(path);
  }
};

bool fill_and_rename(const WriteLock& source, const char* from, Target& target) {
  struct stat source_status {};
  sqlite3_file* file = source.file();
  if (file == nullptr || stat(from, &source_status) != 0) return false;
  TemporaryFile copy(target.path, source.exclusive() || target.lock.exclusive());
  if (!copy.fill(file, target.present ? &target.status : nullptr, source_status.st_mode)) return false;
  if (target.present) target.lock.drain_readers();
  return remove_companions(target.path, target.had_journal) && copy.rename_to(target.path) &&
         sync_directory_of(target.path);
}

}  // namespace

bool sync_directory_of(const char* path) {
  char directory[PATH_MAX];
  const char* slash = std::strrchr(path, '/');
  if (slash == nullptr) {
    std::snprintf(directory, sizeof directory, ".");
  } else {
    const auto length = std::max<std::ptrdiff_t>(slash - path, 1);
    std::snprintf(directory, sizeof directory, "%.*s", static_cast<int>(length), path);
  }
  const Descriptor opened(::open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return opened && sync_to_storage(opened.get());
}

bool sync_replacement_of(const char* path) {
  char real[PATH_MAX];
  return resolve(path, real) && sync_directory_of(real);
}

void log_copied() { VEXA_LOG(log::kDebug, "dm_sqlite_system_cmd", "read_len=%d\n", 0); }

bool copy_over(const WriteLock& source, const char* from, const char* to) {
  Target target;
  return target.take(to) && fill_and_rename(source, from, target);
}

void restore(const char* from, const char* to, const DamagedFile& damaged) {
  Target target;
  if (!target.take(to)) return;
  // Asked under the primary's lock, without which nobody replaces primary or backup.
  if (FileIdentity::of(damaged.path) != damaged.identity) return;
  WriteLock source;
  if (source.take(from)) fill_and_rename(source, from, target);
}

}  // namespace vexa::storage
