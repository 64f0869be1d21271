/*
 * Console trace
 *
 * The line that every module of the library writes when it reports something. A program that wants its own lines to
 * look alike writes the header with __stdprintf_info__ to a stream that it opened on "/dev/console", then the message
 * with its newline, and closes the stream: header and message, as far as they fit its buffer, then leave in one
 * write, and the lines of several threads and processes stay whole.
 */
#ifndef TORVANE_TRACE_H
#define TORVANE_TRACE_H

#include <stdio.h>

#include "torvane/common.h"

TORVANE_BEGIN

/*
 * Writes the trace header to `stream`: no newline, and the stream stays open and unflushed.
 *
 *   stream  where to write; the caller's
 *   file    source-file name without its ending, left-justified in 20 columns; not null
 *   line    source line, right-justified in 5
 *   func    function name without parentheses, right-justified in 16; not null
 *
 * Wider texts are printed whole. The header carries the process id and the kernel thread id, and its colour is
 * 31 + thread id modulo 8 (the value 38 is written as it stands), so that the lines of one thread share a colour.
 * For process 312, thread 315 it reads, between the escape sequences that start and end the colour:
 * "[312  |315   quorra_qos          :   97 root_qdisc_find_by_name()]:::".
 *
 * Returns the number of bytes written, or a negative number when the stream reports an error.
 * Any thread; concurrent writers to one stream are kept apart by the stream's own lock.
 */
int __stdprintf_info__(FILE *stream, const char *file, int line, const char *func);

/* The calling thread's kernel thread id (that of the main thread is the process id). Never fails. Any thread. */
int my_gettid(void);

TORVANE_END

#endif
