/* SPDX-License-Identifier: MIT */
#include <stdio.h>
#include <vexadm/param_db.h>

static uint8_t channel;
static char ssid[33];
static struct vexa_db_param params[] = {
    {&channel, "channel", VEXA_DB_U8, sizeof channel, 1},
    {ssid, "ssid", VEXA_DB_TEXT, sizeof ssid, 2},
    {NULL, NULL, 0, 0, 0},
};
static const struct vexa_db_table wifi = {"wifi", params};

/* Tables are the host's to make; here in both databases, which the image of a device brings along. */
static int make_tables(void) {
  return vexa_db_exec_cmd(
             "create table if not exists wifi(channel integer, ssid text);"
             "insert into wifi values(6, 'Garden')",
             NULL, NULL, VEXA_DB_USER) != 0 ||
         vexa_db_exec_cmd(
             "create table if not exists wifi(channel integer, ssid text);"
             "insert into wifi values(1, 'Router')",
             NULL, NULL, VEXA_DB_FACTORY) != 0;
}

int main(void) {
  if (make_tables() != 0 || vexa_db_query_db_init_struct(&wifi) != 0) return 1;
  printf("%s is on channel %d.\n", ssid, channel);

  channel = 11;
  if (vexa_db_update_db_from_struct(&wifi, 1) != 0) return 1; /* 1: the channel alone */
  printf("%s is on channel %d.\n", ssid, channel);

  if (vexa_db_reload_value(&wifi, 2) != 0) return 1; /* 2: the name, as the factory had it */
  printf("%s is on channel %d.\n", ssid, channel);
  return 0;
}
