// SPDX-License-Identifier: MIT
#include "faults/power_cut_replay.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string_view>

namespace vexa_test {
namespace {

// Files that were there before the recording, until an open tells their inodes.
constexpr std::uint64_t kFirstBaseFile = std::uint64_t{1} << 62;

void put(std::string& content, std::size_t offset, std::string_view data) {
  if (content.size() < offset + data.size()) content.resize(offset + data.size());
  content.replace(offset, data.size(), data);
}

std::string_view directory_of(std::string_view path) { return path.substr(0, path.rfind('/')); }

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
    FileOperation operation{head.op, head.file, static_cast<std::size_t>(head.offset), {}, {}, {}};
    operation.path = take(head.path_size);
    operation.other = take(head.other_size);
    operation.data = take(head.data_size);
    if (operation.op == FileOp::kUnmodelled)
      throw std::runtime_error("no replay knows " + describe(operation));
    if (operation.op == FileOp::kRename && directory_of(operation.path) != directory_of(operation.other))
      throw std::runtime_error("no replay knows a rename between directories: " + describe(operation));
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
    case FileOp::kSyncPlace:
      return "sync the file system of " + path;
    case FileOp::kSyncAll:
      return "sync all";
    case FileOp::kRename:
      return "rename " + path + " to " + operation.other;
    case FileOp::kUnlink:
      return "unlink " + path;
    case FileOp::kMark:
      return "mark: " + operation.data;
    case FileOp::kUnmodelled:
      return operation.data + " " + path;
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
      put(disk.files[operation.file].edit(), operation.offset, operation.data);
      return;
    case FileOp::kTruncate:
      disk.files[operation.file].edit().resize(operation.offset);
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

bool PowerCutReplay::settles(const FileOperation& sync, const FileOperation& operation) {
  if (sync.op == FileOp::kSyncAll) return true;
  if (sync.op == FileOp::kSyncPlace) return recorded_place(operation.path) == recorded_place(sync.path);
  return changes_names(operation) ? directory_of(operation.path) == sync.path : operation.file == sync.file;
}

void PowerCutReplay::settle(const FileOperation& sync) {
  std::erase_if(pending_, [&](const FileOperation& operation) {
    const bool synced = settles(sync, operation);
    if (synced) perform(durable_, operation);
    return synced;
  });
}

std::uint64_t PowerCutReplay::file_of(const FileOperation& operation) {
  const Inode inode(recorded_place(operation.path), operation.file);
  bool is_new = operation.op == FileOp::kCreate;
  if (operation.op == FileOp::kOpen) {
    const auto name = present_.names.find(operation.path);
    is_new = name != present_.names.end() && name->second >= kFirstBaseFile;
  }
  if (is_new) files_.erase(inode);
  const auto [file, added] = files_.try_emplace(inode, next_file_);
  if (added) ++next_file_;
  return file->second;
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
  if (operation.op == FileOp::kMark) return;
  FileOperation change = operation;
  if (change.file != 0) change.file = file_of(operation);
  switch (change.op) {
    case FileOp::kOpen:
      bind(change);
      return;
    case FileOp::kSync:
    case FileOp::kSyncPlace:
    case FileOp::kSyncAll:
      settle(change);
      return;
    default:
      break;
  }
  if (change.op == FileOp::kRename) change.file = present_.names.at(change.path);
  perform(present_, change);
  pending_.push_back(std::move(change));
}

// Of the file, not of the write: storage tears at its own boundaries.
std::size_t PowerCutReplay::sectors(const FileOperation& write) {
  return (write.offset + write.data.size() + kSector - 1) / kSector - write.offset / kSector;
}

void PowerCutReplay::perform_sectors(Disk& disk, const FileOperation& write,
                                     const std::function<bool(std::size_t)>& keeps) {
  const std::string_view data = write.data;
  std::size_t from = 0;
  for (std::size_t sector = 0; from < data.size(); ++sector) {
    const std::size_t size = std::min(data.size() - from, kSector - (write.offset + from) % kSector);
    if (keeps(sector)) put(disk.files[write.file].edit(), write.offset + from, data.substr(from, size));
    from += size;
  }
}

void PowerCutReplay::only_grow(Disk& disk, const FileOperation& write, bool garbage) {
  std::string& bytes = disk.files[write.file].edit();
  const std::size_t before = bytes.size();
  if (before < write.offset + write.data.size()) bytes.resize(write.offset + write.data.size());
  if (!garbage) return;
  for (std::size_t i = before; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 167 + i / 251 + 13);
}

void PowerCutReplay::add_torn(std::vector<Cut>& all, std::mt19937& random) const {
  const std::vector<bool> everything(pending_.size(), true);
  const bool last_is_write = pending_.back().op == FileOp::kWrite;
  const auto count = last_is_write ? static_cast<unsigned>(sectors(pending_.back())) : 0U;
  for (unsigned sector = 1; sector < count; ++sector) {
    all.push_back({everything, Cut::Tear::kHead, sector});
    all.push_back({everything, Cut::Tear::kTail, sector});
  }
  all.push_back({everything, Cut::Tear::kZeros, 0});
  all.push_back({everything, Cut::Tear::kGarbage, 0});
  for (std::size_t i = 0; i < kScattered; ++i) {
    Cut cut{{}, Cut::Tear::kScattered, static_cast<unsigned>(random())};
    for (std::size_t k = 0; k < pending_.size(); ++k) cut.kept.push_back((random() & 3U) != 0);
    all.push_back(std::move(cut));
  }
}

std::vector<Cut> PowerCutReplay::cuts(std::mt19937& random) const {
  const std::size_t count = pending_.size();
  std::vector<Cut> all;
  const auto add = [&](auto&& keeps) {
    Cut cut;
    for (std::size_t i = 0; i < count; ++i) cut.kept.push_back(keeps(i));
    all.push_back(std::move(cut));
  };
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
  if (count > 0) add_torn(all, random);
  return all;
}

Image PowerCutReplay::image_of(const Disk& disk) {
  Image image;
  for (const auto& [path, file] : disk.names) image[path] = disk.files.at(file);
  return image;
}

Image PowerCutReplay::image(const Cut& cut) const {
  Disk disk = durable_;
  std::mt19937 bits(cut.number);
  for (std::size_t i = 0; i < pending_.size(); ++i) {
    const FileOperation& operation = pending_[i];
    if (!cut.kept[i]) continue;
    const bool torn = operation.op == FileOp::kWrite && cut.tear != Cut::Tear::kNone;
    const bool last = i + 1 == pending_.size();
    if (torn && (cut.tear == Cut::Tear::kZeros || cut.tear == Cut::Tear::kGarbage)) {
      only_grow(disk, operation, cut.tear == Cut::Tear::kGarbage);
    } else if (torn && cut.tear == Cut::Tear::kScattered) {
      perform_sectors(disk, operation, [&](std::size_t) { return (bits() & 1U) != 0; });
    } else if (torn && last) {
      const bool head = cut.tear == Cut::Tear::kHead;
      const std::size_t edge = head ? cut.number : sectors(operation) - cut.number;
      perform_sectors(disk, operation, [&](std::size_t sector) { return head == (sector < edge); });
    } else {
      perform(disk, operation);
    }
  }
  return image_of(disk);
}

std::string PowerCutReplay::describe(const Cut& cut) const {
  std::string text;
  for (std::size_t i = 0; i < pending_.size(); ++i) {
    std::string fate = cut.kept[i] ? "kept" : "lost";
    const bool last = i + 1 == pending_.size();
    if (cut.kept[i] && pending_[i].op == FileOp::kWrite) {
      if (cut.tear == Cut::Tear::kZeros) fate = "zeros";
      if (cut.tear == Cut::Tear::kGarbage) fate = "garbage";
      if (cut.tear == Cut::Tear::kScattered) fate = "some sectors";
      if (last && cut.tear == Cut::Tear::kHead) fate = "first " + std::to_string(cut.number) + " sectors";
      if (last && cut.tear == Cut::Tear::kTail) fate = "last " + std::to_string(cut.number) + " sectors";
    }
    text += "    [" + fate + "] " + vexa_test::describe(pending_[i]) + "\n";
  }
  return text;
}

}  // namespace vexa_test
