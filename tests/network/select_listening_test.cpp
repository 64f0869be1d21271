// The select service: a thread that calls handlers.
#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <netinet/in.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "interposed.h"
#include "support/child_process.h"
#include "support/sandbox.h"
#include "torvane.h"

using interposed::StandIn;
using sandbox::open_descriptors;

namespace {

constexpr auto patience = std::chrono::seconds(60);

// What the handlers heard, in order: "accept 7", "data 7", "close 7", "cycle", "quiet cycle", "timeout", "error 2",
// "exit 0".
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
  bool one_thread_ = true; // every call on the thread that its first argument names
};
Heard heard;

// What the handlers do besides.
struct Doing {
  std::function<void(int fd, ipport *peer, int new_highest)> accept;
  std::function<void(int fd, uint8_t *remove)> data;
  std::function<void(int fd)> close;
  std::function<void(fd_set *watched, int *exit_flag)> cycle;
  std::function<void(fd_set *watched)> timeout;
  std::function<void(int code)> error, exit;
};
Doing doing;
std::recursive_mutex doing_lock; // taken by every handler, and by a test that changes what a running one does
std::atomic<bool> stopping;      // the next cycle is the last

// A handler at work. The service's thread may be cancelled at any point, but not while it holds what others need.
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

std::string named(const char *event, int number) {
  return std::string(event) + " " + std::to_string(number);
}

void on_accept(int tid, int fd, ipport *peer, int new_highest) {
  const Working working;
  if (doing.accept)
    doing.accept(fd, peer, new_highest);
  heard.add(tid, named("accept", fd));
}

void on_data(int tid, int fd, uint8_t *remove) {
  const Working working;
  if (doing.data) {
    doing.data(fd, remove);
  } else {
    char bytes[4096];
    EXPECT_LT(0, recv(fd, bytes, sizeof(bytes), 0));
  }
  heard.add(tid, named("data", fd));
}

void on_close(int tid, int fd) {
  const Working working;
  if (doing.close)
    doing.close(fd);
  heard.add(tid, named("close", fd));
}

void on_cycle(int tid, fd_set *watched, int *exit_flag) {
  const Working working;
  if (doing.cycle)
    doing.cycle(watched, exit_flag);
  if (stopping)
    *exit_flag = 1;
  heard.add(tid, watched ? "cycle" : "quiet cycle");
}

void on_timeout(int tid, fd_set *watched) {
  const Working working;
  if (doing.timeout)
    doing.timeout(watched);
  heard.add(tid, "timeout");
}

void on_error(int tid, int code) {
  const Working working;
  if (doing.error)
    doing.error(code);
  heard.add(tid, named("error", code));
}

void on_exit(int tid, int code) {
  const Working working;
  if (doing.exit)
    doing.exit(code);
  heard.add(tid, named("exit", code));
}

constexpr socket_handler_set all_handlers = {on_accept, on_data, on_close, on_cycle, on_timeout, on_error, on_exit};

bool thread_lives(int tid) {
  return syscall(SYS_tgkill, getpid(), tid, 0) == 0;
}

// Nothing of a thread is left, its memory included, when the kernel no longer knows it.
void await_end(int tid) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  while (thread_lives(tid) && std::chrono::steady_clock::now() < deadline)
    usleep(500);
  EXPECT_FALSE(thread_lives(tid)) << "the service's thread has not ended";
}

sockaddr_in loopback(uint16_t port) {
  sockaddr_in at = {};
  at.sin_family = AF_INET;
  at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  at.sin_port = port;
  return at;
}

// A listening socket as socket_listen makes it.
int open_listening(int backlog = 64) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  const sockaddr_in at = loopback(0);
  EXPECT_EQ(0, bind(fd, reinterpret_cast<const sockaddr *>(&at), sizeof(at)));
  EXPECT_EQ(0, listen(fd, backlog));
  return fd;
}

int connect_to(int listening) {
  ipport at = {};
  EXPECT_EQ(0, get_socket_local(listening, &at));
  const sockaddr_in address = loopback(at.port);
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  EXPECT_EQ(0, connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)));
  return fd;
}

void say(int fd, const char *text) {
  EXPECT_EQ(static_cast<ssize_t>(strlen(text)), send(fd, text, strlen(text), MSG_NOSIGNAL));
}

// Vanishes with a reset in place of an orderly end.
void reset(int fd) {
  const linger at_once = {1, 0};
  setsockopt(fd, SOL_SOCKET, SO_LINGER, &at_once, sizeof(at_once));
  close(fd);
}

int next_descriptor() {
  const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
  close(fd);
  return fd;
}

std::string exit_trace() {
  return "Exit pid=" + std::to_string(getpid()) + ",ppid=" + std::to_string(getppid()) + "\n";
}

std::string flag_trace() {
  return "get ExitFlag pid=" + std::to_string(getpid()) + ",ppid=" + std::to_string(getppid()) + "\n";
}

// Those of the service's thread. The starter's own may come before, between or after them.
std::vector<sandbox::Trace> service_traces() {
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
    descriptors = open_descriptors();
  }
  void TearDown() override {
    doing = {};
    EXPECT_EQ(descriptors, open_descriptors());
    EXPECT_TRUE(heard.one_thread());
  }

  // Starts a service that is expected to run.
  pthread_t start(int fd, unsigned opts = 0, int sec = 0, int usec = 0,
                  const socket_handler_set &handlers = all_handlers) {
    pthread_t thread = {};
    EXPECT_EQ(0, socket_select(fd, opts, sec, usec, &handlers, &thread));
    return thread;
  }

  // The end of the service whose last call is told as `exit`.
  void await_exit(const char *exit = "exit 0") {
    ASSERT_TRUE(heard.await(exit));
    await_end(heard.tid());
    EXPECT_EQ(exit, heard.all().back());
    EXPECT_EQ(1u, heard.times(exit));
  }

  // With one more connection to wake it.
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

class Listening : public Select {
 protected:
  void SetUp() override {
    Select::SetUp();
    listening = open_listening();
    doing.close = [this](int fd) { close_accepted(fd); };
    doing.accept = [this](int fd, ipport *, int) { accepted.push_back(fd); };
  }
  // What was accepted and not closed by a handler is the test's.
  void TearDown() override {
    for (const int fd : accepted)
      close(fd);
    close(listening);
    Select::TearDown();
  }
  // In a handler.
  void close_accepted(int fd) {
    close(fd);
    accepted.erase(std::remove(accepted.begin(), accepted.end(), fd), accepted.end());
  }
  int accepted_at(size_t number) {
    for (const std::string &event : heard.all())
      if (event.rfind("accept ", 0) == 0 && number-- == 0)
        return std::stoi(event.substr(7));
    return -1;
  }
  int await_accept(size_t number = 0) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    int fd;
    while ((fd = accepted_at(number)) < 0 && std::chrono::steady_clock::now() < deadline)
      usleep(200);
    return fd;
  }

  int listening = -1;
  std::vector<int> accepted;
};

class Single : public Select {
 protected:
  void SetUp() override {
    Select::SetUp();
    ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair));
  }
  void TearDown() override {
    for (const int fd : pair)
      close(fd);
    Select::TearDown();
  }
  int pair[2] = {-1, -1};
};

class Refusal : public Select {
 protected:
  // Nothing is started, and `message` is traced.
  static void expect_refusal(int fd, const std::string &message, const socket_handler_set *handlers = &all_handlers,
                             int sec = 0, int usec = 0) {
    pthread_t thread = {};
    const pthread_t before = thread;
    sandbox::clear_console();
    EXPECT_EQ(1, socket_select(fd, 0, sec, usec, handlers, &thread));
    EXPECT_TRUE(pthread_equal(before, thread));
    const auto traces = sandbox::console();
    ASSERT_EQ(1u, traces.size());
    EXPECT_FALSE(traces[0].has_process);
    EXPECT_EQ(getpid(), traces[0].thread);
    EXPECT_EQ("quorra_network", traces[0].file);
    EXPECT_EQ("socket_select", traces[0].func);
    EXPECT_EQ(message, traces[0].message);
    EXPECT_TRUE(heard.all().empty());
  }
};

class Cancellation : public testing::Test {
 protected:
  void SetUp() override {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the address sanitizer takes the stack of a cancelled thread for one in use";
#endif
  }
};

} // namespace

TEST_F(Listening, AcceptsThenTellsDataThenTheClose) {
  start(listening);
  const int client = connect_to(listening);
  ASSERT_TRUE(heard.await("cycle", 1));
  const int fd = accepted_at(0);
  say(client, "hello");
  ASSERT_TRUE(heard.await("cycle", 2));
  static std::atomic<int> still_watched;
  still_watched = -1;
  change([&] { doing.cycle = [fd](fd_set *watched, int *) { still_watched = FD_ISSET(fd, watched); }; });
  close(client);
  ASSERT_TRUE(heard.await("cycle", 3));
  EXPECT_EQ(0, still_watched);
  EXPECT_EQ(events({named("accept", fd), "cycle", named("data", fd), "cycle", named("close", fd), "cycle"}),
            heard.all());
  stop(listening);
}

TEST_F(Listening, TellsThePeerAndWhetherItIsTheHighest) {
  static ipport peers[3];
  static int highest[3];
  static std::atomic<int> count;
  count = 0;
  const int lower = next_descriptor(); // below the listening socket once that has moved up
  const int moved = fcntl(listening, F_DUPFD_CLOEXEC, listening + 20);
  close(listening);
  listening = moved;
  const int placeholder = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, lower);
  doing.accept = [this](int fd, ipport *peer, int new_highest) {
    accepted.push_back(fd);
    peers[count] = *peer;
    highest[count++] = new_highest;
  };
  // The connection's own descriptor is to be higher than the listening one, the second's lower.
  static int above;
  above = listening + 10;
  std::vector<int> clients;
  {
    const StandIn hook(interposed::accept_call, [](int at, sockaddr *address, socklen_t *length) {
      const int fd = interposed::accept_call.real(at, address, length);
      if (fd < 0 || count != 0)
        return fd;
      const int high = fcntl(fd, F_DUPFD_CLOEXEC, above);
      close(fd);
      return high;
    });
    start(listening);
    for (size_t i = 0; i < 2; i++) {
      clients.push_back(connect_to(listening));
      ASSERT_LE(0, await_accept(i));
      ASSERT_TRUE(heard.await("cycle", i + 1));
    }
  }
  EXPECT_EQ(1, highest[0]);
  EXPECT_EQ(0, highest[1]);
  EXPECT_GT(listening, accepted_at(1));
  for (size_t i = 0; i < 2; i++) {
    ipport own = {};
    EXPECT_EQ(0, get_socket_local(clients[i], &own));
    EXPECT_EQ(own.ip, peers[i].ip);
    EXPECT_EQ(own.port, peers[i].port);
    say(clients[i], "x"); // both are served, above and below
    EXPECT_TRUE(heard.await(named("data", accepted_at(i))));
  }
  stop(listening);
  for (const int client : clients)
    close(client);
  close(placeholder);
}

TEST_F(Listening, ServesManyClientsAtOnce) {
  constexpr int count = 50, rounds = 4;
  doing.data = [](int fd, uint8_t *) {
    char bytes[64];
    const ssize_t got = recv(fd, bytes, sizeof(bytes), 0);
    EXPECT_EQ(got, send(fd, bytes, static_cast<size_t>(got), MSG_NOSIGNAL));
  };
  start(listening);
  std::vector<int> clients;
  for (int i = 0; i < count; i++)
    clients.push_back(connect_to(listening));
  for (int round = 0; round < rounds; round++) {
    for (int i = 0; i < count; i++)
      say(clients[static_cast<size_t>(i)], std::to_string(1000 + i * rounds + round).c_str());
    for (int i = 0; i < count; i++) {
      char got[5] = {};
      EXPECT_EQ(4, recv(clients[static_cast<size_t>(i)], got, 4, MSG_WAITALL));
      EXPECT_EQ(std::to_string(1000 + i * rounds + round), got);
    }
  }
  std::vector<std::string> all = heard.all();
  EXPECT_EQ(count, std::count_if(all.begin(), all.end(),
                                 [](const std::string &event) { return event.rfind("accept ", 0) == 0; }));
  for (int i = 0; i < count; i += 2)
    close(clients[static_cast<size_t>(i)]);
  for (int i = 1; i < count; i += 2)
    reset(clients[static_cast<size_t>(i)]);
  std::vector<int> served;
  for (size_t i = 0; i < count; i++)
    served.push_back(accepted_at(i));
  for (const int fd : served)
    EXPECT_TRUE(heard.await(named("close", fd)));
  stop(listening);
  EXPECT_EQ("exit 0", heard.all().back());
}

TEST_F(Listening, AcceptsOneConnectionInACycle) {
  std::vector<int> clients;
  for (int i = 0; i < 3; i++)
    clients.push_back(connect_to(listening));
  start(listening);
  ASSERT_TRUE(heard.await("cycle", 3));
  const std::vector<std::string> all = heard.all();
  for (size_t i = 0; i < 3; i++) {
    EXPECT_EQ(0u, all[2 * i].rfind("accept ", 0));
    EXPECT_EQ("cycle", all[2 * i + 1]);
  }
  stop(listening);
  for (const int client : clients)
    close(client);
}

TEST_F(Listening, DataLeftUnreadIsToldAgain) {
  doing.data = [](int fd, uint8_t *) {
    char byte;
    EXPECT_EQ(1, recv(fd, &byte, 1, 0));
  };
  start(listening);
  const int client = connect_to(listening);
  say(client, "abc");
  close(client);
  const int fd = await_accept();
  ASSERT_TRUE(heard.await(named("close", fd)));
  EXPECT_EQ(3u, heard.times(named("data", fd)));
  stop(listening);
}

TEST_F(Listening, APeerThatVanishesIsAClose) {
  start(listening);
  const int client = connect_to(listening);
  const int fd = await_accept();
  reset(client);
  EXPECT_TRUE(heard.await(named("close", fd)));
  stop(listening);
}

TEST_F(Listening, OneShotWatchesAConnectionUntilItsFirstData) {
  static std::atomic<int> again;
  static std::atomic<bool> was_watched;
  again = -1;
  was_watched = false;
  doing.cycle = [](fd_set *watched, int *) {
    if (again >= 0 && watched) {
      was_watched = FD_ISSET(again, watched);
      FD_SET(again, watched);
      again = -1;
    }
  };
  doing.data = [](int fd, uint8_t *remove) {
    EXPECT_EQ(0, *remove);
    char byte;
    EXPECT_EQ(1, recv(fd, &byte, 1, 0)); // of two
  };
  start(listening, SOCKET_OPT_ONESHOT);
  const int client = connect_to(listening);
  const int fd = await_accept();
  say(client, "ab");
  ASSERT_TRUE(heard.await(named("data", fd)));
  // Cycles without it, although it has data.
  const int other = connect_to(listening);
  ASSERT_LE(0, await_accept(1));
  ASSERT_TRUE(heard.await("cycle", 3));
  EXPECT_EQ(1u, heard.times(named("data", fd)));
  again = fd;
  const int third = connect_to(listening);
  EXPECT_TRUE(heard.await(named("data", fd), 2));
  EXPECT_FALSE(was_watched);
  stop(listening);
  close(client);
  close(other);
  close(third);
}

TEST_F(Listening, ARemovedConnectionIsWatchedNoLonger) {
  doing.data = [this](int fd, uint8_t *remove) {
    EXPECT_EQ(0, *remove);
    *remove = 1;
    close_accepted(fd); // would end a service that still watched it
  };
  start(listening);
  std::map<int, size_t> connections; // by descriptor: the numbers come again
  for (size_t i = 0; i < 3; i++) {
    const int client = connect_to(listening);
    const int fd = await_accept(i);
    say(client, "bye");
    EXPECT_TRUE(heard.await(named("data", fd), ++connections[fd]));
    close(client);
  }
  stop(listening);
  EXPECT_EQ(0u, heard.times("error 2"));
}

TEST_F(Listening, AnyRemoveFlagThatIsNotZeroCounts) {
  static std::atomic<bool> watched_after;
  watched_after = true;
  doing.data = [](int, uint8_t *remove) { *remove = 0x80; };
  start(listening);
  const int client = connect_to(listening);
  const int fd = await_accept();
  change([&] { doing.cycle = [fd](fd_set *watched, int *) { watched_after = FD_ISSET(fd, watched); }; });
  say(client, "x");
  ASSERT_TRUE(heard.await(named("data", fd)));
  ASSERT_TRUE(heard.await("cycle", 2));
  EXPECT_FALSE(watched_after);
  stop(listening);
  close(client);
}

TEST_F(Listening, ServesDescriptorsThatACycleAdds) {
  int pair[2];
  ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair)); // between listening and accepted
  const int added = pair[0];
  doing.cycle = [added](fd_set *watched, int *) {
    if (heard.times("cycle") == 0)
      FD_SET(added, watched);
  };
  doing.close = [](int) {};
  start(listening);
  const int client = connect_to(listening);
  ASSERT_TRUE(heard.await("cycle"));
  ASSERT_GT(accepted_at(0), added);
  say(pair[1], "x");
  EXPECT_TRUE(heard.await(named("data", added)));
  close(pair[1]);
  EXPECT_TRUE(heard.await(named("close", added)));
  stop(listening);
  close(pair[0]);
  close(client);
}

TEST_F(Listening, DoesNotServeWhatACycleTakesAway) {
  static std::atomic<int> away;
  away = -1;
  doing.cycle = [](fd_set *watched, int *) {
    if (away >= 0)
      FD_CLR(away, watched);
  };
  start(listening);
  const int client = connect_to(listening);
  const int fd = await_accept();
  ASSERT_TRUE(heard.await("cycle"));
  away = fd;
  const int other = connect_to(listening);
  ASSERT_TRUE(heard.await("cycle", 2));
  say(client, "unheard");
  const int third = connect_to(listening);
  ASSERT_TRUE(heard.await("cycle", 3));
  EXPECT_EQ(0u, heard.times(named("data", fd)));
  stop(listening);
  for (const int one : {client, other, third})
    close(one);
}

TEST_F(Listening, TellsAFailureToAcceptAndGoesOn) {
  static std::atomic<int> failures;
  failures = 0;
  std::string told;
  int client;
  {
    sandbox::Captured errors(STDERR_FILENO);
    const StandIn hook(interposed::accept_call, [](int at, sockaddr *address, socklen_t *length) {
      EXPECT_EQ(16u, *length);
      if (failures++ == 0)
        return interposed::fail(ECONNABORTED);
      return interposed::accept_call.real(at, address, length);
    });
    start(listening);
    client = connect_to(listening);
    const int fd = await_accept();
    ASSERT_TRUE(heard.await("cycle", 2));
    EXPECT_EQ(events({"cycle", named("accept", fd), "cycle"}), heard.all());
    told = errors.text();
  }
  EXPECT_EQ("accept:: Software caused connection abort\n", told);
  stop(listening);
  close(client);
}

TEST_F(Listening, AsksAgainAtOnceForAConnectionThatIsNotThere) {
  static std::atomic<int> failures;
  failures = 0;
  std::string told;
  int client;
  {
    sandbox::Captured errors(STDERR_FILENO);
    const StandIn hook(interposed::accept_call, [](int at, sockaddr *address, socklen_t *length) {
      if (failures++ < 100)
        return interposed::fail(EAGAIN);
      return interposed::accept_call.real(at, address, length);
    });
    start(listening);
    client = connect_to(listening);
    const int fd = await_accept();
    ASSERT_TRUE(heard.await("cycle"));
    EXPECT_EQ(events({named("accept", fd), "cycle"}), heard.all());
    told = errors.text();
  }
  EXPECT_EQ(101, failures);
  EXPECT_EQ("", told);
  stop(listening);
  close(client);
}

TEST_F(Listening, ClosesAConnectionThatNoSetCanHold) {
  rlimit usual;
  getrlimit(RLIMIT_NOFILE, &usual);
  const rlimit more = {std::min<rlim_t>(4096, usual.rlim_max), usual.rlim_max};
  if (more.rlim_cur <= 1024 || setrlimit(RLIMIT_NOFILE, &more) != 0)
    GTEST_SKIP() << "no descriptors from 1024 on";
  {
    const StandIn hook(interposed::accept_call, [](int at, sockaddr *address, socklen_t *length) {
      const int fd = interposed::accept_call.real(at, address, length);
      const int high = fcntl(fd, F_DUPFD_CLOEXEC, 1024);
      close(fd);
      return high;
    });
    start(listening);
    const int client = connect_to(listening);
    char byte;
    EXPECT_EQ(0, recv(client, &byte, 1, 0));
    ASSERT_TRUE(heard.await("cycle"));
    EXPECT_EQ(events({"cycle"}), heard.all());
    close(client);
  }
  const auto traces = service_traces();
  ASSERT_FALSE(traces.empty());
  EXPECT_EQ("fd 1024 can't be watched, closed\n", traces.back().message);
  EXPECT_EQ("socket_select_hdlr", traces.back().func);
  EXPECT_TRUE(traces.back().has_process);
  const int last = connect_to(listening); // 1023 is one that can
  const int fd = await_accept();
  EXPECT_LE(0, fd);
  stop(listening);
  close(last);
  setrlimit(RLIMIT_NOFILE, &usual);
}

TEST_F(Listening, AFailingSelectEndsItAfterOneMoreCycle) {
  // Below the highest, and nothing that is open.
  static constexpr int bad = 799;
  std::string told;
  int client, awaited;
  doing.error = [](int) { errno = 0; }; // as a handler may leave it
  doing.cycle = [](fd_set *watched, int *) { FD_SET(bad, watched); };
  {
    sandbox::Captured errors(STDERR_FILENO);
    const StandIn hook(interposed::accept_call, [](int at, sockaddr *address, socklen_t *length) {
      const int fd = interposed::accept_call.real(at, address, length);
      if (fd < 0)
        return fd;
      const int high = fcntl(fd, F_DUPFD_CLOEXEC, bad + 1);
      close(fd);
      return high;
    });
    start(listening);
    client = connect_to(listening);
    ASSERT_TRUE(heard.await("error 2"));
    // The last cycle takes everything for ready, and waits for a connection to accept.
    awaited = connect_to(listening);
    await_exit();
    told = errors.text();
  }
  EXPECT_EQ("SOCKET_EXIT_SELECT_ERR:: Bad file descriptor\n", told);
  EXPECT_EQ(events({"accept 800", "cycle", "error 2", "accept 801", "close 799", "close 800", "cycle", "exit 0"}),
            heard.all());
  close(client);
  close(awaited);
}

TEST_F(Listening, TracesItsStartAndItsEnd) {
  const pthread_t thread = start(listening);
  const int client = connect_to(listening);
  ASSERT_TRUE(heard.await("cycle"));
  static std::atomic<bool> traced_before;
  traced_before = false;
  doing.exit = [](int) { traced_before = sandbox::console_text().find(exit_trace()) != std::string::npos; };
  stop(listening);
  EXPECT_TRUE(traced_before);
  const std::string tid = std::to_string(heard.tid()), pid = std::to_string(getpid());
  std::vector<sandbox::Trace> starter, service;
  for (const sandbox::Trace &trace : sandbox::console()) {
    EXPECT_EQ("quorra_network", trace.file);
    (trace.has_process ? service : starter).push_back(trace);
  }
  ASSERT_EQ(1u, starter.size());
  EXPECT_EQ("socket_select", starter[0].func);
  EXPECT_EQ("main process get thread id=" + std::to_string(static_cast<int>(thread)) + "\n", starter[0].message);
  ASSERT_EQ(2u, service.size());
  EXPECT_EQ("[" + pid + "|" + tid + "]Thread Create[socket_select_hdlr]\n", service[0].message);
  EXPECT_EQ(exit_trace(), service[1].message);
  for (const sandbox::Trace &trace : service) {
    EXPECT_EQ("socket_select_hdlr", trace.func);
    EXPECT_EQ(getpid(), trace.process);
    EXPECT_EQ(heard.tid(), trace.thread);
  }
  EXPECT_NE(getpid(), heard.tid());
  close(client);
}

TEST_F(Listening, WorksWithoutAConsole) {
  const sandbox::UnopenableConsole away;
  start(listening);
  const int client = connect_to(listening);
  EXPECT_LE(0, await_accept());
  stop(listening);
  close(client);
}

TEST_F(Single, IsWatchedUntilItsPeerCloses) {
  static std::atomic<bool> traced_before;
  traced_before = true;
  doing.exit = [](int) { traced_before = sandbox::console_text().find("Exit pid=") != std::string::npos; };
  doing.data = [](int fd, uint8_t *remove) {
    EXPECT_EQ(0, *remove);
    *remove = 1; // counts for nothing, nor does one-shot
    char bytes[64];
    EXPECT_LT(0, recv(fd, bytes, sizeof(bytes), 0));
  };
  start(pair[0], SOCKET_OPT_ONESHOT);
  for (size_t i = 1; i <= 3; i++) {
    say(pair[1], "x");
    ASSERT_TRUE(heard.await("cycle", i));
  }
  shutdown(pair[1], SHUT_WR);
  await_exit("exit 3");
  const std::string data = named("data", pair[0]);
  EXPECT_EQ(events({data, "cycle", data, "cycle", data, "cycle", named("close", pair[0]), "exit 3"}), heard.all());
  EXPECT_FALSE(traced_before);
  const auto traces = service_traces();
  EXPECT_EQ(exit_trace(), traces.back().message);
  EXPECT_EQ("socket_select_hdlr", traces.back().func);
  EXPECT_NE(-1, fcntl(pair[0], F_GETFD)); // left open
}

TEST_F(Single, EndsWithTheCycleThatSetsTheExitFlag) {
  start(pair[0]);
  stopping = true;
  say(pair[1], "x");
  await_exit();
  EXPECT_EQ(events({named("data", pair[0]), "cycle", "exit 0"}), heard.all());
  const std::vector<std::string> messages = sandbox::console_messages();
  EXPECT_EQ(1, std::count(messages.begin(), messages.end(), exit_trace()));
  EXPECT_EQ(0, std::count(messages.begin(), messages.end(), flag_trace()));
}

TEST_F(Single, EndsWithAQuietCycleThatSetsTheExitFlag) {
  static std::atomic<bool> watched;
  watched = false;
  const int fd = pair[0];
  doing.timeout = [fd](fd_set *set) { watched = set && FD_ISSET(fd, set); };
  doing.cycle = [](fd_set *set, int *exit_flag) {
    EXPECT_EQ(nullptr, set);
    if (heard.times("timeout") == 3)
      *exit_flag = 1;
  };
  start(pair[0], 0, 0, 2000);
  await_exit();
  EXPECT_EQ(events({"timeout", "quiet cycle", "timeout", "quiet cycle", "timeout", "quiet cycle", "exit 0"}),
            heard.all());
  EXPECT_TRUE(watched);
  const auto traces = service_traces();
  ASSERT_EQ(3u, traces.size());
  EXPECT_EQ(flag_trace(), traces[traces.size() - 2].message);
  EXPECT_EQ(exit_trace(), traces.back().message);
  EXPECT_EQ("socket_select_hdlr", traces[traces.size() - 2].func);
  EXPECT_TRUE(traces[traces.size() - 2].has_process);
}

TEST_F(Single, EndsForNoOtherValueOfTheFlagAndKeepsIt) {
  static std::atomic<int> values[4];
  for (auto &value : values)
    value = 77;
  doing.cycle = [](fd_set *, int *exit_flag) {
    const size_t number = heard.times("quiet cycle");
    static constexpr int written[] = {2, -1, 0x100, 1};
    if (number < 4) {
      values[number] = *exit_flag;
      *exit_flag = written[number];
    }
  };
  start(pair[0], 0, 0, 1000);
  await_exit();
  EXPECT_EQ(4u, heard.times("quiet cycle"));
  EXPECT_EQ(0, values[0]);
  EXPECT_EQ(2, values[1]);
  EXPECT_EQ(-1, values[2]);
  EXPECT_EQ(0x100, values[3]);
}

TEST_F(Single, GivesSelectTheSameTimeOutEveryTime) {
  static std::atomic<int> calls, wrong;
  calls = wrong = 0;
  const StandIn hook(interposed::select_call, [](int count, fd_set *set, fd_set *w, fd_set *e, timeval *timeout) {
    if (!timeout || timeout->tv_sec != 7 || timeout->tv_usec != 5 || w || e)
      wrong++;
    if (calls++ < 3) {
      timeout->tv_sec = 0; // as the kernel counts it down
      timeout->tv_usec = 0;
      FD_ZERO(set);
      errno = calls == 2 ? EAGAIN : EINTR;
      return -1; // and again, in silence
    }
    return interposed::select_call.real(count, set, w, e, timeout);
  });
  stopping = true;
  start(pair[0], 0, 7, 5);
  say(pair[1], "x");
  await_exit();
  EXPECT_EQ(4, calls);
  EXPECT_EQ(0, wrong);
  EXPECT_EQ(events({named("data", pair[0]), "cycle", "exit 0"}), heard.all());
}

TEST_F(Single, WithoutATimeOutWaitsForEver) {
  static std::atomic<int> calls, with_timeout;
  calls = with_timeout = 0;
  const StandIn hook(interposed::select_call, [](int count, fd_set *set, fd_set *w, fd_set *e, timeval *timeout) {
    with_timeout += timeout != nullptr;
    calls++;
    return interposed::select_call.real(count, set, w, e, timeout);
  });
  socket_handler_set handlers = all_handlers;
  handlers.on_timeout = nullptr;
  handlers.on_accept = nullptr;
  stopping = true;
  start(pair[0], 0, 0, 0, handlers);
  say(pair[1], "x");
  await_exit();
  EXPECT_EQ(1, calls);
  EXPECT_EQ(0, with_timeout);
}

TEST_F(Single, GoesOnAfterASignal) {
  struct sigaction interrupt = {}, usual;
  static std::atomic<int> signals, interrupted;
  signals = interrupted = 0;
  interrupt.sa_handler = [](int) { signals++; };
  ASSERT_EQ(0, sigaction(SIGUSR1, &interrupt, &usual));
  const StandIn hook(interposed::select_call, [](int count, fd_set *set, fd_set *w, fd_set *e, timeval *timeout) {
    const int result = interposed::select_call.real(count, set, w, e, timeout);
    interrupted += result == -1 && errno == EINTR;
    return result;
  });
  start(pair[0]);
  say(pair[1], "x");
  ASSERT_TRUE(heard.await("cycle"));
  for (int tries = 0; interrupted == 0 && tries < 10000; tries++) {
    syscall(SYS_tgkill, getpid(), heard.tid(), SIGUSR1);
    usleep(500);
  }
  EXPECT_LT(0, interrupted);
  stopping = true;
  say(pair[1], "x");
  await_exit();
  EXPECT_EQ(events({named("data", pair[0]), "cycle", named("data", pair[0]), "cycle", "exit 0"}), heard.all());
  sigaction(SIGUSR1, &usual, nullptr);
}

TEST_F(Single, ANegativeTimeOutIsOneThatSelectRefuses) {
  for (const int sec : {-1, 0}) {
    heard.clear();
    std::string told;
    {
      sandbox::Captured errors(STDERR_FILENO);
      start(pair[0], 0, sec, sec ? 0 : -1);
      await_exit("exit 3"); // the last cycle finds it ready, with nothing to read
      told = errors.text();
    }
    EXPECT_EQ("SOCKET_EXIT_SELECT_ERR:: Invalid argument\n", told);
    EXPECT_EQ(events({"error 2", named("close", pair[0]), "exit 3"}), heard.all());
  }
}

TEST_F(Single, AFailingSelectStillServesWhatWaits) {
  say(pair[1], "x");
  sandbox::Captured errors(STDERR_FILENO);
  start(pair[0], 0, -1, 0);
  await_exit();
  EXPECT_EQ(events({"error 2", named("data", pair[0]), "cycle", "exit 0"}), heard.all());
  descriptors++; // the saved one of `errors`
  const int now = open_descriptors();
  EXPECT_EQ(descriptors + 2, now); // and the pair
  descriptors--;
}

TEST_F(Single, AnEmptyDatagramIsAClose) {
  int datagrams[2];
  ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, datagrams));
  start(datagrams[0]);
  say(datagrams[1], "full");
  ASSERT_TRUE(heard.await("cycle"));
  ASSERT_EQ(0, send(datagrams[1], "", 0, 0));
  await_exit("exit 3");
  EXPECT_EQ(events({named("data", datagrams[0]), "cycle", named("close", datagrams[0]), "exit 3"}), heard.all());
  close(datagrams[0]);
  close(datagrams[1]);
}

TEST_F(Single, NeedsNoCycleHandler) {
  socket_handler_set handlers = all_handlers;
  handlers.on_cycle = nullptr;
  start(pair[0], 0, 0, 1000, handlers);
  ASSERT_TRUE(heard.await("timeout"));
  say(pair[1], "x");
  ASSERT_TRUE(heard.await(named("data", pair[0])));
  shutdown(pair[1], SHUT_WR);
  await_exit("exit 3");
}

TEST_F(Single, ThatCannotBeCancelledEndsAtOnce) {
  const StandIn hook(interposed::pthread_setcanceltype_call, [](int type, int *) {
    EXPECT_EQ(PTHREAD_CANCEL_ASYNCHRONOUS, type);
    return EINVAL;
  });
  say(pair[1], "unheard");
  start(pair[0]);
  await_exit();
  EXPECT_EQ(events({"error 1", "exit 0"}), heard.all());
  EXPECT_EQ(exit_trace(), service_traces().back().message);
}

TEST_F(Single, TakesACopyOfTheHandlers) {
  socket_handler_set handlers = all_handlers;
  start(pair[0], 0, 0, 0, handlers);
  memset(&handlers, 0, sizeof(handlers));
  stopping = true;
  say(pair[1], "x");
  await_exit();
}

TEST_F(Refusal, OfMissingHandlers) {
  const int listening = open_listening();
  int pair[2];
  ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair));
  const std::string message = "pthread handler set error\n";
  socket_handler_set handlers = all_handlers;
  handlers.on_accept = nullptr;
  expect_refusal(listening, message, &handlers);
  handlers = all_handlers;
  handlers.on_cycle = nullptr;
  expect_refusal(listening, message, &handlers);
  for (const int fd : {listening, pair[0]}) {
    handlers = all_handlers;
    handlers.on_data = nullptr;
    expect_refusal(fd, message, &handlers);
    handlers = all_handlers;
    handlers.on_close = nullptr;
    expect_refusal(fd, message, &handlers);
    handlers = all_handlers;
    handlers.on_error = nullptr;
    expect_refusal(fd, message, &handlers);
    handlers = all_handlers;
    handlers.on_exit = nullptr;
    expect_refusal(fd, message, &handlers);
    handlers = all_handlers;
    handlers.on_timeout = nullptr;
    expect_refusal(fd, message, &handlers, 1, 0);
    expect_refusal(fd, message, &handlers, 0, 1);
    expect_refusal(fd, message, &handlers, -1, 0);
  }
  handlers = all_handlers;
  handlers.on_timeout = nullptr;
  expect_refusal(-1, message, &handlers, 1, 0); // looked at before the socket
  for (const int fd : {listening, pair[0], pair[1]})
    close(fd);
}

TEST_F(Refusal, OfWhatIsNoSocket) {
  int pipes[2];
  ASSERT_EQ(0, pipe2(pipes, O_CLOEXEC));
  expect_refusal(pipes[0], "fd " + std::to_string(pipes[0]) + " isn't a Socket FD\n");
  close(pipes[0]);
  close(pipes[1]);
  expect_refusal(pipes[0], "getsockopt fail\n");
  expect_refusal(-1, "getsockopt fail\n");
  expect_refusal(INT_MIN, "getsockopt fail\n");
}

TEST_F(Refusal, OfADescriptorThatNoSetCanHold) {
  rlimit usual;
  getrlimit(RLIMIT_NOFILE, &usual);
  const rlimit more = {std::min<rlim_t>(4096, usual.rlim_max), usual.rlim_max};
  expect_refusal(INT_MAX, "pthread handler set error\n");
  if (more.rlim_cur <= 1024 || setrlimit(RLIMIT_NOFILE, &more) != 0)
    GTEST_SKIP() << "no descriptors from 1024 on";
  int pair[2];
  ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair));
  const int first_too_high = fcntl(pair[0], F_DUPFD_CLOEXEC, 1024), last = fcntl(pair[0], F_DUPFD_CLOEXEC, 1023);
  ASSERT_EQ(1024, first_too_high);
  expect_refusal(first_too_high, "pthread handler set error\n");
  close(first_too_high);
  ASSERT_EQ(1023, last);
  stopping = true;
  start(last);
  say(pair[1], "x");
  await_exit();
  for (const int fd : {last, pair[0], pair[1]})
    close(fd);
  setrlimit(RLIMIT_NOFILE, &usual);
}

TEST_F(Refusal, OfNull) {
  int pair[2];
  ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair));
  expect_refusal(pair[0], "error args!!\n", nullptr);
  sandbox::clear_console();
  EXPECT_EQ(1, socket_select(pair[0], 0, 0, 0, &all_handlers, nullptr));
  EXPECT_EQ(std::vector<std::string>{"error args!!\n"}, sandbox::console_messages());
  EXPECT_EQ(nullptr, socket_select_hdlr(nullptr));
  close(pair[0]);
  close(pair[1]);
}

TEST_F(Refusal, WithoutMemory) {
  int pair[2];
  ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair));
  pthread_t thread = {};
  sandbox::fail_allocation(1);
  const int result = socket_select(pair[0], 0, 0, 0, &all_handlers, &thread);
  const bool failed = sandbox::allocation_failed();
  sandbox::fail_allocation(0);
  EXPECT_TRUE(failed);
  EXPECT_EQ(1, result);
  EXPECT_EQ(std::vector<std::string>{"malloc fail!!\n"}, sandbox::console_messages());
  EXPECT_TRUE(heard.all().empty());
  close(pair[0]);
  close(pair[1]);
}

TEST_F(Refusal, WithoutAThread) {
  int pair[2];
  ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair));
  const StandIn hook(interposed::pthread_create_call,
                     [](pthread_t *, const pthread_attr_t *, void *(*)(void *), void *) { return EAGAIN; });
  expect_refusal(pair[0], "pthread create error\n");
  close(pair[0]);
  close(pair[1]);
}

// In processes of their own: the record of a cancelled service is lost.

namespace {

// Handlers that hold nothing, as ones must that may be cancelled anywhere.
volatile int spins;
std::atomic<int> seen_tid, data_calls, cycle_calls;

void spin_on_data(int tid, int, uint8_t *) {
  seen_tid = tid;
  data_calls++;
  for (;;)
    spins = spins + 1;
}

void read_on_data(int tid, int fd, uint8_t *) {
  seen_tid = tid;
  char bytes[512];
  if (interposed::recvfrom_call.real(fd, bytes, sizeof(bytes), MSG_DONTWAIT, nullptr, nullptr) > 0)
    data_calls++;
}

void count_cycle(int tid, fd_set *, int *) {
  seen_tid = tid;
  cycle_calls++;
}

constexpr socket_handler_set holding_nothing = {[](int, int fd, ipport *, int) { close(fd); },
                                                read_on_data,
                                                [](int, int) {},
                                                count_cycle,
                                                [](int, fd_set *) {},
                                                [](int, int) {},
                                                [](int, int) { _exit(99); }}; // never

bool gone(int tid) {
  for (int tries = 0; tries < 60000; tries++) {
    if (syscall(SYS_tgkill, getpid(), tid, 0) != 0)
      return true;
    usleep(1000);
  }
  return false;
}

// The C library still works for the rest: no lock of its own was taken with the thread.
bool everything_works() {
  void *blocks[64];
  for (void *&block : blocks)
    block = malloc(100);
  for (void *block : blocks)
    free(block);
  errno = 0;
  perror("still here");
  uint32_t ip;
  return get_aliasIp_by_ifname("no-such0", &ip) == 1 && fflush(nullptr) == 0;
}

} // namespace

TEST_F(Cancellation, EndsAServiceThatWaits) {
  EXPECT_EQ(0, sandbox::in_child([] {
              alarm(60);
              int pair[2];
              pthread_t thread;
              if (socketpair(AF_UNIX, SOCK_STREAM, 0, pair) != 0)
                return 1;
              if (socket_select(pair[0], 0, 0, 0, &holding_nothing, &thread) != 0)
                return 2;
              if (write(pair[1], "x", 1) != 1)
                return 3;
              while (cycle_calls == 0)
                usleep(200);
              if (pthread_cancel(thread) != 0 || !gone(seen_tid))
                return 4;
              if (fcntl(pair[0], F_GETFD) == -1)
                return 5;
              return sandbox::console_text().find("Exit pid=") == std::string::npos ? 0 : 6;
            }));
}

TEST_F(Cancellation, EndsAServiceWhoseHandlerNeverReturns) {
  EXPECT_EQ(0, sandbox::in_child([] {
              alarm(60);
              int pair[2];
              pthread_t thread;
              socket_handler_set handlers = holding_nothing;
              handlers.on_data = spin_on_data;
              if (socketpair(AF_UNIX, SOCK_STREAM, 0, pair) != 0)
                return 1;
              if (socket_select(pair[0], 0, 0, 0, &handlers, &thread) != 0)
                return 2;
              if (write(pair[1], "x", 1) != 1)
                return 3;
              while (data_calls == 0)
                usleep(200);
              return pthread_cancel(thread) == 0 && gone(seen_tid) ? 0 : 4;
            }));
}

TEST_F(Cancellation, AtAnyMomentTakesNoLockWithIt) {
#if defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the thread sanitizer has locks of its own that a cancelled thread takes with it";
#endif
  sandbox::Captured errors(STDERR_FILENO);
  EXPECT_EQ(0, sandbox::in_child([] {
              alarm(100);
              // Every accept fails and is told, so that most of the time is spent on standard error.
              interposed::accept_call.stand_in([](int, sockaddr *, socklen_t *) { return interposed::fail(EMFILE); });
              const int listening = open_listening();
              const int client = connect_to(listening);
              for (int round = 0; round < 40; round++) {
                cycle_calls = 0;
                pthread_t thread;
                if (socket_select(listening, 0, 0, 0, &holding_nothing, &thread) != 0)
                  return 1;
                while (cycle_calls < 1 + round * 3)
                  sched_yield();
                if (pthread_cancel(thread) != 0 || !gone(seen_tid))
                  return 2;
                if (!everything_works())
                  return 3;
              }
              close(client);
              return 0;
            }));
  const std::string told = errors.text();
  EXPECT_NE(std::string::npos, told.find("accept:: Too many open files\n"));
}
