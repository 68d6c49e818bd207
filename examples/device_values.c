/* SPDX-License-Identifier: MIT */
#include <arpa/inet.h>
#include <stdio.h>
#include <vexadm/vexadm.h>

int main(void) {
  vexa_set_log_level(4);
  oem_create_and_check_directory("/data/led/green");
  if (vexa_util_set_file_int_value("/data/led/green/brightness", 255) != 0) return 1;
  printf("The green light has brightness %d.\n",
         (int)vexa_util_get_file_int_value("/data/led/green/brightness"));

  struct in_addr bridge;
  char address[INET_ADDRSTRLEN] = "none";
  if (vexa_util_get_main_bridge_addr(&bridge.s_addr) == 0)
    inet_ntop(AF_INET, &bridge, address, sizeof address);
  printf("The bridge has address %s.\n", address);
  printf("Is a program of that name running? %s.\n", oem_get_pid_by_name("device_values") > 0 ? "Yes" : "No");
  return 0;
}
