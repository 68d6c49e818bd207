// SPDX-License-Identifier: MIT
// A storage backend in memory, for tests that look at what the data manager asks of its slots.
#ifndef VEXADM_TESTS_FAKE_BACKEND_H
#define VEXADM_TESTS_FAKE_BACKEND_H

#include <gtest/gtest.h>
#include <vexadm/data_manager.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace vexa_test {

// The handle has backend type 2, for which schema versions never match: defaults are the
// compiled-in ones, and no file is touched. One at a time.
class FakeBackend {
 public:
  FakeBackend() : handle(vexa_dm_reg(2)) {
    active_ = this;
    handle->ops = {write, read, clean, def_db_const, def_db_read, nullptr, nullptr};
  }
  ~FakeBackend() {
    vexa_dm_unreg(handle);
    active_ = nullptr;
  }
  FakeBackend(const FakeBackend&) = delete;
  FakeBackend& operator=(const FakeBackend&) = delete;

  vexa_dm_handle* handle;
  std::vector<std::string> calls;           // "write 7 len 3", in order
  std::map<uint32_t, std::string> values;   // stored items
  std::optional<int32_t> write_result;      // instead of storing
  int32_t missing = -1;                     // result of a read that finds nothing, or fails
  const vexa_dm_item_desc* desc = nullptr;  // of the last call
  char* clean_argument = nullptr;
  uint32_t clean_result = 0;
  const void* default_value = nullptr;  // of the last def_db_const
  std::optional<std::string> defaults;  // what def_db_read delivers
  int32_t default_read_result = -1;     // of def_db_read when it delivers nothing
  uint32_t default_write_result = 0;
  bool cuts = false;  // delivers the head of a value that does not fit

 private:
  static void note(const char* what, uint32_t id, int64_t length) {
    active_->calls.push_back(std::string(what) + " " + std::to_string(static_cast<int32_t>(id)) + " len " +
                             std::to_string(length));
  }

  static int32_t write(uint32_t id, const vexa_dm_item_desc* desc, const void* data, int32_t length) {
    note("write", id, length);
    active_->desc = desc;
    if (active_->write_result) return *active_->write_result;
    active_->values[id] = std::string(static_cast<const char*>(data), static_cast<std::size_t>(length));
    return 0;
  }

  static int32_t read(uint32_t id, const vexa_dm_item_desc* desc, uint8_t* buffer, int32_t length) {
    note("read", id, length);
    active_->desc = desc;
    const auto found = active_->values.find(id);
    if (found == active_->values.end()) return active_->missing;
    return deliver(found->second, buffer, length);
  }

  static uint32_t clean(char* backup) {
    active_->calls.push_back("clean");
    active_->clean_argument = backup;
    return active_->clean_result;
  }

  static uint32_t def_db_const(uint32_t id, vexa_dm_item_desc* desc, const void* value, uint32_t length) {
    note("def_db_const", id, length);
    active_->desc = desc;
    active_->default_value = value;
    return active_->default_write_result;
  }

  static int32_t def_db_read(uint32_t id, vexa_dm_item_desc* desc, uint8_t* buffer, int32_t length) {
    note("def_db_read", id, length);
    active_->desc = desc;
    if (!active_->defaults) return active_->default_read_result;
    return deliver(*active_->defaults, buffer, length);
  }

  // As the storage does it: what does not fit fails its checksum.
  static int32_t deliver(const std::string& value, uint8_t* buffer, int32_t length) {
    const std::size_t count = std::min(value.size(), static_cast<std::size_t>(length));
    std::memcpy(buffer, value.data(), count);
    return count < value.size() && !active_->cuts ? -102 : static_cast<int32_t>(count);
  }

  static inline FakeBackend* active_ = nullptr;
};

inline vexa_dm_default_item item_row(int32_t id, const char* key, int32_t type, int32_t length) {
  vexa_dm_default_item row{};
  row.id = id;
  std::snprintf(row.desc.table, sizeof(row.desc.table), "%s", "CFG_TAB");
  std::snprintf(row.desc.key, sizeof(row.desc.key), "%s", key);
  row.type = type;
  row.length = length;
  return row;
}

// An item without a compiled-in default.
inline vexa_dm_default_item bare_item(int32_t id, const char* key) {
  return item_row(id, key, VEXA_DM_STRING, -1);
}

inline vexa_dm_default_item text_item(int32_t id, const char* key, const char* text) {
  vexa_dm_default_item row = item_row(id, key, VEXA_DM_STRING, static_cast<int32_t>(std::strlen(text)));
  row.value.text = text;
  return row;
}

inline vexa_dm_default_item block_item(int32_t id, const char* key, const void* block, int32_t length) {
  vexa_dm_default_item row = item_row(id, key, VEXA_DM_BLOCK, length);
  row.value.block = block;
  return row;
}

inline vexa_dm_default_item number_item(int32_t id, const char* key, int32_t type, uint32_t number,
                                        int32_t length) {
  vexa_dm_default_item row = item_row(id, key, type, length);
  row.value.u32 = number;
  return row;
}

inline vexa_dm_default_item end_of_table() { return item_row(-1, "", 0, 0); }

// Reads through the data manager with a buffer of some capacity. The bytes are those that the
// result announces, at most the capacity.
struct Answer {
  int32_t result;
  std::string bytes;
};

inline Answer read_item(vexa_dm_handle* handle, int32_t id, int32_t capacity = 64) {
  std::string buffer(static_cast<std::size_t>(capacity), '\xEE');
  const int32_t result = vexa_dm_read(handle, id, reinterpret_cast<uint8_t*>(buffer.data()), capacity);
  buffer.resize(static_cast<std::size_t>(std::clamp(result, 0, capacity)));
  return {result, buffer};
}

inline int32_t write_item(vexa_dm_handle* handle, int32_t id, const std::string& bytes) {
  return vexa_dm_write(handle, id, bytes.data(), static_cast<int32_t>(bytes.size()));
}

}  // namespace vexa_test

#endif
