// Console trace: the header that tells who speaks, and the call that writes a whole line.
#include <errno.h>
#include <stdarg.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "log/trace.h"

namespace {

constexpr int background = 40;
constexpr int first_colour = 31;

// 31 to 38. The last is no colour to terminals that read it as the start of an extended one; it stays, so that a
// thread's lines look the same whatever wrote them.
int colour_of(int thread_id) {
  return first_colour + (thread_id & 7);
}

void write_header_without_process(FILE *stream, const torvane::TraceSource &source) {
  const int tid = my_gettid();
  fprintf(stream, "\033[1m\033[%d;%dm[%5d %-20s:%5d %16s()]:::\033[0m", background, colour_of(tid), tid, source.file,
          source.line, source.func);
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

void trace(TraceHeader header, const TraceSource &source, const char *format, ...) {
  const int saved_errno = errno;
  FILE *console = fopen("/dev/console", "a");
  if (console) {
    if (header == TraceHeader::thread)
      __stdprintf_info__(console, source.file, source.line, source.func);
    else
      write_header_without_process(console, source);

    va_list values;
    va_start(values, format);
    vfprintf(console, format, values);
    va_end(values);
    fclose(console);
  }
  errno = saved_errno;
}

} // namespace torvane
