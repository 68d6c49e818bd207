// SPDX-License-Identifier: MIT
#include "look/look_vfs.h"

#include <sqlite3.h>
#include <sys/stat.h>

#include <cstdlib>
#include <cstring>

namespace cli::look {
namespace {

constexpr char kName[] = "vexadm-look";
// A settings store is a thousandth of it. A copy of a damaged size must not take all memory.
constexpr sqlite3_int64 kMostShadow = 256LL << 20U;

// One open file. The real file's handle follows it in memory.
struct LookFile {
  sqlite3_file base;
  sqlite3_file* real;
  LookFile* next;         // of the open databases
  const char* path;       // SQLite's, valid while the file is open
  unsigned char* shadow;  // the content once it was changed, else null
  sqlite3_int64 size;     // of the shadow
  sqlite3_int64 room;
  int lock;
  bool settled;  // the journal beside it has been rolled back
};

// The program has one thread.
LookFile* g_databases = nullptr;

sqlite3_vfs* base_vfs(sqlite3_vfs* vfs) { return static_cast<sqlite3_vfs*>(vfs->pAppData); }
LookFile* look(sqlite3_file* file) { return static_cast<LookFile*>(static_cast<void*>(file)); }

// Takes the content into memory, where it can be changed.
int take_shadow(LookFile* file) {
  if (file->shadow != nullptr) return SQLITE_OK;
  sqlite3_int64 size = 0;
  if (const int code = file->real->pMethods->xFileSize(file->real, &size); code != SQLITE_OK) return code;
  if (size > kMostShadow) return SQLITE_FULL;
  auto* shadow = static_cast<unsigned char*>(std::calloc(1, static_cast<std::size_t>(size) + 1));
  if (shadow == nullptr) return SQLITE_NOMEM;
  for (sqlite3_int64 at = 0; at < size;) {
    const sqlite3_int64 left = size - at;
    const int part = left > (1 << 20) ? 1 << 20 : static_cast<int>(left);
    if (const int code = file->real->pMethods->xRead(file->real, shadow + at, part, at); code != SQLITE_OK) {
      std::free(shadow);
      return code;
    }
    at += part;
  }
  file->shadow = shadow;
  file->size = size;
  file->room = size;
  return SQLITE_OK;
}

int make_room(LookFile* file, sqlite3_int64 size) {
  if (size > kMostShadow) return SQLITE_FULL;
  if (size > file->room) {
    auto* shadow =
        static_cast<unsigned char*>(std::realloc(file->shadow, static_cast<std::size_t>(size) * 2));
    if (shadow == nullptr) return SQLITE_NOMEM;
    file->shadow = shadow;
    file->room = size * 2;
  }
  if (size > file->size) {
    std::memset(file->shadow + file->size, 0, static_cast<std::size_t>(size - file->size));
    file->size = size;
  }
  return SQLITE_OK;
}

int look_close(sqlite3_file* base) {
  LookFile* file = look(base);
  for (LookFile** place = &g_databases; *place != nullptr; place = &(*place)->next) {
    if (*place != file) continue;
    *place = file->next;
    break;
  }
  std::free(file->shadow);
  file->shadow = nullptr;
  return file->real->pMethods != nullptr ? file->real->pMethods->xClose(file->real) : SQLITE_OK;
}

int look_read(sqlite3_file* base, void* out, int count, sqlite3_int64 at) {
  const LookFile* file = look(base);
  if (file->shadow == nullptr) return file->real->pMethods->xRead(file->real, out, count, at);
  const sqlite3_int64 there = at < file->size ? file->size - at : 0;
  const int part = there < count ? static_cast<int>(there) : count;
  std::memcpy(out, file->shadow + at, static_cast<std::size_t>(part));
  if (part == count) return SQLITE_OK;
  std::memset(static_cast<unsigned char*>(out) + part, 0, static_cast<std::size_t>(count - part));
  return SQLITE_IOERR_SHORT_READ;
}

int look_write(sqlite3_file* base, const void* data, int count, sqlite3_int64 at) {
  LookFile* file = look(base);
  if (const int code = take_shadow(file); code != SQLITE_OK) return code;
  if (at < 0 || at > kMostShadow) return SQLITE_FULL;
  if (const int code = make_room(file, at + count); code != SQLITE_OK) return code;
  std::memcpy(file->shadow + at, data, static_cast<std::size_t>(count));
  return SQLITE_OK;
}

int look_truncate(sqlite3_file* base, sqlite3_int64 size) {
  LookFile* file = look(base);
  if (const int code = take_shadow(file); code != SQLITE_OK) return code;
  if (size < file->size) file->size = size;
  return SQLITE_OK;
}

int look_sync(sqlite3_file*, int) { return SQLITE_OK; }

int look_size(sqlite3_file* base, sqlite3_int64* out) {
  const LookFile* file = look(base);
  if (file->shadow == nullptr) return file->real->pMethods->xFileSize(file->real, out);
  *out = file->size;
  return SQLITE_OK;
}

// A shared lock keeps writers from committing while something is read. More than that is asked for
// before a journal is rolled back, which happens in memory here.
int look_lock(sqlite3_file* base, int level) {
  LookFile* file = look(base);
  if (file->lock == SQLITE_LOCK_NONE) {
    const int code = file->real->pMethods->xLock(file->real, SQLITE_LOCK_SHARED);
    if (code != SQLITE_OK) return code;
  }
  if (level > file->lock) file->lock = level;
  return SQLITE_OK;
}

int look_unlock(sqlite3_file* base, int level) {
  LookFile* file = look(base);
  if (level >= file->lock) return SQLITE_OK;
  file->lock = level;
  return level == SQLITE_LOCK_NONE ? file->real->pMethods->xUnlock(file->real, SQLITE_LOCK_NONE) : SQLITE_OK;
}

int look_check_reserved(sqlite3_file* base, int* out) {
  const LookFile* file = look(base);
  return file->real->pMethods->xCheckReservedLock(file->real, out);
}

int look_control(sqlite3_file*, int, void*) { return SQLITE_NOTFOUND; }

int look_sector_size(sqlite3_file* base) {
  const LookFile* file = look(base);
  return file->real->pMethods->xSectorSize != nullptr ? file->real->pMethods->xSectorSize(file->real) : 4096;
}

int look_characteristics(sqlite3_file*) { return 0; }

// Version 1: no shared memory, so a file in write-ahead mode is refused; reading one would have to
// make files beside it.
constexpr sqlite3_io_methods kMethods = {
    1,
    look_close,
    look_read,
    look_write,
    look_truncate,
    look_sync,
    look_size,
    look_lock,
    look_unlock,
    look_check_reserved,
    look_control,
    look_sector_size,
    look_characteristics,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
};

// A pipe would keep the open waiting, and a device has no end.
bool is_file(const char* path) {
  struct stat entry {};
  return stat(path, &entry) == 0 && S_ISREG(entry.st_mode);
}

// SQLite gives a journal that it opens as such the owner of its database. It does not do so with one
// that belongs to several databases, and reads both alike.
int flags_to_look(int flags) {
  flags &= ~(SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_DELETEONCLOSE);
  if ((flags & SQLITE_OPEN_MAIN_JOURNAL) != 0) {
    flags = (flags & ~SQLITE_OPEN_MAIN_JOURNAL) | SQLITE_OPEN_SUPER_JOURNAL;
  }
  return flags | SQLITE_OPEN_READONLY;
}

int look_open(sqlite3_vfs* vfs, sqlite3_filename path, sqlite3_file* base, int flags, int* out_flags) {
  LookFile* file = look(base);
  std::memset(file, 0, sizeof *file);
  // Temporary files are kept in memory by the connection (see look::Database).
  if (path == nullptr || !is_file(path)) return SQLITE_CANTOPEN;
  file->real = reinterpret_cast<sqlite3_file*>(file + 1);
  if (const int code = base_vfs(vfs)->xOpen(base_vfs(vfs), path, file->real, flags_to_look(flags), nullptr);
      code != SQLITE_OK) {
    if (file->real->pMethods != nullptr) file->real->pMethods->xClose(file->real);
    return code;
  }
  file->base.pMethods = &kMethods;
  file->path = path;
  if ((flags & SQLITE_OPEN_MAIN_DB) != 0) {
    file->next = g_databases;
    g_databases = file;
  }
  // The pager shall believe that it may roll back.
  if (out_flags != nullptr) *out_flags = flags;
  return SQLITE_OK;
}

LookFile* database_of_journal(const char* journal) {
  static constexpr char kSuffix[] = "-journal";
  const std::size_t length = std::strlen(journal);
  if (length < sizeof kSuffix || std::strcmp(journal + length - (sizeof kSuffix - 1), kSuffix) != 0) {
    return nullptr;
  }
  const std::size_t stem = length - (sizeof kSuffix - 1);
  for (LookFile* file = g_databases; file != nullptr; file = file->next) {
    if (std::strlen(file->path) == stem && std::memcmp(file->path, journal, stem) == 0) return file;
  }
  return nullptr;
}

int look_delete(sqlite3_vfs*, const char* path, int) {
  if (LookFile* database = database_of_journal(path)) database->settled = true;
  return SQLITE_OK;
}

int look_access(sqlite3_vfs* vfs, const char* path, int flags, int* out) {
  if (const LookFile* database = database_of_journal(path); database != nullptr && database->settled) {
    *out = 0;
    return SQLITE_OK;
  }
  return base_vfs(vfs)->xAccess(base_vfs(vfs), path, flags, out);
}

int look_full_path(sqlite3_vfs* vfs, const char* path, int size, char* out) {
  return base_vfs(vfs)->xFullPathname(base_vfs(vfs), path, size, out);
}
int look_randomness(sqlite3_vfs* vfs, int count, char* out) {
  return base_vfs(vfs)->xRandomness(base_vfs(vfs), count, out);
}
int look_sleep(sqlite3_vfs* vfs, int microseconds) {
  return base_vfs(vfs)->xSleep(base_vfs(vfs), microseconds);
}
int look_time(sqlite3_vfs* vfs, double* out) { return base_vfs(vfs)->xCurrentTime(base_vfs(vfs), out); }
int look_last_error(sqlite3_vfs* vfs, int count, char* out) {
  return base_vfs(vfs)->xGetLastError(base_vfs(vfs), count, out);
}

}  // namespace

const char* register_look_vfs() {
  static sqlite3_vfs vfs = {};
  if (vfs.zName != nullptr) return kName;
  sqlite3_vfs* base = sqlite3_vfs_find(nullptr);
  if (base == nullptr) return nullptr;
  vfs.iVersion = 1;
  vfs.szOsFile = static_cast<int>(sizeof(LookFile)) + base->szOsFile;
  vfs.mxPathname = base->mxPathname;
  vfs.zName = kName;
  vfs.pAppData = base;
  vfs.xOpen = look_open;
  vfs.xDelete = look_delete;
  vfs.xAccess = look_access;
  vfs.xFullPathname = look_full_path;
  vfs.xRandomness = look_randomness;
  vfs.xSleep = look_sleep;
  vfs.xCurrentTime = look_time;
  vfs.xGetLastError = look_last_error;
  return sqlite3_vfs_register(&vfs, 0) == SQLITE_OK ? kName : nullptr;
}

}  // namespace cli::look
