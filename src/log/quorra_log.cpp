// Writes the header of console traces, which tells who speaks.
#include <stdio.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "base/trace.h"
#include "torvane/trace.h"

using namespace torvane;

extern "C" {

int my_gettid(void) {
  return static_cast<int>(syscall(SYS_gettid));
}

int __stdprintf_info__(FILE *stream, const char *file, int line, const char *func) {
  const int tid = my_gettid();
  return fprintf(stream, "\033[1m\033[%d;%dm[%-5d|%-5d %-20s:%5d %16s()]:::\033[0m", trace_background,
                 trace_colour(tid), static_cast<int>(getpid()), tid, file, line, func);
}

} // extern "C"
