// Operations of the library that wait for its semaphore, and what may happen to them meanwhile.
#pragma once

#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <sys/sem.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "support/child_process.h"
#include "support/semaphore_order.h"
#include "torvane.h"

namespace sandbox {

// Waits until so many wait for the semaphore. Returns false if that does not come within half a minute.
inline bool await_waiters(int semid, int count) {
  for (int left = 60000; left > 0; left--) {
    if (semctl(semid, 0, GETNCNT) == count)
      return true;
    usleep(500);
  }
  return false;
}

// Runs `operation` in a thread, which waits for the semaphore, and forks meanwhile. The child runs it too. Returns
// whether it succeeded in both: then it returns true.
template <typename Operation>
bool works_in_a_child_of_waiting_threads(int semid, Operation operation) {
  if (downdown(semid, "test", 1, "test", 0) != 0)
    return false;
  std::atomic<bool> done = false;
  std::thread thread([&] { done = operation(); });
  const bool thread_waits = await_waiters(semid, 1);
  const pid_t child = start_child([&] { return operation() ? 0 : 1; });
  const bool child_waits = await_waiters(semid, 2);
  if (!child_waits)
    kill(child, SIGKILL);
  upup(semid, "test", 1, "test", 0);
  const bool done_in_child = end_of_child(child) == 0;
  thread.join();
  return thread_waits && child_waits && done_in_child && done;
}

// Counts the steps of semaphores that a signal interrupted: it stands in for semop.
inline std::atomic<int> interruptions;
inline int counting_semop(int id, sembuf *operations, size_t count) {
  const int result = ordered_semop(id, operations, count);
  if (result == -1 && errno == EINTR)
    interruptions++;
  return result;
}

// Runs `operation` in a thread, and interrupts its wait for the semaphore so many times. The test has counting_semop
// stand in for semop.
template <typename Operation>
void interrupt_waiting(int semid, int times, Operation operation) {
  struct sigaction interrupt = {}, usual;
  interrupt.sa_handler = [](int) {};
  sigaction(SIGUSR1, &interrupt, &usual);
  interruptions = 0;
  downdown(semid, "test", 1, "test", 0);
  std::thread thread(operation);
  for (int i = 0; i < times; i++) {
    await_waiters(semid, 1);
    pthread_kill(thread.native_handle(), SIGUSR1);
    while (interruptions == i)
      usleep(500);
  }
  await_waiters(semid, 1);
  upup(semid, "test", 1, "test", 0);
  thread.join();
  sigaction(SIGUSR1, &usual, nullptr);
}

// Stands in for semop: the kernel has no memory to note that the step is to be undone. Nothing can be taken, and what
// is given back would be one too many.
inline int refusing_semop(int id, sembuf *operations, size_t count) {
  if (operations[0].sem_op < 0) {
    errno = ENOMEM;
    return -1;
  }
  return ordered_semop(id, operations, count);
}

} // namespace sandbox
