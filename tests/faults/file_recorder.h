// SPDX-License-Identifier: MIT
// What a process did to the files below /data, in the order in which it did it. The recorder is
// preloaded (file_recorder.cpp); power_cut_replay.h reads what it has recorded.
#ifndef VEXADM_TESTS_FAULTS_FILE_RECORDER_H
#define VEXADM_TESTS_FAULTS_FILE_RECORDER_H

#include <cstddef>
#include <cstdint>

namespace vexa_test {

enum class FileOp : std::uint32_t {
  kOpen,      // path leads to file
  kCreate,    // path, new and empty, leads to file
  kWrite,     // file, offset, data
  kTruncate,  // file, offset is the new length
  kSync,      // file, or a directory under its path
  kRename,    // path to other
  kUnlink,    // path
  kMark,      // data: what the program wants to be remembered at this point
};

// The head of one record; path, other and data follow without terminators.
struct FileRecord {
  FileOp op;
  std::uint32_t path_size;
  std::uint32_t other_size;
  std::uint32_t data_size;
  std::uint64_t file;  // inode number: unique among the files of one recording on tmpfs
  std::uint64_t offset;
};

// Exported by the recorder, found by name: null in a process that runs without it.
using StartRecorder = void (*)(const char* log);
using MarkRecording = void (*)(const char* text, std::size_t size);
inline constexpr char kStartRecorder[] = "file_recorder_start";
inline constexpr char kMarkRecording[] = "file_recorder_mark";

}  // namespace vexa_test

#endif
