// SPDX-License-Identifier: MIT
// A network of the process's own: its loopback interface and nothing else.
#ifndef VEXADM_TESTS_OWN_NETWORK_H
#define VEXADM_TESTS_OWN_NETWORK_H

#include <string>

namespace vexa_test {

// Leaves the machine's network for an empty one in which 127.0.0.1 answers. Needs the rights that
// a private device root gives. Returns what went wrong, empty when nothing did.
std::string enter_own_network();

}  // namespace vexa_test

#endif
