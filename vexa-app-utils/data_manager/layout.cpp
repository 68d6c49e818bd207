// SPDX-License-Identifier: MIT
// Holds the records that programs fill statically to the layout they were compiled with.
#include <vexadm/types.h>

#include <cstddef>

namespace {

constexpr bool k32Bit = sizeof(void*) == 4;
static_assert(k32Bit || sizeof(void*) == 8);

static_assert(offsetof(vexa_dm_item_desc, table) == 0);
static_assert(offsetof(vexa_dm_item_desc, key) == 32);
static_assert(offsetof(vexa_dm_item_desc, type) == 64);
static_assert(sizeof(vexa_dm_item_desc) == 68);

static_assert(sizeof(vexa_dm_default_value) == sizeof(void*));
static_assert(offsetof(vexa_dm_default_item, id) == 0);
static_assert(offsetof(vexa_dm_default_item, desc) == 4);
static_assert(offsetof(vexa_dm_default_item, value) == 72);
static_assert(offsetof(vexa_dm_default_item, type) == (k32Bit ? 76 : 80));
static_assert(offsetof(vexa_dm_default_item, length) == (k32Bit ? 80 : 84));
static_assert(sizeof(vexa_dm_default_item) == (k32Bit ? 84 : 88));

constexpr std::size_t slot(std::size_t index) { return index * sizeof(void*); }

static_assert(offsetof(vexa_dm_backend_ops, write) == slot(0));
static_assert(offsetof(vexa_dm_backend_ops, read) == slot(1));
static_assert(offsetof(vexa_dm_backend_ops, clean) == slot(2));
static_assert(offsetof(vexa_dm_backend_ops, def_db_const) == slot(3));
static_assert(offsetof(vexa_dm_backend_ops, def_db_read) == slot(4));
static_assert(offsetof(vexa_dm_backend_ops, read_cfg_db_version) == slot(5));
static_assert(offsetof(vexa_dm_backend_ops, read_def_items_db_version) == slot(6));
static_assert(sizeof(vexa_dm_backend_ops) == slot(7));

static_assert(offsetof(vexa_dm_handle, type) == 0);
static_assert(offsetof(vexa_dm_handle, ops) == (k32Bit ? 4 : 8));
static_assert(sizeof(vexa_dm_handle) == (k32Bit ? 32 : 64));

}  // namespace
