// SPDX-License-Identifier: MIT
// Restoring the primary item database.
#ifndef VEXADM_STORAGE_REPAIR_H
#define VEXADM_STORAGE_REPAIR_H

#include "sqlite3/src/database.h"

namespace vexa::storage {

enum class RepairFor { kRead, kWrite };

// Replaces DB_CONFIG by the backup if that is healthy, else by the factory copy if that is,
// else leaves it. "failing" is the connection that met the corruption, on whatever file; it
// is closed.
void repair_primary(RepairFor caller, const char* failing_path, Database& failing);

}  // namespace vexa::storage

#endif
