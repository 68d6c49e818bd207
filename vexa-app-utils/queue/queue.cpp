// SPDX-License-Identifier: MIT
// The intrusive queue: a ring of links through the header, under the header's mutex.
#include "vexadm/queue.h"

#include <cstddef>
#include <cstdio>
#include <utility>

#include "owners.h"

static_assert(sizeof(q_link_node) == 2 * sizeof(void*));
static_assert(offsetof(q_link_node, next) == 0 && offsetof(q_link_node, prev) == sizeof(void*));
// Elements and headers start with the same two words: the header closes the ring as one more link.
static_assert(offsetof(q_queue, ends) == 0 && offsetof(q_queue, count) == 2 * sizeof(void*));
static_assert(offsetof(q_queue, lock) == (sizeof(void*) == 8 ? 24 : 12));

namespace {

using vexa::MutexLock;

// Announces a NULL argument; the caller then uses the argument all the same. The process must end
// at that use, where its core dump shows who called, and not by an abort in here. Flushed, because
// the fault would lose what a redirected output still holds.
void expect(bool condition) {
  if (condition) return;
  std::puts(
      "...in file "
      "queue/queue"
      "Assertion failed...");
  std::fflush(stdout);
}

// Hides where a pointer comes from: what a compiler knows to be NULL it turns into a trap or drops,
// and neither is a segmentation fault at the access.
template <typename T>
T* as_given(T* pointer) {
  __asm__("" : "+r"(pointer));
  return pointer;
}

q_link_node* header_of(q_queue* queue) { return &queue->ends; }

// q_cnt reads the count without the lock, so every change is one atomic store.
void set_count(q_queue* queue, int32_t count) { __atomic_store_n(&queue->count, count, __ATOMIC_RELAXED); }

void add_count(q_queue* queue, int32_t by) { set_count(queue, queue->count + by); }

void reset(q_queue* queue) {
  set_count(queue, 0);
  queue->ends.next = queue->ends.prev = header_of(queue);
}

// The steps below expect the queue's lock to be held.

q_link_node* first(const q_queue* queue) { return queue->count < 1 ? nullptr : queue->ends.next; }

q_link_node* after(q_queue* queue, const q_link_node* link) {
  return link->next == header_of(queue) ? nullptr : link->next;
}

// Takes the head out of the ring and leaves its own pointers alone.
q_link_node* detach_first(q_queue* queue) {
  q_link_node* const head = queue->ends.next;
  queue->ends.next = head->next;
  as_given(head->next)->prev = header_of(queue);
  add_count(queue, -1);
  return head;
}

void unlink(q_queue* queue, q_link_node* link) {
  link->prev->next = link->next;
  link->next->prev = link->prev;
  add_count(queue, -1);
  link->next = nullptr;
}

// The first element for which compare says yes, and the one before it.
struct Match {
  q_link_node* before;  // null: the match is the head
  q_link_node* link;    // null: nothing matches
};

Match find(q_queue* queue, q_compare_fn compare, const void* value) {
  q_link_node* before = nullptr;
  for (q_link_node* link = first(queue); link; link = after(queue, link)) {
    if (compare(link, value)) return {before, link};
    before = link;
  }
  return {before, nullptr};
}

// Removes a match as from a singly linked list: behind the head no prev is repaired. The header
// tells callers to walk by next only.
void remove(q_queue* queue, const Match& match) {
  if (match.before) {
    match.before->next = match.link->next;
    add_count(queue, -1);
  } else {
    detach_first(queue);
  }
  match.link->next = nullptr;
}

// Where the header holds no next link, the queue was destroyed. The lock then stays taken, so that
// threads which go on using the queue stop there instead of linking elements into freed memory.
template <typename Take>
q_link_node* take_first(q_queue* queue, Take take) {
  expect(queue != nullptr);
  queue = as_given(queue);
  pthread_mutex_lock(&queue->lock);
  if (!queue->ends.next) return nullptr;
  q_link_node* const head = queue->count > 0 ? take(queue) : nullptr;
  pthread_mutex_unlock(&queue->lock);
  return head;
}

}  // namespace

q_queue* q_init(q_queue* queue) {
  expect(queue != nullptr);
  queue = as_given(queue);
  reset(queue);
  pthread_mutex_init(&queue->lock, nullptr);
  return queue;
}

int32_t q_destroy(q_queue* queue) {
  expect(queue != nullptr);
  queue = as_given(queue);
  {
    const MutexLock lock(queue->lock);
    queue->ends = {};
    set_count(queue, 0);
  }
  return pthread_mutex_destroy(&queue->lock);
}

q_link_node* q_link(void*, q_link_node* link) {
  expect(link != nullptr);
  link = as_given(link);
  *link = {};
  return link;
}

void q_put(q_queue* queue, q_link_node* link) {
  queue = as_given(queue);
  const MutexLock lock(queue->lock);
  expect(link != nullptr);
  link = as_given(link);
  link->next = header_of(queue);
  link->prev = queue->ends.prev;
  queue->ends.prev->next = link;
  queue->ends.prev = link;
  add_count(queue, 1);
}

q_link_node* q_get(q_queue* queue) {
  return take_first(queue, [](q_queue* locked) {
    q_link_node* const head = detach_first(locked);
    head->next = nullptr;
    return head;
  });
}

q_link_node* q_get_ext(q_queue* queue) {
  return take_first(queue, [](q_queue* locked) {
    if (!locked->ends.next->next) {
      std::puts("link_ptr->next_ptr is NULL");
      std::fflush(stdout);
    }
    return detach_first(locked);
  });
}

q_link_node* q_last_get(q_queue* queue) {
  expect(queue != nullptr);
  queue = as_given(queue);
  const MutexLock lock(queue->lock);
  if (queue->count <= 0) return nullptr;
  q_link_node* const tail = queue->ends.prev;
  queue->ends.prev = tail->prev;
  tail->prev->next = header_of(queue);
  add_count(queue, -1);
  tail->next = nullptr;
  return tail;
}

q_link_node* q_check(q_queue* queue) {
  expect(queue != nullptr);
  queue = as_given(queue);
  const MutexLock lock(queue->lock);
  return first(queue);
}

q_link_node* q_last_check(q_queue* queue) {
  expect(queue != nullptr);
  queue = as_given(queue);
  const MutexLock lock(queue->lock);
  return queue->count < 1 ? nullptr : queue->ends.prev;
}

q_link_node* q_next(q_queue* queue, q_link_node* link) {
  expect(queue != nullptr && link != nullptr);
  queue = as_given(queue);
  const MutexLock lock(queue->lock);
  return after(queue, as_given(link));
}

void q_insert(q_queue* queue, q_link_node* link, q_link_node* existing) {
  expect(queue != nullptr && link != nullptr && existing != nullptr);
  queue = as_given(queue);
  link = as_given(link);
  existing = as_given(existing);
  const MutexLock lock(queue->lock);
  link->next = existing;
  link->prev = existing->prev;
  existing->prev->next = link;
  existing->prev = link;
  add_count(queue, 1);
}

void q_delete(q_queue* queue, q_link_node* link) {
  expect(queue != nullptr && link != nullptr);
  queue = as_given(queue);
  const MutexLock lock(queue->lock);
  unlink(queue, as_given(link));
}

uint32_t q_delete_ext(q_queue* queue, q_link_node* link) {
  q_delete(queue, link);
  return 1;
}

int32_t q_cnt(q_queue* queue) {
  expect(queue != nullptr);
  return __atomic_load_n(&as_given(queue)->count, __ATOMIC_RELAXED);
}

void q_m_put(q_queue* destination, q_queue* source) {
  expect(destination != nullptr && source != nullptr);
  destination = as_given(destination);
  source = as_given(source);
  const MutexLock source_lock(source->lock);
  if (q_cnt(source) == 0) return;
  const MutexLock destination_lock(destination->lock);

  q_link_node* const tail = source->ends.prev;
  if (source->count > 0 && tail) {
    // The head's prev keeps naming the source: moved elements are reached through next.
    tail->next = header_of(destination);
    destination->ends.prev->next = source->ends.next;
    destination->ends.prev = tail;
  } else {
    expect(false);
    destination->ends.prev = nullptr;
  }
  add_count(destination, source->count);
  // The mutex is held, by this call; making it anew would strand every thread that waits for it.
  // Unlocked in a moment, it is as good as new.
  reset(source);
}

q_link_node* q_linear_search(q_queue* queue, q_compare_fn compare, const void* value, const void*) {
  expect(queue != nullptr && compare != nullptr);
  compare = reinterpret_cast<q_compare_fn>(as_given(reinterpret_cast<void*>(compare)));
  for (q_link_node* link = q_check(queue); link; link = q_next(queue, link)) {
    if (compare(link, value)) return link;
  }
  return nullptr;
}

void q_linear_delete(q_queue* queue, q_compare_fn compare, void* value, q_action_fn action) {
  if (!compare) return;
  expect(queue != nullptr);
  queue = as_given(queue);
  const MutexLock lock(queue->lock);
  const Match match = find(queue, compare, nullptr);
  if (!match.link) return;
  remove(queue, match);
  if (match.before && queue->count == 1) queue->ends.prev = queue->ends.next;
  if (action) action(match.link, value);
}

q_link_node* q_linear_delete_new(q_queue* queue, q_compare_fn compare, const void* compare_value,
                                 q_action_fn action, void* action_value) {
  if (!queue || !compare) return nullptr;
  const MutexLock lock(queue->lock);
  const Match match = find(queue, compare, compare_value);
  if (!match.link) return nullptr;
  remove(queue, match);
  if (action) action(match.link, action_value);
  return match.link;
}
