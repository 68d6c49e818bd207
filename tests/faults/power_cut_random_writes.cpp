// SPDX-License-Identifier: MIT
#include <iterator>
#include <random>
#include <vector>

#include "faults/power_cut_scenarios.h"

namespace vexa_test {
namespace {

struct Step {
  enum class What : std::uint8_t { kPut, kPutPastTheCache, kPair, kEmpty, kDefaults, kRead, kDamage } what;
  std::int32_t id;
  int n;
};

void take(Writer& writer, const Step& step) {
  switch (step.what) {
    case Step::What::kPut:
      return writer.put(step.id, step.n);
    case Step::What::kPutPastTheCache:
      return writer.put_past_the_cache(step.id, step.n);
    case Step::What::kPair:
      return writer.put_pair(step.n);
    case Step::What::kEmpty:
      return writer.empty(step.id);
    case Step::What::kDefaults:
      return writer.make_defaults();
    case Step::What::kRead:
      return writer.read_all();
    case Step::What::kDamage:
      return writer.damage(DB_CONFIG, kHeadOfSchema, 0);
  }
}

Step draw_step(std::mt19937& random, int n) {
  constexpr std::int32_t kWritten[] = {kChannel, kAddress, kName, kBlock, kLarge};
  const std::int32_t id = kWritten[random() % std::size(kWritten)];
  const auto chance = static_cast<unsigned>(random() % 100);
  if (chance < 60) return {Step::What::kPut, id, n};
  if (chance < 68) return {Step::What::kPutPastTheCache, id, n};
  if (chance < 80) return {Step::What::kPair, kPairs, n};
  if (chance < 87) return {Step::What::kEmpty, id, n};
  if (chance < 90) return {Step::What::kDefaults, 0, n};
  return {chance < 95 ? Step::What::kRead : Step::What::kDamage, 0, n};
}

}  // namespace

std::vector<Stage> random_writes(unsigned seed) {
  std::mt19937 random(seed);
  const int first = static_cast<int>(1000 * (seed % 90 + 1));
  Recording recording(seed % 3 == 0 ? moved_area() : StoreArea{});
  recording.write([&](Writer& writer) {
    writer.put(kName, first);
    writer.put(kLarge, first);
    if (seed % 2 == 0) writer.make_defaults();
  });
  recording.begin_stage();
  int n = first;
  for (int program = 0; program < 3; ++program) {
    std::vector<Step> steps;
    while (steps.size() < 6) steps.push_back(draw_step(random, ++n));
    recording.write([&](Writer& writer) {
      for (const Step& step : steps) take(writer, step);
    });
  }
  return {recording.stage()};
}

}  // namespace vexa_test
