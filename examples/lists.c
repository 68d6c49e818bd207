/* SPDX-License-Identifier: MIT */
#include <stdio.h>
#include <vexadm/list.h>

/* The link is the first member: its address is the element's. */
struct job {
  struct list_link link;
  const char* text;
};
struct alarm {
  struct ordered_list_link link;
  const char* text;
};

static struct list_header jobs; /* zeros will do */
static struct ordered_list_header alarms;

int main(void) {
  struct job dial = {.text = "dial"}, probe = {.text = "probe the line"};
  list_push_back(&jobs, &dial.link);
  list_push_front(&jobs, &probe.link);
  for (struct list_link* link; (link = list_pop_front(&jobs)) != NULL;) {
    printf("%s\n", ((struct job*)link)->text);
  }

  struct alarm report = {.text = "send the report"}, lease = {.text = "renew the lease"};
  struct alarm update = {.text = "look for updates"};
  ordered_list_init(&alarms, ORDERED_LIST_ASCENDING, ORDERED_LIST_AFTER_EQUALS);
  ordered_list_push(&alarms, &report.link, 300);
  ordered_list_push(&alarms, &lease.link, 60);
  ordered_list_push(&alarms, &update.link, 300);
  for (struct ordered_list_link* link; (link = ordered_list_pop_front(&alarms)) != NULL;) {
    printf("after %u s: %s\n", (unsigned)link->key, ((struct alarm*)link)->text);
  }
  return 0;
}
