// SPDX-License-Identifier: MIT
// Bringing the backup up to the primary after a write.
#ifndef VEXADM_STORAGE_REFRESH_H
#define VEXADM_STORAGE_REFRESH_H

#include "sqlite3/src/item_row.h"

namespace vexa::storage {

// Copies the primary, if it is healthy, over the backup; where the file cannot be copied, the row
// that was written (null: none was). What fails is logged, and left to the next write.
void refresh_backup(const ItemRow* written);

}  // namespace vexa::storage

#endif
