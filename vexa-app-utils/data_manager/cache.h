// SPDX-License-Identifier: MIT
// Values on their way from the storage into the cache.
#ifndef VEXADM_DATA_MANAGER_CACHE_H
#define VEXADM_DATA_MANAGER_CACHE_H

#include <cstdint>

#include "turn.h"

namespace vexa::dm {

// As vexa_dm_wr_to_mem, of a value that the storage gave or took at a turn. Does nothing where the
// cache has the value of a later one: two threads may come here in another order than they came
// to the storage, and the cache would keep an old value for as long as the process lives.
void cache_value(int32_t id, const void* data, int32_t length, Turn turn);

}  // namespace vexa::dm

#endif
