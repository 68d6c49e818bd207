// SPDX-License-Identifier: MIT
// Typed value records, and the allocation names that go with them.
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "vexadm/symtab.h"

static_assert(sizeof(vexa_sym_value) == 14 && alignof(vexa_sym_value) == 1);
static_assert(sizeof(vexa_sym_value::value) == 8);
static_assert(offsetof(vexa_sym_value, value) == 0 && offsetof(vexa_sym_value, type) == 8);
static_assert(offsetof(vexa_sym_value, valid) == 12 && offsetof(vexa_sym_value, allocated) == 13);

namespace {

constexpr int32_t kPrivateCopy = 1;

// Zeroed as a whole, so that records of equal meaning have equal bytes.
vexa_sym_value record(uint32_t type) {
  vexa_sym_value value;
  std::memset(&value, 0, sizeof value);
  value.type = type;
  value.valid = 1;
  return value;
}

}  // namespace

vexa_sym_value valueInteger(int32_t integer) {
  vexa_sym_value value = record(VEXA_SYM_INTEGER);
  value.value.integer = integer;
  return value;
}

vexa_sym_value valueSymbol(void* symbol) {
  vexa_sym_value value = record(VEXA_SYM_SYMBOL);
  value.value.symbol = symbol;
  return value;
}

vexa_sym_value valueString(const char* string, int32_t flags) {
  vexa_sym_value value = record(VEXA_SYM_STRING);
  if (flags & kPrivateCopy) {
    value.value.string = bstrdupNoBalloc(string);
    value.allocated = 1;
  } else {
    value.value.string = const_cast<char*>(string);
  }
  return value;
}

void valueFree(vexa_sym_value* value) {
  if (value->valid && value->allocated && value->type == VEXA_SYM_STRING) std::free(value->value.string);
  value->type = 0;
  value->valid = 0;
  value->allocated = 0;
}

void bopen() {}

void* bclose(void* argument) { return argument; }

void* bstats(void* argument) { return argument; }

char* bstrdupNoBalloc(const char* string) { return strdup(string ? string : ""); }

char* bstrdupANoBalloc(const char* string) { return bstrdupNoBalloc(string); }

void* bmemdupNoBalloc(const void* data, int32_t count) {
  if (count < 0) return nullptr;
  const auto size = static_cast<std::size_t>(count);
  void* const block = std::calloc(1, size);
  if (block && data) std::memcpy(block, data, size);
  return block;
}
