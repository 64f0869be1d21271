/*
 * Sockets
 *
 * These functions work on IPv4 stream (TCP) and datagram (UDP) sockets. A socket is a plain descriptor: whoever got it
 * closes it, with socket_close, and may use it with the system's own calls as well. torvane/select.h watches sockets
 * for a program.
 *
 *     ipport any_address = {0, htons(8080)};
 *     int fd;
 *
 *     if (socket_listen(&any_address, SOCKET_OPT_TCP, 16, &fd) == 0) {
 *       ...                                 // accept(2), or socket_select of torvane/select.h
 *       socket_close(fd);
 *     }
 *
 * All functions return 0 for success and 1 for failure unless their description says otherwise. None of them keeps
 * state, and any thread may call them; but two threads must not read, write or close one descriptor at the same time.
 *
 * Traces of this service have the short header of torvane/trace.h, without the process id. Their words are those of
 * LogStrMap.
 */
#ifndef TORVANE_SOCKET_H
#define TORVANE_SOCKET_H

#include <stdint.h>

#include "torvane/address.h"
#include "torvane/common.h"
#include "torvane/map.h"

TORVANE_BEGIN

/* Bits of `opts`. Each call looks at the bits that are named with it and ignores the others. */
enum {
  SOCKET_OPT_TCP = 0x1,          /* open, listen, connect: a stream socket; without it a datagram socket */
  SOCKET_OPT_REUSE = 0x2,        /* open: SO_REUSEADDR */
  SOCKET_OPT_BIND = 0x4,         /* open, connect: bind to the local endpoint */
  SOCKET_OPT_SENDTO = 0x100,     /* send, datagram: to the given endpoint, not to the connected peer */
  SOCKET_OPT_DONTWAIT = 0x200,   /* send: MSG_DONTWAIT */
  SOCKET_OPT_NOSIGNAL = 0x400,   /* send: MSG_NOSIGNAL, no SIGPIPE when the peer has gone */
  SOCKET_OPT_RECVFROM = 0x10000, /* receive, datagram: from anyone, on a socket without a peer */
  SOCKET_OPT_PEEK = 0x20000,     /* receive: MSG_PEEK, what is read stays queued */
  SOCKET_OPT_WAITALL = 0x40000,  /* receive: MSG_WAITALL */
  SOCKET_OPT_ONESHOT = 0x80000   /* socket_select: an accepted connection is watched until its first data */
};

/*
 * The words of the socket traces. TxtMapById of torvane/map.h looks them up:
 *
 *   0  "malloc fail!!"                  1  "error args!!"                   2  "socket"
 *   3  "error"                          4  "open error"                     5  "listen error"
 *   6  "bind error"                     7  "accept error"                   8  "socketopt error"
 *   9  "pthread create error"           10 "pthread handler set error"      11 "send error"
 *   12 "recv error"                     any other id "*unknown*"
 */
extern const txt_map_entry LogStrMap[];

/*
 * Opens a socket. A stream socket is non-blocking and close-on-exec; a datagram socket is neither.
 *
 *   ifname  interface whose address the socket gets (get_ip_by_ifname); null for the address of `local`
 *   local   local endpoint, not null: its port counts, and its address unless `ifname` is given. It is used only with
 *           SOCKET_OPT_BIND, but an interface that is given must have an address in any case
 *   opts    SOCKET_OPT_TCP, SOCKET_OPT_REUSE, SOCKET_OPT_BIND
 *   fd      receives the descriptor, on success only
 *
 * Returns:
 *   0  opened
 *   1  failed, with nothing left open; traced unless `local` or `fd` is null, which is looked at after the interface
 *
 * On failure, traces one of these:
 *   "Can't resolve ifname=%s\n"                                       no socket was made
 *   "socket open error!!\n"                                           the kernel gave no socket
 *   "socket setsocketopt error SOCKET_OPT_REUSE failed. fd=%d\n"      SO_REUSEADDR was refused
 *   "socket bind error fd=%d,ip=%u.%u.%u.%u,port=%d\n"                with the endpoint in `local`, also when the
 *                                                                     address was an interface's
 */
int socket_open(const char *ifname, ipport *local, unsigned opts, int *fd);

/*
 * Opens a stream socket with SO_REUSEADDR, binds it to an endpoint, and listens.
 *
 *   local    local endpoint. Its port must not be 0; address 0 is every interface
 *   opts     SOCKET_OPT_TCP; without it the call fails, as a datagram socket cannot listen
 *   backlog  connections that may wait for accept, 1 or more
 *   fd       receives the descriptor, on success only
 *
 * Returns:
 *   0  the socket listens
 *   1  failed, with nothing left open
 *
 * On failure, traces one of these:
 *   "error args!!\n"         the port is 0, `backlog` is below 1, or `local` or `fd` is null; no socket is made
 *   "socket open error\n"    socket_open failed, after its own trace
 *   "socket listen error\n"  the socket cannot listen
 */
int socket_listen(ipport *local, unsigned opts, int backlog, int *fd);

/*
 * Opens a datagram socket and connects it to a remote endpoint.
 *
 *   local   local endpoint, for SOCKET_OPT_BIND; null for any
 *   remote  remote endpoint; neither its address nor its port may be 0
 *   opts    SOCKET_OPT_TCP, SOCKET_OPT_BIND; SO_REUSEADDR is never set
 *   fd      receives the descriptor, on success only
 *
 * Returns:
 *   0  connected
 *   1  failed, with nothing left open
 *
 * On failure, traces one of these, or nothing when it was the connect that failed:
 *   "error args!!\n"       `remote` is null or has no address or no port, or `fd` is null; no socket is made
 *   "socket open error\n"  socket_open failed, after its own trace
 *
 * WITH SOCKET_OPT_TCP THIS FAILS. A stream socket is non-blocking, and Linux answers "in progress" to such a connect on
 * every path, loopback included. This call takes that for a failure like any other, although the peer may see a
 * connection come and go. For a stream use socket_open, then connect(2), wait until the socket is writable, and look at
 * SO_ERROR; or use socket(2) and a blocking connect(2). All other calls here take such descriptors.
 */
int socket_connect(ipport *local, ipport *remote, unsigned opts, int *fd);

/*
 * Closes a socket, after it has read and dropped what waits there (2048 bytes at a time) and has shut down both
 * directions.
 *
 *   fd  descriptor of the socket
 *
 * Returns 0, always, also for a bad descriptor.
 *
 * Unread data would turn the close into a reset, which takes from the peer what was sent last. The reading goes on as
 * long as more arrives. The shutdown ends the connection for every holder of the socket: for copies made by dup(2) and
 * for children that inherited it.
 */
int socket_close(int fd);

/*
 * Returns the local endpoint of a socket.
 *
 *   fd   descriptor of the socket
 *   out  receives the endpoint; null to ask only whether there is one
 *
 * Returns:
 *   0  there is one
 *   1  there is none, for example because `fd` is no socket; `out` is untouched
 */
int get_socket_local(int fd, ipport *out);

/*
 * Returns the endpoint of a socket's peer.
 *
 *   fd   descriptor of the socket
 *   out  receives the endpoint; null to ask only whether there is one
 *
 * Returns:
 *   0  there is one
 *   1  there is none, because the socket is not connected or `fd` is no socket; `out` is untouched
 */
int get_socket_peer(int fd, ipport *out);

/*
 * Tells whether a socket is connected.
 *
 * Returns:
 *   0  it is connected
 *   1  it is not, or `fd` is no socket
 */
int get_socket_state(int fd);

/*
 * Makes a descriptor non-blocking: adds O_NONBLOCK to its status flags.
 *
 * Returns what the last fcntl(2) returned: 0, or -1 with errno.
 */
int set_nonblock_sock(int fd);

/*
 * Sends a whole buffer.
 *
 *   fd    descriptor of a socket
 *   opts  SOCKET_OPT_SENDTO, SOCKET_OPT_DONTWAIT, SOCKET_OPT_NOSIGNAL. Without the last one, sending to a stream whose
 *         peer has gone ends a process that does not handle SIGPIPE
 *   buf   `*len` bytes. The kernel refuses a null pointer, unless nothing is to be sent
 *   len   bytes to send; receives the number that was sent. 0 or a negative number sends nothing and succeeds with 0
 *   to    destination, with SOCKET_OPT_SENDTO on a datagram socket; else ignored
 *
 * Returns:
 *   0  all was sent
 *   1  failed before anything was sent, and `*len` is untouched. Traces one of these:
 *        "socket send error\n"                 a negative descriptor, no socket, a datagram socket that has no peer and
 *                                              no SOCKET_OPT_SENDTO, or SOCKET_OPT_SENDTO with a null `to`
 *        "socket Can't handle SO_TYPE=%d\n"    the socket is neither datagram nor stream
 *   1  none of these, but `len` is null: nothing is traced
 *   1  the kernel kept saying EAGAIN or EINTR (see below): nothing is traced
 *   1  the kernel gave any other error, which goes to standard error as "sendto:: REASON\n"
 *
 * What the kernel does not take at once is sent piece by piece. When the kernel says EAGAIN or EINTR, the call sleeps
 * 100 microseconds and tries again, 2000 times in all. A peer that reads nothing therefore holds it for a good 0.2
 * seconds, or on a blocking socket for as long as the kernel waits. The descriptor stays open in every case.
 */
int socket_send(int fd, unsigned opts, const void *buf, int *len, ipport *to);

/*
 * Receives until `*len` bytes are there.
 *
 *   fd    descriptor of a socket
 *   opts  SOCKET_OPT_RECVFROM, SOCKET_OPT_PEEK, SOCKET_OPT_WAITALL. With SOCKET_OPT_PEEK and less queued than wanted,
 *         the same bytes are read again and again until `buf` is full of them
 *   buf   receives `*len` bytes. The kernel refuses a null pointer once there is something to receive
 *   len   bytes wanted; receives the number that came. 0 or a negative number receives nothing and succeeds with 0
 *   from  with SOCKET_OPT_RECVFROM on a datagram socket not null, else ignored. It is not filled: recvfrom(2) tells the
 *         sender
 *
 * Returns:
 *   0  all is there
 *   1  failed before anything was received, and `*len` is untouched. Traces one of these:
 *        "socket send error\n"                 a negative descriptor, or no socket
 *        "getsockopt SO_TYPE Error\n"          a datagram socket that has no peer and no SOCKET_OPT_RECVFROM, or
 *                                              SOCKET_OPT_RECVFROM with a null `from`
 *        "socket Can't handle SO_TYPE=%d\n"    the socket is neither datagram nor stream
 *   1  none of these, but `len` is null: nothing is traced
 *   1  the kernel gave an error other than EAGAIN and EINTR: traces "socket recv error errno=%d\n"
 *
 * DOES NOT END when a stream's peer closes: it traces "Recv Zero Bytes\n" over and over. For streams use
 * socket_recv_tcp, or read what the select service reports (torvane/select.h).
 *
 * Datagrams are joined in `buf`. What does not fit the rest of `buf` is lost with its datagram, and an empty datagram
 * traces "Recv Zero Bytes\n" once. EAGAIN and EINTR are tried again at once and without limit, so on a non-blocking
 * socket this call keeps the processor busy until the bytes have come. The descriptor stays open in every case.
 */
int socket_recv(int fd, unsigned opts, void *buf, int *len, ipport *from);

/*
 * Receives from a stream until `*len` bytes are there or the peer closes.
 *
 *   fd    descriptor of a stream socket
 *   opts  ignored
 *   buf   receives `*len` bytes. The kernel refuses a null pointer once there is something to receive
 *   len   bytes wanted; receives the number that came. 0 or a negative number receives nothing and succeeds with 0
 *
 * Returns:
 *   0  all is there
 *   0  the peer closed, and `*len` is less than wanted: traces "Recv Zero Bytes\n"
 *   1  `fd` is negative: traces "socket send error\n"; `*len` is untouched
 *   1  `len` is null: nothing is traced
 *   1  the kernel kept saying EAGAIN or EINTR: traces "more then 200 times EAGAIN[%d/%d]\n" with the bytes that came
 *      and the bytes wanted
 *   1  the kernel gave any other error: traces "socket recv error errno=%d\n"
 *
 * When the kernel says EAGAIN or EINTR, the call sleeps 100 microseconds and tries again, 200 times in all. The
 * descriptor stays open in every case.
 */
int socket_recv_tcp(int fd, unsigned opts, void *buf, int *len);

TORVANE_END

#endif
