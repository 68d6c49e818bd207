// SPDX-License-Identifier: MIT
// A router's day, from its first start to its fifth owner, told by the library itself.
//
// Run it with ./dev demo: it writes to /data and its like, so it refuses to run anywhere
// but in the private device root that the launcher makes.
#include <vector>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string_view>

#include "demo_process.h"
#include "demo_screen.h"
#include "demo_steps.h"

namespace {

using demo::Finding;
using demo::Mode;
using demo::Step;

constexpr int kRefused = 2;

bool in_device_root() {
  const char* set = std::getenv("VEXA_DEVICE_ROOT");
  return set != nullptr && std::string_view(set) == "1";
}

int refuse() {
  std::fputs(
      "router_demo: not run: it needs a device root of its own, so that it never touches the\n"
      "/data of this machine. Start it with ./dev demo.\n",
      stderr);
  const char* reason = std::getenv("VEXA_DEVICE_ROOT_MISSING");
  if (reason != nullptr) std::fprintf(stderr, "router_demo: no device root here: %s\n", reason);
  return kRefused;
}

int run_mode(std::string_view name, const demo::Arguments& arguments) {
  for (const auto modes : {demo::daily_modes(), demo::fault_modes(), demo::file_modes(), demo::text_modes(),
                           demo::network_modes(), demo::record_modes()}) {
    for (const Mode& mode : modes) {
      if (name == mode.name) return mode.run(arguments);
    }
  }
  std::fprintf(stderr, "router_demo: no such mode: %.*s\n", static_cast<int>(name.size()), name.data());
  return kRefused;
}

void summarise(int number, const Step& step, const Finding& finding) {
  const std::string mark = finding.passed ? demo::passed("PASS") : demo::failed("FAIL");
  std::printf("%s %2d. %s: expected %s; found %s\n", mark.c_str(), number, step.title,
              finding.expected.c_str(), finding.found.c_str());
}

int run_all() {
  std::vector<Step> steps;
  for (const auto part : {demo::daily_steps(), demo::fault_steps(), demo::file_steps(), demo::text_steps(),
                          demo::network_steps(), demo::record_steps()}) {
    steps.insert(steps.end(), part.begin(), part.end());
  }
  std::vector<Finding> findings;
  for (const Step& step : steps) {
    demo::heading(static_cast<int>(findings.size()) + 1, step.title);
    findings.push_back(step.run());
  }

  std::printf("\nWhat was expected, and what was found:\n\n");
  int failures = 0;
  for (std::size_t i = 0; i < steps.size(); ++i) {
    summarise(static_cast<int>(i) + 1, steps[i], findings[i]);
    failures += findings[i].passed ? 0 : 1;
  }
  std::printf("\n%zu steps, %d failed.\n", steps.size(), failures);
  return failures == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (!in_device_root()) return refuse();
  demo::set_up_screen();
  if (argc == 1) return run_all();
  return run_mode(argv[1], demo::Arguments(argv + 2, argv + argc));
}
