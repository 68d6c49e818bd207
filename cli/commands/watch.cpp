// SPDX-License-Identifier: MIT
// watch: an item's changes as they come.
#include <time.h>

#include <cstdio>

#include "base/value.h"
#include "commands/rows.h"
#include "look/mark.h"

namespace cli {
namespace {

void pause_for(uint64_t milliseconds) {
  timespec span = {static_cast<time_t>(milliseconds / 1000),
                   static_cast<long>(milliseconds % 1000) * 1000000};
  while (nanosleep(&span, &span) != 0) {
  }
}

enum class Seen { kValue, kNothing, kUnreadable };
// For programs, which must not take a lock for an item that is gone.
constexpr const char* kStates[] = {"value", "none", "unreadable"};

struct View {
  Seen seen = Seen::kUnreadable;
  look::Item item;
  bool operator==(const View& other) const {
    return seen == other.seen && item.value.view() == other.item.value.view() &&
           item.type == other.item.type && item.verdict == other.item.verdict;
  }
};

View look_at(const char* path, const char* table, const char* key) {
  View view;
  look::Database database;
  List<look::Item> items;
  Text why;
  if (database.open(path) != SQLITE_OK) {
    view.seen = look::exists(path) ? Seen::kUnreadable : Seen::kNothing;
    return view;
  }
  const bool whole = look::read_items(database, items, why);
  for (look::Item& item : items) {
    if (item.never_read || item.key.view() != key || !look::same_table(item.table.view(), table)) continue;
    view.item = std::move(item);
    view.seen = Seen::kValue;
    return view;
  }
  view.seen = whole ? Seen::kNothing : Seen::kUnreadable;
  return view;
}

void tell(const Arguments& arguments, const View& view) {
  if (arguments.json) {
    Json json(Json::Form::kOneLine);
    json.object().text("time", local_time().view());
    json.text("state", kStates[static_cast<int>(view.seen)]);
    if (view.seen == Seen::kValue) {
      add_item_fields(json, view.item);
    } else {
      json.text("table", arguments.words[0]).text("key", arguments.words[1]).key("value").null();
    }
    json.end();
    return;
  }
  Text line = local_time();
  line.add(' ');
  if (view.seen == Seen::kValue) {
    add_value(line, view.item.type, view.item.value.view());
    if (view.item.verdict == look::Verdict::kBad) line.add(" (bad checksum: programs get the default)");
    if (view.item.verdict == look::Verdict::kEmpty) line.add(" (empty: programs get the default)");
  } else {
    line.add(view.seen == Seen::kNothing ? "(no such item: programs get the default)"
                                         : "(the file cannot be read)");
  }
  line.add('\n');
  print(line);
}

int run_watch(Arguments& arguments) {
  uint64_t interval = 500;
  uint64_t count = UINT64_MAX;
  if (const char* text = arguments.value("--interval")) {
    const auto number = parse_number(text, 3600000);
    if (!number || *number == 0) return wrong_usage("--interval %s: milliseconds, 1 to 3600000", text);
    interval = *number;
  }
  if (const char* text = arguments.value("--count")) {
    const auto number = parse_number(text, UINT32_MAX);
    if (!number || *number == 0) return wrong_usage("--count %s: how many values to print, 1 at least", text);
    count = *number;
  }
  const look::Places places = arguments.places();
  View last;
  bool first = true;
  for (;;) {
    const look::Mark mark = look::mark_of(places.backup.c_str());
    View view = look_at(places.backup.c_str(), arguments.words[0], arguments.words[1]);
    if (first || !(view == last)) {
      tell(arguments, view);
      // For those who read through a pipe.
      if (std::fflush(stdout) != 0) return kFailed;
      if (--count == 0) return kDone;
      last = std::move(view);
      first = false;
    }
    // What could not be read may become readable without a change: a lock that goes.
    const bool waits = last.seen != Seen::kUnreadable;
    do {
      pause_for(interval);
    } while (waits && look::mark_of(places.backup.c_str()) == mark);
  }
}

constexpr Option kWatchOptions[] = {
    {"--interval", "MS", "look so often, in milliseconds; 500 if not given"},
    {"--count", "N", "end after so many lines"},
};

}  // namespace

extern const Command kWatch = {
    "watch",
    "TABLE KEY",
    "Prints an item's value, and again whenever it changes",
    "Looks at the change counter of the backup, which is what programs read, and reads the\n"
    "item only when that has moved. Ends with Ctrl-C.",
    "  $ vexadm watch wifi ssid\n"
    "  2026-11-02 08:15:00 \"Router\"\n"
    "  2026-11-02 08:15:42 \"Garden house\"",
    kWatchOptions,
    2,
    2,
    true,
    run_watch,
};

}  // namespace cli
