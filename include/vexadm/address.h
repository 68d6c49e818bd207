/* SPDX-License-Identifier: MIT */
/**
 * @file address.h
 * IP addresses as text, and checks of the addresses that a user types.
 *
 * Texts are NUL-terminated and belong to the caller, whose buffers receive the
 * results. Functions keep no state, do not block and are thread-safe. A failed
 * conversion is logged at level 3 under the function's own name; checks log
 * nothing, except Is_valid_Mac().
 */
#ifndef VEXADM_ADDRESS_H
#define VEXADM_ADDRESS_H

#include "export.h"

VEXA_BEGIN_DECLS

/* ---- Addresses to text --------------------------------------------------- */

/**
 * Writes an IPv4 address in dotted decimal.
 *
 * @param ip        4 bytes, the first octet first
 * @param out       out_size bytes; all cleared, then receives the text
 * @param out_size  capacity of out in bytes, at least 16 (INET_ADDRSTRLEN), also
 *                  for shorter texts
 * @retval 0  written
 * @retval -1 nothing written; logged: "ipStr size is %d; must be at least %i\n"
 *            (out_size, or 0 for a NULL out; 16); "input ipNum is NULL now !!!\n"
 */
VEXA_API int32_t ConvertIPv4ArrayToStr(const uint8_t ip[4], char *out, uint32_t out_size);

/**
 * Writes an IPv4 address in dotted decimal.
 *
 * @param ip        address in host byte order: 0xC0A80101 is 192.168.1.1
 * @param out       out_size bytes; receives the text
 * @param out_size  capacity of out in bytes, at least 16 (INET_ADDRSTRLEN)
 * @retval 0  written
 * @retval -1 nothing written, logged: "ipStr size is %d; must be at least %i\n"
 *            (out_size, or 0 for a NULL out; 16); or inet_ntop() failed, logged:
 *            "Error converting %X to IP string\n" (ip)
 */
VEXA_API int32_t ConvertIPv4NumToStr(uint32_t ip, char *out, uint32_t out_size);

/**
 * Writes an IPv6 address in the shortened form of RFC 5952.
 *
 * @param ip        16 bytes in network order
 * @param out       out_size bytes; all cleared, then receives the text
 * @param out_size  capacity of out in bytes, at least 46 (INET6_ADDRSTRLEN)
 * @retval 0  written
 * @retval -1 nothing written, logged: "ipStr size is %d; must be at least %i\n"
 *            (out_size, or 0 for a NULL out; 46); "input ipNum is NULL now !!!\n";
 *            or inet_ntop() failed: out holds the bytes as 32 upper-case
 *            hexadecimal digits, logged: "Error converting %s to IP string\n"
 *            (that text)
 */
VEXA_API int32_t ConvertIPv6NumToStr(const uint8_t ip[16], char *out, uint32_t out_size);

/* ---- Hexadecimal --------------------------------------------------------- */

/**
 * Writes bytes as upper-case hexadecimal digits, high digit first. As
 * vexa_hex_BinaryToString(), but silent.
 *
 * @param bin       n bytes; may be NULL when n is 0
 * @param n         how many bytes; 0 gives an empty text
 * @param out       out_size bytes; receives a terminated text
 * @param out_size  capacity of out in bytes, at least 2 * n + 1
 * @return 2 * n; -1, and nothing written, when out is too small, an argument is NULL,
 *         or n is 0x40000000 or greater: the result could not hold the length
 */
VEXA_API int32_t hex_BinaryToString(const uint8_t *bin, uint32_t n, char *out, uint32_t out_size);

/**
 * @param nibble  a number
 * @return '0' to '9' or 'A' to 'F' for a number of 0 to 15; 0 for any other
 */
VEXA_API char DecToHex(uint32_t nibble);

/**
 * Reads a hexadecimal number as far as a text has digits and letters.
 *
 * @param text  digits of either case, with or without "0x" or "0X" before them;
 *              or NULL
 * @return its value modulo 2^32; 0 without a digit. Letters behind 'f' are not
 *         refused: 'g' counts 16, 'z' 35, so "1g" is 32
 */
VEXA_API uint32_t htoi(const char *text);

/* ---- Checks -------------------------------------------------------------- */

/**
 * @param text  text or NULL
 * @return 1 for four decimal numbers of 0 to 255 with dots between them, without
 *         leading zeros and blanks (what inet_pton() takes for AF_INET); else 0
 */
VEXA_API uint32_t vexa_check_v4_ip(const char *text);

/**
 * Another name of vexa_check_v4_ip().
 * @param text  text or NULL
 * @return 1 or 0
 */
VEXA_API uint32_t is_valid_ip(const char *text);

/**
 * @param text  text or NULL
 * @return 1 for an IPv6 address as in RFC 4291, section 2.2, without a zone or
 *         prefix length (what inet_pton() takes for AF_INET6); else 0
 */
VEXA_API uint32_t is_valid_ipv6(const char *text);

/**
 * @param text  text or NULL
 * @return 1 for an IPv4 address whose bits are ones and then zeros. 0.0.0.0 and
 *         255.255.255.255 are masks too. Else 0
 */
VEXA_API uint32_t Is_valid_SubnetMask(const char *text);

/**
 * Looks for a regular expression in a text.
 *
 * @param pattern  POSIX extended regular expression; matches anywhere in text
 *                 unless it has anchors
 * @param text     text to look in
 * @retval 0 found
 * @retval 1 not found, or no valid expression, or memory was short, or an argument is NULL
 * @note While memory is short, the C library's regcomp() may lose a block, and that of glibc
 *       before 2.42 frees one twice with many expressions that have a group, which ends
 *       the process. Is_valid_Mac's expression is not among those: tried at each allocation.
 */
VEXA_API uint32_t ereg(const char *pattern, const char *text);

/**
 * @param text  text or NULL
 * @return 1 for six pairs of hexadecimal digits of either case with one separator
 *         between them (logged at level 0: "Yes Match!!! \n"); else 0 (logged at
 *         level 3: "No Match!!! \n"); 0 also when memory was short
 * @note A separator is a colon, a backslash or the letter s; they may be mixed.
 *       Hyphens, dots and blanks are none. The expression is
 *       ^([0-9a-fA-F]{2})(([\s:][0-9a-fA-F]{2}){5})$, in which a backslash within
 *       brackets is a character like others.
 */
VEXA_API uint32_t Is_valid_Mac(const char *text);

VEXA_END_DECLS

#endif
