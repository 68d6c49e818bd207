// SPDX-License-Identifier: MIT
// The steps of the demonstration. Each is told by a process of its own.
#ifndef VEXADM_EXAMPLES_DEMO_STEPS_H
#define VEXADM_EXAMPLES_DEMO_STEPS_H

#include <span>

#include "demo_process.h"

namespace demo {

// One chapter, run by the program that the person started.
struct Step {
  const char* title;
  Finding (*run)();
};

// What a program started again does. Returns its exit code.
struct Mode {
  const char* name;
  int (*run)(const Arguments& arguments);
};

std::span<const Step> daily_steps();
std::span<const Step> fault_steps();
std::span<const Step> file_steps();
std::span<const Step> text_steps();
std::span<const Step> network_steps();
std::span<const Step> record_steps();

std::span<const Mode> daily_modes();
std::span<const Mode> fault_modes();
std::span<const Mode> file_modes();
std::span<const Mode> text_modes();
std::span<const Mode> network_modes();
std::span<const Mode> record_modes();

}  // namespace demo

#endif
