// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <list>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "support/child.h"
#include "support/log_capture.h"
#include "vexadm/list.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::uint32_t kAscendingBefore = 4097;
constexpr std::uint32_t kDescendingBefore = 4098;
constexpr std::uint32_t kAscendingAfter = 8193;
constexpr std::uint32_t kDescendingAfter = 8194;

struct Element {
  ordered_list_link link;
  int id;
};

int id_of(const ordered_list_link* link) { return reinterpret_cast<const Element*>(link)->id; }

std::uint32_t has_id(const void* element, const void* id) {
  return static_cast<const Element*>(element)->id == *static_cast<const int*>(id);
}

std::vector<int> ids(const ordered_list_header& list) {
  std::vector<int> result;
  for (const ordered_list_link* link = list.head; link; link = link->next) result.push_back(id_of(link));
  return result;
}

std::vector<int> ids_backwards(const ordered_list_header& list) {
  std::vector<int> result;
  for (const ordered_list_link* link = list.tail; link; link = link->prev) result.push_back(id_of(link));
  return result;
}

std::vector<std::uint32_t> keys(const ordered_list_header& list) {
  std::vector<std::uint32_t> result;
  for (const ordered_list_link* link = list.head; link; link = link->next) result.push_back(link->key);
  return result;
}

bool is_locked(ordered_list_header& list) {
  if (pthread_mutex_trylock(&list.lock) == EBUSY) return true;
  pthread_mutex_unlock(&list.lock);
  return false;
}

class OrderedList : public ::testing::Test {
 protected:
  void SetUp() override { ordered_list_init(&list_, 1, 4096); }
  void TearDown() override {
    EXPECT_FALSE(list_.initialised == 1 && is_locked(list_));
    EXPECT_FALSE(other_.initialised == 1 && is_locked(other_));
  }
  // Keys 10, 20, 30, 40.
  void fill() {
    for (Element* e : {&e1_, &e2_, &e3_, &e4_}) {
      ordered_list_push(&list_, &e->link, static_cast<std::uint32_t>(10 * e->id));
    }
  }

  ordered_list_header list_ = {};
  ordered_list_header other_ = {};
  Element e1_{{}, 1}, e2_{{}, 2}, e3_{{}, 3}, e4_{{}, 4};
};

// ---- Layout and life ----------------------------------------------------------

TEST(OrderedListLayout, FieldsStandInTheirOrder) {
  EXPECT_EQ(offsetof(ordered_list_link, next), 0u);
  EXPECT_EQ(offsetof(ordered_list_link, prev), sizeof(void*));
  EXPECT_EQ(offsetof(ordered_list_link, key), 2 * sizeof(void*));
  EXPECT_EQ(offsetof(ordered_list_header, head), 0u);
  EXPECT_EQ(offsetof(ordered_list_header, tail), sizeof(void*));
  EXPECT_EQ(offsetof(ordered_list_header, count), 2 * sizeof(void*));
  EXPECT_EQ(offsetof(ordered_list_header, mode), 2 * sizeof(void*) + 4);
  EXPECT_EQ(offsetof(ordered_list_header, initialised), 2 * sizeof(void*) + 8);
  EXPECT_EQ(offsetof(ordered_list_header, lock), sizeof(void*) == 8 ? 32u : 20u);
}

TEST_F(OrderedList, InitMakesItEmptyAndKeepsTheMode) {
  ordered_list_header list;
  std::fill_n(reinterpret_cast<unsigned char*>(&list), sizeof list, 0xA5);
  ordered_list_init(&list, ORDERED_LIST_DESCENDING, ORDERED_LIST_AFTER_EQUALS);
  EXPECT_EQ(list.head, nullptr);
  EXPECT_EQ(list.tail, nullptr);
  EXPECT_EQ(list.count, 0u);
  EXPECT_EQ(list.mode, 8194u);
  EXPECT_EQ(list.initialised, 1u);
  ASSERT_EQ(pthread_mutex_lock(&list.lock), 0);
  EXPECT_EQ(pthread_mutex_trylock(&list.lock), EBUSY);
  pthread_mutex_unlock(&list.lock);
}

TEST_F(OrderedList, DestroyZeroesHeadCountAndFlagAndLeavesTheTail) {
  fill();
  ordered_list_destroy(&list_);
  EXPECT_EQ(list_.head, nullptr);
  EXPECT_EQ(list_.tail, &e4_.link);
  EXPECT_EQ(list_.count, 0u);
  EXPECT_EQ(list_.initialised, 0u);
  EXPECT_EQ(list_.mode, 4097u);
}

TEST_F(OrderedList, IsAscendingWhenUsedAgainAfterDestroy) {
  ordered_list_init(&list_, 2, 8192);
  ordered_list_destroy(&list_);
  ordered_list_push(&list_, &e1_.link, 7);
  EXPECT_EQ(list_.mode, 4097u);
  EXPECT_THAT(keys(list_), ElementsAre(7u));
  EXPECT_EQ(list_.tail, &e1_.link);
}

class OrderedListLazily : public ::testing::TestWithParam<std::uint32_t> {
 protected:
  void SetUp() override {
    list_ = {.head = &stray_, .tail = &stray_, .count = 7, .mode = 99, .initialised = GetParam(), .lock = {}};
    ordered_list_init(&good_, 2, 8192);
    ordered_list_push(&good_, &e1_.link, 1);
  }
  void expect_size(std::uint32_t count, std::uint32_t mode = 4097) {
    EXPECT_EQ(list_.initialised, 1u);
    EXPECT_EQ(list_.count, count);
    EXPECT_EQ(list_.mode, mode);
  }

  ordered_list_header list_;
  ordered_list_header good_ = {};
  ordered_list_link stray_ = {};
  Element e1_{{}, 1}, e2_{{}, 2};
};

TEST_P(OrderedListLazily, PushInitialises) { ordered_list_push(&list_, &e2_.link, 1), expect_size(1); }
TEST_P(OrderedListLazily, PushAfterInitialises) {
  ordered_list_push_after(&list_, &e2_.link, &e1_.link);
  expect_size(1);
}
TEST_P(OrderedListLazily, PushBeforeInitialises) {
  ordered_list_push_before(&list_, &e2_.link, &e1_.link);
  expect_size(1);
}
TEST_P(OrderedListLazily, PopFrontInitialises) {
  EXPECT_EQ(ordered_list_pop_front(&list_), nullptr), expect_size(0);
}
TEST_P(OrderedListLazily, PopBackInitialises) {
  EXPECT_EQ(ordered_list_pop_back(&list_), nullptr), expect_size(0);
}
TEST_P(OrderedListLazily, SizeInitialises) { EXPECT_EQ(ordered_list_size(&list_), 0u), expect_size(0); }
TEST_P(OrderedListLazily, PeekFrontInitialises) {
  EXPECT_EQ(ordered_list_peek_front(&list_), nullptr), expect_size(0);
}
TEST_P(OrderedListLazily, PeekBackInitialises) {
  EXPECT_EQ(ordered_list_peek_back(&list_), nullptr), expect_size(0);
}
TEST_P(OrderedListLazily, PeekNextInitialises) {
  stray_.next = &e1_.link;
  EXPECT_EQ(ordered_list_peek_next(&list_, &stray_), nullptr), expect_size(0);
}
TEST_P(OrderedListLazily, PeekPrevInitialises) {
  stray_.prev = &e1_.link;
  EXPECT_EQ(ordered_list_peek_prev(&list_, &stray_), nullptr), expect_size(0);
}
TEST_P(OrderedListLazily, PopItemInitialises) {
  EXPECT_EQ(ordered_list_pop_item(&list_, &stray_), nullptr), expect_size(0);
}
TEST_P(OrderedListLazily, SearchInitialises) {
  EXPECT_EQ(ordered_list_linear_search(
                &list_, [](const void*, const void*) { return 1u; }, nullptr),
            nullptr);
  expect_size(0);
}
TEST_P(OrderedListLazily, SplitInitialisesTheFirst) {
  ordered_list_split(&list_, &stray_, &good_), expect_size(0);
}
TEST_P(OrderedListLazily, SplitInitialisesTheSecond) {
  ordered_list_split(&good_, &e1_.link, &list_);
  expect_size(1, 8194);
}
TEST_P(OrderedListLazily, DestroyLeavesItUnused) {
  ordered_list_destroy(&list_);
  EXPECT_EQ(list_.initialised, 0u);
  EXPECT_EQ(list_.count, 0u);
}

INSTANTIATE_TEST_SUITE_P(Flags, OrderedListLazily, ::testing::Values(0u, 2u, 0xFFFFFFFFu));

// ---- Order -----------------------------------------------------------------------

struct Sorting {
  std::uint32_t order;
  std::uint32_t tie_rule;
  std::vector<int> ids;  // of keys 5, 3, 5, 9 pushed as 1, 2, 3, 4
};

class OrderedListSorts : public ::testing::TestWithParam<Sorting> {};

TEST_P(OrderedListSorts, ByKeyAndTieRule) {
  ordered_list_header list = {};
  ordered_list_init(&list, GetParam().order, GetParam().tie_rule);
  Element elements[4] = {{{}, 1}, {{}, 2}, {{}, 3}, {{}, 4}};
  const std::uint32_t pushed[] = {5, 3, 5, 9};
  for (int i = 0; i < 4; ++i) ordered_list_push(&list, &elements[i].link, pushed[i]);
  EXPECT_EQ(ids(list), GetParam().ids);
  std::vector<int> backwards = ids_backwards(list);
  std::reverse(backwards.begin(), backwards.end());
  EXPECT_EQ(backwards, GetParam().ids);
  EXPECT_EQ(ordered_list_size(&list), 4u);
}

INSTANTIATE_TEST_SUITE_P(Modes, OrderedListSorts,
                         ::testing::Values(Sorting{1, 4096, {2, 3, 1, 4}}, Sorting{1, 8192, {2, 1, 3, 4}},
                                           Sorting{2, 4096, {4, 3, 1, 2}}, Sorting{2, 8192, {4, 1, 3, 2}}));

TEST_F(OrderedList, OfZerosIsAscendingWithNewOnesBeforeEquals) {
  ordered_list_push(&other_, &e1_.link, 5);
  ordered_list_push(&other_, &e2_.link, 3);
  ordered_list_push(&other_, &e3_.link, 5);
  ordered_list_push(&other_, &e4_.link, 9);
  EXPECT_THAT(ids(other_), ElementsAre(2, 3, 1, 4));
  EXPECT_EQ(other_.mode, 4097u);
}

TEST_F(OrderedList, KeysAreUnsigned) {
  ordered_list_push(&list_, &e1_.link, 0xFFFFFFFFu);
  ordered_list_push(&list_, &e2_.link, 0u);
  ordered_list_push(&list_, &e3_.link, 0x80000000u);
  ordered_list_push(&list_, &e4_.link, 0x7FFFFFFFu);
  EXPECT_THAT(keys(list_), ElementsAre(0u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu));
}

TEST_F(OrderedList, TheFirstElementHasNoNeighbours) {
  e1_.link.next = e1_.link.prev = &e2_.link;
  ordered_list_push(&list_, &e1_.link, 3);
  EXPECT_EQ(e1_.link.next, nullptr);
  EXPECT_EQ(e1_.link.prev, nullptr);
  EXPECT_EQ(list_.head, &e1_.link);
  EXPECT_EQ(list_.tail, &e1_.link);
  EXPECT_EQ(list_.count, 1u);
}

class OrderedListOfAnUndefinedMode
    : public ::testing::TestWithParam<std::pair<std::uint32_t, std::uint32_t>> {};

TEST_P(OrderedListOfAnUndefinedMode, StaysEmptyAndStoresTheKey) {
  ordered_list_header list = {};
  ordered_list_init(&list, GetParam().first, GetParam().second);
  Element element{{}, 1};
  ordered_list_push(&list, &element.link, 42);
  EXPECT_EQ(list.mode, GetParam().first | GetParam().second);
  EXPECT_EQ(list.head, nullptr);
  EXPECT_EQ(ordered_list_size(&list), 0u);
  EXPECT_EQ(element.link.key, 42u);
  EXPECT_FALSE(is_locked(list));
}

INSTANTIATE_TEST_SUITE_P(Modes, OrderedListOfAnUndefinedMode,
                         ::testing::Values(std::pair(3u, 4096u), std::pair(0u, 0u), std::pair(1u, 0u),
                                           std::pair(0u, 4096u), std::pair(1u, 12288u),
                                           std::pair(4u, 8192u)));

TEST(OrderedListOfAnUndefinedMode, SaysNothing) {
  const vexa_test::ChildResult child = vexa_test::run_in_child([] {
    const vexa_test::LogCapture log;
    ordered_list_header list = {};
    ordered_list_init(&list, 3, 4096);
    Element element{{}, 1};
    ordered_list_push(&list, &element.link, 42);
    EXPECT_THAT(log.lines(), IsEmpty());
  });
  EXPECT_EQ(child.exit_code, 0) << child.out;
  EXPECT_EQ(child.out + child.err, "");
}

TEST_F(OrderedList, OfAnUndefinedModeKeepsWhatItHas) {
  fill();
  list_.mode = 3 | 4096;
  Element late{{}, 5};
  ordered_list_push(&list_, &late.link, 25);
  EXPECT_THAT(ids(list_), ElementsAre(1, 2, 3, 4));
  EXPECT_EQ(list_.count, 4u);
  EXPECT_EQ(late.link.key, 25u);
}

// ---- Push beside another ---------------------------------------------------------

TEST_F(OrderedList, PushBesideAnotherNeedsNoOrderAndTakesNoLock) {
  ordered_list_push(&list_, &e1_.link, 10);
  pthread_mutex_lock(&list_.lock);
  e2_.link.key = 99;
  ordered_list_push_before(&list_, &e2_.link, &e1_.link);
  ordered_list_push_after(&list_, &e3_.link, &e1_.link);
  ordered_list_push_before(&list_, &e4_.link, &e1_.link);
  EXPECT_TRUE(is_locked(list_));
  pthread_mutex_unlock(&list_.lock);
  EXPECT_THAT(ids(list_), ElementsAre(2, 4, 1, 3));
  EXPECT_THAT(ids_backwards(list_), ElementsAre(3, 1, 4, 2));
  EXPECT_EQ(e2_.link.key, 99u);
  EXPECT_EQ(list_.count, 4u);
}

TEST_F(OrderedList, PushAfterAnInnerOneLeavesTheTail) {
  fill();
  Element middle{{}, 5};
  ordered_list_push_after(&list_, &middle.link, &e2_.link);
  EXPECT_THAT(ids(list_), ElementsAre(1, 2, 5, 3, 4));
  EXPECT_THAT(ids_backwards(list_), ElementsAre(4, 3, 5, 2, 1));
}

// ---- Pop and peek ----------------------------------------------------------------

TEST_F(OrderedList, PopsTakeFromTheEnds) {
  fill();
  EXPECT_EQ(ordered_list_pop_front(&list_), &e1_.link);
  EXPECT_EQ(ordered_list_pop_back(&list_), &e4_.link);
  EXPECT_THAT(ids(list_), ElementsAre(2, 3));
  EXPECT_THAT(ids_backwards(list_), ElementsAre(3, 2));
  EXPECT_EQ(ordered_list_pop_back(&list_), &e3_.link);
  EXPECT_EQ(ordered_list_pop_front(&list_), &e2_.link);
  EXPECT_EQ(list_.head, nullptr);
  EXPECT_EQ(list_.tail, nullptr);
  EXPECT_EQ(ordered_list_pop_front(&list_), nullptr);
  EXPECT_EQ(ordered_list_pop_back(&list_), nullptr);
  EXPECT_EQ(list_.count, 0u);
}

TEST_F(OrderedList, PeeksLeaveTheListAsItIs) {
  EXPECT_EQ(ordered_list_peek_front(&list_), nullptr);
  EXPECT_EQ(ordered_list_peek_back(&list_), nullptr);
  fill();
  EXPECT_EQ(ordered_list_peek_front(&list_), &e1_.link);
  EXPECT_EQ(ordered_list_peek_back(&list_), &e4_.link);
  EXPECT_EQ(ordered_list_peek_next(&list_, &e1_.link), &e2_.link);
  EXPECT_EQ(ordered_list_peek_next(&list_, &e4_.link), nullptr);
  EXPECT_EQ(ordered_list_peek_prev(&list_, &e4_.link), &e3_.link);
  EXPECT_EQ(ordered_list_peek_prev(&list_, &e1_.link), nullptr);
  EXPECT_EQ(ordered_list_size(&list_), 4u);
}

TEST_F(OrderedList, PopItemTakesALinkWhereverItIs) {
  fill();
  EXPECT_EQ(ordered_list_pop_item(&list_, &e2_.link), &e2_.link);
  EXPECT_THAT(ids(list_), ElementsAre(1, 3, 4));
  EXPECT_EQ(ordered_list_pop_item(&list_, &e4_.link), &e4_.link);
  EXPECT_EQ(ordered_list_pop_item(&list_, &e1_.link), &e1_.link);
  EXPECT_THAT(ids(list_), ElementsAre(3));
  EXPECT_THAT(ids_backwards(list_), ElementsAre(3));
  EXPECT_EQ(ordered_list_pop_item(&list_, &e3_.link), &e3_.link);
  EXPECT_EQ(list_.head, nullptr);
  EXPECT_EQ(list_.tail, nullptr);
  EXPECT_EQ(list_.count, 0u);
}

TEST_F(OrderedList, PopItemOfAStrangerGivesNullAndRemovesNothing) {
  ordered_list_push(&list_, &e1_.link, 1);
  for (Element* e : {&e2_, &e3_, &e4_}) ordered_list_push(&other_, &e->link, 1);
  for (Element* e : {&e2_, &e3_, &e4_}) EXPECT_EQ(ordered_list_pop_item(&list_, &e->link), nullptr);
  EXPECT_THAT(ids(list_), ElementsAre(1));
  EXPECT_THAT(ids(other_), ElementsAre(4, 3, 2));
  EXPECT_EQ(list_.count, 1u);
}

TEST_F(OrderedList, SearchGivesTheFirstMatchUnderTheLock) {
  e3_.id = 2;
  ordered_list_push(&list_, &e1_.link, 1);
  ordered_list_push(&list_, &e2_.link, 2);
  ordered_list_push(&list_, &e3_.link, 3);
  const int wanted = 2;
  const int missing = 9;
  EXPECT_EQ(ordered_list_linear_search(&list_, has_id, &wanted), &e2_.link);
  EXPECT_EQ(ordered_list_linear_search(&list_, has_id, &missing), nullptr);
  const auto locked = [](const void*, const void* list) -> std::uint32_t {
    return pthread_mutex_trylock(
               &const_cast<ordered_list_header*>(static_cast<const ordered_list_header*>(list))->lock) ==
           EBUSY;
  };
  EXPECT_EQ(ordered_list_linear_search(&list_, locked, &list_), &e1_.link);
}

// ---- Split -----------------------------------------------------------------------

TEST_F(OrderedList, SplitMovesTheLinkAllBehindItAndTheMode) {
  ordered_list_init(&other_, 2, 8192);
  fill();
  ordered_list_split(&list_, &e3_.link, &other_);
  EXPECT_THAT(ids(list_), ElementsAre(1, 2));
  EXPECT_THAT(ids_backwards(list_), ElementsAre(2, 1));
  EXPECT_EQ(list_.count, 2u);
  EXPECT_THAT(ids(other_), ElementsAre(3, 4));
  EXPECT_THAT(ids_backwards(other_), ElementsAre(4, 3));
  EXPECT_EQ(other_.count, 2u);
  EXPECT_EQ(other_.mode, 4097u);
  Element between{{}, 5};
  ordered_list_push(&other_, &between.link, 35);
  EXPECT_THAT(ids(other_), ElementsAre(3, 5, 4));
}

TEST_F(OrderedList, SplitAtTheHeadMovesAll) {
  fill();
  ordered_list_split(&list_, &e1_.link, &other_);
  EXPECT_EQ(list_.head, nullptr);
  EXPECT_EQ(list_.tail, nullptr);
  EXPECT_EQ(list_.count, 0u);
  EXPECT_THAT(ids(other_), ElementsAre(1, 2, 3, 4));
  EXPECT_EQ(other_.count, 4u);
}

TEST_F(OrderedList, SplitAtAStrangerOrIntoItselfChangesNothing) {
  fill();
  Element stranger{{}, 5};
  ordered_list_split(&list_, &stranger.link, &other_);
  ordered_list_split(&list_, &e2_.link, &list_);
  EXPECT_THAT(ids(list_), ElementsAre(1, 2, 3, 4));
  EXPECT_THAT(ids(other_), IsEmpty());
}

// ---- Bad arguments --------------------------------------------------------------

TEST_F(OrderedList, NullArgumentsAreRefused) {
  ordered_list_push(&list_, &e1_.link, 1);
  ordered_list_init(nullptr, 1, 4096);
  ordered_list_destroy(nullptr);
  ordered_list_push(nullptr, &e2_.link, 1);
  ordered_list_push(&list_, nullptr, 1);
  ordered_list_push_before(nullptr, &e2_.link, &e1_.link);
  ordered_list_push_before(&list_, nullptr, &e1_.link);
  ordered_list_push_before(&list_, &e2_.link, nullptr);
  ordered_list_push_after(nullptr, &e2_.link, &e1_.link);
  ordered_list_push_after(&list_, nullptr, &e1_.link);
  ordered_list_push_after(&list_, &e2_.link, nullptr);
  ordered_list_split(nullptr, &e1_.link, &other_);
  ordered_list_split(&list_, nullptr, &other_);
  ordered_list_split(&list_, &e1_.link, nullptr);
  EXPECT_EQ(ordered_list_pop_front(nullptr), nullptr);
  EXPECT_EQ(ordered_list_pop_back(nullptr), nullptr);
  EXPECT_EQ(ordered_list_size(nullptr), 0u);
  EXPECT_EQ(ordered_list_peek_front(nullptr), nullptr);
  EXPECT_EQ(ordered_list_peek_back(nullptr), nullptr);
  EXPECT_EQ(ordered_list_peek_next(nullptr, &e1_.link), nullptr);
  EXPECT_EQ(ordered_list_peek_next(&list_, nullptr), nullptr);
  EXPECT_EQ(ordered_list_peek_prev(nullptr, &e1_.link), nullptr);
  EXPECT_EQ(ordered_list_peek_prev(&list_, nullptr), nullptr);
  EXPECT_EQ(ordered_list_pop_item(nullptr, &e1_.link), nullptr);
  EXPECT_EQ(ordered_list_pop_item(&list_, nullptr), nullptr);
  EXPECT_EQ(ordered_list_linear_search(nullptr, has_id, nullptr), nullptr);
  EXPECT_EQ(ordered_list_linear_search(&list_, nullptr, nullptr), nullptr);
  EXPECT_THAT(ids(list_), ElementsAre(1));
  EXPECT_EQ(list_.count, 1u);
}

// ---- Against a model -------------------------------------------------------------

struct Kind {
  std::uint32_t mode;
  unsigned seed;
};

class OrderedListModel : public ::testing::TestWithParam<Kind> {};

// The model knows the order as a sentence: behind all that are better, and before or behind equals.
std::list<std::pair<std::uint32_t, int>>::iterator place_for(std::list<std::pair<std::uint32_t, int>>& model,
                                                             std::uint32_t mode, std::uint32_t key) {
  const bool ascending = mode == kAscendingBefore || mode == kAscendingAfter;
  const bool after = mode == kAscendingAfter || mode == kDescendingAfter;
  return std::find_if(model.begin(), model.end(), [&](const auto& element) {
    if (element.first == key) return !after;
    return ascending ? element.first > key : element.first < key;
  });
}

TEST_P(OrderedListModel, HoldsTheSameAfterEachOfManySteps) {
  const auto [mode, seed] = GetParam();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  ordered_list_header list = {};
  ordered_list_init(&list, mode & 3, mode & ~3u);
  std::array<Element, 16> elements{};
  for (std::size_t i = 0; i < elements.size(); ++i) elements[i].id = static_cast<int>(i);
  std::list<std::pair<std::uint32_t, int>> model;
  for (int step = 0; step < 5000; ++step) {
    Element& element = elements[random() % elements.size()];
    const auto at = std::find_if(model.begin(), model.end(),
                                 [&](const auto& entry) { return entry.second == element.id; });
    if (at == model.end()) {
      const std::uint32_t key =
          random() % 6 == 0 ? static_cast<std::uint32_t>(random()) : static_cast<std::uint32_t>(random() % 5);
      model.insert(place_for(model, mode, key), {key, element.id});
      ordered_list_push(&list, &element.link, key);
    } else if (random() % 3 == 0) {
      ASSERT_EQ(ordered_list_pop_front(&list),
                &elements[static_cast<std::size_t>(model.front().second)].link);
      model.pop_front();
    } else if (random() % 2 == 0) {
      ASSERT_EQ(ordered_list_pop_back(&list), &elements[static_cast<std::size_t>(model.back().second)].link);
      model.pop_back();
    } else {
      ASSERT_EQ(ordered_list_pop_item(&list, &element.link), &element.link);
      model.erase(at);
    }
    std::vector<int> expected;
    for (const auto& entry : model) expected.push_back(entry.second);
    ASSERT_EQ(ids(list), expected) << "step " << step;
    std::reverse(expected.begin(), expected.end());
    ASSERT_EQ(ids_backwards(list), expected) << "step " << step;
    ASSERT_EQ(list.count, expected.size()) << "step " << step;
  }
}

INSTANTIATE_TEST_SUITE_P(Modes, OrderedListModel,
                         ::testing::Values(Kind{kAscendingBefore, 1}, Kind{kDescendingBefore, 2},
                                           Kind{kAscendingAfter, 3}, Kind{kDescendingAfter, 4},
                                           Kind{kAscendingBefore, std::random_device()()},
                                           Kind{kDescendingAfter, std::random_device()()}));

// ---- Threads ---------------------------------------------------------------------

TEST_F(OrderedList, StaysSortedBetweenThreads) {
  constexpr std::size_t kEach = 300;
  static std::array<Element, 4 * kEach> elements;
  std::vector<std::thread> threads;
  for (std::size_t t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (std::size_t i = 0; i < kEach; ++i) {
        ordered_list_push(&list_, &elements[t * kEach + i].link, static_cast<std::uint32_t>(i * 7919 % 1000));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(ordered_list_size(&list_), 4 * kEach);
  const std::vector<std::uint32_t> sorted = keys(list_);
  EXPECT_EQ(sorted.size(), 4 * kEach);
  EXPECT_TRUE(std::is_sorted(sorted.begin(), sorted.end()));
}

}  // namespace
