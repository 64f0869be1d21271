// Endpoints, and whole buffers sent and received.
#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "interposed.h"
#include "support/child_process.h"
#include "support/sandbox.h"
#include "torvane.h"

using interposed::StandIn;
using sandbox::open_descriptors;

namespace {

uint32_t address(const char *text) {
  in_addr result;
  EXPECT_EQ(1, inet_pton(AF_INET, text, &result));
  return result.s_addr;
}

ipport endpoint(const char *text, uint16_t port) {
  return {address(text), htons(port)};
}

sockaddr_in as_sockaddr(const ipport &from) {
  sockaddr_in result = {};
  result.sin_family = AF_INET;
  result.sin_addr.s_addr = from.ip;
  result.sin_port = from.port;
  return result;
}

int option(int fd, int name) {
  int value = -1;
  socklen_t length = sizeof(value);
  return getsockopt(fd, SOL_SOCKET, name, &value, &length) == 0 ? value : -1;
}

bool non_blocking(int fd) {
  return (fcntl(fd, F_GETFL) & O_NONBLOCK) != 0;
}

bool close_on_exec(int fd) {
  return (fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0;
}

int next_descriptor() {
  const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
  close(fd);
  return fd;
}

class Sockets : public testing::Test {
 protected:
  void SetUp() override {
    sandbox::clear_console();
    descriptors = open_descriptors();
  }
  void TearDown() override {
    EXPECT_EQ(descriptors, open_descriptors());
  }

  static std::vector<std::string> traces_of(const char *func) {
    std::vector<std::string> messages;
    for (const sandbox::Trace &trace : sandbox::console()) {
      EXPECT_FALSE(trace.has_process);
      EXPECT_EQ("quorra_network", trace.file);
      if (trace.func == func)
        messages.push_back(trace.message);
    }
    sandbox::clear_console();
    return messages;
  }
  static void expect_trace(const char *func, const std::string &message) {
    const std::vector<std::string> all = sandbox::console_messages();
    EXPECT_EQ(1u, all.size());
    EXPECT_EQ(std::vector<std::string>{message}, traces_of(func));
  }
  static void expect_silence() {
    EXPECT_EQ("", sandbox::console_text());
  }

  int descriptors = 0;
};

// A connected pair of TCP sockets on loopback, both blocking; `near` is given to the library, `far` is the peer's.
struct Connection {
  Connection() {
    const int listening = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in at = as_sockaddr(endpoint("127.0.0.1", 0));
    socklen_t length = sizeof(at);
    EXPECT_EQ(0, bind(listening, reinterpret_cast<sockaddr *>(&at), sizeof(at)));
    EXPECT_EQ(0, listen(listening, 1));
    EXPECT_EQ(0, getsockname(listening, reinterpret_cast<sockaddr *>(&at), &length));
    far = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(0, connect(far, reinterpret_cast<sockaddr *>(&at), sizeof(at)));
    near = accept(listening, nullptr, nullptr);
    close(listening);
  }
  ~Connection() {
    close_near();
    close_far();
  }
  void close_near() {
    if (near >= 0)
      close(near);
    near = -1;
  }
  void close_far() {
    if (far >= 0)
      close(far);
    far = -1;
  }
  int near, far;
};

// A datagram socket of the test's own.
struct Receiver {
  Receiver() {
    fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in at = as_sockaddr(endpoint("127.0.0.1", 0));
    socklen_t length = sizeof(at);
    EXPECT_EQ(0, bind(fd, reinterpret_cast<sockaddr *>(&at), sizeof(at)));
    EXPECT_EQ(0, getsockname(fd, reinterpret_cast<sockaddr *>(&at), &length));
    self = {at.sin_addr.s_addr, at.sin_port};
  }
  ~Receiver() {
    close(fd);
  }
  std::string take() const {
    char bytes[4096];
    const ssize_t count = recv(fd, bytes, sizeof(bytes), MSG_DONTWAIT);
    return count < 0 ? "nothing" : std::string(bytes, static_cast<size_t>(count));
  }
  int fd;
  ipport self;
};

class Open : public Sockets {};
class Listen : public Sockets {};
class Connect : public Sockets {};
class Close : public Sockets {};
class Names : public Sockets {};
class Words : public Sockets {};

// Counts what the stand-ins below see.
struct Calls {
  std::atomic<int> transfers, failures, sleeps, wrong_sleeps;
  std::atomic<int> flags, address_length;
  std::atomic<bool> has_address;
  void reset() {
    transfers = failures = sleeps = wrong_sleeps = flags = 0;
    address_length = -1;
    has_address = false;
  }
};
Calls calls;

int count_sleep(unsigned microseconds) {
  calls.sleeps++;
  calls.wrong_sleeps += microseconds != 100;
  return 0;
}

class Transfer : public Sockets {
 protected:
  void SetUp() override {
    Sockets::SetUp();
    calls.reset();
  }
  const StandIn<int(unsigned)> no_sleep{interposed::usleep_call, count_sleep};
};
class Send : public Transfer {};
class Receive : public Transfer {};
class ReceiveStream : public Transfer {};

int fail(int error) {
  calls.failures++;
  return interposed::fail(error);
}

} // namespace

TEST_F(Words, AreThoseOfTheTable) {
  const char *const words[] = {"malloc fail!!",
                               "error args!!",
                               "socket",
                               "error",
                               "open error",
                               "listen error",
                               "bind error",
                               "accept error",
                               "socketopt error",
                               "pthread create error",
                               "pthread handler set error",
                               "send error",
                               "recv error"};
  for (uint32_t id = 0; id < 13; id++) {
    EXPECT_EQ(id, LogStrMap[id].id);
    EXPECT_STREQ(words[id], LogStrMap[id].text);
  }
  EXPECT_EQ(0xFFFFFFFFu, LogStrMap[13].id);
  EXPECT_STREQ("*unknown*", TxtMapById(LogStrMap, 13));
  EXPECT_STREQ("*unknown*", TxtMapById(LogStrMap, 0xFFFFFFFFu));
}

TEST_F(Words, OptionsHaveTheirBits) {
  EXPECT_EQ(0x1, SOCKET_OPT_TCP);
  EXPECT_EQ(0x2, SOCKET_OPT_REUSE);
  EXPECT_EQ(0x4, SOCKET_OPT_BIND);
  EXPECT_EQ(0x100, SOCKET_OPT_SENDTO);
  EXPECT_EQ(0x200, SOCKET_OPT_DONTWAIT);
  EXPECT_EQ(0x400, SOCKET_OPT_NOSIGNAL);
  EXPECT_EQ(0x10000, SOCKET_OPT_RECVFROM);
  EXPECT_EQ(0x20000, SOCKET_OPT_PEEK);
  EXPECT_EQ(0x40000, SOCKET_OPT_WAITALL);
  EXPECT_EQ(0x80000, SOCKET_OPT_ONESHOT);
}

TEST_F(Open, DoesWhatEachOptionBitSays) {
  for (unsigned opts = 0; opts < 8; opts++) {
    ipport local = endpoint("127.0.0.1", 0), bound = {};
    int fd = -1;
    ASSERT_EQ(0, socket_open(nullptr, &local, opts | 0xFFF00u, &fd)) << opts;
    const bool tcp = opts & SOCKET_OPT_TCP;
    EXPECT_EQ(tcp ? SOCK_STREAM : SOCK_DGRAM, option(fd, SO_TYPE)) << opts;
    EXPECT_EQ(tcp, non_blocking(fd)) << opts;
    EXPECT_EQ(tcp, close_on_exec(fd)) << opts;
    EXPECT_EQ(opts & SOCKET_OPT_REUSE ? 1 : 0, option(fd, SO_REUSEADDR)) << opts;
    EXPECT_EQ(0, get_socket_local(fd, &bound));
    EXPECT_EQ(opts & SOCKET_OPT_BIND ? address("127.0.0.1") : 0u, bound.ip) << opts;
    EXPECT_EQ((opts & SOCKET_OPT_BIND) != 0, bound.port != 0) << opts;
    close(fd);
  }
  expect_silence();
}

// Ports that the kernel gives nobody by itself: one that it gave may still be remembered from a connection.
constexpr uint16_t own_port = 4001, another_own_port = 4002;

TEST_F(Open, BindsToTheEndpointGiven) {
  ipport local = {address("127.0.0.1"), htons(own_port)}, bound = {};
  int fd = -1;
  ASSERT_EQ(0, socket_open(nullptr, &local, SOCKET_OPT_TCP | SOCKET_OPT_BIND, &fd));
  EXPECT_EQ(0, get_socket_local(fd, &bound));
  EXPECT_EQ(local.ip, bound.ip);
  EXPECT_EQ(local.port, bound.port);
  close(fd);
}

TEST_F(Open, TakesTheAddressOfAnInterfaceAndThePortOfTheEndpoint) {
  ipport local = {address("203.0.113.1"), htons(another_own_port)}, bound = {};
  int fd = -1;
  ASSERT_EQ(0, socket_open("lo", &local, SOCKET_OPT_TCP | SOCKET_OPT_BIND, &fd));
  EXPECT_EQ(0, get_socket_local(fd, &bound));
  EXPECT_EQ(address("127.0.0.1"), bound.ip);
  EXPECT_EQ(local.port, bound.port);
  EXPECT_EQ(address("203.0.113.1"), local.ip);
  close(fd);
  expect_silence();
}

TEST_F(Open, OfAnUnknownInterfaceFailsBeforeThereIsASocket) {
  static int made;
  made = 0;
  const StandIn hook(interposed::socket_call, [](int domain, int type, int protocol) {
    made += (type & 0xf) != SOCK_RAW;
    return interposed::socket_call.real(domain, type, protocol);
  });
  ipport local = {};
  for (const unsigned opts : {0u, 1u, 5u, 7u}) {
    int fd = 77;
    EXPECT_EQ(1, socket_open("no-such0", &local, opts, &fd));
    EXPECT_EQ(77, fd);
    expect_trace("socket_open", "Can't resolve ifname=no-such0\n");
  }
  EXPECT_EQ(0, made);
}

TEST_F(Open, TellsASocketThatCannotBeMade) {
  const StandIn hook(interposed::socket_call, [](int, int, int) { return fail(EMFILE); });
  ipport local = {};
  for (const unsigned opts : {0u, 1u}) {
    int fd = 77;
    EXPECT_EQ(1, socket_open(nullptr, &local, opts, &fd));
    EXPECT_EQ(77, fd);
    expect_trace("socket_open", "socket open error!!\n");
  }
}

TEST_F(Open, TellsAnAddressThatCannotBeReused) {
  const StandIn hook(interposed::setsockopt_call, [](int, int level, int name, const void *value, socklen_t length) {
    EXPECT_EQ(SOL_SOCKET, level);
    EXPECT_EQ(SO_REUSEADDR, name);
    EXPECT_EQ(sizeof(int), length);
    EXPECT_EQ(1, *static_cast<const int *>(value));
    return fail(ENOMEM);
  });
  ipport local = {};
  const std::string number = std::to_string(next_descriptor());
  for (const unsigned tcp : {0u, 1u}) {
    int fd = 77;
    EXPECT_EQ(1, socket_open(nullptr, &local, tcp | SOCKET_OPT_REUSE, &fd));
    EXPECT_EQ(77, fd);
    EXPECT_EQ(descriptors, open_descriptors());
    expect_trace("socket_open", "socket setsocketopt error SOCKET_OPT_REUSE failed. fd=" + number + "\n");
  }
}

TEST_F(Open, TellsAnEndpointThatCannotBeBound) {
  const Receiver taken;
  ipport local = taken.self;
  const std::string number = std::to_string(next_descriptor()), port = std::to_string(ntohs(local.port));
  int fd = 77;
  EXPECT_EQ(1, socket_open(nullptr, &local, SOCKET_OPT_BIND, &fd));
  expect_trace("socket_open", "socket bind error fd=" + number + ",ip=127.0.0.1,port=" + port + "\n");
  local.ip = address("10.200.3.4"); // told, although the interface's is tried
  EXPECT_EQ(1, socket_open("lo", &local, SOCKET_OPT_BIND, &fd));
  expect_trace("socket_open", "socket bind error fd=" + number + ",ip=10.200.3.4,port=" + port + "\n");
  local = endpoint("203.0.113.77", 65535); // nobody's here
  EXPECT_EQ(1, socket_open(nullptr, &local, SOCKET_OPT_TCP | SOCKET_OPT_REUSE | SOCKET_OPT_BIND, &fd));
  expect_trace("socket_open", "socket bind error fd=" + number + ",ip=203.0.113.77,port=65535\n");
  EXPECT_EQ(77, fd);
}

TEST_F(Open, WithNullFails) {
  ipport local = {};
  int fd = 77;
  EXPECT_EQ(1, socket_open(nullptr, nullptr, SOCKET_OPT_TCP, &fd));
  EXPECT_EQ(1, socket_open("lo", nullptr, SOCKET_OPT_TCP, &fd));
  EXPECT_EQ(1, socket_open(nullptr, &local, SOCKET_OPT_TCP, nullptr));
  EXPECT_EQ(77, fd);
  expect_silence();
}

TEST_F(Open, FailsTheSameWithoutAConsole) {
  const sandbox::UnopenableConsole away;
  ipport local = endpoint("203.0.113.77", 1);
  int fd = 77;
  EXPECT_EQ(1, socket_open(nullptr, &local, SOCKET_OPT_BIND, &fd));
  EXPECT_EQ(1, socket_open("no-such0", &local, 0, &fd));
  EXPECT_EQ(77, fd);
}

TEST_F(Listen, IsBoundWithReuseWhateverTheOptions) {
  const Receiver free_port;
  for (const unsigned opts : {0x1u, 0xFFFFFFFFu}) {
    ipport local = free_port.self, bound = {};
    int fd = -1;
    ASSERT_EQ(0, socket_listen(&local, opts, 5, &fd));
    EXPECT_EQ(1, option(fd, SO_ACCEPTCONN));
    EXPECT_EQ(1, option(fd, SO_REUSEADDR));
    EXPECT_TRUE(non_blocking(fd));
    EXPECT_TRUE(close_on_exec(fd));
    EXPECT_EQ(0, get_socket_local(fd, &bound));
    EXPECT_EQ(local.ip, bound.ip);
    EXPECT_EQ(local.port, bound.port);
    EXPECT_EQ(0, socket_close(fd));
  }
  expect_silence();
}

TEST_F(Listen, OnAPortThatAnotherHasBoundWithReuse) {
  ipport local = endpoint("127.0.0.1", 0);
  int other = -1, fd = -1;
  ASSERT_EQ(0, socket_open(nullptr, &local, SOCKET_OPT_TCP | SOCKET_OPT_REUSE | SOCKET_OPT_BIND, &other));
  ASSERT_EQ(0, get_socket_local(other, &local));
  EXPECT_EQ(0, socket_listen(&local, SOCKET_OPT_TCP, 5, &fd));
  close(fd);
  close(other);
}

TEST_F(Listen, NeedsAPortAndABacklog) {
  ipport no_port = endpoint("127.0.0.1", 0), local = endpoint("127.0.0.1", 4242);
  int fd = 77;
  static int made;
  made = 0;
  const StandIn hook(interposed::socket_call, [](int, int, int) { return ++made, -1; });
  const struct {
    ipport *local;
    int backlog;
    int *fd;
  } cases[] = {{&no_port, 5, &fd},     {&local, 0, &fd},  {&local, -1, &fd},
               {&local, INT_MIN, &fd}, {nullptr, 5, &fd}, {&local, 5, nullptr}};
  for (const auto &row : cases) {
    EXPECT_EQ(1, socket_listen(row.local, SOCKET_OPT_TCP, row.backlog, row.fd));
    expect_trace("socket_listen", "error args!!\n");
  }
  EXPECT_EQ(0, made);
  EXPECT_EQ(77, fd);
}

TEST_F(Listen, TellsAnEndpointThatCannotBeBoundTwice) {
  ipport local = endpoint("127.0.0.1", 0), taken = {};
  int other = -1, fd = 77;
  ASSERT_EQ(0, socket_open(nullptr, &local, SOCKET_OPT_TCP | SOCKET_OPT_BIND, &other));
  ASSERT_EQ(0, get_socket_local(other, &taken));
  ASSERT_EQ(0, listen(other, 1));
  const std::string number = std::to_string(next_descriptor());
  const int before = open_descriptors();
  EXPECT_EQ(1, socket_listen(&taken, SOCKET_OPT_TCP, 5, &fd));
  EXPECT_EQ((std::vector<std::string>{
                "socket bind error fd=" + number + ",ip=127.0.0.1,port=" + std::to_string(ntohs(taken.port)) + "\n",
                "socket open error\n"}),
            sandbox::console_messages());
  EXPECT_EQ(std::vector<std::string>{"socket open error\n"}, traces_of("socket_listen"));
  EXPECT_EQ(77, fd);
  EXPECT_EQ(before, open_descriptors());
  close(other);
}

TEST_F(Listen, OnADatagramSocketFails) {
  ipport local = endpoint("127.0.0.1", 4242);
  int fd = 77;
  EXPECT_EQ(1, socket_listen(&local, 0, 5, &fd));
  expect_trace("socket_listen", "socket listen error\n");
  EXPECT_EQ(77, fd);
}

TEST_F(Connect, GivesADatagramSocketItsPeer) {
  const Receiver receiver;
  ipport remote = receiver.self, peer = {};
  int fd = -1;
  ASSERT_EQ(0, socket_connect(nullptr, &remote, SOCKET_OPT_REUSE | SOCKET_OPT_DONTWAIT, &fd));
  EXPECT_EQ(SOCK_DGRAM, option(fd, SO_TYPE));
  EXPECT_EQ(0, option(fd, SO_REUSEADDR));
  EXPECT_FALSE(non_blocking(fd));
  EXPECT_EQ(0, get_socket_peer(fd, &peer));
  EXPECT_EQ(remote.ip, peer.ip);
  EXPECT_EQ(remote.port, peer.port);
  int length = 5;
  EXPECT_EQ(0, socket_send(fd, 0, "hello", &length, nullptr));
  EXPECT_EQ("hello", receiver.take());
  EXPECT_EQ(0, socket_close(fd));
  expect_silence();
}

TEST_F(Connect, BindsWhenToldTo) {
  const Receiver receiver;
  ipport remote = receiver.self, local = endpoint("127.0.0.2", 0), own = {};
  {
    const Receiver free_port;
    local.port = free_port.self.port;
  }
  int fd = -1;
  ASSERT_EQ(0, socket_connect(&local, &remote, SOCKET_OPT_BIND, &fd));
  EXPECT_EQ(0, get_socket_local(fd, &own));
  EXPECT_EQ(local.ip, own.ip);
  EXPECT_EQ(local.port, own.port);
  close(fd);
  ASSERT_EQ(0, socket_connect(&local, &remote, 0, &fd));
  EXPECT_EQ(0, get_socket_local(fd, &own));
  EXPECT_EQ(address("127.0.0.1"), own.ip);
  close(fd);
  ASSERT_EQ(0, socket_connect(nullptr, &remote, SOCKET_OPT_BIND, &fd));
  close(fd);
}

TEST_F(Connect, OfAStreamThatIsInProgressFailsInSilence) {
  Receiver free_port;
  ipport remote = free_port.self;
  int listening = -1, fd = 77;
  ASSERT_EQ(0, socket_listen(&remote, SOCKET_OPT_TCP, 5, &listening));
  const int before = open_descriptors();
  EXPECT_EQ(1, socket_connect(nullptr, &remote, SOCKET_OPT_TCP, &fd));
  EXPECT_EQ(77, fd);
  EXPECT_EQ(before, open_descriptors());
  expect_silence();
  socket_close(listening);
}

TEST_F(Connect, ThatFailsLeavesNothing) {
  ipport broadcast = endpoint("255.255.255.255", 9), nobody = endpoint("127.0.0.1", 1);
  int fd = 77;
  EXPECT_EQ(1, socket_connect(nullptr, &broadcast, 0, &fd)); // without leave to broadcast
  EXPECT_EQ(1, socket_connect(nullptr, &nobody, SOCKET_OPT_TCP, &fd));
  EXPECT_EQ(77, fd);
  EXPECT_EQ(descriptors, open_descriptors());
  expect_silence();
}

TEST_F(Connect, NeedsAnEndpointToGoTo) {
  ipport no_port = endpoint("127.0.0.1", 0), no_address = endpoint("0.0.0.0", 4242), good = endpoint("127.0.0.1", 1);
  int fd = 77;
  for (ipport *remote : {&no_port, &no_address, static_cast<ipport *>(nullptr)})
    for (const unsigned opts : {0u, 1u}) {
      EXPECT_EQ(1, socket_connect(nullptr, remote, opts, &fd));
      expect_trace("socket_connect", "error args!!\n");
    }
  EXPECT_EQ(1, socket_connect(nullptr, &good, 0, nullptr));
  expect_trace("socket_connect", "error args!!\n");
  EXPECT_EQ(77, fd);
}

TEST_F(Connect, TellsASocketThatCannotBeOpened) {
  const Receiver taken;
  ipport local = taken.self, remote = taken.self;
  const std::string number = std::to_string(next_descriptor());
  const int before = open_descriptors();
  int fd = 77;
  EXPECT_EQ(1, socket_connect(&local, &remote, SOCKET_OPT_BIND | SOCKET_OPT_REUSE, &fd));
  EXPECT_EQ((std::vector<std::string>{
                "socket bind error fd=" + number + ",ip=127.0.0.1,port=" + std::to_string(ntohs(local.port)) + "\n",
                "socket open error\n"}),
            sandbox::console_messages());
  EXPECT_EQ(std::vector<std::string>{"socket open error\n"}, traces_of("socket_connect"));
  EXPECT_EQ(77, fd);
  EXPECT_EQ(before, open_descriptors());
}

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

TEST_F(Send, MovesAllThroughASlowStream) {
  Connection connection;
  const int small = 4096;
  setsockopt(connection.near, SOL_SOCKET, SO_SNDBUF, &small, sizeof(small));
  ASSERT_EQ(0, set_nonblock_sock(connection.near));
  std::string bytes(1000000, '\0'), got;
  for (size_t i = 0; i < bytes.size(); i++)
    bytes[i] = static_cast<char>(i * 31 >> 3);
  // Every wait of the sender lets the reader read.
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
  EXPECT_EQ(1, socket_send(-1, 0, "x", &length, nullptr)); // the socket is looked at all the same
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
               {datagram.fd, 0, &to}, // no peer, and not asked to take `to`
               {datagram.fd, SOCKET_OPT_SENDTO, nullptr}};
  for (const auto &row : cases) {
    int length = 5;
    EXPECT_EQ(1, socket_send(row.fd, row.opts, "hello", &length, row.to)) << row.fd;
    EXPECT_EQ(5, length);
    expect_trace("socket_send", "socket send error\n");
  }
  EXPECT_EQ("nothing", datagram.take());
  close(pipes[0]);
  close(pipes[1]);
}

TEST_F(Send, TellsATypeThatItDoesNotKnow) {
  int pair[2];
  ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair));
  int length = 5;
  EXPECT_EQ(1, socket_send(pair[0], 0, "hello", &length, nullptr));
  EXPECT_EQ(5, length);
  expect_trace("socket_send", "socket Can't handle SO_TYPE=" + std::to_string(SOCK_SEQPACKET) + "\n");
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
  // One byte goes after every refusal.
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
  length = 2000; // 2000 refusals are borne
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

TEST_F(Send, WithNullFails) {
  Connection connection;
  int length = 5;
  EXPECT_EQ(1, socket_send(connection.near, 0, nullptr, &length, nullptr));
  EXPECT_EQ(5, length);
  EXPECT_EQ(1, socket_send(connection.near, 0, "hello", nullptr, nullptr));
  expect_silence();
}

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
  EXPECT_EQ(address("203.0.113.9"), from.ip); // the sender is not told
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
  EXPECT_EQ(4, calls.address_length); // each time
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
    length = none;
    EXPECT_EQ(0, socket_recv_tcp(connection.near, 0, &got, &length));
    EXPECT_EQ(0, length);
  }
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
    EXPECT_EQ(5, length);
    expect_trace("socket_recv", row.message);
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

TEST_F(Receive, WithNullFails) {
  Connection connection;
  char got[5];
  int length = 5;
  EXPECT_EQ(1, socket_recv(connection.near, 0, nullptr, &length, nullptr));
  EXPECT_EQ(1, socket_recv(connection.near, 0, got, nullptr, nullptr));
  EXPECT_EQ(1, socket_recv_tcp(connection.near, 0, nullptr, &length));
  EXPECT_EQ(1, socket_recv_tcp(connection.near, 0, got, nullptr));
  EXPECT_EQ(5, length);
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
  EXPECT_EQ(5, length);
  expect_trace("socket_recv_tcp", "socket send error\n");
  ASSERT_EQ(0, pipe2(pipes, O_CLOEXEC));
  EXPECT_EQ(1, socket_recv_tcp(pipes[0], 0, got, &length));
  EXPECT_EQ(0, length);
  expect_trace("socket_recv_tcp", "socket recv error errno=" + std::to_string(ENOTSOCK) + "\n");
  close(pipes[0]);
  close(pipes[1]);
}
