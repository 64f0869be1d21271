/*
 * Processes
 *
 * These functions run commands, send signals and answer small questions about the system: does a file exist, what does
 * a signal do, what are the UUIDs that belong to a MAC address.
 *
 * Which function runs a command:
 *
 *   __system      waits for the command and returns its status; the usual choice
 *   _execl        traces the command first, and returns no status
 *   _system_read  lets the program read what the command prints; _system_close ends it
 *   exec_system   takes a command of any length that prints nothing
 *
 *     int status = __system(__FILE__, __LINE__, __func__, "ifconfig %s up", ifname);
 *
 *     if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
 *       ...
 *
 * All four pass the command to "/bin/sh -c" as it is. Quoting the values in it is the caller's work; torvane/text.h has
 * the guards for that. The three that take a printf format hold a command of at most 1023 bytes. They do not run a
 * longer one cut short: they refuse it, and trace that.
 */
#ifndef TORVANE_PROCESS_H
#define TORVANE_PROCESS_H

#include <stdio.h>

#include "torvane/common.h"

TORVANE_BEGIN

/*
 * Formats a command, runs it with system(3) and waits for it.
 *
 *   file, line, func  source position of the caller, as a trace macro passes it; not used here
 *   fmt               printf format of the command, which has at most 1023 bytes
 *
 * Returns:
 *   -1            the command is longer or `fmt` is null: traces "command too long\n", and nothing is run
 *   other values  what system(3) returned: the command's wait status. When no process can be made this is -1 or the
 *                 status of exit code 127, depending on the C library
 *
 * During the wait the process ignores SIGINT and SIGQUIT, and the calling thread blocks SIGCHLD. Any thread may call
 * this function.
 */
int __system(const char *file, int line, const char *func, const char *fmt, ...) TORVANE_PRINTF(4, 5);

/*
 * Formats a command, traces "sys cmd:%s\n" with it, runs it with "/bin/sh -c" from a vfork and waits for a child.
 *
 *   fmt  printf format of the command, which has at most 1023 bytes
 *
 * Returns:
 *   -1            the command is longer or `fmt` is null: traces "command too long\n", and nothing is run
 *   other values  the length of the command in bytes, whether it succeeded, failed or could not be started
 *
 * Both traces have the short header of torvane/trace.h, without the process id.
 *
 * The wait ends with ANY one child of the process, which may be another than this command. It also takes place when no
 * process could be made. So do not call it where other children run, or where another thread waits for children at the
 * same time.
 */
int _execl(const char *fmt, ...) TORVANE_PRINTF(1, 2);

/*
 * Formats a command and starts it; the caller reads its standard output from the stream that is returned.
 *
 *   fmt  printf format of the command, which has at most 1023 bytes
 *
 * Returns:
 *   a stream  the command was started; the caller ends it with _system_close
 *   null      the command is longer or `fmt` is null: traces "command too long\n", and nothing is run
 *   null      the command could not be started: nothing is traced
 *
 * All output streams of the process are flushed first. Any thread may call it, but the flush waits for each thread that
 * is inside a call on a stream, such as one that reads the output of a slow command.
 */
FILE *_system_read(const char *fmt, ...) TORVANE_PRINTF(1, 2);

/*
 * Closes a stream of _system_read and waits for its command to end.
 *
 *   stream  from _system_read; it is gone afterwards
 *
 * Returns:
 *   -1            `stream` is null, or the wait failed
 *   other values  the command's wait status
 */
int _system_close(FILE *stream);

/*
 * Starts a command of any length, reads nothing of its output, and waits for it to end.
 *
 *   command  the command, as it goes to the shell
 *
 * Returns:
 *   0   the command was started, whatever its exit status was
 *   -1  the command could not be started, or `command` is null
 *
 * It prints "execute command (%s) success\n" on standard output when the command was started, else
 * "execute command (%s) fail\n" ("(null)" stands for a null command).
 *
 * Use it for commands that print nothing. The first thing that a command writes to its standard output is likely to end
 * it with SIGPIPE in the middle of its work.
 */
int exec_system(const char *command);

/*
 * Sends a signal with kill(2), but never to process id 0, -1 or 1, which mean the caller's own group, every process and
 * init.
 *
 *   file, line, func  source position of the caller, as a trace macro passes it; not used here
 *   pid               process to signal. Negative ids other than -1 address process groups as usual
 *   sig               signal number
 *
 * Returns:
 *   -1            `pid` is 0, -1 or 1: traces "kill %d\n" with the id, and nothing is signalled
 *   other values  what kill(2) returned: 0, or -1 with errno
 *
 * Any thread may call it.
 */
int __kill(const char *file, int line, const char *func, int pid, int sig);

/*
 * Tells whether a path exists, be it a file, a directory or anything else that stat(2) accepts.
 *
 * Returns:
 *   1  stat(2) on `path` succeeded
 *   0  it failed, or `path` is null
 *
 * Any thread may call it.
 */
int _isFileExist(const char *path);

/*
 * Should tell whether a kernel module is loaded, but always returns 0, also for a module that is loaded. It reads
 * "/proc/modules" only while the stream is at its end, and a stream that was just opened never is. The function is kept
 * for callers that are built on that answer.
 *
 *   name  name of the module; not used
 *
 * It traces "open /proc/modules fail!\n" when the file cannot be opened. Any thread may call it.
 */
int _isModuleExist(const char *name);

/*
 * Traces what a signal action does: "Default\n", "Ignore\n", or "This signal is not using default or ignore handler\n".
 *
 *   action  a record whose first word, of pointer size, is the handler (SIG_DFL, SIG_IGN or a function). Where struct
 *           sigaction begins with its flags, as on MIPS, pass the address of its handler field. Null traces nothing
 */
void show_handler(const void *action);

/*
 * Returns a number from rand(3), 0 to RAND_MAX. Do not use it for secrets.
 *
 * The first call in a process seeds the generator from "/dev/urandom", or from the time when that cannot be read. Two
 * threads that make the first call at once may both seed it.
 */
int get_random(void);

/*
 * Makes four UUIDs from a MAC address. Each consists of fixed fields followed by the bytes of the MAC; 0, 1, 2 and 3
 * are added to the last byte.
 *
 *   mac  6 bytes
 *   out  280 bytes, or null to store nothing. It receives four texts of 32 digits in 33 bytes each, then, from byte 132
 *        on, four texts with dashes of 36 characters in 37 bytes each. All eight are terminated
 *
 * Returns:
 *   0   done
 *   -1  `mac` is null
 *
 * A last byte above 255 takes three digits, and the text is cut to its field. So the UUIDs of a MAC that ends in fe or
 * ff are not all different. Any thread may call it.
 */
int WscGenerateUUID(const unsigned char *mac, char *out);

TORVANE_END

#endif
