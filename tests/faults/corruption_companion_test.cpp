// SPDX-License-Identifier: MIT
// Takes several seconds. Strange files beside those of the store: under the names of SQLite's
// journals and logs, and under those of the library's unfinished copies.
#include <gtest/gtest.h>

#include <string>

#include "faults/corruption_fixture.h"

namespace vexa_test {
namespace {

class CorruptionBeside : public Corruption {
 protected:
  // SQLite reports code 11 as soon as it looks at the tables.
  static PathAndDamage damaged_schema() {
    return {kPrimary, {"damaged schema", [](const std::string& path) {
                         std::string bytes = bytes_of(path);
                         set_bytes(path, bytes.replace(100, 8, 8, '\xff'));
                       }}};
  }
};

TEST_F(CorruptionBeside, ADatabaseUnderTheNamesOfSqlitesFiles) {
  for (const std::string& path : kFiles) {
    for (const Damage& damage : companions()) {
      if (!leaves_out()) try_one(path == kFactory, {{path, damage}});
    }
  }
}

TEST_F(CorruptionBeside, ADamagedDatabaseUnderTheNamesOfSqlitesFiles) {
  for (const std::string& path : {kPrimary, kBackup}) {
    for (const Damage& damage : companions()) {
      if (!leaves_out()) try_both_ways({{path, damage}, damaged_schema()});
    }
  }
}

TEST_F(CorruptionBeside, ADatabaseUnderTheNameOfItsUnfinishedCopyLosesNothing) {
  for (const std::string& path : {kPrimary, kBackup}) {
    for (const Damage& damage : leftover_copies()) try_one(false, {{path, damage}});
  }
  EXPECT_EQ(count().with_a_name, 0u);
}

TEST_F(CorruptionBeside, ADamagedPrimaryUnderTheNameOfItsUnfinishedCopyLosesNothing) {
  for (const Damage& damage : leftover_copies()) try_one(false, {{kPrimary, damage}, damaged_schema()});
  EXPECT_EQ(count().with_a_name, 0u);
}

}  // namespace
}  // namespace vexa_test
