// SPDX-License-Identifier: MIT
// What a process and its commands did to the files of the store, in the order in which they did
// it. The recorder is preloaded (file_recorder.cpp); power_cut_replay.h reads what it recorded.
#ifndef VEXADM_TESTS_FAULTS_FILE_RECORDER_H
#define VEXADM_TESTS_FAULTS_FILE_RECORDER_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vexa_test {

// What is recorded: everything below these. On a device each may be a file system of its own.
inline constexpr std::array<std::string_view, 4> kRecordedPlaces = {"/data", "/vexanv", "/vexanvbak",
                                                                    "/mnt/vendor/nvdata"};

// The place that a path is in; empty outside of them.
constexpr std::string_view recorded_place(std::string_view path) {
  for (const std::string_view place : kRecordedPlaces) {
    if (path.starts_with(place) && (path.size() == place.size() || path[place.size()] == '/')) return place;
  }
  return {};
}

enum class FileOp : std::uint32_t {
  kOpen,        // path leads to file
  kCreate,      // path, new and empty, leads to file
  kWrite,       // file, offset, data
  kTruncate,    // file, offset is the new length
  kSync,        // file, or the directory path
  kSyncPlace,   // syncfs: everything in the place of path
  kSyncAll,     // sync: everything
  kRename,      // path to other
  kUnlink,      // path
  kMark,        // data: what the program wants to be remembered at this point
  kUnmodelled,  // data: a call that changed path and that no replay knows; the test has to fail
};

// The head of one record; path, other and data follow without terminators.
struct FileRecord {
  FileOp op;
  std::uint32_t path_size;
  std::uint32_t other_size;
  std::uint32_t data_size;
  std::uint64_t file;  // inode number: of its place, and given again once the file is gone
  std::uint64_t offset;
};

// Exported by the recorder, found by name: null in a process that runs without it.
using StartRecorder = void (*)(const char* log);
using MarkRecording = void (*)(const char* text, std::size_t size);
// The process dies when it has recorded so many operations: it was killed right after the last.
using DieAfter = void (*)(unsigned operations);
inline constexpr char kDieAfter[] = "file_recorder_die_after";
inline constexpr char kStartRecorder[] = "file_recorder_start";
inline constexpr char kMarkRecording[] = "file_recorder_mark";

}  // namespace vexa_test

#endif
