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

class Examples : public vexa_test::NetworkTest, public ::testing::WithParamInterface<std::string> {};

TEST_P(Examples, SayWhatTheyShould) {
  if (IsSkipped()) return;
  std::ifstream file(std::string(EXPECTED) + "/" + GetParam() + ".txt");
  const std::vector<std::string> expected = lines_of(file);

  // Some need a peer or a prepared place; the script of the same name brings it.
  const std::string program = std::string(EXAMPLES) + "/" + GetParam();
  const std::string script = std::string(EXPECTED) + "/../run/" + GetParam() + ".sh";
  const std::string command = std::filesystem::exists(script) ? "sh " + script + " " + EXAMPLES : program;
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
