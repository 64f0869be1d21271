#include "base/trace.h"

#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>

#include "base/cancellation.h"
#include "base/high_descriptor.h"
#include "torvane/trace.h"

namespace torvane {
namespace {

int write_short_header(FILE *stream, const char *module, int line, const char *func) {
  const int tid = my_gettid();
  return fprintf(stream, "\033[1m\033[%d;%dm[%5d %-20s:%5d %16s()]:::\033[0m", trace_background, trace_colour(tid), tid,
                 module, line, func);
}

int write_event_header(FILE *stream, const char *module, int line, const char *func) {
  fputs("[SYS]", stream);
  return write_short_header(stream, module, line, func);
}

using HeaderWriter = int(FILE *stream, const char *module, int line, const char *func);

[[gnu::format(printf, 5, 0)]] void write_line(HeaderWriter *write_header, const char *module, int line,
                                              const char *func, const char *format, va_list values) {
  const int saved_errno = errno;
  // A thread that may be cancelled at any point must not end with the stream open and stdio's lock taken.
  const int cancellability = hold_cancellation();
  // A console that is absent is not made: the file would grow without bound, and nobody would read it.
  // Nor does it become the process's controlling terminal.
  const int fd = open("/dev/console", O_WRONLY | O_APPEND | O_NOCTTY | O_CLOEXEC);
  if (FILE *console = open_stream(fd, "a")) {
    write_header(console, module, line, func);
    vfprintf(console, format, values);
    fclose(console);
  }
  restore_cancellation(cancellability);
  errno = saved_errno;
}

} // namespace

void trace(const char *module, int line, const char *func, const char *format, ...) {
  va_list values;
  va_start(values, format);
  write_line(__stdprintf_info__, module, line, func, format, values);
  va_end(values);
}

void trace_no_process(const char *module, int line, const char *func, const char *format, ...) {
  va_list values;
  va_start(values, format);
  write_line(write_short_header, module, line, func, format, values);
  va_end(values);
}

void trace_event(const char *file, int line, const char *func, const char *format, ...) {
  va_list values;
  va_start(values, format);
  write_line(write_event_header, file, line, func, format, values);
  va_end(values);
}

} // namespace torvane
