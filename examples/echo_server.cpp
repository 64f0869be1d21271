// Sends back to each client what that client has sent: a TCP echo server on the select service.
//
//   echo_server PORT [ADDRESS]
//
// It listens on all addresses of the machine, or on ADDRESS alone. SIGTERM or SIGINT stops it.
#include <arpa/inet.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <mutex>
#include <set>

#include <torvane/address.h>
#include <torvane/select.h>
#include <torvane/socket.h>

namespace {

constexpr int backlog = 16;
// The limit keeps descriptors free. When none is left, accept fails in every cycle.
constexpr size_t most_clients = 200;
// A quiet service checks after this many microseconds whether it is to stop.
constexpr int time_out = 200000;

std::atomic<bool> stop_wanted;

// The service runs in a thread of its own, which cannot be joined. Its last handler reports the end here.
std::mutex end_lock;
std::condition_variable end_told;
bool ended;

// These need no lock, because handlers run one at a time and main reads them only after the last one.
std::set<int> clients;
unsigned long long bytes_echoed;

void close_client(int fd) {
  clients.erase(fd);
  socket_close(fd);
}

void on_accept(int, int fd, ipport *peer, int) {
  char address[16];
  ip2string(peer->ip, address, sizeof(address));
  printf("%d: connected from %s port %d\n", fd, address, ntohs(peer->port));
  clients.insert(fd);
  // If a client reads nothing, a blocking send to it would keep all others waiting.
  set_nonblock_sock(fd);
  if (clients.size() > most_clients) {
    printf("%d: one too many\n", fd);
    shutdown(fd, SHUT_RDWR); // the descriptor is watched until the next cycle finds it closed, so it must stay open
  }
}

void on_data(int, int fd, uint8_t *remove) {
  char bytes[4096];
  // recv returns the bytes that are there, while socket_recv would wait for all 4096.
  const ssize_t count = recv(fd, bytes, sizeof(bytes), 0);
  if (count > 0) {
    int length = static_cast<int>(count);
    const bool sent = socket_send(fd, SOCKET_OPT_NOSIGNAL, bytes, &length, nullptr) == 0;
    bytes_echoed += static_cast<unsigned long long>(length);
    printf("%d: %d of %zd bytes echoed\n", fd, length, count);
    if (sent)
      return;
    printf("%d: does not take what it is sent, dropped\n", fd);
  } else if (count < 0 && (errno == EAGAIN || errno == EINTR)) {
    return;
  } else {
    printf("%d: lost\n", fd);
  }
  *remove = 1; // a closed descriptor must not stay watched
  close_client(fd);
}

void on_close(int, int fd) {
  printf("%d: closed\n", fd);
  close_client(fd);
}

void on_cycle(int, fd_set *, int *exit_flag) {
  if (stop_wanted)
    *exit_flag = 1;
}

void on_timeout(int, fd_set *) {}

void on_error(int, int code) {
  printf("%s\n", code == 1 ? "the service cannot be set up" : "select failed");
}

void on_exit(int, int) {
  while (!clients.empty())
    close_client(*clients.begin());
  kill(getpid(), SIGTERM); // the service can end by itself, while main waits for a signal
  const std::lock_guard<std::mutex> lock(end_lock);
  ended = true;
  end_told.notify_one(); // the lock is still held: once main has it, end_told may be gone
}

constexpr socket_handler_set handlers = {on_accept, on_data, on_close, on_cycle, on_timeout, on_error, on_exit};

// Closes the socket on every way out.
class SocketOwner {
 public:
  explicit SocketOwner(int fd) : fd_(fd) {}
  ~SocketOwner() {
    socket_close(fd_);
  }
  SocketOwner(const SocketOwner &) = delete;
  SocketOwner &operator=(const SocketOwner &) = delete;

 private:
  int fd_;
};

// Runs the service until one of the signals has come and the last handler has returned.
bool serve(ipport &local, const char *address, const sigset_t &stop_signals) {
  const int port = ntohs(local.port);
  int fd;
  if (socket_listen(&local, SOCKET_OPT_TCP, backlog, &fd) != 0) {
    fprintf(stderr, "echo_server: cannot listen on %s port %d; the console tells more\n", address, port);
    return false;
  }
  const SocketOwner listening(fd);
  pthread_t thread;
  if (socket_select(fd, 0, 0, time_out, &handlers, &thread) != 0) {
    fputs("echo_server: the service does not start; the console tells more\n", stderr);
    return false;
  }
  printf("listening on %s port %d; SIGTERM stops\n", address, port);

  int signal_number;
  sigwait(&stop_signals, &signal_number);
  stop_wanted = true;
  std::unique_lock<std::mutex> lock(end_lock);
  end_told.wait(lock, [] { return ended; });
  return true;
}

int usage() {
  fputs("usage: echo_server PORT [ADDRESS]\n", stderr);
  return 2;
}

} // namespace

int main(int argc, char **argv) {
  if (argc < 2 || argc > 3)
    return usage();
  const int port = my_atoi(argv[1]);
  const char *address = argc > 2 ? argv[2] : "0.0.0.0";
  ipport local;
  if (port < 1 || port > 65535 || ipport_string_convert_h2n(address, htons(static_cast<uint16_t>(port)), &local) != 0)
    return usage();
  setvbuf(stdout, nullptr, _IOLBF, 0);

  // The signals are blocked before there is another thread, so that they wait for sigwait.
  sigset_t stop_signals;
  sigemptyset(&stop_signals);
  sigaddset(&stop_signals, SIGTERM);
  sigaddset(&stop_signals, SIGINT);
  pthread_sigmask(SIG_BLOCK, &stop_signals, nullptr);

  if (!serve(local, address, stop_signals))
    return 1;
  printf("stopped; %llu bytes echoed\n", bytes_echoed);
  return 0;
}
