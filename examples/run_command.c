/* SPDX-License-Identifier: MIT */
#include <stdio.h>
#include <string.h>
#include <vexadm/vexadm.h>

int main(void) {
  char output[512] = "";
  vexa_set_log_level(4);

  /* Without a shell: no character of the address means anything, and two silent seconds end it. */
  const char* command = "ip -o -4 address show dev lo";
  if (vexa_ds_system_call3(command, (uint32_t)strlen(command), output, sizeof output, 0) != 0) return 1;
  printf("%s", output);

  if (vexa_ds_system_call3("cat /etc/shadow", 15, NULL, 0, 0) == -1) printf("cat is not on the list\n");

  /* With one: pipes and redirections. */
  if (vexa_popen_call("echo one two three | wc -w", output, sizeof output) != 0) return 1;
  printf("%s", output);
  printf("exit code %d\n", vexa_system_call_ex("exit 3", 6));
  return 0;
}
