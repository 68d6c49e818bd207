// SPDX-License-Identifier: MIT
// Part of power_cut_test. One write of an item that has a value: what it does, and at each point
// what a cut there leaves to read. VEXA_POWER_CUT_TRACE=FILE writes that down, a line for each
// operation, for tools/write-picture:
//
//   operation, path, new path of a rename, offset, bytes, images tried, then what these held:
//   the journal's state, the primary's value, the backup's value, the value read at the next start
//
// A value is "old", "old or new" or "new"; states that a cut leaves open are joined in the same way.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <fstream>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "faults/power_cut_enumeration.h"
#include "faults/power_cut_fixture.h"
#include "faults/power_cut_stage.h"

namespace vexa_test {
namespace {

constexpr int kOld = 1;
constexpr int kNew = 2;

// What images hold, in the order of the columns.
enum Column : std::uint8_t { kJournal, kPrimary, kBackup, kRead, kColumns };
using Findings = std::array<std::string, kColumns>;

struct Point {
  FileOperation operation;
  std::size_t images = 0;
  Findings found;
};

Stage one_write() {
  Recording recording;
  recording.write([](Writer& writer) {
    writer.put(kName, kOld);
    writer.put(kBlock, kOld);
    writer.make_defaults();
  });
  recording.begin_stage();
  recording.write([](Writer& writer) { writer.put(kName, kNew); });
  return recording.stage();
}

std::string which(std::int32_t size, const std::array<std::uint8_t, 100>& buffer) {
  const std::string value(reinterpret_cast<const char*>(buffer.data()),
                          static_cast<std::size_t>(std::max(size, 0)));
  if (value == item_value(kName, kOld)) return "old";
  return value == item_value(kName, kNew) ? "new" : "neither";
}

std::string journal_state() {
  std::array<char, 33> table;
  std::array<char, 33> key;
  std::int32_t id = 0;
  std::int32_t type = 0;
  std::int32_t len = 0;
  std::int32_t state = 0;
  const int result = dm_read_state_db(table.data(), key.data(), &id, &type, &len, &state);
  return result == 0 ? std::to_string(state) : "none";
}

// The files first: a start may change them.
Findings look_into(const Image& image) {
  put_in_place(image);
  const Report report = in_process([](std::vector<std::string>& lines) {
    std::array<std::uint8_t, 100> buffer;
    std::uint32_t crc = 0;
    const vexa_dm_item_desc& desc = power_cut_items()[kName - 1].desc;
    vexa_set_log_level(4);
    lines.push_back(journal_state());
    for (const char* path : {DB_CONFIG, DB_CONFIGBAK})
      lines.push_back(which(dm_read_db(path, desc.table, desc.key, buffer.data(), &crc, 100), buffer));
    vexa_dm_handle* store = start_program();
    lines.push_back(which(vexa_dm_read(store, kName, buffer.data(), 100), buffer));
  });
  Findings findings;
  findings.fill(report.fault);
  std::copy_n(report.lines.begin(), std::min<std::size_t>(report.lines.size(), kColumns), findings.begin());
  return findings;
}

void join(std::string& all, const std::string& one) {
  const std::string words = " or " + all + " or ";
  if (words.find(" or " + one + " or ") == std::string::npos) all += (all.empty() ? "" : " or ") + one;
}

// Every image that a cut after each operation may leave, the one that lost all of it first.
std::vector<Point> points_of(const Stage& stage) {
  std::vector<Point> points;
  std::map<std::size_t, Findings> known;
  std::mt19937 random(kSeed);
  PowerCutReplay replay(stage.base);
  for (const FileOperation& operation : stage.operations) {
    replay.apply(operation);
    if (operation.op == FileOp::kOpen) continue;
    Point point{operation, 0, {}};
    std::set<std::size_t> images;
    std::vector<Cut> cuts = replay.cuts(random);
    const auto loses_all = [](const Cut& cut) {
      return std::find(cut.kept.begin(), cut.kept.end(), true) == cut.kept.end();
    };
    std::stable_partition(cuts.begin(), cuts.end(), loses_all);
    for (const Cut& cut : cuts) {
      const Image image = replay.image(cut);
      const std::size_t print = fingerprint(image, {});
      images.insert(print);
      if (known.count(print) == 0) known[print] = look_into(image);
      for (std::size_t i = 0; i < kColumns; ++i) join(point.found[i], known[print][i]);
    }
    point.images = images.size();
    points.push_back(std::move(point));
  }
  return points;
}

const char* name_of(const FileOperation& operation) {
  switch (operation.op) {
    case FileOp::kCreate:
      return "create";
    case FileOp::kWrite:
      return "write";
    case FileOp::kTruncate:
      return "truncate";
    case FileOp::kSync:
      return "sync";
    case FileOp::kRename:
      return "rename";
    case FileOp::kUnlink:
      return "unlink";
    case FileOp::kMark:
      return operation.data.starts_with("begin") ? "call" : "return";
    default:
      return "?";
  }
}

void write_down(const std::string& file, const std::vector<Point>& points) {
  std::ofstream stream(file);
  for (const Point& point : points) {
    const FileOperation& operation = point.operation;
    const std::size_t bytes = operation.op == FileOp::kWrite ? operation.data.size() : 0;
    stream << name_of(operation) << '\t' << operation.path << '\t' << operation.other << '\t'
           << operation.offset << '\t' << bytes << '\t' << point.images;
    for (const std::string& found : point.found) stream << '\t' << found;
    stream << '\n';
  }
  stream.close();
  EXPECT_TRUE(stream.good()) << file;
}

class PowerCutTrace : public PowerCut {};

TEST_F(PowerCutTrace, OfOneWriteLeavesOldUntilTheRenameAndNewFromTheSyncOfItsDirectory) {
  const std::vector<Point> points = points_of(one_write());
  if (const char* file = std::getenv("VEXA_POWER_CUT_TRACE")) write_down(file, points);

  const auto in_turn = [&](Column column) {
    std::vector<std::string> turns;
    for (const Point& point : points) {
      const std::string turn = point.found[column] + " from " + describe(point.operation);
      if (turns.empty() || !turns.back().starts_with(point.found[column] + " from ")) turns.push_back(turn);
    }
    return turns;
  };
  const std::string rename = "rename /data/.vexadm-copy-configbak to /data/configbak.db";
  EXPECT_EQ(in_turn(kRead), (std::vector<std::string>{"old from mark: begin 3 2", "old or new from " + rename,
                                                      "new from sync /data"}));
  EXPECT_EQ(in_turn(kBackup), in_turn(kRead));
  EXPECT_EQ(in_turn(kPrimary), (std::vector<std::string>{"old from mark: begin 3 2",
                                                         "old or new from unlink /data/config.db-journal",
                                                         "new from sync /data"}));
  const std::string removed = " from unlink /data/state.db-journal";
  EXPECT_EQ(in_turn(kJournal),
            (std::vector<std::string>{"102 from mark: begin 3 2", "102 or 100" + removed,
                                      "100 from sync /data", "100 or 101" + removed, "101 from sync /data",
                                      "101 or 102" + removed, "102 from sync /data"}));
  EXPECT_EQ(describe(points.back().operation), "mark: done 3 2");
}

}  // namespace
}  // namespace vexa_test
