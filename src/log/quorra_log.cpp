// Console trace: the header that tells who speaks, and the calls that write a whole line.
#include <errno.h>
#include <stdarg.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "base/cancellation.h"
#include "base/trace.h"

namespace {

constexpr int background = 40;
constexpr int first_colour = 31;

// 31 to 38, so that the lines of one thread look alike. Terminals take 38 for the start of an extended colour; it is
// written all the same.
int colour_of(int thread_id) {
  return first_colour + (thread_id & 7);
}

int write_short_header(FILE *stream, const char *module, int line, const char *func) {
  const int tid = my_gettid();
  return fprintf(stream, "\033[1m\033[%d;%dm[%5d %-20s:%5d %16s()]:::\033[0m", background, colour_of(tid), tid, module,
                 line, func);
}

int write_event_header(FILE *stream, const char *module, int line, const char *func) {
  fputs("[SYS]", stream);
  return write_short_header(stream, module, line, func);
}

using HeaderWriter = int(FILE *stream, const char *module, int line, const char *func);

[[gnu::format(printf, 5, 0)]] void write_line(HeaderWriter *write_header, const char *module, int line,
                                              const char *func, const char *format, va_list values) {
  const int saved_errno = errno;
  // A thread that may be cancelled at any point is not cancelled with the stream open and stdio's lock taken.
  const int cancellable = torvane::hold_cancellation();
  // "e": the children that other threads start meanwhile do not get it.
  if (FILE *console = fopen("/dev/console", "ae")) {
    write_header(console, module, line, func);
    vfprintf(console, format, values);
    fclose(console);
  }
  torvane::restore_cancellation(cancellable);
  errno = saved_errno;
}

} // namespace

extern "C" int my_gettid(void) {
  return static_cast<int>(syscall(SYS_gettid));
}

extern "C" int __stdprintf_info__(FILE *stream, const char *file, int line, const char *func) {
  const int tid = my_gettid();
  return fprintf(stream, "\033[1m\033[%d;%dm[%-5d|%-5d %-20s:%5d %16s()]:::\033[0m", background, colour_of(tid),
                 static_cast<int>(getpid()), tid, file, line, func);
}

namespace torvane {

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
