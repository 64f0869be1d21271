// The tests of the select service share these handlers, the record of what they heard, and the sockets to be served.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <pthread.h>
#include <signal.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "network.h"
#include "support/sandbox.h"
#include "torvane.h"

namespace network {

constexpr auto patience = std::chrono::seconds(60);

// The handlers write down every call, in order: "accept 7", "data 7", "close 7", "cycle", "quiet cycle", "timeout",
// "error 2", "exit 0".
class Heard {
 public:
  void clear() {
    const std::lock_guard lock(mutex_);
    events_.clear();
    tid_ = 0;
  }
  void add(int tid, const std::string &event) {
    const std::lock_guard lock(mutex_);
    events_.push_back(event);
    one_thread_ = one_thread_ && (tid_ == 0 || tid_ == tid) && tid == my_gettid();
    tid_ = tid;
    changed_.notify_all();
  }
  bool await(const std::string &event, size_t times = 1) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, patience, [&] { return count(event) >= times; });
  }
  std::vector<std::string> all() {
    const std::lock_guard lock(mutex_);
    return events_;
  }
  size_t times(const std::string &event) {
    const std::lock_guard lock(mutex_);
    return count(event);
  }
  int tid() {
    const std::lock_guard lock(mutex_);
    return tid_;
  }
  bool one_thread() {
    const std::lock_guard lock(mutex_);
    return one_thread_;
  }

 private:
  size_t count(const std::string &event) const {
    return static_cast<size_t>(std::count(events_.begin(), events_.end(), event));
  }
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::string> events_;
  int tid_ = 0;
  bool one_thread_ = true; // every call came on the thread that its first argument names
};
inline Heard heard;

// A test may have the handlers do something before they write their call down.
struct Doing {
  std::function<void(int fd, ipport *peer, int new_highest)> accept;
  std::function<void(int fd, uint8_t *remove)> data;
  std::function<void(int fd)> close;
  std::function<void(fd_set *watched, int *exit_flag)> cycle;
  std::function<void(fd_set *watched)> timeout;
  std::function<void(int code)> error, exit;
};
inline Doing doing;
inline std::recursive_mutex doing_lock; // every handler takes it, and a test that changes `doing`
inline std::atomic<bool> stopping;      // the next cycle is the last

// Keeps the service's thread from being cancelled while a handler holds the lock that others need.
class Working {
 public:
  Working() {
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &old_);
    doing_lock.lock();
  }
  ~Working() {
    doing_lock.unlock();
    pthread_setcancelstate(old_, nullptr);
  }
  Working(const Working &) = delete;
  Working &operator=(const Working &) = delete;

 private:
  int old_;
};

template <typename What>
void change(What what) {
  const std::lock_guard lock(doing_lock);
  what();
}

inline std::string named(const char *event, int number) {
  return std::string(event) + " " + std::to_string(number);
}

inline void on_accept(int tid, int fd, ipport *peer, int new_highest) {
  const Working working;
  if (doing.accept)
    doing.accept(fd, peer, new_highest);
  heard.add(tid, named("accept", fd));
}

inline void on_data(int tid, int fd, uint8_t *remove) {
  const Working working;
  if (doing.data) {
    doing.data(fd, remove);
  } else {
    char bytes[4096];
    EXPECT_LT(0, recv(fd, bytes, sizeof(bytes), 0));
  }
  heard.add(tid, named("data", fd));
}

inline void on_close(int tid, int fd) {
  const Working working;
  if (doing.close)
    doing.close(fd);
  heard.add(tid, named("close", fd));
}

inline void on_cycle(int tid, fd_set *watched, int *exit_flag) {
  const Working working;
  if (doing.cycle)
    doing.cycle(watched, exit_flag);
  if (stopping)
    *exit_flag = 1;
  heard.add(tid, watched ? "cycle" : "quiet cycle");
}

inline void on_timeout(int tid, fd_set *watched) {
  const Working working;
  if (doing.timeout)
    doing.timeout(watched);
  heard.add(tid, "timeout");
}

inline void on_error(int tid, int code) {
  const Working working;
  if (doing.error)
    doing.error(code);
  heard.add(tid, named("error", code));
}

inline void on_exit(int tid, int code) {
  const Working working;
  if (doing.exit)
    doing.exit(code);
  heard.add(tid, named("exit", code));
}

constexpr socket_handler_set all_handlers = {on_accept, on_data, on_close, on_cycle, on_timeout, on_error, on_exit};

inline bool thread_lives(int tid) {
  return syscall(SYS_tgkill, getpid(), tid, 0) == 0;
}

// Waits until the kernel no longer knows the thread; then its memory is gone too.
inline void await_end(int tid) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  while (thread_lives(tid) && std::chrono::steady_clock::now() < deadline)
    usleep(500);
  EXPECT_FALSE(thread_lives(tid)) << "the service's thread has not ended";
}

inline sockaddr_in loopback(uint16_t port) {
  sockaddr_in at = {};
  at.sin_family = AF_INET;
  at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  at.sin_port = port;
  return at;
}

// Opens a listening socket like those of socket_listen.
inline int open_listening(int backlog = 64) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  const sockaddr_in at = loopback(0);
  EXPECT_EQ(0, bind(fd, reinterpret_cast<const sockaddr *>(&at), sizeof(at)));
  EXPECT_EQ(0, listen(fd, backlog));
  return fd;
}

inline int connect_to(int listening) {
  ipport at = {};
  EXPECT_EQ(0, get_socket_local(listening, &at));
  const sockaddr_in address = loopback(at.port);
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  EXPECT_EQ(0, connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)));
  return fd;
}

inline void say(int fd, const char *text) {
  EXPECT_EQ(static_cast<ssize_t>(strlen(text)), send(fd, text, strlen(text), MSG_NOSIGNAL));
}

// Closes a connection with a reset instead of an orderly end.
inline void reset(int fd) {
  const linger at_once = {1, 0};
  setsockopt(fd, SOL_SOCKET, SO_LINGER, &at_once, sizeof(at_once));
  close(fd);
}

inline std::string exit_trace() {
  return "Exit pid=" + std::to_string(getpid()) + ",ppid=" + std::to_string(getppid()) + "\n";
}

inline std::string flag_trace() {
  return "get ExitFlag pid=" + std::to_string(getpid()) + ",ppid=" + std::to_string(getppid()) + "\n";
}

// Returns the traces of the service's thread. Those of the starter may stand before, between or after them.
inline std::vector<sandbox::Trace> service_traces() {
  std::vector<sandbox::Trace> traces;
  for (const sandbox::Trace &trace : sandbox::console())
    if (trace.has_process)
      traces.push_back(trace);
  return traces;
}

class Select : public testing::Test {
 protected:
  void SetUp() override {
    heard.clear();
    doing = {};
    stopping = false;
    sandbox::clear_console();
    descriptors = sandbox::open_descriptors();
  }
  void TearDown() override {
    doing = {};
    EXPECT_EQ(descriptors, sandbox::open_descriptors());
    EXPECT_TRUE(heard.one_thread());
  }

  // Starts a service that is expected to run.
  pthread_t start(int fd, unsigned opts = 0, int sec = 0, int usec = 0,
                  const socket_handler_set &handlers = all_handlers) {
    pthread_t thread = {};
    EXPECT_EQ(0, socket_select(fd, opts, sec, usec, &handlers, &thread));
    return thread;
  }

  // Waits for the end of the service, whose last call must be `exit`.
  void await_exit(const char *exit = "exit 0") {
    ASSERT_TRUE(heard.await(exit));
    await_end(heard.tid());
    EXPECT_EQ(exit, heard.all().back());
    EXPECT_EQ(1u, heard.times(exit));
  }

  // Ends the service in its next cycle, which one more connection starts.
  void stop(int listening) {
    stopping = true;
    const int waker = connect_to(listening);
    await_exit();
    close(waker);
  }

  static std::vector<std::string> events(std::initializer_list<std::string> expected) {
    return expected;
  }

  int descriptors = 0;
};

} // namespace network
