// SPDX-License-Identifier: MIT
#ifndef VEXADM_TESTS_FAULTS_POWER_CUT_FIXTURE_H
#define VEXADM_TESTS_FAULTS_POWER_CUT_FIXTURE_H

#include <gtest/gtest.h>

#include "faults/power_cut_program.h"
#include "support/device_fixture.h"

namespace vexa_test {

// Tests that record: power_cut_test preloads the recorder.
class PowerCut : public DeviceTest {
 protected:
  void SetUp() override {
    DeviceTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the recorder is preloaded, which a sanitizer's run-time library does not bear";
#endif
    ASSERT_NE(recorder<StartRecorder>(kStartRecorder), nullptr);
  }
};

}  // namespace vexa_test

#endif
