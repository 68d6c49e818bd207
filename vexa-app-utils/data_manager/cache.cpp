// SPDX-License-Identifier: MIT
// The memory cache of item values.
#include "data_manager/cache.h"

#include <pthread.h>
#include <vexadm/data_manager.h>
#include <vexadm/queue.h>

#include <cstddef>
#include <cstring>

#include "log/call_site.h"
#include "owners.h"

namespace {

using vexa::Heap;
using vexa::Turn;

struct Entry {
  q_link_node link;
  pthread_rwlock_t lock;  // guards value and length
  uint32_t id;            // never changes once the entry is in the queue
  uint8_t* value;
  int32_t length;
  Turn turn;  // the storage's, of the value; guarded like it
};
static_assert(offsetof(Entry, link) == 0);

class ReadLock {
 public:
  [[gnu::always_inline]] explicit ReadLock(pthread_rwlock_t& lock) : lock_(lock) {
    pthread_rwlock_rdlock(&lock_);
  }
  ReadLock(const ReadLock&) = delete;
  ReadLock& operator=(const ReadLock&) = delete;
  [[gnu::always_inline]] ~ReadLock() { pthread_rwlock_unlock(&lock_); }

 private:
  pthread_rwlock_t& lock_;
};

class WriteLock {
 public:
  [[gnu::always_inline]] explicit WriteLock(pthread_rwlock_t& lock) : lock_(lock) {
    pthread_rwlock_wrlock(&lock_);
  }
  WriteLock(const WriteLock&) = delete;
  WriteLock& operator=(const WriteLock&) = delete;
  [[gnu::always_inline]] ~WriteLock() { pthread_rwlock_unlock(&lock_); }

 private:
  pthread_rwlock_t& lock_;
};

// Once per process, whichever threads come first: a second q_init would forget the entries.
constinit q_queue entries{};
pthread_once_t entries_once = PTHREAD_ONCE_INIT;

void make_ready() {
  pthread_once(&entries_once, [] { q_init(&entries); });
}

uint32_t is_entry_of(const void* element, const void* id) {
  if (element == nullptr || id == nullptr) return 0;
  return static_cast<const Entry*>(element)->id == *static_cast<const uint32_t*>(id) ? 1 : 0;
}

Entry* find(uint32_t id) {
  return reinterpret_cast<Entry*>(q_linear_search(&entries, is_entry_of, &id, nullptr));
}

void copy_bytes(void* to, const void* from, int32_t count) {
  if (count > 0) std::memcpy(to, from, static_cast<std::size_t>(count));
}

// An empty value still gets a byte, because malloc(0) may answer NULL without being short of memory.
uint8_t* new_value(const void* data, int32_t length) {
  auto value = Heap<uint8_t>::zeroed(length > 0 ? static_cast<std::size_t>(length) : 1);
  VEXA_ASSERT(value, "data_manager/vexa_dm_sync_mem");
  copy_bytes(value.get(), data, length);
  return value.release();
}

void update(Entry& entry, const void* data, int32_t length, Turn turn) {
  if (length < 0) return;
  {
    const WriteLock lock(entry.lock);
    if (turn.is_before(entry.turn)) return;
    if (turn) entry.turn = turn;
    if (entry.length >= length) {
      // What is left behind a shorter value is wiped: it may be a secret that was just replaced.
      if (entry.length > 0) std::memset(entry.value, 0, static_cast<std::size_t>(entry.length));
      copy_bytes(entry.value, data, length);
    } else {
      const Heap<uint8_t> old(entry.value);
      entry.value = new_value(data, length);
    }
    entry.length = length;
  }
  VEXA_LOG(vexa::log::kDebug, "vexa_dm_update_item_value_to_mem", " update_len: %d to_mem \n", length);
}

void add(uint32_t id, const void* data, const int32_t* length, Turn turn) {
  // At error level although nothing is wrong: the line marks, in any log, when an item first
  // entered the cache.
  VEXA_LOG(vexa::log::kError, "vexa_dm_add_item_to_mem", "dm_update_item_value_to_mem:no item found \n");
  if (data == nullptr || length == nullptr || *length < 0) {
    VEXA_LOG(vexa::log::kError, "vexa_dm_add_item_to_mem", "%s NULL\n", "vexa_dm_add_item_to_mem");
    return;
  }

  auto entry = Heap<Entry>::zeroed(1);
  if (!entry) {
    // Under a name of its own, so that a search for it finds this shortage alone.
    VEXA_LOG(vexa::log::kError, "vexa_dm_construct_queue_from_kvl", "oem_MALLOC fail!\r\n");
    return;
  }
  entry.get()->value = new_value(data, *length);
  entry.get()->id = id;
  entry.get()->length = *length;
  entry.get()->turn = turn;
  pthread_rwlock_init(&entry.get()->lock, nullptr);

  Entry* const added = entry.release();
  q_put(&entries, q_link(added, &added->link));
  // Another thread may have been here with the same id: its entry comes first and is the one read.
  if (Entry* const first = find(id); first != added) update(*first, data, *length, turn);
  VEXA_LOG(vexa::log::kDebug, "vexa_dm_add_item_to_mem", " add_item: %x to_mem \n", id);
}

void store(uint32_t id, const void* data, const int32_t* length, Turn turn) {
  make_ready();
  if (Entry* const entry = find(id)) {
    update(*entry, data, *length, turn);
  } else {
    add(id, data, length, turn);
  }
}

}  // namespace

void vexa_dm_rd_from_mem(uint32_t id, uint8_t* buffer, int32_t* length) {
  make_ready();
  if (buffer == nullptr || length == nullptr) return;

  Entry* const entry = find(id);
  if (entry == nullptr) {
    VEXA_LOG(vexa::log::kError, "vexa_dm_read_item_from_mem", "read_item:%x from_mem fail!\n", id);
    *length = -1;
    return;
  }

  {
    const ReadLock lock(entry->lock);
    if (*length >= entry->length) *length = entry->length;
    copy_bytes(buffer, entry->value, *length);
  }
  VEXA_LOG(vexa::log::kDebug, "vexa_dm_read_item_from_mem", "read_item:%x from_mem len %d !!\n", id, *length);
}

void vexa_dm_wr_to_mem(uint32_t id, const void* data, const int32_t* length) {
  store(id, data, length, Turn());
}

void vexa::dm::cache_value(int32_t id, const void* data, int32_t length, Turn turn) {
  store(static_cast<uint32_t>(id), data, &length, turn);
}
