/* SPDX-License-Identifier: MIT */
#include <stdio.h>
#include <vexadm/queue.h>

/* The link is the first member: its address is the element's. */
struct job {
  struct q_link_node link;
  int id;
  const char* text;
};

static uint32_t has_id(const void* element, const void* id) {
  return ((const struct job*)element)->id == *(const int*)id;
}

int main(void) {
  struct job dial = {.id = 1, .text = "dial"}, report = {.id = 2, .text = "report"};
  struct job restart = {.id = 3, .text = "restart"};
  struct q_queue jobs;
  q_init(&jobs);
  q_put(&jobs, q_link(&dial, &dial.link));
  q_put(&jobs, q_link(&report, &report.link));
  q_insert(&jobs, q_link(&restart, &restart.link), &report.link); /* before the report */

  const int wanted = 2;
  const struct job* found = (const struct job*)q_linear_search(&jobs, has_id, &wanted, NULL);
  printf("%d jobs, number %d is: %s\n", (int)q_cnt(&jobs), wanted, found != NULL ? found->text : "none");

  for (struct job* job; (job = (struct job*)q_get(&jobs)) != NULL;) printf("%s\n", job->text);
  return q_destroy(&jobs);
}
