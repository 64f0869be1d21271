/*
 * Select service
 *
 * A thread that waits for sockets with select(2) and calls the program's handlers. When it is given a listening socket
 * it accepts connections and watches them as well; any other socket it watches alone. The handlers do all the reading,
 * writing and closing. The service closes no socket that a handler has heard of, not even the one it was given.
 *
 *   const socket_handler_set handlers = {on_accept, on_data, on_close, on_cycle, on_timeout, on_error, on_exit};
 *   pthread_t thread;
 *   if (socket_select(listener, 0, 1, 0, &handlers, &thread) != 0) // looks at the exit flag every second at least
 *     return 1;
 *
 * Results: socket_select returns 0 for success and 1 for failure.
 *
 * Threads: every service has a thread of its own, and all handlers of a service run on it, one at a time. They need no
 * lock among themselves, and while one works or waits the others wait. A program may run several services at once.
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
 * The handlers of a select service. In all of them `tid` is the kernel thread id of the service's thread.
 *
 * A cycle is one wait and the handling of what it found. The service runs cycle after cycle until one of these happens:
 *   - on_cycle writes 1 to the exit flag; no other value ends the service
 *   - the peer of the only socket closes
 *   - select fails
 *   - the thread is cancelled
 * A time-out does not end it.
 */
typedef struct socket_handler_set {
  /*
   * Tells that a connection was accepted; the service watches it from now on. A cycle accepts at most one connection.
   *
   *   fd           the connection's descriptor, which is blocking and not close-on-exec
   *   peer         endpoint of the peer; valid during the call
   *   new_highest  1 when the service has had no higher descriptor so far, else 0
   */
  void (*on_accept)(int tid, int fd, ipport *peer, int new_highest);

  /*
   * Tells that bytes wait on a socket. Read some or all of them; the next cycle reports again what is left.
   *
   *   fd      the socket
   *   remove  0 before the call. Write 1 to have an accepted connection watched no longer, for example after closing it
   *
   * A descriptor that is closed but still watched makes select fail, and so ends the service. Without a listening
   * socket the only socket stays watched, whatever is written to `remove`: close it no earlier than in on_close or
   * on_exit.
   */
  void (*on_data)(int tid, int fd, uint8_t *remove);

  /*
   * Tells that a socket is readable with no byte waiting: the peer has closed or reset the connection, or an empty
   * datagram came. Close the socket here; the service watches it no longer after this call.
   *
   *   fd  the socket
   *
   * While bytes are left unread, on_data is called instead. So a connection whose last bytes nobody reads is never
   * reported closed.
   */
  void (*on_close)(int tid, int fd);

  /*
   * Runs at the end of every cycle.
   *
   *   watched    the set of watched descriptors, valid during the call, in which the handler may set and clear
   *              descriptors; null after a time-out
   *   exit_flag  0 at first; it keeps what is written to it. Write 1 to end the service
   *
   * Set only descriptors between the lowest and the highest that the service was given or has accepted:
   *   - one above them is not watched until the service accepts one that is higher still
   *   - one below them, and without a listening socket any other than the service's own, is never reported. If it is
   *     watched and readable, no wait lasts any more
   * After select has failed the flag is 1 already, for the last cycle. Leave it so: the service goes on with any other
   * value.
   */
  void (*on_cycle)(int tid, fd_set *watched, int *exit_flag);

  /*
   * Tells that nothing happened for as long as the time-out. on_cycle follows, with null for `watched`.
   *
   *   watched  the set of watched descriptors, valid during the call. It may be changed here as in on_cycle
   */
  void (*on_timeout)(int tid, fd_set *watched);

  /*
   * Tells that the service ends because of an error.
   *
   *   code  1: the thread could not be made cancellable; on_exit follows
   *         2: select failed, for example because a watched descriptor is not open
   *
   * After code 2 the thread writes the reason to standard error ("SOCKET_EXIT_SELECT_ERR:: REASON") and runs one last
   * cycle as if every watched descriptor were ready:
   *   - a connection without data gets on_close although nobody closed it
   *   - an only socket without data gets on_close, and the service ends with code 3 of on_exit
   *   - with a listening socket the thread asks for one more connection and ends when that has come. If the listening
   *     socket is non-blocking, it asks without pause
   */
  void (*on_error)(int tid, int code);

  /*
   * Tells that the service ends; this is the last call.
   *
   *   code  0: the usual end
   *         3: the peer of the only socket has closed it; on_close came before
   */
  void (*on_exit)(int tid, int code);
} socket_handler_set;

/*
 * Starts a select service on a detached thread of its own, which has the system's default stack.
 *
 *   fd            socket below 1024 (FD_SETSIZE), open until on_exit. A listening socket should be non-blocking, as
 *                 socket_listen makes it
 *   opts          0, or SOCKET_OPT_ONESHOT (torvane/socket.h): an accepted connection is watched no longer when its
 *                 data is reported, and on_cycle may set it again. The option has no effect without a listening socket
 *   timeout_sec   longest wait of a cycle in seconds, plus `timeout_usec`. Both 0: no limit. A negative value makes
 *                 select fail
 *   timeout_usec  microseconds of the longest wait
 *   handlers      copied. All handlers are needed, with three exceptions: on_accept without a listening socket,
 *                 on_timeout without a time-out, and on_cycle without a listening socket (no handler can end the
 *                 service then)
 *   thread        receives the thread's handle on success, for pthread_cancel while the service surely runs. The first
 *                 handlers may run before the handle is stored
 *
 * Returns:
 *   0  the thread runs; traces "main process get thread id=%d\n" with its handle
 *   1  nothing was started, and `fd` is still open. One of these is traced:
 *        "error args!!\n"               `handlers` or `thread` is null
 *        "pthread handler set error\n"  a handler is missing, or `fd` is 1024 or more
 *        "malloc fail!!\n"              there is no memory
 *        "fd %d isn't a Socket FD\n"    `fd` is open but no socket
 *        "getsockopt fail\n"            the socket cannot be asked whether it listens, for example because it is closed
 *        "pthread create error\n"       the thread cannot be started
 *
 * These traces have the short header, without the process id. Those of the thread have the full one:
 *   "[%d|%d]Thread Create[socket_select_hdlr]\n"  at its start, with the process id and the thread id
 *   "fd %d can't be watched, closed\n"            an accepted connection has a descriptor of 1024 or more. The service
 *                                                 closes it, and no handler hears of it
 *   "get ExitFlag pid=%d,ppid=%d\n"               on_cycle ended the service after a time-out; with the process id and
 *                                                 the parent's
 *   "Exit pid=%d,ppid=%d\n"                       at its end, with the same ids: before on_exit with code 0, and after
 *                                                 on_exit with code 3
 *
 * If a connection cannot be accepted, the thread writes "accept:: REASON" to standard error and the cycle goes on.
 * Without free descriptors this repeats over and over, because the connection keeps waiting. If a connection vanishes
 * before it is accepted, the thread asks a non-blocking listening socket without pause until the next one comes.
 *
 * Cancellation: the thread can be cancelled asynchronously, at any instruction outside the library's own use of stdio
 * and free. A handler that takes a lock, allocates, or uses streams must switch cancellation off meanwhile
 * (pthread_setcancelstate); otherwise what it holds may stay taken for ever. A cancelled service calls no on_exit, does
 * not free its record (about 100 bytes), and leaves its connections open. The exit flag is the better way to end a
 * service; a time-out bounds how long it takes until the flag is looked at.
 */
int socket_select(int fd, unsigned opts, int timeout_sec, int timeout_usec, const socket_handler_set *handlers,
                  pthread_t *thread);

/*
 * Runs a select service. It is the thread function of socket_select and not for other callers.
 *
 *   ctx  record that socket_select made for the service, freed at the end; with null the function does nothing
 *
 * Returns null.
 */
void *socket_select_hdlr(void *ctx);

TORVANE_END

#endif
