// SPDX-License-Identifier: MIT
// What the demonstration puts on the screen.
#ifndef VEXADM_EXAMPLES_DEMO_SCREEN_H
#define VEXADM_EXAMPLES_DEMO_SCREEN_H

#include <string>
#include <string_view>

namespace demo {

// Looks at the terminal and NO_COLOR.
void set_up_screen();

void heading(int number, std::string_view title);
void say(const char* format, ...) __attribute__((format(printf, 1, 2)));
// One line that shows a fact, set in from the prose.
void show(const char* format, ...) __attribute__((format(printf, 1, 2)));

std::string passed(std::string_view text);
std::string failed(std::string_view text);
std::string dimmed(std::string_view text);

// Keeps the library's log lines off the screen; with true those about damage and
// repair are shown, as they tell the story of these steps best.
void quiet_log();
void show_repair_log(bool on);

}  // namespace demo

#endif
