/* SPDX-License-Identifier: MIT */
/* A host with a given number of items, and what it takes of memory. ./dev memory runs it, each
 * mode in a process of its own, in a private /data:
 *
 *   memory_host idle           a host that links SQLite and does nothing
 *   memory_host fill ITEMS     writes that many items of 16 bytes
 *   memory_host sqlite ITEMS   a host that opens the same file by SQLite and reads all of them
 *   memory_host cached ITEMS   a host of the library that has registered, read and so cached them
 *   memory_host reads ITEMS N  what N further reads leave behind, each hundredth of storage
 *   memory_host writes ITEMS N what N writes leave behind
 *
 * Prints bytes, a name and a number per line: heap in use, resident private memory, all resident.
 * glibc counts what a thread keeps for its next malloc as in use; GLIBC_TUNABLES=
 * glibc.malloc.tcache_count=0 makes the count of the heap exact. */
#include <malloc.h>
#include <sqlite3.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <vexadm/vexadm.h>

enum { MOST = 1000, VALUE = 16, WARM_UP = 20 };

static struct vexa_dm_default_item items[MOST + 1];
static struct vexa_dm_handle* store;

struct memory {
  long heap, private_pages, resident;
};

static void check(int well, const char* what) {
  if (well) return;
  fprintf(stderr, "memory_host: %s\n", what);
  exit(1);
}

/* In bytes; 0 where the kernel's text does not have it. */
static long status_of(const char* name) {
  char line[256];
  long kilobytes = 0;
  FILE* status = fopen("/proc/self/status", "re");
  while (status && fgets(line, sizeof line, status)) {
    if (strncmp(line, name, strlen(name)) == 0) kilobytes = strtol(line + strlen(name), NULL, 10);
  }
  if (status) fclose(status);
  return kilobytes * 1024;
}

static struct memory now(void) {
  struct memory memory = {0, status_of("RssAnon:"), status_of("VmRSS:")};
  struct mallinfo2 heap = mallinfo2();
  memory.heap = (long)(heap.uordblks + heap.hblkhd);
  return memory;
}

static void print(struct memory above, struct memory base) {
  printf("heap %ld\nprivate %ld\nresident %ld\n", above.heap - base.heap,
         above.private_pages - base.private_pages, above.resident - base.resident);
}

static void value_of(int item, int round, char* value) {
  memset(value, 'a' + item % 26, VALUE);
  snprintf(value, VALUE, "%hd", (short)round); /* differs from the last round's */
}

static void reg(int count) {
  vexa_set_log_level(4);
  for (int i = 0; i < count; ++i) {
    items[i].id = i + 1;
    snprintf(items[i].desc.table, sizeof items[i].desc.table, "items");
    snprintf(items[i].desc.key, sizeof items[i].desc.key, "item_%d", i);
    items[i].type = VEXA_DM_BLOCK;
    items[i].value.block = "default";
    items[i].length = 7;
  }
  items[count].id = -1;
  store = vexa_dm_reg(VEXA_DM_BACKEND_SQLITE);
  check(store != NULL && vexa_dm_reg_def_items(items) == 0, "registration failed");
}

static void read_all(int count) {
  for (int i = 0; i < count; ++i) {
    char value[VALUE];
    check(vexa_dm_read(store, i + 1, (uint8_t*)value, VALUE) == VALUE, "a read failed");
  }
}

static void write_items(int first, int count, int items_in_all, int round) {
  for (int n = first; n < first + count; ++n) {
    char value[VALUE];
    value_of(n % items_in_all, round + n / items_in_all, value);
    check(vexa_dm_write(store, n % items_in_all + 1, value, VALUE) == 0, "a write failed");
  }
}

static void read_items(int count, int items_in_all) {
  for (int n = 0; n < count; ++n) {
    char value[VALUE];
    const int id = n % items_in_all + 1;
    if (n % 100 == 0) {
      check(vexa_dm_read_db(store, id, value, VALUE) == 0, "a read of storage failed");
    } else {
      check(vexa_dm_read(store, id, (uint8_t*)value, VALUE) == VALUE, "a read failed");
    }
  }
}

static void read_by_sqlite(int count) {
  for (int i = 0; i < count; ++i) {
    sqlite3* db = NULL;
    sqlite3_stmt* row = NULL;
    char sql[128];
    snprintf(sql, sizeof sql, "select value,crc from items where key='item_%d' limit 1", i);
    check(sqlite3_open("/data/config.db", &db) == SQLITE_OK, "no database");
    check(sqlite3_prepare_v2(db, sql, -1, &row, NULL) == SQLITE_OK && sqlite3_step(row) == SQLITE_ROW,
          "no row");
    sqlite3_finalize(row);
    sqlite3_close(db);
  }
}

int main(int argc, char** argv) {
  const char* mode = argc > 1 ? argv[1] : "";
  const int count = argc > 2 ? atoi(argv[2]) : 0;
  const int times = argc > 3 ? atoi(argv[3]) : 0;
  check(count >= 0 && count <= MOST, "too many items");
  const struct memory nothing = {0, 0, 0};
  (void)now(); /* what the measuring itself allocates for good */

  if (strcmp(mode, "idle") == 0) {
    check(sqlite3_libversion_number() > 0, "no SQLite");
    print(now(), nothing);
  } else if (strcmp(mode, "fill") == 0) {
    reg(count);
    write_items(0, count, count, 0);
  } else if (strcmp(mode, "sqlite") == 0) {
    read_by_sqlite(count);
    print(now(), nothing);
  } else if (strcmp(mode, "cached") == 0) {
    reg(count);
    read_all(count);
    print(now(), nothing);
  } else if (strcmp(mode, "reads") == 0) {
    reg(count);
    read_all(count);
    read_items(100 * WARM_UP, count);
    const struct memory before = now();
    read_items(times, count);
    print(now(), before);
  } else if (strcmp(mode, "writes") == 0) {
    reg(count);
    read_all(count);
    write_items(0, WARM_UP, count, 1);
    const struct memory before = now();
    write_items(WARM_UP, times, count, 1);
    print(now(), before);
  } else {
    fprintf(stderr, "memory_host: no such mode\n");
    return 2;
  }
  return 0;
}
