// SPDX-License-Identifier: MIT
#include <cstring>

#include "call_budget.h"
#include "log/call_site.h"
#include "sqlite3/src/database.h"
#include "sqlite3/src/storage.h"

namespace {

constexpr char kSelf[] = "check_database_health";
constexpr uint32_t kNotOpened = static_cast<uint32_t>(-1);
constexpr uint32_t kNotChecked = static_cast<uint32_t>(-2);
constexpr int kMostSettles = 3;

// Error text of sqlite3_exec, freed by its owner.
struct Message {
  char* text = nullptr;
  Message() = default;
  Message(const Message&) = delete;
  Message& operator=(const Message&) = delete;
  ~Message() { sqlite3_free(text); }
};

int quick_check(vexa::storage::Database& db, uint32_t& corrupt, Message& message) {
  sqlite3_free(message.text);
  message.text = nullptr;
  if (!db.pin_current()) return SQLITE_CANTOPEN;
  db.wait_when_busy();
  return sqlite3_exec(db.get(), "PRAGMA quick_check;", integrity_check_callback, &corrupt, &message.text);
}

uint32_t open_failed(const char* reason, int code) {
  const uint32_t corrupt = code == SQLITE_CORRUPT ? 1 : 0;
  if (corrupt != 0) {
    VEXA_LOG(vexa::log::kError, kSelf, "Database is corrupted upon opening: %s (Code: %d)\n", reason, code);
  } else {
    VEXA_LOG(vexa::log::kError, kSelf, "Open failed: %s (Code: %d)\n", reason, code);
  }
  VEXA_LOG(vexa::log::kError, kSelf, "is_corrupted=%d\n", static_cast<int>(corrupt));
  return corrupt != 0 ? corrupt : kNotOpened;
}

uint32_t check_failed(const char* path, const char* reason, int code) {
  const uint32_t corrupt = code == SQLITE_CORRUPT ? 1 : 0;
  if (corrupt != 0) {
    VEXA_LOG(vexa::log::kError, kSelf, "%s corruption detected: %s (Code: %d)\n", path, reason, code);
  } else {
    VEXA_LOG(vexa::log::kError, kSelf, "%s Quick check error: %s (Code: %d)\n", path, reason, code);
  }
  VEXA_LOG(vexa::log::kError, kSelf, "is_corrupted=%d\n", static_cast<int>(corrupt));
  return corrupt != 0 ? corrupt : kNotChecked;
}

}  // namespace

int integrity_check_callback(void* flag, int count, char** values, char**) {
  auto* corrupt = static_cast<uint32_t*>(flag);
  // The verdict is the last row's: a check yields either one row "ok" or only problems.
  *corrupt = 0;
  for (int i = 0; i < count; ++i) {
    if (values[i] == nullptr || std::strcmp(values[i], "ok") == 0) continue;
    *corrupt = 1;
    VEXA_LOG(vexa::log::kError, "integrity_check_callback", "[ERROR] Corruption detected: %s\n", values[i]);
  }
  return 0;
}

uint32_t check_database_health(const char* path) {
  if (path == nullptr) return open_failed("no path", SQLITE_MISUSE);
  const vexa::CallBudget budget;
  vexa::storage::Database db;
  const int opened = db.open(path, SQLITE_OPEN_READONLY);
  if (opened != SQLITE_OK) return open_failed(db.error(), opened);

  uint32_t corrupt = 0;
  Message message;
  int code = quick_check(db, corrupt, message);
  for (int attempt = 0; code == SQLITE_READONLY && attempt < kMostSettles; ++attempt) {
    // A writer was killed: its journal is waiting, and a read-only connection may not
    // apply it. That is no fault of the file, and the backup copy depends on the verdict.
    if (!db.moved()) vexa::storage::settle(path);
    const int reopened = db.open(path, SQLITE_OPEN_READONLY);
    if (reopened != SQLITE_OK) return open_failed(db.error(), reopened);
    code = quick_check(db, corrupt, message);
  }
  if (code != SQLITE_OK) {
    return check_failed(path, message.text != nullptr ? message.text : "Unknown error", code);
  }
  VEXA_LOG(vexa::log::kDebug, kSelf, "is_corrupted=%d\n", static_cast<int>(corrupt));
  return corrupt;
}
