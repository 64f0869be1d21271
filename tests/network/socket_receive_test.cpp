// These tests receive whole buffers.
#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <netinet/in.h>
#include <signal.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include "interposed.h"
#include "support/child_process.h"
#include "support/sandbox.h"
#include "torvane.h"
#include "transfer.h"

namespace {

using interposed::StandIn;
using namespace network;

class Receive : public Transfer {};
class ReceiveStream : public Transfer {};

} // namespace

TEST_F(Receive, TakesAStreamUntilAllIsThere) {
  Connection connection;
  std::thread sender([&] {
    for (int i = 0; i < 10; i++)
      EXPECT_EQ(3, send(connection.far, "abc", 3, 0));
  });
  char got[31] = {};
  int length = 30;
  EXPECT_EQ(0, socket_recv(connection.near, SOCKET_OPT_RECVFROM, got, &length, nullptr));
  sender.join();
  EXPECT_EQ(30, length);
  EXPECT_STREQ("abcabcabcabcabcabcabcabcabcabc", got);
  expect_silence();
}

TEST_F(Receive, StringsDatagramsTogetherAndCutsTheLast) {
  const Receiver receiver, sender;
  ipport to = receiver.self, from = endpoint("203.0.113.9", 99);
  for (const char *text : {"abcd", "efgh", "ijkl"}) {
    int length = 4;
    ASSERT_EQ(0, socket_send(sender.fd, SOCKET_OPT_SENDTO, text, &length, &to));
  }
  char got[7] = {};
  int length = 6;
  EXPECT_EQ(0, socket_recv(receiver.fd, SOCKET_OPT_RECVFROM, got, &length, &from));
  EXPECT_EQ(6, length);
  EXPECT_STREQ("abcdef", got);
  EXPECT_EQ(address("203.0.113.9"), from.ip); // the sender's address is not stored
  EXPECT_EQ(htons(99), from.port);
  EXPECT_EQ("ijkl", receiver.take());
  expect_silence();
}

TEST_F(Receive, TakesDatagramsOfItsPeer) {
  const Receiver peer;
  ipport remote = peer.self, own = {};
  int fd = -1;
  ASSERT_EQ(0, socket_connect(nullptr, &remote, 0, &fd));
  ASSERT_EQ(0, get_socket_local(fd, &own));
  int length = 5;
  ASSERT_EQ(0, socket_send(peer.fd, SOCKET_OPT_SENDTO, "hello", &length, &own));
  char got[6] = {};
  EXPECT_EQ(0, socket_recv(fd, 0, got, &length, nullptr));
  EXPECT_STREQ("hello", got);
  socket_close(fd);
}

TEST_F(Receive, PassesFlagsAndAddressAsAsked) {
  Connection connection;
  const Receiver datagram;
  ipport from = endpoint("127.0.0.1", 9);
  const StandIn hook(interposed::recvfrom_call,
                     [](int, void *, size_t, int flags, sockaddr *address, socklen_t *length) -> ssize_t {
                       calls.flags = flags;
                       calls.has_address = address != nullptr;
                       calls.address_length = length ? static_cast<int>(*length) : -1;
                       if (length)
                         *length = 16; // as the kernel does
                       calls.transfers++;
                       return 1;
                     });
  const struct {
    unsigned opts;
    int flags;
  } cases[] = {{0, 0},
               {SOCKET_OPT_PEEK, MSG_PEEK},
               {SOCKET_OPT_WAITALL, MSG_WAITALL},
               {SOCKET_OPT_PEEK | SOCKET_OPT_WAITALL, MSG_PEEK | MSG_WAITALL},
               {0xFFFFFFFF, MSG_PEEK | MSG_WAITALL}};
  for (const auto &row : cases) {
    char got[2];
    int length = 2;
    EXPECT_EQ(0, socket_recv(connection.near, row.opts, got, &length, &from));
    EXPECT_EQ(row.flags, calls.flags);
    EXPECT_FALSE(calls.has_address);
    EXPECT_EQ(-1, calls.address_length);
  }
  char got[2];
  int length = 2;
  EXPECT_EQ(0, socket_recv(datagram.fd, SOCKET_OPT_RECVFROM, got, &length, &from));
  EXPECT_TRUE(calls.has_address);
  EXPECT_EQ(4, calls.address_length); // the same in each call
}

TEST_F(Receive, PeekingReadsTheSameAgainUntilAllIsThere) {
  Connection connection;
  ASSERT_EQ(4, send(connection.far, "abcd", 4, 0));
  char got[11] = {};
  int length = 10;
  EXPECT_EQ(0, socket_recv(connection.near, SOCKET_OPT_PEEK, got, &length, nullptr));
  EXPECT_STREQ("abcdabcdab", got);
  EXPECT_EQ(4, recv(connection.near, got, sizeof(got), MSG_DONTWAIT));
}

TEST_F(Receive, OfNothingSucceedsAtOnce) {
  Connection connection;
  for (const int none : {0, -1, INT_MIN}) {
    int length = none;
    char got = 'x';
    EXPECT_EQ(0, socket_recv(connection.near, 0, &got, &length, nullptr));
    EXPECT_EQ(0, length);
    EXPECT_EQ(0, socket_recv(connection.near, 0, nullptr, &length, nullptr));
    length = none;
    EXPECT_EQ(0, socket_recv_tcp(connection.near, 0, &got, &length));
    EXPECT_EQ(0, length);
    EXPECT_EQ(0, socket_recv_tcp(connection.near, 0, nullptr, &length));
  }
  expect_silence();
}

TEST_F(Receive, TriesAgainAtOnceAndWithoutLimit) {
  Connection connection;
  const StandIn hook(interposed::recvfrom_call, [](int, void *to, size_t, int, sockaddr *, socklen_t *) -> ssize_t {
    if (calls.failures < 10000)
      return fail(calls.failures % 2 ? EINTR : EAGAIN);
    *static_cast<char *>(to) = 'x';
    return 1;
  });
  char got = 0;
  int length = 1;
  EXPECT_EQ(0, socket_recv(connection.near, 0, &got, &length, nullptr));
  EXPECT_EQ('x', got);
  EXPECT_EQ(10000, calls.failures);
  EXPECT_EQ(0, calls.sleeps);
  expect_silence();
}

TEST_F(Receive, TellsEveryEmptyReadAndGoesOn) {
  const Receiver receiver, sender;
  ipport to = receiver.self, from = {};
  const sockaddr_in at = as_sockaddr(to);
  for (const char *text : {"", "ab", "", "c"})
    ASSERT_EQ(static_cast<ssize_t>(strlen(text)),
              sendto(sender.fd, text, strlen(text), 0, reinterpret_cast<const sockaddr *>(&at), sizeof(at)));
  char got[4] = {};
  int length = 3;
  EXPECT_EQ(0, socket_recv(receiver.fd, SOCKET_OPT_RECVFROM, got, &length, &from));
  EXPECT_STREQ("abc", got);
  EXPECT_EQ((std::vector<std::string>{"Recv Zero Bytes\n", "Recv Zero Bytes\n"}), traces_of("socket_recv"));
}

TEST_F(Receive, OfAStreamWhosePeerHasClosedNeverEnds) {
  Connection connection;
  ASSERT_EQ(2, send(connection.far, "ab", 2, 0));
  connection.close_far();
  const pid_t child = sandbox::start_child([&] {
    char got[10];
    int length = 10;
    return socket_recv(connection.near, 0, got, &length, nullptr);
  });
  std::string text;
  do {
    usleep(1000);
    text = sandbox::console_text();
  } while (std::count(text.begin(), text.end(), '\n') < 20);
  kill(child, SIGKILL);
  EXPECT_EQ(-1, sandbox::end_of_child(child));
  text = sandbox::console_text();
  EXPECT_NE(std::string::npos, text.find(":::\x1b[0mRecv Zero Bytes\n"));
}

TEST_F(Receive, TellsASocketThatCannotReceive) {
  int pipes[2], pair[2];
  ASSERT_EQ(0, pipe2(pipes, O_CLOEXEC));
  ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair));
  const Receiver datagram;
  ipport from = datagram.self;
  const std::string unknown = "socket Can't handle SO_TYPE=" + std::to_string(SOCK_SEQPACKET) + "\n";
  const struct {
    int fd;
    unsigned opts;
    ipport *from;
    const char *message;
  } cases[] = {{-1, 0, nullptr, "socket send error\n"},
               {INT_MIN, SOCKET_OPT_RECVFROM, &from, "socket send error\n"},
               {pipes[0], 0, nullptr, "socket send error\n"},
               {next_descriptor(), 0, nullptr, "socket send error\n"},
               {datagram.fd, 0, &from, "getsockopt SO_TYPE Error\n"},
               {datagram.fd, SOCKET_OPT_RECVFROM, nullptr, "getsockopt SO_TYPE Error\n"},
               {pair[0], 0, nullptr, unknown.c_str()}};
  for (const auto &row : cases) {
    char got[5];
    int length = 5;
    EXPECT_EQ(1, socket_recv(row.fd, row.opts, got, &length, row.from)) << row.fd;
    expect_trace("socket_recv", row.message);
    // The socket comes before the buffer and the length.
    EXPECT_EQ(1, socket_recv(row.fd, row.opts, nullptr, &length, row.from)) << row.fd;
    expect_trace("socket_recv", row.message);
    EXPECT_EQ(1, socket_recv(row.fd, row.opts, got, nullptr, row.from)) << row.fd;
    expect_trace("socket_recv", row.message);
    EXPECT_EQ(5, length);
  }
  for (const int fd : {pipes[0], pipes[1], pair[0], pair[1]})
    close(fd);
}

TEST_F(Receive, TellsAnyOtherErrorWithItsNumber) {
  Connection connection;
  const StandIn hook(interposed::recvfrom_call, [](int, void *, size_t, int, sockaddr *, socklen_t *) -> ssize_t {
    return calls.transfers++ == 0 ? 2 : fail(ECONNRESET);
  });
  char got[10];
  int length = 10;
  const std::string message = "socket recv error errno=" + std::to_string(ECONNRESET) + "\n";
  EXPECT_EQ(1, socket_recv(connection.near, 0, got, &length, nullptr));
  EXPECT_EQ(2, length);
  expect_trace("socket_recv", message);
  calls.reset();
  length = 10;
  EXPECT_EQ(1, socket_recv_tcp(connection.near, 0, got, &length));
  EXPECT_EQ(2, length);
  expect_trace("socket_recv_tcp", message);
}

TEST_F(Receive, IntoNoBufferIsRefusedByTheKernel) {
  Connection connection;
  const std::string message = "socket recv error errno=" + std::to_string(EFAULT) + "\n";
  ASSERT_EQ(5, send(connection.far, "hello", 5, 0));
  int length = 5;
  EXPECT_EQ(1, socket_recv(connection.near, 0, nullptr, &length, nullptr));
  EXPECT_EQ(0, length);
  expect_trace("socket_recv", message);
  length = 5;
  EXPECT_EQ(1, socket_recv_tcp(connection.near, 0, nullptr, &length));
  EXPECT_EQ(0, length);
  expect_trace("socket_recv_tcp", message);
}

TEST_F(Receive, WithoutALengthFails) {
  Connection connection;
  ASSERT_EQ(5, send(connection.far, "hello", 5, 0));
  char got[5];
  for (char *buffer : {got, static_cast<char *>(nullptr)}) {
    EXPECT_EQ(1, socket_recv(connection.near, 0, buffer, nullptr, nullptr));
    EXPECT_EQ(1, socket_recv_tcp(connection.near, 0, buffer, nullptr));
  }
  EXPECT_EQ(5, recv(connection.near, got, sizeof(got), MSG_DONTWAIT));
  expect_silence();
}

TEST_F(ReceiveStream, TakesAllOfIt) {
  Connection connection;
  std::thread sender([&] {
    for (int i = 0; i < 4; i++)
      EXPECT_EQ(3, send(connection.far, "abc", 3, 0));
  });
  char got[13] = {};
  int length = 12;
  EXPECT_EQ(0, socket_recv_tcp(connection.near, 0xFFFFFFFF, got, &length));
  sender.join();
  EXPECT_EQ(12, length);
  EXPECT_STREQ("abcabcabcabc", got);
  expect_silence();
}

TEST_F(ReceiveStream, EndsWithWhatThePeerSentBeforeItClosed) {
  Connection connection;
  const std::string sent(40, 'x');
  ASSERT_EQ(40, send(connection.far, sent.data(), 40, 0));
  connection.close_far();
  char got[100];
  int length = 100;
  EXPECT_EQ(0, socket_recv_tcp(connection.near, 0, got, &length));
  EXPECT_EQ(40, length);
  expect_trace("socket_recv_tcp", "Recv Zero Bytes\n");
}

TEST_F(ReceiveStream, GivesUpWithTheTwoHundredAndFirstRefusal) {
  Connection connection;
  ASSERT_EQ(0, set_nonblock_sock(connection.near));
  const StandIn hook(interposed::recvfrom_call,
                     [](int fd, void *to, size_t size, int flags, sockaddr *from, socklen_t *length) {
                       calls.transfers++;
                       return interposed::recvfrom_call.real(fd, to, size, flags, from, length);
                     });
  char got[100];
  int length = 100;
  EXPECT_EQ(1, socket_recv_tcp(connection.near, 0, got, &length));
  EXPECT_EQ(0, length);
  EXPECT_EQ(201, calls.transfers);
  EXPECT_EQ(201, calls.sleeps);
  EXPECT_EQ(0, calls.wrong_sleeps);
  expect_trace("socket_recv_tcp", "more then 200 times EAGAIN[0/100]\n");
}

TEST_F(ReceiveStream, CountsAllRefusalsOfACall) {
  Connection connection;
  const StandIn hook(interposed::recvfrom_call, [](int, void *, size_t, int, sockaddr *, socklen_t *) -> ssize_t {
    return calls.transfers++ % 2 == 0 ? fail(EINTR) : 1;
  });
  char got[500];
  int length = 500;
  EXPECT_EQ(1, socket_recv_tcp(connection.near, 0, got, &length));
  EXPECT_EQ(200, length);
  EXPECT_EQ(201, calls.failures);
  expect_trace("socket_recv_tcp", "more then 200 times EAGAIN[200/500]\n");
  calls.reset();
  length = 200;
  EXPECT_EQ(0, socket_recv_tcp(connection.near, 0, got, &length));
  EXPECT_EQ(200, length);
  expect_silence();
}

TEST_F(ReceiveStream, TellsWhatIsNoSocket) {
  char got[5];
  int length = 5, pipes[2];
  EXPECT_EQ(1, socket_recv_tcp(-1, 0, got, &length));
  expect_trace("socket_recv_tcp", "socket send error\n");
  EXPECT_EQ(1, socket_recv_tcp(-1, 0, nullptr, &length));
  expect_trace("socket_recv_tcp", "socket send error\n");
  EXPECT_EQ(1, socket_recv_tcp(-1, 0, got, nullptr));
  expect_trace("socket_recv_tcp", "socket send error\n");
  EXPECT_EQ(5, length);
  ASSERT_EQ(0, pipe2(pipes, O_CLOEXEC));
  EXPECT_EQ(1, socket_recv_tcp(pipes[0], 0, got, &length));
  EXPECT_EQ(0, length);
  expect_trace("socket_recv_tcp", "socket recv error errno=" + std::to_string(ENOTSOCK) + "\n");
  close(pipes[0]);
  close(pipes[1]);
}
