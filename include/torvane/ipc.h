/*
 * IPC helpers
 *
 * System V objects by key, readable and writable by everyone (mode 0666). They outlive the processes that made them,
 * until sem_delete, ipcrm or a reboot. Results: 0 success, 1 failure. Traces here have a short header without the
 * process id. Safe from any thread and any number of processes.
 */
#ifndef TORVANE_IPC_H
#define TORVANE_IPC_H

#include "torvane/common.h"

TORVANE_BEGIN

/*
 * Opens the shared-memory segment of `key`, or creates it with `size` bytes; it is not attached (shmat(2)).
 *
 *   id  receives the segment's id, -1 on failure
 *
 * Returns 0; or 1, tracing "key=%d shmget fail\n", for example when an existing segment is smaller than `size`. A null
 * `id` gives 1 and makes nothing.
 */
int shm_create(int key, int size, int *id);

/*
 * Opens or creates the semaphore of `key` and sets it free, EVERY time: a second caller releases the lock that
 * another holds, so create it once, at start-up, before the processes that share it run.
 *
 *   id  receives the set's id, -1 when it cannot be had
 *
 * Returns 0; or 1, tracing "key=%d semget fail\n" or "semid=%d semctl fail\n". A null `id` gives 1 and makes nothing.
 */
int sem_create(int key, int *id);

/* Removes a semaphore; whoever waits for it fails. Returns 0, also when there was none. */
int sem_delete(int id);

/*
 * Takes the semaphore, waiting while another holds it. When a process ends, however it ends, the kernel gives back
 * what it had taken.
 *
 *   file, line, func  source position of the caller, for the traces; the texts are not null
 *   trace             low byte not 0: traces the start and the end with the caller's position
 *
 * Returns 0; or 1 when the semaphore is gone or the wait was interrupted by a signal (it is not tried again; errno is
 * EINTR): then traces "%s:%d:::%s:::semid=%d down fail\n" and writes the reason to standard error ("sem down: ...").
 * After a failure nothing is taken, and nothing may be given back. Interruptions need no handler: while system(3) or
 * __system runs in another thread, its SIGCHLD may interrupt the wait in this one. The library's own modules begin an
 * interrupted wait again.
 *
 * Not recursive: a thread that takes it twice waits for ever. The process that took it gives it back: if another one
 * does, the kernel gives it back once more when the taker ends, and two holders get in from then on.
 */
int downdown(int id, const char *file, int line, const char *func, int trace);

/*
 * Gives the semaphore back; parameters as downdown. Nothing checks that it was taken: every up without a down lets one
 * more holder in. Returns 0; or 1, traced and told likewise ("sem up: ...").
 */
int upup(int id, const char *file, int line, const char *func, int trace);

TORVANE_END

#endif
