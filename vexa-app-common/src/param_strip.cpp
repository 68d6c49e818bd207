// SPDX-License-Identifier: MIT
// Parameters of AT lines without what surrounds them.
#include <cstring>

#include "vexadm/at_command.h"

char* vexa_at_param_strip(char* text, const char* set) {
  if (!text || !set) return text;
  char* const begin = text + std::strspn(text, set);
  // The first character that is left is not of the set: the walk back ends there at the latest.
  for (char* end = begin + std::strlen(begin); end > begin && std::strchr(set, end[-1]); --end)
    end[-1] = '\0';
  return begin;
}
