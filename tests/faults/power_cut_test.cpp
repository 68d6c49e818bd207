// SPDX-License-Identifier: MIT
// Takes several seconds. Runs of the store are recorded operation by operation; every directory
// that a power cut could have left of them is put in place, and the next start has to find all
// that was acknowledged. Then the start after the cut is recorded, and cut in the same way.
//
// VEXA_POWER_CUT_IMAGES sets how many images of a scenario are tried (0: all of them, as in the
// long form), VEXA_POWER_CUT_SECOND how many of a second cut.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "faults/fault_table.h"
#include "faults/power_cut_enumeration.h"
#include "faults/power_cut_fixture.h"
#include "faults/power_cut_scenarios.h"
#include "support/emulated.h"

namespace vexa_test {
namespace {

// One stage after the other, so many images of each.
template <typename Each>
void each_stage(const Scenario& scenario, Each each) {
  const unsigned seeds = is_long_form() ? scenario.seeds_long : scenario.seeds_everyday;
  for (unsigned seed = scenario.first_seed; seed < scenario.first_seed + seeds; ++seed) {
    const std::vector<Stage> stages = scenario.record(seed);
    for (const Stage& stage : stages) {
      SCOPED_TRACE(std::string(scenario.name) + " with seed " + std::to_string(seed));
      each(stage, seeds * stages.size());
    }
  }
}

std::size_t share(std::size_t limit, std::size_t parts) {
  if (limit == 0 || limit == kAll) return kAll;
  return std::max<std::size_t>(1, limit / std::max<std::size_t>(1, parts));
}

class PowerCutDuring : public PowerCut, public ::testing::WithParamInterface<Scenario> {};
INSTANTIATE_TEST_SUITE_P(All, PowerCutDuring, ::testing::ValuesIn(scenarios()),
                         [](const auto& scenario) { return scenario.param.name; });

TEST_P(PowerCutDuring, LosesNothingThatWasAcknowledged) {
  const auto limit = static_cast<std::size_t>(how_many_cases("VEXA_POWER_CUT_IMAGES", 160, 0));
  Tally tally;
  tally.count.kind = GetParam().kind;
  each_stage(GetParam(), [&](const Stage& stage, std::size_t stages) {
    Enumeration(stage).run(stage.every_image ? kAll : share(limit, stages), tally);
  });
  tally.print(GetParam().name);
  report(tally.count);
  EXPECT_GT(tally.count.tried, 0U);
}

// Start, first reads and first write after the cut.
TEST_P(PowerCutDuring, LosesNothingWhenTheRecoveryIsCutAsWell) {
  const auto limit = static_cast<std::size_t>(how_many_cases("VEXA_POWER_CUT_SECOND", 40, 2400));
  const std::size_t of_one = is_long_form() ? 40 : 10;
  Tally bases;
  Tally tally;
  tally.count.kind = "second power cut";
  each_stage(GetParam(), [&](const Stage& stage, std::size_t stages) {
    const std::size_t images = share(limit, stages);
    const bool many = stage.every_image && is_long_form();
    const std::size_t first_cuts = share(images, many ? images / 60 : of_one);
    const Enumeration firsts(stage);
    firsts.pick(first_cuts, bases, [&](const Enumeration::Found& first) {
      SCOPED_TRACE("the first cut: " + firsts.story(first));
      Recording recovery(stage, first.image, first.promise);
      recovery.write([&](Writer& writer) {
        writer.look_around(recovery.promise());
        if (first.promise.half_defaults()) writer.make_defaults();
        writer.put(kProbe, 1);
      });
      Enumeration(recovery.stage()).run(share(images, first_cuts), tally);
    });
  });
  tally.print(GetParam().name);
  report(tally.count);
  EXPECT_GT(tally.count.tried, 0U);
}

TEST_F(PowerCut, RecordsTheSameOperationsEachTime) {
  const auto text = [] {
    std::string lines;
    const std::vector<Stage> stages = scenarios()[0].record(0);
    for (const FileOperation& operation : stages.front().operations)
      lines += describe(operation) + operation.data + "\n";
    return lines;
  };
  const std::string first = text();
  EXPECT_GT(first.size(), 100000U);
  EXPECT_TRUE(first == text());
}

// A disk's file system gives a number again at once; /vexanv may be another file system.
TEST(PowerCutReplayed, AFileIsNoOtherOneOfTheSameNumber) {
  PowerCutReplay replay({{"/data/old", Content("old")}});
  const auto apply = [&](FileOp op, const std::string& path, const std::string& data = {}) {
    FileOperation operation;
    operation.op = op;
    operation.file = op == FileOp::kUnlink ? 0 : 7;
    operation.path = path;
    operation.data = data;
    replay.apply(operation);
  };
  apply(FileOp::kCreate, "/data/a");
  apply(FileOp::kWrite, "/data/a", "first");
  apply(FileOp::kUnlink, "/data/a");
  apply(FileOp::kCreate, "/data/b");
  apply(FileOp::kCreate, "/vexanv/c");
  apply(FileOp::kWrite, "/vexanv/c", "other");
  EXPECT_EQ(replay.present(),
            (Image{{"/data/b", Content()}, {"/data/old", Content("old")}, {"/vexanv/c", Content("other")}}));

  apply(FileOp::kUnlink, "/data/b");
  apply(FileOp::kOpen, "/data/old");
  apply(FileOp::kWrite, "/data/old", "n");
  EXPECT_EQ(replay.present(), (Image{{"/data/old", Content("nld")}, {"/vexanv/c", Content("other")}}));
}

TEST_F(PowerCut, RefusesARecordingOfACallThatItDoesNotKnow) {
  Recording recording;
  EXPECT_THROW(recording.run([](auto&) { mkdir("/data/new", 0755); }), std::runtime_error);
  rmdir("/data/new");
}

TEST_F(PowerCut, RecordsWhatTheShellsCommandsDo) {
  Recording recording;
  recording.run([](auto&) {
    dm_sqlite_system_cmd(
        "echo settings > /data/a; cp -rf /data/a /mnt/vendor/nvdata/a.db1; "
        "mv /mnt/vendor/nvdata/a.db1 /mnt/vendor/nvdata/a.db2; rm /data/a",
        nullptr, 0);
  });
  std::vector<std::string> told;
  for (const FileOperation& operation : recording.stage().operations) {
    if (operation.op != FileOp::kOpen) told.push_back(describe(operation));
  }
  const std::vector<std::string> expected = {"create /data/a",
                                             "write /data/a 9 bytes at 0",
                                             "create /mnt/vendor/nvdata/a.db1",
                                             "write /mnt/vendor/nvdata/a.db1 9 bytes at 0",
                                             "rename /mnt/vendor/nvdata/a.db1 to /mnt/vendor/nvdata/a.db2",
                                             "unlink /data/a"};
  EXPECT_EQ(told, expected);
}

// The names under which losses are counted are the ones that a reader finds.
TEST(PowerCutNames, StandInTheCaveats) {
  std::ifstream stream(CAVEATS);
  ASSERT_TRUE(stream.is_open()) << CAVEATS;
  std::string text{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
  for (std::size_t at = 0; (at = text.find("\n  ", at)) != std::string::npos;) text.replace(at, 3, " ");
  for (const char* named : kNamedLosses) {
    std::string name = named;
    name[0] = 'A';
    EXPECT_NE(text.find(name), std::string::npos) << name;
  }
}

// ---- What a replay takes for certain ----

FileOperation operation(FileOp op, std::uint64_t file, const std::string& path,
                        const std::string& data = "") {
  return {op, file, 0, path, {}, data};
}

// Of all images that the operations may leave, the names that each has, with sizes.
std::set<std::string> images_after(const std::vector<FileOperation>& operations) {
  PowerCutReplay replay({});
  for (const FileOperation& each : operations) replay.apply(each);
  std::mt19937 random(kSeed);
  std::set<std::string> shown;
  for (const Cut& cut : replay.cuts(random)) {
    std::string text;
    for (const auto& [path, content] : replay.image(cut)) text += path + "=" + content.bytes() + " ";
    shown.insert(text);
  }
  return shown;
}

TEST(PowerCutReplayModel, ASyncedFileHasNoNameUntilItsDirectoryIsSynced) {
  EXPECT_EQ(
      images_after({operation(FileOp::kCreate, 1, "/data/a"), operation(FileOp::kWrite, 1, "/data/a", "x"),
                    operation(FileOp::kSync, 1, "/data/a")}),
      (std::set<std::string>{"", "/data/a=x "}));
}

TEST(PowerCutReplayModel, ASyncOfOneDirectorySettlesNoNameInAnother) {
  EXPECT_EQ(
      images_after({operation(FileOp::kCreate, 1, "/data/a"), operation(FileOp::kCreate, 2, "/vexanv/b"),
                    operation(FileOp::kSync, 9, "/vexanv")}),
      (std::set<std::string>{"/vexanv/b= ", "/data/a= /vexanv/b= "}));
}

TEST(PowerCutReplayModel, ASyncOfAFileSystemSettlesThatPlaceOnly) {
  EXPECT_EQ(images_after({operation(FileOp::kCreate, 1, "/data/a"),
                          operation(FileOp::kCreate, 2, "/mnt/vendor/nvdata/b"),
                          operation(FileOp::kWrite, 2, "/mnt/vendor/nvdata/b", "x"),
                          operation(FileOp::kSyncPlace, 9, "/mnt/vendor/nvdata")}),
            (std::set<std::string>{"/mnt/vendor/nvdata/b=x ", "/data/a= /mnt/vendor/nvdata/b=x "}));
}

TEST(PowerCutReplayModel, ANameMayComeBeforeTheBytes) {
  const std::set<std::string> images =
      images_after({operation(FileOp::kCreate, 1, "/data/a"), operation(FileOp::kWrite, 1, "/data/a", "x"),
                    operation(FileOp::kSync, 9, "/data")});
  EXPECT_EQ(images.count("/data/a= "), 1U);
  EXPECT_EQ(images.count("/data/a=x "), 1U);
  EXPECT_EQ(images.count(std::string("/data/a=") + '\0' + " "), 1U);  // grown, and nothing written
}

}  // namespace
}  // namespace vexa_test

int main(int argc, char** argv) {
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
  if (std::getenv("VEXA_FILE_RECORDER") == nullptr) {
    setenv("VEXA_FILE_RECORDER", "preloaded", 1);
    setenv("LD_PRELOAD", FILE_RECORDER, 1);
    vexa_test::run_again(argv);
    std::perror("power_cut_test");
    return 1;
  }
#endif
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
