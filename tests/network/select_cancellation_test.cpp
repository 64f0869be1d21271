// These tests cancel the thread of a select service, in processes of their own: the record of a cancelled service is
// lost.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <string>

#include "interposed.h"
#include "select_service.h"
#include "support/child_process.h"
#include "support/sandbox.h"
#include "torvane.h"

namespace {

using network::connect_to;
using network::open_listening;

class Cancellation : public testing::Test {
 protected:
  void SetUp() override {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the address sanitizer takes the stack of a cancelled thread for one in use";
#endif
    sandbox::clear_console();
  }
};

// These handlers hold nothing, because the thread may be cancelled at any of their instructions.
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
                                                [](int, int) { _exit(99); }}; // a cancelled service never calls it

// Starts a service on one end of a pair of sockets and writes to the other. Returns 0, or the number of the step that
// failed.
int start_with_data(const socket_handler_set &handlers, int (&pair)[2], pthread_t &thread) {
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, pair) != 0)
    return 1;
  if (socket_select(pair[0], 0, 0, 0, &handlers, &thread) != 0)
    return 2;
  return write(pair[1], "x", 1) == 1 ? 0 : 3;
}

bool gone(int tid) {
  for (int tries = 0; tries < 60000; tries++) {
    if (syscall(SYS_tgkill, getpid(), tid, 0) != 0)
      return true;
    usleep(1000);
  }
  return false;
}

// Returns whether the C library still works: the cancelled thread must not have kept one of its locks.
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
              if (const int failed = start_with_data(holding_nothing, pair, thread); failed != 0)
                return failed;
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
              if (const int failed = start_with_data(handlers, pair, thread); failed != 0)
                return failed;
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
              // Every accept fails and is reported, so that the thread spends most of its time on standard error.
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
