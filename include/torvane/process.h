/*
 * Process helpers
 *
 * Commands go to "/bin/sh -c" as they are: quoting values is the caller's work. The functions with a format hold a
 * command of at most 1023 bytes; a longer one is not run cut short but refused: traces "command too long\n" and returns
 * -1 (null from _system_read), as does a null format.
 */
#ifndef TORVANE_PROCESS_H
#define TORVANE_PROCESS_H

#include <stdio.h>

#include "torvane/common.h"

TORVANE_BEGIN

/*
 * Formats a command and runs it with system(3): waits for it; meanwhile the process ignores SIGINT and SIGQUIT, and the
 * calling thread blocks SIGCHLD.
 *
 *   file, line, func  source position of the caller, for a trace macro of the caller's; not used
 *
 * Returns what system(3) returned: a wait status; when no process can be made -1 or the status of exit code 127, by the
 * C library. Any thread.
 */
int __system(const char *file, int line, const char *func, const char *fmt, ...) TORVANE_PRINTF(4, 5);

/*
 * Formats a command, traces "sys cmd:%s\n" with it, runs it with "/bin/sh -c" from a vfork and waits for any one
 * child: in a process with other children that may be another one.
 *
 * Returns the length of the command in bytes, whatever came of running it. Not for processes whose children are
 * waited for elsewhere at the same time.
 */
int _execl(const char *fmt, ...) TORVANE_PRINTF(1, 2);

/*
 * Formats a command and starts it with its standard output readable from the stream that is returned; all output
 * streams of the process are flushed first. Returns null when it cannot be started. End it with _system_close.
 *
 * Any thread; but the flush waits for every thread that is inside a call on a stream, such as one that reads the output
 * of a slow command.
 */
FILE *_system_read(const char *fmt, ...) TORVANE_PRINTF(1, 2);

/* Closes a stream of _system_read and waits for its command. Returns its wait status, or -1 (also for null). */
int _system_close(FILE *stream);

/*
 * Starts a command of any length, reads nothing of its output, and waits for it to end. Prints "execute command (%s)
 * success\n" on standard output when it could be started, else "execute command (%s) fail\n" ("(null)" for null).
 *
 * For commands that print nothing: the first thing that one writes to its standard output is likely to end it with
 * SIGPIPE in the middle of its work.
 *
 * Returns 0 when the command could be started, whatever its exit status; else -1, also for null.
 */
int exec_system(const char *command);

/*
 * kill(2), guarded: for the process ids 0, -1 and 1 it signals nothing, traces "kill %d\n" with the id and returns -1.
 * Other negative ids address process groups as usual.
 *
 *   file, line, func  source position of the caller, for a trace macro of the caller's; not used
 *
 * Returns what kill(2) returned. Any thread.
 */
int __kill(const char *file, int line, const char *func, int pid, int sig);

/* 1 when stat(2) on `path` succeeds, else 0, also for null. Any thread. */
int _isFileExist(const char *path);

/*
 * Always 0, also for a module that is loaded: its reading of "/proc/modules" goes on while the stream is at its end,
 * which a stream just opened never is. Kept for callers built on that answer. Traces "open /proc/modules fail!\n" when
 * the file cannot be opened. Any thread.
 */
int _isModuleExist(const char *name);

/*
 * Traces what a signal action does: "Default\n", "Ignore\n", or "This signal is not using default or ignore
 * handler\n".
 *
 *   action  a record whose first word, of pointer size, is the handler (SIG_DFL, SIG_IGN or a function). Where struct
 *           sigaction begins with its flags, as on MIPS, pass the address of its handler field. Null traces nothing
 */
void show_handler(const void *action);

/*
 * A number from rand(3), seeded once per process from "/dev/urandom", or from the time when that cannot be read. Not
 * for secrets. Two threads that make the first call at once may both seed.
 */
int get_random(void);

/*
 * Makes four UUIDs from a MAC address: fixed fields, then the MAC's bytes, the last of them plus 0, 1, 2 and 3.
 *
 *   mac  6 bytes
 *   out  280 bytes, or null to store nothing: four texts of 32 digits in 33 bytes each, then from byte 132 four texts
 *        with dashes of 36 characters in 37 bytes each, all terminated
 *
 * A sum above 255 is written with its three digits and the text is cut to its field, so the UUIDs of a MAC that ends in
 * fe or ff are not all different.
 *
 * Returns 0, or -1 when `mac` is null. Any thread.
 */
int WscGenerateUUID(const unsigned char *mac, char *out);

TORVANE_END

#endif
