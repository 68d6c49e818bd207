// SPDX-License-Identifier: MIT
// Takes several seconds. Damaged files in place of the store's: nothing crashes or hangs, no
// value is returned that was not stored, and the next write succeeds wherever a repair reaches.
//
// VEXA_CORRUPTION_STRIDE=n flips a bit of every n-th byte, VEXA_CORRUPTION_PAIRS=n damages n pairs
// of pages, VEXA_CORRUPTIONS=n tries n random damages a case, VEXA_CORRUPTION_SEED=n others.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "faults/corruption_fixture.h"

namespace vexa_test {
namespace {

TEST_F(Corruption, OfNoFileLosesNothing) {
  try_one(true, {});
  try_one(false, {});
  EXPECT_EQ(count().with_a_name, 0u);
}

TEST_F(Corruption, BySomethingElseInPlaceOfAFile) {
  for (const std::string& path : kFiles) {
    for (const Damage& damage : replacements()) {
      if (!leaves_out_emulated()) try_both_ways({{path, damage}});
    }
  }
}

TEST_F(Corruption, BySomethingElseInPlaceOfTwoFiles) {
  for (const Damage& first : replacements()) {
    for (const Damage& second : replacements()) {
      if (!leaves_out()) try_both_ways({{kPrimary, first}, {kBackup, second}});
    }
  }
}

TEST_F(Corruption, ByALinkToAnotherDatabase) {
  for (const std::string& path : kFiles) {
    for (const Damage& damage : links_to_other_databases()) try_one(path == kFactory, {{path, damage}});
  }
}

TEST_F(Corruption, ByCuttingAFileAtAnyPage) {
  for (const std::string& path : kFiles) {
    for (std::size_t size = 0; size < size_of(path); size += kPage) {
      for (const std::size_t odd : {0u, 1u, 511u}) {
        if (!leaves_out_emulated()) try_one(path == kFactory, {{path, cut_to(size + odd)}});
      }
    }
  }
}

// The long form of these goes over every byte and every pair of pages; by file, so that they can
// run beside each other.
class CorruptionOf : public Corruption, public ::testing::WithParamInterface<std::size_t> {
 protected:
  const std::string& file() const { return kFiles[GetParam()]; }
};

TEST_P(CorruptionOf, ByABitFlippedInAByte) {
  std::mt19937 random = seeded();
  const auto stride = static_cast<std::size_t>(how_many("VEXA_CORRUPTION_STRIDE", 409 * slower(), 1));
  for (std::size_t offset = random() % stride; offset < size_of(file()) && goes_on(); offset += stride) {
    const bool factory_copy = file() == kFactory || random() % 2 == 0;
    try_one(factory_copy, {{file(), flipped_bit(offset, random() % 8)}});
  }
}

TEST_P(CorruptionOf, ByAnOverwrittenPage) {
  for (std::size_t page = 0; page < pages_of(file()); ++page) {
    for (const PageOf what : kPagesOf) {
      if (!leaves_out()) try_both_ways({{file(), overwritten_page(page, what, 1)}});
    }
  }
}

TEST_P(CorruptionOf, AndOfAnotherFileByOverwrittenPages) {
  std::vector<std::vector<PathAndDamage>> pairs;
  for (std::size_t other = GetParam() + 1; other < kFiles.size(); ++other) {
    for (std::size_t page = 0; page < pages_of(file()) * pages_of(kFiles[other]); ++page) {
      for (const PageOf one : kPagesOf) {
        for (const PageOf two : kPagesOf) {
          pairs.push_back({{file(), overwritten_page(page % pages_of(file()), one, 2)},
                           {kFiles[other], overwritten_page(page / pages_of(file()), two, 3)}});
        }
      }
    }
  }
  std::mt19937 random = seeded();
  std::shuffle(pairs.begin(), pairs.end(), random);
  const std::uint64_t most = how_many("VEXA_CORRUPTION_PAIRS", 40 / slower(), pairs.size());
  if (most < pairs.size()) pairs.resize(static_cast<std::size_t>(most));
  for (const auto& pair : pairs) {
    if (goes_on()) try_one(random() % 2 == 0 || pair.back().first == kFactory, pair);
  }
}

std::string name_of(const ::testing::TestParamInfo<std::size_t>& file) {
  static constexpr const char* kNames[] = {"Primary", "Backup", "Journal", "Defaults", "Factory"};
  return kNames[file.param];
}

INSTANTIATE_TEST_SUITE_P(Each, CorruptionOf, ::testing::Range(std::size_t{0}, kFiles.size()), name_of);

TEST_F(Corruption, OfOneFileAtRandom) {
  std::mt19937 random = seeded();
  const auto count = how_many("VEXA_CORRUPTIONS", 160 / slower(), 10000);
  for (unsigned i = 0; i < count && goes_on(); ++i) {
    const std::string& path = kFiles[i % 5 < 3 ? random() % 2 : 2 + random() % 3];
    try_one(path == kFactory || random() % 2 == 0, {{path, random_damage(random)}});
  }
}

TEST_F(Corruption, OfTwoFilesAtRandom) {
  std::mt19937 random = seeded();
  const auto count = how_many("VEXA_CORRUPTIONS", 160 / slower(), 10000);
  for (unsigned i = 0; i < count && goes_on(); ++i) {
    const std::size_t first = random() % kFiles.size();
    const std::size_t second = (first + 1 + random() % (kFiles.size() - 1)) % kFiles.size();
    const Damage one = random_damage(random);
    const Damage other = random_damage(random);
    try_one(random() % 2 == 0, {{kFiles[first], one}, {kFiles[second], other}});
  }
}

}  // namespace
}  // namespace vexa_test
