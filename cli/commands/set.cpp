// SPDX-License-Identifier: MIT
// set and empty: changing one item, by the library's journalled write.
#include <vexadm/data_manager.h>

#include "base/value.h"
#include "commands/item_write.h"
#include "commands/rows.h"
#include "input.h"
#include "store_writer.h"

namespace cli {
namespace {

// What is to be written, as far as the arguments say it.
struct Wanted {
  NewItem item;
  bool has_type = false;
  bool has_id = false;

  explicit Wanted(const Arguments& arguments) {
    item.table = Text(arguments.words[0]);
    item.key = Text(arguments.words[1]);
  }
  const char* key() const { return item.key.c_str(); }
  const char* table() const { return item.table.c_str(); }
};

int check_names(const Wanted& wanted) {
  const Text refused = refused_name(wanted.item.table.view(), wanted.item.key.view());
  return refused.empty() ? kDone : wrong_usage("%s", refused.c_str());
}

int take_type_and_id(const Arguments& arguments, Wanted& wanted) {
  if (const char* type = arguments.value("--type")) {
    const auto number = parse_type(type);
    if (!number || *number < VEXA_DM_U8 || *number > VEXA_DM_BLOCK) {
      return wrong_usage("--type %s: u8, u16, u32, u32alt, text or bytes", type);
    }
    wanted.item.type = *number;
    wanted.has_type = true;
  }
  if (const char* id = arguments.value("--id")) {
    const auto number = parse_number(id, INT32_MAX);
    if (!number) return wrong_usage("--id %s: a number from 0 to %d", id, INT32_MAX);
    wanted.item.id = static_cast<int32_t>(*number);
    wanted.has_id = true;
  }
  return kDone;
}

// empty has no options to say it with.
const char* said_by(const Arguments& arguments) {
  return arguments.command->name == "empty" ? "vexadm set with " : "";
}

// What the arguments leave open comes from the row, and what they say must not contradict it.
int complete_from_row(const Arguments& arguments, const Stored& stored, Wanted& wanted) {
  const look::Item* row = stored.row(wanted.table(), wanted.key());
  if (row != nullptr && row->has_type) {
    if (wanted.has_type && wanted.item.type != row->type && !arguments.has("--force")) {
      return fail("%s is stored as %s; programs would read %s wrongly. --force changes it", wanted.key(),
                  type_name(row->type).c_str(), type_name(wanted.item.type).c_str());
    }
    if (!wanted.has_type) {
      if (!is_int32(row->type)) {
        return fail("%s is stored as %s, which no program can: %s--type must say what it is", wanted.key(),
                    type_name(row->type).c_str(), said_by(arguments));
      }
      wanted.item.type = static_cast<int32_t>(row->type);
    }
    wanted.has_type = true;
  }
  if (row != nullptr && row->has_id && !wanted.has_id) {
    if (!is_int32(row->id)) {
      return fail("%s is stored with id %lld, which no program can have: %s--id must say which it is",
                  wanted.key(), static_cast<long long>(row->id), said_by(arguments));
    }
    wanted.item.id = static_cast<int32_t>(row->id);
    wanted.has_id = true;
  }
  if (!wanted.has_type) {
    return row != nullptr ? fail("%s is stored without a type: %s--type must say what it is", wanted.key(),
                                 said_by(arguments))
                          : fail("the store has no %s in table %s: --type must say what it is", wanted.key(),
                                 wanted.table());
  }
  if (!wanted.has_id) {
    return row != nullptr
               ? fail("%s is stored without an id: %s--id must give the number that programs know it by",
                      wanted.key(), said_by(arguments))
               : fail("the store has no %s in table %s: --id must give the number that programs know it by",
                      wanted.key(), wanted.table());
  }
  return kDone;
}

int take_value(const Arguments& arguments, Wanted& wanted) {
  const char* word = arguments.word(2);
  const char* file = arguments.value("--from");
  if ((word != nullptr) == (file != nullptr)) return wrong_usage("either VALUE or --from FILE");
  Text text;
  if (file != nullptr) {
    if (const int code = read_input(file, text); code != kDone) return code;
  } else {
    text.add(word);
  }
  const int32_t type = wanted.item.type;
  Text& bytes = wanted.item.bytes;
  const std::size_t size = number_size(type);
  if (arguments.has("--hex") || (type == VEXA_DM_BLOCK && file == nullptr)) {
    if (!parse_hex(text.view(), bytes))
      return wrong_usage("hexadecimal digits, two for each byte, were expected");
  } else if (size != 0) {
    while (!text.empty() && text.view().back() == '\n') text.shorten(text.size() - 1);
    if (!number_bytes(type, text.view(), bytes)) {
      return wrong_usage("%s is no number that fits %s", text.c_str(), type_name(type).c_str());
    }
  } else {
    bytes = std::move(text);
  }
  if (size != 0 && bytes.size() != size) {
    return wrong_usage("%s takes %zu bytes, not %zu", type_name(type).c_str(), size, bytes.size());
  }
  if (bytes.empty()) return wrong_usage("an empty value: vexadm empty %s %s", wanted.table(), wanted.key());
  return kDone;
}

int write_item(Arguments& arguments, const Stored& stored, const Wanted& wanted) {
  if (stored.in_both(wanted.item)) {
    note(arguments, "%s has that value already", wanted.key());
    if (arguments.json) Json().object().boolean("stored", false).end();
    return kDone;
  }
  if (const int code = refuse_a_loss(arguments); code != kDone) return code;
  if (const int code = enter_store(arguments); code != kDone) return code;
  vexa_dm_handle* handle = vexa_dm_reg(VEXA_DM_BACKEND_SQLITE);
  const int32_t result = store(handle, wanted.item);
  vexa_dm_unreg(handle);
  if (result != 0) {
    tell_failures();
    return fail("%s was not stored: the library says %d; vexadm check tells more", wanted.key(), result);
  }
  // The library answers 0 also where only the primary could be written. Programs read the backup.
  Stored now;
  if (now.read(arguments) != kDone || !now.in_backup(wanted.item)) {
    tell_failures();
    return fail("%s was not stored where programs read it; vexadm check tells more", wanted.key());
  }
  note(arguments, "stored; programs that run keep the value they have read until they start again");
  if (arguments.json) Json().object().boolean("stored", true).end();
  return kDone;
}

int run_set(Arguments& arguments) {
  Wanted wanted(arguments);
  if (const int code = check_names(wanted); code != kDone) return code;
  if (const int code = take_type_and_id(arguments, wanted); code != kDone) return code;
  Stored stored;
  if (const int code = stored.read(arguments); code != kDone) return code;
  if (const int code = complete_from_row(arguments, stored, wanted); code != kDone) return code;
  if (const int code = take_value(arguments, wanted); code != kDone) return code;
  return write_item(arguments, stored, wanted);
}

int run_empty(Arguments& arguments) {
  Wanted wanted(arguments);
  if (const int code = check_names(wanted); code != kDone) return code;
  Stored stored;
  if (const int code = stored.read(arguments); code != kDone) return code;
  if (stored.row(wanted.table(), wanted.key()) == nullptr) {
    return fail(
        "the store has no %s in table %s: there is nothing to empty; programs read the default already",
        wanted.key(), wanted.table());
  }
  if (const int code = complete_from_row(arguments, stored, wanted); code != kDone) return code;
  return write_item(arguments, stored, wanted);
}

constexpr Option kSetOptions[] = {
    {"--type", "T", "u8, u16, u32, u32alt, text or bytes; else the type of the row"},
    {"--id", "N", "the number that programs know the item by; else that of the row"},
    {"--hex", nullptr, "the value in hexadecimal, whatever the type"},
    {"--from", "FILE", "the value from a file, - from standard input"},
    {"--force", nullptr, "change the type of a row, and write where settings would be lost, all the same"},
};
constexpr Option kEmptyOptions[] = {{"--force", nullptr, "write where settings would be lost all the same"}};

}  // namespace

extern const Command kSet = {
    "set",
    "TABLE KEY [--type T] VALUE",
    "Stores one item, as a program would",
    "Through the library: journal, primary, backup. Exit 0 means: on storage, and there after a\n"
    "power cut. Programs that run keep what they have read until they start again.\n"
    "\n"
    "Numbers are decimal, or hexadecimal behind 0x; bytes are hexadecimal. With --from, texts\n"
    "and bytes are taken as the file has them, its line end included.",
    "  $ vexadm set wifi ssid \"Garden house\"\n"
    "  $ vexadm set wifi channel --type u8 --id 21 11",
    kSetOptions,
    2,
    3,
    true,
    run_set,
};

extern const Command kEmpty = {
    "empty",
    "TABLE KEY",
    "Stores an empty value, so that programs read the default",
    "Items cannot be deleted.",
    "  $ vexadm empty wifi ssid",
    kEmptyOptions,
    2,
    2,
    true,
    run_empty,
};

}  // namespace cli
