// SPDX-License-Identifier: MIT
// The data manager's functions.
#include <vexadm/vexadm.h>

#include <cstdlib>

#include "faults/failing_operations.h"

namespace vexa_test {
namespace {

constexpr char kManager[] = "data_manager/vexa_app_dm, line: ";
constexpr char kCache[] = "data_manager/vexa_dm_sync_mem, line: ";

vexa_dm_default_item g_items[] = {{}, {}, {}};
vexa_dm_handle* g_handle = nullptr;
std::int32_t g_number = 0;
int g_changes = 0;
char g_keys[8][VEXA_DM_KEY_VALUE_ROW_SIZE];
char g_values[8][VEXA_DM_KEY_VALUE_ROW_SIZE];

void describe(vexa_dm_default_item& item, std::int32_t id, const vexa_dm_item_desc& desc, const char* text) {
  item.id = id;
  item.desc = desc;
  item.type = VEXA_DM_STRING;
  item.length = static_cast<std::int32_t>(std::strlen(text));
  item.value.text = text;
}

void describe_items() {
  describe(g_items[0], 1, g_apn, "factory");
  describe(g_items[1], 2, g_pairs, "a,1;");
  g_items[2].id = -1;
  g_handle = vexa_dm_reg(VEXA_DM_BACKEND_SQLITE);
}

void start_data_manager() {
  describe_items();
  vexa_dm_reg_def_items(g_items);
  vexa_dm_reg_event_callback([](std::int32_t, const void*, std::int32_t) { ++g_changes; });
}

void prepare_items() {
  start_once();
  expect_in_child([] {
    EXPECT_EQ(store(g_other, kOtherValue), 0);
    start_data_manager();
    EXPECT_EQ(vexa_dm_construct_def_database(VEXA_DM_BACKEND_SQLITE), 0);
    EXPECT_EQ(vexa_dm_write(g_handle, 1, "stored", 6), 0);
    EXPECT_EQ(vexa_dm_write(g_handle, 2, "a,2;", 4), 0);
  });
}

// The item in the store is the new one, and its change was told.
bool apn_is_new() { return g_changes == 1 && look(g_apn).found == kNew; }

// A read of the wrong bytes: 999. The compiled-in default is given only where the versions cannot
// be read.
std::int64_t value_of(std::int32_t code) {
  if (code == 6 && std::memcmp(g_buffer, "stored", 6) == 0) return 1;
  if (code == 7 && std::memcmp(g_buffer, "factory", 7) == 0) return 2;
  return code > 0 ? 999 : code;
}

const std::vector<Answer> kWriteAnswers = {{0}, {-1, "3 dm_pal_write|dm_update_db: \n"}};

// With matching versions the stored defaults answer, and their failure comes through.
const std::vector<Answer> kReadAnswers = {
    {1},
    {2, "3 oem_dm_try_read_def_value|ver_match fail,so ignore DefItems data!\n", Line::kElsewhere},
    {2, "3 oem_dm_try_read_def_value|apn def value is factory\n", Line::kElsewhere},
    {-1, "3 oem_dm_read|oem_dm_read def value:1 not register!\n"},
    {-100, "3 oem_dm_read|oem_dm_read def value:1 not register!\n"},
    {-101, "3 oem_dm_read|oem_dm_read def value:1 not register!\n"}};

std::vector<Operation> registration_operations() {
  return {
      {.name = "Handle",
       .prepare = prepare_items,
       .run = [] { return std::int64_t{CALL(vexa_dm_unreg)(CALL(vexa_dm_reg)(VEXA_DM_BACKEND_SQLITE))}; },
       .answers = {{0}},
       .item = &g_apn,
       .assertion = kManager},
      {.name = "HandleOfAnotherBackend",
       .run = [] { return std::int64_t{CALL(vexa_dm_unreg)(CALL(vexa_dm_reg)(2))}; },
       .answers = {{0}},
       .assertion = kManager,
       .reach = Reach::kMemory},
      {.name = "Slots",
       .prepare = prepare_items,
       .run =
           [] {
             vexa_dm_backend_ops slots = {};
             CALL(dm_pal_reg)(VEXA_DM_BACKEND_SQLITE, &slots);
             return std::int64_t{slots.clean == dm_sqlite_clean ? 0 : 999};
           },
       .answers = {{0}},
       .item = &g_apn},
      {.name = "StoreAreaByType",
       .run =
           [] {
             const bool moved = CALL(dm_pal_reg_store_area)(1, "/data/", "/data/") == nullptr &&
                                CALL(vexa_dm_reg_store_area)(1, "/data/", "/data/") == nullptr;
             return std::int64_t{moved ? 0 : 999};
           },
       .answers = {{0}},
       .reach = Reach::kNothing},
      {.name = "Registration",
       .prepare = prepare_items,
       .before = describe_items,
       .run = [] { return std::int64_t{CALL(vexa_dm_reg_def_items)(g_items)}; },
       .answers = {{0}, {-4, "3 oem_dm_reg_def_items|oem_dm_def_reg_map_symtab open failed\n"}},
       .kept =
           [] {
             return vexa_dm_read(g_handle, 1, g_buffer, 64) == 6 &&
                    vexa_dm_read(g_handle, 2, g_buffer, 64) == 4;
           },
       .item = &g_apn,
       .assertion = kManager,
       .keeps_memory = true,
       .reach = Reach::kMemory},
      {.name = "Callback",
       .run =
           [] {
             return std::int64_t{
                 CALL(vexa_dm_reg_event_callback)([](std::int32_t, const void*, std::int32_t) {})};
           },
       .answers = {{0}},
       .reach = Reach::kNothing},
      {.name = "CallbackOfNobody",
       .run = [] { return std::int64_t{CALL(vexa_dm_reg_event_callback)(nullptr)}; },
       .answers = {{-3, "3 oem_dm_reg_event_callback|vexa_dm_reg_event_callback param NULL\n"}}},
      {.name = "ComparisonOfIds",
       .run =
           [] {
             struct {
               q_link_node link;
               vexa_dm_default_item* item;
             } node = {{}, &g_items[0]};
             g_items[0].id = 1;
             const std::int32_t one = 1;
             const std::int32_t two = 2;
             return std::int64_t{
                 CALL(vexa_dm_compare_id)(&node, &one) == 1 && vexa_dm_compare_id(&node, &two) == 0 ? 0
                                                                                                    : 999};
           },
       .answers = {{0}},
       .reach = Reach::kNothing},
      {.name = "ConstructionOfDefaults",
       .prepare = prepare_items,
       .before = start_data_manager,
       .run = [] { return std::int64_t{CALL(vexa_dm_construct_def_database)(VEXA_DM_BACKEND_SQLITE)}; },
       .answers = {{0}},
       .item = &g_apn,
       .assertion = kManager},
      {.name = "DefaultWriteThroughTheHandle",
       .prepare = prepare_items,
       .before = start_data_manager,
       .run =
           [] {
             return std::int64_t{
                 CALL(vexa_dm_def_items_write)(g_handle, 1, &g_items[0].desc, &g_items[0].value, 7)};
           },
       .answers = {{0},
                   {-1, "3 dm_write_def_db|[LINE] create table error, <any>\n", Line::kElsewhere},
                   {-101, "3 dm_write_def_db|sqlite3_open failed: <any>\n", Line::kElsewhere}},
       .item = &g_apn},
      {.name = "DefaultReadThroughTheHandle",
       .prepare = prepare_items,
       .before = start_data_manager,
       .run =
           [] { return value_of(CALL(vexa_dm_def_items_read)(g_handle, 1, &g_items[0].desc, g_buffer, 64)); },
       .answers = {{2},
                   {-1, "3 dm_read_def_db|sqlite3_step error <any>\n"},
                   {-100, "3 dm_read_def_db|[LINE] sqlite3_prepare error, <any>\n"},
                   {-101, "3 dm_read_def_db|sqlite3_open failed: <any>\n"}},
       .item = &g_apn},
      {.name = "VersionMatchByType",
       .prepare = prepare_items,
       .run =
           [] {
             std::uint8_t first = 2;
             std::uint8_t second = 2;
             CALL(vexa_dm_check_db_version_match)(VEXA_DM_BACKEND_SQLITE, &first);
             CALL(dm_pal_check_db_version_match)(VEXA_DM_BACKEND_SQLITE, &second);
             return std::int64_t{first == 0 || second == 0 ? 999 : first + second};
           },
       .answers = {{2},
                   {3, "3 sqlite_chk_db_ver_match|<any> read fail\n"},
                   {4, "3 sqlite_chk_db_ver_match|<any> read fail\n"}},
       .item = &g_apn},
      {.name = "HealthThroughTheManager",
       .prepare = prepare_items,
       .run = [] { return std::int64_t{static_cast<std::int32_t>(CALL(dm_pal_check_db_health)(DB_CONFIG))}; },
       .answers = {{0},
                   {1, "3 integrity_check_callback|[ERROR] Corruption detected: <any>\n", Line::kElsewhere},
                   {1, "3 check_database_health|<any> corruption detected: <any> (Code: 11)\n"},
                   {-1, "3 check_database_health|Open failed: <any> (Code: <any>)\n"},
                   {-2, "3 check_database_health|<any> Quick check error: <any> (Code: <any>)\n"}},
       .item = &g_apn},
  };
}

std::vector<Operation> item_operations() {
  return {
      {.name = "ItemRead",
       .prepare = prepare_items,
       .before = start_data_manager,
       .run = [] { return value_of(CALL(vexa_dm_read)(g_handle, 1, g_buffer, 64)); },
       .answers = kReadAnswers,
       .item = &g_apn,
       .assertion = kCache,
       .keeps_memory = true,
       .thorough = true},
      {.name = "ItemReadFromFile",
       .prepare = prepare_items,
       .before = start_data_manager,
       .run = [] { return std::int64_t{CALL(vexa_dm_read_from_dbconfigfile)(g_handle, 1, g_buffer, 64)}; },
       .answers = {{0}, {3, "3 dm_read_db|<any>\n", Line::kElsewhere}},
       .kept = [] { return std::memcmp(g_buffer, "stored", 6) == 0; },
       .item = &g_apn,
       .assertion = kCache,
       .keeps_memory = true},
      {.name = "ItemReadPastTheCache",
       .prepare = prepare_items,
       .before = start_data_manager,
       .run =
           [] {
             return std::int64_t{CALL(vexa_dm_read_db)(g_handle, 1, reinterpret_cast<char*>(g_buffer), 64)};
           },
       .answers = {{0}, {-3, "3 oem_dm_read_db|oem_dm_read_db def value:1 not register!\n"}},
       .kept = [] { return std::memcmp(g_buffer, "stored", 6) == 0; },
       .item = &g_apn},
      {.name = "ItemWrite",
       .prepare = prepare_items,
       .before = start_data_manager,
       .run = [] { return std::int64_t{CALL(vexa_dm_write)(g_handle, 1, "newest", 6)}; },
       .answers = kWriteAnswers,
       .kept = apn_is_new,
       .given_up = "",
       .item = &g_apn,
       .found = kOld | kNew,
       .found_at_start = kOld | kNew,
       .assertion = kCache,
       .keeps_memory = true,
       .thorough = true},
      {.name = "ItemWritePastTheCache",
       .prepare = prepare_items,
       .before = start_data_manager,
       .run =
           [] {
             const auto* const bytes = reinterpret_cast<const std::uint8_t*>("newest");
             return std::int64_t{CALL(vexa_dm_write_db)(g_handle, 1, bytes, 6)};
           },
       .answers = kWriteAnswers,
       .kept = apn_is_new,
       .given_up = "",
       .item = &g_apn,
       .found = kOld | kNew,
       .found_at_start = kOld | kNew},
      {.name = "ItemEmptied",
       .prepare = prepare_items,
       .before = start_data_manager,
       .run = [] { return std::int64_t{CALL(vexa_dm_empty)(g_handle, 1)}; },
       .answers = kWriteAnswers,
       .kept = [] { return g_changes == 1 && look(g_apn).found == kMissing; },
       .given_up = "",
       .item = &g_apn,
       .found = kOld | kMissing,
       .found_at_start = kOld | kMissing,
       .assertion = kCache,
       .keeps_memory = true},
      {.name = "PairWrite",
       .prepare = prepare_items,
       .before = start_data_manager,
       .run =
           [] { return std::int64_t{CALL(vexa_dm_write_key_value_pairs)(g_handle, 2, "b", "9", &g_number)}; },
       .answers = {{0},
                   {-1, "3 oem_dm_write_key_value_pairs|<any> db failed\n"},
                   {-3, "3 oem_dm_write_key_value_pairs|read db failed\n"},
                   {-100, "3 oem_dm_write_key_value_pairs|read db failed\n"},
                   {-101, "3 oem_dm_write_key_value_pairs|read db failed\n"}},
       // Put into the default, where the stored text could not be read.
       .kept = [] { return look(g_pairs).found == kNew; },
       .given_up = "",
       .item = &g_pairs,
       .found = kOld | kNew | kTorn,
       .found_at_start = kOld | kNew | kTorn,
       .assertion = kCache,
       .keeps_memory = true},
      {.name = "PairRead",
       .prepare = prepare_items,
       .before = start_data_manager,
       .run =
           [] {
             const std::int32_t code =
                 CALL(vexa_dm_read_key_value_pairs)(g_handle, 2, g_keys, g_values, &g_number);
             if (code != 0) return g_number == 0 ? std::int64_t{code} : 999;
             const bool good = g_number == 1 && std::strcmp(g_keys[0], "a") == 0;
             return std::int64_t{good && std::strchr("12", g_values[0][0]) != nullptr ? 0 : 999};
           },
       .answers = {{0},
                   {-1, "3 oem_dm_read_key_value_pairs|read db failed\n"},
                   {-3, "3 oem_dm_read_key_value_pairs|read db failed\n"},
                   {-100, "3 oem_dm_read_key_value_pairs|read db failed\n"},
                   {-101, "3 oem_dm_read_key_value_pairs|read db failed\n"}},
       .item = &g_pairs,
       .assertion = kCache,
       .keeps_memory = true},
      {.name = "CleanOfTheStore",
       .prepare = prepare_items,
       .before = start_data_manager,
       .run = [] { return std::int64_t{static_cast<std::int32_t>(CALL(vexa_dm_clean)(g_handle, nullptr))}; },
       .answers = {{0},
                   {-1, "3 dm_sqlite_system_cmd|system command failed: (<any>) <any>\n"},
                   {-1, "3 dm_sqlite_clean|unlink <any>\n"}},
       .kept = [] { return !std::filesystem::exists(kPrimary) && !std::filesystem::exists(kJournal); },
       .item = &g_apn,
       .found = kOld | kMissing,
       .found_at_start = kOld | kMissing,
       .keeps_other = false,
       .below_libc = true},
  };
}

constexpr char kLongText[] = "a text that is longer than what the cache holds so far";

std::int64_t fill_cache() {
  std::uint8_t buffer[128];
  for (const char* text : {"first", kLongText, "last"}) {
    const auto size = static_cast<std::int32_t>(std::strlen(text));
    if (CALL(vexa_dm_cache_write)(9, text, size) != size) return 998;
    const std::int32_t length = CALL(vexa_dm_cache_read)(9, buffer, sizeof buffer);
    if (length == -1) return -1;  // left out: memory was short for the entry
    if (length != size || std::memcmp(buffer, text, static_cast<std::size_t>(size)) != 0) return 999;
  }
  return 0;
}

std::int64_t use_cache_directly() {
  const std::int32_t size = 5;
  std::int32_t length = sizeof g_buffer;
  CALL(vexa_dm_wr_to_mem)(8, "bytes", &size);
  CALL(vexa_dm_rd_from_mem)(8, g_buffer, &length);
  if (length == -1) return -1;
  return length == 5 && std::memcmp(g_buffer, "bytes", 5) == 0 ? 0 : 999;
}

std::vector<Operation> cache_operations() {
  return {
      {.name = "Cache",
       .run = fill_cache,
       .answers = {{0}, {-1, "3 oem_dm_construct_queue_from_kvl|oem_MALLOC fail!\r\n"}},
       .assertion = kCache,
       .keeps_memory = true},
      {.name = "CacheFromWithin",
       .run = use_cache_directly,
       .answers = {{0}, {-1, "3 oem_dm_construct_queue_from_kvl|oem_MALLOC fail!\r\n"}},
       .assertion = kCache,
       .keeps_memory = true},
      {.name = "CacheOfAKnownItem",
       .before = [] { vexa_dm_cache_write(9, kLongText, sizeof kLongText); },
       .run =
           [] {
             vexa_dm_cache_write(9, "short", 5);
             const bool good = vexa_dm_cache_read(9, g_buffer, 64) == 5;
             return std::int64_t{good && std::memcmp(g_buffer, "short", 5) == 0 ? 0 : 999};
           },
       .answers = {{0}},
       .reach = Reach::kNothing},
      {.name = "Checksum",
       .run =
           [] {
             const std::int32_t crc =
                 CALL(vexa_dm_Crc32Calc)(reinterpret_cast<const std::uint8_t*>("a"), 8, 0);
             return std::int64_t{static_cast<std::uint32_t>(crc) == vexa_dm_crc32_table['a'] ? 0 : 999};
           },
       .answers = {{0}},
       .reach = Reach::kNothing},
  };
}

}  // namespace

std::vector<Operation> manager_operations() {
  std::vector<Operation> all = registration_operations();
  for (const auto& part : {item_operations(), cache_operations()}) {
    all.insert(all.end(), part.begin(), part.end());
  }
  return all;
}

}  // namespace vexa_test
