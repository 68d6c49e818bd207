/* SPDX-License-Identifier: MIT */
/* Shows USSD replies as the modem hands them over: a data coding scheme, and bytes. */
#include <stdio.h>
#include <vexadm/vexadm.h>

static const uint8_t balance[] = {0xC2, 0x30, 0x3B, 0xEC, 0x1E, 0x97, 0x75,
                                  0xA0, 0x40, 0xCD, 0x25, 0x83, 0x01};
static const uint8_t greeting[] = {0x04, 0x1F, 0x04, 0x40, 0x04, 0x38, 0x04, 0x32, 0x04, 0x35, 0x04, 0x42};

static void show(uint8_t dcs, const uint8_t* bytes, size_t length) {
  char text[128];
  if (vexa_util_convert_ussd_string_to_utf8(dcs, bytes, length, text, sizeof text) > 0) {
    printf("%s\n", text);
  } else {
    printf("(no text of scheme %02X)\n", (unsigned)dcs);
  }
}

int main(void) {
  show(0x0F, balance, sizeof balance);   /* GSM 7 bit default alphabet */
  show(0x48, greeting, sizeof greeting); /* UCS-2 */
  show(0x4C, greeting, sizeof greeting); /* reserved */
  return 0;
}
