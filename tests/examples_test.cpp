// SPDX-License-Identifier: MIT
// Each example says what the file of its name in examples/expected says; "<any>" stands for any
// text of a line.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "support/emulated.h"
#include "support/log_text.h"
#include "support/network_fixture.h"

namespace {

std::vector<std::string> example_names() {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(EXPECTED)) {
    names.push_back(entry.path().stem().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<std::string> lines_of(std::istream& stream) {
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

// In place of an emulated example, which cannot be started as it is. The process has the name of the
// example: there is one that looks for it.
constexpr char kStartEmulated[] = R"sh(#!/bin/sh
name=${0##*/}
ln -sf "$(command -v "${VEXA_EMULATOR%% *}")" "/tmp/emulated/$name"
exec "/tmp/emulated/$name" ${VEXA_EMULATOR#* } ")sh" EXAMPLES R"sh(/$name" "$@"
)sh";

// Where the scripts find the examples, and the modem simulator in the directory above.
std::string examples_directory() {
  if (!vexa_test::is_emulated()) return EXAMPLES;
  namespace fs = std::filesystem;
  const fs::path directory = "/tmp/emulated/examples";
  fs::create_directories(directory);
  for (const std::string& name : example_names()) {
    std::ofstream(directory / name) << kStartEmulated;
    fs::permissions(directory / name, fs::perms::owner_all);
  }
  fs::create_symlink(EXAMPLES "/../modem_simulator", directory / "../modem_simulator");
  return directory;
}

class Examples : public vexa_test::NetworkTest, public ::testing::WithParamInterface<std::string> {};

TEST_P(Examples, SayWhatTheyShould) {
  if (IsSkipped()) return;
  std::ifstream file(std::string(EXPECTED) + "/" + GetParam() + ".txt");
  const std::vector<std::string> expected = lines_of(file);

  // Some need a peer or a prepared place; the script of the same name brings it.
  const std::string examples = examples_directory();
  const std::string program = examples + "/" + GetParam();
  const std::string script = std::string(EXPECTED) + "/../run/" + GetParam() + ".sh";
  const std::string command = std::filesystem::exists(script) ? "sh " + script + " " + examples : program;
  FILE* const pipe = popen((command + " > /tmp/output").c_str(), "re");
  ASSERT_NE(pipe, nullptr);
  EXPECT_EQ(pclose(pipe), 0) << command;
  std::ifstream output("/tmp/output");
  const std::vector<std::string> said = lines_of(output);

  ASSERT_EQ(said.size(), expected.size()) << ::testing::PrintToString(said);
  for (std::size_t i = 0; i < said.size(); ++i) {
    EXPECT_TRUE(vexa_test::log_matches(said[i], expected[i])) << said[i] << "\nis not\n" << expected[i];
  }
}

INSTANTIATE_TEST_SUITE_P(All, Examples, ::testing::ValuesIn(example_names()),
                         [](const auto& name) { return name.param; });

}  // namespace
