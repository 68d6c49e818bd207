// SPDX-License-Identifier: MIT
// How the backend attaches itself, where its files are, and what the stored schema version decides.
#include <dlfcn.h>
#include <link.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <vexadm/log.h>

#include "support/storage_fixture.h"

namespace {

bool commands_start = true;

}  // namespace

extern "C" __attribute__((visibility("default"))) FILE* popen(const char* command, const char* mode) {
  static const auto real = reinterpret_cast<decltype(&popen)>(dlsym(RTLD_NEXT, "popen"));
  if (commands_start) return real(command, mode);
  errno = EMFILE;
  return nullptr;
}

namespace vexa_test {
namespace {

class Registration : public StorageTest {};

const std::string kVersionRow =
    "select id||','||key||','||type||','||len||','||crc||','||hex(value) from SQL_VER_TAB";

std::string version_bytes(std::uint32_t version) {
  std::string bytes(sizeof version, '\0');
  std::memcpy(bytes.data(), &version, sizeof version);
  return bytes;
}

Item version_item(std::uint32_t version) {
  return {"SQL_VER_TAB", 0x00010001, "SQL_VER_KEY", 3, version_bytes(version)};
}

void put_version(std::uint32_t version) {
  put_item(kPrimary, version_item(version));
  put_item(kBackup, version_item(version));
}

void put_default_version(std::uint32_t version) {
  EXPECT_EQ(dm_write_def_db("SQL_VER_TAB", "SQL_VER_KEY", 3, &version, 4), 0);
}

std::vector<std::string> register_and_log() {
  const LogCapture log;
  vexa_dm_backend_ops slots = {};
  sqlite_reg(&slots);
  return log_texts(log, "sqlite_reg");
}

// ---- The path buffers ----

TEST_F(Registration, AFreshProcessUsesTheDevicePaths) {
  EXPECT_STREQ(DB_CONFIG, "/data/config.db");
  EXPECT_STREQ(DB_CONFIGBAK, "/data/configbak.db");
  EXPECT_STREQ(DB_STATE, "/data/state.db");
  EXPECT_STREQ(DB_DEF_ITEMS, "/data/DefItems.db");
  EXPECT_STREQ(DB_EXPORT_CSV, "/data/ExportCSV.csv");
  EXPECT_STREQ(db_area, "/data/");
  EXPECT_STREQ(db_rst_bak, "/mnt/vendor/nvdata/");
}

TEST_F(Registration, StoreAreaMovesPrimaryJournalAndBackupOnly) {
  EXPECT_EQ(sqlite_reg_store_area("/vexanv/a/", "/vexanv/b/"), 0u);

  EXPECT_STREQ(DB_CONFIG, "/vexanv/a/config.db");
  EXPECT_STREQ(DB_STATE, "/vexanv/a/state.db");
  EXPECT_STREQ(DB_CONFIGBAK, "/vexanv/b/configbak.db");
  EXPECT_STREQ(DB_DEF_ITEMS, "/data/DefItems.db");
  EXPECT_STREQ(DB_EXPORT_CSV, "/data/ExportCSV.csv");
  EXPECT_STREQ(db_rst_bak, "/mnt/vendor/nvdata/");
  EXPECT_STREQ(db_area, "/data/");
}

TEST_F(Registration, StoreAreaWithoutPrimaryMovesTheBackupOnly) {
  EXPECT_EQ(sqlite_reg_store_area(nullptr, "/vexanv/b/"), 0u);

  EXPECT_STREQ(DB_CONFIG, "/data/config.db");
  EXPECT_STREQ(DB_STATE, "/data/state.db");
  EXPECT_STREQ(DB_CONFIGBAK, "/vexanv/b/configbak.db");
}

TEST_F(Registration, StoreAreaWithoutBackupLeavesTheBackup) {
  EXPECT_EQ(sqlite_reg_store_area("/vexanv/a/", nullptr), 0u);

  EXPECT_STREQ(DB_CONFIG, "/vexanv/a/config.db");
  EXPECT_STREQ(DB_CONFIGBAK, "/data/configbak.db");
}

TEST_F(Registration, StoreAreaOfFiftyCharactersIsTaken) {
  const std::string area = "/" + std::string(48, 'a') + "/";

  EXPECT_EQ(sqlite_reg_store_area(area.c_str(), area.c_str()), 0u);

  EXPECT_EQ(DB_CONFIG, area + "config.db");
  EXPECT_EQ(DB_STATE, area + "state.db");
  EXPECT_EQ(DB_CONFIGBAK, area + "configbak.db");
}

TEST_F(Registration, PrimaryAreaOfFiftyOneCharactersChangesNothing) {
  const std::string area = "/" + std::string(49, 'a') + "/";

  EXPECT_EQ(sqlite_reg_store_area(area.c_str(), "/vexanv/b/"), 51u);

  EXPECT_STREQ(DB_CONFIG, "/data/config.db");
  EXPECT_STREQ(DB_STATE, "/data/state.db");
  EXPECT_STREQ(DB_CONFIGBAK, "/data/configbak.db");
}

TEST_F(Registration, BackupAreaThatIsTooLongLeavesPrimaryAndJournalMoved) {
  const std::string area(60, 'b');

  EXPECT_EQ(sqlite_reg_store_area("/vexanv/a/", area.c_str()), 60u);

  EXPECT_STREQ(DB_CONFIG, "/vexanv/a/config.db");
  EXPECT_STREQ(DB_STATE, "/vexanv/a/state.db");
  EXPECT_STREQ(DB_CONFIGBAK, "/data/configbak.db");
}

TEST_F(Registration, BackupAreaOfFiftyOneCharactersLeavesPrimaryAndJournalMoved) {
  const std::string area = "/" + std::string(49, 'b') + "/";

  EXPECT_EQ(sqlite_reg_store_area("/vexanv/a/", area.c_str()), 51u);

  EXPECT_STREQ(DB_CONFIG, "/vexanv/a/config.db");
  EXPECT_STREQ(DB_STATE, "/vexanv/a/state.db");
  EXPECT_STREQ(DB_CONFIGBAK, "/data/configbak.db");
}

TEST_F(Registration, StoreAreaIsUsedAsGivenWithoutAddingASlash) {
  EXPECT_EQ(sqlite_reg_store_area("/vexanv/a", ""), 0u);

  EXPECT_STREQ(DB_CONFIG, "/vexanv/aconfig.db");
  EXPECT_STREQ(DB_STATE, "/vexanv/astate.db");
  EXPECT_STREQ(DB_CONFIGBAK, "configbak.db");
}

TEST_F(Registration, AWriteGoesToTheStoreArea) {
  make_dirs("/vexanv/a");
  make_dirs("/vexanv/b");
  sqlite_reg_store_area("/vexanv/a/", "/vexanv/b/");

  EXPECT_EQ(write_item("k", "value"), 0);

  EXPECT_EQ(names_in("/data"), std::vector<std::string>{});
  EXPECT_EQ(names_in("/vexanv/a"), (std::vector<std::string>{"config.db", "state.db"}));
  EXPECT_EQ(names_in("/vexanv/b"), std::vector<std::string>{"configbak.db"});
  EXPECT_EQ(read_item("k").value, "value");
}

TEST_F(Registration, StoreAreaLogsNothingAndTouchesNoFile) {
  const LogCapture log;

  sqlite_reg_store_area("/vexanv/a/", "/vexanv/b/");

  EXPECT_TRUE(log_is(log, {}));
  EXPECT_EQ(names_in("/vexanv"), std::vector<std::string>{});
}

// ---- Slots ----

TEST_F(Registration, FillsTheSevenSlots) {
  vexa_dm_backend_ops slots = {};

  sqlite_reg(&slots);

  EXPECT_EQ(slots.write, &dm_sqlite_write);
  EXPECT_EQ(slots.read, &dm_sqlite_read);
  EXPECT_EQ(slots.clean, &dm_sqlite_clean);
  EXPECT_EQ(slots.def_db_const, &dm_sqlite_def_db_const);
  EXPECT_EQ(slots.def_db_read, &dm_sqlite_def_db_read);
  EXPECT_EQ(slots.read_cfg_db_version, &dm_sqlite_read_CfgDB_version);
  EXPECT_EQ(slots.read_def_items_db_version, &dm_sqlite_read_DefItemsDB_version);
}

TEST_F(Registration, TheSlotsAreSevenPointersInOrder) {
  std::array<void*, 8> slots = {};
  slots[7] = &slots;

  sqlite_reg(reinterpret_cast<vexa_dm_backend_ops*>(slots.data()));

  const std::array<void*, 8> expected = {reinterpret_cast<void*>(&dm_sqlite_write),
                                         reinterpret_cast<void*>(&dm_sqlite_read),
                                         reinterpret_cast<void*>(&dm_sqlite_clean),
                                         reinterpret_cast<void*>(&dm_sqlite_def_db_const),
                                         reinterpret_cast<void*>(&dm_sqlite_def_db_read),
                                         reinterpret_cast<void*>(&dm_sqlite_read_CfgDB_version),
                                         reinterpret_cast<void*>(&dm_sqlite_read_DefItemsDB_version),
                                         &slots};
  EXPECT_EQ(slots, expected);
}

TEST_F(Registration, ASecondCallFillsTheSlotsOfTheNewHandle) {
  vexa_dm_backend_ops first = {};
  vexa_dm_backend_ops second = {};
  sqlite_reg(&first);
  const LogCapture log;

  sqlite_reg(&second);

  EXPECT_EQ(second.write, first.write);
  EXPECT_EQ(second.read, first.read);
  EXPECT_EQ(second.clean, first.clean);
  EXPECT_EQ(second.def_db_const, first.def_db_const);
  EXPECT_EQ(second.def_db_read, first.def_db_read);
  EXPECT_EQ(second.read_cfg_db_version, first.read_cfg_db_version);
  EXPECT_EQ(second.read_def_items_db_version, first.read_def_items_db_version);
  EXPECT_TRUE(log_is(log, {"0 sqlite_reg|sqlite_reg\n", "0 sqlite_reg|sqlite_already reg\n"}));
}

TEST_F(Registration, ASecondCallTouchesNoFile) {
  vexa_dm_backend_ops slots = {};
  sqlite_reg(&slots);
  for (const std::string& name : names_in("/data")) unlink(("/data/" + name).c_str());

  sqlite_reg(&slots);

  EXPECT_EQ(names_in("/data"), std::vector<std::string>{});
}

// ---- The first call ----

TEST_F(Registration, AFreshDeviceGetsItsVersionRecord) {
  const LogCapture log;
  vexa_dm_backend_ops slots = {};

  sqlite_reg(&slots);

  EXPECT_TRUE(log_is(log, {"0 sqlite_reg|sqlite_reg\n",                                    //
                           "3 dm_read_db|[LINE] sqlite3_prepare error, 1 \n",              //
                           "0 dm_pal_read|rd ret  -100 \n",                                //
                           "3 dm_read_db|[LINE] sqlite3_prepare error, 1 \n",              //
                           "0 sqlite_reg|database no ver_num\n",                           //
                           "0 dm_update_record|wr crc: 0x0\n",                             //
                           "0 check_database_health|is_corrupted=0\n",                     //
                           "3 dm_pal_write|ERROR: cp /data/config.db /data/configbak.db",  //
                           "0 dm_sqlite_system_cmd|read_len=0\n"}));
  EXPECT_EQ(names_in("/data"), (std::vector<std::string>{"config.db", "configbak.db", "state.db"}));
  EXPECT_EQ(rows(kPrimary, kVersionRow), "65537,SQL_VER_KEY,3,4,0,01000100");
  EXPECT_EQ(read_file(kBackup), read_file(kPrimary));
  EXPECT_EQ(journal_row(kJournal), "SQL_VER_TAB,65537,SQL_VER_KEY,3,4,102");
}

TEST_F(Registration, TheNextStartFindsTheSameVersionAndChecksTheJournal) {
  start_once();
  const LogCapture log;
  vexa_dm_backend_ops slots = {};

  sqlite_reg(&slots);

  EXPECT_TRUE(log_is(
      log,
      {"0 sqlite_reg|sqlite_reg\n", "0 dm_pal_read|rd ret  4 \n",
       "0 sqlite_reg|sqlite_ver & database_ver is same\n",
       "? dm_read_state_db|szSql select item_table,item_key,id,type,len,state from state where "
       "key='write_state'\n",
       "0 dm_read_state_db|read item_table SQL_VER_TAB\n", "0 dm_read_state_db|read item_key SQL_VER_KEY\n",
       "0 dm_read_state_db|read id 65537\n", "0 dm_read_state_db|read type 3\n",
       "0 dm_read_state_db|read len 4\n", "0 dm_read_state_db|read state 102\n",
       "0 dm_sqlite_check_database|dm_sqlite_check_database len: 4\n",
       "0 dm_sqlite_check_database|dm_sqlite_check_database suc, no need sync\n"}));
}

TEST_F(Registration, TheSameVersionFinishesAnInterruptedWrite) {
  put_version(VEXA_SCHEMA_VERSION);
  put_item(kPrimary, {"cfg", 7, "k", 6, "eight by"});
  EXPECT_EQ(dm_write_state_db("cfg", 7, "k", 6, 8, WS_WRITE_DONE), 0);

  register_and_log();

  EXPECT_EQ(stored(kBackup, "cfg", "k"), "eight by");
}

struct Decision {
  const char* name;
  std::uint32_t stored;
  std::vector<std::string> messages;
};

class StoredVersion : public Registration, public ::testing::WithParamInterface<Decision> {};

TEST_P(StoredVersion, OfAnotherBuildIsOnlyLogged) {
  put_version(GetParam().stored);
  put_item(kPrimary, {"cfg", 7, "k", 6, "eight by"});
  EXPECT_EQ(dm_write_state_db("cfg", 7, "k", 6, 8, WS_WRITE_DONE), 0);
  const std::string primary = read_file(kPrimary);
  const std::string backup = read_file(kBackup);

  EXPECT_EQ(register_and_log(), GetParam().messages);

  EXPECT_EQ(read_file(kPrimary), primary);
  EXPECT_EQ(read_file(kBackup), backup) << "the journal may only be looked at when the versions are the same";
  EXPECT_EQ(journal_row(kJournal), "cfg,7,k,6,8,101");
}

const std::string kReg = "0 sqlite_reg|sqlite_reg\n";
const std::string kOld = "0 sqlite_reg|sqlite_ver update to new,database is old\n";
const std::string kNew = "0 sqlite_reg|sqlite_ver rollback to old,database is new\n";

INSTANTIATE_TEST_SUITE_P(
    Decisions, StoredVersion,
    ::testing::Values(Decision{"Older", 0x00010000, {kReg, kOld}},
                      Decision{"Zero", 0, {kReg, kOld, "0 sqlite_reg|database no update_cb ,clean db\n"}},
                      Decision{"HighestIsNegative", 0xFFFFFFFF, {kReg, kOld}},
                      Decision{"TopBitIsNegative", 0x80000000, {kReg, kOld}},
                      Decision{"NextIsNewer", 0x00010002, {kReg, kNew}},
                      Decision{"LargestPositiveIsNewer", 0x7FFFFFFF, {kReg, kNew}}),
    [](const auto& param_info) { return param_info.param.name; });

TEST_F(Registration, AVersionRecordThatFailsItsChecksumIsABadDatabaseButStays) {
  put_item(kPrimary, version_item(VEXA_SCHEMA_VERSION), 5);
  put_item(kBackup, version_item(VEXA_SCHEMA_VERSION), 5);
  const std::string before = read_file(kPrimary);

  EXPECT_EQ(register_and_log(), (std::vector<std::string>{kReg, "0 sqlite_reg|database bad err,clean db\n"}));

  EXPECT_EQ(read_file(kPrimary), before);
}

TEST_F(Registration, ABackupThatCannotBeOpenedIsABadDatabase) {
  make_dirs(kBackup);

  EXPECT_EQ(register_and_log(), (std::vector<std::string>{kReg, "0 sqlite_reg|database bad err,clean db\n"}));

  EXPECT_FALSE(exists(kJournal)) << "no version record may be written";
}

TEST_F(Registration, AVersionTableWithoutTheRecordIsAnotherError) {
  put_item(kPrimary, {"SQL_VER_TAB", 1, "OTHER", 3, "\x01\x02\x03\x04"});
  put_item(kBackup, {"SQL_VER_TAB", 1, "OTHER", 3, "\x01\x02\x03\x04"});

  EXPECT_EQ(register_and_log(), (std::vector<std::string>{kReg, "0 sqlite_reg|database other err\n"}));

  EXPECT_EQ(stored(kPrimary, "SQL_VER_TAB", "SQL_VER_KEY"), "<no row>");
}

TEST_F(Registration, AVersionRecordThatCannotBeWrittenIsFoundMissingAgain) {
  make_dirs(kPrimary);
  const std::vector<std::string> expected = {kReg, "0 sqlite_reg|database no ver_num\n",
                                             "0 sqlite_reg|database wr ver_num fail\n"};

  expect_in_child([&] { EXPECT_EQ(register_and_log(), expected); });
  expect_in_child([&] { EXPECT_EQ(register_and_log(), expected); });
}

// ---- Slot operations ----

TEST_F(Registration, WriteAndReadSlotsNameTableAndKeyFirst) {
  vexa_dm_backend_ops slots = {};
  sqlite_reg(&slots);
  const vexa_dm_item_desc desc = item_desc("cfg", "k", 6);
  std::array<std::uint8_t, 8> buffer = {};
  const LogCapture log;

  EXPECT_EQ(slots.write(7, &desc, "value", 5), 0);
  EXPECT_EQ(slots.read(7, &desc, buffer.data(), 8), 5);

  EXPECT_TRUE(log_is(log, {"0 dm_sqlite_write|tab:cfg, key:k \n",                          //
                           "0 dm_update_record|wr crc: 0x3c8ea00a\n",                      //
                           "0 check_database_health|is_corrupted=0\n",                     //
                           "3 dm_pal_write|ERROR: cp /data/config.db /data/configbak.db",  //
                           "0 dm_sqlite_system_cmd|read_len=0\n",                          //
                           "0 dm_sqlite_read|tab:cfg, key:k \n",                           //
                           "0 dm_pal_read|rd ret  5 \n"}));
  EXPECT_EQ(std::memcmp(buffer.data(), "value\0\0\0", 8), 0);
  EXPECT_EQ(rows(kPrimary, "select id,key,type,len from cfg"), "7,k,6,5");
}

TEST_F(Registration, WriteAndReadSlotsPassResultsOn) {
  vexa_dm_backend_ops slots = {};
  sqlite_reg(&slots);
  const vexa_dm_item_desc desc = item_desc("cfg", "k", 6);
  std::array<std::uint8_t, 8> buffer = {};

  EXPECT_EQ(slots.read(7, &desc, buffer.data(), 8), -100);
  EXPECT_EQ(slots.write(7, &desc, nullptr, 5), -1);
  EXPECT_EQ(slots.write(7, &desc, "value", -1), -1);
  EXPECT_EQ(slots.write(7, &desc, "value", 5), 0);
  EXPECT_EQ(slots.read(7, &desc, nullptr, 8), -1);
  EXPECT_EQ(slots.read(7, &desc, buffer.data(), -1), -1);
  EXPECT_EQ(slots.read(7, &desc, buffer.data(), 3), -102);
}

TEST_F(Registration, ItemDatabaseVersionIsReadFromTheItemDatabases) {
  start_once();
  std::uint32_t version = 0;
  vexa_dm_backend_ops slots = {};
  sqlite_reg(&slots);

  EXPECT_EQ(slots.read_cfg_db_version(reinterpret_cast<std::uint8_t*>(&version)), 4u);

  EXPECT_EQ(version, 0x00010001u);
}

TEST_F(Registration, ItemDatabaseVersionPassesReadCodesOn) {
  std::uint32_t version = 77;
  vexa_dm_backend_ops slots = {};
  sqlite_reg(&slots);
  exec_sql(kBackup, "drop table SQL_VER_TAB");

  EXPECT_EQ(slots.read_cfg_db_version(nullptr), 0xFFFFFFFFu);
  EXPECT_EQ(slots.read_cfg_db_version(reinterpret_cast<std::uint8_t*>(&version)),
            static_cast<std::uint32_t>(-100));
}

TEST_F(Registration, DefaultsVersionIsReadFromTheDefaults) {
  std::uint32_t version = 0;
  vexa_dm_backend_ops slots = {};
  sqlite_reg(&slots);
  put_default_version(0x00010002);

  EXPECT_EQ(slots.read_def_items_db_version(nullptr), 0xFFFFFFFFu);
  EXPECT_EQ(slots.read_def_items_db_version(reinterpret_cast<std::uint8_t*>(&version)), 4u);

  EXPECT_EQ(version, 0x00010002u);
}

TEST_F(Registration, DefaultsVersionOfAFreshDeviceIsNotThere) {
  std::uint32_t version = 77;
  vexa_dm_backend_ops slots = {};
  sqlite_reg(&slots);

  EXPECT_EQ(slots.read_def_items_db_version(reinterpret_cast<std::uint8_t*>(&version)),
            static_cast<std::uint32_t>(-100));

  EXPECT_EQ(version, 77u);
}

// ---- The entry points beside the slots ----

TEST_F(Registration, ReadByKeyRefusesEachNullWithMinusThree) {
  std::array<std::uint8_t, 8> buffer = {};
  const LogCapture log;

  EXPECT_EQ(dm_pal_read_by_key(nullptr, "k", buffer.data(), 8), -3);
  EXPECT_EQ(dm_pal_read_by_key("cfg", nullptr, buffer.data(), 8), -3);
  EXPECT_EQ(dm_pal_read_by_key("cfg", "k", nullptr, 8), -3);

  const std::string line = "3 dm_pal_read_by_key|dm_pal_read_by_key param NULL\n";
  EXPECT_TRUE(log_is(log, {line, line, line}));
  EXPECT_EQ(names_in("/data"), std::vector<std::string>{});
}

TEST_F(Registration, ReadByKeyReadsAsTheReadPathDoes) {
  std::array<std::uint8_t, 8> buffer = {};
  EXPECT_EQ(write_item("k", "value"), 0);

  EXPECT_EQ(dm_pal_read_by_key("cfg", "k", buffer.data(), 8), 5);
  EXPECT_EQ(dm_pal_read_by_key("cfg", "other", buffer.data(), 8), -1);
  EXPECT_EQ(dm_pal_read_by_key("none", "k", buffer.data(), 8), -100);
  EXPECT_EQ(dm_pal_read_by_key("cfg", "k", buffer.data(), -1), -1);
}

TEST_F(Registration, ExistenceTestWantsBothFiles) {
  const LogCapture log;
  EXPECT_EQ(dm_pal_check_db_exist(), 0xFFFFFFFFu);
  write_file(kPrimary, "");
  EXPECT_EQ(dm_pal_check_db_exist(), 0xFFFFFFFFu);
  EXPECT_TRUE(log_is(log, {}));
  write_file(kBackup, "");

  EXPECT_EQ(dm_pal_check_db_exist(), 0u);

  EXPECT_TRUE(log_is(log, {"2 dm_pal_check_db_exist|config && configbak all exist\n"}));
  unlink(kPrimary.c_str());
  EXPECT_EQ(dm_pal_check_db_exist(), 0xFFFFFFFFu);
}

TEST_F(Registration, DeleteDoesNothing) {
  EXPECT_EQ(write_item("k", "value"), 0);
  const LogCapture log;

  EXPECT_EQ(dm_pal_delete(), 0u);

  EXPECT_TRUE(log_is(log, {}));
  EXPECT_EQ(read_item("k").value, "value");
}

// ---- Matching of both versions ----

class VersionMatch : public Registration {
 protected:
  void SetUp() override {
    Registration::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    vexa_dm_backend_ops slots = {};
    sqlite_reg(&slots);
  }

  std::uint8_t matched_ = 77;
};

TEST_F(VersionMatch, NullReturnsAtOnce) {
  const LogCapture log;

  sqlite_chk_db_ver_match(nullptr);

  EXPECT_TRUE(log_is(log, {}));
}

TEST_F(VersionMatch, BothOfThisBuildMatch) {
  put_default_version(VEXA_SCHEMA_VERSION);
  const LogCapture log;

  sqlite_chk_db_ver_match(&matched_);

  EXPECT_EQ(matched_, 1);
  EXPECT_TRUE(log_is(log,
                     {"0 sqlite_chk_db_ver_match|tmp_sqlite_ver 10001\n",
                      "0 sqlite_chk_db_ver_match|tmp_DefItems_db_ver 10001\n",
                      "3 sqlite_chk_db_ver_match| sqlite_chk_db_ver_matched \n"},
                     "sqlite_chk_db_ver_match"));
}

TEST_F(VersionMatch, DefaultsOfAnotherBuildDoNotMatch) {
  put_default_version(0x00010002);
  const LogCapture log;

  sqlite_chk_db_ver_match(&matched_);

  EXPECT_EQ(matched_, 0);
  EXPECT_TRUE(log_is(log,
                     {"0 sqlite_chk_db_ver_match|tmp_sqlite_ver 10001\n",
                      "0 sqlite_chk_db_ver_match|tmp_DefItems_db_ver 10002\n",
                      "3 sqlite_chk_db_ver_match| sqlite_chk_db_ver_not_matched \n"},
                     "sqlite_chk_db_ver_match"));
}

TEST_F(VersionMatch, ItemsOfAnotherBuildDoNotMatch) {
  put_version(0x00010002);
  put_default_version(VEXA_SCHEMA_VERSION);

  sqlite_chk_db_ver_match(&matched_);

  EXPECT_EQ(matched_, 0);
}

TEST_F(VersionMatch, TwoEqualVersionsOfAnotherBuildDoNotMatch) {
  put_version(0x00010002);
  put_default_version(0x00010002);

  sqlite_chk_db_ver_match(&matched_);

  EXPECT_EQ(matched_, 0);
}

TEST_F(VersionMatch, WithoutItemVersionTheAnswerIsUntouched) {
  exec_sql(kBackup, "drop table SQL_VER_TAB");
  put_default_version(VEXA_SCHEMA_VERSION);
  const LogCapture log;

  sqlite_chk_db_ver_match(&matched_);

  EXPECT_EQ(matched_, 77);
  EXPECT_TRUE(
      log_is(log, {"3 sqlite_chk_db_ver_match|tmp_sqlite_ver read fail\n"}, "sqlite_chk_db_ver_match"));
}

TEST_F(VersionMatch, AFreshDeviceHasNoDefaultsVersionAndTheAnswerIsUntouched) {
  const LogCapture log;

  sqlite_chk_db_ver_match(&matched_);

  EXPECT_EQ(matched_, 77);
  EXPECT_TRUE(log_is(log,
                     {"0 sqlite_chk_db_ver_match|tmp_sqlite_ver 10001\n",
                      "3 sqlite_chk_db_ver_match|tmp_DefItems_db_ver read fail\n"},
                     "sqlite_chk_db_ver_match"));
}

TEST_F(VersionMatch, EveryOutcomeGivesTheMutexBack) {
  const vexa_dm_item_desc desc = item_desc("cfg", "k", 6);

  sqlite_chk_db_ver_match(&matched_);
  put_default_version(VEXA_SCHEMA_VERSION);
  sqlite_chk_db_ver_match(&matched_);
  exec_sql(kBackup, "drop table SQL_VER_TAB");
  sqlite_chk_db_ver_match(&matched_);

  expect_in_child([&] { EXPECT_EQ(dm_sqlite_write(7, &desc, "value", 5), 0); }, 5);
}

// ---- The mutex ----

// A write that another process's lock keeps waiting, with the backend mutex held.
class BlockedWrite {
 public:
  // Held up by a lock on that file, while it holds the mutex.
  explicit BlockedWrite(const std::string& file = kPrimary) : lock_(file, "begin exclusive") {
    waiting_ = counted_ = false;
    vexa_set_log_level(0);
    set_print_interface([](const char* line) {
      const std::string_view text(line);
      if (text.find("tab:cfg, key:k ") != std::string_view::npos) waiting_ = true;
      if (text.find("Get db num:") != std::string_view::npos) counted_ = true;
    });
    writer_ = std::thread([this] {
      const vexa_dm_item_desc desc = item_desc("cfg", "k", 6);
      result_ = dm_sqlite_write(7, &desc, "later", 5);
      done_ = true;
    });
    while (!waiting_) std::this_thread::yield();
  }
  ~BlockedWrite() {
    lock_.release();
    if (writer_.joinable()) writer_.join();
    set_print_interface(nullptr);
    vexa_set_log_level(1);
  }
  bool done() const { return done_; }
  // True once a clean has counted the dated copies, the last thing it does without the mutex.
  bool counted() const { return counted_; }

 private:
  inline static std::atomic<bool> waiting_;
  inline static std::atomic<bool> counted_;
  LockHolder lock_;
  std::atomic<bool> done_ = false;
  std::atomic<int> result_ = 77;
  std::thread writer_;
};

TEST_F(Registration, CallsWithoutTheMutexDoNotWaitForABlockedWrite) {
  vexa_dm_backend_ops slots = {};
  sqlite_reg(&slots);
  vexa_dm_item_desc other = item_desc("defs", "d", 3);
  const std::uint32_t number = 5;
  std::array<std::uint8_t, 4> buffer = {};
  const BlockedWrite blocked;

  sqlite_reg(&slots);
  EXPECT_EQ(dm_pal_check_db_exist(), 0u);
  EXPECT_EQ(slots.def_db_const(1, &other, &number, 4), 0u);
  EXPECT_EQ(slots.def_db_read(1, &other, buffer.data(), 4), 4);
  EXPECT_EQ(check_database_health(kDefaults.c_str()), 0u);

  EXPECT_FALSE(blocked.done());
}

TEST_F(Registration, VersionReadsWaitForABlockedWrite) {
  vexa_dm_backend_ops slots = {};
  sqlite_reg(&slots);
  put_default_version(VEXA_SCHEMA_VERSION);
  std::atomic<bool> read = false;
  std::thread reader;
  {
    const BlockedWrite blocked;
    reader = std::thread([&] {
      std::uint32_t version = 0;
      slots.read_def_items_db_version(reinterpret_cast<std::uint8_t*>(&version));
      read = true;
    });

    // The defaults are not locked by anyone: without the mutex this read takes a few milliseconds.
    poll(nullptr, 0, 300);

    EXPECT_FALSE(read);
    EXPECT_FALSE(blocked.done());
  }
  reader.join();
  EXPECT_TRUE(read);
}

// It gives back a mutex that it has not taken, which may be the one that another call holds.
TEST_F(Registration, ACleanThatCannotStartItsFirstCommandGivesAwayTheMutexOfABlockedWrite) {
#if defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "to the sanitizer the mutex stays the write's";
#endif
  put_default_version(VEXA_SCHEMA_VERSION);
  const ChildResult child = run_in_child([] {
    const BlockedWrite blocked;
    commands_start = false;
    const auto start = std::chrono::steady_clock::now();

    EXPECT_EQ(dm_sqlite_clean(nullptr), static_cast<std::uint32_t>(-1));

    std::uint32_t version = 0;
    EXPECT_EQ(dm_sqlite_read_DefItemsDB_version(reinterpret_cast<std::uint8_t*>(&version)), 4u);
    // The write waits for three seconds.
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
  });

  EXPECT_EQ(child.exit_code, 0) << child.out << child.err;
}

// ---- The version record ----

// The end of the library's own record, which no header names: behind table and key.
struct VersionRecord {
  std::int32_t type;
  std::uint32_t version;
};

// Also across what AddressSanitizer has put between the variables.
__attribute__((no_sanitize_address)) const char* find_in(const char* begin, const char* end,
                                                         const std::string& bytes) {
  for (; static_cast<std::size_t>(end - begin) >= bytes.size(); ++begin) {
    std::size_t same = 0;
    while (same < bytes.size() && begin[same] == bytes[same]) ++same;
    if (same == bytes.size()) return begin;
  }
  return nullptr;
}

const char* find_in_writable_data(const std::string& bytes) {
  struct Search {
    const std::string& bytes;
    const char* found;
  } search = {bytes, nullptr};
  dl_iterate_phdr(
      [](dl_phdr_info* object, std::size_t, void* argument) {
        auto& wanted = *static_cast<Search*>(argument);
        if (std::strstr(object->dlpi_name, "libvexadm") == nullptr) return 0;
        for (int i = 0; i < object->dlpi_phnum; ++i) {
          const auto& segment = object->dlpi_phdr[i];
          if (segment.p_type != PT_LOAD || (segment.p_flags & PF_W) == 0) continue;
          const auto* begin = reinterpret_cast<const char*>(object->dlpi_addr + segment.p_vaddr);
          wanted.found = find_in(begin, begin + segment.p_memsz, wanted.bytes);
          if (wanted.found != nullptr) return 1;
        }
        return 0;
      },
      &search);
  return search.found;
}

VersionRecord version_record() {
  const vexa_dm_item_desc desc = item_desc("SQL_VER_TAB", "SQL_VER_KEY", 0);
  const std::string names(reinterpret_cast<const char*>(&desc), offsetof(vexa_dm_item_desc, type));
  const char* const place = find_in_writable_data(names);
  VersionRecord record = {-1, 0};
  if (place != nullptr) std::memcpy(&record, place + names.size(), sizeof record);
  return record;
}

TEST_F(Registration, TheVersionRecordTakesTheTypeThatTheDefaultsHave) {
  std::uint32_t version = 0;
  EXPECT_EQ(version_record().type, 0);
  EXPECT_EQ(version_record().version, VEXA_SCHEMA_VERSION);

  put_default_version(VEXA_SCHEMA_VERSION);
  EXPECT_EQ(version_record().type, 0);
  EXPECT_EQ(dm_sqlite_read_DefItemsDB_version(reinterpret_cast<std::uint8_t*>(&version)), 4u);
  EXPECT_EQ(version_record().type, 3);

  std::filesystem::remove(kDefaults);
  EXPECT_EQ(dm_sqlite_read_DefItemsDB_version(reinterpret_cast<std::uint8_t*>(&version)),
            static_cast<std::uint32_t>(-100));
  EXPECT_EQ(version_record().type, 0);
  EXPECT_EQ(version_record().version, VEXA_SCHEMA_VERSION);
}

TEST_F(Registration, AComparisonOfVersionsReadsWithTheVersionRecordToo) {
  put_version(VEXA_SCHEMA_VERSION);
  put_default_version(VEXA_SCHEMA_VERSION);
  std::uint8_t matched = 0;

  sqlite_chk_db_ver_match(&matched);

  EXPECT_EQ(matched, 1);
  EXPECT_EQ(version_record().type, 3);
}

// The journal alone is locked, for which a write waits less than a second: whoever needs only the
// item databases is kept by nothing but the mutex.
class CallBesideAWrite : public Registration,
                         public ::testing::WithParamInterface<void (*)(vexa_dm_backend_ops&)> {};

TEST_P(CallBesideAWrite, WaitsForTheMutex) {
  vexa_dm_backend_ops slots = {};
  sqlite_reg(&slots);
  put_default_version(VEXA_SCHEMA_VERSION);
  std::atomic<bool> returned = false;
  const BlockedWrite blocked(kJournal);

  std::thread caller([&] {
    GetParam()(slots);
    returned = true;
  });

  // Without the mutex it takes a few milliseconds.
  poll(nullptr, 0, 300);
  const bool too_soon = returned;

  EXPECT_FALSE(too_soon && !blocked.done());
  caller.join();
}

INSTANTIATE_TEST_SUITE_P(OfEachSlot, CallBesideAWrite,
                         ::testing::Values(
                             [](vexa_dm_backend_ops& slots) {
                               const vexa_dm_item_desc desc = item_desc("cfg", "k", 6);
                               std::array<std::uint8_t, 8> buffer = {};
                               slots.read(7, &desc, buffer.data(), 8);
                             },
                             [](vexa_dm_backend_ops& slots) {
                               std::array<std::uint8_t, 4> version = {};
                               slots.read_cfg_db_version(version.data());
                             },
                             [](vexa_dm_backend_ops&) {
                               std::uint8_t matched = 0;
                               sqlite_chk_db_ver_match(&matched);
                             }));

TEST_F(Registration, ReadsAndExportsWithoutTheMutexDoNotWaitForABlockedWrite) {
  vexa_dm_backend_ops slots = {};
  sqlite_reg(&slots);
  std::array<std::uint8_t, 8> buffer = {};
  const BlockedWrite blocked(kJournal);

  dm_pal_read_by_key("cfg", "k", buffer.data(), 8);
  EXPECT_EQ(dm_read_all_tabs_from_db(DB_CONFIG), 0u);

  EXPECT_FALSE(blocked.done());
}

TEST_F(Registration, ACleanCountsTheCopiesAndThenWaitsForABlockedWrite) {
  vexa_dm_backend_ops slots = {};
  sqlite_reg(&slots);
  std::thread cleaner;
  std::atomic<int> result = 77;
  {
    const BlockedWrite blocked;
    cleaner = std::thread([&] { result = static_cast<int>(slots.clean(nullptr)); });
    while (!blocked.counted()) std::this_thread::yield();

    poll(nullptr, 0, 300);

    EXPECT_FALSE(blocked.done());
    EXPECT_EQ(result, 77);
    EXPECT_TRUE(exists(kPrimary));
  }
  cleaner.join();
  EXPECT_EQ(result, 0);
  EXPECT_EQ(names_in("/data"), std::vector<std::string>{});
}

TEST_F(Registration, AWriteOrReadWithoutADescriptorIsRefused) {
  vexa_dm_backend_ops slots = {};
  sqlite_reg(&slots);
  std::array<std::uint8_t, 4> buffer = {};

  EXPECT_EQ(slots.write(1, nullptr, "abc", 3), -1);
  EXPECT_EQ(slots.read(1, nullptr, buffer.data(), 4), -1);
}

TEST_F(Registration, AVersionIntoNothingIsRefusedWithoutALook) {
  vexa_dm_backend_ops slots = {};
  sqlite_reg(&slots);
  const LogCapture log;

  EXPECT_EQ(slots.read_cfg_db_version(nullptr), 0xFFFFFFFFu);
  EXPECT_EQ(slots.read_def_items_db_version(nullptr), 0xFFFFFFFFu);

  EXPECT_TRUE(log_is(log, {}));
}

}  // namespace
}  // namespace vexa_test
