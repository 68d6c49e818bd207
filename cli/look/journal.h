// SPDX-License-Identifier: MIT
// The journal's one row.
#ifndef VEXADM_CLI_JOURNAL_H
#define VEXADM_CLI_JOURNAL_H

#include <cstdint>

#include "base/text.h"

namespace cli::look {

struct JournalRow {
  bool found = false;
  bool missing = false;  // no file
  bool empty = false;    // a file without the table or the row
  Text why;              // otherwise: what SQLite says
  Text table;
  Text key;
  int64_t id = 0;
  int64_t type = 0;
  int64_t length = 0;
  int64_t state = 0;
};

JournalRow read_journal(const char* path);
const char* state_name(int64_t state);

}  // namespace cli::look

#endif
