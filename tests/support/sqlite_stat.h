// SPDX-License-Identifier: MIT
// stat() as SQLite calls it: where long has 32 bits, its record is another one than the tests'.
#ifndef VEXADM_TESTS_SQLITE_STAT_H
#define VEXADM_TESTS_SQLITE_STAT_H

namespace vexa_test {

// Fills SQLite's record of a path, or that of another file in its place.
int stat_for_sqlite(const char* path, void* status, bool of_another_file);

}  // namespace vexa_test

#endif
