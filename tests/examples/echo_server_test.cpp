// These tests are clients of the echo server.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "support/example.h"
#include "support/sandbox.h"

namespace {

constexpr uint16_t port = 7007;

int new_client() {
  return socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
}

void connect_to_server(int fd) {
  sockaddr_in at = {};
  at.sin_family = AF_INET;
  at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  at.sin_port = htons(port);
  EXPECT_EQ(0, connect(fd, reinterpret_cast<sockaddr *>(&at), sizeof(at)));
}

int connect_client() {
  const int fd = new_client();
  connect_to_server(fd);
  return fd;
}

// A client that is soon full: it has room for a few segments, and segments have the size that they have on a wire.
int connect_narrow_client() {
  const int fd = new_client(), room = 4096, segment = 1460;
  EXPECT_EQ(0, setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &room, sizeof(room)));
  EXPECT_EQ(0, setsockopt(fd, IPPROTO_TCP, TCP_MAXSEG, &segment, sizeof(segment)));
  connect_to_server(fd);
  return fd;
}

void say(int fd, const std::string &text) {
  EXPECT_EQ(static_cast<ssize_t>(text.size()), send(fd, text.data(), text.size(), MSG_NOSIGNAL));
}

std::string hear(int fd, size_t size) {
  std::string text(size, '\0');
  const ssize_t count = recv(fd, text.data(), size, MSG_WAITALL);
  text.resize(count > 0 ? static_cast<size_t>(count) : 0);
  return text;
}

class EchoServer : public testing::Test {
 protected:
  void SetUp() override {
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    server = fork();
    if (server == 0) {
      dup2(ends[1], 1);
      close(ends[0]);
      close(ends[1]);
      const std::string command = "exec " + sandbox::example("echo_server") + " 7007 127.0.0.1";
      execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char *>(nullptr));
      _exit(127);
    }
    close(ends[1]);
    output = fdopen(ends[0], "r");
    ASSERT_EQ("listening on 127.0.0.1 port 7007; SIGTERM stops\n", line());
  }
  void TearDown() override {
    if (server > 0) {
      kill(server, SIGKILL);
      waitpid(server, nullptr, 0);
    }
    if (output)
      fclose(output);
  }
  std::string line() {
    char text[256] = "";
    return fgets(text, sizeof(text), output) ? text : "";
  }
  // Reads on until a line ends with this text.
  bool await_line(const std::string &end) {
    for (std::string text = line(); !text.empty(); text = line())
      if (text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0)
        return true;
    return false;
  }
  void expect_stop(int signal_number, const std::string &last_line) {
    kill(server, signal_number);
    EXPECT_TRUE(await_line(last_line));
    int status = -1;
    EXPECT_EQ(server, waitpid(server, &status, 0));
    server = -1;
    EXPECT_EQ(0, status);
  }

  pid_t server = -1;
  FILE *output = nullptr;
};

} // namespace

TEST_F(EchoServer, GivesEveryClientItsOwnBytesBack) {
  std::vector<int> clients;
  for (int i = 0; i < 20; i++)
    clients.push_back(connect_client());
  for (size_t i = 0; i < clients.size(); i++)
    say(clients[i], "client " + std::to_string(10 + i));
  for (size_t i = 0; i < clients.size(); i++)
    EXPECT_EQ("client " + std::to_string(10 + i), hear(clients[i], 9));
  for (const int client : clients)
    close(client);
  expect_stop(SIGTERM, "stopped; 180 bytes echoed\n");
}

TEST_F(EchoServer, TellsWhatHappens) {
  const int client = connect_client();
  sockaddr_in own = {};
  socklen_t length = sizeof(own);
  getsockname(client, reinterpret_cast<sockaddr *>(&own), &length);
  const std::string connected = line();
  const std::string name = connected.substr(0, connected.find(':'));
  EXPECT_EQ(name + ": connected from 127.0.0.1 port " + std::to_string(ntohs(own.sin_port)) + "\n", connected);
  say(client, "hello");
  EXPECT_EQ("hello", hear(client, 5));
  EXPECT_EQ(name + ": 5 of 5 bytes echoed\n", line());
  close(client);
  EXPECT_EQ(name + ": closed\n", line());
  expect_stop(SIGINT, "stopped; 5 bytes echoed\n");
}

TEST_F(EchoServer, OutlivesClientsThatVanish) {
  for (int i = 0; i < 5; i++) {
    const int client = connect_client();
    const linger at_once = {1, 0};
    setsockopt(client, SOL_SOCKET, SO_LINGER, &at_once, sizeof(at_once));
    say(client, std::string(1000, 'x'));
    close(client); // the server sees a reset, before or after it has read the text
  }
  const int client = connect_client();
  say(client, "still there?");
  EXPECT_EQ("still there?", hear(client, 12));
  close(client);
  expect_stop(SIGTERM, " bytes echoed\n");
}

TEST_F(EchoServer, DropsAClientThatReadsNothingAndServesTheOthers) {
  const int deaf = connect_narrow_client(), client = connect_client();
  const pid_t talker = fork();
  if (talker == 0) {
    // This is several times what fills both buffers. A flood without end would keep a small router's kernel busy with the
    // server's full queue, and leave the server no time to give up.
    const std::string bytes(size_t{512} * 1024, 'x');
    _exit(send(deaf, bytes.data(), bytes.size(), MSG_NOSIGNAL) > 0 ? 0 : 1);
  }
  EXPECT_TRUE(await_line(": does not take what it is sent, dropped\n"));
  say(client, "me too");
  EXPECT_EQ("me too", hear(client, 6));
  close(deaf);
  close(client);
  kill(talker, SIGKILL);
  waitpid(talker, nullptr, 0);
  expect_stop(SIGTERM, " bytes echoed\n");
}

TEST_F(EchoServer, StopsWithClientsConnected) {
  const int client = connect_client();
  say(client, "x");
  EXPECT_EQ("x", hear(client, 1));
  expect_stop(SIGTERM, "stopped; 1 bytes echoed\n");
  EXPECT_EQ("", hear(client, 1)); // the connection has ended, it is not just silent
  close(client);
}

TEST_F(EchoServer, TellsAPortThatIsTaken) {
  const sandbox::Outcome outcome = sandbox::run(sandbox::example("echo_server") + " 7007 127.0.0.1");
  EXPECT_EQ(1, outcome.status);
  EXPECT_EQ("echo_server: cannot listen on 127.0.0.1 port 7007; the console tells more\n", outcome.output);
}

TEST(EchoServerUsage, IsTold) {
  for (const char *arguments : {"", "0", "65536", "port", "7 router", "7 127.0.0.1 more"}) {
    const sandbox::Outcome outcome = sandbox::run(sandbox::example("echo_server") + " " + arguments);
    EXPECT_EQ(2, outcome.status) << arguments;
    EXPECT_EQ("usage: echo_server PORT [ADDRESS]\n", outcome.output) << arguments;
  }
}
