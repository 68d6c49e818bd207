// SPDX-License-Identifier: MIT
// Items in the cache alone, without the backend.
#include <vexadm/data_manager.h>

#include "log/call_site.h"

int32_t vexa_dm_cache_write(uint32_t id, const char* data, int32_t len) {
  if (data == nullptr || len < 1) {
    VEXA_LOG(vexa::log::kError, "vexa_dm_cache_write", "%s param NULL\n", "vexa_dm_cache_write");
    return -3;
  }
  vexa_dm_wr_to_mem(id, data, &len);
  return len;
}

int32_t vexa_dm_cache_read(uint32_t id, uint8_t* buffer, int32_t len) {
  if (buffer == nullptr || len < 1) {
    VEXA_LOG(vexa::log::kError, "vexa_dm_cache_read", "%s param NULL\n", "vexa_dm_cache_read");
    return -3;
  }
  int32_t length = len;
  vexa_dm_rd_from_mem(id, buffer, &length);
  return length;
}
