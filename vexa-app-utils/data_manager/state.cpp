// SPDX-License-Identifier: MIT
#include "data_manager/state.h"

#include <vexadm/symtab.h>

#include <cstdio>

#include "log/call_site.h"

namespace vexa::dm {

constinit Registry registry{.list_ready = false, .list = {}, .symtab = -1};
constinit std::atomic<uint8_t> run_clean{0};
constinit std::atomic<vexa_dm_event_fn> event_callback{nullptr};

ItemKey::ItemKey(int32_t id) { std::snprintf(text, sizeof(text), "%d", static_cast<int>(id)); }

vexa_dm_item_desc* find_item(int32_t id, const char* function) {
  const ItemKey key(id);
  const vexa_sym_entry* entry = symLookup(registry.symtab, key.text);
  if (entry == nullptr) {
    VEXA_LOG(log::kError, function, "symLookup failed: %s\n", key.text);
    return nullptr;
  }
  return static_cast<vexa_dm_item_desc*>(entry->content.value.symbol);
}

vexa_dm_default_item* find_row(int32_t id) {
  if (!registry.list_ready) return nullptr;
  const auto* node =
      reinterpret_cast<ItemNode*>(q_linear_search(&registry.list, vexa_dm_compare_id, &id, nullptr));
  return node != nullptr ? node->item : nullptr;
}

void tell_change(int32_t id, const void* data, int32_t length) {
  if (const vexa_dm_event_fn callback = event_callback.load()) callback(id, data, length);
}

}  // namespace vexa::dm

uint32_t vexa_dm_compare_id(const void* node, const void* id) {
  if (node == nullptr || id == nullptr) return 0;
  const auto* item_node = static_cast<const vexa::dm::ItemNode*>(node);
  return item_node->item->id == *static_cast<const int32_t*>(id) ? 1 : 0;
}
