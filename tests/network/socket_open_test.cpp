// These tests open endpoints, bind them, listen at them and connect them.
#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "interposed.h"
#include "sockets.h"
#include "support/child_process.h"
#include "support/sandbox.h"
#include "torvane.h"

namespace {

using interposed::fail;
using interposed::StandIn;
using namespace network;
using sandbox::open_descriptors;

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

class Words : public Sockets {};
class Open : public Sockets {};
class Listen : public Sockets {};
class Connect : public Sockets {};

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

// The kernel gives nobody these ports by itself. One that it had given might still be busy from an old connection.
constexpr uint16_t own_port = 4001, port_of_interface = 4002, port_to_listen_at = 4003, port_to_connect_to = 4004;

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
  ipport local = {address("203.0.113.1"), htons(port_of_interface)}, bound = {};
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
    expect_trace("socket_open", "Can't resolve ifname=no-such0\n");
    // The interface comes before the endpoint and the place for the descriptor.
    EXPECT_EQ(1, socket_open("no-such0", nullptr, opts, &fd));
    expect_trace("socket_open", "Can't resolve ifname=no-such0\n");
    EXPECT_EQ(1, socket_open("no-such0", &local, opts, nullptr));
    expect_trace("socket_open", "Can't resolve ifname=no-such0\n");
    EXPECT_EQ(77, fd);
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
  local.ip = address("10.200.3.4"); // the trace names it, although the interface's address is tried
  EXPECT_EQ(1, socket_open("lo", &local, SOCKET_OPT_BIND, &fd));
  expect_trace("socket_open", "socket bind error fd=" + number + ",ip=10.200.3.4,port=" + port + "\n");
  local = endpoint("203.0.113.77", 65535); // no interface here has it
  EXPECT_EQ(1, socket_open(nullptr, &local, SOCKET_OPT_TCP | SOCKET_OPT_REUSE | SOCKET_OPT_BIND, &fd));
  expect_trace("socket_open", "socket bind error fd=" + number + ",ip=203.0.113.77,port=65535\n");
  EXPECT_EQ(77, fd);
}

TEST_F(Open, GivesDescriptorZeroLikeAnyOther) {
  EXPECT_EQ(0, sandbox::in_child([] {
              close(STDIN_FILENO);
              ipport local = endpoint("127.0.0.1", 0);
              int fd = 77;
              if (socket_open("lo", &local, SOCKET_OPT_REUSE | SOCKET_OPT_BIND, &fd) != 0 || fd != STDIN_FILENO)
                return 1;
              socket_close(fd);
              return fcntl(STDIN_FILENO, F_GETFD) == -1 ? 0 : 2;
            }));
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
  for (const unsigned opts : {0x1u, 0xFFFFFFFFu}) {
    ipport local = endpoint("127.0.0.1", port_to_listen_at), bound = {};
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
  ipport remote = endpoint("127.0.0.1", port_to_connect_to);
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
  EXPECT_EQ(1, socket_connect(nullptr, &broadcast, 0, &fd)); // the socket may not broadcast
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
