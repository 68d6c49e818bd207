/* SPDX-License-Identifier: MIT */
#include <stdio.h>
#include <vexadm/vexadm.h>

int main(int argc, char** argv) {
  const char* name = argc > 1 ? argv[1] : "wan0";
  char gateway[46];
  vexa_set_log_level(4);
  if (vexa_get_ipv6_default_gw(name, gateway) != 0) return 1;
  if (gateway[0] != '\0') {
    printf("%s leads to the world by %s.\n", name, gateway);
  } else {
    printf("%s leads nowhere.\n", name);
  }
  return 0;
}
