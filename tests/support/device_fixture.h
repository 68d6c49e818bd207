// SPDX-License-Identifier: MIT
// Tests that use the device's fixed paths (/data and its like).
#ifndef VEXADM_TESTS_DEVICE_FIXTURE_H
#define VEXADM_TESTS_DEVICE_FIXTURE_H

#include <gtest/gtest.h>

#include <string>

namespace vexa_test {

// Skips the test with a reason outside a private device root, so that it can never touch the
// /data of the machine it runs on. With CI=true it fails instead: a build server that silently
// tests nothing is worse than one that is red.
class DeviceTest : public ::testing::Test {
 protected:
  void SetUp() override;

  static bool exists(const std::string& path);
  static std::string read_file(const std::string& path);
  static void write_file(const std::string& path, const std::string& bytes);
  static void make_dirs(const std::string& path);
};

}  // namespace vexa_test

#endif
