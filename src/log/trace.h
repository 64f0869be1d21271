// The one trace call of the library: opens the console, writes header and message, closes it again.
#pragma once

#include "torvane.h"

namespace torvane {

enum class TraceHeader {
  thread,    // process and thread id: __stdprintf_info__
  no_process // thread id alone: the older modules (sockets, IPC, _execl)
};

struct TraceSource {
  const char *file; // module name as the console shows it
  int line;
  const char *func;
};

// Never changes errno, so that a caller may report first and return or print the reason afterwards. Nothing in it owns
// memory across the call that a cancelled thread would have to give back, except stdio's own stream.
[[gnu::format(printf, 3, 4)]] void trace(TraceHeader header, const TraceSource &source, const char *format, ...);

} // namespace torvane

// Every source file that traces names its module in `trace_module`, once, at its top.
#define TRACE(...) TRACE_AS(__func__, __VA_ARGS__)

// The same in the name of another function: parts of one report, or of one operation that is several functions here.
#define TRACE_AS(func, ...) \
  torvane::trace(torvane::TraceHeader::thread, torvane::TraceSource{trace_module, __LINE__, func}, __VA_ARGS__)

#define TRACE_NO_PROCESS(...) \
  torvane::trace(torvane::TraceHeader::no_process, torvane::TraceSource{trace_module, __LINE__, __func__}, __VA_ARGS__)
