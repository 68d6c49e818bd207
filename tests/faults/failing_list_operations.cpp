// SPDX-License-Identifier: MIT
// Lists, ordered lists and the semaphore.
#include <vexadm/vexadm.h>

#include "faults/failing_operations.h"

namespace vexa_test {
namespace {

std::int64_t verdict(bool good) { return good ? 0 : 999; }

std::uint32_t is_it(const void* element, const void* value) { return element == value ? 1 : 0; }

std::int64_t use_list() {
  static list_header first;
  static list_header second;
  static list_link links[6];
  CALL(list_init)(&first);
  for (list_link& link : links) CALL(list_push_back)(&first, &link);
  bool good = CALL(list_size)(&first) == 6 && CALL(list_peek_front)(&first) == &links[0];
  good = good && CALL(list_peek_back)(&first) == &links[5];
  good = good && CALL(list_peek_next)(&first, &links[0]) == &links[1];
  good = good && CALL(list_peek_prev)(&first, &links[1]) == &links[0];
  good = good && CALL(list_linear_search)(&first, is_it, &links[2]) == &links[2];
  good = good && CALL(list_pop_item)(&first, &links[2]) == &links[2];
  CALL(list_push_before)(&first, &links[2], &links[3]);
  good = good && CALL(list_pop_front)(&first) == &links[0] && CALL(list_pop_back)(&first) == &links[5];
  CALL(list_push_front)(&first, &links[0]);
  CALL(list_push_after)(&first, &links[5], &links[0]);
  CALL(list_split)(&first, &links[1], &second);
  good = good && list_size(&first) == 2 && list_size(&second) == 4;
  CALL(list_merge)(&first, &second);
  good = good && list_size(&first) == 6 && list_size(&second) == 0;
  CALL(list_destroy)(&first);
  list_destroy(&second);
  return verdict(good);
}

std::int64_t use_ordered_list() {
  static ordered_list_header first;
  static ordered_list_header second;
  static ordered_list_link links[6];
  CALL(ordered_list_init)(&first, 1, 8192);
  for (std::uint32_t i = 0; i < 4; ++i) CALL(ordered_list_push)(&first, &links[i], i);
  CALL(ordered_list_push_after)(&first, &links[4], &links[3]);
  CALL(ordered_list_push_before)(&first, &links[5], &links[0]);
  bool good = CALL(ordered_list_size)(&first) == 6 && CALL(ordered_list_peek_front)(&first) == &links[5];
  good = good && CALL(ordered_list_peek_back)(&first) == &links[4];
  good = good && CALL(ordered_list_peek_next)(&first, &links[0]) == &links[1];
  good = good && CALL(ordered_list_peek_prev)(&first, &links[1]) == &links[0];
  good = good && CALL(ordered_list_linear_search)(&first, is_it, &links[2]) == &links[2];
  good = good && CALL(ordered_list_pop_item)(&first, &links[2]) == &links[2];
  good = good && CALL(ordered_list_pop_front)(&first) == &links[5];
  good = good && CALL(ordered_list_pop_back)(&first) == &links[4];
  CALL(ordered_list_split)(&first, &links[1], &second);
  good = good && ordered_list_size(&first) == 1 && ordered_list_size(&second) == 2;
  CALL(ordered_list_destroy)(&first);
  ordered_list_destroy(&second);
  return verdict(good);
}

std::int64_t use_semaphore() {
  static vexa_cmn_sem sem;
  bool good = CALL(vexa_cmn_sem_init)(&sem) == 0 && CALL(vexa_cmn_sem_post)(&sem) == 0;
  good = good && CALL(vexa_cmn_sem_timedwait)(&sem, nullptr) == 0 && vexa_cmn_sem_post(&sem) == 0;
  good = good && CALL(vexa_cmn_sem_reset_value)(&sem) == 0 && sem.value == 0;
  CALL(vexa_cmn_sem_deinit)(&sem);
  return verdict(good);
}

std::int64_t wait_in_vain() {
  static vexa_cmn_sem sem;
  const vexa_cmn_timeval moment = {0, 1000};
  vexa_cmn_sem_init(&sem);
  const std::uint32_t result = vexa_cmn_sem_timedwait(&sem, &moment);
  vexa_cmn_sem_deinit(&sem);
  return result;
}

}  // namespace

std::vector<Operation> list_operations() {
  return {
      {.name = "List", .run = use_list, .answers = {{0}}, .reach = Reach::kNothing},
      {.name = "OrderedList", .run = use_ordered_list, .answers = {{0}}, .reach = Reach::kNothing},
      {.name = "Semaphore", .run = use_semaphore, .answers = {{0}}, .reach = Reach::kNothing},
      {.name = "SemaphoreTimesOut", .run = wait_in_vain, .answers = {{2}}, .reach = Reach::kKernel},
  };
}

}  // namespace vexa_test
