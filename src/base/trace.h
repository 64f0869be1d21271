// Holds the one trace call of the library: it opens the console, writes header and message, and closes the console
// again.
#pragma once

#include <unistd.h>

#include "torvane/trace.h"

namespace torvane {

// All headers have a black background and one of eight colours, 31 to 38, by thread, so that the lines of a thread look
// alike. Terminals take 38 for the start of an extended colour; this is meant, it is written all the same.
constexpr int trace_background = 40;

inline int trace_colour(int thread_id) {
  return 31 + (thread_id & 7);
}

// Writes a trace with the header of __stdprintf_info__. `module` and `func` are the names that the console shows. The
// call leaves errno as it was, so that a caller may report first and return or print the reason afterwards. A thread
// that is cancelled meanwhile ends after the trace.
[[gnu::format(printf, 4, 5)]] void trace(const char *module, int line, const char *func, const char *format, ...);

// Writes a trace with the short header of the older modules (sockets, IPC, _execl), which has no process id.
[[gnu::format(printf, 4, 5)]] void trace_no_process(const char *module, int line, const char *func, const char *format,
                                                    ...);

// Writes a trace with the event log's header: "[SYS]", then the short one. `file` and `func` are the caller's position.
[[gnu::format(printf, 4, 5)]] void trace_event(const char *file, int line, const char *func, const char *format, ...);

} // namespace torvane

// Every source file that traces names its module once, as `trace_module`: a pointer and not an array, so that the linker
// keeps one text for all files of a module. These two name the function that they stand in, so they stand in exported
// functions, whose names never change.
#define TRACE(...) torvane::trace(trace_module, __LINE__, __func__, __VA_ARGS__)
#define TRACE_NO_PROCESS(...) torvane::trace_no_process(trace_module, __LINE__, __func__, __VA_ARGS__)

// Traces in the name of another function: a part of one report, or of one operation that is several functions here.
#define TRACE_AS(func, ...) torvane::trace(trace_module, __LINE__, func, __VA_ARGS__)

// Traces the first line of every thread of the library.
#define TRACE_THREAD_START() TRACE("[%d|%d]Thread Create[%s]\n", static_cast<int>(getpid()), my_gettid(), __func__)
