// SPDX-License-Identifier: MIT
// dump and load: a store as text, and back.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <vexadm/data_manager.h>
#include <vexadm/storage.h>

#include "base/value.h"
#include "commands/dump_format.h"
#include "commands/rows.h"
#include "input.h"
#include "store_writer.h"

namespace cli {
namespace {

int run_dump(Arguments& arguments) {
  Rows rows;
  if (const int code = open_rows(arguments, rows); code != kDone) return code;
  List<look::Item> items;
  Text why;
  const bool whole = look::read_items(rows.database, items, why);
  const bool with_damaged = arguments.has("--damaged");
  std::size_t damaged = 0;
  Text out(kDumpHead);
  out.add('\n');
  for (const look::Item& item : items) {
    if (look::is_version_record(item)) continue;
    if (look::find_exact(items, item.table.view(), item.key.view()) != &item) {
      out.add("# a second row, which programs never read: ");
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
  if (damaged == 0) return kDone;
  fail("%zu %s a bad checksum%s", damaged, damaged == 1 ? "item has" : "items have",
       with_damaged ? "; loaded, they count as good"
                    : " and stand as a remark; --damaged takes them for good");
  return with_damaged ? kDone : kFailed;
}

// ---- load ----------------------------------------------------------------------

int parse_dump(std::string_view text, const char* name, List<NewItem>& out) {
  std::size_t number = 0;
  bool headed = false;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    std::string_view line = part(text, 0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    if (line.ends_with('\r')) line.remove_suffix(1);
    ++number;
    if (line.empty() || line[0] == '#') continue;
    if (!headed) {
      if (line != kDumpHead) {
        return fail("%s, line %zu: this is no dump: the first line is not \"%s\"", name, number,
                    kDumpHead.data());
      }
      headed = true;
      continue;
    }
    NewItem item;
    Text why;
    if (!take_dump_line(line, item, why)) return fail("%s, line %zu: %s", name, number, why.c_str());
    if (look::same_table(item.table.view(), look::kVersionTable)) {
      return fail("%s, line %zu: the version record is the library's own", name, number);
    }
    for (const NewItem& other : out) {
      if (other.key.view() == item.key.view() && look::same_table(other.table.view(), item.table.view())) {
        return fail("%s, line %zu: %s %s is there twice", name, number, item.table.c_str(), item.key.c_str());
      }
    }
    out.push(std::move(item));
  }
  return headed ? kDone : fail("%s: this is no dump: it is empty", name);
}

void tell_change(const Stored& stored, const NewItem& item) {
  look::Item now;
  now.table = Text(item.table.view());
  now.key = Text(item.key.view());
  now.has_id = true;
  now.has_type = true;
  now.id = item.id;
  now.type = item.type;
  now.value = Text(item.bytes.view());
  Text out;
  if (const look::Item* before = look::find(stored.backup, item.table.view(), item.key.view())) {
    Text line("- ");
    add_dump_line(line, *before);
    add_coloured(out, Colour::kBad, line.view());
    out.add('\n');
  }
  Text line("+ ");
  add_dump_line(line, now);
  add_coloured(out, Colour::kGood, line.view());
  out.add('\n');
  print(out);
}

int write_all(Arguments& arguments, const List<NewItem>& wanted, const List<std::size_t>& changes) {
  if (const int code = refuse_a_loss(arguments); code != kDone) return code;
  if (const int code = enter_store(arguments); code != kDone) return code;
  vexa_dm_handle* handle = vexa_dm_reg(VEXA_DM_BACKEND_SQLITE);
  Progress progress(arguments);
  std::size_t written = 0;
  int32_t result = 0;
  for (const std::size_t index : changes) {
    progress.step("item", written + 1, changes.size());
    result = store(handle, wanted[index]);
    if (result != 0) break;
    ++written;
  }
  progress.end();
  vexa_dm_unreg(handle);
  const Stored now = Stored::read(arguments.places());
  std::size_t missing = 0;
  for (std::size_t i = 0; i < written; ++i) missing += now.in_backup(wanted[changes[i]]) ? 0U : 1U;
  if (result != 0 || missing != 0) {
    tell_failures();
    return fail("%zu of %zu items were stored; load again, or see vexadm check", written - missing,
                changes.size());
  }
  note(arguments, "%zu %s stored", written, written == 1 ? "item" : "items");
  return kDone;
}

int run_load(Arguments& arguments) {
  const char* name = arguments.words[0];
  Text text;
  if (const int code = read_input(name, text); code != kDone) return code;
  List<NewItem> wanted;
  if (const int code = parse_dump(text.view(), name, wanted); code != kDone) return code;
  const Stored stored = Stored::read(arguments.places());
  List<std::size_t> changes;
  for (std::size_t i = 0; i < wanted.size(); ++i) {
    if (!stored.in_both(wanted[i])) changes.push(i);
  }
  if (arguments.has("--dry-run")) {
    for (const std::size_t index : changes) tell_change(stored, wanted[index]);
    return kDone;
  }
  if (changes.empty()) {
    note(arguments, "the store has all of it already");
    return kDone;
  }
  return write_all(arguments, wanted, changes);
}

constexpr Option kDumpOptions[] = {
    kFileOption,
    {"--damaged", nullptr, "items with a bad checksum as if it were good"},
};
constexpr Option kLoadOptions[] = {
    {"--dry-run", nullptr, "say what would change, and change nothing"},
    {"--force", nullptr, "write into a damaged store all the same"},
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

extern const Command kLoad = {
    "load",
    "FILE",
    "Stores what a dump has",
    "Through the library, item by item; what is stored already is not written again. Items that the\n"
    "dump lacks stay, as items cannot be deleted: vexadm clean comes first where that is not meant.\n"
    "Nothing is written unless every line can be read. - is standard input.",
    "  $ vexadm load --dry-run settings.txt\n"
    "  - wifi ssid 20 text \"Router\"\n"
    "  + wifi ssid 20 text \"Garden house\"\n"
    "  $ vexadm load settings.txt",
    kLoadOptions,
    1,
    1,
    false,
    run_load,
};

}  // namespace cli
