// SPDX-License-Identifier: MIT
// The library's own strsep, for hosts whose C library has none.
//
// Declared here and not by <string.h>: where the C library declares the function, it does so with
// attributes and a noexcept of its own, which a definition would have to repeat.
#include "vexadm/export.h"

extern "C" VEXA_API char* strsep(char** stringp, const char* delims);

namespace {

bool is_one_of(char c, const char* set) {
  for (; *set; ++set) {
    if (*set == c) return true;
  }
  return false;
}

}  // namespace

char* strsep(char** stringp, const char* delims) {
  char* const piece = *stringp;
  if (!piece) return nullptr;
  char* end = piece;
  while (*end && !is_one_of(*end, delims)) ++end;
  if (*end) {
    *end = '\0';
    *stringp = end + 1;
  } else {
    *stringp = nullptr;
  }
  return piece;
}
