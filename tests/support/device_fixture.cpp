// SPDX-License-Identifier: MIT
#include "support/device_fixture.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string_view>

namespace vexa_test {
namespace {

std::string_view environment(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string_view() : std::string_view(value);
}

}  // namespace

void DeviceTest::SetUp() {
  if (environment("VEXA_DEVICE_ROOT") == "1") return;
  std::string reason(environment("VEXA_DEVICE_ROOT_MISSING"));
  if (reason.empty()) reason = "started without the device_root launcher (run it through ctest)";
  if (environment("CI") == "true") FAIL() << "no private device root: " << reason;
  GTEST_SKIP() << "no private device root: " << reason;
}

bool DeviceTest::exists(const std::string& path) {
  std::error_code ignored;
  return std::filesystem::exists(std::filesystem::symlink_status(path, ignored));
}

std::string DeviceTest::read_file(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  EXPECT_TRUE(stream.is_open()) << "cannot read " << path;
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

void DeviceTest::write_file(const std::string& path, const std::string& bytes) {
  std::ofstream stream(path, std::ios::binary | std::ios::trunc);
  stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  stream.close();
  EXPECT_TRUE(stream.good()) << "cannot write " << path;
}

void DeviceTest::make_dirs(const std::string& path) {
  std::error_code error;
  std::filesystem::create_directories(path, error);
  EXPECT_FALSE(error) << "cannot make " << path << ": " << error.message();
}

}  // namespace vexa_test
