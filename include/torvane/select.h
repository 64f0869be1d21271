/*
 * Select service
 *
 * A thread that waits with select(2) and calls handlers. Given a listening socket it accepts connections and watches
 * them too; given any other socket it watches that one alone. All handlers of a service run on its thread, one at a
 * time: among themselves they need no lock, and while one works or waits the others wait. Reading, writing and closing
 * is theirs; the service closes no socket, not even the one it was given when it ends.
 */
#ifndef TORVANE_SELECT_H
#define TORVANE_SELECT_H

#include <pthread.h>
#include <stdint.h>
#include <sys/select.h>

#include "torvane/address.h"
#include "torvane/common.h"

TORVANE_BEGIN

/*
 * What the service calls. `tid` is the kernel thread id of its thread.
 *
 * A time-out is no end of the service: it goes on until a handler writes 1 (no other value) to the exit flag, the only
 * socket's peer closes, select fails, or the thread is cancelled.
 */
typedef struct socket_handler_set {
  /*
   * A connection was accepted, and is watched from now on. It is blocking, and not close-on-exec. `peer` is valid
   * during the call; `new_highest` is 1 when no descriptor of this service was higher, else 0. At most one a cycle.
   */
  void (*on_accept)(int tid, int fd, ipport *peer, int new_highest);

  /*
   * Bytes wait: read some or all of them. What is left waiting is reported again in the next cycle. To have an accepted
   * connection watched no longer, after closing it for instance, write 1 to `remove` (0 before): a descriptor that is
   * closed but still watched makes select fail, and so ends the service. The only socket of a service without a
   * listening one stays watched whatever is written there; close it no earlier than in on_close or on_exit.
   */
  void (*on_data)(int tid, int fd, uint8_t *remove);

  /*
   * Readable with no byte waiting: the peer has closed or reset the connection, or an empty datagram came. Not watched
   * any longer after this call; close it here. So a connection whose last bytes are left unread is not reported closed.
   */
  void (*on_close)(int tid, int fd);

  /*
   * The end of every cycle. `watched` is null after a time-out; else the set of watched descriptors, valid during the
   * call, in which descriptors may be set or cleared. Set only such as lie between the lowest and the highest
   * descriptor that the service was given or accepted. One above is not watched until another one above it is accepted.
   * One below, or any without a listening socket, is watched but never reported: once it is readable no wait lasts any
   * more. `exit_flag` starts as 0 and keeps what is written there.
   */
  void (*on_cycle)(int tid, fd_set *watched, int *exit_flag);

  /* Nothing happened for as long as the time-out. `watched` as above. on_cycle follows. */
  void (*on_timeout)(int tid, fd_set *watched);

  /*
   * code 1: cancellation could not be set up; on_exit follows. code 2: select failed, a watched descriptor is not open
   * for instance. The reason goes to standard error ("SOCKET_EXIT_SELECT_ERR:: REASON"), and one last cycle is run as
   * if every watched descriptor were ready: connections without data get on_close though nobody closed them, an only
   * socket without data ends the service with code 3, and with a listening socket the thread keeps asking for one more
   * connection, without pause when it is non-blocking, and ends when that has come.
   */
  void (*on_error)(int tid, int code);

  /* The last call. code 0: the usual end. code 3: the only socket was closed by its peer; on_close came before. */
  void (*on_exit)(int tid, int code);
} socket_handler_set;

/*
 * Starts a service on its own detached thread, with the system's default stack.
 *
 *   fd            a socket below 1024 (FD_SETSIZE). It must stay open until on_exit. When listening it should be
 *                 non-blocking, as socket_listen makes it
 *   opts          SOCKET_OPT_ONESHOT: an accepted connection is not watched any longer when its data is reported, and
 *                 may be set again in on_cycle. No effect without a listening socket
 *   timeout_sec, timeout_usec  the longest wait of a cycle; both 0 for no end. Negative ones make select fail
 *   handlers      copied. All are needed, except on_accept without a listening socket, on_timeout without a time-out,
 *                 and on_cycle without a listening socket (it is then left out, and no handler can end the service)
 *   thread        receives the thread's handle, on success only, for pthread_cancel while the service surely runs. The
 *                 first handlers may run before it is stored
 *
 * Returns 0 when the thread runs; traces "main process get thread id=%d\n" with its handle. Else 1, with nothing
 * started and `fd` open, tracing "error args!!\n" (a null `handlers` or `thread`); "pthread handler set error\n" (a
 * handler is missing, or `fd` is 1024 or more); "malloc fail!!\n"; "fd %d isn't a Socket FD\n"; "getsockopt fail\n"; or
 * "pthread create error\n". These have the short header.
 *
 * The thread traces, with the process id, "[%d|%d]Thread Create[socket_select_hdlr]\n" (process, thread) as it starts
 * and "Exit pid=%d,ppid=%d\n" (process, parent) as it ends, before on_exit with code 0 and after it with code 3; when
 * on_cycle ends it after a time-out also "get ExitFlag pid=%d,ppid=%d\n" before that; and "fd %d can't be watched,
 * closed\n" for an accepted connection with a descriptor of 1024 or more, which no handler hears of. A connection that
 * cannot be accepted is told on standard error ("accept:: REASON") and the cycle goes on: without free descriptors that
 * is over and over, as the connection keeps waiting. When a connection has vanished before it is accepted a
 * non-blocking listening socket is asked without pause until the next one comes.
 *
 * Cancellation. The thread can be cancelled asynchronously, at any instruction that is not the library's own use of
 * stdio or free. A handler that takes a lock, allocates, or uses streams must switch cancellation off meanwhile
 * (pthread_setcancelstate), or what it holds stays taken for ever. A cancelled service calls no on_exit, loses its
 * record (about 100 bytes) and leaves its connections open. The exit flag is the better way; a time-out bounds how long
 * it takes until that is looked at.
 */
int socket_select(int fd, unsigned opts, int timeout_sec, int timeout_usec, const socket_handler_set *handlers,
                  pthread_t *thread);

/* The service's thread function; for socket_select only. `ctx` is its record, which it frees. Returns null. */
void *socket_select_hdlr(void *ctx);

TORVANE_END

#endif
