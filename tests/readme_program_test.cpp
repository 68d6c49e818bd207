// SPDX-License-Identifier: MIT
// The program that README.md shows is taken by people as it stands.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <vexadm/vexadm.h>

#include <cstdio>
#include <string>

#include "support/device_fixture.h"
#include "support/emulated.h"

namespace {

struct Output {
  int status;
  std::string text;
};

Output run(const std::string& command) {
  FILE* pipe = popen((command + " 2>&1").c_str(), "re");
  if (pipe == nullptr) return {-1, "not started"};
  Output output{0, ""};
  char chunk[256];
  for (std::size_t count = fread(chunk, 1, sizeof chunk, pipe); count > 0;
       count = fread(chunk, 1, sizeof chunk, pipe)) {
    output.text.append(chunk, count);
  }
  output.status = pclose(pipe);
  return output;
}

std::string parent_of(const std::string& path) { return path.substr(0, path.rfind('/')); }

std::string project() { return PROJECT; }

[[maybe_unused]] std::string library_directory() {
  Dl_info info{};
  return dladdr(reinterpret_cast<const void*>(&vexa_dm_reg), &info) != 0 ? parent_of(info.dli_fname) : "";
}

TEST(ReadmeProgram, IsTheExampleToTheByte) {
  const Output compared = run("sh " + project() + "/tools/check-readme");
  EXPECT_EQ(compared.status, 0) << compared.text;
}

class ReadmeProgramOnADevice : public vexa_test::DeviceTest {};

TEST_F(ReadmeProgramOnADevice, CompilesAsShownStoresAndReadsItsItem) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "a plain program cannot load a library that is instrumented";
#else
  const std::string library = library_directory();
  ASSERT_FALSE(library.empty());

  const Output compiled =
      run(COMPILER " -std=c11 -Wall -Wextra -Werror -I" + project() + "/include " + project() +
          "/examples/hello_store.c -o /tmp/hello_store -L" + library + " -lvexadm");
  ASSERT_EQ(compiled.status, 0) << compiled.text;
  const Output ran = run("LD_LIBRARY_PATH=" + library + " " + vexa_test::emulator() + " /tmp/hello_store");

  EXPECT_EQ(ran.status, 0);
  EXPECT_EQ(ran.text, "The Wi-Fi is called Garden.\n");
  EXPECT_TRUE(exists("/data/config.db"));
  EXPECT_TRUE(exists("/data/configbak.db"));
#endif
}

}  // namespace
