// SPDX-License-Identifier: MIT
// Takes half a minute. Every operation with each of its allocations failing, one alone and all
// from there on: a documented code or the assertion with its line.
//
// VEXA_FAULT_CASES=all tries every allocation (minutes); a number tries about so many cases for
// each operation.
#include "faults/fault_case.h"

namespace vexa_test {
namespace {

class StarvingOf : public StorageTest, public ::testing::WithParamInterface<Operation> {};

TEST_P(StarvingOf, IsAnsweredWithACodeAndLosesNothing) {
  if (IsSkipped()) return;
#if !VEXA_TEST_OWN_ALLOC
  GTEST_SKIP() << "the sanitizer has its own allocator";
#endif
  const Operation& operation = GetParam();
  FaultRun<FailingAlloc> run(operation);
  const std::uint64_t places = run.places();
  ASSERT_GT(places, 0u);
  const std::uint64_t wanted = cases_wanted();
  const std::uint64_t step = wanted == UINT64_MAX ? 1 : std::max<std::uint64_t>(1, 2 * places / wanted);
  for (std::uint64_t place = 1; place <= places && !HasFailure(); ++place) {
    if (!run.is_chosen(place, step)) continue;
    run.attempt({place, 1, ENOMEM});
    run.attempt({place, kFromThereOn, ENOMEM});
  }
  EXPECT_EQ(run.tally().aborted > 0, *operation.assertion != '\0') << "the assertion";
  print_tally(operation, places, run.tally());
}

INSTANTIATE_TEST_SUITE_P(Storage, StarvingOf, ::testing::ValuesIn(all_operations()), operation_name);

// ---- The data manager and what lies below it ----

constexpr char kLongText[] = "a text that is longer than what the cache holds so far";

vexa_dm_default_item g_items[] = {{}, {}, {}};
vexa_dm_handle* g_handle = nullptr;
std::int32_t g_number = 0;
char g_keys[8][VEXA_DM_KEY_VALUE_ROW_SIZE];
char g_values[8][VEXA_DM_KEY_VALUE_ROW_SIZE];

void describe(vexa_dm_default_item& item, std::int32_t id, const char* key, const char* text) {
  item.id = id;
  std::snprintf(item.desc.table, sizeof item.desc.table, "NET");
  std::snprintf(item.desc.key, sizeof item.desc.key, "%s", key);
  item.type = item.desc.type = VEXA_DM_STRING;
  item.length = static_cast<std::int32_t>(std::strlen(text));
  item.value.text = text;
}

void describe_items() {
  describe(g_items[0], 1, "apn", "factory");
  describe(g_items[1], 2, "pairs", "a,1;");
  g_items[2].id = -1;
}

void start_data_manager() {
  describe_items();
  g_handle = vexa_dm_reg(VEXA_DM_BACKEND_SQLITE);
  vexa_dm_reg_def_items(g_items);
}

void nothing() {}

void prepare_items() {
  expect_in_child([] {
    start_data_manager();
    EXPECT_EQ(vexa_dm_construct_def_database(VEXA_DM_BACKEND_SQLITE), 0);
    EXPECT_EQ(vexa_dm_write(g_handle, 1, "stored", 6), 0);
    EXPECT_EQ(vexa_dm_write(g_handle, 2, "a,2;", 4), 0);
  });
}

void take_line(const char*) {}

// The C library keeps the time zone from its first use on.
void warm_up_log() {
  set_print_interface(take_line);
  static char message[VEXA_LOG_MESSAGE_SIZE];
  vexa_log_printf(4, message, "warm_up_log", 0, "time zone");
}

std::int64_t use_symtab() {
  const std::int32_t table = symOpen(16);
  if (table < 0) return -1;
  std::int64_t entered = 0;
  for (const char* name : {"one", "two", "three", "four", "one"}) {
    const vexa_sym_value text = valueString(name, 1);
    if (vexa_sym_entry* const entry = symEnter(table, name, text, 1)) {
      entered += symLookup(table, name) == entry ? 1 : 999;
    } else {
      vexa_sym_value own = text;
      valueFree(&own);
    }
  }
  std::int64_t walked = 0;
  for (const vexa_sym_entry* entry = symFirst(table); entry != nullptr; entry = symNext(table)) ++walked;
  symDelete(table, "two");
  symClose(table);
  return entered > 5 || walked > 4 ? 999 : 0;
}

std::int64_t use_handles() {
  void** array = nullptr;
  std::int32_t max = 0;
  std::int32_t taken[40];
  std::int32_t count = 0;
  for (std::int32_t i = 0; i < 40; ++i) {
    const std::int32_t index = hAllocEntry(&array, &max, 24);
    if (index >= 0) taken[count++] = index;
  }
  for (std::int32_t i = 0; i < count; ++i) {
    std::free(array[taken[i]]);
    hFree(&array, taken[i]);
  }
  return array == nullptr ? 0 : 999;
}

std::int64_t use_copies() {
  char* const text = bstrdupNoBalloc("text");
  char* const empty = bstrdupANoBalloc(nullptr);
  void* const bytes = bmemdupNoBalloc("bytes", 5);
  char* const name = rewrite_func_name("vexa_dm_write");
  const bool good = (text == nullptr || std::strcmp(text, "text") == 0) &&
                    (empty == nullptr || *empty == '\0') &&
                    (bytes == nullptr || std::memcmp(bytes, "bytes", 5) == 0) &&
                    (name == nullptr || std::strcmp(name, "oem_dm_write") == 0);
  std::free(text);
  std::free(empty);
  std::free(bytes);
  std::free(name);
  return good ? 0 : 999;
}

std::int64_t log_lines() {
  static char message[VEXA_LOG_MESSAGE_SIZE];
  vexa_set_log_level(0);
  for (std::int32_t level = -1; level < 6; ++level) {
    if (vexa_log_printf(level, message, "vexa_some_function", 7, "%s %d\n", "text", 5) != 0) return 999;
  }
  if (std::strcmp(message, "text 5\n") != 0) return 999;
  // Call sites of the library allocate their own message buffer.
  std::uint8_t byte = 0;
  std::int32_t length = 1;
  vexa_dm_rd_from_mem(77, &byte, &length);
  vexa_set_log_level(4);
  return length == -1 ? 0 : 999;
}

std::int64_t fill_cache() {
  std::uint8_t buffer[128];
  for (const char* text : {"first", kLongText, "last"}) {
    vexa_dm_cache_write(9, text, static_cast<std::int32_t>(std::strlen(text)));
    const std::int32_t length = vexa_dm_cache_read(9, buffer, sizeof buffer);
    // Left out when memory was short for the entry.
    if (length == -1) continue;
    if (std::string_view(reinterpret_cast<char*>(buffer), static_cast<std::size_t>(length)) != text)
      return 999;
  }
  return 0;
}

std::int64_t read_to(std::int32_t (*function)(vexa_dm_handle*, std::int32_t, std::uint8_t*, std::int32_t)) {
  const std::int32_t result = function(g_handle, 1, g_buffer, 64);
  if (result == 6 && std::memcmp(g_buffer, "stored", 6) == 0) return 1;
  if (result == 7 && std::memcmp(g_buffer, "factory", 7) == 0) return 2;
  return result > 0 && result != 3 ? 999 : result;
}

struct Call {
  const char* name;
  void (*before)();  // in the child, with memory enough
  std::int64_t (*run)();
  std::vector<std::int64_t> codes;
  const char* source;  // of the assertion that may end it; "" for none
  bool balanced;       // keeps no memory
};

std::ostream& operator<<(std::ostream& out, const Call& call) { return out << call.name; }

std::string call_name(const ::testing::TestParamInfo<Call>& tested) { return tested.param.name; }

std::vector<Call> all_calls() {
  const char* const manager = "data_manager/vexa_app_dm, line: ";
  const char* const cache = "data_manager/vexa_dm_sync_mem, line: ";
  return {
      {"Handle",
       nothing,
       [] {
         vexa_dm_handle* const handle = vexa_dm_reg(VEXA_DM_BACKEND_SQLITE);
         return std::int64_t{vexa_dm_unreg(handle)};
       },
       {0},
       manager,
       true},
      {"Registration",
       [] {
         describe_items();
         g_handle = vexa_dm_reg(VEXA_DM_BACKEND_SQLITE);
       },
       [] { return std::int64_t{vexa_dm_reg_def_items(g_items)}; },
       {0, -4},
       manager,
       false},
      {"ConstructionOfDefaults",
       start_data_manager,
       [] { return std::int64_t{vexa_dm_construct_def_database(VEXA_DM_BACKEND_SQLITE)}; },
       {0},
       manager,
       true},
      // 1 the value, 2 the default, which a backend that cannot read gives way to.
      {"ItemRead",
       start_data_manager,
       [] { return read_to(vexa_dm_read); },
       {1, 2, -1, -100, -101},
       cache,
       false},
      {"ItemReadFromFile",
       start_data_manager,
       [] { return read_to(vexa_dm_read_from_dbconfigfile); },
       {0, 3},
       cache,
       false},
      {"ItemReadPastTheCache",
       start_data_manager,
       [] { return std::int64_t{vexa_dm_read_db(g_handle, 1, reinterpret_cast<char*>(g_buffer), 64)}; },
       {0, -3},
       "",
       true},
      {"ItemWrite",
       start_data_manager,
       [] { return std::int64_t{vexa_dm_write(g_handle, 1, "newest", 6)}; },
       {0, -1},
       cache,
       false},
      {"ItemWritePastTheCache",
       start_data_manager,
       [] {
         return std::int64_t{
             vexa_dm_write_db(g_handle, 1, reinterpret_cast<const std::uint8_t*>("newest"), 6)};
       },
       {0, -1},
       "",
       true},
      {"ItemEmptied",
       start_data_manager,
       [] { return std::int64_t{vexa_dm_empty(g_handle, 1)}; },
       {0, -1},
       cache,
       false},
      {"PairWrite",
       start_data_manager,
       [] { return std::int64_t{vexa_dm_write_key_value_pairs(g_handle, 2, "b", "9", &g_number)}; },
       {0, -1, -3, -100, -101},
       cache,
       false},
      {"PairRead",
       start_data_manager,
       [] {
         const std::int32_t code = vexa_dm_read_key_value_pairs(g_handle, 2, g_keys, g_values, &g_number);
         return std::int64_t{code == 0 && (g_number != 1 || std::strcmp(g_keys[0], "a") != 0) ? 999 : code};
       },
       {0, -1, -3, -100, -101},
       cache,
       false},
      {"VersionMatch",
       start_data_manager,
       [] {
         std::uint8_t match = 0;
         vexa_dm_check_db_version_match(VEXA_DM_BACKEND_SQLITE, &match);
         return std::int64_t{match > 1 ? 999 : 0};
       },
       {0},
       "",
       true},
      {"CleanOfTheStore",
       start_data_manager,
       [] { return std::int64_t{static_cast<std::int32_t>(vexa_dm_clean(g_handle, nullptr))}; },
       {0, -1},
       "",
       true},
      {"Cache", nothing, fill_cache, {0}, cache, false},
      {"Log", warm_up_log, log_lines, {0}, "", true},
      {"SymbolTable", nothing, use_symtab, {0, -1}, "", true},
      {"HandleArray", nothing, use_handles, {0}, "", true},
      {"Copies", nothing, use_copies, {0}, "", true},
  };
}

class StarvingCall : public StorageTest, public ::testing::WithParamInterface<Call> {
 protected:
  // One plan; false when it has not come to fail anything.
  bool attempt(const FaultPlan& plan) {
    const Call& call = GetParam();
    device_.put_back();
    *report_ = {};
    const Ending during = in_child([&] {
      vexa_set_log_level(4);
      call.before();
      std::printf(" ");
      std::fflush(stdout);
      const int fds = open_descriptors();
      const std::int64_t blocks = live_blocks();
      {
        const FailingAlloc injector(plan);
        report_->result = call.run();
      }
      report_->blocks = live_blocks() - blocks;
      report_->seen = FailingAlloc::seen();
      report_->failed = FailingAlloc::failed();
      for (std::size_t i = 0; i < report_->own.size(); ++i) report_->own[i] = FailingAlloc::is_own(i + 1);
      report_->fds_after = open_descriptors() - fds;
      report_->found_code = g_handle != nullptr ? vexa_dm_read(g_handle, 2, g_buffer, 64) : 0;
      report_->done = true;
    });
    SCOPED_TRACE(std::string(call.name) + ": allocation " + std::to_string(plan.from) +
                 (plan.count == 1 ? "" : " and on") + ", result " + std::to_string(report_->result));
    if (during.signal == 0) {
      EXPECT_TRUE(report_->done) << during.output;
      EXPECT_NE(std::find(call.codes.begin(), call.codes.end(), report_->result), call.codes.end());
      EXPECT_EQ(report_->fds_after, 0) << "descriptors left open";
      if (report_->found_code == -3) ++unreachable_;
      EXPECT_TRUE(report_->blocks == 0 || !call.balanced) << report_->blocks << " blocks not given back";
    } else {
      ++aborted_;
      EXPECT_EQ(during.signal, SIGABRT) << during.output;
      EXPECT_NE(*call.source, '\0') << "no assertion is documented: " << during.output;
      EXPECT_NE(during.output.find(call.source), std::string::npos) << during.output;
    }
    const bool fired = during.signal != 0 || report_->failed > 0;
    if (fired) expect_whole_items();
    return fired;
  }

  // The next start: the stored value, what was being written, or after a clean the default.
  void expect_whole_items() {
    const Ending next = in_child([&] {
      vexa_set_log_level(4);
      start_data_manager();
      report_->result = vexa_dm_read(g_handle, 1, g_buffer, 64);
      report_->found_code = vexa_dm_write(g_handle, 1, "the next", 8);
      report_->health = check_database_health(DB_CONFIG);
      report_->backup_health = check_database_health(DB_CONFIGBAK);
    });
    EXPECT_EQ(next.signal, 0) << next.output;
    EXPECT_TRUE(report_->result == 6 || report_->result == 7) << report_->result;
    EXPECT_EQ(report_->found_code, 0);
    EXPECT_EQ(report_->health, 0u);
    EXPECT_EQ(report_->backup_health, 0u);
  }

  Device device_;
  Report* report_ = nullptr;
  std::uint64_t aborted_ = 0;
  std::uint64_t unreachable_ = 0;  // an item that nobody finds, although its registration gave 0
};

TEST_P(StarvingCall, IsAnsweredWithACodeOrTheAssertionLine) {
  if (IsSkipped()) return;
#if !VEXA_TEST_OWN_ALLOC
  GTEST_SKIP() << "the sanitizer has its own allocator";
#endif
  void* const memory =
      mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  report_ = static_cast<Report*>(memory);
  Device::clear();
  prepare_items();
  device_.keep();
  EXPECT_FALSE(attempt({}));
  const std::uint64_t places = report_->seen;
  const auto own = report_->own;
  const std::uint64_t wanted = cases_wanted();
  const std::uint64_t step = wanted == UINT64_MAX ? 1 : std::max<std::uint64_t>(1, 3 * places / wanted);
  std::uint64_t tried = 0;
  for (std::uint64_t place = 1; place <= places && !HasFailure(); ++place) {
    if ((place - 1) % step != 0 && !(place <= own.size() && own[place - 1])) continue;
    attempt({place, 1, ENOMEM});
    attempt({place, kFromThereOn, ENOMEM});
    tried += 2;
  }
  std::printf("%s: %llu allocations, %llu cases tried, %llu assertions, %llu items not found afterwards\n",
              GetParam().name, static_cast<unsigned long long>(places),
              static_cast<unsigned long long>(tried), static_cast<unsigned long long>(aborted_),
              static_cast<unsigned long long>(unreachable_));
  EXPECT_EQ(aborted_ > 0, *GetParam().source != '\0') << "the assertion";
  munmap(memory, sizeof(Report));
}

INSTANTIATE_TEST_SUITE_P(DataManager, StarvingCall, ::testing::ValuesIn(all_calls()), call_name);

}  // namespace
}  // namespace vexa_test
