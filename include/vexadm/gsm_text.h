/* SPDX-License-Identifier: MIT */
/**
 * @file gsm_text.h
 * Text of USSD and supplementary services to UTF-8 (3GPP TS 23.038).
 *
 * Characters are those of the GSM 7 bit default alphabet. Its escape is shown
 * as a blank, and there is no extension table: an escaped character comes out as
 * a blank and the character that its code has in the default alphabet (1B 28 as
 * " (", not "{").
 *
 * All buffers belong to the caller; source and target must not overlap. Nothing
 * blocks. Functions keep no state: they are thread-safe for distinct targets.
 */
#ifndef VEXADM_GSM_TEXT_H
#define VEXADM_GSM_TEXT_H

#include <stddef.h>

#include "export.h"

VEXA_BEGIN_DECLS

/**
 * @param text  text
 * @return 1 when every byte of it is below 128, so also for an empty text; 0
 *         otherwise and for NULL
 * @note Logs nothing.
 */
VEXA_API int32_t vexa_util_UssdStringIsAscii(const char *text);

/**
 * Unpacks septets (3GPP TS 23.038, 6.1.2.3, without its rule for a final "<CR>"
 * on an octet boundary).
 *
 * @param out         receives one septet a byte; no terminator
 * @param out_max     capacity of out in septets. Above 254 or negative: 255
 * @param packed      packed_len bytes
 * @param packed_len  bytes to read, modulo 256: 300 reads 44, and 256 all 256. A
 *                    negative length reads nothing
 * @return septets written, at most out_max. The second septet that a last byte
 *         completes is padding when it is a carriage return: it is left out.
 *         0, and nothing written, when a pointer is NULL or a number 0
 * @note Logs nothing.
 */
VEXA_API int32_t vexa_util_ussd_unpack(uint8_t *out, int32_t out_max, const uint8_t *packed,
                                       int32_t packed_len);

/**
 * Converts unpacked septets, or bytes, to terminated UTF-8.
 *
 * - Below 128: the character of the default alphabet. One of two bytes that does
 *   not fit with a terminator is left out, and a shorter one may still follow.
 * - 128 and above: copied as it is, which does not make UTF-8 of it.
 * - 13, carriage return: left out and logged at level 0, "ignored CR charecter at
 *   index = %d\n" (one line; its index in septets).
 *
 * @param septets   len bytes
 * @param len       bytes of septets, above 0
 * @param dst       receives the text and its terminator
 * @param dst_size  capacity of dst in bytes, not 0; 1 gives an empty text
 * @return bytes written, without the terminator, in 16 bits. 0, and nothing
 *         written, when a pointer is NULL, dst_size 0, or len 0 or below; logged at
 *         level 3: "Invalid parameters for GSM alphabet to UTF8 conversion, input
 *         len = %d\n" (one line; len)
 */
VEXA_API uint16_t vexa_util_convert_gsm8bit_alpha_string_to_utf8(const uint8_t *septets, int32_t len,
                                                                 char *dst, size_t dst_size);

/**
 * Converts packed septets to terminated UTF-8: vexa_util_ussd_unpack(), then
 * vexa_util_convert_gsm8bit_alpha_string_to_utf8(), with what they log.
 *
 * @param packed    len bytes
 * @param len       bytes of packed, above 0; at most 255 septets come of them, and
 *                  lengths above 256 are taken modulo 256
 * @param dst       receives the text and its terminator
 * @param dst_size  capacity of dst in bytes, not 0
 * @return bytes written, without the terminator. 0, and nothing written, logged at
 *         level 3,
 *         - for what the 8-bit conversion refuses, with the same message;
 *         - when memory is short: "Fail to allocate buffer for GSM alphabet to UTF8
 *           conversion\n" (one line)
 */
VEXA_API uint16_t vexa_util_convert_gsm_def_alpha_string_to_utf8(const uint8_t *packed, int32_t len,
                                                                 char *dst, size_t dst_size);

/**
 * Converts the text of a USSD message to terminated UTF-8, by its data coding
 * scheme (3GPP TS 23.038, 5).
 *
 * | dcs                     | text                                             |
 * |-------------------------|--------------------------------------------------|
 * | 00-0F, 20-3F            | 7-bit                                            |
 * | 10                      | 7-bit; the language stays in the text            |
 * | 11                      | UCS-2 behind two bytes of language               |
 * | 40-7F, 90-9F, C0-EF     | by bits 3 and 2: 7-bit, 8-bit, UCS-2, none of it |
 * | F0-FF                   | by bit 2: 7-bit, 8-bit                           |
 * | 12-1F, 80-8F, A0-BF     | none of it                                       |
 *
 * - 7-bit: vexa_util_convert_gsm_def_alpha_string_to_utf8() of src_len modulo 256
 *   bytes, so that 256 is refused as an empty text.
 * - 8-bit: bytes are copied as they are. dst_size must be src_len + 2 at least,
 *   one more than text and terminator take.
 * - UCS-2: high byte first; an odd last byte is left out. Converted by
 *   vexa_util_convert_ucs2_to_utf8().
 * - The language comes out as one character of the text: its two bytes taken as
 *   a unit in the byte order of the processor.
 *
 * @param dcs       data coding scheme
 * @param src       src_len bytes
 * @param src_len   bytes of src
 * @param dst       receives the text and its terminator
 * @param dst_size  capacity of dst in bytes
 * @return bytes written, without the terminator, in 16 bits. Where text was cut,
 *         what fits is kept. 0 for an empty text, and, with nothing written,
 *         - when src or dst is NULL; logged at level 3: "FATAL : CHECK FAILED\n";
 *         - when the scheme is none of these; logs nothing;
 *         - 7-bit, UCS-2: for what the conversion refuses, with its message;
 *         - 8-bit: when dst is too small; logged at level 3: "Destination buffer (sz
 *           %zu) less than required %zu\n" (one line; dst_size and src_len + 1);
 *         - UCS-2: when memory is short; logged at level 3: "USC2 to UTF8 conversion
 *           failed due to lack of memory\n" (one line)
 * @note Logs progress at level 0, with the text ("" where nothing was written):
 *       "USSD DCS 7-bit str, hi %d lo %d: %s\n", "USSD DCS 8-bit str, hi %d lo %d:
 *       %s\n" (one line), "USSD DCS UCS2 str, hi %d lo %d: %s\n" (both nibbles of
 *       dcs); before the last one "ussd string size = %d\n" or "ussd string size
 *       preceded by language = %d\n" (one line; src_len).
 */
VEXA_API uint16_t vexa_util_convert_ussd_string_to_utf8(uint8_t dcs, const uint8_t *src, size_t src_len,
                                                        char *dst, size_t dst_size);

VEXA_END_DECLS

#endif
