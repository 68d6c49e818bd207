/* SPDX-License-Identifier: MIT */
/**
 * @file identity.h
 * Which product this is, and whether another machine answers.
 *
 * The product's project name stands on the kernel command line as KEY=NAME. Where
 * the boot loader passes none, "/tmp/non_signal_info" may have it. That file lies
 * where every program of the device may write: a name from there proves nothing.
 *
 * Texts are NUL-terminated and belong to the caller. No function keeps state: all
 * are thread-safe for distinct buffers. Each reads the files anew.
 */
#ifndef VEXADM_IDENTITY_H
#define VEXADM_IDENTITY_H

#include "export.h"

VEXA_BEGIN_DECLS

/* ---- Project name -------------------------------------------------------- */

/**
 * Finds a value on the kernel command line, of which the first 2047 bytes count.
 *
 * The value begins behind the first place where key stands, be it inside of a
 * longer word, and behind all equals signs, blanks and tabs that follow: a key
 * without a value takes the next word. It ends before a blank or a tab; of line
 * feeds only one at the very end of the command line is no part of it.
 *
 * @param key      text to look for; an empty one stands at the start
 * @param dst      dst_len bytes; receives the value, cut to dst_len bytes. No
 *                 terminator is written: clear the buffer first and pass one byte
 *                 less than it has. Unchanged when the result is -1
 * @param dst_len  most bytes to write
 * @retval 0  at least one byte was written
 * @retval -1 none was. Logged at level 3: "NULL Pointer\n" when dst or key is NULL;
 *            "Could not find oem.project in %s\n" (the command line) whichever key
 *            is not there, also when "/proc/cmdline" cannot be read; "Only containe
 *            space in %s\n" (the command line) when nothing follows the key. Not
 *            logged: dst_len below 1
 */
VEXA_API int32_t odm_get_value_from_string(const char *key, char *dst, int32_t dst_len);

/**
 * Finds the project name in "/tmp/non_signal_info".
 *
 * Reads pieces of 2048 bytes up to the first that has the word "project", wherever
 * in it. The name is the word behind the first equals sign of that piece, wherever
 * that stands: the file is meant to hold one line.
 *
 * @param dst  receives the name, terminated; needs 2047 bytes, the longest name of a
 *             piece with its terminator. Unchanged, although the result is 0, when the
 *             piece has no equals sign, begins with one, or nothing follows it
 * @retval 0  a piece has the word "project"
 * @retval -1 none has ("can't not match %s\n" with "project", at level 3, for each
 *            piece); the file is missing, cannot be read or is no regular file, such as
 *            a pipe, a directory or a device (not logged); dst is NULL ("NULL
 *            Pointer\n", level 3)
 * @note Reads to the end of the file. Where len is known,
 *       vexa_get_project_name_cmdline() does not write beyond it.
 */
VEXA_API int32_t get_project_para(char *dst);

/**
 * Gives the project name: "vexa.project" of the kernel command line, as
 * odm_get_value_from_string() finds it, else what get_project_para() finds.
 *
 * @param dst  len bytes, cleared by the caller; receives the name, cut to len bytes.
 *             A terminator is written, where there is room, only behind a name of
 *             the file
 * @param len  most bytes to write; pass one less than dst has
 * @retval 0  found on the command line; or the file has the word "project", with dst
 *            unchanged when no name follows it
 * @retval -1 found nowhere, len is below 1, or dst is NULL
 * @note Logs the lines of both functions under the name
 *       "__vexa_get_project_name_cmdline".
 */
VEXA_API int32_t vexa_get_project_name_cmdline(char *dst, int32_t len);

/**
 * The same for "oem.project".
 *
 * @param dst  as for vexa_get_project_name_cmdline()
 * @param len  as for vexa_get_project_name_cmdline()
 * @return as vexa_get_project_name_cmdline()
 */
VEXA_API int32_t vexa_get_project_name_cmdline_oem_version(char *dst, int32_t len);

/* ---- Reachability -------------------------------------------------------- */

/**
 * Asks by ping whether a host answers: up to three times "ping -c 2 -W 3 HOST".
 *
 * @param host  name or address, handed to the shell as it is: a text that a user typed
 *              has no place in it. At most 223 bytes, else the command is not run
 * @retval 0  answered; the tries left are not made
 * @retval -1 did not answer three times, is too long, or ping could not be started. Also
 *            for a host that answered, where SIGCHLD is ignored or the program waits
 *            for any child: what ping said is lost (see vexa_system_call_ex())
 * @retval 3  host is NULL; logs nothing
 * @note After each try logs ">>>ping status:%s>>>\n", with "success" at level 0 or with
 *       "fail" at level 3; beside that what vexa_system_call_ex() logs. Blocks for about
 *       a second when all is well, and for four seconds a try when nobody answers.
 */
VEXA_API int32_t vexa_ping_state(const char *host);

VEXA_END_DECLS

#endif
