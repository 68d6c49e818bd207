/* SPDX-License-Identifier: MIT */
#include <stdio.h>
#include <vexadm/vexadm.h>

int main(void) {
  char name[32] = ""; /* cleared, and one byte kept: a name of the command line comes without a terminator */
  char console[32] = "";
  vexa_set_log_level(4);
  if (vexa_get_project_name_cmdline(name, sizeof name - 1) != 0 || name[0] == '\0') return 1;
  if (odm_get_value_from_string("console", console, sizeof console - 1) != 0) return 1;
  printf("The project is %s, its console %s.\n", name, console);
  printf("The router itself %s.\n", vexa_ping_state("127.0.0.1") == 0 ? "answers" : "does not answer");
  return 0;
}
