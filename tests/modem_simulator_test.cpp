// SPDX-License-Identifier: MIT
// What the modem simulator says to those who call it wrongly. What it answers is in at_command_test.
#include <gmock/gmock.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "support/child.h"
#include "support/device_fixture.h"

namespace {

using ::testing::StartsWith;
using vexa_test::ChildResult;

ChildResult simulator(std::vector<std::string> options) {
  return vexa_test::run_in_child(
      [&] {
        options.insert(options.begin(), MODEM_SIMULATOR);
        std::vector<char*> arguments;
        for (std::string& option : options) arguments.push_back(option.data());
        arguments.push_back(nullptr);
        execv(MODEM_SIMULATOR, arguments.data());
        _exit(127);
      },
      10);
}

struct Mistake {
  const char* name;
  std::string text;
  std::string message;  // behind the program's name
};

class ModemRule : public vexa_test::DeviceTest, public ::testing::WithParamInterface<Mistake> {};

TEST_P(ModemRule, ThatIsWrongEndsTheSimulatorAtItsStart) {
  if (IsSkipped()) return;
  write_file("/tmp/rules", "AT+GOOD  fill:3 wait:0 silent | off:E on:E OK\n" + GetParam().text + "\n");
  const ChildResult child = simulator({"--port", "0", "--rules", "/tmp/rules"});
  EXPECT_EQ(child.exit_code, 1);
  EXPECT_EQ(child.err, "modem_simulator: " + GetParam().message + "\n");
  EXPECT_EQ(child.out, "");
}

INSTANTIATE_TEST_SUITE_P(
    Mistakes, ModemRule,
    ::testing::Values(
        Mistake{"Word", "AT+X  OK okay", "AT+X: unknown word okay"},
        Mistake{"WordInSmallLetters", "AT+X  ok", "AT+X: unknown word ok"},
        Mistake{"Switch", "AT+X  off:Q OK", "AT+X: unknown word off:Q"},
        Mistake{"WordBehindAText", "AT+X  \"a\"b", "AT+X: unknown word b"},
        Mistake{"TextWithoutItsEnd", "AT+X  \"a", "a text without its second quote: \"a"},
        Mistake{"NegativeFill", "AT+X  fill:-1", "fill:-1: not a number from 0 to 65507"},
        Mistake{"FillOfNoNumber", "AT+X  fill:x", "fill:x: not a number from 0 to 65507"},
        Mistake{"FillWithout", "AT+X  fill:", "fill:: not a number from 0 to 65507"},
        Mistake{"FillAndMore", "AT+X  fill:3x", "fill:3x: not a number from 0 to 65507"},
        Mistake{"LargeFill", "AT+X  fill:65508", "fill:65508: not a number from 0 to 65507"},
        Mistake{"HugeFill", "AT+X  fill:99999999999", "fill:99999999999: not a number from 0 to 65507"},
        Mistake{"NegativeWait", "AT+X  wait:-1", "wait:-1: not a number from 0 to 3600000"},
        Mistake{"WaitOfNoNumber", "AT+X  wait:soon", "wait:soon: not a number from 0 to 3600000"},
        Mistake{"LongWait", "AT+X  wait:3600001", "wait:3600001: not a number from 0 to 3600000"}),
    [](const auto& tested) { return tested.param.name; });

class ModemPort : public ::testing::TestWithParam<Mistake> {};

TEST_P(ModemPort, ThatCannotBeIsRefused) {
  const ChildResult child = simulator({"--port", GetParam().text});
  EXPECT_EQ(child.exit_code, 1);
  EXPECT_EQ(child.err, "modem_simulator: --port " + GetParam().text + ": not a number from 0 to 65535\n");
  EXPECT_EQ(child.out, "");
}

INSTANTIATE_TEST_SUITE_P(Mistakes, ModemPort,
                         ::testing::Values(Mistake{"Negative", "-1", ""}, Mistake{"NoNumber", "http", ""},
                                           Mistake{"Empty", "", ""}, Mistake{"AndMore", "5555x", ""},
                                           Mistake{"Large", "65536", ""}, Mistake{"Huge", "4294972851", ""}),
                         [](const auto& tested) { return tested.param.name; });

TEST(ModemOption, ThatIsUnknownIsRefused) {
  for (const char* option : {"--echo", "--port", "--rules", "5555"}) {
    const ChildResult child = simulator({option});
    EXPECT_EQ(child.exit_code, 2) << option;
    EXPECT_EQ(child.err, "modem_simulator: unknown option; --help says which there are\n") << option;
  }
}

TEST(ModemOption, RulesThatCannotBeReadAreRefused) {
  const ChildResult child = simulator({"--rules", "/tmp/missing"});
  EXPECT_EQ(child.exit_code, 1);
  EXPECT_EQ(child.err, "modem_simulator: /tmp/missing cannot be read\n");
}

TEST(ModemOption, HelpIsPrinted) {
  const ChildResult child = simulator({"--help"});
  EXPECT_EQ(child.exit_code, 0);
  EXPECT_THAT(child.out, StartsWith("usage: modem_simulator [OPTION]...\n"));
  EXPECT_EQ(child.err, "");
}

}  // namespace
