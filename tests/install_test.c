/* SPDX-License-Identifier: MIT */
/* A host program of the smallest kind, valid as C11 and as C++20. */
#include <stdio.h>
#include <vexadm/vexadm.h>

struct element {
  struct q_link_node link;
  int number;
};

int main(void) {
  static char buffer[4220];
  struct q_queue queue;
  struct element only;
  only.number = 42;

  q_init(&queue);
  q_link(&only, &only.link);
  q_put(&queue, &only.link);
  if (q_get(&queue) != &only.link || q_cnt(&queue) != 0) return 1;
  vexa_log_printf(3, buffer, "vexa_host_start", 7, "hello %d\n", only.number);
  return 0;
}
