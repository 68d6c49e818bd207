// SPDX-License-Identifier: MIT
#include "faults/power_cut_replay.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace vexa_test {
namespace {

constexpr char kDirectory[] = "/data";
// Files that were there before the recording, until an open tells their inode numbers.
constexpr std::uint64_t kFirstBaseFile = std::uint64_t{1} << 62;

void put(std::string& content, std::uint64_t offset, const std::string& data) {
  if (content.size() < offset + data.size()) content.resize(offset + data.size());
  content.replace(offset, data.size(), data);
}

}  // namespace

std::vector<FileOperation> read_recording(const std::string& log) {
  std::ifstream stream(log, std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
  std::vector<FileOperation> operations;
  std::size_t at = 0;
  const auto take = [&](std::size_t size) {
    if (bytes.size() - at < size) throw std::runtime_error("a recording that ends within a record");
    at += size;
    return bytes.substr(at - size, size);
  };
  while (at < bytes.size()) {
    FileRecord head = {};
    std::memcpy(&head, take(sizeof head).data(), sizeof head);
    FileOperation operation{head.op, head.file, head.offset, {}, {}, {}};
    operation.path = take(head.path_size);
    operation.other = take(head.other_size);
    operation.data = take(head.data_size);
    operations.push_back(std::move(operation));
  }
  return operations;
}

std::string describe(const FileOperation& operation) {
  const std::string& path = operation.path;
  switch (operation.op) {
    case FileOp::kOpen:
      return "open " + path;
    case FileOp::kCreate:
      return "create " + path;
    case FileOp::kWrite:
      return "write " + path + " " + std::to_string(operation.data.size()) + " bytes at " +
             std::to_string(operation.offset);
    case FileOp::kTruncate:
      return "truncate " + path + " to " + std::to_string(operation.offset);
    case FileOp::kSync:
      return "sync " + path;
    case FileOp::kRename:
      return "rename " + path + " to " + operation.other;
    case FileOp::kUnlink:
      return "unlink " + path;
    case FileOp::kMark:
      return "mark: " + operation.data;
  }
  return "?";
}

PowerCutReplay::PowerCutReplay(const Image& base) : next_base_file_(kFirstBaseFile) {
  for (const auto& [path, content] : base) {
    durable_.files[next_base_file_] = content;
    durable_.names[path] = next_base_file_++;
  }
  present_ = durable_;
}

bool PowerCutReplay::changes_names(const FileOperation& operation) {
  return operation.op == FileOp::kCreate || operation.op == FileOp::kRename ||
         operation.op == FileOp::kUnlink;
}

void PowerCutReplay::perform(Disk& disk, const FileOperation& operation) {
  switch (operation.op) {
    case FileOp::kCreate:
      disk.files.try_emplace(operation.file);
      disk.names[operation.path] = operation.file;
      return;
    case FileOp::kWrite:
      put(disk.files[operation.file], operation.offset, operation.data);
      return;
    case FileOp::kTruncate:
      disk.files[operation.file].resize(operation.offset);
      return;
    case FileOp::kRename:
      // By number: what the name meant when it was renamed, also where its creation was lost.
      if (const auto old = disk.names.find(operation.path);
          old != disk.names.end() && old->second == operation.file) {
        disk.names.erase(old);
      }
      disk.files.try_emplace(operation.file);
      disk.names[operation.other] = operation.file;
      return;
    case FileOp::kUnlink:
      disk.names.erase(operation.path);
      return;
    default:
      return;
  }
}

void PowerCutReplay::settle(const FileOperation& sync) {
  const bool directory = sync.path == kDirectory;
  std::erase_if(pending_, [&](const FileOperation& operation) {
    const bool synced =
        directory ? changes_names(operation) : !changes_names(operation) && operation.file == sync.file;
    if (synced) perform(durable_, operation);
    return synced;
  });
}

// The first open of a file that was there before tells which inode it is.
void PowerCutReplay::bind(const FileOperation& open) {
  const auto name = present_.names.find(open.path);
  if (name == present_.names.end() || name->second == open.file) return;
  const std::uint64_t old = name->second;
  if (old < kFirstBaseFile) throw std::runtime_error("a file changed behind the recorder: " + open.path);
  for (Disk* disk : {&durable_, &present_}) {
    disk->files[open.file] = disk->files[old];
    for (auto& [path, file] : disk->names) {
      if (file == old) file = open.file;
    }
  }
  for (FileOperation& operation : pending_) {
    if (operation.file == old) operation.file = open.file;
  }
}

void PowerCutReplay::apply(const FileOperation& operation) {
  switch (operation.op) {
    case FileOp::kMark:
      return;
    case FileOp::kOpen:
      bind(operation);
      return;
    case FileOp::kSync:
      settle(operation);
      return;
    default:
      break;
  }
  FileOperation change = operation;
  if (change.op == FileOp::kRename) change.file = present_.names.at(change.path);
  perform(present_, change);
  pending_.push_back(std::move(change));
}

std::size_t PowerCutReplay::sectors_of_last() const {
  if (pending_.empty() || pending_.back().op != FileOp::kWrite) return 0;
  const FileOperation& last = pending_.back();
  return (last.offset + last.data.size() + kSector - 1) / kSector - last.offset / kSector;
}

std::vector<Cut> PowerCutReplay::cuts(std::mt19937& random) const {
  const std::size_t count = pending_.size();
  std::vector<Cut> all;
  const auto add = [&](auto&& keeps) {
    Cut cut;
    for (std::size_t i = 0; i < count; ++i) cut.kept.push_back(keeps(i));
    all.push_back(std::move(cut));
  };
  const std::vector<bool> everything(count, true);
  if (count <= kMostEnumerated) {
    for (unsigned subset = 1U << count; subset-- > 0;) {
      add([subset](std::size_t i) { return (subset >> i & 1U) != 0; });
    }
  } else {
    for (std::size_t end = count + 1; end-- > 0;) add([end](std::size_t i) { return i < end; });
    for (std::size_t only = 0; only < count; ++only) {
      add([only](std::size_t i) { return i == only; });
      add([only](std::size_t i) { return i != only; });
    }
    add([&](std::size_t i) { return changes_names(pending_[i]); });
    add([&](std::size_t i) { return !changes_names(pending_[i]); });
    for (std::size_t i = 0; i < kSampled; ++i) {
      add([&random](std::size_t) { return (random() & 1U) != 0; });
    }
  }
  for (std::size_t sectors = 1; sectors < sectors_of_last(); ++sectors) {
    all.push_back({everything, Cut::Last::kHead, sectors});
    all.push_back({everything, Cut::Last::kTail, sectors});
  }
  if (count > 0) all.push_back({everything, Cut::Last::kZeros, 0});
  return all;
}

Image PowerCutReplay::image(const Cut& cut) const {
  Disk disk = durable_;
  for (std::size_t i = 0; i < pending_.size(); ++i) {
    FileOperation operation = pending_[i];
    if (operation.op == FileOp::kWrite && cut.last == Cut::Last::kZeros) {
      std::string& content = disk.files[operation.file];
      content.resize(std::max<std::size_t>(content.size(), operation.offset + operation.data.size()));
      continue;
    }
    if (i + 1 == pending_.size() && (cut.last == Cut::Last::kHead || cut.last == Cut::Last::kTail)) {
      // Sectors of the file, not of the write: storage tears at its own boundaries.
      const std::size_t first = kSector - operation.offset % kSector;
      const std::size_t whole = cut.last == Cut::Last::kHead ? cut.sectors : sectors_of_last() - cut.sectors;
      const std::size_t at = std::min(operation.data.size(), first + (whole - 1) * kSector);
      if (cut.last == Cut::Last::kHead) {
        operation.data.resize(at);
      } else {
        operation.data.erase(0, at);
        operation.offset += at;
      }
    }
    if (cut.kept[i]) perform(disk, operation);
  }
  Image image;
  for (const auto& [path, file] : disk.names) image[path] = disk.files[file];
  return image;
}

std::string PowerCutReplay::describe(const Cut& cut) const {
  std::string text;
  for (std::size_t i = 0; i < pending_.size(); ++i) {
    std::string fate = cut.kept[i] ? "kept" : "lost";
    const bool last = i + 1 == pending_.size();
    if (cut.last == Cut::Last::kZeros && pending_[i].op == FileOp::kWrite) fate = "zeros";
    if (last && cut.last == Cut::Last::kHead) fate = "first " + std::to_string(cut.sectors) + " sectors";
    if (last && cut.last == Cut::Last::kTail) fate = "last " + std::to_string(cut.sectors) + " sectors";
    text += "    [" + fate + "] " + vexa_test::describe(pending_[i]) + "\n";
  }
  return text;
}

}  // namespace vexa_test
