// SPDX-License-Identifier: MIT
// The directories that a power cut could leave of a recorded run.
//
// What storage holds for certain is a file's content at its last sync, and the names of a
// directory at its own last sync; syncing a file says nothing of its name, syncing one directory
// nothing of another. Everything since then is pending: each write, each truncation, each change
// of a name is on storage or is not, whatever became of those before it. File systems that keep
// changes of names in order leave some of these images, others may leave any of them.
#ifndef VEXADM_TESTS_FAULTS_POWER_CUT_REPLAY_H
#define VEXADM_TESTS_FAULTS_POWER_CUT_REPLAY_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "faults/file_recorder.h"

namespace vexa_test {

// The bytes of a file, shared by the images that have them; hashed once.
class Content {
 public:
  Content() : Content(std::string()) {}
  explicit Content(std::string bytes) : blob_(std::make_shared<Blob>(Blob{std::move(bytes), 0, false})) {}

  const std::string& bytes() const { return blob_->bytes; }
  std::size_t hash() const {
    if (!blob_->hashed) blob_->hash = std::hash<std::string>()(blob_->bytes);
    blob_->hashed = true;
    return blob_->hash;
  }
  // For changes; a copy of its own where others share the bytes.
  std::string& edit() {
    if (blob_.use_count() > 1) blob_ = std::make_shared<Blob>(Blob{blob_->bytes, 0, false});
    blob_->hashed = false;
    return blob_->bytes;
  }
  bool operator==(const Content& other) const { return blob_ == other.blob_ || bytes() == other.bytes(); }

 private:
  struct Blob {
    std::string bytes;
    std::size_t hash;
    bool hashed;
  };
  std::shared_ptr<Blob> blob_;
};

// Content by path.
using Image = std::map<std::string, Content>;

struct FileOperation {
  FileOp op = FileOp::kMark;
  std::uint64_t file = 0;
  std::size_t offset = 0;
  std::string path;
  std::string other;
  std::string data;
};

// Throws on a call that no replay knows.
std::vector<FileOperation> read_recording(const std::string& log);
std::string describe(const FileOperation& operation);

// Which of the pending operations reached storage.
struct Cut {
  enum class Tear : std::uint8_t {
    kNone,
    kHead,       // the last write's first sectors only
    kTail,       // its last sectors only
    kScattered,  // of every write some sectors, drawn at random
    kZeros,      // files have grown, and what was to be written there was not: blocks of zeros
    kGarbage,    // the same with blocks of something else
  };
  std::vector<bool> kept;
  Tear tear = Tear::kNone;
  unsigned number = 0;  // of sectors for kHead and kTail; the seed for kScattered
};

class PowerCutReplay {
 public:
  explicit PowerCutReplay(const Image& base);

  void apply(const FileOperation& operation);

  // All subsets of up to kMostEnumerated pending operations; of more of them the prefixes, all
  // but one, one alone, and a random sample. Beside them, writes that were torn.
  std::vector<Cut> cuts(std::mt19937& random) const;
  Image image(const Cut& cut) const;
  // What the running program sees.
  Image present() const { return image_of(present_); }
  // The pending operations, with what became of each.
  std::string describe(const Cut& cut) const;

  static constexpr std::size_t kMostEnumerated = 6;
  static constexpr std::size_t kSampled = 32;
  static constexpr std::size_t kScattered = 4;
  static constexpr std::size_t kSector = 512;

 private:
  // A file lives on under its number while names come and go.
  struct Disk {
    std::map<std::uint64_t, Content> files;
    std::map<std::string, std::uint64_t> names;
  };
  // An inode, as long as it is one file's: a file system gives its number to the next file, and
  // another file system has the same number.
  using Inode = std::pair<std::string_view, std::uint64_t>;
  std::uint64_t file_of(const FileOperation& operation);

  static bool changes_names(const FileOperation& operation);
  static bool settles(const FileOperation& sync, const FileOperation& operation);
  static void perform(Disk& disk, const FileOperation& operation);
  static void perform_sectors(Disk& disk, const FileOperation& write,
                              const std::function<bool(std::size_t)>& keeps);
  static void only_grow(Disk& disk, const FileOperation& write, bool garbage);
  static Image image_of(const Disk& disk);
  static std::size_t sectors(const FileOperation& write);
  void settle(const FileOperation& sync);
  void bind(const FileOperation& open);
  void add_torn(std::vector<Cut>& all, std::mt19937& random) const;

  Disk durable_;
  Disk present_;  // as the running program sees it
  std::vector<FileOperation> pending_;
  std::map<Inode, std::uint64_t> files_;
  std::uint64_t next_file_ = 1;
  std::uint64_t next_base_file_;
};

}  // namespace vexa_test

#endif
