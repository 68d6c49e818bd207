// SPDX-License-Identifier: MIT
// The CSV export, byte for byte.
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include <vexadm/log.h>

#include "support/storage_fixture.h"

namespace vexa_test {
namespace {

using namespace std::string_literals;

const std::string kEnd = "\r\n\0"s;
const std::string kHeader = "key,len,type,value," + kEnd;
const std::string kTable = "create table cfg (key text,type integer,len integer,value blob);";

class Export : public StorageTest {
 protected:
  static std::int32_t run(const std::string& path = kPrimary) {
    return static_cast<std::int32_t>(dm_read_all_tabs_from_db(path.c_str()));
  }
  // What one table's rows become.
  static std::string exported(const std::string& inserts) {
    exec_sql(kPrimary, kTable + inserts);
    EXPECT_EQ(run(), 0);
    const std::string all = read_file(kExport);
    EXPECT_TRUE(all.starts_with(kHeader));
    return all.substr(std::min(all.size(), kHeader.size()));
  }
};

TEST_F(Export, WritesTextsWithTheirTerminatorAndNumbersWithAComma) {
  EXPECT_EQ(
      exported("insert into cfg values('name',5,3,'abc'),('num',3,4,x'02010000'),('block',6,4,x'ffffffff')"),
      "name,3,5,abc\0"s + kEnd + "num,4,3,258," + kEnd + "block,4,6,-1," + kEnd);
}

TEST_F(Export, OfWrittenItemsHoldsThemAll) {
  const std::uint32_t number = 7;
  EXPECT_EQ(dm_pal_write("nums", 1, "n", 3, &number, 4), 0);
  EXPECT_EQ(dm_pal_write("texts", 2, "t", 5, "abc", 3), 0);
  const LogCapture log;

  EXPECT_EQ(run(), 0);

  EXPECT_EQ(read_file(kExport), kHeader + "n,4,3,7," + kEnd + "t,3,5,abc\0"s + kEnd);
  EXPECT_TRUE(log_is(log, {"0 dm_sqlite_db2csv_cb|name = nums\n", "3 dm_export_by_table|value:7\n",
                           "0 dm_sqlite_db2csv_cb|name = texts\n"}));
}

TEST_F(Export, LeavesOutKeysOfMoreThanThirtyOneBytes) {
  const std::string fits(31, 'k');

  EXPECT_EQ(exported("insert into cfg values('" + fits + "',5,1,'a'),('" + fits + "k',5,1,'b')"),
            fits + ",1,5,a\0"s + kEnd + "1,5,b\0"s + kEnd);
}

TEST_F(Export, LeavesOutLengthsAndTypesOfMoreThanFourBytes) {
  EXPECT_EQ(exported("insert into cfg values('a',6,9999,x'01000000'),('b',6,10000,x'01000000'),"
                     "('c',9999,4,x'01000000'),('d',10000,4,x'01000000'),('e',6,-999,x'01000000'),"
                     "('f',6,-1000,x'01000000')"),
            "a,9999,6,1," + kEnd + "b,6,1," + kEnd + "c,4,9999,1," + kEnd + "d,4,1," + kEnd + "e,-999,6,1," +
                kEnd + "f,6,1," + kEnd);
}

TEST_F(Export, TextsTakeTheShorterOfLengthAndValue) {
  EXPECT_EQ(exported("insert into cfg values('a',5,2,'abc'),('b',5,9,'abc'),('c',5,0,'abc'),('d',5,3,null)"),
            "a,2,5,ab\0"s + kEnd + "b,9,5,abc\0"s + kEnd + "c,0,5,\0"s + kEnd + "d,3,5,\0"s + kEnd);
}

TEST_F(Export, TextsKeepTheirBytes) {
  EXPECT_EQ(exported("insert into cfg values('a',5,5,x'612c000a62')"), "a,5,5,a,\0\nb\0"s + kEnd);
}

TEST_F(Export, NumbersTakeTheFirstFourBytes) {
  EXPECT_EQ(exported("insert into cfg values('a',6,8,x'0100000002000000'),('b',1,1,x'07'),('c',2,2,x'0102')"),
            "a,8,6,1," + kEnd + "b,1,1,7," + kEnd + "c,2,2,513," + kEnd);
}

TEST_F(Export, ReplacesTheFileOfBefore) {
  write_file(kExport, "older");

  EXPECT_EQ(exported("insert into cfg values('a',5,1,'x')"), "a,1,5,x\0"s + kEnd);
  EXPECT_EQ(run(), 0);
  EXPECT_EQ(read_file(kExport), kHeader + "a,1,5,x\0"s + kEnd);
}

TEST_F(Export, OfADatabaseWithoutTablesIsTheHeader) {
  write_file(kPrimary, "");

  EXPECT_EQ(run(), 0);

  EXPECT_EQ(read_file(kExport), kHeader);
}

TEST_F(Export, PassesOverTablesOfAnotherShape) {
  exec_sql(kPrimary, "create table other (a); insert into other values(1);" + kTable +
                         "insert into cfg values('a',5,1,'x')");

  EXPECT_EQ(run(), 0);

  EXPECT_EQ(read_file(kExport), kHeader + "a,1,5,x\0"s + kEnd);
}

TEST_F(Export, SaysSoOnStandardOutput) {
  put_item(kPrimary, {});

  const ChildResult result = run_in_child([] {
    vexa_set_log_level(4);  // leaves the line alone on standard output
    EXPECT_EQ(run(), 0);
  });

  EXPECT_EQ(result.exit_code, 0);
  EXPECT_EQ(result.out, "Operation done successfully\n");
  EXPECT_EQ(result.err, "");
}

TEST_F(Export, OfNoDatabaseSaysSoOnStandardError) {
  write_file("/data/notes.txt", std::string(5000, 'x'));

  const ChildResult result = run_in_child([] { EXPECT_EQ(run("/data/notes.txt"), 0); });

  EXPECT_EQ(result.exit_code, 0) << result.out;
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "SQL error: file is not a database\n");
  EXPECT_EQ(read_file(kExport), kHeader);
}

TEST_F(Export, RefusesNull) {
  const LogCapture log;

  EXPECT_EQ(static_cast<std::int32_t>(dm_read_all_tabs_from_db(nullptr)), -1);

  EXPECT_TRUE(log_is(log, {"3 dm_read_all_tabs_from_db|dm_read_all_tabs_from_db NULL\n"}));
}

TEST_F(Export, OfAFileThatCannotBeOpenedKeepsTheFileOfBefore) {
  write_file(kExport, "older");
  const LogCapture log;

  EXPECT_EQ(run("/data/none/config.db"), -101);

  EXPECT_TRUE(
      log_is(log, {"3 dm_read_all_tabs_from_db|sqlite3_open failed: unable to open database file\n"}));
  EXPECT_EQ(read_file(kExport), "older");
}

TEST_F(Export, IntoAFileThatCannotBeOpened) {
  put_item(kPrimary, {});
  make_dirs(kExport);

  EXPECT_EQ(run(), 4);
}

// ---- The pieces ----

TEST_F(Export, TheTableCallbackEndsTheEnumerationWithoutAFile) {
  put_item(kPrimary, {});
  make_dirs(kExport);
  const Sqlite db(kPrimary);
  char value[] = "cfg";
  char name[] = "name";
  char* values[] = {value};
  char* names[] = {name};

  EXPECT_EQ(dm_sqlite_db2csv_cb(db.get(), 1, values, names), 4);
}

TEST_F(Export, TheTableCallbackAppendsEachColumnsTable) {
  exec_sql(kPrimary, kTable + "insert into cfg values('a',5,1,'x')");
  write_file(kExport, "before;");
  const Sqlite db(kPrimary);
  char value[] = "cfg";
  char name[] = "name";
  char* values[] = {value, nullptr};
  char* names[] = {name, name};
  const LogCapture log;

  EXPECT_EQ(dm_sqlite_db2csv_cb(db.get(), 2, values, names), 0);

  EXPECT_EQ(read_file(kExport), "before;a,1,5,x\0"s + kEnd);
  EXPECT_TRUE(log_is(log, {"0 dm_sqlite_db2csv_cb|name = cfg\n", "0 dm_sqlite_db2csv_cb|name = NULL\n",
                           "3 dm_export_by_table|dm_export_by_table NULL\n"}));
}

TEST_F(Export, OfOneTableRefusesNullTableAndFile) {
  put_item(kPrimary, {});
  const Sqlite db(kPrimary);
  FILE* file = std::fopen("/data/out", "w");
  const LogCapture log;

  dm_export_by_table(db.get(), nullptr, file);
  dm_export_by_table(db.get(), "cfg", nullptr);

  const std::string line = "3 dm_export_by_table|dm_export_by_table NULL\n";
  EXPECT_TRUE(log_is(log, {line, line}));
  std::fclose(file);
  EXPECT_EQ(read_file("/data/out"), "");
}

TEST_F(Export, StatementIsCutAtItsBuffer) {
  const std::string fits(511 - std::string_view("select key, len, type, value from ").size(), 't');
  exec_sql(kPrimary, "create table " + fits + " (key,type,len,value); insert into " + fits +
                         " values('a',5,1,'x'); create table " + fits +
                         "u (key,type,len,value); insert into " + fits + "u values('b',5,1,'y')");
  const Sqlite db(kPrimary);
  FILE* file = std::fopen("/data/out", "w");

  dm_export_by_table(db.get(), (fits + "u").c_str(), file);

  std::fclose(file);
  EXPECT_EQ(read_file("/data/out"), "a,1,5,x\0"s + kEnd) << "the cut name is another table's";
}

}  // namespace
}  // namespace vexa_test
