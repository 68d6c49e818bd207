// SPDX-License-Identifier: MIT
// The default of an item, for reads that find nothing stored.
#ifndef VEXADM_DATA_MANAGER_DEFAULTS_H
#define VEXADM_DATA_MANAGER_DEFAULTS_H

#include <vexadm/types.h>

// Delivers the default of a registered item: from the stored defaults while the schema versions
// match (their failure is final), else the compiled-in one. Bytes of the value, or negative.
// A compiled-in scalar or block is written whole, whatever len is: see widest_default.
extern "C" int32_t vexa_dm_try_read_def_value(vexa_dm_handle* handle, int32_t id, uint8_t* buffer,
                                              int32_t len);

namespace vexa::dm {

// Bytes that an item's compiled-in default may write beyond any capacity.
int32_t widest_default(int32_t id);

}  // namespace vexa::dm

#endif
