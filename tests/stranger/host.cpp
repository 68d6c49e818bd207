// SPDX-License-Identifier: MIT
// A host program of the smallest kind, in C++20.
#include <vexadm/vexadm.h>

#include <array>
#include <iostream>

static_assert(VEXADM_VERSION_NUMBER >= VEXADM_MAKE_VERSION(0, 1, 0));

int main() {
  std::array<char, 4220> buffer{};
  vexa_log_printf(3, buffer.data(), "vexa_host_start", 7, "hello %d\n", 42);
  std::cout << "C++ with " << VEXADM_VERSION << '\n';
  return 0;
}
