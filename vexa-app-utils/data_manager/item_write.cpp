// SPDX-License-Identifier: MIT
// Writes: backend, then callback, then cache.
#include "data_manager/item_write.h"

#include <algorithm>
#include <cstring>

#include "call_budget.h"
#include "data_manager/cache.h"
#include "data_manager/defaults.h"
#include "data_manager/items.h"
#include "data_manager/state.h"
#include "log/call_site.h"
#include "owners.h"

namespace vexa::dm {
namespace {

using log::kDebug;
using log::kError;
using log::kInfo;

// Of the backend.
constexpr int32_t kOpenFailed = -101;
constexpr int32_t kUndelivered = -102;

// True when a read gives exactly these bytes. The default of an item that holds nothing counts: a
// value that needs no row of its own must not wear the flash.
bool holds_already(vexa_dm_handle* handle, int32_t id, const void* data, int32_t len) {
  if (len == INT32_MAX) return false;
  // One byte more than the value, so that a longer stored value cannot look equal; and room for a
  // default, which is written whole.
  const int32_t size = std::max(len + 1, widest_default(id));
  const auto present = Heap<uint8_t>::zeroed(static_cast<std::size_t>(size));
  if (!present) return false;
  const Read read = read_item(handle, id, present.get(), len + 1);
  if (read.result != len || std::memcmp(present.get(), data, static_cast<std::size_t>(len)) != 0)
    return false;
  if (read.failed == 0) return true;
  // A default that stands in for a value which could not be delivered (too long for this buffer,
  // damaged, locked, in a backup that cannot be read, only in the primary) says nothing about what is stored.
  // Who sets an item back to its default must not hear 0 while the old value stays.
  return read.failed != kOpenFailed && read.failed != kUndelivered && !CallBudget::gave_up();
}

}  // namespace

Stored store_item(vexa_dm_handle* handle, int32_t id, const void* data, int32_t len) {
  if (handle == nullptr || data == nullptr || len < 1) {
    VEXA_LOG(kError, "vexa_dm_write", "%s param NULL\n", "vexa_dm_write");
    return {-3, Reached::kNothing, {}};
  }
  const CallBudget budget;
  const vexa_dm_item_desc* const desc = find_item(id, "vexa_dm_write");
  if (desc == nullptr) return {-3, Reached::kNothing, {}};

  if (holds_already(handle, id, data, len)) {
    VEXA_LOG(kInfo, "vexa_dm_write", "Try to write the same data\n");
    return {0, Reached::kNothing, {}};
  }

  const uint8_t clean = run_clean.load();
  VEXA_LOG(kDebug, "vexa_dm_write", "hash:%s %s\n", desc->table, desc->key);
  VEXA_LOG(kDebug, "vexa_dm_write", "vexa_dm_is_run_clean: %d", clean);
  if (clean != 0) return {0, Reached::kCacheOnly, {}};

  VEXA_ASSERT(handle->ops.write != nullptr, "data_manager/vexa_app_dm");
  Turn::forget();
  const int32_t result = handle->ops.write(static_cast<uint32_t>(id), desc, data, len);
  VEXA_LOG(kDebug, "vexa_dm_write", "write cb ret:%d", result);
  return {result, result == 0 ? Reached::kBackend : Reached::kNothing, Turn::taken()};
}

int32_t publish_item(const Stored& stored, int32_t id, const void* data, int32_t len) {
  if (stored.reached == Reached::kNothing) return stored.result;
  if (stored.reached == Reached::kBackend) tell_change(id, data, len);
  cache_value(id, data, len, stored.turn);
  return 0;
}

}  // namespace vexa::dm

int32_t vexa_dm_write(vexa_dm_handle* handle, int32_t id, const void* data, int32_t len) {
  const vexa::dm::Stored stored = vexa::dm::store_item(handle, id, data, len);
  return vexa::dm::publish_item(stored, id, data, len);
}
