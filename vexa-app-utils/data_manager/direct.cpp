// SPDX-License-Identifier: MIT
// Items in the backend alone, past cache and defaults.
#include <cstring>

#include "call_budget.h"
#include "data_manager/state.h"
#include "log/call_site.h"
#include "owners.h"

namespace {

using vexa::Heap;
using vexa::dm::find_item;
using vexa::dm::run_clean;
using vexa::log::kError;
using vexa::log::kInfo;

// Compares the first bytes only, so a stored value of data and one more byte counts as the same:
// a read past the cache tells no length to compare, unlike in vexa_dm_write.
bool starts_already_with(vexa_dm_handle* handle, int32_t id, const uint8_t* data, int32_t len) {
  if (len == INT32_MAX) return false;
  const auto size = static_cast<std::size_t>(len);
  const auto present = Heap<char>::zeroed(size + 1);
  if (!present) return false;
  return vexa_dm_read_db(handle, id, present.get(), len + 1) == 0 &&
         std::memcmp(present.get(), data, size) == 0;
}

int32_t store(vexa_dm_handle* handle, int32_t id, const uint8_t* data, int32_t len, bool& stored) {
  const vexa::CallBudget budget;
  const vexa_dm_item_desc* const desc = find_item(id, "vexa_dm_write_db");
  if (desc == nullptr) return -3;
  if (starts_already_with(handle, id, data, len)) {
    VEXA_LOG(kInfo, "vexa_dm_write_db", "Try to write the same data\n");
    return 0;
  }
  VEXA_LOG(kError, "vexa_dm_write_db", "hash:%s %s\n", desc->table, desc->key);
  if (run_clean.load() != 0) return 0;

  VEXA_ASSERT(handle->ops.write != nullptr, "data_manager/vexa_app_dm");
  const int32_t result = handle->ops.write(static_cast<uint32_t>(id), desc, data, len);
  stored = result == 0;
  return result;
}

}  // namespace

int32_t vexa_dm_read_db(vexa_dm_handle* handle, int32_t id, char* buffer, int32_t len) {
  if (handle == nullptr || buffer == nullptr || len < 1) {
    VEXA_LOG(kError, "vexa_dm_read_db", "%s param NULL\n", "oem_dm_read_db");
    return -3;
  }
  const vexa_dm_item_desc* const desc = find_item(id, "vexa_dm_read_db");
  if (desc == nullptr) return -3;
  VEXA_LOG(kError, "vexa_dm_read_db", "hash:%s %s\n", desc->table, desc->key);
  if (run_clean.load() != 0) return 0;

  VEXA_ASSERT(handle->ops.read != nullptr, "data_manager/vexa_app_dm");
  const int32_t result =
      handle->ops.read(static_cast<uint32_t>(id), desc, reinterpret_cast<uint8_t*>(buffer), len);
  if (result >= 0) return 0;
  VEXA_LOG(kError, "vexa_dm_read_db", "%s def value:%x not register!\n", "oem_dm_read_db",
           static_cast<uint32_t>(id));
  return -3;
}

int32_t vexa_dm_write_db(vexa_dm_handle* handle, int32_t id, const uint8_t* data, uint32_t len) {
  if (handle == nullptr || data == nullptr || len < 1 || len > INT32_MAX) {
    VEXA_LOG(kError, "vexa_dm_write_db", "%s param NULL\n", "vexa_dm_write_db");
    return -3;
  }
  const auto length = static_cast<int32_t>(len);
  bool stored = false;
  const int32_t result = store(handle, id, data, length, stored);
  if (stored) vexa::dm::tell_change(id, data, length);
  return result;
}
