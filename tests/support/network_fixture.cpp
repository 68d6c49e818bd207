// SPDX-License-Identifier: MIT
#include "support/network_fixture.h"

#include <cstdlib>
#include <string_view>

#include "support/own_network.h"

namespace vexa_test {

void NetworkTest::SetUp() {
  DeviceTest::SetUp();
  if (IsSkipped() || HasFatalFailure()) return;
  const std::string reason = enter_own_network();
  if (reason.empty()) return;
  const char* const ci = std::getenv("CI");
  if (ci != nullptr && std::string_view(ci) == "true") FAIL() << reason;
  GTEST_SKIP() << reason;
}

void NetworkTest::shell(const std::string& command) { ASSERT_EQ(std::system(command.c_str()), 0) << command; }

}  // namespace vexa_test
