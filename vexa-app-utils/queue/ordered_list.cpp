// SPDX-License-Identifier: MIT
// The doubly linked list that keeps itself sorted.
#include <cstddef>

#include "owners.h"
#include "vexadm/list.h"

static_assert(offsetof(ordered_list_link, next) == 0 && offsetof(ordered_list_link, prev) == sizeof(void*));
static_assert(offsetof(ordered_list_link, key) == 2 * sizeof(void*));
static_assert(offsetof(ordered_list_header, head) == 0);
static_assert(offsetof(ordered_list_header, tail) == sizeof(void*));
static_assert(offsetof(ordered_list_header, count) == 2 * sizeof(void*));
static_assert(offsetof(ordered_list_header, mode) == 2 * sizeof(void*) + 4);
static_assert(offsetof(ordered_list_header, initialised) == 2 * sizeof(void*) + 8);
static_assert(offsetof(ordered_list_header, lock) == (sizeof(void*) == 8 ? 32 : 20));

namespace {

using vexa::MutexLock;

ordered_list_header& ready(ordered_list_header* list) {
  if (list->initialised != 1) ordered_list_init(list, ORDERED_LIST_ASCENDING, ORDERED_LIST_BEFORE_EQUALS);
  return *list;
}

// True when an element stays behind a new one.
using StaysBehind = bool (*)(uint32_t key, uint32_t new_key);

struct Rule {
  uint32_t mode;
  StaysBehind stays_behind;
};

constexpr Rule kRules[] = {
    {ORDERED_LIST_ASCENDING | ORDERED_LIST_BEFORE_EQUALS, [](uint32_t key, uint32_t n) { return key >= n; }},
    {ORDERED_LIST_DESCENDING | ORDERED_LIST_BEFORE_EQUALS, [](uint32_t key, uint32_t n) { return key <= n; }},
    {ORDERED_LIST_ASCENDING | ORDERED_LIST_AFTER_EQUALS, [](uint32_t key, uint32_t n) { return key > n; }},
    {ORDERED_LIST_DESCENDING | ORDERED_LIST_AFTER_EQUALS, [](uint32_t key, uint32_t n) { return key < n; }},
};

StaysBehind rule_of(uint32_t mode) {
  for (const Rule& rule : kRules) {
    if (rule.mode == mode) return rule.stays_behind;
  }
  return nullptr;
}

// The steps below expect the lock to be held.

// How many links stand before this one; the list's count where it is not among them.
uint32_t index_of(const ordered_list_header& list, const ordered_list_link* wanted) {
  uint32_t index = 0;
  const ordered_list_link* link = list.count == 0 ? nullptr : list.head;
  while (link && link != wanted) {
    link = link->next;
    ++index;
  }
  return index;
}

// The removed link keeps its own pointers.
ordered_list_link* remove(ordered_list_header& list, ordered_list_link* link) {
  (link->prev ? link->prev->next : list.head) = link->next;
  (link->next ? link->next->prev : list.tail) = link->prev;
  --list.count;
  return link;
}

}  // namespace

void ordered_list_init(ordered_list_header* list, uint32_t order, uint32_t tie_rule) {
  if (!list) return;
  pthread_mutex_init(&list->lock, nullptr);
  list->mode = order | tie_rule;
  list->head = list->tail = nullptr;
  list->count = 0;
  list->initialised = 1;
}

// Leaves the tail: head, count and flag say that nothing is there.
void ordered_list_destroy(ordered_list_header* list) {
  if (!list) return;
  pthread_mutex_destroy(&ready(list).lock);
  list->head = nullptr;
  list->count = 0;
  list->initialised = 0;
}

void ordered_list_push(ordered_list_header* list, ordered_list_link* link, uint32_t key) {
  if (!list || !link) return;
  const MutexLock lock(ready(list).lock);
  link->key = key;
  const StaysBehind stays_behind = rule_of(list->mode);
  if (!stays_behind) return;  // silently: the header promises callers that such a list stays as it is
  if (list->count == 0) {
    link->next = link->prev = nullptr;
    list->head = list->tail = link;
    list->count = 1;
    return;
  }
  // The end first: keys mostly arrive in order.
  if (!stays_behind(list->tail->key, key)) return ordered_list_push_after(list, link, list->tail);
  ordered_list_link* existing = list->head;
  while (!stays_behind(existing->key, key)) existing = existing->next;
  ordered_list_push_before(list, link, existing);
}

void ordered_list_push_after(ordered_list_header* list, ordered_list_link* link,
                             ordered_list_link* existing) {
  if (!list || !link || !existing) return;
  ready(list);
  link->prev = existing;
  link->next = existing->next;
  existing->next = link;
  (link->next ? link->next->prev : list->tail) = link;
  ++list->count;
}

void ordered_list_push_before(ordered_list_header* list, ordered_list_link* link,
                              ordered_list_link* existing) {
  if (!list || !link || !existing) return;
  ready(list);
  link->next = existing;
  link->prev = existing->prev;
  existing->prev = link;
  (link->prev ? link->prev->next : list->head) = link;
  ++list->count;
}

ordered_list_link* ordered_list_pop_front(ordered_list_header* list) {
  if (!list) return nullptr;
  const MutexLock lock(ready(list).lock);
  return list->count == 0 ? nullptr : remove(*list, list->head);
}

ordered_list_link* ordered_list_pop_back(ordered_list_header* list) {
  if (!list) return nullptr;
  const MutexLock lock(ready(list).lock);
  return list->count == 0 ? nullptr : remove(*list, list->tail);
}

uint32_t ordered_list_size(ordered_list_header* list) {
  if (!list) return 0;
  const MutexLock lock(ready(list).lock);
  return list->count;
}

ordered_list_link* ordered_list_peek_front(ordered_list_header* list) {
  if (!list) return nullptr;
  const MutexLock lock(ready(list).lock);
  return list->head;
}

ordered_list_link* ordered_list_peek_back(ordered_list_header* list) {
  if (!list) return nullptr;
  const MutexLock lock(ready(list).lock);
  return list->tail;
}

ordered_list_link* ordered_list_pop_item(ordered_list_header* list, ordered_list_link* link) {
  if (!list || !link) return nullptr;
  const MutexLock lock(ready(list).lock);
  return index_of(*list, link) == list->count ? nullptr : remove(*list, link);
}

ordered_list_link* ordered_list_peek_next(ordered_list_header* list, ordered_list_link* link) {
  if (!list || !link) return nullptr;
  const MutexLock lock(ready(list).lock);
  return list->count == 0 ? nullptr : link->next;
}

ordered_list_link* ordered_list_peek_prev(ordered_list_header* list, ordered_list_link* link) {
  if (!list || !link) return nullptr;
  const MutexLock lock(ready(list).lock);
  return list->count == 0 ? nullptr : link->prev;
}

ordered_list_link* ordered_list_linear_search(ordered_list_header* list, list_compare_fn compare,
                                              const void* value) {
  if (!list || !compare) return nullptr;
  const MutexLock lock(ready(list).lock);
  for (ordered_list_link* link = list->head; link; link = link->next) {
    if (compare(link, value)) return link;
  }
  return nullptr;
}

void ordered_list_split(ordered_list_header* list, ordered_list_link* link, ordered_list_header* second) {
  if (!list || !link || !second || list == second) return;
  const MutexLock list_lock(ready(list).lock);
  const MutexLock second_lock(ready(second).lock);
  const uint32_t kept = index_of(*list, link);
  if (kept == list->count) return;
  second->head = link;
  second->tail = list->tail;
  second->count = list->count - kept;
  second->mode = list->mode;
  list->tail = link->prev;
  (link->prev ? link->prev->next : list->head) = nullptr;
  list->count = kept;
  link->prev = nullptr;
}
