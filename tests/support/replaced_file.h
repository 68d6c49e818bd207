// SPDX-License-Identifier: MIT
// A file of the kernel's, such as /proc/cmdline, with the words of a test in its place.
#ifndef VEXADM_TESTS_REPLACED_FILE_H
#define VEXADM_TESTS_REPLACED_FILE_H

#include <gtest/gtest.h>
#include <sys/mount.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <string>

namespace vexa_test {

// For its lifetime, and inside the private device root only: a bind mount covers the path.
class ReplacedFile {
 public:
  ReplacedFile(std::string path, const std::string& bytes)
      : path_(std::move(path)), own_("/tmp/replaced-" + path_.substr(path_.rfind('/') + 1)) {
    write(bytes);
    mounted_ = mount(own_.c_str(), path_.c_str(), nullptr, MS_BIND, nullptr) == 0;
    EXPECT_TRUE(mounted_) << path_ << ": " << std::strerror(errno);
  }
  ReplacedFile(const ReplacedFile&) = delete;
  ReplacedFile& operator=(const ReplacedFile&) = delete;
  ~ReplacedFile() {
    if (mounted_) umount2(path_.c_str(), MNT_DETACH);
  }

  void write(const std::string& bytes) const {
    std::ofstream stream(own_, std::ios::binary | std::ios::trunc);
    stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  }

 private:
  std::string path_;
  std::string own_;
  bool mounted_ = false;
};

}  // namespace vexa_test

#endif
