// Runs the select service: a thread that waits on sockets and calls its owner's handlers.
//
// The thread can be cancelled at any instruction. So it owns nothing that only a destructor would give back, and it
// holds cancellation off while it has a lock of the C library: in a trace, in perror, in free.
#include <errno.h>
#include <netinet/in.h>
#include <pthread.h>
#include <stdlib.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>

#include "base/cancellation.h"
#include "base/detached_thread.h"
#include "base/owners.h"
#include "base/socket_address.h"
#include "base/trace.h"
#include "network/socket_words.h"
#include "torvane/address.h"
#include "torvane/select.h"
#include "torvane/socket.h"
#include "torvane/trace.h"

using namespace torvane;

namespace {

constexpr const char *trace_module = "quorra_network";
constexpr char thread_function[] = "socket_select_hdlr";

enum ErrorCode { error_cancel_mode = 1, error_select = 2 };
enum ExitCode { exit_normal = 0, exit_peer_closed = 3 };

constexpr int stop = 1; // the one value of the exit flag that ends the service

// socket_select makes it; the thread owns it and frees it.
struct Service {
  int fd;
  socket_handler_set handlers;
  int timeout_sec;
  int timeout_usec;
  uint8_t has_timeout;
  int listening;
  int tid;
  uint8_t one_shot;
};

// Holds the descriptors that the thread watches, and how they stand.
struct Watch {
  fd_set watched;
  fd_set ready; // the ones that have something to read
  int lowest;   // of all descriptors seen so far
  int highest;
  int exit_flag;
};

// This is meant: the texts end in a colon, and perror adds one of its own.
void tell_error(const char *what) {
  const int cancellable = hold_cancellation();
  perror(what);
  restore_cancellation(cancellable);
}

// The handler may be missing: socket_select asks for one only on listening sockets.
void end_cycle(const Service &service, fd_set *watched, Watch &watch) {
  if (service.handlers.on_cycle)
    service.handlers.on_cycle(service.tid, watched, &watch.exit_flag);
}

// Waits for something to do. Returns false when a handler stopped the service meanwhile.
bool wait_for_work(const Service &service, Watch &watch) {
  for (;;) {
    timeval timeout = {service.timeout_sec, service.timeout_usec}; // select counts it down
    watch.ready = watch.watched;
    const int count =
        select(watch.highest + 1, &watch.ready, nullptr, nullptr, service.has_timeout ? &timeout : nullptr);
    if (count == -1) {
      const int error = errno;
      if (to_be_tried_again(error))
        continue;
      service.handlers.on_error(service.tid, error_select);
      errno = error;
      tell_error("SOCKET_EXIT_SELECT_ERR:");
      watch.exit_flag = stop; // after one more cycle
      return true;
    }
    if (count > 0 || !service.has_timeout)
      return true;
    service.handlers.on_timeout(service.tid, &watch.watched);
    end_cycle(service, nullptr, watch);
    if (watch.exit_flag == stop) {
      TRACE_AS(thread_function, "get ExitFlag pid=%d,ppid=%d\n", static_cast<int>(getpid()),
               static_cast<int>(getppid()));
      return false;
    }
  }
}

void accept_connection(const Service &service, Watch &watch) {
  sockaddr_in address = {};
  int fd;
  // This is meant: when the connection is gone again, the call spins until there is another.
  do {
    socklen_t length = sizeof(address);
    fd = accept(service.fd, as_sockaddr(address), &length);
  } while (fd == -1 && errno == EAGAIN);
  if (fd == -1) {
    tell_error("accept:");
    return;
  }
  if (fd >= FD_SETSIZE) {
    close(fd);
    TRACE_AS(thread_function, "fd %d can't be watched, closed\n", fd);
    return;
  }
  FD_SET(fd, &watch.watched);
  ipport peer;
  ipport_convert_n2n(address.sin_addr.s_addr, address.sin_port, &peer);
  const int new_highest = watch.highest < fd ? 1 : 0;
  watch.highest = std::max(watch.highest, fd);
  watch.lowest = std::min(watch.lowest, fd);
  service.handlers.on_accept(service.tid, fd, &peer, new_highest);
}

void serve_connection(const Service &service, Watch &watch, int fd) {
  if (bytes_waiting(fd) == 0) {
    service.handlers.on_close(service.tid, fd);
    FD_CLR(fd, &watch.watched);
    return;
  }
  if (service.one_shot)
    FD_CLR(fd, &watch.watched);
  uint8_t remove = 0;
  service.handlers.on_data(service.tid, fd, &remove);
  if (remove)
    FD_CLR(fd, &watch.watched);
}

void serve_listener(const Service &service, Watch &watch) {
  if (FD_ISSET(service.fd, &watch.ready))
    accept_connection(service, watch);
  for (int fd = watch.lowest; fd <= watch.highest; fd++)
    if (fd != service.fd && FD_ISSET(fd, &watch.ready))
      serve_connection(service, watch, fd);
}

// Returns false when the peer has closed.
bool serve_single(const Service &service, Watch &watch) {
  if (!FD_ISSET(service.fd, &watch.ready))
    return true;
  if (bytes_waiting(service.fd) == 0) {
    service.handlers.on_close(service.tid, service.fd);
    return false;
  }
  // This is meant: neither the handler nor SOCKET_OPT_ONESHOT takes the only socket of a service out of its set.
  uint8_t remove = 0;
  service.handlers.on_data(service.tid, service.fd, &remove);
  return true;
}

ExitCode run(const Service &service) {
  Watch watch;
  FD_ZERO(&watch.watched);
  FD_SET(service.fd, &watch.watched);
  watch.lowest = service.fd;
  watch.highest = service.fd;
  watch.exit_flag = 0;
  while (watch.exit_flag != stop && wait_for_work(service, watch)) {
    if (service.listening)
      serve_listener(service, watch);
    else if (!serve_single(service, watch))
      return exit_peer_closed;
    end_cycle(service, &watch.watched, watch);
  }
  return exit_normal;
}

} // namespace

extern "C" {

int socket_select(int fd, unsigned opts, int timeout_sec, int timeout_usec, const socket_handler_set *handlers,
                  pthread_t *thread) {
  if (fd >= FD_SETSIZE) {
    TRACE_NO_PROCESS("%s\n", text_of(word_handler_error));
    return 1;
  }
  HeapBlock<Service> service(allocate_zeroed<Service>());
  if (!service) {
    TRACE_NO_PROCESS("%s\n", text_of(word_malloc_fail));
    return 1;
  }
  if (!handlers) {
    TRACE_NO_PROCESS("%s\n", text_of(word_error_args));
    return 1;
  }
  service->fd = fd;
  service->handlers = *handlers;
  service->timeout_sec = timeout_sec;
  service->timeout_usec = timeout_usec;
  service->has_timeout = timeout_sec != 0 || timeout_usec != 0;
  service->one_shot = (opts & SOCKET_OPT_ONESHOT) != 0;

  if (service->has_timeout && !handlers->on_timeout) {
    TRACE_NO_PROCESS("%s\n", text_of(word_handler_error));
    return 1;
  }
  socklen_t length = sizeof(service->listening);
  if (getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &service->listening, &length) == -1) {
    if (errno == ENOTSOCK)
      TRACE_NO_PROCESS("fd %d isn't a Socket FD\n", fd);
    else
      TRACE_NO_PROCESS("getsockopt fail\n");
    return 1;
  }
  if ((service->listening && !(handlers->on_accept && handlers->on_cycle)) || !handlers->on_close ||
      !handlers->on_data || !handlers->on_error || !handlers->on_exit) {
    TRACE_NO_PROCESS("%s\n", text_of(word_handler_error));
    return 1;
  }
  if (!thread) {
    TRACE_NO_PROCESS("%s\n", text_of(word_error_args));
    return 1;
  }

  pthread_t started;
  if (!start_detached(&started, default_stack, socket_select_hdlr, service.get())) {
    TRACE_NO_PROCESS("%s\n", text_of(word_thread_error));
    return 1;
  }
  service.release(); // the thread owns it now
  // This is meant: the number is the thread's handle, cut to an int, and not its kernel id.
  TRACE_NO_PROCESS("main process get thread id=%d\n", static_cast<int>(started));
  *thread = started;
  return 0;
}

void *socket_select_hdlr(void *ctx) {
  Service *const service = static_cast<Service *>(ctx);
  if (!service)
    return nullptr;
  service->tid = my_gettid();
  TRACE_THREAD_START();

  ExitCode ended = exit_normal;
  if (pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr) != 0 ||
      // NOLINTNEXTLINE(cert-pos47-c,concurrency-thread-canceltype-asynchronous): what the service promises
      pthread_setcanceltype(PTHREAD_CANCEL_ASYNCHRONOUS, nullptr) != 0)
    service->handlers.on_error(service->tid, error_cancel_mode);
  else
    ended = run(*service);

  if (ended == exit_peer_closed)
    service->handlers.on_exit(service->tid, exit_peer_closed);
  TRACE("Exit pid=%d,ppid=%d\n", static_cast<int>(getpid()), static_cast<int>(getppid()));
  if (ended == exit_normal)
    service->handlers.on_exit(service->tid, exit_normal);
  hold_cancellation();
  free(service); // this is meant: a thread that is cancelled before leaves its record behind
  return nullptr;
}

} // extern "C"
