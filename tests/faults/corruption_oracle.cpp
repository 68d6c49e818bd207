// SPDX-License-Identifier: MIT
#include "faults/corruption_oracle.h"

#include <gmock/gmock.h>
#include <vexadm/log.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <set>
#include <system_error>
#include <vector>

namespace vexa_test {
namespace {

using ::testing::AnyOf;
using Clock = std::chrono::steady_clock;

// What may be given up. docs/caveats.md has each of these.
constexpr char kEmptyPrimary[] = "an empty or missing primary is healthy";
constexpr char kNotADatabase[] = "code 26 instead of 11";
constexpr char kOnlyAStep[] = "damage that only a step meets";
constexpr char kPassesCheck[] = "damage that the quick check passes";
constexpr char kKeptBackup[] = "the primary fails its quick check, the backup is kept";
constexpr char kNoSource[] = "corrupt, and no healthy source of a repair";
constexpr char kFactoryState[] = "the factory copy took over";
constexpr char kBadBackup[] = "a damaged backup makes reads give defaults";
constexpr char kOutsideChecksum[] = "bits outside the checksum";
constexpr char kBadDefaults[] = "stored defaults have no checksum";
constexpr char kNoFile[] = "something else than a file in place of a file";

constexpr std::int32_t kCapacity = 20000;

void note(const char* name) { std::printf("%s%s\n", CorruptionOracle::kNote, name); }

template <typename Call>
void timed(const char* what, const Call& call) {
  const auto begin = Clock::now();
  call();
  // The bound of all waits of a call, and room for a slow machine.
  EXPECT_LT(Clock::now() - begin, std::chrono::milliseconds(VEXA_STORAGE_BUSY_MS + 1500)) << what;
}

template <typename Read>
ReadResult read_into_buffer(const char* what, const Read& read) {
  std::vector<std::uint8_t> buffer(kCapacity);
  ReadResult result;
  timed(what, [&] { result.code = read(buffer.data()); });
  EXPECT_LE(result.code, kCapacity) << what;
  const auto size = std::clamp<std::ptrdiff_t>(result.code, 0, kCapacity);
  result.value.assign(buffer.begin(), buffer.begin() + size);
  return result;
}

ReadResult read_stored(const Item& item) {
  return read_into_buffer("read", [&](std::uint8_t* buffer) {
    return dm_pal_read(item.table.c_str(), item.key.c_str(), buffer, kCapacity);
  });
}

bool same_to_the_checksum(const std::string& value, const std::string& stored) {
  return value.size() == stored.size() && reference_crc(value) == reference_crc(stored);
}

std::set<std::string> names_of(const char* directory) {
  std::set<std::string> names;
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator(directory, ignored)) {
    names.insert(entry.path().filename());
  }
  return names;
}

std::set<std::string> left_over_copies() {
  std::set<std::string> names = names_of("/data");
  names.merge(names_of("/vexanvbak/data"));
  std::erase_if(names, [](const std::string& name) { return !name.starts_with(".vexadm-copy"); });
  return names;
}

void start() {
  timed("start", [] {
    vexa_dm_backend_ops slots = {};
    sqlite_reg(&slots);
  });
}

void read_defaults() {
  for (const char* key : kDefaultKeys) {
    vexa_dm_item_desc desc = item_desc("cfg", key, 0);
    const ReadResult read = read_into_buffer(
        "default", [&](std::uint8_t* buffer) { return dm_sqlite_def_db_read(0, &desc, buffer, kCapacity); });
    EXPECT_THAT(std::min(read.code, 0), AnyOf(0, -1, -100, -101));
    if (read.code <= 0 || read.value != default_of(key)) note(kBadDefaults);
  }
  std::uint8_t matched = 7;
  timed("version", [&] { sqlite_chk_db_ver_match(&matched); });
  EXPECT_THAT(matched, AnyOf(0, 1, 7));
}

void look_at_the_rest() {
  timed("start-up check", [] { dm_sqlite_check_database(); });
  for (const std::string& path : kFiles) {
    timed("check", [&] {
      EXPECT_THAT(static_cast<std::int32_t>(check_database_health(path.c_str())), AnyOf(0, 1, -1, -2));
    });
  }
  timed("export", [] {
    EXPECT_THAT(static_cast<std::int32_t>(dm_read_all_tabs_from_db(DB_CONFIG)), AnyOf(0, 4, -101));
  });
  timed("write of a default", [] {
    vexa_dm_item_desc desc = item_desc("cfg", "cfg_key_ccc", 6);
    const char* bytes = "default";
    EXPECT_THAT(static_cast<std::int32_t>(dm_sqlite_def_db_const(1, &desc, &bytes, 7)), AnyOf(0, -1, -101));
  });
}

}  // namespace

void CorruptionOracle::run() {
  const std::set<std::string> descriptors = names_of("/proc/self/fd");
  const std::set<std::string> copies = left_over_copies();
  start();
  const ByKey before = read_all("before the write");
  read_defaults();
  const bool written = write();
  const ByKey after = read_all("after the write");
  explain_reads(before);
  explain_losses(before, after, written);
  look_at_the_rest();
  EXPECT_EQ(names_of("/proc/self/fd"), descriptors);
  const std::set<std::string> copies_now = left_over_copies();
  EXPECT_TRUE(std::includes(copies.begin(), copies.end(), copies_now.begin(), copies_now.end()))
      << "a temporary file was left behind";
}

CorruptionOracle::ByKey CorruptionOracle::read_all(const char* when) {
  ByKey good;
  for (const Item& item : current_items()) good[item.key] = read_one(item, when);
  return good;
}

bool CorruptionOracle::read_one(const Item& item, const char* when) {
  const ReadResult read = read_stored(item);
  if (read.code <= 0) {
    EXPECT_THAT(read.code, AnyOf(-1, -100, -101, -102)) << item.key << " " << when;
    return false;
  }
  if (read.value == item.value || (item.key == kChanged.key && read.value == kChanged.value)) return true;
  EXPECT_TRUE(is_explained(item, read.value)) << item.key << " " << when << " reads a value of "
                                              << read.value.size() << " bytes that was never stored";
  return false;
}

bool CorruptionOracle::is_explained(const Item& item, const std::string& value) {
  const Item& produced = factory_items()[static_cast<std::size_t>(&item - current_items().data())];
  const bool from_factory = same_to_the_checksum(value, produced.value);
  if (from_factory) {
    EXPECT_TRUE(said("cp /vexanvbak/")) << item.key << " has the factory's value";
    note(kFactoryState);
  }
  if (value == produced.value) return true;
  if (!from_factory && !same_to_the_checksum(value, item.value)) return false;
  note(kOutsideChecksum);
  return true;
}

// Whether the write succeeded in full; says why where it did not.
bool CorruptionOracle::write() {
  log_at_write_ = log_.lines().size();
  std::int32_t code = 0;
  timed("write", [&] {
    code = dm_pal_write(kChanged.table.c_str(), kChanged.id, kChanged.key.c_str(), kChanged.type,
                        kChanged.value.data(), static_cast<std::int32_t>(kChanged.value.size()));
  });
  EXPECT_THAT(code, AnyOf(0, -1));
  const ReadResult read = read_stored(kChanged);
  if (code == 0 && read.value == kChanged.value) return true;
  EXPECT_FALSE(must_succeed()) << "code " << code << ", reads " << read.code << lines_of_the_write();
  note(cause_of(code).c_str());
  return false;
}

// Where the contract's repair reaches, or none is needed.
bool CorruptionOracle::must_succeed() const {
  if (primary_.obstructed || backup_.obstructed) return false;
  if (!primary_.reachable || !backup_.reachable) return false;
  // Brought by the read before, because the backup is corrupt; it may lack the table, or have another.
  if (said("cp /vexanvbak/")) return factory_.takes_rows;
  if (primary_.empty) return true;
  if (primary_.healthy) return primary_.takes_rows;
  return primary_.prepare == SQLITE_CORRUPT && (backup_.healthy || factory_.healthy);
}

std::string CorruptionOracle::cause_of_refusal() const {
  if (!primary_.reachable || primary_.obstructed) return kNoFile;
  if (write_said("rc=26")) return kNotADatabase;
  if (write_said("rc=11")) return primary_.prepare == SQLITE_CORRUPT ? kNoSource : kOnlyAStep;
  // A damaged definition of a table: the quick check has nothing against it.
  if (write_said("create table error rc=1,")) return kPassesCheck;
  ADD_FAILURE() << "refused without a cause" << lines_of_the_write();
  return "?";
}

std::string CorruptionOracle::cause_of(std::int32_t code) const {
  if (code != 0) return cause_of_refusal();
  if (primary_.obstructed || backup_.obstructed || !backup_.reachable) return kNoFile;
  // A header that makes the file read-only, a table without the columns.
  if (write_said("step failed rc: 8")) return kPassesCheck;
  if (primary_.healthy && write_said("sqlite3_prepare error")) return kPassesCheck;
  for (const char* met : {"step failed", "sqlite3_prepare error", "get table existence error"}) {
    if (write_said(met)) return kOnlyAStep;
  }
  for (const char* found : {"Corruption detected", "corruption detected", "Quick check error"}) {
    if (write_said(found)) return kKeptBackup;
  }
  ADD_FAILURE() << "no success without a cause" << lines_of_the_write();
  return "?";
}

// A value that was not read although the backup has it would be a loss without a reason.
void CorruptionOracle::explain_reads(const ByKey& before) const {
  bool lost = false;
  const bool rewritten = said("ERROR: cp /data/config.db /data/configbak.db");
  for (const auto& [key, good] : before) {
    if (good) continue;
    lost = true;
    EXPECT_TRUE(!backup_.has(key) || rewritten || backup_.obstructed)
        << key << " is in the backup and was not read";
  }
  if (lost) note(backup_.obstructed || !backup_.reachable ? kNoFile : kBadBackup);
}

void CorruptionOracle::explain_losses(const ByKey& before, const ByKey& after, bool written) const {
  const bool from_factory = said("cp /vexanvbak/");
  bool lost = false;
  for (const auto& [key, good] : after) {
    if (good) continue;
    const bool primary_has_it = primary_.healthy && primary_.has(key);
    EXPECT_FALSE(written && primary_has_it && !from_factory)
        << key << " was in a healthy primary and does not read after a write";
    if (!before.at(key) || key == kChanged.key) continue;
    lost = true;
    const bool unseen = (primary_.healthy || primary_.healthy_then) && !primary_.has(key);
    EXPECT_TRUE(primary_.empty || unseen || from_factory)
        << key << " was read before the write and is gone after it" << lines_of_the_write();
  }
  if (!lost) return;
  note(primary_.empty ? kEmptyPrimary : from_factory ? kFactoryState : kPassesCheck);
}

bool CorruptionOracle::said(const std::string& text) const {
  return std::any_of(log_.lines().begin(), log_.lines().end(),
                     [&](const LogLine& line) { return line.message.find(text) != std::string::npos; });
}

bool CorruptionOracle::write_said(const char* text) const {
  return lines_of_the_write().find(text) != std::string::npos;
}

std::string CorruptionOracle::lines_of_the_write() const {
  std::string text = "\n";
  for (std::size_t i = log_at_write_; i < log_.lines().size(); ++i) {
    const LogLine& line = log_.lines()[i];
    text += line.function + ": " + line.message;
    if (text.back() != '\n') text += '\n';
  }
  return text;
}

}  // namespace vexa_test
