// SPDX-License-Identifier: MIT
#include "vexadm/command_data.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <vexadm/log.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>

#include "support/child.h"
#include "support/failing_calloc.h"
#include "support/log_text.h"

// ---- What is given back -----------------------------------------------------

namespace {

struct Freed {
  bool watching = false;
  std::array<const void*, 32> blocks = {};
  std::size_t count = 0;
};
Freed g_freed;

}  // namespace

#if VEXA_TEST_OWN_CALLOC
extern "C" void __libc_free(void* block);
extern "C" __attribute__((visibility("default"))) void free(void* block) noexcept {
  if (g_freed.watching && block != nullptr && g_freed.count < g_freed.blocks.size()) {
    g_freed.blocks[g_freed.count++] = block;
  }
  __libc_free(block);
}
#endif

namespace {

using vexa_test::ChildResult;
using vexa_test::log_is;
using vexa_test::LogCapture;
using vexa_test::run_in_child;
using Blocks = std::set<const void*>;

char* text() { return strdup("text"); }

// A record as the framework makes them.
vexa_cmd_q_data* record_of(std::int32_t type, void* payload) {
  auto* const record = static_cast<vexa_cmd_q_data*>(std::malloc(sizeof(vexa_cmd_q_data)));
  record->cmd_type = type;
  record->payload = payload;
  return record;
}

// Without a log: its buffers are blocks too. A sanitizer finds what is freed twice or not at all.
Blocks freed_by(vexa_cmd_q_data* record, const Blocks& expected) {
  const std::int32_t level = vexa_get_log_level();
  vexa_set_log_level(4);
  g_freed.count = 0;
  g_freed.watching = true;
  vexa_free_cmd_q_data(record);
  g_freed.watching = false;
  vexa_set_log_level(level);
#if VEXA_TEST_OWN_CALLOC
  EXPECT_EQ(g_freed.count, expected.size());
  return Blocks(g_freed.blocks.begin(), g_freed.blocks.begin() + static_cast<std::ptrdiff_t>(g_freed.count));
#else
  return expected;
#endif
}

#define EXPECT_FREES(record, ...)                    \
  do {                                               \
    const Blocks expected = {record, __VA_ARGS__};   \
    EXPECT_EQ(freed_by(record, expected), expected); \
  } while (false)

// ---- Making -----------------------------------------------------------------

struct Made {
  std::int32_t type;
  std::size_t size;
};

class NewRecord : public ::testing::TestWithParam<Made> {};

TEST_P(NewRecord, HasItsTypeAndAZeroedPayload) {
  vexa_cmd_q_data* const record = vexa_malloc_cmd_q_data(GetParam().type);
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->cmd_type, GetParam().type);
  ASSERT_NE(record->payload, nullptr);
  EXPECT_GE(malloc_usable_size(record->payload), GetParam().size);
  EXPECT_EQ(std::string(static_cast<char*>(record->payload), GetParam().size),
            std::string(GetParam().size, '\0'));
  std::memset(record->payload, 0, GetParam().size);  // all of it may be written
  EXPECT_FREES(record, record->payload);
}

INSTANTIATE_TEST_SUITE_P(Types, NewRecord, ::testing::Values(Made{0, 45}, Made{4, 45}, Made{5, 17}),
                         [](const auto& made) { return "Type" + std::to_string(made.param.type); });

class NewRecordOf : public ::testing::TestWithParam<std::int32_t> {};

TEST_P(NewRecordOf, AnotherTypeEndsTheProcess) {
  const ChildResult child = run_in_child([] { vexa_malloc_cmd_q_data(GetParam()); });
  EXPECT_EQ(child.signal, SIGABRT);
  EXPECT_THAT(child.out, ::testing::HasSubstr(" : =ERR= | ["));
  EXPECT_THAT(child.out, ::testing::HasSubstr("oem_malloc_cmd_q_data"));
  EXPECT_THAT(child.out, ::testing::HasSubstr("Invalid CMD type: " + std::to_string(GetParam()) +
                                              "\nvexa_common_def, line: "));
}

INSTANTIATE_TEST_SUITE_P(Types, NewRecordOf,
                         ::testing::Values(-1, 1, 2, 3, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 0x10005));

TEST(NewRecords, WithoutMemoryEndTheProcess) {
  VEXA_NEEDS_OWN_CALLOC();
  for (const Made& failed : {Made{0, sizeof(vexa_cmd_q_data)}, Made{0, 45}, Made{4, 45}, Made{5, 17}}) {
    const ChildResult child = run_in_child([&] {
      const vexa_test::FailingCalloc failing(failed.size);
      vexa_malloc_cmd_q_data(failed.type);
    });
    EXPECT_EQ(child.signal, SIGABRT) << failed.size;
    EXPECT_THAT(child.out, ::testing::StartsWith("vexa_common_def, line: "));
  }
}

// ---- Freeing ----------------------------------------------------------------

class FreeingAList : public ::testing::TestWithParam<std::int32_t> {};

TEST_P(FreeingAList, TakesBothTextsAndAllOfTheArray) {
  vexa_cmd_q_data* const record = vexa_malloc_cmd_q_data(GetParam());
  auto* const list = static_cast<vexa_cmd_q_list*>(record->payload);
  list->text = text();
  list->second_text = text();
  list->entry_count = 3;
  list->entries = static_cast<char**>(std::calloc(3, sizeof(char*)));
  list->entries[0] = text();
  list->entries[2] = text();
  EXPECT_FREES(record, list, list->text, list->second_text, list->entries, list->entries[0],
               list->entries[2]);
}

TEST_P(FreeingAList, TakesWhatIsThere) {
  vexa_cmd_q_data* const record = vexa_malloc_cmd_q_data(GetParam());
  auto* const list = static_cast<vexa_cmd_q_list*>(record->payload);
  list->second_text = text();
  list->entry_count = 3;  // of an array that was never made
  EXPECT_FREES(record, list, list->second_text);
}

INSTANTIATE_TEST_SUITE_P(Types, FreeingAList, ::testing::Values(0, 4));

class FreeingAText : public ::testing::TestWithParam<std::int32_t> {};

TEST_P(FreeingAText, TakesTheTextAndThePayload) {
  auto* const payload = static_cast<vexa_cmd_q_text*>(std::calloc(1, VEXA_CMD_Q_TEXT_SIZE));
  payload->text = text();
  vexa_cmd_q_data* const record = record_of(GetParam(), payload);
  EXPECT_FREES(record, payload, payload->text);
}

INSTANTIATE_TEST_SUITE_P(Types, FreeingAText, ::testing::Values(5, 13, 15));

class FreeingAPayload : public ::testing::TestWithParam<std::int32_t> {};

TEST_P(FreeingAPayload, TakesNothingInsideOfIt) {
  auto* const payload = static_cast<vexa_cmd_q_text*>(std::calloc(1, VEXA_CMD_Q_TEXT_SIZE));
  char* const inside = text();
  payload->text = inside;
  vexa_cmd_q_data* const record = record_of(GetParam(), payload);
  EXPECT_FREES(record, payload);
  std::free(inside);
}

INSTANTIATE_TEST_SUITE_P(Types, FreeingAPayload, ::testing::Values(7, 8, 10, 11, 12, 14));

class FreeingARecord : public ::testing::TestWithParam<std::int32_t> {};

TEST_P(FreeingARecord, LeavesThePayloadToItsOwner) {
  char* const payload = text();
  vexa_cmd_q_data* const record = record_of(GetParam(), payload);
  const Blocks expected = {record};
  EXPECT_EQ(freed_by(record, expected), expected);
  EXPECT_STREQ(payload, "text");
  std::free(payload);
}

INSTANTIATE_TEST_SUITE_P(Types, FreeingARecord, ::testing::Values(6, 9, 1, 2, 3, 16, -1, INT32_MAX));

class FreeingAnyType : public ::testing::TestWithParam<std::int32_t> {};

TEST_P(FreeingAnyType, WithoutAPayloadTakesTheRecord) {
  vexa_cmd_q_data* const record = record_of(GetParam(), nullptr);
  const Blocks expected = {record};
  EXPECT_EQ(freed_by(record, expected), expected);
}

TEST_P(FreeingAnyType, SaysTheTypeAndWhetherItKnowsIt) {
  LogCapture log;
  vexa_cmd_q_data* const record = record_of(GetParam(), nullptr);
  char address[32];
  std::snprintf(address, sizeof address, "%p", static_cast<void*>(record));
  vexa_free_cmd_q_data(record);
  const std::string type = std::to_string(GetParam());
  std::vector<std::string> expected = {"0 oem_free_cmd_q_data|oem_free_cmd_q_data:cmd_type=" + type + ", " +
                                       address + "\n"};
  const bool known = GetParam() == 0 || (GetParam() >= 4 && GetParam() <= 15);
  if (!known) expected.push_back("3 oem_free_cmd_q_data|Invalid CMD type: " + type + "\n");
  EXPECT_TRUE(log_is(log, expected));
}

INSTANTIATE_TEST_SUITE_P(Types, FreeingAnyType, ::testing::Range(-1, 18));

TEST(FreeingNothing, IsReported) {
  LogCapture log;
  vexa_free_cmd_q_data(nullptr);
  EXPECT_TRUE(log_is(log, {"3 oem_free_cmd_q_data|oem_free_cmd_q_data invalid queue data\n"}));
}

}  // namespace
