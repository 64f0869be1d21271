/*
 * System V IPC
 *
 * This service opens shared memory by key, and provides the semaphore that the library uses as its lock between threads
 * and between processes.
 *
 *     int lock;
 *
 *     sem_create(0x1234, &lock);                        // once, at start-up, before the other processes run
 *     ...
 *     if (downdown(lock, "daemon", __LINE__, __func__, 0) == 0) {
 *       ...                                             // nobody else is in here
 *       upup(lock, "daemon", __LINE__, __func__, 0);
 *     }
 *
 * All functions return 0 for success and 1 for failure. They may be called from any thread and from any number of
 * processes. Everyone may read and write the objects (mode 0666), and the objects outlive the processes that made them:
 * they stay until sem_delete, ipcrm or a reboot removes them. Traces of this service have the short header of
 * torvane/trace.h, without the process id.
 */
#ifndef TORVANE_IPC_H
#define TORVANE_IPC_H

#include "torvane/common.h"

TORVANE_BEGIN

/*
 * Opens the shared-memory segment of a key, or creates it when there is none. It does not attach the segment; shmat(2)
 * does.
 *
 *   key   key of the segment
 *   size  bytes that the segment must have at least, or with which it is created
 *   id    receives the segment's id, or -1 on failure
 *
 * Returns:
 *   0  opened or created
 *   1  the segment cannot be had, for example because the existing one is smaller than `size`: traces
 *      "key=%d shmget fail\n"; or `id` is null: nothing is made or traced
 */
int shm_create(int key, int size, int *id);

/*
 * Opens or creates the semaphore of a key and sets it free, EVERY time. A second call therefore releases a lock that
 * somebody holds: create the semaphore once, at start-up, before the processes that share it run.
 *
 *   key  key of the semaphore
 *   id   receives the semaphore's id, or -1 when it cannot be had
 *
 * Returns:
 *   0  the semaphore exists and is free
 *   1  it cannot be had: traces "key=%d semget fail\n"; or it cannot be set free: traces "semid=%d semctl fail\n"; or
 *      `id` is null: nothing is made or traced
 */
int sem_create(int key, int *id);

/*
 * Removes a semaphore. Calls of downdown that wait for it fail.
 *
 *   id  semaphore of sem_create
 *
 * Returns 0, always, also when there is no such semaphore.
 */
int sem_delete(int id);

/*
 * Takes the semaphore and waits while another process or thread holds it.
 *
 *   id                semaphore of sem_create
 *   file, line, func  source position of the caller, for the traces; the texts must not be null
 *   trace             a low byte other than 0 traces the start and the end as well, with the thread id and the caller's
 *                     position: "[%d]%s:%d:::%s:::semid=%d down start\n" and "[%d]%s:%d:::%s:::semid=%d down end\n"
 *
 * Returns:
 *   0  taken
 *   1  the semaphore is gone, or a signal interrupted the wait (errno is EINTR)
 *
 * On failure, traces "%s:%d:::%s:::semid=%d down fail\n" and writes the reason to standard error ("sem down: ...").
 * Nothing is taken then, and nothing may be given back.
 *
 * An interrupted wait is not tried again here; the library's own modules begin it again. A program needs no signal
 * handler to be interrupted: while system(3) or __system runs in another thread, its SIGCHLD may interrupt the wait in
 * this one.
 *
 * The semaphore is not recursive: a thread that takes it twice waits for ever. When a process ends, however it ends,
 * the kernel gives back what the process had taken. So the process that took the semaphore must give it back itself. If
 * another one does, the kernel gives it back a second time when the taker ends, and two holders get in from then on.
 */
int downdown(int id, const char *file, int line, const char *func, int trace);

/*
 * Gives back a semaphore that this process took with downdown.
 *
 *   id                semaphore of sem_create
 *   file, line, func  source position of the caller, for the traces; the texts must not be null
 *   trace             a low byte other than 0 traces the success as well, with the thread id and the caller's position:
 *                     "[%d]%s:%d:::%s:::semid=%d up success\n"
 *
 * Returns:
 *   0  given back
 *   1  the semaphore cannot be given back, for example because it is gone
 *
 * On failure, traces "%s:%d:::%s:::semid=%d up fail\n" and writes the reason to standard error ("sem up: ...").
 *
 * Nothing checks that the semaphore was taken: each call without a downdown before it lets one more holder in.
 */
int upup(int id, const char *file, int line, const char *func, int trace);

TORVANE_END

#endif
