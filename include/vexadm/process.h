/* SPDX-License-Identifier: MIT */
/**
 * @file process.h
 * Running other programs: by the shell, and without one.
 *
 * The shell functions take command lines with pipes and redirections, as
 * "/bin/sh -c" does. Nothing is quoted or escaped: a text that a user typed has
 * no place in them. vexa_ds_system_call3() is for those: no shell, a list of
 * programs that may run, and an end for one that hangs.
 *
 * All block until the command ends, unless said otherwise, keep no state and are
 * thread-safe. Texts are NUL-terminated and belong to the caller. Streams and
 * descriptors that they open are closed in the commands of other threads. A
 * signal handler of the host that interrupts a read does not cut the output.
 * What fails is logged at level 3, what goes well at level 0, under the
 * function's own name.
 */
#ifndef VEXADM_PROCESS_H
#define VEXADM_PROCESS_H

#include "export.h"

VEXA_BEGIN_DECLS

/* ---- By the shell -------------------------------------------------------- */

/*
 * A host that has SIGCHLD ignored, or that waits for any child (waitpid(-1, ...)) in a
 * handler or another thread, takes the shell's status away from these functions. The
 * command has run all the same. vexa_system_call(), vexa_system_call_var_arg() and
 * vexa_system_call_ex() then answer -1 as if it had not, and with them
 * vexa_write_msg2file(), vexa_write_msg2file_ex() (watch_log.h) and vexa_ping_state()
 * (identity.h). Leave SIGCHLD at SIG_DFL and wait for children by their number.
 */

/**
 * Runs a command line by system(); its output goes where the caller's goes.
 *
 * @param cmd      command line
 * @param cmd_len  what the caller believes the length of cmd to be: a command
 *                 that was cut while it was built is not run
 * @retval 0   ran and exited with 0 (logged: "run shell script successfully
 *             result=%d.\n")
 * @retval -1  not run: cmd_len is not the length of cmd ("System call length
 *             mismatch: %d != %d\n", cmd_len and the length); the shell could
 *             not be started, or cmd is NULL ("system error!\n"). Also after a
 *             run whose status was lost ("system error!\n"), see By the shell
 * @return otherwise the wait status as waitpid() gives it, logged with the exit
 *         code: an exit code of 3 is 768 ("run shell script fail=%d, script exit
 *         code: %d\n"), and 127 may also mean that system() had no process for the
 *         shell; ended by a signal, its number, with 128 more for a core
 *         dump ("result=%d, exit status = [%d]\n")
 * @note Before the run "System call: %s\n" is logged at level 0. Signals during
 *       the call are system()'s: SIGINT and SIGQUIT are ignored, SIGCHLD waits.
 */
VEXA_API int32_t vexa_system_call(const char *cmd, uint32_t cmd_len);

/**
 * Builds a command line and runs it like vexa_system_call().
 *
 * @param buf       buf_size bytes; receives the command line, terminated
 * @param buf_size  capacity of buf in bytes, at least 1. A longer command line is
 *                  cut, and run as far as it goes
 * @param fmt       printf format, followed by its values
 * @return as vexa_system_call(), whose messages it logs; -1 also when buf or
 *         fmt is NULL, buf_size is 0, or the format fails ("system error!\n")
 */
VEXA_API int32_t vexa_system_call_var_arg(char *buf, uint32_t buf_size, const char *fmt, ...)
    VEXA_PRINTF(3, 4);

/**
 * Runs a command line and gives its exit code. Its standard input is an empty
 * pipe, its output goes where the caller's goes.
 *
 * @param cmd      command line
 * @param cmd_len  as for vexa_system_call()
 * @retval 0   exited with 0; logs nothing more
 * @retval -1  not run: cmd_len is not the length of cmd ("system call length
 *             mismatch: %d != %d\n"); the shell could not be started, or cmd is
 *             NULL ("system command failed\n", and the line below). Also after
 *             a run whose status was lost (the line below), see By the shell
 * @return otherwise the exit code, 1 to 255; or the wait status when a signal
 *         ended the shell; logged: "system command failed, rc=%d errno: %d\n"
 * @note Before the run "system call: %s\n" is logged at level 0.
 */
VEXA_API int32_t vexa_system_call_ex(const char *cmd, uint32_t cmd_len);

/**
 * Runs a command line and takes the start of its output.
 *
 * @param cmd          command line
 * @param result       result_size bytes; cleared, then receives whole lines, or
 *                     pieces of result_size - 2 characters of longer ones, as long
 *                     as they fit; terminated. NULL: nothing is read
 * @param result_size  capacity of result in bytes. 2 or less has no room for a
 *                     character
 * @retval 0   ran, whatever its exit code ("popen call: %s success. result
 *             string:%s\n")
 * @retval -1  not run: cmd is NULL, or the shell could not be started ("popen
 *             call:%s fail[%s]\n", with "parameter invaild!" or the system's
 *             reason); or not read, because memory was short ("result_str is NULL!"):
 *             the command was started, with its output closed, and waited for
 * @note The first piece that does not fit ends the reading ("result_buf Exceeded
 *       max len.\n", level 3; the result stays 0), also where a later, shorter
 *       one would. The pipe is then closed: a command that goes on writing is
 *       ended by SIGPIPE. In a host that ignores SIGPIPE the command ignores it
 *       too: its writes fail, and the call lasts until it has ended by itself.
 *       Each piece taken is logged: "Line string:%s".
 */
VEXA_API int32_t vexa_popen_call(const char *cmd, char *result, uint32_t result_size);

/**
 * Runs a command line, gives it a second, and takes the start of its output.
 *
 * @param cmd          command line
 * @param result       result_size bytes; cleared, then receives the output's first
 *                     result_size - 2 characters, terminated
 * @param result_size  capacity of result in bytes
 * @retval 0   ran, whatever its exit code. All of its output was read, and what
 *             did not fit dropped; with a result_size of 1 the first line ends the
 *             reading ("len=%d,%d\n"), with SIGPIPE as for vexa_popen_call()
 * @retval -1  not run: cmd or result is NULL, or the shell could not be started
 *             ("popen call:%s fail[%s]\n" as for vexa_popen_call())
 * @note Always sleeps for one second before it reads. Each line, or 510 characters
 *       of a longer one, is logged: "%s\n".
 */
VEXA_API int32_t vexa_popen_call_ex(const char *cmd, char *result, uint32_t result_size);

/**
 * Counts processes by "ps | grep -v grep | grep -c NAME".
 *
 * @param name  what to look for anywhere in a line of ps: a pattern of grep, part of
 *              a shell command. The command has 127 characters, so at most 99
 * @return how many lines have it, 0 when none; 0 also when the shell could not be
 *         started; -1 when nothing was printed, name is NULL or too long: a cut
 *         name would count other processes
 * @note Logs nothing.
 */
VEXA_API int32_t vexa_check_process_exist(const char *name);

/**
 * Says whether the device has raw NAND flash.
 *
 * @retval 1 "/proc/partitions" has a line with "mtd"
 * @retval 0 it has none, or cannot be read
 * @retval 4 the shell could not be started
 * @note Logs nothing.
 */
VEXA_API int32_t get_flash_type(void);

/* ---- Without a shell ----------------------------------------------------- */

/**
 * Runs one program of a list, takes its output, and kills it when it hangs.
 *
 * The command line is split at blanks; nothing is quoted or expanded. Its first
 * word says what runs:
 *
 * | first word                              | program                                        |
 * |-----------------------------------------|------------------------------------------------|
 * | iptables, ip6tables                     | that one of "/usr/sbin/"                       |
 * | ip, ifconfig, tc                        | that one of "/sbin/"                           |
 * | rm, echo, ls, sleep                     | that one of "/bin/"                            |
 * | ndc                                     | "ndc", searched for in PATH                    |
 * | a word that has "/bin" or "/sbin" in it | itself. Any place in the word counts: programs |
 * |                                         | below "/data/app/bin" run, "/data/binary" too  |
 *
 * Standard output and standard error of the program are one stream, which lands
 * in result as it was written. Two seconds without a byte, counted afresh from
 * each one and when one of its two pipes closes (the output, and the one by which
 * its end is seen), and the program is killed; one that keeps writing may run for
 * any time. The call goes on until the output has ended and the program, with every
 * process that it has started and left behind, has ended too; such a process is
 * one that the two seconds apply to as well, but only the program is killed. A
 * program that closes every descriptor that it has inherited, as a daemon does,
 * cannot be seen any more: it is waited for without limit.
 *
 * @param command      at most 511 characters and 31 words
 * @param command_len  not looked at
 * @param result       receives the first result_len - 1 bytes, terminated after
 *                     each; the rest is read and dropped. Left as it is when there is
 *                     no output: clear it before. NULL drops everything
 * @param result_len   capacity of result in bytes; above 2147483648 nothing is stored
 * @param verbose      nonzero logs the command first: "(): Executing command \"%s\"\n"
 * @retval 0   the program exited with 0
 * @retval -1  not started: command is NULL, empty, or not on the list (nothing is
 *             logged); 512 characters or more ("unable to re-direct stderr: command
 *             string too long.Command string was: %s\n", level 3, under
 *             "vexa_ds_system_call3"); no memory, pipe or process. Or started: exit code
 *             other than 0, 255 among them for a program that cannot be executed and for
 *             32 words or more ("[cpid:%d] Process exited normally with rc=%d\n"); ended
 *             by a signal, or somebody else has waited
 *             for it ("(): [cpid:%d] wait_pid = %d\n", 1 or 0); silent ("[cpid:%d]
 *             ds_exec kill()ed pid %d with SIGKILL\n", or "[cpid:%d] ds_exec tried
 *             kill(); failed with error %d - %s\n"); or the wait failed
 *             ("[cpid:%d] Failed to select() -> %d:%s\n")
 * @note Logs under "vexa_ds_exec_internal", at level 1 but for "ret=%d\n" of each
 *       pipe() at level 0; first "[cpid:%d] Spawned child PID(%d) command:\"%s\"\n".
 *       An interrupted wait is logged as failed, with "(): select() was interrupted,
 *       continuing" behind it, and begins its two seconds anew: a host with a timer
 *       that fires more often has no time-out.
 * @warning In a host that has SIGCHLD ignored or waits for any child, a program may
 *       have ended and be gone while a process that it left behind is silent. The
 *       kill then fails with error 3 (ESRCH), or, when the system has given the
 *       number to a new process, ends that one.
 * @note What is left behind: a program that was killed, or whose wait failed, is not
 *       waited for; it stays a zombie until the host does, for example by
 *       waitpid(-1, NULL, WNOHANG). When the second of the two pipes cannot be had,
 *       the first one stays open. A host that has SIGCHLD ignored or waits for any
 *       child takes the exit code away from this function, which then answers -1.
 * @note A process with more than 1024 descriptors: when a pipe gets number 1024 or
 *       above, the wait fails with EBADF. The program runs on, without a reader.
 * @note Threads: safe. The program gets the signal mask of the calling thread and
 *       the ignored signals of the process; handlers never run in it. It inherits
 *       every descriptor of the host that has no close-on-exec mark, and a pipe by
 *       which its end is seen. Between fork and exec the new process says why it
 *       fails ("exec() failed: %d:%s\nDying\n", "(): command is too long\n") by a
 *       line to the host's standard output or, there in the new process, to its print
 *       callback; the callback must not wait for locks that are held outside of it.
 *       Such a line is untranslated and cut after 255 characters of its message. It
 *       is dropped when another thread was just logging to the callback: the exit
 *       code of 255 is what can be relied on. Handlers of pthread_atfork() run.
 */
VEXA_API int32_t vexa_ds_system_call3(const char *command, uint32_t command_len, char *result,
                                      uint32_t result_len, uint8_t verbose);

VEXA_END_DECLS

#endif
