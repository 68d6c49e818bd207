// SPDX-License-Identifier: MIT
// Arrays of pointer slots that grow, with their two counters hidden in front.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "vexadm/symtab.h"

namespace {

constexpr int32_t kGrowth = 16;
constexpr std::size_t kHeaderWords = 2;

struct Counters {
  int32_t capacity;
  int32_t used;
};

int32_t& capacity_of(void** slots) { return *static_cast<int32_t*>(slots[-2]); }

int32_t& used_of(void** slots) { return *static_cast<int32_t*>(slots[-1]); }

void** block_of(void** slots) { return slots ? slots - kHeaderWords : nullptr; }

// A block for this many slots in place of the one in front of slots. Null, with the old one intact,
// when memory is short.
void** resized(void** slots, int32_t capacity) {
  const std::size_t words = kHeaderWords + static_cast<std::size_t>(capacity);
  void* const block = std::realloc(block_of(slots), words * sizeof(void*));
  return block ? static_cast<void**>(block) + kHeaderWords : nullptr;
}

void** create() {
  auto* const counters = static_cast<Counters*>(std::calloc(1, sizeof(Counters)));
  void** const slots = counters ? resized(nullptr, kGrowth) : nullptr;
  if (!slots) {
    std::free(counters);
    return nullptr;
  }
  std::memset(slots, 0, kGrowth * sizeof(void*));
  counters->capacity = kGrowth;
  slots[-2] = &counters->capacity;
  slots[-1] = &counters->used;
  return slots;
}

void destroy(void** slots) {
  std::free(&capacity_of(slots));  // the first of the two counters, which share one allocation
  std::free(block_of(slots));
}
static_assert(offsetof(Counters, capacity) == 0);

// The first slot that holds nothing; capacity when all are filled.
int32_t first_null(void** slots) {
  int32_t index = 0;
  while (index < capacity_of(slots) && slots[index]) ++index;
  return index;
}

}  // namespace

int32_t hAlloc(void*** array) {
  if (!*array) *array = create();
  if (!*array) return -1;

  const int32_t index = first_null(*array);
  const int32_t capacity = capacity_of(*array);
  if (index == capacity) {
    if (capacity > INT32_MAX - kGrowth) return -1;
    void** const grown = resized(*array, capacity + kGrowth);
    if (!grown) return -1;
    std::memset(grown + capacity, 0, kGrowth * sizeof(void*));
    capacity_of(grown) = capacity + kGrowth;
    *array = grown;
  }
  // Counted here although the slot stays null until the caller fills it: hFree counts down in the
  // same way, and an array lives as long as anybody owes it an hFree.
  ++used_of(*array);
  return index;
}

int32_t hFree(void*** array, int32_t index) {
  void** const slots = array ? *array : nullptr;
  if (!slots || index < 0 || index >= capacity_of(slots)) return -1;

  slots[index] = nullptr;
  if (--used_of(slots) <= 0) {
    destroy(slots);
    *array = nullptr;
    return 0;
  }
  int32_t bound = capacity_of(slots);
  while (bound > 0 && !slots[bound - 1]) --bound;
  return bound;
}

int32_t hAllocEntry(void*** array, int32_t* max, int32_t size) {
  const int32_t index = hAlloc(array);
  if (index < 0) return -1;
  if (size > 0) {
    void* const object = std::calloc(1, static_cast<std::size_t>(size));
    if (!object) {
      hFree(array, index);
      return -1;
    }
    (*array)[index] = object;
  }
  if (*max <= index) *max = index + 1;
  return index;
}
