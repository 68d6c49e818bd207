// SPDX-License-Identifier: MIT
// A recorded run: what the files were before, what was done to them, what was promised. And how
// one is made.
#ifndef VEXADM_TESTS_FAULTS_POWER_CUT_STAGE_H
#define VEXADM_TESTS_FAULTS_POWER_CUT_STAGE_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "faults/power_cut_items.h"
#include "faults/power_cut_program.h"
#include "faults/power_cut_replay.h"

namespace vexa_test {

inline constexpr char kRotation[] = "/mnt/vendor/nvdata";
inline constexpr char kFactory[] = "/vexanvbak/data/config.db";
inline constexpr std::array<const char*, 5> kDirectories = {"/data", "/vexanv/store", "/vexanvbak/second",
                                                            "/vexanvbak/data", kRotation};

inline Content content_of(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  return Content({std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()});
}

inline void put_file(const std::string& path, const std::string& bytes) {
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  const ssize_t written = ::write(fd, bytes.data(), bytes.size());
  close(fd);
  if (written != static_cast<ssize_t>(bytes.size())) std::abort();
}

inline void put_in_place(const Image& image) {
  for (const char* directory : kDirectories) {
    std::filesystem::create_directories(directory);
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
      std::filesystem::remove_all(entry.path());
    }
  }
  for (const auto& [path, content] : image) put_file(path, content.bytes());
}

inline Image image_in_place() {
  Image image;
  for (const char* directory : kDirectories) {
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
      image[entry.path()] = content_of(entry.path());
    }
  }
  return image;
}

struct Stage {
  StoreArea area;
  Image base;
  Promise promise;
  std::vector<FileOperation> operations;
  bool every_image = false;  // it has few, and a sample would miss what matters
  // Dated copies that no cut may cost, by their content.
  std::vector<Content> keeps_copies;
  // A clean that was asked for a copy: this primary is in place, or among the dated copies.
  bool saves_primary = false;
  Content primary;

  bool has_primary_still(const Image& image) const {
    const auto found = image.find(area.primary());
    return found != image.end() && found->second == primary;
  }
  // What was promised of an image. A clean that has not reached the primary has taken nothing.
  Promise promised(const Image& image, Promise so_far) const {
    if (has_primary_still(image)) so_far.cleaning = false;
    return so_far;
  }
};

// Programs run one after the other; what they do is recorded.
class Recording {
 public:
  explicit Recording(StoreArea area = {}) : replay_({}) {
    store_area = area;
    put_in_place({});
    stage_.area = std::move(area);
  }
  // Goes on where a cut has left a stage.
  Recording(const Stage& stage, const Image& image, const Promise& promise) : replay_(image), stage_(stage) {
    store_area = stage.area;
    put_in_place(image);
    stage_.base = image;
    stage_.promise = promise_ = stage.promised(image, promise);
    stage_.operations.clear();
    stage_.every_image = false;
    stage_.saves_primary = false;
    if (stage.saves_primary && !stage.has_primary_still(image)) stage_.keeps_copies.push_back(stage.primary);
  }

  // A program that is killed after so many operations, or never.
  void run(const std::function<void(std::vector<std::string>&)>& program, unsigned killed_after = 0) {
    constexpr char kLog[] = "/tmp/power-cut-recording";
    unlink(kLog);
    const Report report = in_process([&](std::vector<std::string>& lines) {
      recorder<StartRecorder>(kStartRecorder)(kLog);
      recorder<DieAfter>(kDieAfter)(killed_after);
      program(lines);
    });
    EXPECT_EQ(report.fault, killed_after == 0 ? "" : "ends with status 9");
    EXPECT_EQ(report.lines, std::vector<std::string>());
    for (FileOperation& operation : read_recording(kLog)) {
      if (operation.op == FileOp::kMark) promise_.take(operation.data);
      replay_.apply(operation);
      stage_.operations.push_back(std::move(operation));
    }
    // Else nothing that follows would mean anything.
    EXPECT_TRUE(replay_.present() == image_in_place()) << "something changed behind the recorder";
  }
  void write(const std::function<void(Writer&)>& program, unsigned killed_after = 0) {
    const auto body = [&](std::vector<std::string>& lines) {
      Writer writer(lines);
      program(writer);
    };
    run(body, killed_after);
  }

  // Everything so far is what the stage begins with, on storage.
  void begin_stage() {
    stage_.base = image_in_place();
    stage_.promise = promise_;
    stage_.operations.clear();
    stage_.primary = content_of(stage_.area.primary());
    replay_ = PowerCutReplay(stage_.base);
  }
  Stage& stage() { return stage_; }
  Promise& promise() { return promise_; }

 private:
  PowerCutReplay replay_;
  Promise promise_;
  Stage stage_;
};

}  // namespace vexa_test

#endif
