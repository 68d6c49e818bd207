// SPDX-License-Identifier: MIT
// The tests' own tools: what they report has to be right before anything else can be.
#include <gtest/gtest.h>
#include <unistd.h>
#include <vexadm/log.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "support/child.h"
#include "support/device_fixture.h"
#include "support/log_capture.h"

using vexa_test::ChildResult;
using vexa_test::DeviceTest;
using vexa_test::LogCapture;
using vexa_test::run_in_child;

TEST(Child, ReturningBodyExitsWithZeroAndBothStreamsAreCaptured) {
  const ChildResult result = run_in_child([] {
    std::fputs("to out", stdout);
    std::fputs("to err", stderr);
  });

  EXPECT_EQ(result.exit_code, 0);
  EXPECT_EQ(result.signal, 0);
  EXPECT_EQ(result.out, "to out");
  EXPECT_EQ(result.err, "to err");
  EXPECT_FALSE(result.timed_out);
}

TEST(Child, ExitCodeIsReported) {
  EXPECT_EQ(run_in_child([] { _exit(7); }).exit_code, 7);
}

TEST(Child, AbortIsReportedAsItsSignal) {
  const ChildResult result = run_in_child([] { std::abort(); });

  EXPECT_EQ(result.exit_code, -1);
  EXPECT_EQ(result.signal, SIGABRT);
}

TEST(Child, FaultIsReportedAsItsSignal) {
  EXPECT_EQ(run_in_child([] { std::raise(SIGSEGV); }).signal, SIGSEGV);
}

TEST(Child, FailedAssertionInTheBodyGivesExitCodeOne) {
  const ChildResult result = run_in_child([] { EXPECT_EQ(1, 2); });

  EXPECT_EQ(result.exit_code, 1);
}

TEST(Child, EndlessBodyIsKilledAfterTheTimeout) {
  const ChildResult result = run_in_child(
      [] {
        std::puts("before");
        std::fflush(stdout);
        for (;;) pause();
      },
      1);

  EXPECT_TRUE(result.timed_out);
  EXPECT_EQ(result.signal, SIGKILL);
  EXPECT_EQ(result.out, "before\n");
}

TEST(Child, MoreOutputThanAPipeHoldsArrivesWhole) {
  const ChildResult result = run_in_child([] {
    for (int i = 0; i < 300000; ++i) std::fputc('x', stdout);
  });

  EXPECT_EQ(result.out, std::string(300000, 'x'));
}

TEST(Child, GrandchildThatKeepsTheStreamsOpenIsNotWaitedFor) {
  const ChildResult result = run_in_child([] {
    if (fork() == 0) {
      sleep(15);
      _exit(0);
    }
    std::puts("done");
  });

  EXPECT_EQ(result.exit_code, 0);
  EXPECT_EQ(result.out, "done\n");
  EXPECT_FALSE(result.timed_out);
}

TEST(Capture, LineIsTakenApart) {
  LogCapture log;
  char buffer[4220] = {};

  vexa_log_printf(3, buffer, "vexa_some_call", 42, "value | is %d\n", 7);

  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_EQ(log.lines()[0].level, 3);
  EXPECT_EQ(log.lines()[0].function, "oem_some_call");
  EXPECT_EQ(log.lines()[0].line, 42);
  EXPECT_EQ(log.lines()[0].message, "value | is 7\n");
}

TEST(Capture, EveryTagIsMappedToItsLevelAndTheNullMarkerToMinusOne) {
  LogCapture log;
  char buffer[4220] = {};

  for (int level = -1; level <= 5; ++level) vexa_log_printf(level, buffer, "f", 1, "m");

  ASSERT_EQ(log.lines().size(), 7u);
  EXPECT_EQ(log.lines()[0].level, -1);
  for (int level = 0; level <= 4; ++level)
    EXPECT_EQ(log.lines()[static_cast<size_t>(level) + 1].level, level);
  EXPECT_EQ(log.lines()[6].level, -1);
}

TEST(Capture, EndOfCaptureRestoresTheLevel) {
  vexa_set_log_level(2);
  { LogCapture log; }

  EXPECT_EQ(vexa_get_log_level(), 2);
}

TEST(Capture, HasAndCountCompareWholeFields) {
  LogCapture log;
  char buffer[4220] = {};
  vexa_log_printf(1, buffer, "f", 1, "one");
  vexa_log_printf(1, buffer, "f", 1, "one");

  EXPECT_TRUE(log.has(1, "f", "one"));
  EXPECT_FALSE(log.has(1, "f", "on"));
  EXPECT_FALSE(log.has(2, "f", "one"));
  EXPECT_EQ(log.count("one"), 2u);
  log.clear();
  EXPECT_TRUE(log.messages().empty());
}

class DeviceFiles : public DeviceTest {};

TEST_F(DeviceFiles, BytesWrittenAreBytesRead) {
  make_dirs("/data/a/b");
  write_file("/data/a/b/file", std::string("x\0y\n", 4));

  EXPECT_TRUE(exists("/data/a/b/file"));
  EXPECT_FALSE(exists("/data/a/c"));
  EXPECT_EQ(read_file("/data/a/b/file"), std::string("x\0y\n", 4));
}
