// SPDX-License-Identifier: MIT
// The text form of a store: one line an item, sorted, each value in full.
#ifndef VEXADM_CLI_DUMP_FORMAT_H
#define VEXADM_CLI_DUMP_FORMAT_H

#include <string_view>

#include "base/text.h"
#include "commands/item_write.h"
#include "look/items.h"

namespace cli {

constexpr std::string_view kDumpHead = "vexadm dump 1";

// "wifi ssid 20 text "Garden house"", without a line end.
void add_dump_line(Text& out, const look::Item& item);

// The line of an item taken apart. False with the reason.
bool take_dump_line(std::string_view line, NewItem& out, Text& why);

}  // namespace cli

#endif
