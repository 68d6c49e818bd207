/* SPDX-License-Identifier: MIT */
/**
 * @file log.h
 * Leveled log lines of a process.
 *
 * One logger serves the whole process: the library reports through it, and host
 * programs may. A message whose level is below the current level is dropped.
 * Any other becomes one line
 *
 *     <time> : <tag> | [<pid> | <tid>-<thread name>] | <function> <line> | <message>
 *
 * and goes to the print callback or, without one, to standard output. Time is
 * UTC, "%04d-%02d-%02d %02d:%02d:%02d.%03d"; seconds and milliseconds come from
 * two clock readings, so that around a second boundary the milliseconds may
 * belong to the second before. In the function name "vexa" is shown as "oem".
 * No line end is added: messages carry their own.
 *
 * | level | meaning  | tag     |
 * |-------|----------|---------|
 * |     0 | debug    | " DBUG" |
 * |     1 | info     | " INFO" |
 * |     2 | warning  | "-WRN-" |
 * |     3 | error    | "=ERR=" |
 * |     4 | critical | "*CRT*" |
 *
 * Any other level is shown with "(null)" for its tag. Level -1 passes always.
 *
 * With the external log tool enabled the logger emits nothing: it formats the
 * message and leaves printing to its caller. The library's own call sites then
 * print "oem_fwa[<pid>] <function>(): <message>" to standard output, with the
 * function name as it is.
 *
 * Failures inside the logger are silent: an unreadable thread name is shown as
 * "NULL", a name that cannot be rewritten as it is, and long texts are cut.
 */
#ifndef VEXADM_LOG_H
#define VEXADM_LOG_H

#include "export.h"

VEXA_BEGIN_DECLS

/** Bytes that the buffer of vexa_log_printf() must have. */
#define VEXA_LOG_MESSAGE_SIZE 4220

/** Takes one finished, terminated line; borrowed for the call. */
typedef void (*vexa_print_fn)(const char *line);

/**
 * The last emitted line, terminated; empty before the first. Longer lines are
 * cut to 4095 characters.
 * @note Written under the logger's mutex, which readers cannot take: read it
 *       only while no other thread logs, or inside the print callback.
 */
VEXA_DATA char log_msg[4096];

/** The time of the last emitted line, terminated; empty before the first. Read it like log_msg. */
VEXA_DATA char str_t[128];

/**
 * Sets the lowest level that is emitted. A fresh process has 1.
 *
 * @param level  1, 2, 3 or 4; any other value sets 0, so that a wrong argument
 *               shows everything instead of hiding errors
 * @note Takes effect with the next message. Takes no lock; any thread may call
 *       it at any time.
 */
VEXA_API void vexa_set_log_level(int32_t level);

/** @return the current level, 0 to 4. Takes no lock; any thread may call it. */
VEXA_API int32_t vexa_get_log_level(void);

/**
 * Says whether an external log tool takes the messages (see the head of this file).
 *
 * @param flag  0: the logger emits lines, as in a fresh process; any other
 *              value: callers print
 * @note Takes effect with the next message. Takes no lock; any thread may call it.
 */
VEXA_API void vexa_set_log_tool_enable(int32_t flag);

/** @return the value last given to vexa_set_log_tool_enable(), 0 in a fresh process. Takes no lock. */
VEXA_API int32_t vexa_get_log_tool_enable(void);

/**
 * Installs the receiver of finished lines.
 *
 * @param callback  called for each line with the logger's mutex held, on the
 *                  thread that logs: it must not log itself (that call never
 *                  returns) and should be quick; NULL restores standard output
 * @note Takes no lock; any thread may call it at any time. A thread that is
 *       emitting a line meanwhile may still call the receiver of before once,
 *       so keep that function loaded.
 */
VEXA_API void set_print_interface(vexa_print_fn callback);

/** @return the kernel thread id of the calling thread. */
VEXA_API int32_t get_tid(void);

/**
 * Formats one message and emits it as a line.
 *
 * @param level  level of the message; -1 passes whatever the current level is
 * @param buf    at least VEXA_LOG_MESSAGE_SIZE writable bytes of the caller;
 *               receives the message, cut to 4219 characters and terminated.
 *               Untouched when the message is filtered. NULL: the message counts
 *               as empty and the line is emitted without it
 * @param func   terminated name of the calling function; NULL is shown as "(null)"
 * @param line   source line of the call
 * @param fmt    printf format, not NULL, followed by its values
 * @retval 0 filtered, or the line is emitted: nothing is left to do
 * @retval 1 the log tool is enabled: nothing is emitted, log_msg is unchanged,
 *           and the caller prints buf
 * @note Thread-safe: one message at a time, under the logger's mutex. Blocks
 *       while another thread emits, and as long as standard output or the
 *       callback blocks. Must not be called from a signal handler or from the
 *       print callback.
 */
VEXA_API int vexa_log_printf(int32_t level, char *buf, const char *func, int32_t line, const char *fmt, ...)
    VEXA_PRINTF(5, 6);

/**
 * Copies a function name for display: each "vexa" becomes "oem".
 *
 * @param name  terminated text
 * @return a new terminated text, to be freed with free(); NULL when name is NULL
 *         or memory is short
 * @note Thread-safe. Logs nothing.
 */
VEXA_API char *rewrite_func_name(const char *name);

VEXA_END_DECLS

#endif
