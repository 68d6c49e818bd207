// SPDX-License-Identifier: MIT
// Puts an image in place of /data and tells what the next two starts find wrong with it.
#ifndef VEXADM_TESTS_FAULTS_POWER_CUT_ORACLE_H
#define VEXADM_TESTS_FAULTS_POWER_CUT_ORACLE_H

#include <fcntl.h>
#include <unistd.h>
#include <vexadm/vexadm.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "faults/power_cut_items.h"
#include "faults/power_cut_program.h"
#include "faults/power_cut_replay.h"

namespace vexa_test {

inline void put_in_place(const Image& image) {
  for (const auto& entry : std::filesystem::directory_iterator("/data")) {
    std::filesystem::remove_all(entry.path());
  }
  for (const auto& [path, content] : image) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    const ssize_t written = ::write(fd, content.data(), content.size());
    close(fd);
    if (written != static_cast<ssize_t>(content.size())) std::abort();
  }
}

inline std::string content_of(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

inline Image image_in_place() {
  Image image;
  for (const auto& entry : std::filesystem::directory_iterator("/data")) {
    image[entry.path()] = content_of(entry.path());
  }
  return image;
}

inline std::size_t fingerprint(const Image& image, const Promise& promise) {
  const std::hash<std::string> hash;
  std::size_t mixed = hash(promise.text());
  for (const auto& [path, content] : image) {
    for (const std::size_t part : {hash(path), hash(content)}) mixed = mixed * 0x9e3779b97f4a7c15U + part;
  }
  return mixed;
}

inline constexpr char kGivenUp[] = "given up: ";
inline constexpr char kHalfDefaults[] = "default missing until the cut default database is made again";
inline constexpr char kCutClean[] = "a cut clean has taken values";
inline constexpr char kUndoneClean[] = "values are back after a clean that returned 0";
inline constexpr char kCameBack[] = "unacknowledged value appears with the next write";

// Reads as programs do, and past the cache.
class Reader {
 public:
  Reader(std::vector<std::string>& lines, const Promise& promise) : lines_(lines), promise_(promise) {}

  // The number that an item reads as; says what is wrong with any other reading.
  int number(std::int32_t id, const std::string& when, std::int32_t result, const std::uint8_t* buffer,
             bool half_defaults) {
    const std::set<int>& allowed = promise_.values.at(id);
    if (result < 0 && half_defaults && allowed.count(0) != 0) {
      lines_.push_back(std::string(kGivenUp) + kHalfDefaults);
      return 0;
    }
    const auto size = static_cast<std::size_t>(std::max(result, 0));
    const std::string value(reinterpret_cast<const char*>(buffer), size);
    for (const int n : allowed) {
      if (result <= 0 || value != item_value(id, n)) continue;
      if (n != 0 && id != kProbe && promise_.clean_done) lines_.push_back(kUndoneClean);
      return n;
    }
    if (id != kProbe && promise_.clean_begun && value == item_value(id, 0)) {
      if (!promise_.clean_done) lines_.push_back(std::string(kGivenUp) + kCutClean);
      return 0;
    }
    std::string found = result > 0 ? "bytes of no value" : "code " + std::to_string(result);
    for (int n = 0; n < 10; ++n) {
      if (value == item_value(id, n)) found = n == 0 ? "its default" : "value " + std::to_string(n);
    }
    lines_.push_back("item " + std::to_string(id) + " reads as " + found + " " + when);
    return -1;
  }

  int read(vexa_dm_handle* store, std::int32_t id, const std::string& when, bool half_defaults) {
    std::array<std::uint8_t, 12000> buffer = {};
    const std::int32_t result = vexa_dm_read(store, id, buffer.data(), buffer.size());
    return number(id, when, result, buffer.data(), half_defaults);
  }

  int read_file(std::int32_t id, const std::string& when) {
    std::array<std::uint8_t, 12000> buffer = {};
    const vexa_dm_item_desc& desc = power_cut_items()[id - 1].desc;
    const std::int32_t result = dm_pal_read(desc.table, desc.key, buffer.data(), buffer.size());
    // No row, or an empty value: what a program gets is the default.
    if (result < 0 && (promise_.values.at(id).count(0) != 0 || promise_.clean_begun)) return 0;
    return number(id, when, result, buffer.data(), false);
  }

 private:
  std::vector<std::string>& lines_;
  const Promise& promise_;
};

inline void write_probe(std::vector<std::string>& lines, vexa_dm_handle* store, int n) {
  const std::string value = item_value(kProbe, n);
  const std::int32_t result =
      vexa_dm_write(store, kProbe, value.data(), static_cast<std::int32_t>(value.size()));
  if (result != 0) lines.push_back("the next write gives " + std::to_string(result));
}

inline void expect_healthy(std::vector<std::string>& lines) {
  for (const char* path : {"/data/config.db", "/data/configbak.db", "/data/state.db", "/data/DefItems.db"}) {
    if (access(path, F_OK) != 0 && std::string_view(path) == "/data/DefItems.db") continue;
    const std::uint32_t verdict = check_database_health(path);
    if (verdict != 0) {
      lines.push_back(std::string(path) + " is unhealthy: " + std::to_string(static_cast<int>(verdict)));
    }
  }
}

inline void first_after_the_cut(std::vector<std::string>& lines, const Promise& promise) {
  vexa_dm_handle* store = start_program();
  Reader reader(lines, promise);
  const bool half = promise.defaults_begun && !promise.defaults_done;
  std::map<std::int32_t, int> before;
  for (const std::int32_t id : kItemIds) before[id] = reader.read(store, id, "at the next start", half);

  if (half) vexa_dm_construct_def_database(VEXA_DM_BACKEND_SQLITE);
  write_probe(lines, store, 8);
  expect_healthy(lines);
  for (const std::int32_t id : kItemIds) {
    if (id == kProbe) continue;
    const int after = reader.read_file(id, "after the next write");
    if (after >= 0 && before[id] >= 0 && after != before[id]) {
      lines.push_back(std::string(kGivenUp) + (promise.clean_begun ? kCutClean : kCameBack));
    }
  }
}

inline void second_after_the_cut(std::vector<std::string>& lines, const Promise& promise) {
  Promise now = promise;
  now.values[kProbe] = {8};
  vexa_dm_handle* store = start_program();
  Reader reader(lines, now);
  for (const std::int32_t id : kItemIds) reader.read(store, id, "at the second start", false);
  write_probe(lines, store, 9);
}

// What the next two starts find fault with.
inline std::vector<std::string> starts_on(const Image& image, const Promise& promise) {
  put_in_place(image);
  std::vector<std::string> lines;
  const auto run = [&](const char* which, auto&& body) {
    const Report report = in_process([&](std::vector<std::string>& found) { body(found, promise); });
    lines.insert(lines.end(), report.lines.begin(), report.lines.end());
    if (!report.fault.empty()) lines.push_back(std::string(which) + " start " + report.fault);
  };
  run("the next", first_after_the_cut);
  if (content_of("/data/config.db") != content_of("/data/configbak.db")) {
    lines.push_back("the backup is not the primary's copy after a write");
  }
  run("the second", second_after_the_cut);
  return lines;
}

}  // namespace vexa_test

#endif
