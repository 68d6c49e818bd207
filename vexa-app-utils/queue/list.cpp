// SPDX-License-Identifier: MIT
// The singly linked list.
#include <cstddef>

#include "owners.h"
#include "vexadm/list.h"

static_assert(sizeof(list_link) == sizeof(void*));
static_assert(offsetof(list_header, head) == 0 && offsetof(list_header, tail) == sizeof(void*));
static_assert(offsetof(list_header, count) == 2 * sizeof(void*));
static_assert(offsetof(list_header, initialised) == 2 * sizeof(void*) + 4);
static_assert(offsetof(list_header, lock) == 2 * sizeof(void*) + 8);

namespace {

using vexa::MutexLock;

// A header of zeros is an empty list.
list_header& ready(list_header* list) {
  if (list->initialised != 1) list_init(list);
  return *list;
}

// The steps below expect the lock to be held.

// Of a list with elements. A merge may have left it without a tail, and a push to its front may have
// filled that place since, so that the tail is only where to begin.
list_link* last(const list_header& list) {
  list_link* link = list.tail ? list.tail : list.head;
  while (link->next) link = link->next;
  return link;
}

// Where a link stands: the one before it (null for the head) and how many there are before it.
struct Place {
  list_link* before = nullptr;
  uint32_t index = 0;
  bool found = false;
};

Place find(const list_header& list, const list_link* wanted) {
  Place place;
  for (list_link* link = list.count == 0 ? nullptr : list.head; link; link = link->next) {
    if (link == wanted) {
      place.found = true;
      return place;
    }
    place.before = link;
    ++place.index;
  }
  return place;
}

// The removed link keeps its own pointer.
void remove(list_header& list, const Place& place, list_link* link) {
  (place.before ? place.before->next : list.head) = link->next;
  if (!link->next) {
    list.tail = place.before;
  } else if (list.tail == link) {
    list.tail = nullptr;
  }
  --list.count;
}

}  // namespace

void list_init(list_header* list) {
  if (!list) return;
  pthread_mutex_init(&list->lock, nullptr);
  list->head = list->tail = nullptr;
  list->count = 0;
  list->initialised = 1;
}

void list_destroy(list_header* list) {
  if (!list) return;
  pthread_mutex_destroy(&ready(list).lock);
  list->head = list->tail = nullptr;
  list->count = 0;
  list->initialised = 0;
}

void list_push_front(list_header* list, list_link* link) {
  if (!list || !link) return;
  const MutexLock lock(ready(list).lock);
  link->next = list->head;
  list->head = link;
  if (!list->tail) list->tail = link;
  ++list->count;
}

list_link* list_pop_front(list_header* list) {
  if (!list) return nullptr;
  const MutexLock lock(ready(list).lock);
  if (list->count == 0) return nullptr;
  list_link* const link = list->head;
  list->head = link->next;
  if (!list->head || list->tail == link) list->tail = nullptr;
  --list->count;
  return link;
}

void list_push_back(list_header* list, list_link* link) {
  if (!list || !link) return;
  const MutexLock lock(ready(list).lock);
  link->next = nullptr;
  (list->count == 0 ? list->head : last(*list)->next) = link;
  list->tail = link;
  ++list->count;
}

list_link* list_pop_back(list_header* list) {
  if (!list) return nullptr;
  const MutexLock lock(ready(list).lock);
  if (list->count == 0) return nullptr;
  list_link* const link = last(*list);
  if (link == list->head) {
    list->head = list->tail = nullptr;
  } else {
    list_link* before = list->head;
    while (before->next != link) before = before->next;
    before->next = nullptr;
    list->tail = before;
  }
  --list->count;
  return link;
}

uint32_t list_size(list_header* list) {
  if (!list) return 0;
  const MutexLock lock(ready(list).lock);
  return list->count;
}

list_link* list_peek_front(list_header* list) {
  if (!list) return nullptr;
  const MutexLock lock(ready(list).lock);
  return list->head;
}

list_link* list_peek_back(list_header* list) {
  if (!list) return nullptr;
  const MutexLock lock(ready(list).lock);
  return list->tail;
}

list_link* list_peek_next(list_header* list, list_link* link) {
  if (!list || !link) return nullptr;
  const MutexLock lock(ready(list).lock);
  return list->count == 0 ? nullptr : link->next;
}

list_link* list_peek_prev(list_header* list, list_link* link) {
  if (!list || !link) return nullptr;
  const MutexLock lock(ready(list).lock);
  const Place place = find(*list, link);
  return place.found ? place.before : nullptr;
}

void list_push_before(list_header* list, list_link* link, list_link* existing) {
  if (!list || !link || !existing) return;
  const MutexLock lock(ready(list).lock);
  const Place place = find(*list, existing);
  if (!place.found) return;
  link->next = existing;
  (place.before ? place.before->next : list->head) = link;
  ++list->count;
}

void list_push_after(list_header* list, list_link* link, list_link* existing) {
  if (!list || !link || !existing) return;
  const MutexLock lock(ready(list).lock);
  if (list->count == 0) return;
  link->next = existing->next;
  existing->next = link;
  if (list->tail == existing) list->tail = link;
  ++list->count;
}

list_link* list_pop_item(list_header* list, list_link* link) {
  if (!list || !link) return nullptr;
  const MutexLock lock(ready(list).lock);
  const Place place = find(*list, link);
  if (!place.found) return nullptr;
  remove(*list, place, link);
  return link;
}

list_link* list_linear_search(list_header* list, list_compare_fn compare, const void* value) {
  if (!list || !compare) return nullptr;
  const MutexLock lock(ready(list).lock);
  for (list_link* link = list->head; link; link = link->next) {
    if (compare(link, value)) return link;
  }
  return nullptr;
}

void list_merge(list_header* dst, list_header* src) {
  if (!dst || !src || dst == src) return;
  const MutexLock dst_lock(ready(dst).lock);
  const MutexLock src_lock(ready(src).lock);
  (dst->count == 0 ? dst->head : last(*dst)->next) = src->head;
  // Also an empty source's: the header tells callers what a null means there.
  dst->tail = src->tail;
  dst->count += src->count;
  src->head = src->tail = nullptr;
  src->count = 0;
}

void list_split(list_header* list, list_link* link, list_header* second) {
  if (!list || !link || !second || list == second) return;
  const MutexLock list_lock(ready(list).lock);
  const MutexLock second_lock(ready(second).lock);
  const Place place = find(*list, link);
  if (!place.found) return;
  second->head = link;
  second->tail = list->tail ? last(*list) : nullptr;
  second->count = list->count - place.index;
  (place.before ? place.before->next : list->head) = nullptr;
  list->tail = place.before;
  list->count = place.index;
}
