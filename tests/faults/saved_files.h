// SPDX-License-Identifier: MIT
// The files of the device, saved and put back between rounds.
#ifndef VEXADM_TESTS_FAULTS_SAVED_FILES_H
#define VEXADM_TESTS_FAULTS_SAVED_FILES_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <system_error>

namespace vexa_test {

inline constexpr const char* kDevicePlaces[] = {"/data", "/mnt/vendor/nvdata", "/vexanvbak"};

// Regular files only, by path. Opens the files directly: not for a process that has one of
// them open as a database.
class SavedFiles {
 public:
  static SavedFiles take() {
    SavedFiles saved;
    for (const char* place : kDevicePlaces) {
      for (const auto& entry : std::filesystem::recursive_directory_iterator(place)) {
        if (!entry.is_regular_file()) continue;
        std::ifstream stream(entry.path(), std::ios::binary);
        saved.files[entry.path()] = {std::istreambuf_iterator<char>(stream), {}};
      }
    }
    return saved;
  }

  static void clear() {
    for (const char* place : kDevicePlaces) {
      std::error_code error;
      for (const auto& entry : std::filesystem::directory_iterator(place)) {
        std::filesystem::remove_all(entry.path(), error);
        EXPECT_FALSE(error) << entry.path() << ": " << error.message();
      }
    }
  }

  void put_back() const {
    clear();
    for (const auto& [path, bytes] : files) {
      std::error_code ignored;
      std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
      const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
      EXPECT_EQ(write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size())) << path;
      close(fd);
    }
  }

  std::map<std::string, std::string> files;
};

}  // namespace vexa_test

#endif
