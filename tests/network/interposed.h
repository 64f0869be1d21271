// System calls of the test program and of the library in it that a test can stand in for.
#pragma once

#include <dlfcn.h>
#include <pthread.h>
#include <stddef.h>
#include <stdio.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/types.h>

#include <atomic>

namespace interposed {

template <typename Function>
class Call;

template <typename Result, typename... Arguments>
class Call<Result(Arguments...)> {
 public:
  using Function = Result (*)(Arguments...);
  constexpr explicit Call(const char *name) : name_(name) {}

  Result operator()(Arguments... arguments) {
    const Function hook = hook_;
    return hook ? hook(arguments...) : real(arguments...);
  }
  Result real(Arguments... arguments) {
    return find()(arguments...);
  }
  // Looked up before any thread needs it: one that is cancelled while it looks would keep the loader's lock.
  Function find() {
    Function function = real_;
    if (!function) {
      function = reinterpret_cast<Function>(dlsym(RTLD_NEXT, name_));
      real_ = function;
    }
    return function;
  }
  void stand_in(Function hook) {
    hook_ = hook;
  }

 private:
  const char *name_;
  std::atomic<Function> hook_ = nullptr;
  std::atomic<Function> real_ = nullptr;
};

extern Call<int(int, unsigned long, void *)> ioctl_call;
extern Call<int(int, int, int)> socket_call;
extern Call<int(int, int, int, const void *, socklen_t)> setsockopt_call;
extern Call<int(int, sockaddr *, socklen_t *)> accept_call;
extern Call<ssize_t(int, const void *, size_t, int, const sockaddr *, socklen_t)> sendto_call;
extern Call<ssize_t(int, void *, size_t, int, sockaddr *, socklen_t *)> recvfrom_call;
extern Call<ssize_t(int, void *, size_t)> read_call;
extern Call<FILE *(const char *, const char *)> fopen_call;
extern Call<int(unsigned)> usleep_call;
extern Call<int(int, fd_set *, fd_set *, fd_set *, timeval *)> select_call;
extern Call<int(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *)> pthread_create_call;
extern Call<int(int, int *)> pthread_setcanceltype_call;

// While it lives `hook` is called instead.
template <typename Signature>
class StandIn {
 public:
  StandIn(Call<Signature> &call, typename Call<Signature>::Function hook) : call_(call) {
    call_.stand_in(hook);
  }
  ~StandIn() {
    call_.stand_in(nullptr);
  }
  StandIn(const StandIn &) = delete;
  StandIn &operator=(const StandIn &) = delete;

 private:
  Call<Signature> &call_;
};

} // namespace interposed
