// SPDX-License-Identifier: MIT
#include "vexadm/queue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <functional>
#include <thread>
#include <vector>

#include "support/child.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using vexa_test::ChildResult;
using vexa_test::run_in_child;

constexpr const char* kAssertion = "...in file queue/queueAssertion failed...\n";

struct Element {
  q_link_node link;
  int id;
};

Element* element(q_link_node* link) { return reinterpret_cast<Element*>(link); }

uint32_t has_id(const void* element, const void* id) {
  return static_cast<const Element*>(element)->id == *static_cast<const int*>(id);
}

uint32_t has_id_two(const void* element, const void*) {
  return static_cast<const Element*>(element)->id == 2;
}

bool is_locked(q_queue& queue) {
  if (pthread_mutex_trylock(&queue.lock) == EBUSY) return true;
  pthread_mutex_unlock(&queue.lock);
  return false;
}

class Queue : public ::testing::Test {
 protected:
  void SetUp() override {
    q_init(&queue_);
    q_init(&other_);
    for (Element* e : {&e1_, &e2_, &e3_, &e4_}) q_link(e, &e->link);
  }

  void put(q_queue& queue, const std::vector<Element*>& elements) {
    for (Element* e : elements) q_put(&queue, &e->link);
  }

  static std::vector<int> ids(q_queue& queue) {
    std::vector<int> result;
    for (q_link_node* link = q_check(&queue); link; link = q_next(&queue, link))
      result.push_back(element(link)->id);
    return result;
  }

  static std::vector<int> ids_backwards(q_queue& queue) {
    std::vector<int> result;
    for (q_link_node* link = queue.ends.prev; link != &queue.ends; link = link->prev) {
      result.push_back(element(link)->id);
    }
    return result;
  }

  q_queue queue_;
  q_queue other_;
  Element e1_{{}, 1}, e2_{{}, 2}, e3_{{}, 3}, e4_{{}, 4};
};

// ---- Layout -----------------------------------------------------------------

TEST(QueueLayout, HeaderBeginsLikeALink) {
  EXPECT_EQ(offsetof(q_queue, ends) + offsetof(q_link_node, next), 0u);
  EXPECT_EQ(offsetof(q_queue, ends) + offsetof(q_link_node, prev), sizeof(void*));
  EXPECT_EQ(offsetof(q_queue, count), 2 * sizeof(void*));
  EXPECT_EQ(sizeof(q_link_node), 2 * sizeof(void*));
}

// ---- Empty ------------------------------------------------------------------

TEST_F(Queue, FreshOneIsEmptyInEveryWay) {
  EXPECT_EQ(q_check(&queue_), nullptr);
  EXPECT_EQ(q_last_check(&queue_), nullptr);
  EXPECT_EQ(q_get(&queue_), nullptr);
  EXPECT_EQ(q_get_ext(&queue_), nullptr);
  EXPECT_EQ(q_last_get(&queue_), nullptr);
  EXPECT_EQ(q_cnt(&queue_), 0);
  EXPECT_EQ(queue_.ends.next, &queue_.ends);
  EXPECT_EQ(queue_.ends.prev, &queue_.ends);
  EXPECT_FALSE(is_locked(queue_));
}

TEST_F(Queue, InitReturnsTheQueueAndForgetsElements) {
  put(queue_, {&e1_});
  EXPECT_EQ(q_init(&queue_), &queue_);
  EXPECT_EQ(q_cnt(&queue_), 0);
  EXPECT_EQ(q_check(&queue_), nullptr);
}

TEST_F(Queue, InitMakesAnOrdinaryMutex) {
  ASSERT_EQ(pthread_mutex_lock(&queue_.lock), 0);
  EXPECT_EQ(pthread_mutex_trylock(&queue_.lock), EBUSY);
  pthread_mutex_unlock(&queue_.lock);
}

TEST_F(Queue, LinkForgetsBothNeighboursAndIsReturned) {
  e1_.link = {&e2_.link, &e3_.link};
  EXPECT_EQ(q_link(nullptr, &e1_.link), &e1_.link);
  EXPECT_EQ(e1_.link.next, nullptr);
  EXPECT_EQ(e1_.link.prev, nullptr);
}

TEST_F(Queue, DestroyZeroesTheHeaderAndReturnsTheMutexResult) {
  put(queue_, {&e1_});
  EXPECT_EQ(q_destroy(&queue_), 0);
  EXPECT_EQ(queue_.ends.next, nullptr);
  EXPECT_EQ(queue_.ends.prev, nullptr);
  EXPECT_EQ(queue_.count, 0);
  EXPECT_EQ(e1_.link.next, &queue_.ends);
}

// ---- Put and get --------------------------------------------------------------

TEST_F(Queue, GivesFirstAndLastAndKeepsTheMiddle) {
  put(queue_, {&e1_, &e2_, &e3_});
  EXPECT_EQ(q_get(&queue_), &e1_.link);
  EXPECT_EQ(q_last_get(&queue_), &e3_.link);
  EXPECT_EQ(q_cnt(&queue_), 1);
  EXPECT_EQ(q_check(&queue_), &e2_.link);
  EXPECT_EQ(q_last_check(&queue_), &e2_.link);
}

TEST_F(Queue, RingIsTheSameInBothDirections) {
  put(queue_, {&e1_, &e2_, &e3_});
  EXPECT_THAT(ids(queue_), ElementsAre(1, 2, 3));
  EXPECT_THAT(ids_backwards(queue_), ElementsAre(3, 2, 1));
  EXPECT_EQ(e1_.link.prev, &queue_.ends);
  EXPECT_EQ(e3_.link.next, &queue_.ends);
}

TEST_F(Queue, GetClearsNextAndLeavesPrev) {
  put(queue_, {&e1_, &e2_});
  q_get(&queue_);
  EXPECT_EQ(e1_.link.next, nullptr);
  EXPECT_EQ(e1_.link.prev, &queue_.ends);
  EXPECT_EQ(e2_.link.prev, &queue_.ends);
}

TEST_F(Queue, GetExtLeavesBothPointers) {
  put(queue_, {&e1_, &e2_});
  EXPECT_EQ(q_get_ext(&queue_), &e1_.link);
  EXPECT_EQ(e1_.link.next, &e2_.link);
  EXPECT_EQ(e1_.link.prev, &queue_.ends);
  EXPECT_EQ(q_cnt(&queue_), 1);
  EXPECT_THAT(ids_backwards(queue_), ElementsAre(2));
}

TEST_F(Queue, LastGetClearsNextAndLeavesPrev) {
  put(queue_, {&e1_, &e2_});
  q_last_get(&queue_);
  EXPECT_EQ(e2_.link.next, nullptr);
  EXPECT_EQ(e2_.link.prev, &e1_.link);
  EXPECT_EQ(e1_.link.next, &queue_.ends);
}

TEST_F(Queue, IsEmptyAgainAfterItsLastElement) {
  for (q_link_node* (*take)(q_queue*) : {q_get, q_get_ext, q_last_get}) {
    put(queue_, {&e1_});
    EXPECT_EQ(take(&queue_), &e1_.link);
    EXPECT_EQ(queue_.ends.next, &queue_.ends);
    EXPECT_EQ(queue_.ends.prev, &queue_.ends);
    EXPECT_EQ(take(&queue_), nullptr);
  }
}

TEST_F(Queue, NextOfTheOnlyElementIsNull) {
  put(queue_, {&e1_});
  EXPECT_EQ(q_next(&queue_, &e1_.link), nullptr);
}

TEST_F(Queue, CheckTakesNothingOut) {
  put(queue_, {&e1_, &e2_});
  EXPECT_EQ(q_check(&queue_), &e1_.link);
  EXPECT_EQ(q_last_check(&queue_), &e2_.link);
  EXPECT_EQ(q_cnt(&queue_), 2);
}

// ---- Insert and delete ----------------------------------------------------------

TEST_F(Queue, InsertPutsBeforeAnExistingElement) {
  put(queue_, {&e1_, &e3_});
  q_insert(&queue_, &e2_.link, &e3_.link);
  EXPECT_THAT(ids(queue_), ElementsAre(1, 2, 3));
  EXPECT_THAT(ids_backwards(queue_), ElementsAre(3, 2, 1));
  EXPECT_EQ(q_cnt(&queue_), 3);
}

TEST_F(Queue, InsertBeforeTheFirstMakesANewFirst) {
  put(queue_, {&e2_});
  q_insert(&queue_, &e1_.link, &e2_.link);
  EXPECT_EQ(q_check(&queue_), &e1_.link);
  EXPECT_THAT(ids_backwards(queue_), ElementsAre(2, 1));
}

TEST_F(Queue, DeleteTakesAnElementOutOfTheMiddle) {
  put(queue_, {&e1_, &e2_, &e3_});
  q_delete(&queue_, &e2_.link);
  EXPECT_THAT(ids(queue_), ElementsAre(1, 3));
  EXPECT_THAT(ids_backwards(queue_), ElementsAre(3, 1));
  EXPECT_EQ(q_cnt(&queue_), 2);
  EXPECT_EQ(e2_.link.next, nullptr);
  EXPECT_EQ(e2_.link.prev, &e1_.link);
}

TEST_F(Queue, DeleteExtDoesTheSameAndReturnsOne) {
  put(queue_, {&e1_, &e2_});
  EXPECT_EQ(q_delete_ext(&queue_, &e1_.link), 1u);
  EXPECT_THAT(ids(queue_), ElementsAre(2));
  EXPECT_EQ(e1_.link.next, nullptr);
}

// ---- Moving all -----------------------------------------------------------------

TEST_F(Queue, MovePutsAllBehindTheDestinationInOrder) {
  put(queue_, {&e1_});
  put(other_, {&e2_, &e3_});
  q_m_put(&queue_, &other_);
  EXPECT_EQ(q_cnt(&queue_), 3);
  EXPECT_THAT(ids(queue_), ElementsAre(1, 2, 3));
  EXPECT_EQ(q_last_check(&queue_), &e3_.link);
}

TEST_F(Queue, MoveLeavesTheSourceEmptyAndUsable) {
  put(other_, {&e2_, &e3_});
  q_m_put(&queue_, &other_);
  EXPECT_EQ(q_cnt(&other_), 0);
  EXPECT_EQ(q_get(&other_), nullptr);
  EXPECT_FALSE(is_locked(other_));
  EXPECT_FALSE(is_locked(queue_));
  put(other_, {&e4_});
  EXPECT_THAT(ids(other_), ElementsAre(4));
  EXPECT_EQ(q_destroy(&other_), 0);
}

TEST_F(Queue, MoveIntoAnEmptyQueueWorks) {
  put(other_, {&e2_, &e3_});
  q_m_put(&queue_, &other_);
  EXPECT_THAT(ids(queue_), ElementsAre(2, 3));
}

TEST_F(Queue, FirstMovedElementStillNamesTheSourceBehindIt) {
  put(queue_, {&e1_});
  put(other_, {&e2_, &e3_});
  q_m_put(&queue_, &other_);
  EXPECT_EQ(e2_.link.prev, &other_.ends);
  EXPECT_EQ(q_get(&queue_), &e1_.link);
  EXPECT_EQ(e2_.link.prev, &queue_.ends);
}

TEST_F(Queue, MoveOfNothingTouchesNothing) {
  put(queue_, {&e1_});
  q_m_put(&queue_, &other_);
  EXPECT_THAT(ids(queue_), ElementsAre(1));
  EXPECT_FALSE(is_locked(other_));
}

TEST_F(Queue, MoveOfNothingDoesNotWaitForTheDestination) {
  pthread_mutex_lock(&queue_.lock);
  q_m_put(&queue_, &other_);
  pthread_mutex_unlock(&queue_.lock);
}

TEST_F(Queue, MoveOfElementsWaitsForTheDestination) {
  const ChildResult child = run_in_child(
      [this] {
        put(other_, {&e1_});
        pthread_mutex_lock(&queue_.lock);
        q_m_put(&queue_, &other_);
      },
      1);
  EXPECT_TRUE(child.timed_out);
}

TEST_F(Queue, MoveFromABrokenCountAnnouncesItAndLeavesNoLastLink) {
  const ChildResult child = run_in_child([this] {
    put(queue_, {&e1_, &e2_});
    put(other_, {&e3_});
    other_.count = -1;
    q_m_put(&queue_, &other_);
    EXPECT_EQ(queue_.count, 1);
    EXPECT_EQ(queue_.ends.prev, nullptr);
    EXPECT_EQ(queue_.ends.next, &e1_.link);
    EXPECT_EQ(e2_.link.next, &queue_.ends);
    EXPECT_EQ(q_cnt(&other_), 0);
    EXPECT_EQ(q_check(&other_), nullptr);
  });
  EXPECT_EQ(child.exit_code, 0) << child.out << child.err;
  EXPECT_EQ(child.out, kAssertion);
}

TEST_F(Queue, MoveWithoutALastLinkAnnouncesItAndAddsTheCount) {
  const ChildResult child = run_in_child([this] {
    put(queue_, {&e1_});
    put(other_, {&e2_, &e3_});
    other_.ends.prev = nullptr;
    q_m_put(&queue_, &other_);
    EXPECT_EQ(queue_.count, 3);
    EXPECT_EQ(queue_.ends.prev, nullptr);
  });
  EXPECT_EQ(child.exit_code, 0) << child.out << child.err;
  EXPECT_EQ(child.out, kAssertion);
}

// ---- Linear search and delete ------------------------------------------------------

TEST_F(Queue, SearchFindsTheFirstMatchAndLeavesIt) {
  put(queue_, {&e1_, &e2_, &e3_});
  e3_.id = 2;
  const int id = 2;
  EXPECT_EQ(q_linear_search(&queue_, has_id, &id, &e1_), &e2_.link);
  EXPECT_EQ(q_cnt(&queue_), 3);
}

TEST_F(Queue, SearchWithoutAMatchGivesNull) {
  put(queue_, {&e1_});
  const int id = 9;
  EXPECT_EQ(q_linear_search(&queue_, has_id, &id, nullptr), nullptr);
  EXPECT_EQ(q_linear_search(&other_, has_id, &id, nullptr), nullptr);
}

TEST_F(Queue, SearchComparesWithoutTheLock) {
  put(queue_, {&e1_});
  const auto compare = [](const void*, const void* queue) -> uint32_t {
    return !is_locked(*static_cast<q_queue*>(const_cast<void*>(queue)));
  };
  EXPECT_EQ(q_linear_search(&queue_, compare, &queue_, nullptr), &e1_.link);
}

struct Call {
  void* element;
  void* value;
};
std::vector<Call> g_actions;
void record(void* element, void* value) { g_actions.push_back({element, value}); }

TEST_F(Queue, LinearDeleteOfTheMiddleLeavesTheOthersLinkedForward) {
  put(queue_, {&e1_, &e2_, &e3_});
  q_linear_delete(&queue_, has_id_two, nullptr, nullptr);
  EXPECT_EQ(q_cnt(&queue_), 2);
  EXPECT_EQ(e1_.link.next, &e3_.link);
  EXPECT_EQ(e2_.link.next, nullptr);
  EXPECT_EQ(e3_.link.prev, &e2_.link);
  EXPECT_FALSE(is_locked(queue_));
}

TEST_F(Queue, LinearDeleteGivesTheValueToTheActionAlone) {
  static const void* compared_with = &g_actions;
  put(queue_, {&e1_, &e2_});
  int value = 5;
  const auto compare = [](const void* element, const void* with) {
    compared_with = with;
    return has_id_two(element, nullptr);
  };
  q_linear_delete(&queue_, compare, &value, record);
  EXPECT_EQ(compared_with, nullptr);
  ASSERT_EQ(g_actions.size(), 1u);
  EXPECT_EQ(g_actions[0].element, &e2_);
  EXPECT_EQ(g_actions[0].value, &value);
}

TEST_F(Queue, LinearDeleteOfTheHeadKeepsBothDirections) {
  e1_.id = 2;
  e2_.id = 1;
  put(queue_, {&e1_, &e2_, &e3_});
  q_linear_delete(&queue_, has_id_two, nullptr, nullptr);
  EXPECT_EQ(e1_.link.next, nullptr);
  EXPECT_THAT(ids(queue_), ElementsAre(1, 3));
  EXPECT_THAT(ids_backwards(queue_), ElementsAre(3, 1));
}

TEST_F(Queue, LinearDeleteTakesTheFirstMatchOnly) {
  e3_.id = 2;
  put(queue_, {&e1_, &e2_, &e3_});
  q_linear_delete(&queue_, has_id_two, nullptr, record);
  EXPECT_EQ(q_cnt(&queue_), 2);
  EXPECT_EQ(g_actions.size(), 1u);
}

TEST_F(Queue, LinearDeleteDownToOneRepairsTheLastLink) {
  put(queue_, {&e1_, &e2_});
  q_linear_delete(&queue_, has_id_two, nullptr, nullptr);
  EXPECT_EQ(q_cnt(&queue_), 1);
  EXPECT_EQ(queue_.ends.prev, &e1_.link);
  EXPECT_EQ(e1_.link.next, &queue_.ends);
}

TEST_F(Queue, LinearDeleteOfTheLastOfThreeLeavesTheLastLinkStale) {
  put(queue_, {&e1_, &e3_, &e2_});
  q_linear_delete(&queue_, has_id_two, nullptr, nullptr);
  EXPECT_EQ(queue_.ends.prev, &e2_.link);
  EXPECT_EQ(e3_.link.next, &queue_.ends);
}

TEST_F(Queue, LinearDeleteWithoutAMatchOrACompareDoesNothing) {
  put(queue_, {&e1_, &e3_});
  q_linear_delete(&queue_, has_id_two, nullptr, record);
  q_linear_delete(&queue_, nullptr, nullptr, record);
  EXPECT_THAT(ids(queue_), ElementsAre(1, 3));
  EXPECT_THAT(g_actions, IsEmpty());
}

TEST_F(Queue, LinearDeleteCallsBothFunctionsUnderTheLock) {
  static q_queue* queue = nullptr;
  static int locked = 0;
  queue = &queue_;
  put(queue_, {&e2_});
  q_linear_delete(
      &queue_,
      [](const void*, const void*) -> uint32_t {
        locked += is_locked(*queue);
        return 1;
      },
      nullptr, [](void*, void*) { locked += is_locked(*queue); });
  EXPECT_EQ(locked, 2);
}

TEST_F(Queue, LinearDeleteNewHandsEachFunctionItsValueAndReturnsTheLink) {
  put(queue_, {&e1_, &e2_, &e3_});
  const int id = 2;
  int value = 7;
  EXPECT_EQ(q_linear_delete_new(&queue_, has_id, &id, record, &value), &e2_.link);
  ASSERT_EQ(g_actions.size(), 1u);
  EXPECT_EQ(g_actions[0].element, &e2_);
  EXPECT_EQ(g_actions[0].value, &value);
  EXPECT_EQ(q_cnt(&queue_), 2);
  EXPECT_EQ(e1_.link.next, &e3_.link);
  EXPECT_EQ(e2_.link.next, nullptr);
  EXPECT_FALSE(is_locked(queue_));
}

TEST_F(Queue, LinearDeleteNewOfTheHeadIsAGet) {
  put(queue_, {&e1_, &e2_});
  const int id = 1;
  EXPECT_EQ(q_linear_delete_new(&queue_, has_id, &id, nullptr, nullptr), &e1_.link);
  EXPECT_EQ(e1_.link.next, nullptr);
  EXPECT_THAT(ids_backwards(queue_), ElementsAre(2));
}

TEST_F(Queue, LinearDeleteNewDownToOneLeavesTheLastLinkStale) {
  put(queue_, {&e1_, &e2_});
  const int id = 2;
  q_linear_delete_new(&queue_, has_id, &id, nullptr, nullptr);
  EXPECT_EQ(q_cnt(&queue_), 1);
  EXPECT_EQ(queue_.ends.prev, &e2_.link);
}

TEST_F(Queue, LinearDeleteNewWithoutAMatchOrAnArgumentGivesNull) {
  put(queue_, {&e1_});
  const int id = 9;
  EXPECT_EQ(q_linear_delete_new(&queue_, has_id, &id, record, nullptr), nullptr);
  EXPECT_EQ(q_linear_delete_new(nullptr, has_id, &id, record, nullptr), nullptr);
  EXPECT_EQ(q_linear_delete_new(&queue_, nullptr, &id, record, nullptr), nullptr);
  EXPECT_EQ(q_cnt(&queue_), 1);
  EXPECT_THAT(g_actions, IsEmpty());
  EXPECT_FALSE(is_locked(queue_));
}

// ---- Misuse -----------------------------------------------------------------------

// A sanitizer reports the fault itself and exits instead of dying by the signal.
void expect_fault(const ChildResult& child) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  EXPECT_TRUE(child.signal != 0 || child.exit_code != 0);
#else
  EXPECT_EQ(child.signal, SIGSEGV) << "exit code " << child.exit_code;
#endif
  EXPECT_FALSE(child.timed_out);
}

struct NullRow {
  const char* name;
  std::function<void(q_queue&, q_link_node&)> call;
  int lines;
};

class QueueNull : public Queue, public ::testing::WithParamInterface<NullRow> {};

TEST_P(QueueNull, IsAnnouncedAndThenFaults) {
  put(queue_, {&e1_});
  const ChildResult child = run_in_child([this] { GetParam().call(queue_, e1_.link); });
  std::string expected;
  for (int i = 0; i < GetParam().lines; ++i) expected += kAssertion;
  EXPECT_EQ(child.out, expected);
  expect_fault(child);
}

const int kId = 1;

INSTANTIATE_TEST_SUITE_P(
    Argument, QueueNull,
    ::testing::Values(
        NullRow{"Init", [](q_queue&, q_link_node&) { q_init(nullptr); }, 1},
        NullRow{"Destroy", [](q_queue&, q_link_node&) { q_destroy(nullptr); }, 1},
        NullRow{"Link", [](q_queue&, q_link_node&) { q_link(nullptr, nullptr); }, 1},
        NullRow{"PutQueueLocksBeforeItChecks", [](q_queue&, q_link_node& link) { q_put(nullptr, &link); }, 0},
        NullRow{"PutLink", [](q_queue& queue, q_link_node&) { q_put(&queue, nullptr); }, 1},
        NullRow{"Get", [](q_queue&, q_link_node&) { q_get(nullptr); }, 1},
        NullRow{"GetExt", [](q_queue&, q_link_node&) { q_get_ext(nullptr); }, 1},
        NullRow{"LastGet", [](q_queue&, q_link_node&) { q_last_get(nullptr); }, 1},
        NullRow{"Check", [](q_queue&, q_link_node&) { q_check(nullptr); }, 1},
        NullRow{"LastCheck", [](q_queue&, q_link_node&) { q_last_check(nullptr); }, 1},
        NullRow{"NextQueue", [](q_queue&, q_link_node& link) { q_next(nullptr, &link); }, 1},
        NullRow{"NextLink", [](q_queue& queue, q_link_node&) { q_next(&queue, nullptr); }, 1},
        NullRow{"InsertQueue", [](q_queue&, q_link_node& link) { q_insert(nullptr, &link, &link); }, 1},
        NullRow{"InsertLink", [](q_queue& queue, q_link_node& link) { q_insert(&queue, nullptr, &link); }, 1},
        NullRow{"InsertExisting", [](q_queue& queue, q_link_node& link) { q_insert(&queue, &link, nullptr); },
                1},
        NullRow{"DeleteQueue", [](q_queue&, q_link_node& link) { q_delete(nullptr, &link); }, 1},
        NullRow{"DeleteLink", [](q_queue& queue, q_link_node&) { q_delete(&queue, nullptr); }, 1},
        NullRow{"DeleteExtLink", [](q_queue& queue, q_link_node&) { q_delete_ext(&queue, nullptr); }, 1},
        NullRow{"Count", [](q_queue&, q_link_node&) { q_cnt(nullptr); }, 1},
        NullRow{"MoveSource", [](q_queue& queue, q_link_node&) { q_m_put(&queue, nullptr); }, 1},
        NullRow{"MoveDestination", [](q_queue& queue, q_link_node&) { q_m_put(nullptr, &queue); }, 1},
        NullRow{"SearchQueueHereAndInTheFirstStep",
                [](q_queue&, q_link_node&) { q_linear_search(nullptr, has_id, &kId, nullptr); }, 2},
        NullRow{"SearchCompare",
                [](q_queue& queue, q_link_node&) { q_linear_search(&queue, nullptr, &kId, nullptr); }, 1},
        NullRow{"LinearDeleteQueue",
                [](q_queue&, q_link_node&) { q_linear_delete(nullptr, has_id, nullptr, nullptr); }, 1}),
    [](const ::testing::TestParamInfo<NullRow>& row) { return row.param.name; });

TEST_F(Queue, SearchWithoutACompareInAnEmptyQueueIsAnnouncedAndGivesNull) {
  const ChildResult child =
      run_in_child([this] { EXPECT_EQ(q_linear_search(&queue_, nullptr, nullptr, nullptr), nullptr); });
  EXPECT_EQ(child.exit_code, 0);
  EXPECT_EQ(child.out, kAssertion);
}

TEST_F(Queue, GetExtOnABrokenHeadSaysSoAndFaults) {
  put(queue_, {&e1_, &e2_});
  e1_.link.next = nullptr;
  const ChildResult child = run_in_child([this] { q_get_ext(&queue_); });
  EXPECT_EQ(child.out, "link_ptr->next_ptr is NULL\n");
  expect_fault(child);
}

TEST_F(Queue, GetOnABrokenHeadFaultsWithoutAWord) {
  put(queue_, {&e1_, &e2_});
  e1_.link.next = nullptr;
  const ChildResult child = run_in_child([this] { q_get(&queue_); });
  EXPECT_EQ(child.out, "");
  expect_fault(child);
}

TEST_F(Queue, GetFromAZeroedHeaderGivesNullAndLeavesTheLockTaken) {
  for (q_link_node* (*take)(q_queue*) : {q_get, q_get_ext}) {
    q_queue dead;
    q_init(&dead);
    dead.ends = {};
    EXPECT_EQ(take(&dead), nullptr);
    EXPECT_TRUE(is_locked(dead));
    pthread_mutex_unlock(&dead.lock);
  }
}

TEST_F(Queue, GetAfterDestroyGivesNull) {
  q_destroy(&queue_);
  EXPECT_EQ(q_get(&queue_), nullptr);
}

// ---- Threads ----------------------------------------------------------------------

TEST_F(Queue, ElementsOfManyProducersAllArriveInTheirOrder) {
  constexpr int kEach = 2000;
  std::vector<Element> first(kEach), second(kEach);
  const auto produce = [this](std::vector<Element>& elements, int base) {
    for (int i = 0; i < kEach; ++i) {
      Element& e = elements[static_cast<std::size_t>(i)];
      e.id = base + i;
      q_put(&queue_, q_link(&e, &e.link));
    }
  };
  std::thread one(produce, std::ref(first), 0);
  std::thread two(produce, std::ref(second), kEach);
  std::vector<int> next = {0, kEach};
  for (int taken = 0; taken < 2 * kEach;) {
    q_link_node* const link = q_get(&queue_);
    if (!link) continue;
    int& expected = next[element(link)->id < kEach ? 0 : 1];
    EXPECT_EQ(element(link)->id, expected++);
    ++taken;
  }
  one.join();
  two.join();
  EXPECT_EQ(q_cnt(&queue_), 0);
}

TEST_F(Queue, ProducersGoOnWhileAllIsMovedAway) {
  constexpr int kEach = 5000;
  std::vector<Element> elements(kEach);
  std::thread producer([&] {
    for (Element& e : elements) q_put(&queue_, q_link(&e, &e.link));
  });
  while (q_cnt(&other_) < kEach) q_m_put(&other_, &queue_);
  producer.join();
  EXPECT_EQ(q_cnt(&other_), kEach);
  EXPECT_EQ(ids(other_).size(), static_cast<std::size_t>(kEach));
}

}  // namespace
