// SPDX-License-Identifier: MIT
// help, version, and the words that completion asks for.
#include <vexadm/version.h>

#include "base/json.h"
#include "base/value.h"
#include "command.h"
#include "look/items.h"
#include "registry.h"

namespace cli {
namespace {

constexpr std::size_t kColumn = 22;

void add_row(Text& out, std::string_view left, std::string_view right) {
  out.add("  ").add(left);
  for (std::size_t width = left.size(); width < kColumn; ++width) out.add(' ');
  if (left.size() >= kColumn) {
    out.add("\n  ");
    for (std::size_t width = 0; width < kColumn; ++width) out.add(' ');
  }
  out.add(right).add('\n');
}

void add_options(Text& out, std::span<const Option> options) {
  for (const Option& option : options) {
    Text left(option.name);
    if (option.value != nullptr) left.add(' ').add(option.value);
    add_row(out, left.view(), option.meaning);
  }
}

void overview(Text& out) {
  out.add(
      "usage: vexadm [OPTION]... COMMAND [ARGUMENT]...\n\n"
      "Looks into the settings store of a router, and changes it.\n\n");
  for (const Command* command : commands()) add_row(out, command->name, command->summary);
  out.add("\noptions of all commands:\n");
  add_options(out, global_options());
  out.add(
      "\nvexadm help COMMAND tells more, with an example.\n"
      "Exit: 0 done; 1 failed, unhealthy or different; 2 wrong usage.\n");
}

void describe(Text& out, const Command& command) {
  out.add("usage: vexadm ").add(command.name);
  if (command.synopsis[0] != '\0') out.add(' ').add(command.synopsis);
  out.add("\n\n").add(command.summary).add(".\n");
  if (command.details[0] != '\0') out.add('\n').add(command.details).add('\n');
  if (!command.options.empty()) {
    out.add("\noptions:\n");
    add_options(out, command.options);
  }
  out.add("\nexample:\n").add(command.example).add('\n');
}

int run_help(Arguments& arguments) {
  Text out;
  if (arguments.words.empty()) {
    overview(out);
  } else {
    const Command* command = find_command(arguments.words[0]);
    if (command == nullptr)
      return wrong_usage("there is no command %s; vexadm help lists them", arguments.words[0]);
    describe(out, *command);
  }
  print(out);
  return kDone;
}

int run_version(Arguments& arguments) {
  if (arguments.json) {
    Json().object().text("version", VEXADM_VERSION).end();
  } else {
    print(Text("vexadm " VEXADM_VERSION "\n"));
  }
  return kDone;
}

// Names that a shell can be given, and a terminal shown.
bool is_word(const Text& name) { return printable(name.view()).view() == name.view(); }

// For completion: one word a line. "commands"; "options COMMAND"; "tables"; "keys TABLE".
int run_words(Arguments& arguments) {
  const std::string_view kind = arguments.words[0];
  Text out;
  if (kind == "commands") {
    for (const Command* command : commands()) out.add(command->name).add('\n');
  } else if (kind == "options") {
    for (const Option& option : global_options()) out.add(option.name).add('\n');
    const Command* command = arguments.word(1) != nullptr ? find_command(arguments.word(1)) : nullptr;
    if (command != nullptr) {
      for (const Option& option : command->options) out.add(option.name).add('\n');
    }
  } else {
    // Nothing to complete with is no failure: the person is still typing.
    const look::Places places = arguments.places();
    look::Database database;
    if (database.open(places.backup.c_str()) != SQLITE_OK &&
        database.open(places.primary.c_str()) != SQLITE_OK) {
      return kDone;
    }
    List<look::Item> items;
    Text why;
    look::read_items(database, items, why);
    std::string_view last;
    for (const look::Item& item : items) {
      if (kind == "tables" && item.table.view() != last && is_word(item.table))
        out.add(item.table.view()).add('\n');
      if (kind == "keys" && arguments.word(1) != nullptr &&
          look::same_table(item.table.view(), arguments.word(1)) && is_word(item.key)) {
        out.add(item.key.view()).add('\n');
      }
      last = item.table.view();
    }
  }
  print(out);
  return kDone;
}

}  // namespace

extern const Command kHelp = {
    "help", "[COMMAND]", "What there is, and how it is used", "", "  $ vexadm help check", {}, 0, 1,
    false,  run_help,
};

extern const Command kVersion = {
    "version",
    "",
    "The version of this program",
    "",
    "  $ vexadm version\n  vexadm " VEXADM_VERSION,
    {},
    0,
    0,
    true,
    run_version,
};

extern const Command kWords = {
    "__words", "KIND [WORD]", "", "", "", {}, 1, 2, false, run_words,
};

}  // namespace cli
