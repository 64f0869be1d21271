// These tests run the select service on a listening socket: it accepts connections, and tells their data and ends.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "interposed.h"
#include "select_service.h"
#include "support/sandbox.h"
#include "torvane.h"

namespace {

using interposed::StandIn;
using namespace network;

class Listening : public Select {
 protected:
  void SetUp() override {
    Select::SetUp();
    listening = open_listening();
    doing.close = [this](int fd) { close_accepted(fd); };
    doing.accept = [this](int fd, ipport *, int) { accepted.push_back(fd); };
  }
  // Closes the accepted connections that no handler has closed.
  void TearDown() override {
    for (const int fd : accepted)
      close(fd);
    close(listening);
    Select::TearDown();
  }
  // To be called in a handler.
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
  // Has a service accept one client in its n-th cycle while `stand_in` replaces accept(). Returns what the service
  // wrote to standard error until then.
  std::string accept_one_in_cycle(size_t n, int (*stand_in)(int, sockaddr *, socklen_t *)) {
    std::string told;
    int client;
    {
      sandbox::Captured errors(STDERR_FILENO);
      const StandIn hook(interposed::accept_call, stand_in);
      start(listening);
      client = connect_to(listening);
      const int fd = await_accept();
      EXPECT_TRUE(heard.await("cycle", n));
      std::vector<std::string> expected(n - 1, "cycle");
      expected.insert(expected.end(), {named("accept", fd), "cycle"});
      EXPECT_EQ(expected, heard.all());
      told = errors.text();
    }
    stop(listening);
    close(client);
    return told;
  }

  int listening = -1;
  std::vector<int> accepted;
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
  // The first connection's descriptor is to be higher than the listening one, the second's lower.
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
    say(clients[i], "x"); // descriptors on both sides of the listening one are served
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
    EXPECT_EQ(1, recv(fd, &byte, 1, 0)); // one of two bytes
  };
  start(listening, SOCKET_OPT_ONESHOT);
  const int client = connect_to(listening);
  const int fd = await_accept();
  say(client, "ab");
  ASSERT_TRUE(heard.await(named("data", fd)));
  // The next cycles leave the connection out, although it has data.
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
    close_accepted(fd); // a service that still watched it would end
  };
  start(listening);
  std::map<int, size_t> connections; // counted by descriptor, because the numbers come again
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
  ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0,
                          pair)); // its numbers lie between the listening and the accepted one
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
  EXPECT_EQ("accept:: Software caused connection abort\n",
            accept_one_in_cycle(2, [](int at, sockaddr *address, socklen_t *length) {
              EXPECT_EQ(16u, *length);
              if (failures++ == 0)
                return interposed::fail(ECONNABORTED);
              return interposed::accept_call.real(at, address, length);
            }));
}

TEST_F(Listening, AsksAgainAtOnceForAConnectionThatIsNotThere) {
  static std::atomic<int> failures;
  failures = 0;
  EXPECT_EQ("", accept_one_in_cycle(1, [](int at, sockaddr *address, socklen_t *length) {
              if (failures++ < 100)
                return interposed::fail(EAGAIN);
              return interposed::accept_call.real(at, address, length);
            }));
  EXPECT_EQ(101, failures);
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
  // This number is below the highest, and not open.
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
    // The last cycle takes every descriptor for ready, and waits for a connection to accept.
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
