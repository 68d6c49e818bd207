/* SPDX-License-Identifier: MIT */
/**
 * @file unicode.h
 * Conversions between UTF-8, UTF-16 and Latin-1.
 *
 * Terms are those of the Unicode Standard, chapter 3.9. UTF-16 is in the byte
 * order of the processor, without a byte order mark: a mark is converted like
 * any other character. UCS-2, the modem's name, means UTF-16 here: surrogate
 * pairs are understood.
 *
 * All buffers belong to the caller; source and target must not overlap; 16-bit
 * units are aligned as their type asks. What a target holds behind the end of
 * its text, as far as the capacity that was passed, is unspecified afterwards.
 * Nothing blocks and nothing is allocated. Functions keep no state: they are
 * thread-safe for distinct targets.
 */
#ifndef VEXADM_UNICODE_H
#define VEXADM_UNICODE_H

#include <stddef.h>

#include "export.h"

VEXA_BEGIN_DECLS

/* ---- Positions, and a code that says why a conversion stopped ------------- */

/** How vexa_util_ConvertUTF8toUTF16() and vexa_util_ConvertUTF16toUTF8() ended. */
enum {
  VEXA_UNICODE_OK = 0,               /**< the whole source is converted */
  VEXA_UNICODE_SOURCE_EXHAUSTED = 1, /**< the last sequence of the source is incomplete */
  VEXA_UNICODE_TARGET_EXHAUSTED = 2, /**< the next character does not fit */
  VEXA_UNICODE_SOURCE_ILLEGAL = 3    /**< the next sequence is ill-formed */
};

/** The flags of both: what to do about sequences that are illegal. */
enum {
  VEXA_UNICODE_STRICT = 0, /**< stop */
  VEXA_UNICODE_LENIENT = 1 /**< let unpaired surrogates through; any nonzero value means so */
};

/**
 * Converts UTF-8 to UTF-16.
 *
 * @param src      position in the source; moved to the first byte not converted,
 *                 which is the first one of its sequence
 * @param src_end  end of the source; terminators before it are characters like others
 * @param dst      position in the target; moved behind the last unit written
 * @param dst_end  end of the target. No terminator is written
 * @param flags    VEXA_UNICODE_STRICT or VEXA_UNICODE_LENIENT; both mean the same
 *                 here, because what is illegal in UTF-8 stops either way, and
 *                 what is legal is no surrogate and not above U+10FFFF
 * @retval VEXA_UNICODE_OK                the source is used up; also when it is empty
 * @retval VEXA_UNICODE_SOURCE_EXHAUSTED  a sequence needs more bytes than there are,
 *         by its lead byte alone (C0-DF one more, E0-EF two, F0-F7 three, F8-FB
 *         four, FC-FF five): looked at first, so that one which is illegal too
 *         is told as this
 * @retval VEXA_UNICODE_SOURCE_ILLEGAL    a sequence that table 3-7 of the standard does
 *         not list: a stray trail byte, an overlong form, a surrogate (ED A0 80),
 *         a value above U+10FFFF; looked at before the room. Also when src or dst is NULL
 * @retval VEXA_UNICODE_TARGET_EXHAUSTED  no room for the next character; of a surrogate
 *         pair that does not fit nothing is written
 * @note Logs nothing. A target of as many units as the source has bytes is always enough.
 */
VEXA_API int32_t vexa_util_ConvertUTF8toUTF16(const uint8_t **src, const uint8_t *src_end, uint16_t **dst,
                                              uint16_t *dst_end, int32_t flags);

/**
 * Converts UTF-16 to UTF-8.
 *
 * @param src      position in the source; moved to the first unit not converted,
 *                 which is the first one of a pair
 * @param src_end  end of the source; zero units before it are characters like others
 * @param dst      position in the target; moved behind the last byte written
 * @param dst_end  end of the target. No terminator is written
 * @param flags    VEXA_UNICODE_STRICT stops at a surrogate without its other half;
 *                 VEXA_UNICODE_LENIENT writes it as three bytes (D800 as ED A0 80),
 *                 which is not UTF-8
 * @retval VEXA_UNICODE_OK                the source is used up; also when it is empty
 * @retval VEXA_UNICODE_SOURCE_EXHAUSTED  the last unit is a high surrogate, in both modes
 * @retval VEXA_UNICODE_SOURCE_ILLEGAL    strict: a high surrogate is followed by something
 *         else than a low one, or a low one comes first; looked at before the room.
 *         Also when src or dst is NULL
 * @retval VEXA_UNICODE_TARGET_EXHAUSTED  no room for the next character, of which nothing
 *         is written
 * @note Logs nothing. A target of three bytes for each unit is always enough.
 */
VEXA_API int32_t vexa_util_ConvertUTF16toUTF8(const uint16_t **src, const uint16_t *src_end, uint8_t **dst,
                                              uint8_t *dst_end, int32_t flags);

/* ---- Whole texts ----------------------------------------------------------- */

/**
 * Converts UTF-8 to terminated UCS-2.
 *
 * @param utf8       utf8_len bytes; converted strictly. Zero bytes are characters like others
 * @param utf8_len   bytes of utf8; 0 gives an empty text
 * @param ucs2       receives the units and a terminating zero unit
 * @param ucs2_size  capacity of ucs2 in bytes, at least 2; an odd last byte is not used
 * @return bytes written, without the terminator. Conversion stops early, and what
 *         was converted so far is kept:
 *         - where the room ends, logged at level 3: "String has been truncated.
 *           Buffer size of %zu not large enough\n" (one line; ucs2_size). With an
 *           ucs2_size below 2 nothing at all is written;
 *         - at an illegal or incomplete sequence, logged at level 3: "Error in
 *           converting utf8 string to ucs2\n".
 *         0, and nothing written, when utf8 or ucs2 is NULL; logged at level 3:
 *         "Invalid parameters. utf8str: %p, ucs2str: %p\n"
 */
VEXA_API size_t vexa_util_convert_utf8_to_ucs2(const char *utf8, size_t utf8_len, uint16_t *ucs2,
                                               size_t ucs2_size);

/**
 * Converts UCS-2 to terminated UTF-8.
 *
 * @param ucs2            units; converted leniently. Zero units are characters like
 *                        others: they become zero bytes within the text
 * @param ucs2_len_bytes  bytes of ucs2, not 0; an odd last byte is not used
 * @param utf8            receives the text and its terminator
 * @param utf8_size       capacity of utf8 in bytes, not 0
 * @return bytes written, without the terminator. Conversion stops early, and what
 *         was converted so far is kept:
 *         - where the room ends, before the character that does not fit; logged at
 *           level 0: "String has been truncated. Buffer size of %zu not large
 *           enough\n" (one line; utf8_size);
 *         - at a last unit that is a high surrogate, logged at level 3: "Error in
 *           converting ucs2 string to utf8\n".
 *         0, and nothing written, when a pointer is NULL or a length 0; logged at
 *         level 3: "utf8str or utf8Start is NULL\n"
 */
VEXA_API size_t vexa_util_convert_ucs2_to_utf8(const uint16_t *ucs2, size_t ucs2_len_bytes, char *utf8,
                                               size_t utf8_size);

/**
 * Converts the Latin-1 text of a supplementary service to terminated UTF-8.
 *
 * Carriage returns are left out, each logged at level 0: "ignored charecter at
 * index = %d \n" (one line; its index in latin1).
 *
 * @param latin1     len bytes
 * @param len        bytes of latin1, not 0
 * @param utf8       receives the text and its terminator
 * @param utf8_size  capacity of utf8 in bytes, at least 2 * len
 * @return bytes written, without the terminator. A character that does not fit any
 *         more (the last of a text in which all bytes are 0x80 or above) is left
 *         out and logged at level 0: "ignored extended character at index = %d not
 *         enough bytes. al: %uui: %u us: %u\n" (one line; its index, len, bytes
 *         written so far, utf8_size).
 *         0, and nothing written, logged at level 3, when
 *         - a pointer is NULL or a length 0: "Invalid parameters; ascii_str = %p,
 *           utf8_str = %p\n" (one line);
 *         - utf8_size is below 2 * len: "the utf8 str buffer length is not enough\n"
 */
VEXA_API uint32_t vexa_util_ss_ascii_to_utf8(const uint8_t *latin1, uint32_t len, char *utf8,
                                             uint32_t utf8_size);

VEXA_END_DECLS

#endif
