// SPDX-License-Identifier: MIT
// One item that is to be stored, and storing it through the library.
#ifndef VEXADM_CLI_ITEM_WRITE_H
#define VEXADM_CLI_ITEM_WRITE_H

#include <cstdint>

#include "base/text.h"
#include "look/items.h"

struct vexa_dm_handle;

namespace cli {

struct Arguments;

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
class Stored {
 public:
  // kDone, or kFailed after it has said why: a store that cannot be read is not an empty one. What is
  // corrupt holds nothing where the other file answers, or where --force takes it for that.
  int read(const Arguments& arguments);

  const look::Item* in_backup(std::string_view table, std::string_view key) const {
    return backup_.find(table, key);
  }
  // What programs read, else what they will read.
  const look::Item* row(std::string_view table, std::string_view key) const;
  bool in_backup(const NewItem& item) const { return backup_.holds(item); }
  bool in_both(const NewItem& item) const { return primary_.holds(item) && backup_.holds(item); }

 private:
  struct File {
    List<look::Item> items;
    List<const look::Item*> by_name;  // table names without regard to case, as SQL has them
    look::Health health = look::Health::kMissing;
    Text why;

    void read(const Text& path);
    const look::Item* find(std::string_view table, std::string_view key) const;
    bool holds(const NewItem& item) const;
  };
  File primary_;
  File backup_;
};

// The order of two names, that of tables without regard to case.
int order_of_names(std::string_view table_a, std::string_view key_a, std::string_view table_b,
                   std::string_view key_b);

// Refuses to write into a store of which a write, or the start before it, would lose something that
// is still there; --force leaves that to the person. kDone, or kFailed after it has said why.
int refuse_a_loss(const Arguments& arguments);

// By the backend's own slot: the item table of a program would bring its defaults, and a value equal
// to a default would not be stored. 0, or the library's code.
int32_t store(vexa_dm_handle* handle, const NewItem& item);

}  // namespace cli

#endif
