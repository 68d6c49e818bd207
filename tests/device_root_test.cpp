// SPDX-License-Identifier: MIT
// The launcher that gives every test a device of its own, in its three situations.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "support/device_fixture.h"
#include "support/emulated.h"

namespace {

struct Outcome {
  int code;  // 128 and more: ended by a signal
  std::string output;
};

Outcome shell(const std::string& command) {
  FILE* stream = popen((command + " 2>&1").c_str(), "r");
  Outcome run = {-1, ""};
  if (stream == nullptr) return run;
  std::array<char, 4096> chunk;
  while (const std::size_t got = std::fread(chunk.data(), 1, chunk.size(), stream)) {
    run.output.append(chunk.data(), got);
  }
  const int status = pclose(stream);
  run.code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return run;
}

// Starts a script in a device root inside this test's own.
Outcome launch(const std::string& script, const std::string& options = "") {
  return shell(std::string(DEVICE_ROOT_PROGRAM) + " --keep " + BUILD_DIRECTORY + " " + options +
               " -- sh -c '" + script + "'");
}

// Runs one test of this program without namespaces, by its filter.
Outcome without_namespaces(const std::string& ci, const std::string& filter) {
  return shell("CI=" + ci + " VEXA_DEVICE_ROOT_FORCE_NONE=1 " + DEVICE_ROOT_PROGRAM + " -- " +
               vexa_test::emulator() + " " + vexa_test::own_program() + " --gtest_filter=" + filter);
}

class DeviceRoot : public vexa_test::DeviceTest {};

}  // namespace

TEST_F(DeviceRoot, DevicePathsStartEmpty) {
  write_file("/data/outside", "x");
  write_file("/vexanv/outside", "x");
  write_file("/vexanvbak/outside", "x");
  write_file("/mnt/vendor/nvdata/outside", "x");
  write_file("/tmp/outside", "x");

  const Outcome run = launch("find /data /vexanv /vexanvbak /mnt /tmp -name outside; echo listed");

  EXPECT_EQ(run.output, "listed\n");
}

TEST_F(DeviceRoot, NothingWrittenInsideShowsOutside) {
  const Outcome run = launch(
      "for d in /data /vexanv /vexanvbak /mnt/vendor/nvdata /tmp; do echo x > $d/inside || exit 9; done");

  EXPECT_EQ(run.code, 0) << run.output;
  for (const char* place : {"/data", "/vexanv", "/vexanvbak", "/mnt/vendor/nvdata", "/tmp"}) {
    EXPECT_FALSE(exists(std::string(place) + "/inside")) << place;
  }
}

TEST_F(DeviceRoot, TheRestOfTheMachineIsThere) {
  const Outcome run =
      launch("test -r /proc/self/comm && test -c /dev/null && test -x /bin/sh && test -d /usr/lib");

  EXPECT_EQ(run.code, 0) << run.output;
}

TEST_F(DeviceRoot, TemporaryDirectoryIsOpenToAll) { EXPECT_EQ(launch("stat -c %a /tmp").output, "1777\n"); }

TEST_F(DeviceRoot, KeptDirectoryStaysVisibleBelowAHiddenPlace) {
  make_dirs("/tmp/kept");
  write_file("/tmp/kept/file", "x");

  const Outcome run = launch("cat /tmp/kept/file; echo y > /tmp/kept/new", "--keep /tmp/kept");

  EXPECT_EQ(run.output, "x");
  EXPECT_EQ(read_file("/tmp/kept/new"), "y\n");
}

TEST_F(DeviceRoot, KeepingAPlaceThatMustBeEmptyIsRefused) {
  const Outcome run = launch("echo \"$VEXA_DEVICE_ROOT:$VEXA_DEVICE_ROOT_MISSING\"", "--keep /mnt/vendor");

  EXPECT_EQ(run.output, ":--keep /mnt/vendor would show a device path\n");
}

TEST_F(DeviceRoot, WorkingDirectoryIsKeptWhereItExistsInside) {
  make_dirs("/tmp/elsewhere");

  EXPECT_EQ(shell(std::string("cd /usr/lib && ") + DEVICE_ROOT_PROGRAM + " -- pwd").output, "/usr/lib\n");
  EXPECT_EQ(shell(std::string("cd /tmp/elsewhere && ") + DEVICE_ROOT_PROGRAM + " -- pwd").output, "/\n");
}

TEST_F(DeviceRoot, OwnNetworkHasALoopbackInterfaceAndNothingElse) {
  const Outcome run =
      shell(std::string(DEVICE_ROOT_PROGRAM) +
            " --own-network -- sh -c 'echo $VEXA_OWN_NETWORK; tail -n +3 /proc/net/dev | wc -l;"
            " wc -l < /proc/net/if_inet6'");

  EXPECT_EQ(run.output, "1\n1\n1\n");  // the address is there because the interface is up
}

TEST_F(DeviceRoot, OwnNetworkThatIsRefusedIsSaid) {
  const Outcome run = shell(std::string("VEXA_DEVICE_ROOT_FORCE_NONE=1 ") + DEVICE_ROOT_PROGRAM +
                            " --own-network -- sh -c 'echo $VEXA_OWN_NETWORK:$VEXA_OWN_NETWORK_MISSING'");

  EXPECT_EQ(run.output, ":VEXA_DEVICE_ROOT_FORCE_NONE is set\n");
}

TEST_F(DeviceRoot, ExitCodeOfTheCommandIsHandedOn) {
  EXPECT_EQ(launch("exit 7").code, 7);
  EXPECT_EQ(shell(std::string(DEVICE_ROOT_PROGRAM) + " -- /no/such/program").code, 127);
  EXPECT_EQ(shell(DEVICE_ROOT_PROGRAM).code, 2);
}

// The situation of root; the launcher has made this test's process count as root.
TEST_F(DeviceRoot, RootGetsAMountNamespace) {
  const Outcome run = launch("id -u; echo \"$VEXA_DEVICE_ROOT:$VEXA_DEVICE_ROOT_MISSING\"");

  EXPECT_EQ(run.output, "0\n1:\n");
}

TEST_F(DeviceRoot, OrdinaryUserGetsAUserNamespaceInWhichHeCountsAsRoot) {
  const std::string as_nobody = "setpriv --reuid 65534 --regid 65534 --clear-groups -- ";
  // The machine's user may be an ordinary one already, or the build tree closed to others.
  if (shell(as_nobody + "test -x " + DEVICE_ROOT_PROGRAM).code != 0) {
    GTEST_SKIP() << "cannot start the launcher as another user";
  }
  if (shell(as_nobody + "unshare -Urm true").code != 0) GTEST_SKIP() << "no user namespaces here";

  const Outcome run =
      shell(as_nobody + DEVICE_ROOT_PROGRAM + " --keep " + BUILD_DIRECTORY +
            " -- sh -c 'id -u; echo \"$VEXA_DEVICE_ROOT:$VEXA_DEVICE_ROOT_MISSING\"; echo x > "
            "/data/inside && cat /data/inside'");

  EXPECT_EQ(run.output, "0\n1:\nx\n");
  EXPECT_FALSE(exists("/data/inside"));
}

TEST_F(DeviceRoot, WithoutNamespacesTheCommandStillRunsAndLearnsTheReason) {
  const Outcome run = shell(std::string("VEXA_DEVICE_ROOT_FORCE_NONE=1 ") + DEVICE_ROOT_PROGRAM +
                            " -- sh -c 'echo \"$VEXA_DEVICE_ROOT:$VEXA_DEVICE_ROOT_MISSING\"'");

  EXPECT_EQ(run.code, 0);
  EXPECT_EQ(run.output, ":VEXA_DEVICE_ROOT_FORCE_NONE is set\n");
}

// A daemon does not look at the variables: it would write to the machine's own /data.
TEST_F(DeviceRoot, ARequiredRootThatIsRefusedStartsNothing) {
  const Outcome run = shell(std::string("VEXA_DEVICE_ROOT_FORCE_NONE=1 ") + DEVICE_ROOT_PROGRAM +
                            " --required -- touch /data/started");

  EXPECT_EQ(run.code, 1);
  EXPECT_EQ(run.output,
            "device_root: touch is not started, as it would use this machine's own /data: "
            "VEXA_DEVICE_ROOT_FORCE_NONE is set\n");
  EXPECT_FALSE(exists("/data/started"));
}

TEST_F(DeviceRoot, ARequiredNetworkThatIsRefusedStartsNothing) {
  // Of the user namespace that unshare makes, with which it goes.
  const std::string limit = "unshare -Ur sh -c 'echo 0 > /proc/sys/user/max_net_namespaces";
  if (shell(limit + "'").code != 0) GTEST_SKIP() << "no user namespace with limits of its own here";

  const Outcome run =
      shell(limit + " && " + DEVICE_ROOT_PROGRAM + " --required --own-network -- echo started'");

  EXPECT_EQ(run.code, 1);
  EXPECT_EQ(run.output,
            "device_root: echo is not started, as it would use this machine's own network: "
            "no network namespace: No space left on device\n");
}

TEST_F(DeviceRoot, ARequiredRootThatIsThereRunsTheCommandWhereverTheOptionStands) {
  const Outcome after = launch("echo \"$VEXA_DEVICE_ROOT\"; exit 7", "--required");
  EXPECT_EQ(after.code, 7);
  EXPECT_EQ(after.output, "1\n");

  const Outcome before = shell(std::string(DEVICE_ROOT_PROGRAM) + " --required --own-network --keep " +
                               BUILD_DIRECTORY + " -- sh -c 'echo $VEXA_DEVICE_ROOT$VEXA_OWN_NETWORK'");
  EXPECT_EQ(before.output, "11\n");
}

TEST_F(DeviceRoot, WithoutNamespacesADeviceTestIsSkippedWithTheReason) {
  const Outcome run = without_namespaces("", "DeviceRoot.TemporaryDirectoryIsOpenToAll");

  EXPECT_EQ(run.code, 0);
  EXPECT_NE(run.output.find("[  SKIPPED ]"), std::string::npos) << run.output;
  EXPECT_NE(run.output.find("no private device root: VEXA_DEVICE_ROOT_FORCE_NONE is set"), std::string::npos)
      << run.output;
}

TEST_F(DeviceRoot, WithoutNamespacesADeviceTestFailsOnABuildServer) {
  const Outcome run = without_namespaces("true", "DeviceRoot.TemporaryDirectoryIsOpenToAll");

  EXPECT_EQ(run.code, 1);
  EXPECT_NE(run.output.find("no private device root: VEXA_DEVICE_ROOT_FORCE_NONE is set"), std::string::npos)
      << run.output;
}
