#include "interposed.h"

#include <gtest/gtest.h>
#include <stdarg.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace interposed {

constinit Call<int(int, unsigned long, void *)> ioctl_call("ioctl");
constinit Call<int(int, int, int)> socket_call("socket");
constinit Call<int(int, int, int, const void *, socklen_t)> setsockopt_call("setsockopt");
constinit Call<int(int, sockaddr *, socklen_t *)> accept_call("accept");
constinit Call<ssize_t(int, const void *, size_t, int, const sockaddr *, socklen_t)> sendto_call("sendto");
constinit Call<ssize_t(int, void *, size_t, int, sockaddr *, socklen_t *)> recvfrom_call("recvfrom");
constinit Call<ssize_t(int, void *, size_t)> read_call("read");
constinit Call<FILE *(const char *, const char *)> fopen_call("fopen");
constinit Call<int(unsigned)> usleep_call("usleep");
constinit Call<int(int, fd_set *, fd_set *, fd_set *, timeval *)> select_call("select");
constinit Call<int(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *)> pthread_create_call(
    "pthread_create");
constinit Call<int(int, int *)> pthread_setcanceltype_call("pthread_setcanceltype");

} // namespace interposed

extern "C" {

int ioctl(int fd, unsigned long request, ...) noexcept {
  va_list values;
  va_start(values, request);
  void *const argument = va_arg(values, void *);
  va_end(values);
  return interposed::ioctl_call(fd, request, argument);
}

int socket(int domain, int type, int protocol) noexcept {
  return interposed::socket_call(domain, type, protocol);
}

int setsockopt(int fd, int level, int option, const void *value, socklen_t length) noexcept {
  return interposed::setsockopt_call(fd, level, option, value, length);
}

int accept(int fd, sockaddr *address, socklen_t *length) {
  return interposed::accept_call(fd, address, length);
}

ssize_t sendto(int fd, const void *bytes, size_t size, int flags, const sockaddr *address, socklen_t length) {
  return interposed::sendto_call(fd, bytes, size, flags, address, length);
}

ssize_t recvfrom(int fd, void *bytes, size_t size, int flags, sockaddr *address, socklen_t *length) {
  return interposed::recvfrom_call(fd, bytes, size, flags, address, length);
}

ssize_t read(int fd, void *bytes, size_t size) {
  return interposed::read_call(fd, bytes, size);
}

FILE *fopen(const char *path, const char *mode) {
  return interposed::fopen_call(path, mode);
}

int usleep(unsigned microseconds) {
  return interposed::usleep_call(microseconds);
}

int select(int count, fd_set *readable, fd_set *writable, fd_set *exceptional, timeval *timeout) {
  return interposed::select_call(count, readable, writable, exceptional, timeout);
}

int pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*run)(void *), void *argument) noexcept {
  return interposed::pthread_create_call(thread, attributes, run, argument);
}

int pthread_setcanceltype(int type, int *old_type) {
  return interposed::pthread_setcanceltype_call(type, old_type);
}

} // extern "C"

namespace {

[[gnu::constructor]] void find_all() {
  interposed::ioctl_call.find();
  interposed::socket_call.find();
  interposed::setsockopt_call.find();
  interposed::accept_call.find();
  interposed::sendto_call.find();
  interposed::recvfrom_call.find();
  interposed::read_call.find();
  interposed::fopen_call.find();
  interposed::usleep_call.find();
  interposed::select_call.find();
  interposed::pthread_create_call.find();
  interposed::pthread_setcanceltype_call.find();
}

} // namespace

// Without it the tests that count calls would count none.
TEST(Interposed, ReachesTheLibrary) {
  static int asked;
  asked = 0;
  const interposed::StandIn hook(interposed::ioctl_call, [](int, unsigned long, void *) { return ++asked, -1; });
  EXPECT_EQ(1, ioctl(0, FIONREAD, nullptr) + 2);
  EXPECT_EQ(1, asked);
}
