// These tests close endpoints, and ask open ones about themselves.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "interposed.h"
#include "sockets.h"
#include "torvane.h"

namespace {

using interposed::fail;
using interposed::StandIn;
using namespace network;

class Close : public Sockets {};
class Names : public Sockets {};

} // namespace

TEST_F(Close, ReadsWhatWaitsInPiecesSoThatThePeerSeesAnEndAndNoReset) {
  Connection connection;
  const std::string bytes(5000, 'x');
  ASSERT_EQ(5000, send(connection.far, bytes.data(), bytes.size(), 0));
  while (recv(connection.near, const_cast<char *>(bytes.data()), bytes.size(), MSG_PEEK) < 5000) {
  }
  static int fd;
  static std::vector<size_t> sizes;
  static std::vector<ssize_t> counts;
  fd = connection.near;
  sizes.clear();
  counts.clear();
  {
    const StandIn hook(interposed::read_call, [](int at, void *to, size_t size) {
      const ssize_t count = interposed::read_call.real(at, to, size);
      if (at == fd) {
        sizes.push_back(size);
        counts.push_back(count);
      }
      return count;
    });
    EXPECT_EQ(0, socket_close(connection.near));
  }
  EXPECT_EQ((std::vector<size_t>{2048, 2048, 2048}), sizes);
  EXPECT_EQ((std::vector<ssize_t>{2048, 2048, 904}), counts);
  EXPECT_EQ(-1, fcntl(connection.near, F_GETFD));
  connection.near = -1;
  char byte;
  EXPECT_EQ(0, recv(connection.far, &byte, 1, 0)) << strerror(errno);
}

TEST_F(Close, EndsTheConnectionForOtherHoldersToo) {
  Connection connection;
  const int other = dup(connection.near);
  EXPECT_EQ(0, socket_close(connection.near));
  connection.near = -1;
  char byte;
  EXPECT_EQ(0, recv(connection.far, &byte, 1, 0));
  close(other);
}

TEST_F(Close, StopsWhenAReadFails) {
  Connection connection;
  ASSERT_EQ(4, send(connection.far, "left", 4, 0));
  char byte;
  ASSERT_EQ(1, recv(connection.near, &byte, 1, MSG_PEEK));
  const StandIn hook(interposed::read_call, [](int, void *, size_t) -> ssize_t { return fail(EIO); });
  EXPECT_EQ(0, socket_close(connection.near));
  EXPECT_EQ(-1, fcntl(connection.near, F_GETFD));
  connection.near = -1;
}

TEST_F(Close, AlwaysSucceeds) {
  EXPECT_EQ(0, socket_close(-1));
  EXPECT_EQ(0, socket_close(INT_MAX));
  const int closed = next_descriptor();
  EXPECT_EQ(0, socket_close(closed));
  const int file = open("/dev/null", O_RDONLY | O_CLOEXEC);
  EXPECT_EQ(0, socket_close(file));
  EXPECT_EQ(-1, fcntl(file, F_GETFD));
  expect_silence();
}

TEST_F(Names, TellBothEndsOfAConnection) {
  Connection connection;
  ipport own = {}, peer = {}, far_own = {};
  EXPECT_EQ(0, get_socket_local(connection.near, &own));
  EXPECT_EQ(0, get_socket_peer(connection.near, &peer));
  EXPECT_EQ(0, get_socket_local(connection.far, &far_own));
  EXPECT_EQ(address("127.0.0.1"), own.ip);
  EXPECT_NE(0, own.port);
  EXPECT_EQ(far_own.ip, peer.ip);
  EXPECT_EQ(far_own.port, peer.port);
  EXPECT_NE(own.port, peer.port);
  EXPECT_EQ(0, get_socket_state(connection.near));
  EXPECT_EQ(0, get_socket_local(connection.near, nullptr));
  EXPECT_EQ(0, get_socket_peer(connection.near, nullptr));
}

TEST_F(Names, OfWhatIsNotConnectedAreNotThere) {
  int pipes[2];
  ASSERT_EQ(0, pipe2(pipes, O_CLOEXEC));
  const Receiver datagram;
  ipport out = {1, 2};
  EXPECT_EQ(1, get_socket_state(datagram.fd));
  EXPECT_EQ(1, get_socket_peer(datagram.fd, &out));
  EXPECT_EQ(1, get_socket_peer(datagram.fd, nullptr));
  for (const int fd : {-1, pipes[0], INT_MAX}) {
    EXPECT_EQ(1, get_socket_state(fd));
    EXPECT_EQ(1, get_socket_local(fd, &out));
    EXPECT_EQ(1, get_socket_peer(fd, &out));
  }
  EXPECT_EQ(1u, out.ip);
  EXPECT_EQ(2, out.port);
  close(pipes[0]);
  close(pipes[1]);
  expect_silence();
}

TEST_F(Names, NonBlockingIsAddedToTheFlags) {
  const Receiver socket_of_mine;
  const int fd = socket_of_mine.fd;
  ASSERT_EQ(0, fcntl(fd, F_SETFL, O_APPEND));
  EXPECT_EQ(0, set_nonblock_sock(fd));
  EXPECT_EQ(O_APPEND | O_NONBLOCK, fcntl(fd, F_GETFL) & (O_APPEND | O_NONBLOCK));
  EXPECT_EQ(0, set_nonblock_sock(fd));
  EXPECT_EQ(-1, set_nonblock_sock(-1));
  EXPECT_EQ(EBADF, errno);
}
