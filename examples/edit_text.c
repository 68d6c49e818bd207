/* SPDX-License-Identifier: MIT */
#include <stdio.h>
#include <vexadm/strings.h>

int main(void) {
  char name[8], typed[] = "  eth0 wan0   lan0 ";
  const char ssid[] = "Garten B\xC3\xA4r";
  const uint32_t wanted = vexa_strlcpy(name, "vlan.4094", sizeof name);
  printf("%s%s\n", name, wanted >= sizeof name ? " (cut)" : "");

  char* words[sizeof typed]; /* as many as there can be */
  const int32_t count = split_string_to_array(vexa_trim_string(typed), " ", words, 1);
  for (int32_t i = 0; i < count; ++i) printf("%d: %s\n", (int)i, words[i]);

  const uint8_t address[] = {0x00, 0x1A, 0x2B};
  char hex[2 * sizeof address + 1];
  if (vexa_hex_BinaryToString(address, sizeof address, hex, sizeof hex) < 0) return 1;
  printf("%s, and A0 is %d\n", hex, (int)vexa_hex_HexaToInteger("A0"));

  char shown[10]; /* 9 bytes: the next letter has two, and would be cut in half */
  if (vexa_utf8_Copy(shown, ssid, sizeof shown, NULL) != 0) printf("%s...\n", shown);
  return 0;
}
