// SPDX-License-Identifier: MIT
// One item that is to be stored, and storing it through the library.
#ifndef VEXADM_CLI_ITEM_WRITE_H
#define VEXADM_CLI_ITEM_WRITE_H

#include <cstdint>

#include "base/text.h"
#include "look/items.h"
#include "look/places.h"

struct vexa_dm_handle;

namespace cli {

struct NewItem {
  Text table;
  Text key;
  int32_t id = 0;
  int32_t type = 0;
  Text bytes;
};

// Empty, or why the library cannot take such names: they go into SQL unescaped, and into records of
// a fixed size.
Text refused_name(std::string_view table, std::string_view key);

// What programs read and what the next write copies. To write again what both hold would only wear
// the flash.
struct Stored {
  List<look::Item> primary;
  List<look::Item> backup;

  static Stored read(const look::Places& places);
  bool in_backup(const NewItem& item) const { return holds(backup, item); }
  bool in_both(const NewItem& item) const { return holds(primary, item) && holds(backup, item); }

 private:
  static bool holds(const List<look::Item>& items, const NewItem& item);
};

struct Arguments;

// Refuses to write into a store of which a write, or the start before it, would lose something that
// is still there; --force leaves that to the person. kDone, or kFailed after it has said why.
int refuse_a_loss(const Arguments& arguments);

// By the backend's own slot: the item table of a program would bring its defaults, and a value equal
// to a default would not be stored. 0, or the library's code.
int32_t store(vexa_dm_handle* handle, const NewItem& item);

}  // namespace cli

#endif
