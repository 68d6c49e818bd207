// SPDX-License-Identifier: MIT
// Takes several seconds. A run of the store is recorded operation by operation; every directory
// that a power cut could have left of it is put in place, and the next start has to find all that
// was acknowledged. VEXA_POWER_CUT_IMAGES sets how many images are tried (0: all of them),
// VEXA_POWER_CUT_SECOND how many of a second cut.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <random>
#include <set>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "faults/power_cut_items.h"
#include "faults/power_cut_oracle.h"
#include "faults/power_cut_program.h"
#include "faults/power_cut_replay.h"
#include "support/device_fixture.h"

namespace vexa_test {
namespace {

constexpr unsigned kSeed = 20260101;

std::size_t count_from(const char* variable, std::size_t fallback) {
  const char* text = std::getenv(variable);
  return text == nullptr ? fallback : std::strtoul(text, nullptr, 10);
}

struct Tally {
  std::size_t operations = 0;
  std::size_t built = 0;
  std::size_t distinct = 0;
  std::size_t tried = 0;
  std::size_t failed = 0;
  std::map<std::string, std::size_t> given_up;
  std::map<std::string, std::size_t> failures;  // by what was found

  void print(const char* title) const {
    std::printf("%s: %zu operations, %zu images built, %zu distinct, %zu tried, %zu failed\n", title,
                operations, built, distinct, tried, failed);
    for (const auto& [name, count] : given_up)
      std::printf("  given up: %s: %zu images\n", name.c_str(), count);
    for (const auto& [name, count] : failures) std::printf("  failed: %s: %zu images\n", name.c_str(), count);
  }
};

class Enumeration {
 public:
  Enumeration(Image base, Promise promise, std::vector<FileOperation> operations)
      : base_(std::move(base)), promise_(std::move(promise)), operations_(std::move(operations)) {}

  // Starts on `limit` of the distinct images, 0 for all. Half of a small sample loses nothing
  // that was written before the cut.
  void run(std::size_t limit, Tally& tally, std::size_t part = 0, std::size_t parts = 1) const {
    tally.operations += operations_.size();
    std::size_t picked = 0;
    pick(limit, tally, [&](const Found& found) {
      if (picked++ % parts != part) return;
      ++tally.tried;
      judge(found, tally);
    });
  }

  struct Found {
    std::size_t at;
    const PowerCutReplay& replay;
    const Cut& cut;
    const Image& image;
    const Promise& promise;
  };
  template <typename Visit>
  void pick(std::size_t limit, Tally& tally, Visit visit) const {
    const std::vector<bool> chosen = choose(limit, tally);
    std::size_t index = 0;
    walk([&](const Found& found) {
      if (chosen[index++]) visit(found);
    });
  }

 private:
  template <typename Each>
  void walk(Each each) const {
    PowerCutReplay replay(base_);
    Promise promise = promise_;
    std::mt19937 random(kSeed);
    std::unordered_set<std::size_t> seen;
    for (std::size_t at = 0; at < operations_.size(); ++at) {
      replay.apply(operations_[at]);
      if (operations_[at].op == FileOp::kMark) promise.take(operations_[at].data);
      for (const Cut& cut : replay.cuts(random)) {
        Image image = replay.image(cut);
        ++built_;
        if (seen.insert(fingerprint(image, promise)).second) each(Found{at, replay, cut, image, promise});
      }
    }
  }

  std::vector<bool> choose(std::size_t limit, Tally& tally) const {
    std::vector<std::size_t> plain;
    std::vector<std::size_t> others;
    std::size_t count = 0;
    built_ = 0;
    walk([&](const Found& found) {
      const Cut& cut = found.cut;
      const auto kept = std::count(cut.kept.begin(), cut.kept.end(), true);
      const bool whole = cut.last == Cut::Last::kWhole && static_cast<std::size_t>(kept) == cut.kept.size();
      (whole ? plain : others).push_back(count++);
    });
    tally.built += built_;
    tally.distinct += count;
    std::mt19937 random(kSeed);
    std::shuffle(plain.begin(), plain.end(), random);
    std::shuffle(others.begin(), others.end(), random);
    if (limit == 0 || limit > count) limit = count;
    std::vector<bool> chosen(count, false);
    // Half of a small sample for cuts that lose nothing, the rest for those that do.
    const std::size_t first =
        std::min(plain.size(), std::max(limit / 2, limit - std::min(limit, others.size())));
    for (std::size_t i = 0; i < first; ++i) chosen[plain[i]] = true;
    for (std::size_t i = 0; i < limit - first; ++i) chosen[others[i]] = true;
    return chosen;
  }

  void judge(const Found& found, Tally& tally) const {
    std::set<std::string> given_up;
    std::set<std::string> wrong;
    for (const std::string& line : starts_on(found.image, found.promise)) {
      if (line.starts_with(kGivenUp)) {
        given_up.insert(line.substr(std::strlen(kGivenUp)));
      } else {
        wrong.insert(line);
      }
    }
    for (const std::string& name : given_up) ++tally.given_up[name];
    for (const std::string& what : wrong) ++tally.failures[what];
    if (wrong.empty()) return;
    if (++tally.failed <= 20) ADD_FAILURE() << story(found, wrong);
  }

  std::string story(const Found& found, const std::set<std::string>& wrong) const {
    const auto& [at, replay, cut, image, promise] = found;
    std::string text = "cut after operation " + std::to_string(at) + " of " +
                       std::to_string(operations_.size()) + "\n  promised: " + promise.text() + "\n";
    for (const std::string& line : wrong) text += "  " + line + "\n";
    text += "  the operations before:\n";
    for (std::size_t i = at < 12 ? 0 : at - 12; i <= at; ++i)
      text += "    " + vexa_test::describe(operations_[i]) + "\n";
    text += "  not synced:\n" + replay.describe(cut) + "  left on storage:";
    for (const auto& [path, content] : image)
      text += " " + path + " (" + std::to_string(content.size()) + ")";
    return text;
  }

  Image base_;
  Promise promise_;
  std::vector<FileOperation> operations_;
  mutable std::size_t built_ = 0;
};

class PowerCut : public DeviceTest {
 protected:
  void SetUp() override {
    DeviceTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the recorder is preloaded, which a sanitizer's run-time library does not bear";
#endif
    ASSERT_NE(recorder<StartRecorder>(kStartRecorder), nullptr);
  }

  static std::vector<FileOperation> take_recording() {
    std::vector<FileOperation> operations = read_recording(kLog);
    unlink(kLog);
    return operations;
  }

  static std::vector<FileOperation> record_workload() {
    put_in_place({});
    recorded(first_start);
    recorded(damage_primary);
    recorded(start_that_repairs);
    return take_recording();
  }
};

// Else nothing that follows would mean anything.
TEST_F(PowerCut, TheReplayOfEveryOperationIsWhatTheProgramLeft) {
  const std::vector<FileOperation> operations = record_workload();
  PowerCutReplay replay({});
  for (const FileOperation& operation : operations) replay.apply(operation);
  const Image left = image_in_place();
  std::mt19937 random(kSeed);
  const Image replayed = replay.image(replay.cuts(random).front());
  EXPECT_GT(operations.size(), 500U);
  ASSERT_EQ(replayed.size(), left.size());
  for (const auto& [path, content] : left) EXPECT_TRUE(replayed.at(path) == content) << path;
}

// In parts, so that they run beside each other.
constexpr std::size_t kParts = 4;

class PowerCutPart : public PowerCut, public ::testing::WithParamInterface<std::size_t> {};
INSTANTIATE_TEST_SUITE_P(Anywhere, PowerCutPart, ::testing::Range(std::size_t{0}, kParts));

TEST_P(PowerCutPart, LeavesEveryAcknowledgedItemReadable) {
  const Enumeration images({}, {}, record_workload());
  Tally tally;
  images.run(count_from("VEXA_POWER_CUT_IMAGES", 2000), tally, GetParam(), kParts);
  tally.print("one cut");
  EXPECT_GT(tally.tried, 0U);
}

// Some of the three files are gone; whatever is left, the store works again.
TEST_F(PowerCut, InsideACleanTakesValuesButNoMoreThanThat) {
  put_in_place({});
  recorded(first_start);
  Promise promise;
  for (const FileOperation& operation : take_recording()) {
    if (operation.op == FileOp::kMark) promise.take(operation.data);
  }
  const Image base = image_in_place();
  recorded(start_that_cleans);
  const Enumeration images(base, promise, take_recording());
  Tally tally;
  images.run(0, tally);
  tally.print("a cut inside a clean");
  EXPECT_GT(tally.tried, 0U);
}

TEST_F(PowerCut, ASecondCutDuringTheRecoveryLosesNothingEither) {
  const std::size_t limit = count_from("VEXA_POWER_CUT_SECOND", 400);
  constexpr std::size_t kImagesOfOne = 25;
  const Enumeration firsts({}, {}, record_workload());
  Tally bases;
  Tally tally;
  firsts.pick(limit / kImagesOfOne, bases, [&](const Enumeration::Found& first) {
    SCOPED_TRACE("first cut after operation " + std::to_string(first.at) + "\n" +
                 first.replay.describe(first.cut));
    put_in_place(first.image);
    recorded(start_after_a_cut);
    const Enumeration seconds(first.image, first.promise, take_recording());
    seconds.run(limit == 0 ? 0 : kImagesOfOne, tally);
  });
  tally.print("two cuts");
  EXPECT_GT(tally.tried, 0U);
}

}  // namespace
}  // namespace vexa_test

int main(int argc, char** argv) {
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
  if (std::getenv("VEXA_FILE_RECORDER") == nullptr) {
    setenv("VEXA_FILE_RECORDER", "preloaded", 1);
    setenv("LD_PRELOAD", FILE_RECORDER, 1);
    execv("/proc/self/exe", argv);
    std::perror("power_cut_test");
    return 1;
  }
#endif
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
