/* SPDX-License-Identifier: MIT */
#include <pthread.h>
#include <stdio.h>
#include <vexadm/log.h>
#include <vexadm/semaphore.h>

static struct vexa_cmn_sem link_up;

static void* bring_up(void* unused) {
  (void)unused;
  vexa_cmn_sem_post(&link_up);
  return NULL;
}

/* A timed wait may end early without an event: 1, and then the caller waits again. */
static uint32_t wait_for(long seconds, long microseconds) {
  const struct vexa_cmn_timeval timeout = {seconds, microseconds};
  uint32_t result;
  do result = vexa_cmn_sem_timedwait(&link_up, &timeout);
  while (result == 1);
  return result;
}

int main(void) {
  pthread_t thread;
  vexa_set_log_level(4);
  if (vexa_cmn_sem_init(&link_up) != 0) return 1;
  printf("%s\n", wait_for(0, 10000) == 0 ? "The link is up." : "No link yet.");
  if (pthread_create(&thread, NULL, bring_up, NULL) != 0) return 1;
  printf("%s\n", wait_for(10, 0) == 0 ? "The link is up." : "No link yet.");
  pthread_join(thread, NULL);
  vexa_cmn_sem_deinit(&link_up);
  return 0;
}
