/* SPDX-License-Identifier: MIT */
/**
 * @file watch_log.h
 * Lines that survive the console: watch files and message files.
 *
 * The watch log is a pair of files of bounded size, "/data/oem/logs/fwawatchA.log" and
 * "fwawatchB.log" beside it. A file is full once it has more than 1048576 bytes, so the
 * line that fills it is still whole. Lines go to A until it is full, then to B; when both
 * are full, A and B in turn are emptied and written again.
 *
 * The library makes no directory: whoever sets up the device makes "/data/oem/logs". Of
 * the watch log no failure is reported but the one that is named below, and none is
 * logged. The message files are written by vexa_system_call(), which logs.
 */
#ifndef VEXADM_WATCH_LOG_H
#define VEXADM_WATCH_LOG_H

#include "export.h"

VEXA_BEGIN_DECLS

/**
 * Appends "[UPTIME] WHERE:LINE MESSAGE" and a line feed to the watch log, with the
 * system's uptime in seconds and hundredths.
 *
 * @param where  terminated name of a function or file; NULL is shown as "(null)"
 * @param line   source line of the call
 * @param fmt    printf format, followed by its values; the message is never cut. NULL
 *               writes nothing
 * @return 0, without meaning
 * @note Writes nothing while "/vexanv/data/fwawatch_option" begins with a decimal number
 *       that is 0, or with no number at all; a missing or empty option file leaves the
 *       watch log on. The file is read anew for each call, 128 bytes of it. Nothing is
 *       written either when "/proc/uptime" has no number or the file cannot be opened.
 * @note "trunk %s file failed!!!\n", with the path, goes to standard output when a full
 *       file cannot be emptied; the line is appended to it all the same.
 * @note Thread-safe, but without a lock: threads and processes that find both files full
 *       at once may empty both. Blocks on storage.
 */
VEXA_API int32_t oem_watch(const char *where, int32_t line, const char *fmt, ...) VEXA_PRINTF(3, 4);

/**
 * Appends "[TIME]MESSAGE" and a line feed to any file, by the shell: echo "..." >> PATH.
 *
 * Nothing is quoted or escaped. Quotes, dollar signs, backquotes and backslashes in the
 * message, and any such character in the path, mean to the shell what they always mean:
 * a text that a user typed has no place here.
 *
 * @param path  file, made when missing
 * @param msg   text
 * @return what vexa_system_call() returns: 0 when written; -1 when path or msg is NULL, or
 *         the command is longer than 2047 bytes (msg and path together longer than 2011).
 *         Such a command is cut and, being no longer what was meant, not run. -1 also
 *         for a line that is written, in a host that has SIGCHLD ignored or waits for
 *         any child
 * @note TIME is local time, unlike in the lines of log.h: "2024-02-29 12:34:56.789".
 *       Blocks until the shell ends. Thread-safe. Logs what vexa_system_call() logs.
 */
VEXA_API int32_t vexa_write_msg2file(const char *path, const char *msg);

/**
 * Formats a message and appends "[TIME]FUNC: MESSAGE" and a line feed to any file, by the
 * shell as vexa_write_msg2file() does, with all that this means.
 *
 * @param buf   at least 4220 bytes; receives the message, cut to 4219 characters and
 *              terminated
 * @param path  file, made when missing
 * @param func  name of the calling function, in which "vexa" is shown as "oem". NULL, or
 *              a lack of memory for the shown name: the line is appended empty
 * @param fmt   printf format, followed by its values
 * @return what vexa_system_call() returns: 0 when written; -1 when buf, path or fmt is
 *         NULL or the command is longer than 12659 bytes (it is not run then), and as for
 *         vexa_write_msg2file() when the status is lost. 0, too, and nothing is
 *         written, when memory for the command is short
 * @note Blocks until the shell ends. Thread-safe for distinct buffers. Logs what
 *       vexa_system_call() logs.
 */
VEXA_API int32_t vexa_write_msg2file_ex(char *buf, const char *path, const char *func, const char *fmt, ...)
    VEXA_PRINTF(4, 5);

VEXA_END_DECLS

#endif
