// SPDX-License-Identifier: MIT
// load: a dump, stored item by item.
#include <algorithm>
#include <csignal>

#include <vexadm/data_manager.h>

#include "commands/dump_format.h"
#include "commands/rows.h"
#include "input.h"
#include "store_writer.h"

namespace cli {
namespace {

// Of the names that stand twice, the one that does so first.
int refuse_twice(const char* name, const List<NewItem>& items, const List<std::size_t>& numbers) {
  List<std::size_t> by_name;
  for (std::size_t i = 0; i < items.size(); ++i) by_name.push(i);
  const auto order = [&](std::size_t a, std::size_t b) {
    return order_of_names(items[a].table.view(), items[a].key.view(), items[b].table.view(),
                          items[b].key.view());
  };
  std::sort(by_name.begin(), by_name.end(), [&](std::size_t a, std::size_t b) {
    const int names = order(a, b);
    return names != 0 ? names < 0 : a < b;
  });
  std::size_t first = items.size();
  for (std::size_t i = 1; i < by_name.size(); ++i) {
    if (order(by_name[i - 1], by_name[i]) == 0) first = std::min(first, by_name[i]);
  }
  if (first == items.size()) return kDone;
  return fail("%s, line %zu: %s %s is there twice", name, numbers[first], items[first].table.c_str(),
              items[first].key.c_str());
}

int parse_dump(std::string_view text, const char* name, List<NewItem>& out) {
  List<std::size_t> numbers;
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
    out.push(std::move(item));
    numbers.push(number);
  }
  if (!headed) return fail("%s: this is no dump: it is empty", name);
  return refuse_twice(name, out, numbers);
}

look::Item item_of(const NewItem& item) {
  look::Item out;
  out.table = Text(item.table.view());
  out.key = Text(item.key.view());
  out.has_id = true;
  out.has_type = true;
  out.id = item.id;
  out.type = item.type;
  out.value = Text(item.bytes.view());
  return out;
}

void add_change(Text& out, Colour colour, const char* sign, const look::Item& item) {
  Text line(sign);
  add_dump_line(line, item);
  add_coloured(out, colour, line.view());
  out.add('\n');
}

void tell_changes(const Arguments& arguments, const Stored& stored, const List<NewItem>& wanted,
                  const List<std::size_t>& changes) {
  if (!arguments.json) {
    Text out;
    for (const std::size_t index : changes) {
      const NewItem& item = wanted[index];
      if (const look::Item* before = stored.in_backup(item.table.view(), item.key.view()))
        add_change(out, Colour::kBad, "- ", *before);
      add_change(out, Colour::kGood, "+ ", item_of(item));
    }
    print(out);
    return;
  }
  Json json;
  json.object().key("changes").array();
  for (const std::size_t index : changes) {
    const NewItem& item = wanted[index];
    json.object().key("before");
    if (const look::Item* before = stored.in_backup(item.table.view(), item.key.view())) {
      json.object();
      add_item_fields(json, *before);
      json.end();
    } else {
      json.null();
    }
    json.key("after").object();
    add_item_fields(json, item_of(item));
    json.end().end();
  }
  json.end().end();
}

void tell_stored(const Arguments& arguments, std::size_t count) {
  if (arguments.json) Json().object().number("stored", static_cast<int64_t>(count)).end();
}

// An item that is half written is whole at the next start, but nobody would know how far the load came.
class StopBetween {
 public:
  StopBetween() {
    struct sigaction action {};
    action.sa_handler = [](int) { g_stop = 1; };
    action.sa_flags = SA_RESTART;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaction(signal, &action, nullptr);
  }
  bool asked() const { return g_stop != 0; }

 private:
  static inline volatile std::sig_atomic_t g_stop = 0;
};

int write_all(Arguments& arguments, const List<NewItem>& wanted, const List<std::size_t>& changes) {
  if (const int code = refuse_a_loss(arguments); code != kDone) return code;
  if (const int code = enter_store(arguments); code != kDone) return code;
  const StopBetween stop;
  vexa_dm_handle* handle = vexa_dm_reg(VEXA_DM_BACKEND_SQLITE);
  Progress progress(arguments);
  std::size_t written = 0;
  int32_t result = 0;
  for (const std::size_t index : changes) {
    if (stop.asked()) break;
    progress.step("item", written + 1, changes.size());
    result = store(handle, wanted[index]);
    if (result != 0) break;
    ++written;
  }
  progress.end();
  vexa_dm_unreg(handle);
  Stored now;
  std::size_t missing = written;
  if (now.read(arguments) == kDone) {
    missing = 0;
    for (std::size_t i = 0; i < written; ++i) missing += now.in_backup(wanted[changes[i]]) ? 0U : 1U;
  }
  if (result != 0 || missing != 0) {
    tell_failures();
    return fail("%zu of %zu items were stored; load again, or see vexadm check", written - missing,
                changes.size());
  }
  if (written != changes.size()) {
    return fail("stopped: %zu of %zu items were stored; load again", written, changes.size());
  }
  note(arguments, "%zu %s stored", written, written == 1 ? "item" : "items");
  tell_stored(arguments, written);
  return kDone;
}

int run_load(Arguments& arguments) {
  const char* name = arguments.words[0];
  Text text;
  if (const int code = read_input(name, text); code != kDone) return code;
  List<NewItem> wanted;
  if (const int code = parse_dump(text.view(), name, wanted); code != kDone) return code;
  Stored stored;
  if (const int code = stored.read(arguments); code != kDone) return code;
  List<std::size_t> changes;
  for (std::size_t i = 0; i < wanted.size(); ++i) {
    if (!stored.in_both(wanted[i])) changes.push(i);
  }
  if (arguments.has("--dry-run")) {
    tell_changes(arguments, stored, wanted, changes);
    return kDone;
  }
  if (changes.empty()) {
    note(arguments, "the store has all of it already");
    tell_stored(arguments, 0);
    return kDone;
  }
  return write_all(arguments, wanted, changes);
}

constexpr Option kLoadOptions[] = {
    {"--dry-run", nullptr, "say what would change, and change nothing"},
    {"--force", nullptr, "write where settings would be lost all the same"},
};

}  // namespace

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
    true,
    run_load,
};

}  // namespace cli
