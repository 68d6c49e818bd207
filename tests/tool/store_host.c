/* SPDX-License-Identifier: MIT */
/* A program of the router, in one line of a test: starts the library, which is when it looks at its
 * store, and then does what is asked for.
 * usage: store_host start | read TABLE KEY | write TABLE KEY TYPE ID TEXT | defaults | value ID */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <vexadm/vexadm.h>

static void quiet(const char* line) { (void)line; }

static struct vexa_dm_item_desc item(char** words, int type) {
  struct vexa_dm_item_desc desc = {.type = type};
  snprintf(desc.table, sizeof desc.table, "%s", words[0]);
  snprintf(desc.key, sizeof desc.key, "%s", words[1]);
  return desc;
}

static void read_item(struct vexa_dm_handle* handle, char** words) {
  const struct vexa_dm_item_desc desc = item(words, VEXA_DM_STRING);
  uint8_t value[8192] = {0};
  const int32_t size = handle->ops.read(0, &desc, value, sizeof value);
  printf("%d", size);
  for (int32_t i = 0; i < size; ++i) printf("%s%02x", i == 0 ? " " : "", value[i]);
  printf("\n");
}

static void register_items(void) {
  static struct vexa_dm_default_item items[] = {
      {.id = 20,
       .desc = {"wifi", "ssid", VEXA_DM_STRING},
       .value = {.text = "Router"},
       .type = VEXA_DM_STRING},
      {.id = 21,
       .desc = {"wifi", "channel", VEXA_DM_U8},
       .value = {.u8 = 6},
       .type = VEXA_DM_U8,
       .length = 1},
      {.id = -1},
  };
  vexa_dm_reg_def_items(items);
}

static void construct_defaults(void) {
  register_items();
  printf("%d\n", vexa_dm_construct_def_database(VEXA_DM_BACKEND_SQLITE));
}

/* What a program gets, the default where nothing is stored. */
static void read_by_id(struct vexa_dm_handle* handle, int id) {
  uint8_t value[64] = {0};
  register_items();
  const int32_t size = vexa_dm_read(handle, id, value, sizeof value);
  printf("%d %s\n", size, (const char*)value);
}

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  set_print_interface(quiet);
  struct vexa_dm_handle* handle = vexa_dm_reg(VEXA_DM_BACKEND_SQLITE);
  if (strcmp(argv[1], "read") == 0 && argc == 4) read_item(handle, argv + 2);
  if (strcmp(argv[1], "write") == 0 && argc == 7) {
    const struct vexa_dm_item_desc desc = item(argv + 2, atoi(argv[4]));
    printf("%d\n", handle->ops.write((uint32_t)atoi(argv[5]), &desc, argv[6], (int32_t)strlen(argv[6])));
  }
  if (strcmp(argv[1], "defaults") == 0) construct_defaults();
  if (strcmp(argv[1], "value") == 0 && argc == 3) read_by_id(handle, atoi(argv[2]));
  vexa_dm_unreg(handle);
  return 0;
}
