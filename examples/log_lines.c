/* SPDX-License-Identifier: MIT */
#include <stdio.h>
#include <string.h>
#include <vexadm/log.h>

/* Lines end with the message, behind the last bar. */
static void to_the_front_panel(const char* line) {
  const char* message = strrchr(line, '|');
  if (message != NULL) printf("panel:%s", message + 1);
}

int main(void) {
  char buffer[VEXA_LOG_MESSAGE_SIZE];
  vexa_log_printf(0, buffer, "main", __LINE__, "not shown: a fresh process begins at level 1\n");
  vexa_log_printf(1, buffer, "vexa_dial", __LINE__, "dialled after %d tries\n", 2);

  vexa_set_log_level(3);
  vexa_log_printf(2, buffer, "vexa_dial", __LINE__, "not shown any more\n");
  set_print_interface(to_the_front_panel);
  vexa_log_printf(3, buffer, "vexa_dial", __LINE__, "no signal\n");
  set_print_interface(NULL);
  printf("kept: %s", log_msg);
  return 0;
}
