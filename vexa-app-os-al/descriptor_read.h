// SPDX-License-Identifier: MIT
// The start of a file, also where it comes in pieces.
#ifndef VEXADM_OS_DESCRIPTOR_READ_H
#define VEXADM_OS_DESCRIPTOR_READ_H

#include <sys/types.h>

#include <span>

namespace vexa {

// Reads until the buffer is full or the file ends. Bytes read; -1 when a read fails, whatever came
// before: half a value is worse than none.
ssize_t read_full(int fd, std::span<char> buffer);

// The same from the start of a file; -1 also when it cannot be opened.
ssize_t read_start(const char* path, std::span<char> buffer);

}  // namespace vexa

#endif
