// SPDX-License-Identifier: MIT
// A view of database files that never changes a byte of them.
#ifndef VEXADM_CLI_LOOK_VFS_H
#define VEXADM_CLI_LOOK_VFS_H

namespace cli::look {

// Registers SQLite's view and gives its name for sqlite3_open_v2(); null when SQLite refuses.
//
// Files are opened read-only, also from media and as users that cannot write. What a writer left
// when it was killed, a hot rollback journal, is rolled back as any reader would do it, but in
// memory: the connection sees the settled content, the file and its journal stay as evidence.
// Locks of running processes are honoured: a shared lock is real, what lies above it is not.
const char* register_look_vfs();

}  // namespace cli::look

#endif
