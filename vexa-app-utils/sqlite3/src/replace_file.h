// SPDX-License-Identifier: MIT
// Replacing one database file by a copy of another.
//
// Readers of other processes see the old file or the new one, never a mixture; both content
// and directory entry are on storage when a function returns true. False: the target is as it
// was, or new without being certain to stay so after a power cut. Whoever copies locks the primary first,
// whichever side it is on, so that two copies cannot block each other and the older image never lands last.
#ifndef VEXADM_STORAGE_REPLACE_FILE_H
#define VEXADM_STORAGE_REPLACE_FILE_H

#include "sqlite3/src/database.h"
#include "sqlite3/src/write_lock.h"

namespace vexa::storage {

// Puts a name that was made, changed or removed on storage: the directory that it is in.
bool sync_directory_of(const char* path);

// The same for a file that a copy may have been renamed over: its links are followed.
bool sync_replacement_of(const char* path);

// Copies the primary, whose lock the caller holds, over another file.
bool copy_over(const WriteLock& source, const char* from, const char* to);

// A file that a connection has found damaged.
struct DamagedFile {
  const char* path;
  FileIdentity identity;
};

// Copies a sound file over the primary, if it can: what came of it, the next access sees. When the
// damaged file is no longer the one in its place, another process has mended it, and nothing is
// copied.
void restore(const char* from, const char* to, const DamagedFile& damaged);

// Field tools expect the line of a command after each copy, which had no output.
void log_copied();

}  // namespace vexa::storage

#endif
