/* SPDX-License-Identifier: MIT */
#include <stdio.h>
#include <vexadm/vexadm.h>

static const char* verdict(uint32_t good) { return good ? "yes" : "no"; }

int main(void) {
  static const char* const typed[] = {"192.168.1.1", "255.255.255.0", "2001:db8::1", "00:1A:2b:3C:4d:5E",
                                      "192.168.1"};
  char text[16];
  vexa_set_log_level(4);
  for (int i = 0; i < 5; ++i) {
    printf("%-17s  IPv4 %-3s  mask %-3s  IPv6 %-3s  MAC %s\n", typed[i], verdict(is_valid_ip(typed[i])),
           verdict(Is_valid_SubnetMask(typed[i])), verdict(is_valid_ipv6(typed[i])),
           verdict(Is_valid_Mac(typed[i])));
  }
  if (ConvertIPv4NumToStr(htoi("C0A80101"), text, sizeof text) != 0) return 1;
  printf("C0A80101 is %s.\n", text);
  return 0;
}
