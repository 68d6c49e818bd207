// SPDX-License-Identifier: MIT
// The one-way switch into run-clean state.
#include "data_manager/state.h"

uint32_t vexa_dm_clean(vexa_dm_handle* handle, char* backup) {
  using vexa::dm::run_clean;
  if (handle == nullptr || handle->ops.clean == nullptr || run_clean.load() != 0) return 0;
  // Before the backend starts: a write that begins beside the clean must not bring a file back.
  run_clean.store(1);
  return handle->ops.clean(backup);
}
