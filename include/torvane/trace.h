/*
 * Console trace
 *
 * A trace is the line that a module of the library writes to "/dev/console" when it reports something: a coloured
 * header that tells who speaks, then the message. Programs can write lines that look alike:
 *
 *     int fd = open("/dev/console", O_WRONLY | O_APPEND | O_NOCTTY | O_CLOEXEC);
 *     FILE *console = fd < 0 ? NULL : fdopen(fd, "a");
 *
 *     if (console) {
 *       __stdprintf_info__(console, "daemon", __LINE__, __func__);
 *       fprintf(console, "link is up\n");
 *       fclose(console);
 *     }
 *
 * Open the stream, write header and message, and close the stream again, once for each line. Header and message then
 * leave in one write as far as they fit the stream's buffer, and the lines of several threads and processes stay whole.
 * Opened like this, a console that is absent is not made: fopen would make a file that grows without bound.
 *
 * Headers come in two forms. Most modules write that of __stdprintf_info__. The older ones (addresses, interfaces,
 * sockets, IPC, _execl, and parts of the select service and the bandwidth monitor) write a SHORT HEADER, which has the
 * thread id but no process id. For thread 315 it reads, between the escape sequences of the colour:
 * "[  315 quorra_ipc          :   57         downdown()]:::".
 */
#ifndef TORVANE_TRACE_H
#define TORVANE_TRACE_H

#include <stdio.h>

#include "torvane/common.h"

TORVANE_BEGIN

/*
 * Writes the header of a trace to a stream. It writes no newline, and leaves the stream open and unflushed.
 *
 *   stream  where to write; it stays the caller's
 *   file    source-file name without its ending, left-justified in 20 columns; not null
 *   line    source line, right-justified in 5 columns
 *   func    function name without parentheses, right-justified in 16 columns; not null
 *
 * Texts that are wider are written whole.
 *
 * Returns the number of bytes written, or a negative number when the stream reports an error.
 *
 * The header carries the process id and the kernel's thread id. Its colour is 31 plus the thread id modulo 8 (the value
 * 38 is written as it stands), so the lines of one thread share a colour. For process 312, thread 315 the header reads,
 * between the escape sequences that start and end the colour:
 * "[312  |315   quorra_qos          :   97 root_qdisc_find_by_name()]:::".
 *
 * Any thread may call it. The stream's own lock keeps threads apart that write to one stream.
 */
int __stdprintf_info__(FILE *stream, const char *file, int line, const char *func);

/*
 * Returns the kernel's id of the calling thread; that of the main thread is the process id. It never fails, and any
 * thread may call it.
 */
int my_gettid(void);

TORVANE_END

#endif
