// SPDX-License-Identifier: MIT
// The ways in which a file of the store is damaged, each with a name to repeat it by.
#ifndef VEXADM_TESTS_FAULTS_CORRUPTION_DAMAGE_H
#define VEXADM_TESTS_FAULTS_CORRUPTION_DAMAGE_H

#include <cstddef>
#include <functional>
#include <random>
#include <string>
#include <vector>

namespace vexa_test {

struct Damage {
  std::string name;
  std::function<void(const std::string& path)> apply;
};

std::string bytes_of(const std::string& path);
// A new file in place of whatever is there.
void set_bytes(const std::string& path, const std::string& bytes);

Damage cut_to(std::size_t size);
Damage flipped_bit(std::size_t offset, unsigned bit);

enum class PageOf { kZeros, kOnes, kNoise, kAnotherPage, kNoiseInPart };
inline constexpr PageOf kPagesOf[] = {PageOf::kZeros, PageOf::kOnes, PageOf::kNoise, PageOf::kAnotherPage,
                                      PageOf::kNoiseInPart};
Damage overwritten_page(std::size_t page, PageOf what, std::uint32_t seed);

// What may stand at a path that is no database of ours.
std::vector<Damage> replacements();
// The path leads to another database of the store.
std::vector<Damage> links_to_other_databases();
// What may stand beside a database under the names of SQLite's own files.
std::vector<Damage> companions();
// What may stand under the name of the temporary file that a copy over the path is written to.
std::vector<Damage> leftover_copies();

Damage random_damage(std::mt19937& random);

}  // namespace vexa_test

#endif
