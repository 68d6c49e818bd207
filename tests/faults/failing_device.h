// SPDX-License-Identifier: MIT
// The device that the failing operations start from, and what is found on it afterwards.
#ifndef VEXADM_TESTS_FAULTS_FAILING_DEVICE_H
#define VEXADM_TESTS_FAULTS_FAILING_DEVICE_H

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>

#include "support/storage_fixture.h"

namespace vexa_test {

// ---- Two items, a default, a dated history ----

// The checksum covers an eighth of a value: these differ in every byte.
inline const std::string kOldValue(3000, 'o');
inline const std::string kNewValue(9000, 'n');
inline const std::string kNextValue(500, 'x');
inline const std::string kOtherValue(700, '#');

inline vexa_dm_item_desc g_wanted = item_desc("cfg", "wanted", 6);
inline vexa_dm_item_desc g_other = item_desc("net", "other", 6);
inline vexa_dm_item_desc g_fresh = item_desc("extra", "item", 6);
// Of the data manager's item table.
inline vexa_dm_item_desc g_apn = item_desc("NET", "apn", 5);
inline vexa_dm_item_desc g_pairs = item_desc("NET", "pairs", 5);

inline std::uint8_t g_buffer[16384];

// What a read of an item may give, as a set.
enum Found : unsigned { kOld = 1, kNew = 2, kMissing = 4, kNext = 8, kTorn = 16 };

struct Looked {
  unsigned found = kMissing;
  std::int32_t code = 0;
};

inline Looked identify(std::int32_t code, const std::uint8_t* bytes) {
  if (code == -1 || code == -100) return {kMissing, code};
  if (code < 0) return {kTorn, code};
  const std::string_view value(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(code));
  if (value == kOldValue || value == "stored" || value == "a,2;") return {kOld, code};
  if (value == kNewValue || value == "newest" || value == "a,2;b,9;") return {kNew, code};
  if (value == kNextValue) return {kNext, code};
  return {kTorn, code};
}

inline Looked look(const vexa_dm_item_desc& desc) {
  const std::int32_t code = dm_pal_read(desc.table, desc.key, g_buffer, sizeof g_buffer);
  return identify(code, g_buffer);
}

inline Looked look_in(const char* path, const vexa_dm_item_desc& desc) {
  std::uint32_t crc = 0;
  const std::int32_t code = dm_read_db(path, desc.table, desc.key, g_buffer, &crc, sizeof g_buffer);
  return identify(code, g_buffer);
}

inline Looked look_at_default() {
  std::int32_t type = 0;
  const std::int32_t code = dm_read_def_db("cfg", "wanted", &type, g_buffer, sizeof g_buffer);
  return identify(code, g_buffer);
}

inline bool other_is_unharmed() {
  const std::int32_t code = dm_pal_read(g_other.table, g_other.key, g_buffer, sizeof g_buffer);
  return code == static_cast<std::int32_t>(kOtherValue.size()) &&
         std::memcmp(g_buffer, kOtherValue.data(), kOtherValue.size()) == 0;
}

inline std::int32_t store(const vexa_dm_item_desc& desc, const std::string& value) {
  return dm_sqlite_write(7, &desc, value.data(), static_cast<std::int32_t>(value.size()));
}

inline void prepare_store() {
  start_once();
  expect_in_child([] {
    EXPECT_EQ(store(g_other, kOtherValue), 0);
    EXPECT_EQ(store(g_wanted, kOldValue), 0);
    EXPECT_EQ(dm_write_def_db("cfg", "wanted", 6, kOldValue.data(), 3000), 0);
    EXPECT_EQ(dm_write_def_db("SQL_VER_TAB", "SQL_VER_KEY", 3, "\x01\x00\x01\x00", 4), 0);
  });
}

// ---- Its files, kept aside and put back ----

class Device {
 public:
  void keep() {
    files_.clear();
    for (const char* place : kPlaces) {
      if (!std::filesystem::exists(place)) continue;
      for (const auto& entry : std::filesystem::directory_iterator(place)) {
        if (!entry.is_regular_file()) continue;
        std::FILE* stream = std::fopen(entry.path().c_str(), "rbe");
        std::string& bytes = files_[entry.path().string()];
        bytes.resize(static_cast<std::size_t>(entry.file_size()));
        const std::size_t got = std::fread(bytes.data(), 1, bytes.size(), stream);
        EXPECT_EQ(got, bytes.size());
        std::fclose(stream);
      }
    }
  }
  void put_back() const {
    clear();
    for (const auto& [path, bytes] : files_) {
      std::FILE* stream = std::fopen(path.c_str(), "wbe");
      if (stream == nullptr) continue;
      std::fwrite(bytes.data(), 1, bytes.size(), stream);
      std::fclose(stream);
    }
  }
  static void clear() {
    for (const char* place : kPlaces) {
      if (!std::filesystem::exists(place)) continue;
      for (const auto& entry : std::filesystem::directory_iterator(place)) std::filesystem::remove_all(entry);
    }
  }

 private:
  static constexpr std::array<const char*, 3> kPlaces = {"/data", "/vexanvbak/data", "/mnt/vendor/nvdata"};
  std::map<std::string, std::string> files_;
};

}  // namespace vexa_test

#endif
