// SPDX-License-Identifier: MIT
// The database file set and the process-wide state of the backend.
#include "sqlite3/src/storage.h"

#include <unistd.h>

#include <cstring>

#include "log/call_site.h"
#include "vexadm/data_manager.h"

extern "C" {

char DB_CONFIG[64] = "/data/config.db";
char DB_CONFIGBAK[64] = "/data/configbak.db";
char DB_STATE[64] = "/data/state.db";
char DB_DEF_ITEMS[64] = "/data/DefItems.db";
char DB_EXPORT_CSV[64] = "/data/ExportCSV.csv";
char db_area[50] = "/data/";
char db_rst_bak[64] = "/mnt/vendor/nvdata/";

uintptr_t sqlite_reg_store_area(const char* primary_dir, const char* backup_dir) {
  if (primary_dir != nullptr) {
    const std::size_t length = std::strlen(primary_dir);
    if (length > VEXA_STORE_AREA_MAX) return length;
    std::snprintf(DB_CONFIG, sizeof DB_CONFIG, "%sconfig.db", primary_dir);
    std::snprintf(DB_STATE, sizeof DB_STATE, "%sstate.db", primary_dir);
  }
  if (backup_dir == nullptr) return 0;
  const std::size_t length = std::strlen(backup_dir);
  if (length > VEXA_STORE_AREA_MAX) return length;
  std::snprintf(DB_CONFIGBAK, sizeof DB_CONFIGBAK, "%sconfigbak.db", backup_dir);
  return 0;
}

uint32_t dm_pal_check_db_exist(void) {
  if (access(DB_CONFIG, F_OK) != 0 || access(DB_CONFIGBAK, F_OK) != 0) return static_cast<uint32_t>(-1);
  VEXA_LOG(vexa::log::kWarning, "dm_pal_check_db_exist", "config && configbak all exist\n");
  return 0;
}

uint32_t dm_pal_delete(void) { return 0; }

}  // extern "C"

namespace vexa::storage {

pthread_mutex_t backend_mutex = PTHREAD_MUTEX_INITIALIZER;

VersionRecord version_record = {{"SQL_VER_TAB", "SQL_VER_KEY", 0}, VEXA_SCHEMA_VERSION};

int32_t value_crc(const void* data, int32_t length) {
  return vexa_dm_Crc32Calc(static_cast<const uint8_t*>(data), static_cast<uint32_t>(length) & 0xFFFFu, 0);
}

}  // namespace vexa::storage
