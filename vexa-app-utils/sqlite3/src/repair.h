// SPDX-License-Identifier: MIT
// Restoring the primary item database.
#ifndef VEXADM_STORAGE_REPAIR_H
#define VEXADM_STORAGE_REPAIR_H

#include "sqlite3/src/database.h"
#include "sqlite3/src/item_row.h"

namespace vexa::storage {

enum class RepairFor { kRead, kWrite };

// Replaces DB_CONFIG by the backup if that is healthy, else by the factory copy if that is,
// else leaves it. "failing" is the connection that met the corruption, on whatever file; it
// is closed.
void repair_primary(RepairFor caller, const char* failing_path, Database& failing);

// Copies the primary, if it is healthy, over the backup; where the file cannot be copied, the row
// that was written (null: none was). What fails is logged, and left to the next write.
void refresh_backup(const ItemRow* written);

}  // namespace vexa::storage

#endif
