/* SPDX-License-Identifier: MIT */
/* A host program of the smallest kind, in C11. */
#include <stdio.h>
#include <vexadm/vexadm.h>

#if VEXADM_VERSION_NUMBER < VEXADM_MAKE_VERSION(0, 1, 0)
#error "needs libvexadm 0.1"
#endif

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
  printf("C with %s\n", VEXADM_VERSION);
  return 0;
}
