/* SPDX-License-Identifier: MIT */
/**
 * @file device.h
 * Small services of the device: a number in a file, the bridge's address, a
 * process by name, a directory, and what this build supports.
 *
 * Texts are NUL-terminated and belong to the caller. Functions keep no state and
 * are thread-safe. Failures are logged at level 3, the rest at level 0.
 */
#ifndef VEXADM_DEVICE_H
#define VEXADM_DEVICE_H

#include "export.h"

VEXA_BEGIN_DECLS

/* ---- Numbers in files ---------------------------------------------------- */

/**
 * Reads the number that a file begins with, as in the kernel's attribute files.
 *
 * @param path  file to read; its first 256 bytes are looked at
 * @return its decimal value, white space before it and anything behind it ignored; the
 *         nearest number that the type holds when it holds none so great. 0 when the
 *         file does not begin with a number, is empty, cannot be opened ("Not exist
 *         file=%s\n"), cannot be read (nothing logged; also where the error comes behind
 *         the first bytes) or path is NULL ("Not exist file\n")
 * @note What was read is logged: "read content:%s\n". Blocks as long as opening and
 *       reading do: on a pipe, until 256 bytes have come or every writer has closed it.
 */
VEXA_API int32_t vexa_util_get_file_int_value(const char *path);

/**
 * Replaces the content of a file by a number, and waits until it is on storage.
 *
 * @param path   file; created (mode 0666 less the umask) when it does not exist
 * @param value  number, written in decimal without a line end
 * @retval 0 written and synced; files with nothing to sync, such as the kernel's
 *           attribute files, are written alone
 * @retval 7 path is NULL ("Not exist file\n"); the file cannot be opened ("Not exist
 *           file=%s\n"); or it was not written or synced ("fwrite() failed, only [%d]
 *           written, total_len=[%d], reason=[%s]%d": characters written, characters
 *           of the number, error text and number): the file may be empty then
 * @note Not atomic: a reader may find the file empty meanwhile. Blocks on storage.
 */
VEXA_API int32_t vexa_util_set_file_int_value(const char *path, int32_t value);

/* ---- LAN bridge ---------------------------------------------------------- */

/**
 * Gives the IPv4 address of the LAN bridge: of the first of "bridge0", "br-lan",
 * "brlan0" and "br0" that has one, whether it is up or not.
 *
 * @param out  receives the address in network byte order; 0 when none is found
 * @retval 0  found, logged as "getip:ifname=%s,ip=0x%X\n"
 * @retval -1 no such interface has an address, or no socket could be opened (logged
 *            for each name: "sfd is invalid\n"); or out is NULL ("if_addr is NULL\n")
 * @note The first two messages are logged under the name "vexa_util_get_if_addr".
 */
VEXA_API int32_t vexa_util_get_main_bridge_addr(uint32_t *out);

/* ---- Processes ----------------------------------------------------------- */

/**
 * Finds a process by "ps -e | grep NAME | grep -v grep".
 *
 * @param name  what to look for anywhere in a line of ps: a pattern of grep, part of a
 *              shell command and not quoted, so never what a user typed. The command has
 *              255 characters, so at most 227
 * @return id of the first process listed whose line has it: "4" finds process 4711 too.
 *         -1 when there is none; or when name is NULL or too long, or the shell could not
 *         be started ("command popen error!!!\n")
 * @note Blocks until the commands end.
 */
VEXA_API int32_t oem_get_pid_by_name(const char *name);

/* ---- Directories --------------------------------------------------------- */

/**
 * Creates a directory and those above it, with mode 0777 less the umask.
 *
 * @param path  text of at most 255 bytes, relative or absolute. One slash at its end
 *              is dropped and not counted. With a second one the directory is created
 *              too, but "creation error" is logged: in the last step it is there already
 * @note Says what happened in the log alone: "Directory %s already exists.\n" when
 *       there is something of that name, a plain file included; "Directory %s
 *       created.\n"; or, at level 3, "Directory %s creation error.\n" (all with path as
 *       given, "(null)" for NULL) when the last name could not be created, or path is
 *       NULL, empty or too long. Directories created before a failure stay. Blocks on
 *       storage.
 */
VEXA_API void oem_create_and_check_directory(const char *path);

/* ---- What this build supports -------------------------------------------- */

/** @return 0: no primary interface of its own in this build. */
VEXA_API int32_t vexa_support_PRIMARY_INTERFACE(void);

/** @return 0: no secondary interface in this build. */
VEXA_API int32_t vexa_support_SECONDARY_INTERFACE(void);

/** @return 0: no detection of USB devices in this build. */
VEXA_API int32_t vexa_support_USB_DETECT(void);

VEXA_END_DECLS

#endif
