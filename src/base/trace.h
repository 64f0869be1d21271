// The one trace call of the library: opens the console, writes header and message, closes it again.
#pragma once

#include <unistd.h>

#include "torvane.h"

namespace torvane {

// With the header of __stdprintf_info__. `module` and `func` are the names that the console shows. errno is left as it
// was, so that a caller may report first and return or print the reason afterwards. A thread that is cancelled
// meanwhile ends after it.
[[gnu::format(printf, 4, 5)]] void trace(const char *module, int line, const char *func, const char *format, ...);

// The same with the short header of the older modules (sockets, IPC, _execl): thread id alone, no process id.
[[gnu::format(printf, 4, 5)]] void trace_no_process(const char *module, int line, const char *func, const char *format,
                                                    ...);

// The same with the event log's header: "[SYS]", then the short one. `file` and `func` are the caller's position.
[[gnu::format(printf, 4, 5)]] void trace_event(const char *file, int line, const char *func, const char *format, ...);

} // namespace torvane

// Every module names itself in `trace_module`, once.
#define TRACE(...) torvane::trace(trace_module, __LINE__, __func__, __VA_ARGS__)
#define TRACE_NO_PROCESS(...) torvane::trace_no_process(trace_module, __LINE__, __func__, __VA_ARGS__)

// In the name of another function: parts of one report, or of one operation that is several functions here.
#define TRACE_AS(func, ...) torvane::trace(trace_module, __LINE__, func, __VA_ARGS__)

// The first line of every thread of the library.
#define TRACE_THREAD_START() TRACE("[%d|%d]Thread Create[%s]\n", static_cast<int>(getpid()), my_gettid(), __func__)
