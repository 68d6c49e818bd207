// SPDX-License-Identifier: MIT
// Programs that outlast the two seconds for which one may be silent.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vexadm/vexadm.h>

#include <chrono>
#include <csignal>
#include <string>

#include "support/child.h"
#include "support/device_fixture.h"
#include "support/log_text.h"

namespace {

using vexa_test::ChildResult;
using vexa_test::log_is;
using vexa_test::LogCapture;
using vexa_test::run_in_child;
using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

const std::string kProgram = "/tmp/x/bin/program";
const std::string kName = "oem_ds_exec_internal|";
const std::string kPipe = "0 " + kName + "ret=0\n";
const std::string kSpawned =
    "1 " + kName + "[cpid:<any>] Spawned child PID(<any>) command:\"" + kProgram + "\"\n";

class SilentProgram : public vexa_test::DeviceTest {
 protected:
  static void script(const std::string& text) {
    make_dirs("/tmp/x/bin");
    write_file(kProgram, "#!/bin/sh\n" + text + "\n");
    EXPECT_EQ(chmod(kProgram.c_str(), 0755), 0);
  }
};

int32_t run() { return vexa_ds_system_call3(kProgram.c_str(), 0, nullptr, 0, 0); }

// As a daemon does: nothing is left by which it could be seen, so that only its end is waited for.
TEST_F(SilentProgram, OneThatClosesAllItHasInheritedIsWaitedForWithoutLimit) {
  const ChildResult child = run_in_child([] {
    ASSERT_EQ(close_range(3, ~0U, 0), 0);  // what ctest leaves open: a shell names ten descriptors only
    script("exec > /dev/null 2>&1 3>&- 4>&- 5>&- 6>&- 7>&- 8>&- 9>&-; sleep 2.6; exit 7");
    LogCapture log;
    const auto start = Clock::now();
    EXPECT_EQ(run(), -1);
    EXPECT_GE(Clock::now() - start, 2600ms);
    EXPECT_TRUE(log_is(
        log, {kPipe, kPipe, kSpawned, "1 " + kName + "[cpid:<any>] Process exited normally with rc=7\n"}));
  });
  EXPECT_EQ(child.exit_code, 0) << child.out;
}

// A host that ignores its children has no zombie that keeps the number.
TEST_F(SilentProgram, OneThatHasEndedAndIsGoneCannotBeKilled) {
  const ChildResult child = run_in_child([] {
    std::signal(SIGCHLD, SIG_IGN);
    script("sleep 3 > /dev/null 2>&1 & exit 0");
    LogCapture log;
    const auto start = Clock::now();
    EXPECT_EQ(run(), -1);
    EXPECT_GE(Clock::now() - start, 2s);
    EXPECT_TRUE(log_is(
        log, {kPipe, kPipe, kSpawned,
              "1 " + kName + "[cpid:<any>] ds_exec tried kill(); failed with error 3 - No such process\n"}));
  });
  EXPECT_EQ(child.exit_code, 0) << child.out;
}

}  // namespace
