/* SPDX-License-Identifier: MIT */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <vexadm/vexadm.h>

int main(void) {
  vexa_set_log_level(4);
  char* reply = vexa_util_send_at("AT+CSQ");
  char* answer = strstr(reply, "+CSQ:");
  if (answer != NULL && strstr(answer, "\r\nOK\r\n") != NULL) {
    answer[strcspn(answer, "\r")] = '\0';
    printf("Signal quality: %s\n", vexa_at_param_strip(answer + strlen("+CSQ:"), " "));
  }
  free(reply);

  reply = vexa_util_send_at("AT+CPIN?");
  printf("The SIM card says: %s\n", vexa_at_param_strip(reply, "\r\n"));
  free(reply);
  return 0;
}
