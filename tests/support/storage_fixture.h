// SPDX-License-Identifier: MIT
// What every test of the storage backend starts from.
#ifndef VEXADM_TESTS_STORAGE_FIXTURE_H
#define VEXADM_TESTS_STORAGE_FIXTURE_H

#include <gtest/gtest.h>
#include <vexadm/storage.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "support/child.h"
#include "support/device_fixture.h"
#include "support/log_capture.h"
#include "support/log_text.h"
#include "support/sqlite_tools.h"

namespace vexa_test {

inline const std::string kPrimary = "/data/config.db";
inline const std::string kBackup = "/data/configbak.db";
inline const std::string kJournal = "/data/state.db";
inline const std::string kDefaults = "/data/DefItems.db";
inline const std::string kExport = "/data/ExportCSV.csv";
inline const std::string kFactory = "/vexanvbak/data/config.db";

inline vexa_dm_item_desc item_desc(const std::string& table, const std::string& key, int type) {
  vexa_dm_item_desc desc = {};
  std::snprintf(desc.table, sizeof desc.table, "%s", table.c_str());
  std::snprintf(desc.key, sizeof desc.key, "%s", key.c_str());
  desc.type = type;
  return desc;
}

inline std::int32_t write_item(const std::string& key, const std::string& value) {
  return dm_pal_write("cfg", 7, key.c_str(), 6, value.data(), static_cast<std::int32_t>(value.size()));
}

// A result code, or the value that a read delivered.
struct ReadResult {
  std::int32_t code = 0;
  std::string value;
};

inline ReadResult read_item(const std::string& key, std::int32_t capacity = 8192) {
  std::vector<std::uint8_t> buffer(static_cast<std::size_t>(capacity) + 1);
  const std::int32_t code = dm_pal_read("cfg", key.c_str(), buffer.data(), capacity);
  const auto size = static_cast<std::ptrdiff_t>(std::max<std::int32_t>(code, 0));
  return {code, std::string(buffer.begin(), buffer.begin() + size)};
}

inline std::vector<std::string> names_in(const std::string& directory) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

// Runs in a process of its own, as another program of the device or as the next start of one.
inline void expect_in_child(const std::function<void()>& body, int timeout_seconds = 20) {
  const ChildResult result = run_in_child(body, timeout_seconds);
  EXPECT_EQ(result.exit_code, 0) << "signal " << result.signal << "\n" << result.out << result.err;
}

// The first start of a program on this device: registers and ends.
inline void start_once() {
  expect_in_child([] {
    vexa_dm_backend_ops slots = {};
    sqlite_reg(&slots);
  });
}

class StorageTest : public DeviceTest {};

}  // namespace vexa_test

#endif
