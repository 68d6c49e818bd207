/* SPDX-License-Identifier: MIT */
/* What a tool does that looks at the files themselves. A program that only has settings uses the data
 * manager, which comes to these functions by its slots. */
#include <inttypes.h>
#include <stdio.h>
#include <vexadm/vexadm.h>

static const char* health(const char* path) {
  const uint32_t verdict = check_database_health(path);
  return verdict == 0 ? "healthy" : verdict == 1 ? "corrupt" : "not to be checked";
}

int main(void) {
  struct vexa_dm_backend_ops slots;
  const struct vexa_dm_item_desc ssid = {"wifi", "ssid", VEXA_DM_STRING};
  vexa_set_log_level(4);
  sqlite_reg(&slots);
  if (slots.write(1, &ssid, "Garden", 6) != 0) return 1;
  printf("%s is %s, %s is %s.\n", DB_CONFIG, health(DB_CONFIG), DB_CONFIGBAK, health(DB_CONFIGBAK));

  char table[33], key[33];
  int32_t id, type, length, state;
  if (dm_read_state_db(table, key, &id, &type, &length, &state) != 0) return 1;
  printf("The last write was of %s %s, %" PRId32 " bytes, and is %s.\n", table, key, length,
         state == WS_BACKUP_DONE ? "complete" : "not complete");

  uint8_t value[64];
  uint32_t crc;
  const int32_t bytes = dm_read_db(DB_CONFIGBAK, "wifi", "ssid", value, &crc, sizeof value);
  if (bytes < 0) return 1;
  printf("The backup has \"%.*s\", whose checksum %s.\n", (int)bytes, (const char*)value,
         (uint32_t)vexa_dm_Crc32Calc(value, (uint32_t)bytes, 0) == crc ? "fits" : "does not fit");
  return 0;
}
