// Makes System V shared memory, and the semaphore that is the library's lock between threads and processes.
#include <errno.h>
#include <stdio.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>

#include "base/trace.h"
#include "torvane/ipc.h"
#include "torvane/trace.h"

namespace {

constexpr const char *trace_module = "quorra_ipc";

constexpr int create_for_everyone = IPC_CREAT | 0666;

// semctl takes this argument, which the C library leaves to its callers to declare. It is passed whole, so every member
// counts.
union SemctlArgument {
  int value;
  struct semid_ds *status; // cppcheck-suppress unusedStructMember
  unsigned short *values;  // cppcheck-suppress unusedStructMember
};

// Moves the semaphore one step up or down. With SEM_UNDO the kernel takes the step back when the process ends, so that
// a holder that crashes does not leave the lock taken.
int step(int id, short by) {
  struct sembuf operation = {};
  operation.sem_num = 0;
  operation.sem_op = by;
  operation.sem_flg = SEM_UNDO;
  return semop(id, &operation, 1);
}

bool wanted(int trace) {
  return (trace & 0xff) != 0;
}

} // namespace

extern "C" {

int shm_create(int key, int size, int *id) {
  if (!id)
    return 1;
  *id = shmget(key, static_cast<size_t>(size), create_for_everyone);
  if (*id == -1) {
    TRACE_NO_PROCESS("key=%d shmget fail\n", key);
    return 1;
  }
  return 0;
}

int sem_create(int key, int *id) {
  if (!id)
    return 1;
  *id = semget(key, 1, create_for_everyone);
  if (*id == -1) {
    TRACE_NO_PROCESS("key=%d semget fail\n", key);
    return 1;
  }
  // This is meant: a set that exists already is unlocked too. Callers make theirs once, at start-up.
  SemctlArgument unlocked = {};
  unlocked.value = 1;
  if (semctl(*id, 0, SETVAL, unlocked) == -1) {
    TRACE_NO_PROCESS("semid=%d semctl fail\n", *id);
    return 1;
  }
  return 0;
}

int sem_delete(int id) {
  semctl(id, 0, IPC_RMID);
  return 0;
}

int downdown(int id, const char *file, int line, const char *func, int trace) {
  if (wanted(trace))
    TRACE_NO_PROCESS("[%d]%s:%d:::%s:::semid=%d down start\n", my_gettid(), file, line, func, id);
  if (step(id, -1) == -1) {
    const int reason = errno; // callers tell an interrupted wait by it
    TRACE_NO_PROCESS("%s:%d:::%s:::semid=%d down fail\n", file, line, func, id);
    perror("sem down");
    errno = reason;
    return 1;
  }
  if (wanted(trace))
    TRACE_NO_PROCESS("[%d]%s:%d:::%s:::semid=%d down end\n", my_gettid(), file, line, func, id);
  return 0;
}

int upup(int id, const char *file, int line, const char *func, int trace) {
  if (step(id, 1) == -1) {
    TRACE_NO_PROCESS("%s:%d:::%s:::semid=%d up fail\n", file, line, func, id);
    perror("sem up");
    return 1;
  }
  if (wanted(trace))
    TRACE_NO_PROCESS("[%d]%s:%d:::%s:::semid=%d up success\n", my_gettid(), file, line, func, id);
  return 0;
}

} // extern "C"
