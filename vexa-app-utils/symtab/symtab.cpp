// SPDX-License-Identifier: MIT
// Chained hash tables behind small integer handles.
#include "vexadm/symtab.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "owners.h"

static_assert(offsetof(vexa_sym_entry, next) == 0 && offsetof(vexa_sym_entry, name) == sizeof(void*));
static_assert(offsetof(vexa_sym_entry, content) == sizeof(void*) + 14);
static_assert(offsetof(vexa_sym_entry, arg) == (sizeof(void*) == 8 ? 36 : 32));
static_assert(sizeof(vexa_sym_entry) == (sizeof(void*) == 8 ? 40 : 36));

namespace {

struct Table {
  void* unused;  // keeps the place of the first word, which no operation here needs
  int32_t size;
  vexa_sym_entry** buckets;
};

void** g_tables = nullptr;  // a handle array
int32_t g_bound = 0;        // one above the highest handle in use
int32_t g_users = 0;

// Where the one walk of the process goes on.
struct Cursor {
  int32_t bucket;        // the next bucket to enter once the chain is through
  vexa_sym_entry* next;  // the rest of the current chain
};
constexpr Cursor kWalkEnded = {INT32_MAX, nullptr};
Cursor g_cursor = {0, nullptr};

Table* table_of(int32_t handle) {
  if (!g_tables || handle < 0 || handle >= g_bound) return nullptr;
  return static_cast<Table*>(g_tables[handle]);
}

bool is_prime(int32_t candidate) {
  for (int32_t divisor = 2; divisor <= candidate / divisor; ++divisor) {
    if (candidate % divisor == 0) return false;
  }
  return true;
}

// A prime number of buckets spreads names whose hashes share a factor.
int32_t largest_prime_not_above(int32_t size) {
  if (size <= 1) return 1;
  while (!is_prime(size)) --size;
  return size;
}

uint32_t hash(const char* name) {
  uint32_t sum = 0;
  uint32_t shift = 0;
  for (; *name; ++name) {
    sum += static_cast<uint32_t>(static_cast<unsigned char>(*name)) << shift;
    shift = (shift + 7) % 24;
  }
  return sum;
}

bool same_name(const vexa_sym_entry& entry, const char* name) {
  return std::strcmp(entry.name.value.string, name) == 0;
}

// The link that points to the entry of this name: a bucket or the entry before it. Points to null
// where the name would be added.
vexa_sym_entry** link_to(const Table& table, const char* name) {
  vexa_sym_entry** link = &table.buckets[hash(name) % static_cast<uint32_t>(table.size)];
  while (*link && !same_name(**link, name)) link = &(*link)->next;
  return link;
}

void free_entry(vexa_sym_entry* entry) {
  valueFree(&entry->name);
  valueFree(&entry->content);
  std::free(entry);
}

vexa_sym_entry* new_entry(const char* name) {
  vexa::Heap<vexa_sym_entry> entry = vexa::Heap<vexa_sym_entry>::zeroed(1);
  if (!entry) return nullptr;
  entry.get()->name = valueString(name, 1);
  return entry.get()->name.value.string ? entry.release() : nullptr;
}

Table* new_table(int32_t size) {
  vexa::Heap<Table> table = vexa::Heap<Table>::zeroed(1);
  vexa::Heap<vexa_sym_entry*> buckets = vexa::Heap<vexa_sym_entry*>::zeroed(static_cast<std::size_t>(size));
  if (!table || !buckets) return nullptr;
  table.get()->size = size;
  table.get()->buckets = buckets.release();
  return table.release();
}

}  // namespace

int32_t symSubOpen() {
  if (++g_users == 1) {
    g_tables = nullptr;
    g_bound = 0;
  }
  return 0;
}

void symSubClose() {
  if (g_users > 0) --g_users;
}

int32_t symOpen(int32_t hash_size) {
  const int32_t handle = hAlloc(&g_tables);
  if (handle < 0) return -1;
  if (g_bound <= handle) g_bound = handle + 1;

  Table* const table = new_table(largest_prime_not_above(hash_size));
  if (!table) {
    g_bound = hFree(&g_tables, handle);
    return -1;
  }
  g_tables[handle] = table;
  return handle;
}

void symClose(int32_t handle) {
  Table* const table = table_of(handle);
  if (!table) return;
  for (int32_t bucket = 0; bucket < table->size; ++bucket) {
    for (vexa_sym_entry* entry = table->buckets[bucket]; entry;) {
      vexa_sym_entry* const next = entry->next;
      if (g_cursor.next == entry) g_cursor = kWalkEnded;
      free_entry(entry);
      entry = next;
    }
  }
  std::free(table->buckets);
  g_bound = hFree(&g_tables, handle);
  std::free(table);
}

vexa_sym_entry* symLookup(int32_t handle, const char* name) {
  const Table* const table = table_of(handle);
  if (!table || !name || !*name) return nullptr;
  return *link_to(*table, name);
}

vexa_sym_entry* symEnter(int32_t handle, const char* name, vexa_sym_value content, int32_t arg) {
  const Table* const table = table_of(handle);
  if (!table) return nullptr;

  vexa_sym_entry** const link = link_to(*table, name);
  if (*link) {
    valueFree(&(*link)->content);
  } else {
    *link = new_entry(name);
    if (!*link) return nullptr;
  }
  (*link)->content = content;
  (*link)->arg = arg;
  return *link;
}

// The handle is not tested: who deletes from a table that is not open holds entries of a table that
// is gone, and should stop here. The pointer's origin is hidden so that the fault really happens.
int32_t symDelete(int32_t handle, const char* name) {
  const Table* table = table_of(handle);
  __asm__("" : "+r"(table));
  vexa_sym_entry** const link = link_to(*table, name);
  vexa_sym_entry* const entry = *link;
  if (!entry) return -1;
  *link = entry->next;
  free_entry(entry);
  return 0;
}

vexa_sym_entry* symFirst(int32_t handle) {
  g_cursor = {0, nullptr};
  return symNext(handle);
}

vexa_sym_entry* symNext(int32_t handle) {
  const Table* const table = table_of(handle);
  if (!table) return nullptr;
  while (!g_cursor.next) {
    if (g_cursor.bucket >= table->size) return nullptr;
    g_cursor.next = table->buckets[g_cursor.bucket++];
  }
  vexa_sym_entry* const entry = g_cursor.next;
  g_cursor.next = entry->next;
  return entry;
}
