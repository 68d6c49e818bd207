// SPDX-License-Identifier: MIT
// What cannot be saved: the bare SQLite and system calls of one read and one write.
#ifndef VEXADM_BENCH_FLOOR_H
#define VEXADM_BENCH_FLOOR_H

#include <cstdint>
#include <string>

namespace bench::floor {

// Opens a file, reads one value, closes it. Bytes read, or -1.
int read_value(const char* path, const char* table, const std::string& key, void* buffer, int capacity);

// Both files, as a read of an item does.
int read_item(const char* table, const std::string& key, void* buffer, int capacity);

// Four transactions that a power cut does not undo (journal, item, journal, journal), a quick
// check of the primary, and a durable copy of it over the backup. False when any of it failed.
bool write_item(const char* table, uint32_t id, const std::string& key, const void* data, int length);

// Both version reads and the journal's row, as a start looks at them. False when any failed.
bool start();

}  // namespace bench::floor

#endif
