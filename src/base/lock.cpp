#include "base/lock.h"

#include <errno.h>
#include <sys/sem.h>

#include "base/cancellation.h"
#include "torvane/ipc.h"

namespace torvane {
namespace {

// Moves the semaphore one step up or down, as upup and downdown do, and traces nothing.
bool step_silently(int id, short by) {
  sembuf operation = {0, by, SEM_UNDO};
  return semop(id, &operation, 1) == 0;
}

// Waits until the semaphore is taken, or something else than a signal ends the wait.
bool wait_through_signals(int id) {
  while (!step_silently(id, -1))
    if (errno != EINTR)
      return false;
  return true;
}

Wait wait_for(int id, const char *module, int line, const char *func) {
  while (downdown(id, module, line, func, 0) != 0) {
    if (errno != EINTR)
      return errno == EINVAL || errno == EIDRM ? Wait::gone : Wait::failed;
    if (wait_through_signals(id))
      break;
    // downdown fails alike, and tells why
  }
  return Wait::taken;
}

} // namespace

Lock take_lock(int id, const char *module, int line, const char *func) {
  const int cancellability = hold_cancellation();
  return {id, cancellability, wait_for(id, module, line, func)};
}

bool give_lock(const Lock &lock, const char *module, int line, const char *func) {
  const bool given = lock.wait != Wait::failed && upup(lock.id, module, line, func, 0) == 0;
  restore_cancellation(lock.cancellability);
  return given;
}

bool take_lock_or_nothing(Lock *lock, int id, const char *module, int line, const char *func) {
  *lock = take_lock(id, module, line, func);
  if (lock->wait == Wait::taken)
    return true;
  restore_cancellation(lock->cancellability);
  return false;
}

void give_lock_silently(const Lock &lock) {
  if (lock.wait == Wait::taken)
    step_silently(lock.id, 1);
  restore_cancellation(lock.cancellability);
}

} // namespace torvane
