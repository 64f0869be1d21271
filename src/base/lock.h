// A System V semaphore taken and given back in the name of the function that does so. No guard object: threads that
// are cancelled asynchronously take it too.
#pragma once

#include <errno.h>

#include "torvane.h"

namespace torvane {

// A wait that a signal interrupts is traced and begun again: whoever went on without the semaphore and gave it back in
// the end would let two holders in from then on. So a failure means that the semaphore is gone.
inline int take_semaphore(int id, const char *module, int line, const char *func) {
  int result;
  do {
    result = downdown(id, module, line, func, 0);
  } while (result != 0 && errno == EINTR);
  return result;
}

} // namespace torvane

// Both give 0 for success, and trace their failures themselves. The second form is in the name of another function.
#define SEMAPHORE_DOWN(id) torvane::take_semaphore(id, trace_module, __LINE__, __func__)
#define SEMAPHORE_UP(id) upup(id, trace_module, __LINE__, __func__, 0)
#define SEMAPHORE_DOWN_AS(func, id) torvane::take_semaphore(id, trace_module, __LINE__, func)
#define SEMAPHORE_UP_AS(func, id) upup(id, trace_module, __LINE__, func, 0)
