// SPDX-License-Identifier: MIT
// What all handles of a process share: registered items, run-clean state, change callback.
#ifndef VEXADM_DATA_MANAGER_STATE_H
#define VEXADM_DATA_MANAGER_STATE_H

#include <vexadm/data_manager.h>
#include <vexadm/queue.h>

#include <atomic>

namespace vexa::dm {

// A node of the default-item list. vexa_dm_compare_id relies on the link coming first.
struct ItemNode {
  q_link_node link;
  vexa_dm_default_item* item;
};

// The registered items: the symbol table finds a descriptor by id text, the list keeps the rows
// in order. Set during registration and only read afterwards, so nothing guards it.
struct Registry {
  bool list_ready;
  q_queue list;
  int32_t symtab;  // -1 until it is open
};

extern Registry registry;

// Set once, by a clean, and never taken back: files that the clean has removed must not come
// back through a write of the same process.
extern std::atomic<uint8_t> run_clean;

extern std::atomic<vexa_dm_event_fn> event_callback;

// The name of an item in the symbol table.
struct ItemKey {
  explicit ItemKey(int32_t id);
  char text[32];
};

// The descriptor of a registered item. NULL, with a line of the function, for any other id.
vexa_dm_item_desc* find_item(int32_t id, const char* function);

// The first registered row of an id, which holds its default; NULL when there is none.
vexa_dm_default_item* find_row(int32_t id);

// Tells the program about a value that the backend has accepted.
void tell_change(int32_t id, const void* data, int32_t length);

}  // namespace vexa::dm

#endif
