// These tests ask for select services that cannot be started.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "interposed.h"
#include "select_service.h"
#include "support/sandbox.h"
#include "torvane.h"

namespace {

using interposed::StandIn;
using namespace network;

class Refusal : public Select {
 protected:
  // Returns all handlers but one. The next call overwrites them.
  template <typename Handler>
  const socket_handler_set *without(Handler socket_handler_set::*missing) {
    handlers_ = all_handlers;
    handlers_.*missing = nullptr;
    return &handlers_;
  }
  // Expects that no service starts and that `message` is traced.
  static void expect_refusal(int fd, const std::string &message, const socket_handler_set *handlers = &all_handlers,
                             int sec = 0, int usec = 0) {
    pthread_t thread = {};
    const pthread_t before = thread;
    sandbox::clear_console();
    EXPECT_EQ(1, socket_select(fd, 0, sec, usec, handlers, &thread));
    EXPECT_TRUE(pthread_equal(before, thread));
    expect_trace("socket_select", message);
    EXPECT_TRUE(heard.all().empty());
  }

 private:
  socket_handler_set handlers_;
};

} // namespace

TEST_F(Refusal, OfMissingHandlers) {
  const int listening = open_listening();
  int pair[2];
  ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair));
  const std::string message = "pthread handler set error\n";
  expect_refusal(listening, message, without(&socket_handler_set::on_accept));
  expect_refusal(listening, message, without(&socket_handler_set::on_cycle));
  for (const int fd : {listening, pair[0]}) {
    expect_refusal(fd, message, without(&socket_handler_set::on_data));
    expect_refusal(fd, message, without(&socket_handler_set::on_close));
    expect_refusal(fd, message, without(&socket_handler_set::on_error));
    expect_refusal(fd, message, without(&socket_handler_set::on_exit));
    expect_refusal(fd, message, without(&socket_handler_set::on_timeout), 1, 0);
    expect_refusal(fd, message, without(&socket_handler_set::on_timeout), 0, 1);
    expect_refusal(fd, message, without(&socket_handler_set::on_timeout), -1, 0);
  }
  expect_refusal(-1, message, without(&socket_handler_set::on_timeout), 1,
                 0); // the handlers are checked before the socket
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

TEST_F(Refusal, OfNullComesWhereItIsUsed) {
  const struct {
    int fd, sec;
    const socket_handler_set *handlers;
    const char *message;
  } cases[] = {{-1, 0, &all_handlers, "getsockopt fail\n"},
               {-1, 1, without(&socket_handler_set::on_timeout), "pthread handler set error\n"},
               {-1, 0, nullptr, "error args!!\n"},
               {FD_SETSIZE, 0, nullptr, "pthread handler set error\n"}};
  for (const auto &row : cases) {
    EXPECT_EQ(1, socket_select(row.fd, 0, row.sec, 0, row.handlers, nullptr));
    expect_trace("socket_select", row.message);
    sandbox::clear_console();
  }
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
