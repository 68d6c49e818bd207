// SPDX-License-Identifier: MIT
// When a reply is complete.
#ifndef VEXADM_COMMON_AT_END_H
#define VEXADM_COMMON_AT_END_H

#include <string_view>

namespace vexa::at {

// True when a final result stands where a line begins. The bytes must have a terminator behind them.
bool has_end(std::string_view reply);

}  // namespace vexa::at

#endif
