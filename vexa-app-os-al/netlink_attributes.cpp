// SPDX-License-Identifier: MIT
// Attributes by their type.
#include <algorithm>

#include "netlink_walk.h"
#include "vexadm/netlink.h"

void vexa_parse_rtattr(struct rtattr* table[], int32_t max, struct rtattr* first, int32_t len) {
  if (!table || max < 0) return;
  std::fill_n(table, std::size_t{1} + static_cast<std::size_t>(max), nullptr);
  for (vexa::netlink::Attributes at(first, len); at; at.advance()) {
    if (at->rta_type <= max) table[at->rta_type] = at.get();
  }
}
