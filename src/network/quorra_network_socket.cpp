// Opens, binds, connects and closes IPv4 endpoints, which are plain descriptors.
#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "base/map_table.h"
#include "base/owners.h"
#include "base/socket_address.h"
#include "base/trace.h"
#include "network/socket_words.h"
#include "torvane/address.h"
#include "torvane/interface.h"
#include "torvane/map.h"
#include "torvane/socket.h"

using namespace torvane;

namespace {

constexpr const char *trace_module = "quorra_network";

using NameQuery = int(int fd, sockaddr *address, socklen_t *length); // getsockname or getpeername

// Asks for an address of the socket; `out` may be null. Returns whether the kernel knows it.
bool query_name(NameQuery *query, int fd, ipport *out) {
  sockaddr_in address = {};
  socklen_t length = sizeof(address);
  if (query(fd, as_sockaddr(address), &length) == -1)
    return false;
  if (out)
    ipport_convert_n2n(address.sin_addr.s_addr, address.sin_port, out);
  return true;
}

} // namespace

extern "C" {

const txt_map_entry LogStrMap[] = {
    {word_malloc_fail, "malloc fail!!"},
    {word_error_args, "error args!!"},
    {word_socket, "socket"},
    {word_error, "error"},
    {word_open_error, "open error"},
    {word_listen_error, "listen error"},
    {word_bind_error, "bind error"},
    {word_accept_error, "accept error"},
    {word_option_error, "socketopt error"},
    {word_thread_error, "pthread create error"},
    {word_handler_error, "pthread handler set error"},
    {word_send_error, "send error"},
    {word_recv_error, "recv error"},
    {map_end, "*unknown*"},
};

int socket_open(const char *ifname, ipport *local, unsigned opts, int *fd) {
  uint32_t ip;
  if (ifname && get_ip_by_ifname(ifname, &ip) != 0) {
    TRACE_NO_PROCESS("Can't resolve ifname=%s\n", ifname);
    return 1;
  }
  if (!local || !fd)
    return 1;
  if (!ifname)
    ip = local->ip;

  // This is meant: datagram sockets block and are inherited by started programs, stream sockets do neither.
  const int type = opts & SOCKET_OPT_TCP ? SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC : SOCK_DGRAM;
  Descriptor opened(socket(AF_INET, type, 0));
  if (!opened) {
    TRACE_NO_PROCESS("%s %s!!\n", text_of(word_socket), text_of(word_open_error));
    return 1;
  }

  const int on = 1;
  if (opts & SOCKET_OPT_REUSE && setsockopt(opened.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) == -1) {
    // This is meant: no blank follows "set".
    TRACE_NO_PROCESS("%s set%s SOCKET_OPT_REUSE failed. fd=%d\n", text_of(word_socket), text_of(word_option_error),
                     opened.get());
    return 1;
  }

  const sockaddr_in address = socket_address(ip, local->port);
  if (opts & SOCKET_OPT_BIND && bind(opened.get(), as_sockaddr(address), sizeof(address)) == -1) {
    // This is meant: the trace shows the address of `local`, also when that of the interface was to be bound.
    uint8_t bytes[4];
    memcpy(bytes, &local->ip, sizeof(bytes));
    TRACE_NO_PROCESS("%s %s fd=%d,ip=%u.%u.%u.%u,port=%d\n", text_of(word_socket), text_of(word_bind_error),
                     opened.get(), bytes[0], bytes[1], bytes[2], bytes[3], ntohs(local->port));
    return 1;
  }
  *fd = opened.release();
  return 0;
}

int socket_listen(ipport *local, unsigned opts, int backlog, int *fd) {
  if (!local || !fd || local->port == 0 || backlog < 1) {
    TRACE_NO_PROCESS("%s\n", text_of(word_error_args));
    return 1;
  }
  int opened;
  if (socket_open(nullptr, local, (opts & SOCKET_OPT_TCP) | SOCKET_OPT_REUSE | SOCKET_OPT_BIND, &opened) != 0) {
    TRACE_NO_PROCESS("%s %s\n", text_of(word_socket), text_of(word_open_error));
    return 1;
  }
  if (listen(opened, backlog) == -1) {
    TRACE_NO_PROCESS("%s %s\n", text_of(word_socket), text_of(word_listen_error));
    socket_close(opened);
    return 1;
  }
  *fd = opened;
  return 0;
}

int socket_connect(ipport *local, ipport *remote, unsigned opts, int *fd) {
  if (!fd || !remote || remote->ip == 0 || remote->port == 0) {
    TRACE_NO_PROCESS("%s\n", text_of(word_error_args));
    return 1;
  }
  ipport any = {};
  int opened;
  if (socket_open(nullptr, local ? local : &any, opts & (SOCKET_OPT_TCP | SOCKET_OPT_BIND), &opened) != 0) {
    TRACE_NO_PROCESS("%s %s\n", text_of(word_socket), text_of(word_open_error));
    return 1;
  }
  const sockaddr_in address = socket_address(remote->ip, remote->port);
  // This is meant: a connection that is only in progress counts as failed. Stream sockets do not block, so they connect
  // only where the kernel is done at once.
  if (connect(opened, as_sockaddr(address), sizeof(address)) == -1) {
    socket_close(opened);
    return 1;
  }
  *fd = opened;
  return 0;
}

int socket_close(int fd) {
  // Bytes left unread would turn the end of the connection into a reset.
  char unread[2048];
  while (bytes_waiting(fd) != 0 && read(fd, unread, sizeof(unread)) > 0) {
  }
  shutdown(fd, SHUT_RDWR);
  close(fd);
  return 0;
}

int get_socket_local(int fd, ipport *out) {
  return query_name(getsockname, fd, out) ? 0 : 1;
}

int get_socket_peer(int fd, ipport *out) {
  return query_name(getpeername, fd, out) ? 0 : 1;
}

// This is meant: 0 is the state of a connected socket, and 1 that of any other.
int get_socket_state(int fd) {
  return query_name(getpeername, fd, nullptr) ? 0 : 1;
}

int set_nonblock_sock(int fd) {
  const int flags = fcntl(fd, F_GETFL);
  return flags == -1 ? -1 : fcntl(fd, F_SETFL, flags | O_NONBLOCK);
}

} // extern "C"
