// This measures echo round trips of small messages over loopback, through the select service and through the same loop
// written directly on select(2).
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <vector>

#include "torvane.h"

namespace {

constexpr size_t message_size = 32;
constexpr int wait_usec = 20000;

std::atomic<bool> stop_wanted, ended;

void echo(int fd) {
  char bytes[256];
  const ssize_t count = recv(fd, bytes, sizeof(bytes), 0);
  if (count > 0 && send(fd, bytes, static_cast<size_t>(count), MSG_NOSIGNAL) != count)
    abort();
}

constexpr socket_handler_set handlers = {
    [](int, int, ipport *, int) {},
    [](int, int fd, uint8_t *) { echo(fd); },
    [](int, int fd) { close(fd); },
    [](int, fd_set *, int *exit_flag) {
      if (stop_wanted)
        *exit_flag = 1;
    },
    [](int, fd_set *) {},
    [](int, int) { abort(); },
    [](int, int) { ended = true; },
};

void start_service(int listening) {
  pthread_t thread;
  if (socket_select(listening, 0, 0, wait_usec, &handlers, &thread) != 0)
    abort();
}

// A program without the service would write this.
void *written_out(void *listening_socket) {
  const int listening = *static_cast<int *>(listening_socket);
  fd_set watched;
  FD_ZERO(&watched);
  FD_SET(listening, &watched);
  int highest = listening;
  while (!stop_wanted) {
    fd_set ready = watched;
    timeval timeout = {0, wait_usec};
    if (select(highest + 1, &ready, nullptr, nullptr, &timeout) <= 0)
      continue;
    if (FD_ISSET(listening, &ready)) {
      const int fd = accept(listening, nullptr, nullptr);
      if (fd >= 0) {
        FD_SET(fd, &watched);
        highest = std::max(highest, fd);
      }
    }
    for (int fd = 0; fd <= highest; fd++) {
      if (fd == listening || !FD_ISSET(fd, &ready))
        continue;
      int waiting = 0;
      if (ioctl(fd, FIONREAD, &waiting) == 0 && waiting > 0) {
        echo(fd);
      } else {
        close(fd);
        FD_CLR(fd, &watched);
      }
    }
  }
  ended = true;
  return nullptr;
}

void start_written_out(int listening) {
  static int socket_of_thread;
  socket_of_thread = listening;
  pthread_t thread;
  if (pthread_create(&thread, nullptr, written_out, &socket_of_thread) != 0)
    abort();
  pthread_detach(thread);
}

// Every iteration sends one message on each connection, then takes all the answers.
void round_trips(benchmark::State &state, void (*start)(int listening)) {
  const int listening = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in at = {};
  at.sin_family = AF_INET;
  at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof(at);
  if (bind(listening, reinterpret_cast<sockaddr *>(&at), sizeof(at)) != 0 || listen(listening, 64) != 0 ||
      getsockname(listening, reinterpret_cast<sockaddr *>(&at), &length) != 0)
    abort();
  stop_wanted = ended = false;
  start(listening);
  std::vector<int> clients(static_cast<size_t>(state.range(0)));
  for (int &client : clients) {
    client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connect(client, reinterpret_cast<sockaddr *>(&at), sizeof(at)) != 0)
      abort();
  }

  char message[message_size] = "ping";
  for (auto _ : state) {
    for (const int client : clients)
      if (send(client, message, sizeof(message), MSG_NOSIGNAL) != static_cast<ssize_t>(sizeof(message)))
        abort();
    for (const int client : clients)
      if (recv(client, message, sizeof(message), MSG_WAITALL) != static_cast<ssize_t>(sizeof(message)))
        abort();
  }
  state.SetItemsProcessed(state.iterations() * state.range(0)); // round trips

  for (const int client : clients)
    close(client);
  stop_wanted = true;
  while (!ended)
    usleep(1000);
  close(listening);
}

void through_socket_select(benchmark::State &state) {
  round_trips(state, start_service);
}

void through_a_loop_on_select(benchmark::State &state) {
  round_trips(state, start_written_out);
}

BENCHMARK(through_socket_select)->Arg(1)->Arg(32)->UseRealTime();
BENCHMARK(through_a_loop_on_select)->Arg(1)->Arg(32)->UseRealTime();

} // namespace
