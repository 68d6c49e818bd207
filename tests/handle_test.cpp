// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vexadm/data_manager.h>
#include <vexadm/queue.h>
#include <vexadm/storage.h>

#include <csignal>
#include <cstring>
#include <string>

#include "support/child.h"
#include "support/device_fixture.h"
#include "support/failing_calloc.h"
#include "support/fake_backend.h"
#include "support/log_capture.h"

using namespace vexa_test;
using ::testing::StartsWith;

namespace {

class HandleOnDevice : public DeviceTest {};

bool all_null(const vexa_dm_backend_ops& ops) {
  const vexa_dm_backend_ops none{};
  return std::memcmp(&ops, &none, sizeof(ops)) == 0;
}

}  // namespace

TEST(Handle, OfAnUnknownTypeKeepsItsTypeAndHasNoSlots) {
  vexa_dm_handle* const handle = vexa_dm_reg(7);

  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(handle->type, 7u);
  EXPECT_TRUE(all_null(handle->ops));
  EXPECT_EQ(vexa_dm_unreg(handle), 0);
}

TEST_F(HandleOnDevice, OfTheSqliteTypeHasAllSevenSlots) {
  vexa_dm_handle* const handle = vexa_dm_reg(1);

  EXPECT_EQ(handle->type, 1u);
  EXPECT_EQ(handle->ops.write, dm_sqlite_write);
  EXPECT_EQ(handle->ops.read, dm_sqlite_read);
  EXPECT_EQ(handle->ops.clean, dm_sqlite_clean);
  EXPECT_EQ(handle->ops.def_db_const, dm_sqlite_def_db_const);
  EXPECT_EQ(handle->ops.def_db_read, dm_sqlite_def_db_read);
  EXPECT_EQ(handle->ops.read_cfg_db_version, dm_sqlite_read_CfgDB_version);
  EXPECT_EQ(handle->ops.read_def_items_db_version, dm_sqlite_read_DefItemsDB_version);
  EXPECT_EQ(vexa_dm_unreg(handle), 0);
}

TEST_F(HandleOnDevice, ASecondOneHasWorkingSlotsToo) {
  vexa_dm_handle* const first = vexa_dm_reg(1);
  vexa_dm_handle* const second = vexa_dm_reg(1);

  EXPECT_NE(first, second);
  EXPECT_EQ(std::memcmp(&first->ops, &second->ops, sizeof(first->ops)), 0);
  vexa_dm_unreg(first);
  EXPECT_EQ(second->ops.write, dm_sqlite_write);
  vexa_dm_unreg(second);
}

TEST(Handle, UnregisteringNullIsMinusOneAndSaysNothing) {
  const LogCapture log;

  EXPECT_EQ(vexa_dm_unreg(nullptr), -1);
  EXPECT_TRUE(log.lines().empty());
}

TEST(Handle, WithoutMemoryStopsTheProcess) {
  VEXA_NEEDS_OWN_CALLOC();
  const ChildResult child = run_in_child([] {
    const FailingCalloc starved(sizeof(vexa_dm_handle));
    vexa_dm_reg(7);
  });

  EXPECT_EQ(child.signal, SIGABRT);
  EXPECT_THAT(child.out, StartsWith("data_manager/vexa_app_dm, line: "));
  EXPECT_EQ(child.out.back(), '\n');
}

TEST(Backend, OfAnUnknownTypeLeavesTheSlotsAsTheyAre) {
  vexa_dm_backend_ops slots{};
  slots.write = dm_sqlite_write;

  dm_pal_reg(0, &slots);
  dm_pal_reg(2, &slots);

  EXPECT_EQ(slots.write, dm_sqlite_write);
  EXPECT_EQ(slots.read, nullptr);
}

TEST(StoreArea, OfAnUnknownTypeIsTheFirstDirectoryItself) {
  const char first[] = "/data/here/";

  EXPECT_EQ(dm_pal_reg_store_area(2, first, "/data/there/"), first);
  EXPECT_EQ(vexa_dm_reg_store_area(2, first, "/data/there/"), first);
  EXPECT_EQ(dm_pal_reg_store_area(0, nullptr, "/data/there/"), nullptr);
  EXPECT_STREQ(DB_CONFIG, "/data/config.db");
  EXPECT_STREQ(DB_CONFIGBAK, "/data/configbak.db");
}

TEST(StoreArea, OfTheSqliteBackendMovesAndIsNull) {
  EXPECT_EQ(dm_pal_reg_store_area(1, "/data/here/", "/data/there/"), nullptr);
  EXPECT_STREQ(DB_CONFIG, "/data/here/config.db");
  EXPECT_STREQ(DB_STATE, "/data/here/state.db");
  EXPECT_STREQ(DB_CONFIGBAK, "/data/there/configbak.db");
}

TEST(StoreArea, UnderItsPublicNameMovesTheBackendToo) {
  EXPECT_EQ(vexa_dm_reg_store_area(1, "/data/one/", nullptr), nullptr);
  EXPECT_STREQ(DB_CONFIG, "/data/one/config.db");
  EXPECT_STREQ(DB_CONFIGBAK, "/data/configbak.db");
}

TEST(StoreArea, RefusedForItsLengthIsThatLengthAsAPointer) {
  const std::string directory = "/" + std::string(49, 'd') + "/";

  const char* const result = vexa_dm_reg_store_area(1, directory.c_str(), nullptr);

  EXPECT_EQ(reinterpret_cast<uintptr_t>(result), 51u);
  EXPECT_STREQ(DB_CONFIG, "/data/config.db");
}

TEST(VersionMatch, OfAnUnknownTypeLeavesTheByteUntouched) {
  uint8_t match = 0x5A;

  dm_pal_check_db_version_match(2, &match);
  vexa_dm_check_db_version_match(0, &match);

  EXPECT_EQ(match, 0x5A);
}

TEST_F(HandleOnDevice, VersionsThatCannotBeReadLeaveTheByteUntouched) {
  vexa_dm_handle* const handle = vexa_dm_reg(1);
  uint8_t match = 0x5A;

  vexa_dm_check_db_version_match(1, &match);

  EXPECT_EQ(match, 0x5A);
  vexa_dm_unreg(handle);
}

TEST_F(HandleOnDevice, VersionsMatchOnceTheDefaultsAreStored) {
  vexa_dm_default_item table[] = {text_item(1, "NAME", "abc"), end_of_table()};
  ASSERT_EQ(vexa_dm_reg_def_items(table), 0);
  ASSERT_EQ(vexa_dm_construct_def_database(1), 0);
  uint8_t match = 0;

  dm_pal_check_db_version_match(1, &match);
  EXPECT_EQ(match, 1);
  match = 0;
  vexa_dm_check_db_version_match(1, &match);
  EXPECT_EQ(match, 1);
}

TEST_F(HandleOnDevice, HealthIsForwardedForAnyFile) {
  vexa_dm_unreg(vexa_dm_reg(1));
  write_file("/data/not_a_database", std::string(4096, 'x'));

  EXPECT_EQ(dm_pal_check_db_health("/data/missing.db"), 0xFFFFFFFFu);
  EXPECT_EQ(dm_pal_check_db_health("/data/not_a_database"), 0xFFFFFFFEu);
  EXPECT_EQ(dm_pal_check_db_health(DB_CONFIG), 0u);
}

TEST(CompareId, IsOneForTheSameIdAndZeroOtherwise) {
  struct {
    q_link_node link;
    vexa_dm_default_item* item;
  } node{};
  vexa_dm_default_item item = text_item(0x10203, "NAME", "abc");
  node.item = &item;
  const int32_t same = 0x10203;
  const int32_t other = 0x10204;

  EXPECT_EQ(vexa_dm_compare_id(&node, &same), 1u);
  EXPECT_EQ(vexa_dm_compare_id(&node, &other), 0u);
  EXPECT_EQ(vexa_dm_compare_id(nullptr, &same), 0u);
  EXPECT_EQ(vexa_dm_compare_id(&node, nullptr), 0u);
  EXPECT_EQ(vexa_dm_compare_id(nullptr, nullptr), 0u);
}
