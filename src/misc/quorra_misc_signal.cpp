// Sends signals with a guard, and reports what an action does with them.
#include <signal.h>
#include <stdint.h>
#include <string.h>

#include "base/trace.h"
#include "torvane/process.h"

namespace {

constexpr const char *trace_module = "quorra_misc";

} // namespace

extern "C" {

int __kill(const char *, int, const char *, int pid, int sig) {
  // A daemon that stops another never means its own group (0), every process (-1) or init (1).
  if (pid == 0 || pid == -1 || pid == 1) {
    TRACE("kill %d\n", pid);
    return -1;
  }
  return kill(pid, sig);
}

void show_handler(const void *action) {
  if (!action)
    return;
  uintptr_t handler;
  memcpy(&handler, action, sizeof(handler));
  if (handler == reinterpret_cast<uintptr_t>(SIG_DFL))
    TRACE("Default\n");
  else if (handler == reinterpret_cast<uintptr_t>(SIG_IGN))
    TRACE("Ignore\n");
  else
    TRACE("This signal is not using default or ignore handler\n");
}

} // extern "C"
