// SPDX-License-Identifier: MIT
// A write in its two steps.
#ifndef VEXADM_DATA_MANAGER_ITEM_WRITE_H
#define VEXADM_DATA_MANAGER_ITEM_WRITE_H

#include <vexadm/types.h>

#include "turn.h"

namespace vexa::dm {

enum class Reached {
  kNothing,  // refused, failed, or equal already
  kBackend,
  kCacheOnly  // run-clean state
};

struct Stored {
  int32_t result;
  Reached reached;
  Turn turn;  // the backend's
};

// The step that may wait for storage: vexa_dm_write up to the backend's answer.
Stored store_item(vexa_dm_handle* handle, int32_t id, const void* data, int32_t len);

// The step that may run the program's callback. A caller that bounds its waiting ends the bound
// before it, because the callback may call the library for itself.
int32_t publish_item(const Stored& stored, int32_t id, const void* data, int32_t len);

}  // namespace vexa::dm

#endif
