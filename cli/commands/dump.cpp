// SPDX-License-Identifier: MIT
// dump: a store as text.
#include "base/value.h"
#include "commands/dump_format.h"
#include "commands/rows.h"

namespace cli {
namespace {

constexpr std::string_view kCannotStore = "# the library cannot store this: ";

int run_dump(Arguments& arguments) {
  Rows rows;
  if (const int code = open_rows(arguments, rows); code != kDone) return code;
  List<look::Item> items;
  Text why;
  const bool whole = look::read_items(rows.database, items, why);
  const bool with_damaged = arguments.has("--damaged");
  std::size_t damaged = 0;
  std::size_t odd = 0;
  Text out(kDumpHead);
  out.add('\n');
  for (const look::Item& item : items) {
    if (look::is_version_record(item)) continue;
    if (item.never_read) {
      out.add("# a row that programs never read: ");
    } else if (!refused_name(item.table.view(), item.key.view()).empty()) {
      out.add(kCannotStore);  // and so no program has it
    } else if (!is_int32(item.id) || !is_int32(item.type)) {
      ++odd;
      out.add(kCannotStore);
    } else if (item.verdict == look::Verdict::kBad) {
      ++damaged;
      if (!with_damaged) out.add("# bad checksum: ");
    }
    add_dump_line(out, item);
    out.add('\n');
  }
  print(out);
  if (!whole) {
    return fail("%s is damaged and this is not all of it: %s; vexadm check tells more", rows.path.c_str(),
                why.c_str());
  }
  if (odd != 0) {
    fail("%zu %s an id or a type that the library cannot store, and %s as a remark", odd,
         odd == 1 ? "item has" : "items have", odd == 1 ? "stands" : "stand");
  }
  const char* items_have = damaged == 1 ? "item has" : "items have";
  if (damaged != 0 && with_damaged) {
    note(arguments, "%zu %s a bad checksum; loaded, they count as good", damaged, items_have);
  } else if (damaged != 0) {
    fail("%zu %s a bad checksum and %s as a remark; --damaged takes them for good", damaged, items_have,
         damaged == 1 ? "stands" : "stand");
  }
  return odd == 0 && (damaged == 0 || with_damaged) ? kDone : kFailed;
}

constexpr Option kDumpOptions[] = {
    kFileOption,
    {"--damaged", nullptr, "items with a bad checksum as if it were good"},
};

}  // namespace

extern const Command kDump = {
    "dump",
    "",
    "The store as text: one line an item, sorted, to keep and to compare",
    "A line has table, key, id, type and value; names with blanks and texts are quoted, with \\n, \\t,\n"
    "\\r, \\\" and \\xHH; bytes, and numbers of a wrong length, stand as hex:0a0b. What vexadm load\n"
    "makes of it has the same items. Items with a bad checksum stand as remarks, and the exit is 1.",
    "  $ vexadm dump\n"
    "  vexadm dump 1\n"
    "  wifi channel 21 u8 11\n"
    "  wifi ssid 20 text \"Garden house\"",
    kDumpOptions,
    0,
    0,
    false,
    run_dump,
};

}  // namespace cli
