// SPDX-License-Identifier: MIT
#include "param_db/types.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "log/call_site.h"
#include "vexadm/strings.h"

namespace vexa::param_db {
namespace {

// By bytes: a host's variable need not be aligned, and the widths are the table's and not the host's.
template <typename T, typename V>
void put(void* variable, V value) {
  const T narrowed = static_cast<T>(value);
  std::memcpy(variable, &narrowed, sizeof narrowed);
}

template <typename T>
T take(const void* variable) {
  T value = 0;
  std::memcpy(&value, variable, sizeof value);
  return value;
}

void put_text(char* text, const char* cell, uint32_t size) {
  if (size == 0) return;
  std::memset(text, 0, size);
  vexa_string_memcpy(text, cell, size - 1);
}

Variable kind_of(uint32_t type, Variable ParamType::*column) {
  return type < kParamTypes.size() ? kParamTypes[type].*column : Variable::kNone;
}

}  // namespace

bool takes(uint32_t type, Variable ParamType::*column) { return kind_of(type, column) != Variable::kNone; }

Variable variable_of(uint32_t type, Variable ParamType::*column, const char* function) {
  const Variable kind = kind_of(type, column);
  if (kind == Variable::kNone)
    VEXA_LOG(log::kError, function, "Error, param_type:%d \n", static_cast<int>(type));
  return kind;
}

void store(Variable kind, const char* cell, void* variable, uint32_t size) {
  const char* const number = cell ? cell : "0";
  switch (kind) {
    case Variable::kByte:
      return put<uint8_t>(variable, std::strtol(number, nullptr, 10));
    case Variable::kHalf:
      return put<uint16_t>(variable, std::strtol(number, nullptr, 10));
    case Variable::kWord:
      return put<uint32_t>(variable, std::strtol(number, nullptr, 10));
    case Variable::kLong:
      return put<int64_t>(variable, std::strtoll(number, nullptr, 10));
    case Variable::kText:
      return put_text(static_cast<char*>(variable), cell, size);
    case Variable::kNone:
      return;
  }
}

int shown_byte(const void* variable) { return take<uint8_t>(variable); }

int shown_word(const void* variable) { return static_cast<int>(take<uint32_t>(variable)); }

unsigned long long shown_long(const void* variable) { return take<uint64_t>(variable); }

int shown_length(const void* variable, uint32_t size) {
  // More than a statement holds need not be looked at.
  constexpr std::size_t kMost = 4096;
  const std::size_t bound = size > 0 ? std::min<std::size_t>(size, kMost) : kMost;
  return static_cast<int>(strnlen(static_cast<const char*>(variable), bound));
}

}  // namespace vexa::param_db
