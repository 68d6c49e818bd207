/* SPDX-License-Identifier: MIT */
/* A daemon that keeps the settings of the Wi-Fi. Lines such as "channel 11" on its standard input
 * stand for whatever brings a router its settings: a web page, a telephone call, a button. */
#include <errno.h>
#include <inttypes.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/signalfd.h>
#include <unistd.h>
#include <vexadm/vexadm.h>

enum { SSID = 1, CHANNEL = 2 };

/* Lives as long as the process: the library keeps pointers into it, and writes into it. */
static struct vexa_dm_default_item items[] = {
    {.id = SSID, .desc = {"wifi", "ssid"}, .value = {.text = "Router"}, .type = VEXA_DM_STRING, .length = 6},
    {.id = CHANNEL, .desc = {"wifi", "channel"}, .value = {.u8 = 6}, .type = VEXA_DM_U8, .length = 1},
    {.id = -1},
};

static void changed(int32_t id, const void* data, int32_t length) {
  if (id == SSID) printf("The name is now %.*s.\n", (int)length, (const char*)data);
  if (id == CHANNEL) printf("The channel is now %d.\n", *(const uint8_t*)data);
}

static struct vexa_dm_handle* open_store(void) {
  vexa_set_log_level(4); /* what must not be lost is in the results */
  struct vexa_dm_handle* store = vexa_dm_reg(VEXA_DM_BACKEND_SQLITE);
  if (vexa_dm_reg_def_items(items) != 0) return NULL;
  if (vexa_dm_construct_def_database(VEXA_DM_BACKEND_SQLITE) != 0) return NULL;
  if (vexa_dm_reg_event_callback(changed) != 0) return NULL;
  return store;
}

static int configure_radio(struct vexa_dm_handle* store) {
  char ssid[33] = ""; /* a byte more than the longest value: texts come without a terminator */
  uint8_t channel = 0;
  if (vexa_dm_read(store, SSID, (uint8_t*)ssid, sizeof ssid - 1) < 0) return -1;
  if (vexa_dm_read(store, CHANNEL, &channel, sizeof channel) < 0) return -1;
  printf("%s on channel %d.\n", ssid, channel);
  return 0;
}

static void set_item(struct vexa_dm_handle* store, const char* line) {
  char name[33];
  unsigned number;
  int32_t result;
  if (sscanf(line, "ssid %32s", name) == 1) {
    result = vexa_dm_write(store, SSID, name, (int32_t)strlen(name));
  } else if (sscanf(line, "channel %u", &number) == 1 && number >= 1 && number <= 13) {
    const uint8_t channel = (uint8_t)number;
    result = vexa_dm_write(store, CHANNEL, &channel, sizeof channel);
  } else {
    printf("Not understood.\n");
    return;
  }
  /* 0: it is on storage, and stays there whatever happens next. */
  if (result != 0) printf("Not stored: %" PRId32 ".\n", result);
}

int main(void) {
  /* Taken by a descriptor, the signal comes when no call of the library is under way. */
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  sigprocmask(SIG_BLOCK, &signals, NULL);
  setvbuf(stdout, NULL, _IOLBF, 0);

  struct vexa_dm_handle* store = open_store();
  if (store == NULL || configure_radio(store) != 0) return 1;

  struct pollfd wait[] = {{.fd = signalfd(-1, &signals, SFD_CLOEXEC), .events = POLLIN},
                          {.fd = STDIN_FILENO, .events = POLLIN}};
  for (;;) {
    if (poll(wait, 2, -1) < 0 && errno != EINTR) return 1;
    if (wait[0].revents != 0) break;
    if (wait[1].revents != 0) {
      char line[128];
      const ssize_t bytes = read(STDIN_FILENO, line, sizeof line - 1);
      if (bytes <= 0) wait[1].fd = -1; /* nobody speaks any more; the signal still comes */
      if (bytes > 0) line[bytes] = '\0', set_item(store, line);
    }
  }

  /* There is nothing to write back: what was acknowledged is stored. */
  printf("Good-bye.\n");
  return vexa_dm_unreg(store);
}
