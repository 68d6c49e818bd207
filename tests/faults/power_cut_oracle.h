// SPDX-License-Identifier: MIT
// Puts an image in place of the store and tells what is wrong with it: with its dated copies, and
// with what the next two starts find.
#ifndef VEXADM_TESTS_FAULTS_POWER_CUT_ORACLE_H
#define VEXADM_TESTS_FAULTS_POWER_CUT_ORACLE_H

#include <unistd.h>
#include <vexadm/vexadm.h>

#include <algorithm>
#include <array>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "faults/power_cut_items.h"
#include "faults/power_cut_program.h"
#include "faults/power_cut_stage.h"

namespace vexa_test {

// Losses that the caveats name, in their words.
inline constexpr char kHalfDefaults[] = "a cut while the defaults are first stored";
inline constexpr char kCutClean[] = "a cut inside a clean";
inline constexpr char kCameBack[] = "a write that was not acknowledged may come back later";
inline constexpr char kNotRefreshed[] = "a write may return 0 with the backup not refreshed";
inline constexpr std::array<const char*, 4> kNamedLosses = {kHalfDefaults, kCutClean, kCameBack,
                                                            kNotRefreshed};
inline constexpr char kNamed[] = "named: ";

// Reads as programs do, and past the cache.
class Reader {
 public:
  Reader(std::vector<std::string>& lines, const Promise& promise) : lines_(lines), promise_(promise) {}

  // The number that an item reads as, -1 for any other reading, which is then said.
  int read(vexa_dm_handle* store, std::int32_t id, const std::string& when, bool half_defaults = false) {
    const std::int32_t result = vexa_dm_read(store, id, buffer_.data(), kSize);
    if (result < 0 && half_defaults && promise_.allows(id, 0)) {
      named(kHalfDefaults);
      return 0;
    }
    return number(id, when, result);
  }

 private:
  void named(const char* name) { lines_.push_back(std::string(kNamed) + name); }

  int number(std::int32_t id, const std::string& when, std::int32_t result) {
    const auto size = static_cast<std::size_t>(std::max(result, 0));
    const std::string value(reinterpret_cast<const char*>(buffer_.data()), size);
    for (const int n : promise_.values.at(id)) {
      if (value != item_value(id, n)) continue;
      if (const auto seen = promise_.seen.find(id); seen != promise_.seen.end() && seen->second != n)
        named(kCameBack);
      if (const auto owed = promise_.owed.find(id); owed != promise_.owed.end() && owed->second != n)
        named(kNotRefreshed);
      return n;
    }
    if (id != kProbe && promise_.cleaning && value == item_value(id, 0)) {
      named(kCutClean);
      return 0;
    }
    std::string found = result > 0 ? "bytes of no allowed value" : "code " + std::to_string(result);
    if (value == item_value(id, 0)) found = "its default";
    lines_.push_back("item " + std::to_string(id) + " reads as " + found + " " + when);
    return -1;
  }

  std::vector<std::string>& lines_;
  const Promise& promise_;
  static constexpr std::int32_t kSize = 12000;
  std::array<std::uint8_t, kSize> buffer_;
};

inline void write_probe(std::vector<std::string>& lines, vexa_dm_handle* store, int n) {
  const std::string value = item_value(kProbe, n);
  const std::int32_t result =
      vexa_dm_write(store, kProbe, value.data(), static_cast<std::int32_t>(value.size()));
  if (result != 0) lines.push_back("the next write gives " + std::to_string(result));
}

inline void expect_healthy(std::vector<std::string>& lines, const Promise& promise) {
  for (const char* path : {DB_CONFIG, DB_CONFIGBAK, DB_STATE, DB_DEF_ITEMS}) {
    if (path == DB_CONFIG && promise.damaged) continue;
    if (path == DB_DEF_ITEMS && access(path, F_OK) != 0) continue;
    const std::uint32_t verdict = check_database_health(path);
    if (verdict != 0) {
      lines.push_back(std::string(path) + " is unhealthy: " + std::to_string(static_cast<int>(verdict)));
    }
  }
}

// A journal that says "nothing is open" is believed by the next start.
inline void expect_true_journal(std::vector<std::string>& lines) {
  std::array<char, 33> table;
  std::array<char, 33> key;
  std::int32_t id = 0;
  std::int32_t type = 0;
  std::int32_t len = 0;
  std::int32_t state = 0;
  if (dm_read_state_db(table.data(), key.data(), &id, &type, &len, &state) != 0) return;
  if (state != WS_BACKUP_DONE) return;
  const auto row = [&](const char* path) {
    std::array<std::uint8_t, 12000> buffer;
    std::uint32_t crc = 0;
    const std::int32_t size = dm_read_db(path, table.data(), key.data(), buffer.data(), &crc, buffer.size());
    if (size < 0) return "code " + std::to_string(size);
    return std::string(reinterpret_cast<const char*>(buffer.data()), static_cast<std::size_t>(size));
  };
  if (row(DB_CONFIG) != row(DB_CONFIGBAK)) lines.push_back("the journal says done, and the backup lacks it");
}

inline void first_after_the_cut(std::vector<std::string>& lines, const Promise& promise) {
  vexa_dm_handle* store = start_program();
  Reader reader(lines, promise);
  const bool half = promise.half_defaults();
  for (const std::int32_t id : kItemIds) {
    const int n = reader.read(store, id, "at the next start", half);
    if (n >= 0) lines.push_back("saw " + std::to_string(id) + " " + std::to_string(n));
  }
  if (!promise.damaged && !promise.cleaning) expect_true_journal(lines);
  if (half) vexa_dm_construct_def_database(VEXA_DM_BACKEND_SQLITE);
  write_probe(lines, store, 8);
  expect_healthy(lines, promise);
}

// What the second start may rely on: what the first was told, and what it has read.
inline Promise promise_after(const Promise& before, const std::vector<std::string>& lines) {
  Promise now = before;
  for (const std::string& line : lines) {
    // A clean that was cut takes values with the next write, read or not.
    if (line.starts_with("saw ") && !now.cleaning) now.take(line);
  }
  now.seen.erase(kProbe);
  now.take("begin " + std::to_string(kProbe) + " 8");
  now.take("done " + std::to_string(kProbe) + " 8");
  return now;
}

inline void second_after_the_cut(std::vector<std::string>& lines, const Promise& promise) {
  vexa_dm_handle* store = start_program();
  Reader reader(lines, promise);
  for (const std::int32_t id : kItemIds) reader.read(store, id, "at the second start");
  write_probe(lines, store, 9);
}

inline void expect_dated_copies(std::vector<std::string>& lines, const Stage& stage, const Image& image) {
  const auto among_dated = [&](const Content& content) {
    return std::any_of(image.begin(), image.end(), [&](const auto& file) {
      return file.first.starts_with(kRotation) && file.second == content;
    });
  };
  for (const Content& copy : stage.keeps_copies) {
    if (!among_dated(copy)) lines.push_back("an older dated copy is lost");
  }
  if (stage.saves_primary && !stage.has_primary_still(image) && !among_dated(stage.primary)) {
    lines.push_back("the primary is gone before its dated copy is whole");
  }
}

struct Verdict {
  std::vector<std::string> lines;
  double slowest_start = 0;
};

inline Verdict judge(const Stage& stage, const Image& image, const Promise& so_far) {
  const Promise promise = stage.promised(image, so_far);
  Verdict verdict;
  expect_dated_copies(verdict.lines, stage, image);
  store_area = stage.area;
  put_in_place(image);
  const auto run = [&](const char* which, auto&& body, const Promise& relied_on) {
    const Report report = in_process([&](std::vector<std::string>& found) { body(found, relied_on); });
    verdict.lines.insert(verdict.lines.end(), report.lines.begin(), report.lines.end());
    if (!report.fault.empty()) verdict.lines.push_back(std::string(which) + " start " + report.fault);
    verdict.slowest_start = std::max(verdict.slowest_start, report.seconds);
  };
  run("the next", first_after_the_cut, promise);
  if (!promise.damaged && content_of(stage.area.primary()) != content_of(stage.area.backup())) {
    verdict.lines.push_back("the backup is not the primary's copy after a write");
  }
  run("the second", second_after_the_cut, promise_after(promise, verdict.lines));
  std::erase_if(verdict.lines, [](const std::string& line) { return line.starts_with("saw "); });
  return verdict;
}

}  // namespace vexa_test

#endif
