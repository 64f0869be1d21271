// These tests run the select service on a single socket: its cycles, its time-outs and its end.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <vector>

#include "interposed.h"
#include "select_service.h"
#include "support/sandbox.h"
#include "torvane.h"

namespace {

using interposed::StandIn;
using namespace network;
using sandbox::open_descriptors;

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

} // namespace

TEST_F(Single, IsWatchedUntilItsPeerCloses) {
  static std::atomic<bool> traced_before;
  traced_before = true;
  doing.exit = [](int) { traced_before = sandbox::console_text().find("Exit pid=") != std::string::npos; };
  doing.data = [](int fd, uint8_t *remove) {
    EXPECT_EQ(0, *remove);
    *remove = 1; // neither this nor one-shot counts for a single socket
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
      return -1; // the service asks again, in silence
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
  descriptors++; // `errors` keeps one open
  const int now = open_descriptors();
  EXPECT_EQ(descriptors + 2, now); // the pair is still open
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
