// SPDX-License-Identifier: MIT
// All images of a stage, each once, and what came of those that were tried.
#ifndef VEXADM_TESTS_FAULTS_POWER_CUT_ENUMERATION_H
#define VEXADM_TESTS_FAULTS_POWER_CUT_ENUMERATION_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "faults/fault_table.h"
#include "faults/power_cut_oracle.h"
#include "faults/power_cut_replay.h"
#include "faults/power_cut_stage.h"

namespace vexa_test {

inline constexpr unsigned kSeed = 20260101;
inline constexpr std::size_t kAll = SIZE_MAX;

struct Tally {
  FaultCount count;
  std::size_t operations = 0;
  std::size_t built = 0;
  std::size_t distinct = 0;
  double slowest_start = 0;
  std::map<std::string, std::size_t> failures;  // by what was found

  void print(const std::string& title) const {
    std::printf("%s: seed %u, %zu operations, %zu images built, %zu distinct, slowest start %.3f s\n",
                title.c_str(), kSeed, operations, built, distinct, slowest_start);
    for (const auto& [name, images] : failures)
      std::printf("  failed: %s: %zu images\n", name.c_str(), images);
  }
};

// Equal for images that no start can tell apart. What a cut leaves of a copy under its temporary
// name is deleted unread: it counts as there or not, so that its pieces do not pass for cases.
inline std::size_t fingerprint(const Image& image, const Promise& promise) {
  const std::hash<std::string> hash;
  std::size_t mixed = hash(promise.text());
  for (const auto& [path, content] : image) {
    const bool leftover = path.find("/.vexadm-copy-") != std::string::npos;
    for (const std::size_t part : {hash(path), leftover ? 0 : content.hash()})
      mixed = (mixed ^ part) * static_cast<std::size_t>(0x9e3779b97f4a7c15U) + (mixed >> 29);
  }
  return mixed;
}

class Enumeration {
 public:
  struct Found {
    std::size_t at;
    const PowerCutReplay& replay;
    const Cut& cut;
    const Image& image;
    const Promise& promise;
  };
  using Visit = std::function<void(const Found&)>;

  explicit Enumeration(const Stage& stage) : stage_(stage) {}

  // Tries so many of the images.
  void run(std::size_t limit, Tally& tally) const {
    pick(limit, tally, [&](const Found& found) { try_one(found, tally); });
  }

  // Half of a small sample loses nothing that was written before the cut.
  void pick(std::size_t limit, Tally& tally, const Visit& visit) const {
    tally.operations += stage_.operations.size();
    if (limit == kAll) return walk(tally, visit);
    const std::vector<bool> chosen = choose(limit);
    std::size_t index = 0;
    walk(tally, [&](const Found& found) {
      if (chosen[index++]) visit(found);
    });
  }

  std::string story(const Found& found) const {
    const auto& [at, replay, cut, image, promise] = found;
    std::string text = "cut after operation " + std::to_string(at) + " of " +
                       std::to_string(stage_.operations.size()) + "\n  promised: " + promise.text() +
                       "\n  the operations before:\n";
    for (std::size_t i = at < 12 ? 0 : at - 12; i <= at; ++i)
      text += "    " + describe(stage_.operations[i]) + "\n";
    text += "  not synced:\n" + replay.describe(cut) + "  left on storage:";
    for (const auto& [path, content] : image)
      text += " " + path + " (" + std::to_string(content.bytes().size()) + ")";
    return text;
  }

 private:
  void walk(Tally& tally, const Visit& visit) const {
    PowerCutReplay replay(stage_.base);
    Promise promise = stage_.promise;
    std::mt19937 random(kSeed);
    std::unordered_set<std::size_t> seen;
    for (std::size_t at = 0; at < stage_.operations.size(); ++at) {
      const FileOperation& operation = stage_.operations[at];
      replay.apply(operation);
      if (operation.op == FileOp::kMark) promise.take(operation.data);
      for (const Cut& cut : replay.cuts(random)) {
        const Image image = replay.image(cut);
        ++tally.built;
        if (!seen.insert(fingerprint(image, promise)).second) continue;
        ++tally.distinct;
        visit(Found{at, replay, cut, image, promise});
      }
    }
  }

  std::vector<bool> choose(std::size_t limit) const {
    std::vector<std::size_t> plain;
    std::vector<std::size_t> others;
    Tally counted;
    walk(counted, [&](const Found& found) {
      const Cut& cut = found.cut;
      const bool whole = cut.tear == Cut::Tear::kNone &&
                         std::find(cut.kept.begin(), cut.kept.end(), false) == cut.kept.end();
      (whole ? plain : others).push_back(counted.distinct - 1);
    });
    std::mt19937 random(kSeed);
    std::shuffle(plain.begin(), plain.end(), random);
    std::shuffle(others.begin(), others.end(), random);
    limit = std::min(limit, counted.distinct);
    std::vector<bool> chosen(counted.distinct, false);
    const std::size_t first =
        std::min(plain.size(), std::max(limit / 2, limit - std::min(limit, others.size())));
    for (std::size_t i = 0; i < first; ++i) chosen[plain[i]] = true;
    for (std::size_t i = 0; i < limit - first; ++i) chosen[others[i]] = true;
    return chosen;
  }

  void try_one(const Found& found, Tally& tally) const {
    const Verdict verdict = judge(stage_, found.image, found.promise);
    std::set<std::string> names;
    std::set<std::string> wrong;
    for (const std::string& line : verdict.lines) {
      if (line.starts_with(kNamed)) {
        names.insert(line.substr(std::strlen(kNamed)));
      } else {
        wrong.insert(line);
      }
    }
    ++tally.count.tried;
    tally.slowest_start = std::max(tally.slowest_start, verdict.slowest_start);
    for (const std::string& name : names) ++tally.count.named[name];
    for (const std::string& what : wrong) ++tally.failures[what];
    if (wrong.empty()) {
      if (!names.empty()) ++tally.count.with_a_name;
      return;
    }
    std::string text;
    for (const std::string& line : wrong) text += line + "\n";
    if (++tally.count.failed <= 5) ADD_FAILURE() << text << story(found);
  }

  const Stage& stage_;
};

}  // namespace vexa_test

#endif
