// IPv4 endpoints on plain descriptors: opened, connected and closed, and whole buffers sent and received.
#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "base/map_table.h"
#include "base/trace.h"
#include "network/socket_words.h"
#include "torvane/address.h"
#include "torvane/interface.h"
#include "torvane/map.h"
#include "torvane/socket.h"

using torvane::as_sockaddr;
using torvane::socket_address;
using torvane::text_of;
using torvane::to_be_tried_again;

namespace {

constexpr char trace_module[] = "quorra_network";

constexpr useconds_t retry_pause = 100; // microseconds
constexpr int send_retries = 2000;
constexpr int recv_tcp_retries = 200;

// getsockname or getpeername
using NameQuery = int(int fd, sockaddr *address, socklen_t *length);

int query_name(NameQuery *query, int fd, ipport *out) {
  sockaddr_in address = {};
  socklen_t length = sizeof(address);
  if (query(fd, as_sockaddr(address), &length) == -1)
    return 1;
  if (out)
    ipport_convert_n2n(address.sin_addr.s_addr, address.sin_port, out);
  return 0;
}

// SOCK_STREAM and its kin, or -1.
int type_of(int fd) {
  int type;
  socklen_t length = sizeof(type);
  return getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &length) == -1 ? -1 : type;
}

} // namespace

extern "C" {

const txt_map_entry LogStrMap[] = {
    {torvane::word_malloc_fail, "malloc fail!!"},
    {torvane::word_error_args, "error args!!"},
    {torvane::word_socket, "socket"},
    {torvane::word_error, "error"},
    {torvane::word_open_error, "open error"},
    {torvane::word_listen_error, "listen error"},
    {torvane::word_bind_error, "bind error"},
    {torvane::word_accept_error, "accept error"},
    {torvane::word_option_error, "socketopt error"},
    {torvane::word_thread_error, "pthread create error"},
    {torvane::word_handler_error, "pthread handler set error"},
    {torvane::word_send_error, "send error"},
    {torvane::word_recv_error, "recv error"},
    {torvane::map_end, "*unknown*"},
};

int socket_open(const char *ifname, ipport *local, unsigned opts, int *fd) {
  if (!local || !fd)
    return 1;
  uint32_t ip = local->ip;
  if (ifname && get_ip_by_ifname(ifname, &ip) != 0) {
    TRACE_NO_PROCESS("Can't resolve ifname=%s\n", ifname);
    return 1;
  }

  // Datagram sockets block and pass on to programs that are started, stream sockets do neither.
  const int type = opts & SOCKET_OPT_TCP ? SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC : SOCK_DGRAM;
  const int opened = socket(AF_INET, type, 0);
  if (opened == -1) {
    TRACE_NO_PROCESS("%s %s!!\n", text_of(torvane::word_socket), text_of(torvane::word_open_error));
    return 1;
  }

  const int on = 1;
  if (opts & SOCKET_OPT_REUSE && setsockopt(opened, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) == -1) {
    TRACE_NO_PROCESS("%s set%s SOCKET_OPT_REUSE failed. fd=%d\n", text_of(torvane::word_socket),
                     text_of(torvane::word_option_error), opened);
    close(opened);
    return 1;
  }

  const sockaddr_in address = socket_address(ip, local->port);
  if (opts & SOCKET_OPT_BIND && bind(opened, as_sockaddr(address), sizeof(address)) == -1) {
    uint8_t bytes[4];
    memcpy(bytes, &local->ip, sizeof(bytes));
    TRACE_NO_PROCESS("%s %s fd=%d,ip=%u.%u.%u.%u,port=%d\n", text_of(torvane::word_socket),
                     text_of(torvane::word_bind_error), opened, bytes[0], bytes[1], bytes[2], bytes[3],
                     ntohs(local->port));
    close(opened);
    return 1;
  }
  *fd = opened;
  return 0;
}

int socket_listen(ipport *local, unsigned opts, int backlog, int *fd) {
  if (!local || !fd || local->port == 0 || backlog < 1) {
    TRACE_NO_PROCESS("%s\n", text_of(torvane::word_error_args));
    return 1;
  }
  int opened;
  if (socket_open(nullptr, local, (opts & SOCKET_OPT_TCP) | SOCKET_OPT_REUSE | SOCKET_OPT_BIND, &opened) != 0) {
    TRACE_NO_PROCESS("%s %s\n", text_of(torvane::word_socket), text_of(torvane::word_open_error));
    return 1;
  }
  if (listen(opened, backlog) == -1) {
    TRACE_NO_PROCESS("%s %s\n", text_of(torvane::word_socket), text_of(torvane::word_listen_error));
    socket_close(opened);
    return 1;
  }
  *fd = opened;
  return 0;
}

int socket_connect(ipport *local, ipport *remote, unsigned opts, int *fd) {
  if (!fd || !remote || remote->ip == 0 || remote->port == 0) {
    TRACE_NO_PROCESS("%s\n", text_of(torvane::word_error_args));
    return 1;
  }
  ipport any = {};
  int opened;
  if (socket_open(nullptr, local ? local : &any, opts & (SOCKET_OPT_TCP | SOCKET_OPT_BIND), &opened) != 0) {
    TRACE_NO_PROCESS("%s %s\n", text_of(torvane::word_socket), text_of(torvane::word_open_error));
    return 1;
  }
  const sockaddr_in address = socket_address(remote->ip, remote->port);
  if (connect(opened, as_sockaddr(address), sizeof(address)) == -1) {
    socket_close(opened);
    return 1;
  }
  *fd = opened;
  return 0;
}

int socket_close(int fd) {
  // What is left unread would turn the end of the connection into a reset.
  char unread[2048];
  while (torvane::bytes_waiting(fd) != 0 && read(fd, unread, sizeof(unread)) > 0) {
  }
  shutdown(fd, SHUT_RDWR);
  close(fd);
  return 0;
}

int get_socket_local(int fd, ipport *out) {
  return query_name(getsockname, fd, out);
}

int get_socket_peer(int fd, ipport *out) {
  return query_name(getpeername, fd, out);
}

int get_socket_state(int fd) {
  return query_name(getpeername, fd, nullptr);
}

int set_nonblock_sock(int fd) {
  const int flags = fcntl(fd, F_GETFL);
  return flags == -1 ? -1 : fcntl(fd, F_SETFL, flags | O_NONBLOCK);
}

int socket_send(int fd, unsigned opts, const void *buf, int *len, ipport *to) {
  if (!len || (!buf && *len > 0))
    return 1;
  const int type = fd < 0 ? -1 : type_of(fd);
  const bool to_given = type == SOCK_DGRAM && opts & SOCKET_OPT_SENDTO;
  if (type == -1 || (to_given && !to) || (type == SOCK_DGRAM && !to_given && get_socket_state(fd) != 0)) {
    TRACE_NO_PROCESS("%s %s\n", text_of(torvane::word_socket), text_of(torvane::word_send_error));
    return 1;
  }
  if (type != SOCK_DGRAM && type != SOCK_STREAM) {
    TRACE_NO_PROCESS("%s Can't handle SO_TYPE=%d\n", text_of(torvane::word_socket), type);
    return 1;
  }

  const sockaddr_in address = to_given ? socket_address(to->ip, to->port) : sockaddr_in{};
  const int flags = (opts & SOCKET_OPT_DONTWAIT ? MSG_DONTWAIT : 0) | (opts & SOCKET_OPT_NOSIGNAL ? MSG_NOSIGNAL : 0);
  const char *const bytes = static_cast<const char *>(buf);
  int sent = 0;
  int retries = send_retries;
  while (sent < *len) {
    const ssize_t count = sendto(fd, bytes + sent, static_cast<size_t>(*len - sent), flags,
                                 to_given ? as_sockaddr(address) : nullptr, to_given ? sizeof(address) : 0);
    if (count >= 0) {
      sent += static_cast<int>(count);
      continue;
    }
    if (!to_be_tried_again(errno)) {
      *len = sent;
      perror("sendto:");
      return 1;
    }
    usleep(retry_pause);
    if (retries < 1) {
      *len = sent;
      return 1;
    }
    retries--;
  }
  *len = sent;
  return 0;
}

int socket_recv(int fd, unsigned opts, void *buf, int *len, ipport *from) {
  if (!len || (!buf && *len > 0))
    return 1;
  const int type = fd < 0 ? -1 : type_of(fd);
  if (type == -1) {
    TRACE_NO_PROCESS("%s %s\n", text_of(torvane::word_socket), text_of(torvane::word_send_error));
    return 1;
  }
  const bool from_given = type == SOCK_DGRAM && opts & SOCKET_OPT_RECVFROM;
  if ((from_given && !from) || (type == SOCK_DGRAM && !from_given && get_socket_state(fd) != 0)) {
    TRACE_NO_PROCESS("getsockopt SO_TYPE Error\n");
    return 1;
  }
  if (type != SOCK_DGRAM && type != SOCK_STREAM) {
    TRACE_NO_PROCESS("%s Can't handle SO_TYPE=%d\n", text_of(torvane::word_socket), type);
    return 1;
  }

  sockaddr_in address = from_given ? socket_address(from->ip, from->port) : sockaddr_in{};
  const int flags = (opts & SOCKET_OPT_PEEK ? MSG_PEEK : 0) | (opts & SOCKET_OPT_WAITALL ? MSG_WAITALL : 0);
  char *const bytes = static_cast<char *>(buf);
  int received = 0;
  while (received < *len) {
    socklen_t address_length = 4; // the sender is told to nobody
    const ssize_t count = recvfrom(fd, bytes + received, static_cast<size_t>(*len - received), flags,
                                   from_given ? as_sockaddr(address) : nullptr, from_given ? &address_length : nullptr);
    if (count > 0) {
      received += static_cast<int>(count);
    } else if (count == 0) {
      TRACE_NO_PROCESS("Recv Zero Bytes\n");
    } else if (!to_be_tried_again(errno)) {
      *len = received;
      TRACE_NO_PROCESS("%s %s errno=%d\n", text_of(torvane::word_socket), text_of(torvane::word_recv_error), errno);
      return 1;
    }
  }
  *len = received;
  return 0;
}

int socket_recv_tcp(int fd, unsigned, void *buf, int *len) {
  if (!len || (!buf && *len > 0))
    return 1;
  if (fd < 0) {
    TRACE_NO_PROCESS("%s %s\n", text_of(torvane::word_socket), text_of(torvane::word_send_error));
    return 1;
  }

  char *const bytes = static_cast<char *>(buf);
  int received = 0;
  int retries = recv_tcp_retries;
  while (received < *len) {
    const ssize_t count = recvfrom(fd, bytes + received, static_cast<size_t>(*len - received), 0, nullptr, nullptr);
    if (count > 0) {
      received += static_cast<int>(count);
      continue;
    }
    if (count == 0) {
      TRACE_NO_PROCESS("Recv Zero Bytes\n");
      break;
    }
    if (!to_be_tried_again(errno)) {
      *len = received;
      TRACE_NO_PROCESS("%s %s errno=%d\n", text_of(torvane::word_socket), text_of(torvane::word_recv_error), errno);
      return 1;
    }
    usleep(retry_pause);
    if (retries < 1) {
      TRACE_NO_PROCESS("more then 200 times EAGAIN[%d/%d]\n", received, *len);
      *len = received;
      return 1;
    }
    retries--;
  }
  *len = received;
  return 0;
}

} // extern "C"
