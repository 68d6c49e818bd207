// SPDX-License-Identifier: MIT
// The directories that a power cut could leave of a recorded run.
//
// What storage holds for certain is a file's content at its last sync, and the names of a
// directory at its last sync. Everything since then is pending: each write, each truncation, each
// change of a name is on storage or is not, whatever became of those before it. File systems that
// keep changes of names in order leave some of these images, others may leave any of them.
#ifndef VEXADM_TESTS_FAULTS_POWER_CUT_REPLAY_H
#define VEXADM_TESTS_FAULTS_POWER_CUT_REPLAY_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "faults/file_recorder.h"

namespace vexa_test {

// Content by path.
using Image = std::map<std::string, std::string>;

struct FileOperation {
  FileOp op = FileOp::kMark;
  std::uint64_t file = 0;
  std::uint64_t offset = 0;
  std::string path;
  std::string other;
  std::string data;
};

std::vector<FileOperation> read_recording(const std::string& log);
std::string describe(const FileOperation& operation);

// Which of the pending operations reached storage.
struct Cut {
  enum class Last : std::uint8_t {
    kWhole,
    kHead,   // the last write's first sectors only
    kTail,   // its last sectors only
    kZeros,  // files have grown, and what was to be written there was not: blocks of zeros
  };
  std::vector<bool> kept;
  Last last = Last::kWhole;
  std::size_t sectors = 0;  // of the last write, for kHead and kTail
};

class PowerCutReplay {
 public:
  explicit PowerCutReplay(const Image& base);

  void apply(const FileOperation& operation);

  // All subsets of up to kMostEnumerated pending operations; of more of them the prefixes, all
  // but one, one alone, and a random sample.
  std::vector<Cut> cuts(std::mt19937& random) const;
  Image image(const Cut& cut) const;
  // The pending operations, with what became of each.
  std::string describe(const Cut& cut) const;

  static constexpr std::size_t kMostEnumerated = 6;
  static constexpr std::size_t kSampled = 32;
  static constexpr std::size_t kSector = 512;

 private:
  // A file lives on under its number while names come and go.
  struct Disk {
    std::map<std::uint64_t, std::string> files;
    std::map<std::string, std::uint64_t> names;
  };
  static bool changes_names(const FileOperation& operation);
  static void perform(Disk& disk, const FileOperation& operation);
  void settle(const FileOperation& sync);
  void bind(const FileOperation& open);
  std::size_t sectors_of_last() const;

  Disk durable_;
  Disk present_;  // as the running program sees it
  std::vector<FileOperation> pending_;
  std::uint64_t next_base_file_;
};

}  // namespace vexa_test

#endif
