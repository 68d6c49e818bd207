/* SPDX-License-Identifier: MIT */
#include <stdio.h>
#include <vexadm/vexadm.h>

static struct vexa_dm_default_item items[] = {
    {.id = 1, .desc = {"wifi", "ssid"}, .value = {.text = "Router"}, .type = VEXA_DM_STRING, .length = 6},
    {.id = -1},
};

int main(void) {
  char ssid[33] = "";
  vexa_set_log_level(4);
  struct vexa_dm_handle* store = vexa_dm_reg(VEXA_DM_BACKEND_SQLITE);
  if (vexa_dm_reg_def_items(items) != 0 || vexa_dm_write(store, 1, "Garden", 6) != 0) return 1;
  if (vexa_dm_read(store, 1, (uint8_t*)ssid, sizeof ssid - 1) < 0) return 1;
  printf("The Wi-Fi is called %s.\n", ssid);
  return vexa_dm_unreg(store);
}
