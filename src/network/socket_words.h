// What the endpoint calls, the select service and the DNS client share.
#pragma once

#include <errno.h>
#include <netinet/in.h>
#include <stdint.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "torvane/map.h"
#include "torvane/socket.h"

namespace torvane {

// Ids of LogStrMap.
enum SocketWord : uint32_t {
  word_malloc_fail = 0,
  word_error_args = 1,
  word_socket = 2,
  word_error = 3,
  word_open_error = 4,
  word_listen_error = 5,
  word_bind_error = 6,
  word_accept_error = 7,
  word_option_error = 8,
  word_thread_error = 9,
  word_handler_error = 10,
  word_send_error = 11,
  word_recv_error = 12,
};

inline const char *text_of(SocketWord word) {
  return TxtMapById(LogStrMap, word);
}

// That can be read at once; 0 also when the kernel does not tell. Of a datagram socket those of the first datagram.
inline int bytes_waiting(int fd) {
  int count = 0;
  return ioctl(fd, FIONREAD, &count) == -1 ? 0 : count;
}

inline bool to_be_tried_again(int error) {
  return error == EAGAIN || error == EINTR;
}

// Both in network order.
inline sockaddr_in socket_address(uint32_t ip, uint16_t port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = ip;
  address.sin_port = port;
  return address;
}

inline const sockaddr *as_sockaddr(const sockaddr_in &address) {
  return reinterpret_cast<const sockaddr *>(&address);
}

inline sockaddr *as_sockaddr(sockaddr_in &address) {
  return reinterpret_cast<sockaddr *>(&address);
}

} // namespace torvane
