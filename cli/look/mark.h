// SPDX-License-Identifier: MIT
// Whether a database file has changed, without reading it.
#ifndef VEXADM_CLI_MARK_H
#define VEXADM_CLI_MARK_H

#include <sys/types.h>

#include <cstring>

namespace cli::look {

// What changes whenever the file's content does, without reading it: a commit counts up the number
// at byte 24 (sqlite.org/fileformat.html, 1.3.7), and the library replaces the backup as a file.
struct Mark {
  dev_t device = 0;
  ino_t inode = 0;
  unsigned char counter[4] = {};
  bool operator==(const Mark& other) const {
    return device == other.device && inode == other.inode &&
           std::memcmp(counter, other.counter, sizeof counter) == 0;
  }
};

// Zeros where there is no file. Not while this process has a connection to it: the file is opened and
// closed, which drops its locks.
Mark mark_of(const char* path);

}  // namespace cli::look

#endif
