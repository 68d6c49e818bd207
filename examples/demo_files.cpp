// SPDX-License-Identifier: MIT
#include "demo_files.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

namespace demo {

std::string read_file(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << file.rdbuf();
  return bytes.str();
}

bool write_file(const std::string& path, std::string_view bytes) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  file.close();
  return !file.fail();
}

bool same_content(const std::string& one, const std::string& other) {
  const std::string bytes = read_file(one);
  return !bytes.empty() && bytes == read_file(other);
}

std::vector<std::string> names_in(const std::string& directory) {
  std::vector<std::string> names;
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator(directory, ignored)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string contents_of(const std::string& directory) {
  std::string shown;
  for (const std::string& name : names_in(directory)) {
    struct stat status = {};
    if (stat((directory + "/" + name).c_str(), &status) != 0) continue;
    if (!shown.empty()) shown += ", ";
    shown += name + " (" + std::to_string((status.st_size + 1023) / 1024) + " KiB)";
  }
  return shown.empty() ? "nothing" : shown;
}

bool provision_factory_copy() {
  std::error_code ignored;
  std::filesystem::create_directories(std::filesystem::path(kFactory).parent_path(), ignored);
  return write_file(kFactory, read_file(kPrimary)) && same_content(kPrimary, kFactory);
}

bool damage(const std::string& path) {
  constexpr std::size_t kHeaderSize = 100;
  constexpr std::array<char, 8> kNoTree = {};
  std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
  file.seekp(kHeaderSize);
  file.write(kNoTree.data(), kNoTree.size());
  file.close();
  return !file.fail();
}

}  // namespace demo
