// SPDX-License-Identifier: MIT
#include "data_manager/defaults.h"

#include <algorithm>
#include <cstring>

#include "data_manager/state.h"
#include "log/call_site.h"
#include "relaxed.h"

namespace {

using vexa::relaxed_load;
using vexa::log::kDebug;
using vexa::log::kError;

// The first word of a value, without reading behind a short buffer.
int32_t first_word(const uint8_t* buffer, int32_t len) {
  int32_t word = 0;
  if (len > 0) std::memcpy(&word, buffer, std::min(static_cast<std::size_t>(len), sizeof(word)));
  return word;
}

int32_t stored_default(vexa_dm_handle* handle, vexa_dm_default_item& item, uint8_t* buffer, int32_t len) {
  const int32_t result = vexa_dm_def_items_read(handle, static_cast<uint32_t>(item.id), &item.desc, buffer,
                                                static_cast<uint32_t>(len));
  // The stored one, which may differ from the row's.
  const int32_t type = relaxed_load(item.desc.type);
  if (type == VEXA_DM_U32) {
    VEXA_LOG(kError, "vexa_dm_try_read_def_value", "%s def value is %d\n", item.desc.key,
             first_word(buffer, len));
  } else if (type == VEXA_DM_STRING) {
    // The text has no terminator: never print more than was delivered.
    VEXA_LOG(kError, "vexa_dm_try_read_def_value", "%s def value is %.*s\n", item.desc.key,
             std::clamp(result, 0, len), reinterpret_cast<const char*>(buffer));
  }
  return result;
}

int32_t no_default() {
  VEXA_LOG(kDebug, "vexa_dm_try_read_def_value", "%s def value is a NULL!\n", "oem_dm_try_read_def_value");
  return -1;
}

int32_t copy_text(const char* text, uint8_t* buffer, int32_t len) {
  const std::size_t length = std::strlen(text);
  std::memcpy(buffer, text, std::min(length, static_cast<std::size_t>(std::max(len, 0))));
  // The whole length, so that a caller can tell that its buffer was too small.
  return static_cast<int32_t>(length);
}

int32_t compiled_default(const vexa_dm_default_item& item, uint8_t* buffer, int32_t len) {
  if (item.length < 0) return no_default();
  switch (item.type) {
    case VEXA_DM_U8:
      std::memcpy(buffer, &item.value.u8, sizeof(item.value.u8));
      return item.length;
    case VEXA_DM_U16:
      std::memcpy(buffer, &item.value.u16, sizeof(item.value.u16));
      return item.length;
    case VEXA_DM_U32:
    case VEXA_DM_U32_ALT:
      std::memcpy(buffer, &item.value.u32, sizeof(item.value.u32));
      return item.length;
    case VEXA_DM_STRING:
      return item.value.text != nullptr ? copy_text(item.value.text, buffer, len) : no_default();
    case VEXA_DM_BLOCK:
      if (item.length == 0) return 0;
      if (item.value.block == nullptr) return no_default();
      // Whole, whatever len is: half a block means nothing. The header warns of it.
      std::memcpy(buffer, item.value.block, static_cast<std::size_t>(item.length));
      return item.length;
    default:
      return 0;
  }
}

}  // namespace

int32_t vexa_dm_try_read_def_value(vexa_dm_handle* handle, int32_t id, uint8_t* buffer, int32_t len) {
  VEXA_ASSERT(buffer != nullptr && handle != nullptr, "data_manager/vexa_app_dm");

  vexa_dm_default_item* const item = vexa::dm::find_row(id);
  if (item == nullptr) {
    VEXA_LOG(kDebug, "vexa_dm_try_read_def_value", "%s def value not found!\n", "vexa_dm_try_read_def_value");
    return -1;
  }

  uint8_t match = 0;
  vexa_dm_check_db_version_match(handle->type, &match);
  // Matching stored defaults are the product's own: their failure must not be papered over with
  // the values of this build.
  if (match != 0) return stored_default(handle, *item, buffer, len);

  VEXA_LOG(kError, "vexa_dm_try_read_def_value", "ver_match fail,so ignore DefItems data!\n");
  return compiled_default(*item, buffer, len);
}

namespace vexa::dm {

int32_t widest_default(int32_t id) {
  const vexa_dm_default_item* const item = find_row(id);
  if (item == nullptr) return 0;
  if (item->type >= VEXA_DM_U8 && item->type <= VEXA_DM_U32_ALT) return sizeof(uint32_t);
  return item->type == VEXA_DM_BLOCK ? std::max(item->length, 0) : 0;
}

}  // namespace vexa::dm
