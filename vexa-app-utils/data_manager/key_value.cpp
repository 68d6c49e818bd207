// SPDX-License-Identifier: MIT
// A small dictionary kept as text in one item: key1,value1;key2,value2;
#include <string.h>

#include <algorithm>
#include <cstdio>

#include "call_budget.h"
#include "data_manager/defaults.h"
#include "data_manager/item_write.h"
#include "data_manager/state.h"
#include "log/call_site.h"
#include "owners.h"

namespace {

using vexa::HeapText;
using vexa::log::kDebug;
using vexa::log::kError;

constexpr int32_t kTooLong = 3;
constexpr std::size_t kCapacity = DM_MAX_KEY_VALUE_STRLEN;

// The item's text, terminated, in memory of its own: a compiled-in block is written whole,
// however little room was offered, so the buffer has to be as wide as the widest default.
int32_t read_text(vexa_dm_handle* handle, uint32_t id, HeapText& text, const char* function) {
  const auto item = static_cast<int32_t>(id);
  const int32_t room = std::max(DM_MAX_KEY_VALUE_STRLEN, vexa::dm::widest_default(item));
  text = HeapText::zeroed(static_cast<std::size_t>(room) + 1);
  if (!text) {
    VEXA_LOG(kError, function, "read db failed\n");
    return -3;
  }
  const int32_t result =
      vexa_dm_read(handle, item, reinterpret_cast<uint8_t*>(text.get()), DM_MAX_KEY_VALUE_STRLEN);
  if (result < 0) {
    VEXA_LOG(kError, function, "read db failed\n");
    return result;
  }
  // A backend that failed may have left bytes behind the default that was delivered after it.
  text.get()[std::min(result, room)] = '\0';
  return result;
}

// Puts the pair into the text: in place of the first "key," or at the end. A plain search, so a
// key that ends another one matches there. docs/caveats.md warns of it.
void set_pair(char* text, const char* key, const char* value, char (&out)[kCapacity]) {
  char start_of_pair[VEXA_DM_KEY_VALUE_PAIR_MAX + 2];
  snprintf(start_of_pair, sizeof(start_of_pair), "%s,", key);

  char* const match = strstr(text, start_of_pair);
  if (match == nullptr) {
    snprintf(out, sizeof(out), "%s%s,%s;", text, key, value);
    return;
  }
  const char* const end = strchr(match, ';');
  const char* const rest = end != nullptr ? end + 1 : "";
  *match = '\0';
  snprintf(out, sizeof(out), "%s%s,%s;%s", text, key, value, rest);
}

// Reads the item and makes its new text. 0, or the result for the caller.
int32_t make_text(vexa_dm_handle* handle, uint32_t id, const char* key, const char* value,
                  char (&out)[kCapacity]) {
  const std::size_t key_length = strlen(key);
  const std::size_t value_length = strlen(value);
  if (key_length == 0 || value_length == 0 || key_length + value_length > VEXA_DM_KEY_VALUE_PAIR_MAX) {
    VEXA_LOG(kError, "vexa_dm_write_key_value_pairs", "length of key or value error\n");
    return kTooLong;
  }

  HeapText text;
  const int32_t result = read_text(handle, id, text, "vexa_dm_write_key_value_pairs");
  if (result < 0) return result;
  if (key_length + value_length + 2 + strlen(text.get()) > kCapacity) {
    VEXA_LOG(kError, "vexa_dm_write_key_value_pairs",
             "ERROR: the length of db str out of DM_MAX_KEY_VALUE_STRLEN\n");
    return kTooLong;
  }
  set_pair(text.get(), key, value, out);
  return 0;
}

// No bound on the row: the caller sized it for what it stored.
void copy_to_row(char* row, const char* text) { memcpy(row, text, strlen(text) + 1); }

}  // namespace

int32_t vexa_dm_write_key_value_pairs(vexa_dm_handle* handle, uint32_t id, const char* key, const char* value,
                                      int32_t* new_length) {
  if (key == nullptr || value == nullptr || new_length == nullptr) {
    VEXA_LOG(kError, "vexa_dm_write_key_value_pairs", "%s param NULL\n", "vexa_dm_write_key_value_pairs");
    return -3;
  }
  VEXA_LOG(kDebug, "vexa_dm_write_key_value_pairs", "write key: %s, value: %s\n", key, value);

  char text[kCapacity];
  const auto item = static_cast<int32_t>(id);
  int32_t length = 0;
  vexa::dm::Stored stored{};
  {
    const vexa::CallBudget budget;
    const int32_t refused = make_text(handle, id, key, value, text);
    if (refused != 0) return refused;
    VEXA_LOG(kDebug, "vexa_dm_write_key_value_pairs", "final str, write to db: %s\n", text);
    length = static_cast<int32_t>(strlen(text));
    *new_length = length;
    stored = vexa::dm::store_item(handle, item, text, length);
  }
  const int32_t result = vexa::dm::publish_item(stored, item, text, length);
  if (result != 0) VEXA_LOG(kError, "vexa_dm_write_key_value_pairs", "write db failed\n");
  return result;
}

int32_t vexa_dm_read_key_value_pairs(vexa_dm_handle* handle, uint32_t id,
                                     char keys[][VEXA_DM_KEY_VALUE_ROW_SIZE],
                                     char values[][VEXA_DM_KEY_VALUE_ROW_SIZE], int32_t* count) {
  if (keys == nullptr || values == nullptr || count == nullptr) {
    VEXA_LOG(kError, "vexa_dm_read_key_value_pairs", "%s param NULL\n", "vexa_dm_read_key_value_pairs");
    return -3;
  }

  HeapText text;
  const int32_t result = read_text(handle, id, text, "vexa_dm_read_key_value_pairs");
  if (result < 0) {
    *count = 0;
    return result;
  }
  VEXA_LOG(kDebug, "vexa_dm_read_key_value_pairs", "read from db: %s\n", text.get());

  int32_t pairs = 0;
  char* left = text.get();
  for (char* pair = strsep(&left, ";"); pair != nullptr && *pair != '\0'; pair = strsep(&left, ";")) {
    const char* const key = strsep(&pair, ",");
    const char* const value = pair != nullptr ? pair : "";
    copy_to_row(keys[pairs], key);
    copy_to_row(values[pairs], value);
    VEXA_LOG(kDebug, "vexa_dm_read_key_value_pairs", "key: %s, value: %s\n", key, value);
    ++pairs;
  }
  *count = pairs;
  VEXA_LOG(kDebug, "vexa_dm_read_key_value_pairs", "key-value pairs num: %d\n", pairs);
  return 0;
}
