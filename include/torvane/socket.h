/*
 * Sockets
 *
 * IPv4 stream (TCP) and datagram (UDP) sockets as plain descriptors. Who got one closes it, with socket_close. Results:
 * 0 success, 1 failure, unless a function says otherwise. Nothing here keeps state: any thread may call it, but one
 * descriptor must not be read, written or closed by two threads at once.
 *
 * Traces here have the short header, without the process id; their words are those of LogStrMap.
 */
#ifndef TORVANE_SOCKET_H
#define TORVANE_SOCKET_H

#include <stdint.h>

#include "torvane/address.h"
#include "torvane/common.h"
#include "torvane/map.h"

TORVANE_BEGIN

/* Bits of `opts`. Each call looks at those named with it and ignores the others. */
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
 * The words of the socket traces, for TxtMapById: 0 "malloc fail!!", 1 "error args!!", 2 "socket", 3 "error",
 * 4 "open error", 5 "listen error", 6 "bind error", 7 "accept error", 8 "socketopt error", 9 "pthread create error",
 * 10 "pthread handler set error", 11 "send error", 12 "recv error", and for any other id "*unknown*".
 */
extern const txt_map_entry LogStrMap[];

/*
 * Opens a socket. Stream sockets are non-blocking and close-on-exec; datagram sockets are neither.
 *
 *   ifname  the local address is this interface's (get_ip_by_ifname); null: the address of `local`
 *   local   the local endpoint, not null: its port, and its address unless `ifname` is given. Used with
 *           SOCKET_OPT_BIND alone, but an interface that is given must have an address all the same
 *   opts    SOCKET_OPT_TCP, SOCKET_OPT_REUSE, SOCKET_OPT_BIND
 *   fd      receives the descriptor, on success only
 *
 * Returns 0; or 1 with nothing left open. Traces "Can't resolve ifname=%s\n" (no socket was made then); "socket open
 * error!!\n"; "socket setsocketopt error SOCKET_OPT_REUSE failed. fd=%d\n"; "socket bind error
 * fd=%d,ip=%u.%u.%u.%u,port=%d\n" with the endpoint in `local`, also when the address was an interface's. A null
 * `local` or `fd` gives 1 without a trace.
 */
int socket_open(const char *ifname, ipport *local, unsigned opts, int *fd);

/*
 * Opens a socket, binds it to `local` with SO_REUSEADDR, and listens.
 *
 *   local    its port must not be 0; address 0 is every interface
 *   opts     SOCKET_OPT_TCP; without it there is no listening, and the result is 1
 *   backlog  connections that wait for accept, 1 or more
 *   fd       receives the descriptor, on success only
 *
 * Returns 0; or 1 with nothing left open, tracing "error args!!\n" (port 0, backlog below 1, a null `local` or `fd`; no
 * socket is made), "socket open error\n" after the trace of socket_open, or "socket listen error\n".
 */
int socket_listen(ipport *local, unsigned opts, int backlog, int *fd);

/*
 * Opens a socket and connects it to `remote`.
 *
 * For datagram sockets. A stream socket is non-blocking, and Linux answers "in progress" to such a connect on every
 * path, loopback included; that is taken for a failure like any other. So WITH SOCKET_OPT_TCP THIS FAILS, although the
 * peer may see a connection come and go. For a stream: socket_open, then connect(2), wait until it is writable, and
 * look at SO_ERROR; or socket(2) and a blocking connect(2). All other calls here take such descriptors.
 *
 *   local   the local endpoint for SOCKET_OPT_BIND; null: any
 *   remote  neither its address nor its port may be 0
 *   opts    SOCKET_OPT_TCP, SOCKET_OPT_BIND; SO_REUSEADDR is never set
 *   fd      receives the descriptor, on success only
 *
 * Returns 0; or 1 with nothing left open, tracing "error args!!\n" (no endpoint to go to, a null `fd`; no socket is
 * made), "socket open error\n" after the trace of socket_open, or nothing when it was the connect that failed.
 */
int socket_connect(ipport *local, ipport *remote, unsigned opts, int *fd);

/*
 * Reads and forgets what waits on the socket (2048 bytes at a time), shuts both directions down, closes. The reading
 * keeps the close from becoming a reset that takes from the peer what was sent last. It goes on as long as more
 * arrives. The shutdown ends the connection for every holder of the socket: copies made by dup(2), children that
 * inherited it. Returns 0, always, for a bad descriptor too.
 */
int socket_close(int fd);

/*
 * The socket's own endpoint; its peer's. `out` may be null, to ask only whether there is one. 1, with `out` untouched,
 * when there is none, as for the peer of a socket that is not connected.
 */
int get_socket_local(int fd, ipport *out);
int get_socket_peer(int fd, ipport *out);

/* 0 when the socket is connected, else 1, also for what is no socket. */
int get_socket_state(int fd);

/* Adds O_NONBLOCK to the descriptor's status flags. Returns what the last fcntl(2) did: 0, or -1 with errno. */
int set_nonblock_sock(int fd);

/*
 * Sends a whole buffer.
 *
 *   opts  SOCKET_OPT_SENDTO, SOCKET_OPT_DONTWAIT, SOCKET_OPT_NOSIGNAL. Without the last, sending to a stream whose peer
 *         has gone ends a process that does not handle SIGPIPE
 *   len   bytes to send; receives the number sent, except after a failure before the sending (below). 0 or a negative
 *         number sends nothing and succeeds with 0
 *   to    with SOCKET_OPT_SENDTO on a datagram socket the destination, else ignored
 *
 * Whatever the kernel cannot take at once is sent piece by piece. When it says EAGAIN or EINTR the call sleeps 100
 * microseconds and tries again, 2000 times in all, so a peer that reads nothing holds it for a good 0.2 seconds (on a
 * blocking socket for as long as the kernel waits); then it gives 1 without a trace.
 *
 * Returns 0 when all was sent. 1 before anything is sent, `*len` untouched: traces "socket send error\n" (a negative
 * descriptor, what is no socket, a datagram socket without peer and without SOCKET_OPT_SENDTO, or with it and a null
 * `to`), "socket Can't handle SO_TYPE=%d\n" (neither datagram nor stream); nothing is traced for a null `len` or
 * `buf`. 1 for any other error of the kernel: it is told on standard error as "sendto:: REASON\n". The descriptor stays
 * open in every case.
 */
int socket_send(int fd, unsigned opts, const void *buf, int *len, ipport *to);

/*
 * Receives until `*len` bytes are there.
 *
 *   opts  SOCKET_OPT_RECVFROM, SOCKET_OPT_PEEK, SOCKET_OPT_WAITALL. With SOCKET_OPT_PEEK and less queued than asked for
 *         the same bytes are read again and again until `buf` is full of them
 *   buf   `*len` bytes
 *   len   bytes wanted; receives the number that came, except after a failure before the receiving (below). 0 or a
 *         negative number receives nothing and succeeds with 0
 *   from  with SOCKET_OPT_RECVFROM on a datagram socket not null, but not filled: the sender is not told. recvfrom(2)
 *         tells it
 *
 * Datagrams are strung together; what does not fit the rest of `buf` is lost with its datagram. EAGAIN and EINTR are
 * tried again at once and without limit: on a non-blocking socket this call keeps the processor busy until the bytes
 * have come. DOES NOT END when a stream's peer closes: it traces "Recv Zero Bytes\n" over and over (once for an empty
 * datagram). For streams take socket_recv_tcp, or read what the select service reports.
 *
 * Returns 0 when all is there. 1 before anything is received, `*len` untouched: traces "socket send error\n" (a
 * negative descriptor, what is no socket), "getsockopt SO_TYPE Error\n" (a datagram socket without peer and without
 * SOCKET_OPT_RECVFROM, or with it and a null `from`), "socket Can't handle SO_TYPE=%d\n"; nothing is traced for a null
 * `len` or `buf`. 1 for any other error of the kernel, tracing "socket recv error errno=%d\n". The descriptor stays
 * open in every case.
 */
int socket_recv(int fd, unsigned opts, void *buf, int *len, ipport *from);

/*
 * Receives from a stream until `*len` bytes are there or the peer closes.
 *
 *   opts  ignored
 *   buf   `*len` bytes
 *   len   bytes wanted; receives the number that came. 0 or a negative number receives nothing and succeeds with 0
 *
 * When the kernel says EAGAIN or EINTR the call sleeps 100 microseconds and tries again, 200 times in all.
 *
 * Returns 0 when all is there, or, tracing "Recv Zero Bytes\n", when the peer closed: then `*len` is less than was
 * asked for. 1, tracing: "socket send error\n" (a negative descriptor, `*len` untouched); "more then 200 times
 * EAGAIN[%d/%d]\n" with the bytes that came and those wanted; "socket recv error errno=%d\n" for any other error of the
 * kernel. 1 without a trace for a null `len` or `buf`. The descriptor stays open in every case.
 */
int socket_recv_tcp(int fd, unsigned opts, void *buf, int *len);

TORVANE_END

#endif
