// SPDX-License-Identifier: MIT
// The health check of one file, and how a corrupt primary is replaced.
#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "support/storage_fixture.h"

namespace vexa_test {
namespace {

std::int32_t health(const std::string& path) {
  return static_cast<std::int32_t>(check_database_health(path.c_str()));
}

// ---- check_database_health ----

class Health : public StorageTest {};

TEST_F(Health, AGoodFileIsHealthy) {
  put_item(kPrimary, {});
  const std::string before = read_file(kPrimary);
  const LogCapture log;

  EXPECT_EQ(health(kPrimary), 0);

  EXPECT_TRUE(log_is(log, {"0 check_database_health|is_corrupted=0\n"}));
  EXPECT_EQ(read_file(kPrimary), before);
}

TEST_F(Health, AnEmptyFileIsHealthy) {
  write_file(kPrimary, "");

  EXPECT_EQ(health(kPrimary), 0);
}

TEST_F(Health, AMissingFileIsNotMade) {
  const LogCapture log;

  EXPECT_EQ(health(kPrimary), -1);

  EXPECT_TRUE(log_is(log, {"3 check_database_health|Open failed: unable to open database file (Code: 14)\n",
                           "3 check_database_health|is_corrupted=0\n"}));
  EXPECT_FALSE(exists(kPrimary));
}

TEST_F(Health, ADirectoryIsNotOpened) {
  make_dirs(kPrimary);

  EXPECT_EQ(health(kPrimary), -1);
}

TEST_F(Health, NoPathIsNotOpened) {
  EXPECT_EQ(static_cast<std::int32_t>(check_database_health(nullptr)), -1);
}

TEST_F(Health, ATextIsNoDatabase) {
  write_file("/data/notes.txt", "hello\n");
  const LogCapture log;

  EXPECT_EQ(health("/data/notes.txt"), -2);

  EXPECT_TRUE(log_is(
      log, {"3 check_database_health|/data/notes.txt Quick check error: file is not a database (Code: 26)\n",
            "3 check_database_health|is_corrupted=0\n"}));
}

TEST_F(Health, ALongTextIsNoDatabase) {
  write_file("/data/notes.txt", std::string(10000, 'x'));

  EXPECT_EQ(health("/data/notes.txt"), -2);
}

TEST_F(Health, ABrokenSchemaIsCorrupt) {
  put_item(kPrimary, {});
  damage_schema(kPrimary);
  const LogCapture log;

  EXPECT_EQ(health(kPrimary), 1);

  EXPECT_TRUE(log_is(log, {"3 check_database_health|/data/config.db corruption detected: database disk image "
                           "is malformed (Code: 11)\n",
                           "3 check_database_health|is_corrupted=1\n"}));
}

TEST_F(Health, ProblemRowsAreCorruptThoughTheCheckItselfWorked) {
  put_item(kPrimary, {});
  damage_free_list(kPrimary);
  const LogCapture log;

  EXPECT_EQ(health(kPrimary), 1);

  EXPECT_TRUE(
      log_is(log, {"3 integrity_check_callback|[ERROR] Corruption detected: *** in database main ***\n"
                   "Main freelist: size is 0 but should be 1\n",
                   "0 check_database_health|is_corrupted=1\n"}));
}

TEST_F(Health, ABrokenTablePageIsCorrupt) {
  put_item(kPrimary, {});
  damage_first_table(kPrimary);

  EXPECT_EQ(health(kPrimary), 1);
}

class HealthRow : public ::testing::Test {
 protected:
  int deliver(std::vector<const char*> values) {
    std::vector<char*> writable;
    for (const char* value : values) writable.push_back(const_cast<char*>(value));
    return integrity_check_callback(&flag_, static_cast<int>(writable.size()), writable.data(), nullptr);
  }
  std::uint32_t flag_ = 77;
};

TEST_F(HealthRow, OkIsNoProblem) {
  const LogCapture log;

  EXPECT_EQ(deliver({"ok"}), 0);

  EXPECT_EQ(flag_, 0u);
  EXPECT_TRUE(log_is(log, {}));
}

TEST_F(HealthRow, AnythingElseIs) {
  const LogCapture log;

  EXPECT_EQ(deliver({"OK", "ok", "wrong"}), 0);

  EXPECT_EQ(flag_, 1u);
  EXPECT_TRUE(log_is(log, {"3 integrity_check_callback|[ERROR] Corruption detected: OK\n",
                           "3 integrity_check_callback|[ERROR] Corruption detected: wrong\n"}));
}

TEST_F(HealthRow, NullAndNoColumnsAreNoProblem) {
  EXPECT_EQ(deliver({nullptr}), 0);
  EXPECT_EQ(flag_, 0u);
  flag_ = 1;
  EXPECT_EQ(deliver({}), 0);
  EXPECT_EQ(flag_, 0u);
}

TEST_F(HealthRow, EveryRowStartsAfreshSoThatTheLastOneDecides) {
  EXPECT_EQ(deliver({"wrong"}), 0);
  EXPECT_EQ(deliver({"ok"}), 0);

  EXPECT_EQ(flag_, 0u);
}

// ---- Repair while reading ----

const std::string kCorrupt = "3 dm_read_db|[LINE] sqlite3_prepare error, 11 \n";
const std::string kHealthy = "0 check_database_health|is_corrupted=0\n";
const std::string kUnhealthy = "3 check_database_health|is_corrupted=1\n";
const std::string kFoundUnhealthy = "0 check_database_health|is_corrupted=1\n";
const std::string kCopyDone = "0 dm_sqlite_system_cmd|read_len=0\n";

std::string corruption(const std::string& path) {
  return "3 check_database_health|" + path +
         " corruption detected: database disk image is malformed (Code: 11)\n";
}

class Repair : public StorageTest {
 protected:
  static void make_factory(const Item& item) {
    make_dirs("/vexanvbak/data");
    put_item(kFactory, item);
  }
  static void make_corrupt(const std::string& path) {
    put_item(path, {"cfg", 7, "k", 6, "corrupt"});
    damage_schema(path);
  }
  const std::vector<std::string> no_factory_ = {
      "3 check_database_health|Open failed: unable to open database file (Code: 14)\n",
      "3 check_database_health|is_corrupted=0\n"};
};

TEST_F(Repair, AReadReplacesACorruptPrimaryByTheBackup) {
  make_corrupt(kPrimary);
  put_item(kBackup, {"cfg", 7, "k", 6, "backup"});
  make_factory({"cfg", 7, "k", 6, "factory"});
  const std::string backup = read_file(kBackup);
  const LogCapture log;

  EXPECT_EQ(read_item("k").value, "backup");

  EXPECT_TRUE(log_is(log, {kCorrupt, kHealthy,
                           "3 dm_read_db|error: DB_CONFIG is damaged cp /data/configbak.db /data/config.db",
                           kCopyDone, "0 dm_pal_read|rd ret  6 \n"}));
  EXPECT_EQ(read_file(kPrimary), backup);
  EXPECT_EQ(read_file(kBackup), backup);
}

TEST_F(Repair, AReadTakesTheFactoryCopyWhenTheBackupIsCorruptToo) {
  make_corrupt(kPrimary);
  make_corrupt(kBackup);
  make_factory({"cfg", 7, "k", 6, "factory"});
  const std::string backup = read_file(kBackup);
  const LogCapture log;

  EXPECT_EQ(read_item("k").code, -100) << "the value would have to come from the backup";

  const std::string copied =
      "3 dm_read_db|error: DB_CONFIG is damaged so cp /vexanvbak/data/config.db /data/config.db";
  EXPECT_TRUE(
      log_is(log, {kCorrupt, corruption(kBackup), kUnhealthy, kHealthy, copied, kCopyDone,
                   "0 dm_pal_read|rd ret  7 \n",  // the primary works again
                   kCorrupt, corruption(kBackup), kUnhealthy, kHealthy, copied, kCopyDone, kCorrupt}));
  EXPECT_EQ(read_file(kPrimary), read_file(kFactory));
  EXPECT_EQ(read_file(kBackup), backup);
}

TEST_F(Repair, AReadTakesTheFactoryCopyWhenThereIsNoBackup) {
  make_corrupt(kPrimary);
  make_factory({"cfg", 7, "k", 6, "factory"});

  EXPECT_EQ(read_item("k").code, -100);

  EXPECT_EQ(read_file(kPrimary), read_file(kFactory));
}

TEST_F(Repair, WithNothingHealthyAReadLeavesThePrimaryAndTriesOnceMore) {
  make_corrupt(kPrimary);
  put_item(kBackup, {"cfg", 7, "k", 6, "backup"});
  damage_free_list(kBackup);
  const std::string primary = read_file(kPrimary);
  std::array<std::uint8_t, 16> buffer = {};
  std::uint32_t crc = 0;
  const LogCapture log;

  EXPECT_EQ(dm_read_db(kPrimary.c_str(), "cfg", "k", buffer.data(), &crc, 16), -100);

  EXPECT_TRUE(log_is(log, {kCorrupt, "3 integrity_check_callback|[ERROR] Corruption detected: <any>",
                           kFoundUnhealthy, no_factory_[0], no_factory_[1], kCorrupt}));
  EXPECT_EQ(read_file(kPrimary), primary);
}

TEST_F(Repair, ACorruptBackupReplacesThePrimaryNotItself) {
  put_item(kPrimary, {"cfg", 7, "k", 6, "newer"});
  make_corrupt(kBackup);
  make_factory({"cfg", 7, "k", 6, "factory"});

  EXPECT_EQ(read_item("k").code, -100);

  EXPECT_EQ(read_file(kPrimary), read_file(kFactory));
  EXPECT_EQ(prepare_code(kBackup, "select * from cfg"), SQLITE_CORRUPT);
}

TEST_F(Repair, ACorruptBackupAloneLeavesTheHealthyPrimary) {
  put_item(kPrimary, {"cfg", 7, "k", 6, "newer"});
  make_corrupt(kBackup);
  const std::string primary = read_file(kPrimary);

  EXPECT_EQ(read_item("k").code, -100);

  EXPECT_EQ(read_file(kPrimary), primary);
  EXPECT_EQ(write_item("other", "value"), 0);
  EXPECT_EQ(read_item("k").value, "newer") << "the next write restores the backup";
}

TEST_F(Repair, AnyOtherCorruptFileReplacesThePrimaryToo) {
  put_item(kPrimary, {"cfg", 7, "k", 6, "newer"});
  put_item(kBackup, {"cfg", 7, "k", 6, "backup"});
  make_corrupt("/data/other.db");
  std::array<std::uint8_t, 16> buffer = {};
  std::uint32_t crc = 0;

  EXPECT_EQ(dm_read_db("/data/other.db", "cfg", "k", buffer.data(), &crc, 16), -100);

  EXPECT_EQ(read_file(kPrimary), read_file(kBackup));
}

TEST_F(Repair, TheFactoryCopyStaysWhereItIsInAnotherStoreArea) {
  make_dirs("/vexanv/a");
  sqlite_reg_store_area("/vexanv/a/", "/vexanv/a/");
  make_corrupt(DB_CONFIG);
  make_factory({"cfg", 7, "k", 6, "factory"});

  EXPECT_EQ(read_item("k").code, -100);

  EXPECT_EQ(read_file("/vexanv/a/config.db"), read_file(kFactory));
  EXPECT_EQ(names_in("/data"), std::vector<std::string>{});
}

TEST_F(Repair, ACorruptDataPageIsNotRepaired) {
  put_item(kPrimary, {"cfg", 7, "k", 6, "newer"});
  put_item(kBackup, {"cfg", 7, "k", 6, "backup"});
  damage_first_table(kPrimary);
  const std::string primary = read_file(kPrimary);

  EXPECT_EQ(read_item("k").value, "backup");

  EXPECT_EQ(read_file(kPrimary), primary);
}

// ---- Repair while writing ----

const std::string kCreate =
    "create table if not exists cfg (id integer not null,key text not null,type integer not null,len integer "
    "not "
    "null,crc integer not null,value blob)";
const std::string kNotMade =
    "3 dm_write_db|[LINE] create table error rc=11, database disk image is malformed, szSql: " + kCreate +
    "\n";

TEST_F(Repair, AWriteReplacesACorruptPrimaryByTheBackupAndGoesOn) {
  make_corrupt(kPrimary);
  put_item(kBackup, {"cfg", 8, "other", 6, "kept"});
  const LogCapture log;

  EXPECT_EQ(write_item("k", "value"), 0);

  EXPECT_TRUE(log_is(log, {kNotMade, kHealthy, "3 dm_write_db|ERROR: cp /data/configbak.db /data/config.db",
                           kCopyDone, "0 dm_update_record|wr crc: 0x3c8ea00a\n", kHealthy,
                           "3 dm_pal_write|ERROR: cp /data/config.db /data/configbak.db", kCopyDone}));
  EXPECT_EQ(read_item("k").value, "value");
  EXPECT_EQ(read_item("other").value, "kept");
}

TEST_F(Repair, IsMadeBesideADirectoryUnderTheNameOfItsTemporaryFile) {
  put_item(kPrimary, {});
  put_item(kBackup, {});
  damage_schema(kPrimary);
  make_dirs("/data/.vexadm-copy-config");

  EXPECT_EQ(write_item("k", "new"), 0);

  EXPECT_EQ(read_item("k").value, "new");
}

TEST_F(Repair, AWriteTakesTheFactoryCopyWhenTheBackupIsCorruptToo) {
  make_corrupt(kPrimary);
  make_corrupt(kBackup);
  make_factory({"cfg", 8, "other", 6, "factory"});
  const LogCapture log;

  EXPECT_EQ(write_item("k", "value"), 0);

  EXPECT_TRUE(log_is(log, {kNotMade, corruption(kBackup), kUnhealthy, kHealthy,
                           "3 dm_write_db|ERROR: cp /vexanvbak/data/config.db /data/config.db", kCopyDone,
                           "0 dm_update_record|wr crc: 0x3c8ea00a\n", kHealthy,
                           "3 dm_pal_write|ERROR: cp /data/config.db /data/configbak.db", kCopyDone}));
  EXPECT_EQ(read_item("k").value, "value");
  EXPECT_EQ(read_item("other").value, "factory");
}

TEST_F(Repair, WithNothingHealthyAWriteFails) {
  make_corrupt(kPrimary);
  make_corrupt(kBackup);
  const std::string primary = read_file(kPrimary);
  const LogCapture log;

  EXPECT_EQ(write_item("k", "value"), -1);

  EXPECT_TRUE(log_is(log, {kNotMade, corruption(kBackup), kUnhealthy, no_factory_[0], no_factory_[1],
                           kNotMade, "3 dm_pal_write|dm_update_db: \n"}));
  EXPECT_EQ(read_file(kPrimary), primary);
}

TEST_F(Repair, AWriteToTheCorruptBackupReplacesThePrimary) {
  put_item(kPrimary, {"cfg", 7, "k", 6, "newer"});
  make_corrupt(kBackup);
  make_factory({"cfg", 7, "k", 6, "factory"});

  EXPECT_EQ(dm_write_db(kBackup.c_str(), "cfg", 7, "k", 6, "value", 5), -1);

  EXPECT_EQ(read_file(kPrimary), read_file(kFactory));
}

TEST_F(Repair, ATextInPlaceOfThePrimaryIsNoCorruption) {
  write_file(kPrimary, std::string(8192, 'x'));
  put_item(kBackup, {"cfg", 7, "k", 6, "backup"});

  EXPECT_EQ(write_item("k", "value"), -1);
  EXPECT_EQ(read_item("k").value, "backup");

  EXPECT_EQ(read_file(kPrimary), std::string(8192, 'x'));
}

}  // namespace
}  // namespace vexa_test
