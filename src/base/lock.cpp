#include "base/lock.h"

#include <errno.h>

#include "base/cancellation.h"
#include "torvane/ipc.h"

namespace torvane {

bool take_semaphore(int id, const char *module, int line, const char *func) {
  while (downdown(id, module, line, func, 0) != 0)
    if (errno != EINTR)
      return false;
  return true;
}

int take_lock(int id, const char *module, int line, const char *func) {
  const int cancellability = hold_cancellation();
  take_semaphore(id, module, line, func);
  return cancellability;
}

bool give_lock(int id, int cancellability, const char *module, int line, const char *func) {
  const bool given = give_semaphore(id, module, line, func);
  restore_cancellation(cancellability);
  return given;
}

} // namespace torvane
