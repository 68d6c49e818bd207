// SPDX-License-Identifier: MIT
// Handles, and the choice of a backend by its type.
#include <vexadm/data_manager.h>
#include <vexadm/storage.h>

#include "log/call_site.h"
#include "owners.h"

using vexa::Heap;

vexa_dm_handle* vexa_dm_reg(uint32_t type) {
  auto handle = Heap<vexa_dm_handle>::zeroed(1);
  VEXA_ASSERT(handle, "data_manager/vexa_app_dm");
  handle.get()->type = type;
  dm_pal_reg(type, &handle.get()->ops);
  return handle.release();
}

int32_t vexa_dm_unreg(vexa_dm_handle* handle) {
  if (handle == nullptr) return -1;
  std::free(handle);
  return 0;
}

void dm_pal_reg(uint32_t type, vexa_dm_backend_ops* slots) {
  if (type == VEXA_DM_BACKEND_SQLITE) sqlite_reg(slots);
}

const char* dm_pal_reg_store_area(uint32_t type, const char* first_dir, const char* second_dir) {
  if (type != VEXA_DM_BACKEND_SQLITE) return first_dir;
  // The other backends' answer is a directory; a refused length travels in its place, NULL is success.
  return reinterpret_cast<const char*>(sqlite_reg_store_area(first_dir, second_dir));
}

const char* vexa_dm_reg_store_area(uint32_t type, const char* first_dir, const char* second_dir) {
  return dm_pal_reg_store_area(type, first_dir, second_dir);
}

void dm_pal_check_db_version_match(uint32_t type, uint8_t* match) {
  if (type == VEXA_DM_BACKEND_SQLITE) sqlite_chk_db_ver_match(match);
}

void vexa_dm_check_db_version_match(uint32_t type, uint8_t* match) {
  dm_pal_check_db_version_match(type, match);
}

uint32_t dm_pal_check_db_health(const char* path) { return check_database_health(path); }
