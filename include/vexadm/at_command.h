/* SPDX-License-Identifier: MIT */
/**
 * @file at_command.h
 * AT commands to the modem, one at a time.
 *
 * The router's AT service listens on UDP port 5555 of 127.0.0.1, hands commands to
 * the modem and sends back what it says. Commands and result codes are those of
 * ITU-T V.250 and 3GPP TS 27.007. The service may repeat the command (ATE1) or not
 * (ATE0), and answer in one datagram or in several.
 *
 * Texts are NUL-terminated. No state is kept: threads may call at the same time,
 * each call has a socket and buffers of its own.
 */
#ifndef VEXADM_AT_COMMAND_H
#define VEXADM_AT_COMMAND_H

#include "export.h"

VEXA_BEGIN_DECLS

/** UDP port of the AT service, on 127.0.0.1. */
#define VEXA_AT_PORT 5555

/** Bytes of the buffer in which a reply comes: up to 2047 characters and a terminator. */
#define VEXA_AT_REPLY_SIZE 2048

/**
 * Sends a command to the modem and waits for its final result.
 *
 * The command goes out in one datagram, all of it in capitals (a to z alone; text in
 * quotes too), with exactly one carriage return at its end: a line feed, a carriage
 * return or both that it ended with are taken away first. At most three datagrams
 * are read, each waited for up to 20 seconds; one that is interrupted by a signal
 * handler, or fails, counts as one of the three. Datagrams are taken from whoever
 * sends them to the call's socket.
 *
 * From what the first of the three attempts brings, the command and everything before
 * it are removed, and behind it a run of spaces, of carriage returns and of line feeds,
 * then NUL bytes at both ends of what is left. After an attempt without a datagram the
 * reply keeps a repeated command. The reading ends with the first of these at the
 * beginning of a line, behind a NUL byte too, wherever it stands in the reply:
 *
 *     "ERROR"  "OK\r\n"  "0\r"  "3\r"  "3"  "4\r"  "NO CARRIER"  "+CME ERROR:"
 *
 * The numbers are the results of a modem told so by ATV0. A line that begins with a 3,
 * such as an identity number, therefore ends the reply before its "OK".
 *
 * @param command  command, with or without a line end. For NULL and an empty text
 *                 nothing is sent
 * @return the reply, with its final result; "\r\nERROR\r\n" after every failure: no
 *         command, no socket, not sent, or no final result in three attempts. Never NULL. It
 *         lies at the start of VEXA_AT_REPLY_SIZE bytes, to be freed with free(); in
 *         a failure what was received before may stand behind its terminator. Tell
 *         success from failure by the final result
 * @note Blocks up to 60 seconds. Without memory for the buffers the process is
 *       aborted, after "vexa_common_def, line: <n>\n" on standard
 *       output. Logs at level 3: "socket error [%s]%d\n" (error text and number);
 *       "select fail:ret=%d\n" (0: nothing came, -1: interrupted or failed);
 *       "recvfrom fail:error=%d,[%s]\n" (number and text). At level 1: "send at
 *       cmd:[%d,%s]\n" (length and text sent); "recvfrom[%d,%d] %d bytes:[%d, %s]\n"
 *       (attempt from 0, bytes there before, bytes received, length and text of the
 *       reply). At level 0 for each marker tried "str_end_rsp[k]=%s\r\n", and "no
 *       correct end:<%s>,<%s>,<%d>\r\n" where one stands within a line (text from
 *       where the search began, text from the character before it, that
 *       character's code, 0 to 255).
 */
VEXA_API char *vexa_util_send_at(const char *command);

/**
 * Removes characters of a set from both ends of a text, in place.
 *
 * @param text  writable text; terminators are written over what is removed at its end
 * @param set   text of the characters to remove
 * @return the text without what was removed at its start, a pointer into text; empty
 *         when nothing is left. text as it is when either argument is NULL
 * @note Logs nothing. Thread-safe for distinct texts.
 */
VEXA_API char *vexa_at_param_strip(char *text, const char *set);

VEXA_END_DECLS

#endif
