// SPDX-License-Identifier: MIT
// Items by id: read from cache, backend or defaults; emptied; watched.
#include "data_manager/items.h"
#include "call_budget.h"
#include "data_manager/cache.h"
#include "data_manager/defaults.h"
#include "data_manager/state.h"
#include "log/call_site.h"

namespace {

using vexa::Turn;
using vexa::dm::cache_value;
using vexa::dm::event_callback;
using vexa::dm::find_item;
using vexa::dm::run_clean;
using vexa::dm::tell_change;
using vexa::log::kError;
using vexa::log::kInfo;

int32_t read_default(vexa_dm_handle* handle, int32_t id, uint8_t* buffer, int32_t len) {
  const int32_t result = vexa_dm_try_read_def_value(handle, id, buffer, len);
  if (result < 0) {
    VEXA_LOG(kError, "vexa_dm_read", "%s def value:%x not register!\n", "oem_dm_read",
             static_cast<uint32_t>(id));
  }
  return result;
}

}  // namespace

namespace vexa::dm {

Read read_item(vexa_dm_handle* handle, int32_t id, uint8_t* buffer, int32_t len) {
  if (handle == nullptr || buffer == nullptr || len < 1) {
    VEXA_LOG(kError, "vexa_dm_read", "%s param NULL\n", "oem_dm_read");
    return {-3, 0};
  }

  // Before the look-up: a cached value is served even for an id that nobody registered.
  int32_t cached = len;
  vexa_dm_rd_from_mem(static_cast<uint32_t>(id), buffer, &cached);
  VEXA_LOG(kInfo, "vexa_dm_read", "DM_RD_MEM ret %d\n", cached);
  if (cached > 0) return {cached, 0};

  const CallBudget budget;
  const vexa_dm_item_desc* const desc = find_item(id, "vexa_dm_read");
  if (desc == nullptr) return {-3, 0};
  VEXA_LOG(kInfo, "vexa_dm_read", "hash:%s %s\n", desc->table, desc->key);
  if (run_clean.load() != 0) return {read_default(handle, id, buffer, len), 0};

  VEXA_ASSERT(handle->ops.read != nullptr, "data_manager/vexa_app_dm");
  Turn::forget();
  const int32_t result = handle->ops.read(static_cast<uint32_t>(id), desc, buffer, len);
  // A default is not cached: the next read asks the backend again, which another process may
  // have filled meanwhile.
  if (result < 0) return {read_default(handle, id, buffer, len), result};
  cache_value(id, buffer, result, Turn::taken());
  return {result, 0};
}

}  // namespace vexa::dm

int32_t vexa_dm_read(vexa_dm_handle* handle, int32_t id, uint8_t* buffer, int32_t len) {
  return vexa::dm::read_item(handle, id, buffer, len).result;
}

int32_t vexa_dm_read_from_dbconfigfile(vexa_dm_handle* handle, int32_t id, uint8_t* buffer, int32_t len) {
  // Positive, unlike the failures of every other function here: part of the ABI.
  constexpr int32_t kFailed = 3;
  if (handle == nullptr || buffer == nullptr || len < 1) {
    VEXA_LOG(kError, "vexa_dm_read_from_dbconfigfile", "%s param NULL\n", "oem_dm_read");
    return kFailed;
  }
  const vexa_dm_item_desc* const desc = find_item(id, "vexa_dm_read_from_dbconfigfile");
  if (desc == nullptr) return kFailed;
  VEXA_LOG(kInfo, "vexa_dm_read_from_dbconfigfile", "hash:%s %s\n", desc->table, desc->key);
  if (run_clean.load() != 0) return kFailed;

  VEXA_ASSERT(handle->ops.read != nullptr, "data_manager/vexa_app_dm");
  Turn::forget();
  const int32_t result = handle->ops.read(static_cast<uint32_t>(id), desc, buffer, len);
  if (result < 0) return kFailed;
  cache_value(id, buffer, result, Turn::taken());
  return 0;
}

int32_t vexa_dm_empty(vexa_dm_handle* handle, int32_t id) {
  if (handle == nullptr) {
    VEXA_LOG(kError, "vexa_dm_empty", "%s param NULL\n", "vexa_dm_empty");
    return -3;
  }
  const vexa_dm_item_desc* const desc = find_item(id, "vexa_dm_empty");
  if (desc == nullptr) return -3;
  VEXA_LOG(kError, "vexa_dm_empty", "hash:%s %s\n", desc->table, desc->key);

  const uint8_t nothing[4] = {};
  const int32_t length = 0;
  Turn turn;
  if (run_clean.load() == 0) {
    VEXA_ASSERT(handle->ops.write != nullptr, "data_manager/vexa_app_dm");
    Turn::forget();
    const int32_t result = handle->ops.write(static_cast<uint32_t>(id), desc, nothing, length);
    turn = Turn::taken();
    if (result != 0) return result;
    tell_change(id, nothing, length);
  }
  cache_value(id, nothing, length, turn);
  return 0;
}

int32_t vexa_dm_reg_event_callback(vexa_dm_event_fn callback) {
  if (callback == nullptr) {
    VEXA_LOG(kError, "vexa_dm_reg_event_callback", "%s param NULL\n", "vexa_dm_reg_event_callback");
    return -3;
  }
  event_callback.store(callback);
  return 0;
}
