// SPDX-License-Identifier: MIT
// Runs on the emulated device (./dev device), whose power is taken away while it works:
//
//   write_burst FIRST SEED
//
// Says what each item holds and whether the database files are healthy, then writes values numbered
// from FIRST into items that SEED picks, until the power goes. The host reads along and knows from it
// what had been acknowledged. A value shows its number and whether it is whole.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <vexadm/vexadm.h>

enum { kItems = 8, kLongest = 1000 };

static struct vexa_dm_default_item items[] = {
    {.id = 0, .desc = {"wifi", "ssid"}, .value = {.text = "0:"}, .type = VEXA_DM_STRING, .length = 2},
    {.id = 1, .desc = {"wifi", "key"}, .value = {.text = "0:"}, .type = VEXA_DM_STRING, .length = 2},
    {.id = 2, .desc = {"wifi", "neighbours"}, .value = {.text = "0:"}, .type = VEXA_DM_STRING, .length = 2},
    {.id = 3, .desc = {"lan", "lease"}, .value = {.u32 = 0}, .type = VEXA_DM_U32, .length = 4},
    {.id = 4, .desc = {"lan", "names"}, .value = {.text = "0:"}, .type = VEXA_DM_STRING, .length = 2},
    {.id = 5, .desc = {"lan", "count"}, .value = {.u32 = 0}, .type = VEXA_DM_U32, .length = 4},
    {.id = 6, .desc = {"sys", "zone"}, .value = {.text = "0:"}, .type = VEXA_DM_STRING, .length = 2},
    {.id = 7, .desc = {"sys", "starts"}, .value = {.u32 = 0}, .type = VEXA_DM_U32, .length = 4},
    {.id = -1},
};

// From one number to the next, for contents and for the choice of items.
static uint32_t scatter(uint32_t number) {
  number = (number ^ (number >> 16)) * 0x45d9f3bU;
  number = (number ^ (number >> 16)) * 0x45d9f3bU;
  return number ^ (number >> 16);
}

// The value of this number for an item; returns its length.
static int32_t make_value(int item, uint32_t number, uint8_t* value) {
  if (items[item].type == VEXA_DM_U32) {
    memcpy(value, &number, sizeof number);
    return sizeof number;
  }
  char* const text = (char*)value;
  int32_t length = snprintf(text, kLongest, "%u:", number);
  if (number == 0) return length;
  for (uint32_t more = scatter(number) % 900; more > 0; --more) {
    text[length++] = (char)('a' + scatter(number + more) % 26);
  }
  text[length] = '\0';
  return length;
}

static void say_value(struct vexa_dm_handle* store, int item) {
  static uint8_t found[kLongest + 1];
  static uint8_t made[kLongest + 1];
  memset(found, 0, sizeof found);
  const int32_t length = vexa_dm_read(store, item, found, kLongest);
  uint32_t number = 0;
  if (items[item].type == VEXA_DM_U32) {
    memcpy(&number, found, sizeof number);
  } else {
    number = (uint32_t)strtoul((const char*)found, NULL, 10);
  }
  if (length == make_value(item, number, made) && memcmp(found, made, (size_t)length) == 0) {
    printf("burst: value %d %u\n", item, number);
  } else {
    printf("burst: value %d broken: result %d, %s\n", item, length, (const char*)found);
  }
}

static void say_health(void) {
  printf("burst: health %d %d\n", (int32_t)check_database_health(DB_CONFIG),
         (int32_t)check_database_health(DB_CONFIGBAK));
}

// What other programs of a device write meanwhile without waiting for it: it travels to the disk with
// the writes that are waited for, so that there is something to lose at a cut.
static void write_noise(uint32_t number) {
  static char noise[16384];
  memset(noise, 'a' + (int)(number % 26), sizeof noise);
  FILE* const file = fopen("/data/noise", number % 64 == 0 ? "we" : "ae");
  if (file == NULL) return;
  fwrite(noise, 1, sizeof noise, file);
  fclose(file);
}

int main(int argc, char** argv) {
  if (argc != 3) {
    fputs("usage: write_burst FIRST SEED\n", stderr);
    return 2;
  }
  // The host must know of an acknowledgement before the next write begins.
  setvbuf(stdout, NULL, _IOLBF, 0);
  vexa_set_log_level(4);
  struct vexa_dm_handle* const store = vexa_dm_reg(VEXA_DM_BACKEND_SQLITE);
  if (store == NULL || vexa_dm_reg_def_items(items) != 0) return 1;
  for (int item = 0; item < kItems; ++item) say_value(store, item);
  say_health();
  puts("burst: checked");

  static uint8_t value[kLongest + 1];
  const uint32_t first = (uint32_t)strtoul(argv[1], NULL, 10);
  const uint32_t seed = (uint32_t)strtoul(argv[2], NULL, 10);
  for (uint32_t number = first;; ++number) {
    const int item = (int)(scatter(seed + number) % kItems);
    const int32_t length = make_value(item, number, value);
    write_noise(number);
    printf("burst: writing %d %u\n", item, number);
    const int32_t result = vexa_dm_write(store, item, value, length);
    if (result != 0) {
      printf("burst: refused %d %u: %d\n", item, number, result);
      return 1;
    }
    printf("burst: written %d %u\n", item, number);
    if (number == first) say_health();
  }
}
