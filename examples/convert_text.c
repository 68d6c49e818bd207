/* SPDX-License-Identifier: MIT */
/* A text to the modem's UCS-2 and back, and what a conversion says of a text that it cannot convert. */
#include <stdio.h>
#include <vexadm/vexadm.h>

int main(void) {
  const char text[] = "20 \xE2\x82\xAC \xF0\x9F\x98\x80";
  uint16_t ucs2[16];
  char back[32];
  const size_t bytes = vexa_util_convert_utf8_to_ucs2(text, sizeof text - 1, ucs2, sizeof ucs2);
  printf("%zu bytes of UCS-2:", bytes);
  for (size_t i = 0; i < bytes / 2; ++i) printf(" %04X", (unsigned)ucs2[i]);
  vexa_util_convert_ucs2_to_utf8(ucs2, bytes, back, sizeof back);
  printf("\n%s\n", back);

  const uint8_t overlong[] = {'a', 'b', 0xC0, 0x80};
  const uint8_t* src = overlong;
  uint16_t* dst = ucs2;
  const int32_t result =
      vexa_util_ConvertUTF8toUTF16(&src, overlong + sizeof overlong, &dst, ucs2 + 16, VEXA_UNICODE_STRICT);
  if (result == VEXA_UNICODE_SOURCE_ILLEGAL) printf("illegal at byte %d\n", (int)(src - overlong));
  return 0;
}
