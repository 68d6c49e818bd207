// SPDX-License-Identifier: MIT
// Registration of item tables, and the backend's stored defaults.
#include <vexadm/symtab.h>

#include "call_budget.h"
#include "data_manager/state.h"
#include "log/call_site.h"
#include "owners.h"
#include "relaxed.h"

namespace {

using vexa::Heap;
using vexa::relaxed_store;
using vexa::dm::ItemKey;
using vexa::dm::ItemNode;
using vexa::dm::registry;
using vexa::log::kDebug;
using vexa::log::kError;

constexpr int32_t kSymtabSize = 64;

void register_item(vexa_dm_default_item& item) {
  relaxed_store(item.desc.type, item.type);
  const vexa_sym_entry* entry = symEnter(registry.symtab, ItemKey(item.id).text, valueSymbol(&item.desc), 0);
  VEXA_ASSERT(entry != nullptr, "data_manager/vexa_app_dm");

  auto node = Heap<ItemNode>::zeroed(1);
  VEXA_ASSERT(node, "data_manager/vexa_app_dm");
  node.get()->item = &item;
  ItemNode* const added = node.release();
  q_put(&registry.list, q_link(added, &added->link));
}

}  // namespace

int32_t vexa_dm_reg_def_items(vexa_dm_default_item* table) {
  if (table == nullptr) {
    VEXA_LOG(kError, "vexa_dm_reg_def_items", "%s param NULL\n", "vexa_dm_reg_def_items");
    return -3;
  }
  if (!registry.list_ready) {
    q_init(&registry.list);
    registry.list_ready = true;
  }
  if (registry.symtab == -1) registry.symtab = symOpen(kSymtabSize);
  if (registry.symtab == -1) {
    VEXA_LOG(kError, "vexa_dm_reg_def_items", "oem_dm_def_reg_map_symtab open failed\n");
    return -4;
  }
  for (vexa_dm_default_item* item = table; item->id != -1; ++item) register_item(*item);
  return 0;
}

int32_t vexa_dm_construct_def_database(uint32_t type) {
  // One bound for all items: a start-up must not wait for each of hundreds of them.
  const vexa::CallBudget budget;
  vexa_dm_handle* const handle = vexa_dm_reg(type);
  if (handle == nullptr) return 1;

  int32_t left = q_cnt(&registry.list);
  VEXA_LOG(kDebug, "vexa_dm_construct_def_database", "tmp_cnt %d!\n", left);
  // The handle is left behind here on purpose; the header tells hosts not to come here in a loop.
  if (left < 1) return -1;

  for (q_link_node* link = q_check(&registry.list); link != nullptr; link = q_next(&registry.list, link)) {
    vexa_dm_default_item& item = *reinterpret_cast<ItemNode*>(link)->item;
    relaxed_store(item.desc.type, item.type);
    // The address of the field for every type: the backend follows it for texts and blocks.
    vexa_dm_def_items_write(handle, static_cast<uint32_t>(item.id), &item.desc, &item.value,
                            static_cast<uint32_t>(item.length));
    --left;
  }
  VEXA_LOG(kDebug, "vexa_dm_construct_def_database", "tmp_cnt-- %d!\n", left);
  vexa_dm_unreg(handle);
  return 0;
}

int32_t vexa_dm_def_items_write(vexa_dm_handle* handle, uint32_t id, vexa_dm_item_desc* desc,
                                const void* value, uint32_t len) {
  if (handle == nullptr || desc == nullptr || value == nullptr) {
    VEXA_LOG(kError, "vexa_dm_def_items_write", "%s param NULL\n", "vexa_dm_def_items_write");
    return -3;
  }
  if (vexa::dm::run_clean.load() != 0) return 0;
  VEXA_ASSERT(handle->ops.def_db_const != nullptr, "data_manager/vexa_app_dm");
  return static_cast<int32_t>(handle->ops.def_db_const(id, desc, value, len));
}

int32_t vexa_dm_def_items_read(vexa_dm_handle* handle, uint32_t id, vexa_dm_item_desc* desc, uint8_t* buffer,
                               uint32_t len) {
  if (handle == nullptr || desc == nullptr || buffer == nullptr) {
    VEXA_LOG(kError, "vexa_dm_def_items_read", "%s param NULL\n", "vexa_dm_def_items_read");
    return -3;
  }
  if (vexa::dm::run_clean.load() != 0) return 0;
  VEXA_ASSERT(handle->ops.def_db_read != nullptr, "data_manager/vexa_app_dm");
  return handle->ops.def_db_read(id, desc, buffer, static_cast<int32_t>(len));
}
