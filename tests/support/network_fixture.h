// SPDX-License-Identifier: MIT
// Tests that talk to the kernel's network or to a port of the loopback interface.
#ifndef VEXADM_TESTS_NETWORK_FIXTURE_H
#define VEXADM_TESTS_NETWORK_FIXTURE_H

#include "support/device_fixture.h"

namespace vexa_test {

// Gives the test's process a network of its own, with a loopback interface that is up. Skips with
// a reason where that is refused; with CI=true it fails instead.
class NetworkTest : public DeviceTest {
 protected:
  void SetUp() override;

  // Runs a command line such as "ip link add a type dummy"; a failure fails the test.
  static void shell(const std::string& command);
};

}  // namespace vexa_test

#endif
