// SPDX-License-Identifier: MIT
// Which mutexes the operations of the containers take, in which order, and that they wait for them.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <ostream>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

#include "vexadm/list.h"
#include "vexadm/queue.h"

namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAreArray;

using Mutexes = std::vector<const pthread_mutex_t*>;

// Of the thread that sets them.
thread_local Mutexes* locked = nullptr;
thread_local Mutexes* unlocked = nullptr;
thread_local Mutexes* destroyed = nullptr;

// The one that is held elsewhere, and the news that a thread is about to wait for it.
std::atomic<const pthread_mutex_t*> held = nullptr;
std::binary_semaphore news{0};

[[maybe_unused]] void note(Mutexes* list, const pthread_mutex_t* mutex) {
  if (list != nullptr) list->push_back(mutex);
}

template <typename Function>
[[maybe_unused]] Function* next(Function*, const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// ThreadSanitizer watches the same functions, and has to see them.
#if defined(__SANITIZE_THREAD__)
constexpr bool kWatching = false;
#else
constexpr bool kWatching = true;

extern "C" {

__attribute__((visibility("default"))) int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
  static const auto real = next(&pthread_mutex_lock, "pthread_mutex_lock");
  note(locked, mutex);
  if (locked != nullptr && mutex == held) news.release();
  return real(mutex);
}

__attribute__((visibility("default"))) int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept {
  static const auto real = next(&pthread_mutex_unlock, "pthread_mutex_unlock");
  note(unlocked, mutex);
  return real(mutex);
}

__attribute__((visibility("default"))) int pthread_mutex_destroy(pthread_mutex_t* mutex) noexcept {
  static const auto real = next(&pthread_mutex_destroy, "pthread_mutex_destroy");
  note(destroyed, mutex);
  return real(mutex);
}

}  // extern "C"
#endif

namespace {

std::uint32_t never(const void*, const void*) { return 0; }

enum Which { kList, kOther, kOrdered, kOtherOrdered, kQueue, kOtherQueue };

// Two lists, two ordered lists and two queues of two elements each, and an element that is in none.
struct Stage {
  Stage() {
    q_init(&queue);
    q_init(&other_queue);
    for (std::size_t i = 0; i < 2; ++i) {
      list_push_back(&list, &links[i]);
      list_push_back(&other, &links[i + 2]);
      ordered_list_push(&ordered, &ordered_links[i], 1);
      ordered_list_push(&other_ordered, &ordered_links[i + 2], 1);
      q_put(&queue, &queue_links[i]);
      q_put(&other_queue, &queue_links[i + 2]);
    }
  }
  pthread_mutex_t* lock(Which which) {
    return std::array{&list.lock,          &other.lock, &ordered.lock,
                      &other_ordered.lock, &queue.lock, &other_queue.lock}[which];
  }
  // Everything that an operation could have changed.
  std::vector<const void*> state() const {
    std::vector<const void*> all;
    for (const list_header* h : {&list, &other}) all.insert(all.end(), {h->head, h->tail});
    for (const ordered_list_header* h : {&ordered, &other_ordered}) {
      all.insert(all.end(), {h->head, h->tail});
    }
    for (const list_link& link : links) all.push_back(link.next);
    for (const ordered_list_link& link : ordered_links) all.insert(all.end(), {link.next, link.prev});
    for (const q_queue* q : {&queue, &other_queue}) all.insert(all.end(), {q->ends.next, q->ends.prev});
    for (const q_link_node& link : queue_links) all.insert(all.end(), {link.next, link.prev});
    return all;
  }

  list_header list = {}, other = {};
  ordered_list_header ordered = {}, other_ordered = {};
  q_queue queue = {}, other_queue = {};
  std::array<list_link, 5> links = {};
  std::array<ordered_list_link, 5> ordered_links = {};
  std::array<q_link_node, 5> queue_links = {};
  list_link* const fresh = &links[4];
  ordered_list_link* const fresh_ordered = &ordered_links[4];
  q_link_node* const fresh_queued = &queue_links[4];
};

struct Case {
  const char* name;
  Which held;
  std::vector<Which> order;
  void (*run)(Stage& s);
};

std::ostream& operator<<(std::ostream& out, const Case& tested) { return out << tested.name; }

class ContainerLock : public ::testing::TestWithParam<Case> {};

TEST_P(ContainerLock, IsWaitedForAndGivenBack) {
  if (!kWatching) GTEST_SKIP() << "the sanitizer needs these calls";
  Stage stage;
  const auto before = stage.state();
  pthread_mutex_t* const lock = stage.lock(GetParam().held);
  Mutexes taken;
  Mutexes given_back;
  std::atomic<bool> finished = false;

  ASSERT_EQ(pthread_mutex_lock(lock), 0);
  held = lock;
  std::thread operation([&] {
    locked = &taken;
    unlocked = &given_back;
    GetParam().run(stage);
    locked = unlocked = nullptr;
    finished = true;
    news.release();  // one that does not wait at all is not waited for either
  });
  news.acquire();
  held = nullptr;
  EXPECT_FALSE(finished);
  EXPECT_EQ(stage.state(), before) << "changed without the lock";
  pthread_mutex_unlock(lock);
  operation.join();

  Mutexes expected;
  for (const Which which : GetParam().order) expected.push_back(stage.lock(which));
  EXPECT_THAT(taken, ElementsAreArray(expected));
  EXPECT_THAT(given_back, UnorderedElementsAreArray(expected));
}

std::string case_name(const ::testing::TestParamInfo<Case>& tested) {
  static const char* const kNames[] = {"", "_second", "", "_second", "", "_second"};
  return std::string(tested.param.name) + kNames[tested.param.held];
}

void merge(Stage& s) { list_merge(&s.list, &s.other); }
void split(Stage& s) { list_split(&s.list, &s.links[1], &s.other); }
void split_ordered(Stage& s) { ordered_list_split(&s.ordered, &s.ordered_links[1], &s.other_ordered); }

INSTANTIATE_TEST_SUITE_P(
    List, ContainerLock,
    ::testing::Values(
        Case{"push_front", kList, {kList}, [](Stage& s) { list_push_front(&s.list, s.fresh); }},
        Case{"push_back", kList, {kList}, [](Stage& s) { list_push_back(&s.list, s.fresh); }},
        Case{"pop_front", kList, {kList}, [](Stage& s) { list_pop_front(&s.list); }},
        Case{"pop_back", kList, {kList}, [](Stage& s) { list_pop_back(&s.list); }},
        Case{"size", kList, {kList}, [](Stage& s) { list_size(&s.list); }},
        Case{"peek_front", kList, {kList}, [](Stage& s) { list_peek_front(&s.list); }},
        Case{"peek_back", kList, {kList}, [](Stage& s) { list_peek_back(&s.list); }},
        Case{"peek_next", kList, {kList}, [](Stage& s) { list_peek_next(&s.list, &s.links[0]); }},
        Case{"peek_prev", kList, {kList}, [](Stage& s) { list_peek_prev(&s.list, &s.links[1]); }},
        Case{"push_before",
             kList,
             {kList},
             [](Stage& s) { list_push_before(&s.list, s.fresh, s.links.data()); }},
        Case{"push_after",
             kList,
             {kList},
             [](Stage& s) { list_push_after(&s.list, s.fresh, s.links.data()); }},
        Case{"pop_item", kList, {kList}, [](Stage& s) { list_pop_item(&s.list, &s.links[1]); }},
        Case{"linear_search", kList, {kList}, [](Stage& s) { list_linear_search(&s.list, never, nullptr); }},
        Case{"merge", kList, {kList, kOther}, merge}, Case{"merge", kOther, {kList, kOther}, merge},
        Case{"split", kList, {kList, kOther}, split}, Case{"split", kOther, {kList, kOther}, split}),
    case_name);

INSTANTIATE_TEST_SUITE_P(
    OrderedList, ContainerLock,
    ::testing::Values(
        Case{"push",
             kOrdered,
             {kOrdered},
             [](Stage& s) { ordered_list_push(&s.ordered, s.fresh_ordered, 1); }},
        Case{"pop_front", kOrdered, {kOrdered}, [](Stage& s) { ordered_list_pop_front(&s.ordered); }},
        Case{"pop_back", kOrdered, {kOrdered}, [](Stage& s) { ordered_list_pop_back(&s.ordered); }},
        Case{"size", kOrdered, {kOrdered}, [](Stage& s) { ordered_list_size(&s.ordered); }},
        Case{"peek_front", kOrdered, {kOrdered}, [](Stage& s) { ordered_list_peek_front(&s.ordered); }},
        Case{"peek_back", kOrdered, {kOrdered}, [](Stage& s) { ordered_list_peek_back(&s.ordered); }},
        Case{"pop_item",
             kOrdered,
             {kOrdered},
             [](Stage& s) { ordered_list_pop_item(&s.ordered, s.ordered.head); }},
        Case{"peek_next",
             kOrdered,
             {kOrdered},
             [](Stage& s) { ordered_list_peek_next(&s.ordered, &s.ordered_links[0]); }},
        Case{"peek_prev",
             kOrdered,
             {kOrdered},
             [](Stage& s) { ordered_list_peek_prev(&s.ordered, &s.ordered_links[0]); }},
        Case{"linear_search",
             kOrdered,
             {kOrdered},
             [](Stage& s) { ordered_list_linear_search(&s.ordered, never, nullptr); }},
        Case{"split", kOrdered, {kOrdered, kOtherOrdered}, split_ordered},
        Case{"split", kOtherOrdered, {kOrdered, kOtherOrdered}, split_ordered}),
    case_name);

std::uint32_t always(const void*, const void*) { return 1; }
std::uint32_t is(const void* element, const void* value) { return element == value ? 1 : 0; }

INSTANTIATE_TEST_SUITE_P(
    Queue, ContainerLock,
    ::testing::Values(
        Case{"put", kQueue, {kQueue}, [](Stage& s) { q_put(&s.queue, s.fresh_queued); }},
        Case{"get", kQueue, {kQueue}, [](Stage& s) { q_get(&s.queue); }},
        Case{"get_ext", kQueue, {kQueue}, [](Stage& s) { q_get_ext(&s.queue); }},
        Case{"last_get", kQueue, {kQueue}, [](Stage& s) { q_last_get(&s.queue); }},
        Case{"check", kQueue, {kQueue}, [](Stage& s) { q_check(&s.queue); }},
        Case{"last_check", kQueue, {kQueue}, [](Stage& s) { q_last_check(&s.queue); }},
        Case{"next", kQueue, {kQueue}, [](Stage& s) { q_next(&s.queue, &s.queue_links[0]); }},
        Case{"insert",
             kQueue,
             {kQueue},
             [](Stage& s) { q_insert(&s.queue, s.fresh_queued, &s.queue_links[1]); }},
        Case{"delete", kQueue, {kQueue}, [](Stage& s) { q_delete(&s.queue, &s.queue_links[0]); }},
        Case{"delete_ext", kQueue, {kQueue}, [](Stage& s) { q_delete_ext(&s.queue, &s.queue_links[0]); }},
        Case{"linear_delete",
             kQueue,
             {kQueue},
             [](Stage& s) { q_linear_delete(&s.queue, always, nullptr, nullptr); }},
        Case{"linear_delete_new",
             kQueue,
             {kQueue},
             [](Stage& s) { q_linear_delete_new(&s.queue, is, &s.queue_links[1], nullptr, nullptr); }},
        // At each step anew: the first element, the second, the end.
        Case{"linear_search",
             kQueue,
             {kQueue, kQueue, kQueue},
             [](Stage& s) { q_linear_search(&s.queue, never, nullptr, nullptr); }},
        Case{"m_put", kQueue, {kOtherQueue, kQueue}, [](Stage& s) { q_m_put(&s.queue, &s.other_queue); }},
        Case{"m_put",
             kOtherQueue,
             {kOtherQueue, kQueue},
             [](Stage& s) { q_m_put(&s.queue, &s.other_queue); }}),
    case_name);

TEST(ContainerMutex, IsNotTakenToCountAQueue) {
  if (!kWatching) GTEST_SKIP() << "the sanitizer needs these calls";
  Stage stage;
  Mutexes taken;
  locked = &taken;
  q_cnt(&stage.queue);
  q_link(stage.fresh_queued, stage.fresh_queued);
  locked = nullptr;
  EXPECT_THAT(taken, IsEmpty());
}

TEST(ContainerMutex, IsDestroyedWithTheList) {
  if (!kWatching) GTEST_SKIP() << "the sanitizer needs these calls";
  Stage stage;
  Mutexes gone;
  destroyed = &gone;
  list_destroy(&stage.list);
  ordered_list_destroy(&stage.ordered);
  destroyed = nullptr;
  EXPECT_THAT(gone, ElementsAre(&stage.list.lock, &stage.ordered.lock));
}

TEST(ContainerMutex, IsDestroyedByNothingElse) {
  if (!kWatching) GTEST_SKIP() << "the sanitizer needs these calls";
  Mutexes gone;
  destroyed = &gone;
  Stage stage;
  merge(stage);
  split(stage);
  split_ordered(stage);
  destroyed = nullptr;
  EXPECT_THAT(gone, IsEmpty());
}

}  // namespace
