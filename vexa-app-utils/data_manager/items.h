// SPDX-License-Identifier: MIT
// A read that also tells where its answer comes from.
#ifndef VEXADM_DATA_MANAGER_ITEMS_H
#define VEXADM_DATA_MANAGER_ITEMS_H

#include <vexadm/data_manager.h>

namespace vexa::dm {

struct Read {
  int32_t result;  // what vexa_dm_read() returns
  int32_t failed;  // the backend's code when a default stands in for its answer, else 0
};

Read read_item(vexa_dm_handle* handle, int32_t id, uint8_t* buffer, int32_t len);

}  // namespace vexa::dm

#endif
