// SPDX-License-Identifier: MIT
// Deleting the item databases, with dated backups on request.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "call_budget.h"
#include "log/call_site.h"
#include "owners.h"
#include "sqlite3/src/replace_file.h"
#include "sqlite3/src/storage.h"
#include "sqlite3/src/write_lock.h"

namespace {

using vexa::CallBudget;
using vexa::storage::backend_mutex;
using vexa::storage::Command;
using vexa::storage::WriteLock;

constexpr char kSelf[] = "dm_sqlite_clean";
constexpr uint32_t kFailed = static_cast<uint32_t>(-1);
constexpr int kMostBackups = 3;

bool run(const Command& command, char* out = nullptr, uint32_t out_len = 0) {
  return dm_sqlite_system_cmd(command.get(), out, out_len) == 0;
}

// Moves copy k to k - 1. False when a command could not be started.
bool move_down(int k) {
  if (!run(Command("rm %s*.db%d", db_rst_bak, k - 1))) return false;
  char found[512] = {};
  if (!run(Command("find %s -name \"*.db%d\"", db_rst_bak, k), found, sizeof found - 1)) return false;
  VEXA_LOG(vexa::log::kDebug, kSelf, "-----------------Get db name:%s-----------\n", found);
  const std::size_t length = std::strlen(found);
  if (length < 2) return true;
  found[length - 2] = '\0';  // the line end and the number, one digit as there are at most three copies
  return run(Command("mv %s%d %s%d", found, k, found, k - 1));
}

// Makes room among the dated copies. The number of the new one, or 0 on failure.
int rotate(int count) {
  if (count < kMostBackups) return count + 1;
  for (int k = 2; k <= count; ++k) {
    if (!move_down(k)) return 0;
  }
  return count;
}

bool save_dated_copy(int count) {
  const int number = rotate(count);
  if (number == 0) return false;
  // cp must not see another process's half-written transaction, nor one that a killed writer left.
  WriteLock primary;
  primary.take(DB_CONFIG);
  if (!run(Command("cp -rf %s /mnt/vendor/nvdata/`date +%%Y-%%m-%%d_%%H_%%M_%%S`.db%d", DB_CONFIG, number))) {
    return false;
  }
  // On storage before the original goes.
  const vexa::Descriptor directory(open("/mnt/vendor/nvdata/", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (directory) syncfs(directory.get());
  return true;
}

// Under the file's own lock where it can be had: a transaction of another process would go on
// in a file without a name, and its rollback journal would stay for the next file of that name.
// 0, or why the file could not be removed.
int remove_file(const char* path) {
  WriteLock lock;
  if (lock.take_damaged(path)) lock.drain_readers();
  return unlink(path) == 0 ? 0 : errno;
}

bool remove_databases() {
  if (const int reason = remove_file(DB_CONFIG)) {
    VEXA_LOG(vexa::log::kError, kSelf, "unlink error: %s\n", std::strerror(reason));
    return false;
  }
  if (const int reason = remove_file(DB_CONFIGBAK)) {
    VEXA_LOG(vexa::log::kError, kSelf, "unlink bak error: %s\n", std::strerror(reason));
    return false;
  }
  if (const int reason = remove_file(DB_STATE)) {
    VEXA_LOG(vexa::log::kError, kSelf, "unlink state error: %s\n", std::strerror(reason));
    return false;
  }
  // A power cut must not bring back what this call reports as gone.
  vexa::storage::sync_directory_of(DB_CONFIG);
  vexa::storage::sync_directory_of(DB_CONFIGBAK);
  vexa::storage::sync_directory_of(DB_STATE);
  return true;
}

}  // namespace

uint32_t dm_sqlite_clean(char* backup) {
  const CallBudget budget;
  char digits[8] = {};
  if (!run(Command("find %s -name \"*.db*\" | wc -l", db_rst_bak), digits, sizeof digits - 1)) {
    // Nothing is locked yet. The unlock is documented behaviour of this call, which hosts
    // keep away from other calls (storage.h); a default mutex bears it.
    pthread_mutex_unlock(&backend_mutex);
    return kFailed;
  }
  const auto count = static_cast<int>(std::strtol(digits, nullptr, 10));
  VEXA_LOG(vexa::log::kDebug, kSelf, "-----------------Get db num:%d---------------\n", count);

  const vexa::MutexLock lock(backend_mutex);
  if (backup == nullptr) {
    VEXA_LOG(vexa::log::kDebug, kSelf, "just clean database no need backup\n");
  } else if (!save_dated_copy(count)) {
    return kFailed;
  }
  return remove_databases() ? 0 : kFailed;
}
