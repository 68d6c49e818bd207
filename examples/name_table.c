/* SPDX-License-Identifier: MIT */
#include <inttypes.h>
#include <stdio.h>
#include <vexadm/symtab.h>

static void show(const vexa_sym_entry* entry) {
  const vexa_sym_value* content = &entry->content;
  if (content->type == VEXA_SYM_INTEGER) {
    printf("%s = %" PRId32 "\n", entry->name.value.string, content->value.integer);
  } else {
    printf("%s = \"%s\"\n", entry->name.value.string, content->value.string);
  }
}

int main(void) {
  const int32_t table = symOpen(1); /* one bucket: a walk meets the names in the order of their entry */
  if (table < 0) return 1;
  symEnter(table, "mtu", valueInteger(1500), 0);
  symEnter(table, "apn", valueString("internet", 1), 0); /* 1: a copy that belongs to the table */
  symEnter(table, "mtu", valueInteger(1430), 0);         /* in place of the first */
  symEnter(table, "pin", valueString("0000", 1), 0);
  symDelete(table, "pin");

  for (const vexa_sym_entry* entry = symFirst(table); entry != NULL; entry = symNext(table)) show(entry);
  printf("pin is %s.\n", symLookup(table, "pin") != NULL ? "there" : "not there");
  symClose(table);
  return 0;
}
