// These tests send whole buffers.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "interposed.h"
#include "support/child_process.h"
#include "support/sandbox.h"
#include "torvane.h"
#include "transfer.h"

namespace {

using interposed::StandIn;
using namespace network;

class Send : public Transfer {};

} // namespace

TEST_F(Send, MovesAllThroughASlowStream) {
  Connection connection;
  const int small = 4096;
  setsockopt(connection.near, SOL_SOCKET, SO_SNDBUF, &small, sizeof(small));
  ASSERT_EQ(0, set_nonblock_sock(connection.near));
  std::string bytes(1000000, '\0'), got;
  for (size_t i = 0; i < bytes.size(); i++)
    bytes[i] = static_cast<char>(i * 31 >> 3);
  // The reader reads whenever the sender waits.
  static int near, far;
  static std::string *sink;
  near = connection.near;
  far = connection.far;
  sink = &got;
  const StandIn hook(interposed::usleep_call, [](unsigned) {
    char buffer[65536];
    pollfd writable = {near, POLLOUT, 0};
    do {
      for (ssize_t count; (count = recv(far, buffer, sizeof(buffer), MSG_DONTWAIT)) > 0;)
        sink->append(buffer, static_cast<size_t>(count));
    } while (poll(&writable, 1, 10) == 0);
    calls.sleeps++;
    return 0;
  });
  int length = static_cast<int>(bytes.size());
  EXPECT_EQ(0, socket_send(connection.near, SOCKET_OPT_SENDTO, bytes.data(), &length, nullptr));
  EXPECT_EQ(1000000, length);
  connection.close_near();
  char buffer[65536];
  for (ssize_t count; (count = recv(far, buffer, sizeof(buffer), 0)) > 0;)
    got.append(buffer, static_cast<size_t>(count));
  EXPECT_TRUE(bytes == got);
  EXPECT_LT(0, calls.sleeps);
  expect_silence();
}

TEST_F(Send, PassesTheFlagsThatAreAskedFor) {
  Connection connection;
  const StandIn hook(interposed::sendto_call,
                     [](int, const void *, size_t size, int flags, const sockaddr *to, socklen_t length) {
                       calls.flags = flags;
                       calls.has_address = to != nullptr;
                       calls.address_length = static_cast<int>(length);
                       return static_cast<ssize_t>(size);
                     });
  const struct {
    unsigned opts;
    int flags;
  } cases[] = {{0, 0},
               {SOCKET_OPT_DONTWAIT, MSG_DONTWAIT},
               {SOCKET_OPT_NOSIGNAL, MSG_NOSIGNAL},
               {SOCKET_OPT_DONTWAIT | SOCKET_OPT_NOSIGNAL, MSG_DONTWAIT | MSG_NOSIGNAL},
               {0xFFFFFFFF, MSG_DONTWAIT | MSG_NOSIGNAL}};
  ipport to = endpoint("127.0.0.1", 9);
  for (const auto &row : cases) {
    int length = 3;
    EXPECT_EQ(0, socket_send(connection.near, row.opts, "abc", &length, &to));
    EXPECT_EQ(row.flags, calls.flags);
    EXPECT_FALSE(calls.has_address); // a stream goes to its peer
    EXPECT_EQ(0, calls.address_length);
  }
  const Receiver datagram;
  int length = 3;
  EXPECT_EQ(0, socket_send(datagram.fd, SOCKET_OPT_SENDTO, "abc", &length, &to));
  EXPECT_TRUE(calls.has_address);
  EXPECT_EQ(16, calls.address_length);
}

TEST_F(Send, ReachesTheEndpointNamed) {
  const Receiver sender, receiver;
  ipport to = receiver.self;
  int length = 5;
  EXPECT_EQ(0, socket_send(sender.fd, SOCKET_OPT_SENDTO, "hello", &length, &to));
  EXPECT_EQ(5, length);
  EXPECT_EQ("hello", receiver.take());
}

TEST_F(Send, GoesOnAfterAPartialSend) {
  Connection connection;
  const StandIn hook(interposed::sendto_call,
                     [](int fd, const void *bytes, size_t size, int flags, const sockaddr *to, socklen_t length) {
                       calls.transfers++;
                       return interposed::sendto_call.real(fd, bytes, size < 3 ? size : 3, flags, to, length);
                     });
  int length = 10;
  EXPECT_EQ(0, socket_send(connection.near, 0, "0123456789", &length, nullptr));
  EXPECT_EQ(10, length);
  EXPECT_EQ(4, calls.transfers);
  char got[11] = {};
  EXPECT_EQ(10, recv(connection.far, got, sizeof(got), 0));
  EXPECT_STREQ("0123456789", got);
}

TEST_F(Send, OfNothingSucceedsAtOnce) {
  Connection connection;
  const StandIn hook(interposed::sendto_call, [](int, const void *, size_t, int, const sockaddr *, socklen_t) {
    calls.transfers++;
    return ssize_t{-1};
  });
  for (const int none : {0, -1, INT_MIN}) {
    int length = none;
    EXPECT_EQ(0, socket_send(connection.near, 0, "x", &length, nullptr));
    EXPECT_EQ(0, length);
    EXPECT_EQ(0, socket_send(connection.near, 0, nullptr, &length, nullptr));
  }
  EXPECT_EQ(0, calls.transfers);
  int length = 0;
  EXPECT_EQ(1, socket_send(-1, 0, "x", &length, nullptr)); // the socket is checked all the same
  expect_trace("socket_send", "socket send error\n");
}

TEST_F(Send, TellsASocketThatCannotSend) {
  int pipes[2];
  ASSERT_EQ(0, pipe2(pipes, O_CLOEXEC));
  const Receiver datagram;
  ipport to = datagram.self;
  const struct {
    int fd;
    unsigned opts;
    ipport *to;
  } cases[] = {{-1, 0, nullptr},
               {INT_MIN, SOCKET_OPT_SENDTO, &to},
               {pipes[1], 0, nullptr},
               {next_descriptor(), 0, nullptr},
               {datagram.fd, 0, &to}, // it has no peer, and no option says to use `to`
               {datagram.fd, SOCKET_OPT_SENDTO, nullptr}};
  for (const auto &row : cases) {
    int length = 5;
    EXPECT_EQ(1, socket_send(row.fd, row.opts, "hello", &length, row.to)) << row.fd;
    expect_trace("socket_send", "socket send error\n");
    // The socket comes before the buffer and the length.
    EXPECT_EQ(1, socket_send(row.fd, row.opts, nullptr, &length, row.to)) << row.fd;
    expect_trace("socket_send", "socket send error\n");
    EXPECT_EQ(1, socket_send(row.fd, row.opts, "hello", nullptr, row.to)) << row.fd;
    expect_trace("socket_send", "socket send error\n");
    EXPECT_EQ(5, length);
  }
  EXPECT_EQ("nothing", datagram.take());
  close(pipes[0]);
  close(pipes[1]);
}

TEST_F(Send, TellsATypeThatItDoesNotKnow) {
  int pair[2];
  ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair));
  int length = 5;
  const std::string message = "socket Can't handle SO_TYPE=" + std::to_string(SOCK_SEQPACKET) + "\n";
  EXPECT_EQ(1, socket_send(pair[0], 0, "hello", &length, nullptr));
  expect_trace("socket_send", message);
  EXPECT_EQ(1, socket_send(pair[0], 0, nullptr, &length, nullptr));
  expect_trace("socket_send", message);
  EXPECT_EQ(1, socket_send(pair[0], 0, "hello", nullptr, nullptr));
  expect_trace("socket_send", message);
  EXPECT_EQ(5, length);
  close(pair[0]);
  close(pair[1]);
}

TEST_F(Send, GivesUpWithTheTwoThousandAndFirstRefusal) {
  Connection connection;
  const StandIn hook(interposed::sendto_call,
                     [](int, const void *, size_t, int, const sockaddr *, socklen_t) -> ssize_t {
                       return fail(calls.failures % 2 ? EINTR : EAGAIN);
                     });
  int length = 5;
  EXPECT_EQ(1, socket_send(connection.near, 0, "hello", &length, nullptr));
  EXPECT_EQ(0, length);
  EXPECT_EQ(2001, calls.failures);
  EXPECT_EQ(2001, calls.sleeps);
  EXPECT_EQ(0, calls.wrong_sleeps);
  expect_silence();
}

TEST_F(Send, CountsAllRefusalsOfACall) {
  Connection connection;
  // One byte is sent after every refusal.
  const StandIn hook(interposed::sendto_call,
                     [](int, const void *, size_t, int, const sockaddr *, socklen_t) -> ssize_t {
                       return calls.transfers++ % 2 == 0 ? fail(EAGAIN) : 1;
                     });
  const std::string bytes(5000, 'x');
  int length = 5000;
  EXPECT_EQ(1, socket_send(connection.near, 0, bytes.data(), &length, nullptr));
  EXPECT_EQ(2000, length);
  EXPECT_EQ(2001, calls.failures);
  calls.reset();
  length = 2000; // 2000 refusals are tolerated
  EXPECT_EQ(0, socket_send(connection.near, 0, bytes.data(), &length, nullptr));
  EXPECT_EQ(2000, length);
  EXPECT_EQ(2000, calls.failures);
}

TEST_F(Send, OnAFullStreamGivesUpWithWhatWasSent) {
  Connection connection;
  ASSERT_EQ(0, set_nonblock_sock(connection.near));
  const std::string bytes(20000000, 'x');
  int length = static_cast<int>(bytes.size());
  EXPECT_EQ(1, socket_send(connection.near, 0, bytes.data(), &length, nullptr));
  EXPECT_GT(length, 0);
  EXPECT_LT(length, 20000000);
  EXPECT_EQ(2001, calls.sleeps);
  expect_silence();
}

TEST_F(Send, TellsTheKernelsReasonOnStandardError) {
  Connection connection;
  const StandIn hook(interposed::sendto_call,
                     [](int, const void *, size_t, int, const sockaddr *, socklen_t) -> ssize_t {
                       return calls.transfers++ == 0 ? 3 : fail(EPIPE);
                     });
  std::string told;
  int length = 10;
  {
    sandbox::Captured errors(STDERR_FILENO);
    EXPECT_EQ(1, socket_send(connection.near, 0, "0123456789", &length, nullptr));
    told = errors.text();
  }
  EXPECT_EQ(3, length);
  EXPECT_EQ("sendto:: Broken pipe\n", told);
  EXPECT_EQ(0, calls.sleeps);
  expect_silence();
}

TEST_F(Send, ToAPeerThatHasGoneRaisesNoSignalWhenAskedNotTo) {
  Connection connection;
  shutdown(connection.near, SHUT_WR);
  std::string told;
  int length = 5;
  {
    sandbox::Captured errors(STDERR_FILENO);
    EXPECT_EQ(1, socket_send(connection.near, SOCKET_OPT_NOSIGNAL, "hello", &length, nullptr));
    told = errors.text();
  }
  EXPECT_EQ(0, length);
  EXPECT_EQ("sendto:: Broken pipe\n", told);
  const pid_t child = sandbox::start_child([&] {
    length = 5;
    return socket_send(connection.near, 0, "hello", &length, nullptr);
  });
  int status = 0;
  ASSERT_EQ(child, waitpid(child, &status, 0));
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(SIGPIPE, WTERMSIG(status));
}

TEST_F(Send, OfNoBufferIsRefusedByTheKernel) {
  Connection connection;
  const Receiver sender, receiver;
  ipport to = receiver.self;
  std::string told;
  int of_stream = 5, of_datagram = 5;
  {
    sandbox::Captured errors(STDERR_FILENO);
    EXPECT_EQ(1, socket_send(connection.near, 0, nullptr, &of_stream, nullptr));
    EXPECT_EQ(1, socket_send(sender.fd, SOCKET_OPT_SENDTO, nullptr, &of_datagram, &to));
    told = errors.text();
  }
  EXPECT_EQ(0, of_stream);
  EXPECT_EQ(0, of_datagram);
  EXPECT_EQ("sendto:: Bad address\nsendto:: Bad address\n", told);
  expect_silence();
}

TEST_F(Send, WithoutALengthFails) {
  Connection connection;
  for (const char *buffer : {"hello", static_cast<const char *>(nullptr)})
    EXPECT_EQ(1, socket_send(connection.near, 0, buffer, nullptr, nullptr));
  char got;
  EXPECT_EQ(-1, recv(connection.far, &got, 1, MSG_DONTWAIT));
  expect_silence();
}
