/* SPDX-License-Identifier: MIT */
/**
 * @file strings.h
 * Text, hexadecimal and path utilities.
 *
 * Texts are NUL-terminated, belong to the caller, and must not be NULL unless
 * said otherwise; source and destination must not overlap. Results never need
 * freeing. Functions keep no state: they are thread-safe for distinct buffers.
 * They log nothing unless said otherwise; only dir_make_path() blocks (on
 * storage).
 *
 * Character classes and cases (isspace, toupper) are those of the process's
 * locale, bytes 0x80 and above included.
 */
#ifndef VEXADM_STRINGS_H
#define VEXADM_STRINGS_H

/* The library exports its own copy of strsep(), for hosts whose C library has
 * none. It is declared by the C library's header, where that one has it: under
 * strict C11 define _DEFAULT_SOURCE before the first include. */
#include <string.h>

#include "export.h"

VEXA_BEGIN_DECLS

/* ---- Bounded copies ------------------------------------------------------ */

/**
 * Copies a text into a buffer.
 *
 * @param dst   size bytes; terminated afterwards unless size is 0
 * @param src   text; copied up to size - 1 characters
 * @param size  capacity of dst in bytes; 0 writes nothing
 * @return the length of src: not below size means that the copy was cut. 0, and
 *         nothing written, when dst or src is NULL
 */
VEXA_API uint32_t vexa_strlcpy(char *dst, const char *src, uint32_t size);

/**
 * Appends a text to the one in a buffer.
 *
 * @param dst   size bytes that hold a text
 * @param src   text; appended as far as it fits with a terminator
 * @param size  capacity of dst in bytes
 * @return the length that both texts have together: not below size means that
 *         the result was cut. Without a terminator within size bytes of dst
 *         nothing is written and the result is size plus the length of src.
 *         0, and nothing written, when dst or src is NULL
 */
VEXA_API uint32_t vexa_strlcat(char *dst, const char *src, uint32_t size);

/**
 * Clears a field and copies a text into it.
 *
 * @param dst   size bytes, all set to 0 first
 * @param src   text; at most size characters are copied
 * @param size  bytes of the field
 * @note The field is terminated only when src is shorter than size. A NULL dst
 *       or src changes nothing and logs "Invalid string parameter.\n" at level 3.
 */
VEXA_API void vexa_string_memcpy(char *dst, const char *src, uint32_t size);

/* ---- Editing in place ---------------------------------------------------- */

/**
 * Takes the text out of double quotes. There are no escapes: a second quote ends the text.
 *
 * @param in        quoted text
 * @param out       out_size bytes; the text without quotes, terminated. After a
 *                  refusal it may hold a part, not terminated
 * @param out_size  capacity of out in bytes
 * @retval 1 done; "" in quotes gives an empty text
 * @retval 0 refused, logged at level 3:
 *           "The in_str must be quoted\n" without an opening quote;
 *           "The in_str has opened quotes, or out_str is small: %d\n" (out_size)
 *           without a closing quote or when out is too small;
 *           "String is not terminated after end quote found\n" when anything
 *           follows the closing quote
 */
VEXA_API uint32_t vexa_strip_quotes_out(const char *in, char *out, uint32_t out_size);

/**
 * Removes white space from both ends of a text, in place.
 * @param str  writable text, or NULL
 * @return str; its text is empty when nothing else was in it
 */
VEXA_API char *vexa_trim_string(char *str);

/**
 * Turns a writable text to upper case, in place.
 * @param str  writable text
 * @return str
 */
VEXA_API char *vexa_string_toupper(char *str);

/**
 * @param c  character
 * @return c + 32 for 'A' to 'Z', else c; knows no locale
 */
VEXA_API int32_t tolowercase(int32_t c);

/**
 * Replaces the first occurrence of a text in another, in place.
 *
 * @param str       writable text, with room for the result. The result's
 *                  characters are written without a terminator: a shorter result
 *                  leaves the end of the former text behind it ("hello world"
 *                  with "x" for "world" becomes "hello xorld"), and for a longer
 *                  one the caller provides the zero behind it
 * @param old       text to find; an empty one is found at the start
 * @param new_text  text to put there
 * @retval 0  replaced
 * @retval -1 old not found, or an argument is NULL
 * @note Works in 1024 bytes: the result is cut to 1023 characters.
 */
VEXA_API int32_t replace_str(char *str, const char *old, const char *new_text);

/* ---- Comparing ----------------------------------------------------------- */

/**
 * @param str     text, or NULL
 * @param prefix  text to look for at its start, or NULL
 * @param nocase  nonzero ignores the case of letters
 * @return 1 when str begins with prefix (an empty one always fits), else 0; 0 when either is NULL
 */
VEXA_API uint32_t starts_with(const char *str, const char *prefix, int32_t nocase);

/**
 * @param str     text, or NULL
 * @param suffix  text to look for at its end, or NULL
 * @param nocase  nonzero ignores the case of letters
 * @return 1 when str ends with suffix (an empty one always fits), else 0; 0 when either is NULL
 */
VEXA_API uint32_t ends_with(const char *str, const char *suffix, uint32_t nocase);

/* ---- Splitting ----------------------------------------------------------- */

/**
 * Splits a text, in place, at every character of a set.
 *
 * @param str         writable text; each delimiter found becomes a terminator
 * @param delims      text of delimiters
 * @param array       receives a pointer into str for each piece, in order. Its
 *                    size is not checked: a text of n characters can give n + 1
 * @param skip_empty  bit 0: pieces without characters are left out
 * @return the number of pieces stored; -1 when str or array is NULL
 */
VEXA_API int32_t split_string_to_array(char *str, const char *delims, char *array[], int32_t skip_empty);

/* ---- Hexadecimal --------------------------------------------------------- */

/**
 * Converts hexadecimal digits of either case to bytes.
 *
 * @param hex       text of digits; terminated, because a refusal logs it
 * @param hex_len   how many digits to convert
 * @param out       out_size bytes
 * @param out_size  capacity of out in bytes, at least hex_len / 2
 * @return bytes written, hex_len / 2; or -1, logged at level 0:
 *         "The input stringLength=%u is not a multiple of 2\n" (hex_len);
 *         "The stringLength (%u) is too long to convert into a byte array of
 *         length (%u)\n" (one line; hex_len, out_size);
 *         "Invalid string to convert (%s)\n" (hex) when another character or the
 *         terminator is met; bytes before it are written
 */
VEXA_API int32_t vexa_hex_StringToBinary(const char *hex, uint32_t hex_len, uint8_t *out, uint32_t out_size);

/**
 * Writes bytes as upper-case hexadecimal digits, high digit first.
 *
 * @param bin       n bytes
 * @param n         how many bytes
 * @param out       out_size bytes; receives a terminated text
 * @param out_size  capacity of out in bytes, at least 2 * n + 1
 * @return 2 * n; -1, and nothing written, when out is too small, or n is 0x40000000
 *         or greater: the result could not hold the length (both logged at level 3:
 *         "Hex string array (%u) is too small to convert (%u) bytes\n", out_size and n)
 */
VEXA_API int32_t vexa_hex_BinaryToString(const uint8_t *bin, uint32_t n, char *out, uint32_t out_size);

/**
 * @param hex  text of hexadecimal digits of either case, without a prefix
 * @return its value, 0 for an empty text; -1 when it has another character or its
 *         value is above 0x7FFFFFFF
 */
VEXA_API int32_t vexa_hex_HexaToInteger(const char *hex);

/**
 * Combines hexadecimal digits into bytes that are there already.
 *
 * @param hex  text of digits of either case
 * @param out  half as many bytes as hex has digits. Each converted byte is ORed
 *             into what the buffer holds, so clear it first; no terminator is written
 * @retval 0  converted; an empty text writes nothing
 * @retval -1 a NULL argument, an odd number of digits or another character; nothing written
 */
VEXA_API int32_t vexa_change_hexstr_to_str(const char *hex, uint8_t *out);

/* ---- UTF-8 --------------------------------------------------------------- */

/**
 * @param lead  first byte of a character
 * @return bytes of the character that begins with lead, 1 to 4; 0 when none begins
 *         with it
 */
VEXA_API int32_t vexa_utf8_NumBytesInChar(uint8_t lead);

/**
 * Copies whole characters into a buffer.
 *
 * @param dst       dst_size bytes; terminated afterwards
 * @param src       text. Lengths come from lead bytes alone: bytes that follow
 *                  one are not checked, and an incomplete last character is
 *                  copied as far as it goes
 * @param dst_size  capacity of dst in bytes, at least 1
 * @param out_len   receives the bytes copied, without the terminator; may be NULL
 * @retval 0  copied. Also when a byte of src cannot begin a character: then dst
 *            is empty and out_len 0
 * @retval -1 cut behind the last character that fits with a terminator
 * @note A NULL dst or src or a dst_size of 0 is a programming error: prints
 *       "vexa_app_os_al, line: <n>" to standard output and aborts the process.
 */
VEXA_API int32_t vexa_utf8_Copy(char *dst, const char *src, uint32_t dst_size, uint32_t *out_len);

/* ---- Directories --------------------------------------------------------- */

/**
 * Creates a directory and those above it.
 *
 * @param path  text of at most 511 bytes, relative or absolute; one slash at its
 *              end is ignored. An empty path and "/" are refused, and so is a path
 *              with a byte that cannot begin a UTF-8 character
 * @param mode  permission bits of new directories, before the process's umask
 * @retval 0  every name of the path exists; what exists is not looked at further,
 *            so a file in the last place passes
 * @retval -1 logged at level 3: "Directory path overflowed.\n" when path is too
 *            long; "Could not create directory '%s'.\n" (path as given) when
 *            mkdir() failed, directories above it stay created. errno is mkdir()'s
 * @note A NULL path stops the process like vexa_utf8_Copy().
 */
VEXA_API int32_t dir_make_path(const char *path, uint32_t mode);

VEXA_END_DECLS

#endif
