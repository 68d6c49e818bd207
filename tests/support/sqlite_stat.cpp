// SPDX-License-Identifier: MIT
#include "support/sqlite_stat.h"

#include <sys/stat.h>

namespace vexa_test {

int stat_for_sqlite(const char* path, void* status, bool of_another_file) {
  auto* const record = static_cast<struct stat*>(status);
  const int result = stat(path, record);
  if (of_another_file) record->st_ino += 1;
  return result;
}

}  // namespace vexa_test
