// SPDX-License-Identifier: MIT
#include "store_calls.h"

#include <sqlite3.h>
#include <unistd.h>
#include <vexadm/storage.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <memory>

#include "store_damage.h"

namespace vexa_fuzz {
namespace {

// Names go into SQL as they are: what they break must fail, and nothing else.
const std::array<std::string, 8> kTables = {"cfg",       "cfg",           "net",     "SQL_VER_TAB",
                                            "new_table", "sqlite_master", "no such", std::string(600, 't')};
const std::array<std::string, 8> kKeys = {"a",   "b",           "c",    "big",
                                          "new", "SQL_VER_KEY", "it's", std::string(400, 'k')};
constexpr unsigned kSoundTables = 3;
constexpr unsigned kSoundKeys = 5;

std::uint32_t checksum(const std::string& value) {
  std::uint32_t crc = 0;
  for (std::size_t i = 0; i < (value.size() & 0xFFFF); ++i) {
    const auto byte = static_cast<unsigned char>(value[i / 8]);
    const std::uint32_t bit = (byte >> (7 - i % 8)) & 1u;
    crc = (crc << 1) ^ (((crc >> 31) ^ bit) != 0 ? 0x04C11DB7u : 0u);
  }
  return crc;
}

// A value that was answered is the backup's, and its checksum fits.
void check_value(const std::string& table, const std::string& key, const std::string& value) {
  if (Watch::stopped_statements()) return;
  sqlite3* db = nullptr;
  sqlite3_open("/data/configbak.db", &db);
  std::array<char, 512> sql;
  std::snprintf(sql.data(), sql.size(), "select value,crc from %s where key='%s' limit 1", table.c_str(),
                key.c_str());
  sqlite3_stmt* row = nullptr;
  sqlite3_prepare_v2(db, sql.data(), -1, &row, nullptr);
  check(sqlite3_step(row) == SQLITE_ROW, "a value is answered that the backup has not");
  const void* const bytes = sqlite3_column_blob(row, 0);
  const auto size = static_cast<std::size_t>(sqlite3_column_bytes(row, 0));
  const auto crc = static_cast<std::uint32_t>(sqlite3_column_int(row, 1));
  check(bytes != nullptr && size >= value.size() && std::memcmp(bytes, value.data(), value.size()) == 0,
        "another value is answered than the backup's");
  check(crc == checksum(value), "a value is answered whose checksum is wrong");
  sqlite3_finalize(row);
  sqlite3_close(db);
}

bool is_refusal(std::int32_t code) { return code == -1 || code == -100 || code == -101; }

std::string read(const std::string& table, const std::string& key, std::int32_t capacity) {
  // Of this very size, so that one byte more is seen.
  const auto buffer = std::make_unique<std::uint8_t[]>(static_cast<std::size_t>(capacity));
  const std::int32_t code = dm_pal_read(table.c_str(), key.c_str(), buffer.get(), capacity);
  check(is_refusal(code) || code == -102 || (code > 0 && code <= capacity), "a read gives an unknown result");
  if (code <= 0) return {};
  const std::string value(buffer.get(), buffer.get() + code);
  check_value(table, key, value);
  return value;
}

void read_one_file(Source& source, const std::string& table, const std::string& key) {
  const auto capacity = static_cast<std::int32_t>(source.below(9000));
  const auto buffer = std::make_unique<std::uint8_t[]>(static_cast<std::size_t>(capacity));
  std::uint32_t crc = 0;
  const std::int32_t code =
      dm_read_db(choose_file(source), table.c_str(), key.c_str(), buffer.get(), &crc, capacity);
  check(is_refusal(code) || (code >= 0 && code <= capacity), "a read of one file gives an unknown result");
}

std::string make_value(Source& source) {
  std::string value = source.bytes(source.below(20));
  value.resize(value.size() + (source.below(4) == 0 ? source.below(6000) : source.below(40)), 'v');
  return value;
}

void write(Source& source, bool sound) {
  const unsigned table = source.below(kTables.size());
  const unsigned key = source.below(kKeys.size());
  const std::string value = make_value(source);
  const std::int32_t code = dm_pal_write(kTables[table].c_str(), source.byte(), kKeys[key].c_str(),
                                         static_cast<std::int32_t>(source.below(8)), value.data(),
                                         static_cast<std::int32_t>(value.size()));
  check(code == 0 || code == -1, "a write gives an unknown result");
  if (!sound || table >= kSoundTables || key >= kSoundKeys) return;
  check(code == 0, "a write to sound files fails");
  check(read(kTables[table], kKeys[key], 9000) == value, "a write to sound files is not read back");
}

void write_one_file(Source& source, const std::string& table, const std::string& key) {
  const std::string value = make_value(source);
  const std::int32_t code = dm_write_db(choose_file(source), table.c_str(), 9, key.c_str(), 6, value.data(),
                                        static_cast<std::int32_t>(value.size()));
  check(code == 0 || code == -1 || code == -101, "a write to one file gives an unknown result");
}

void check_health(Source& source) {
  const auto verdict = static_cast<std::int32_t>(check_database_health(choose_file(source)));
  check(verdict >= -2 && verdict <= 1, "a health check gives an unknown verdict");
}

void use_defaults(Source& source, const std::string& table, const std::string& key) {
  vexa_dm_item_desc desc = {};
  std::snprintf(desc.table, sizeof desc.table, "%s", table.c_str());
  std::snprintf(desc.key, sizeof desc.key, "%s", key.c_str());
  if (source.below(2) == 0) {
    desc.type = 6;
    const std::string value = make_value(source);
    const char* const bytes = value.data();
    const auto code = static_cast<std::int32_t>(
        dm_sqlite_def_db_const(1, &desc, &bytes, static_cast<std::uint32_t>(value.size())));
    check(code == 0 || code == -1 || code == -101, "a write of a default gives an unknown result");
  }
  const auto capacity = static_cast<std::int32_t>(source.below(9000));
  const auto buffer = std::make_unique<std::uint8_t[]>(static_cast<std::size_t>(capacity));
  const std::int32_t code = dm_sqlite_def_db_read(1, &desc, buffer.get(), capacity);
  check(is_refusal(code) || (code >= 0 && code <= capacity), "a read of a default gives an unknown result");
}

void use_journal(Source& source, const std::string& table, const std::string& key) {
  if (source.below(2) == 0) {
    const std::int32_t code =
        dm_write_state_db(table.c_str(), 3, key.c_str(), 6, static_cast<std::int32_t>(source.word()),
                          static_cast<std::int32_t>(99 + source.below(5)));
    check(code == 0 || code == -1, "a write of the journal gives an unknown result");
    return;
  }
  std::array<char, 33> item_table;
  std::array<char, 33> item_key;
  std::array<std::int32_t, 4> numbers = {};
  const std::int32_t code = dm_read_state_db(item_table.data(), item_key.data(), &numbers[0], &numbers[1],
                                             &numbers[2], &numbers[3]);
  check(code == 0 || code == -1 || code > 0, "a read of the journal gives an unknown result");
}

void export_file(Source& source) {
  const auto code = static_cast<std::int32_t>(dm_read_all_tabs_from_db(choose_file(source)));
  check(code == 0 || code == -101, "an export gives an unknown result");
}

}  // namespace

void start_again() {
  std::uint32_t version = 0;
  const std::int32_t code =
      dm_pal_read("SQL_VER_TAB", "SQL_VER_KEY", reinterpret_cast<std::uint8_t*>(&version), 4);
  check(is_refusal(code) || code == -102 || (code >= 1 && code <= 4),
        "the version read gives an unknown result");
  if (code >= 1 && version == VEXA_SCHEMA_VERSION) dm_sqlite_check_database();
  version = VEXA_SCHEMA_VERSION;
  if (code == -100) dm_pal_write("SQL_VER_TAB", version, "SQL_VER_KEY", 3, &version, 4);
  std::uint8_t matched = 7;
  sqlite_chk_db_ver_match(&matched);
  check(matched == 0 || matched == 1 || matched == 7, "the version match is neither true nor false");
}

void call_the_store(Source& source, bool sound) {
  const std::int64_t waited = waited_us();
  const unsigned kind = source.below(16);
  const std::string& table = kTables[source.below(kTables.size())];
  const std::string& key = kKeys[source.below(kKeys.size())];
  int calls = 1;
  switch (kind) {
    case 0:
      start_again();
      calls = 4;
      break;
    case 1:
      read_one_file(source, table, key);
      break;
    case 2:
      write_one_file(source, table, key);
      break;
    case 3:
      check_health(source);
      break;
    case 4:
      use_defaults(source, table, key);
      calls = 3;
      break;
    case 5:
      use_journal(source, table, key);
      break;
    case 6:
      dm_sqlite_check_database();
      break;
    case 7:
      export_file(source);
      break;
    case 8:
    case 9:
    case 10:
    case 11:
      write(source, sound);
      calls = 2;
      break;
    default:
      read(table, key, static_cast<std::int32_t>(source.below(9000)));
      break;
  }
  // The promise to callers, who may be a watchdog away from a reset.
  check(waited_us() - waited <= std::int64_t{calls} * VEXA_STORAGE_BUSY_MS * 1000, "a call waits too long");
}

}  // namespace vexa_fuzz
