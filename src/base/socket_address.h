// Holds the small things that all services need which wait for sockets or send from them.
#pragma once

#include <errno.h>
#include <netinet/in.h>
#include <stdint.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace torvane {

// Bytes that can be read now (of a datagram socket: of its first datagram); 0 if the kernel cannot say.
inline int bytes_waiting(int fd) {
  int count = 0;
  return ioctl(fd, FIONREAD, &count) == -1 ? 0 : count;
}

// Returns whether a call that failed with this error number may succeed the next time.
inline bool to_be_tried_again(int error) {
  return error == EAGAIN || error == EINTR;
}

// Address and port are in network byte order.
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
