// DNS servers as tests need them: a mailbox that only receives, one that answers as a test wants it, and a real one.
#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/sandbox.h"

namespace dns {

// A socket on port 53 of an address of the loopback network, whose queue keeps what is sent to it.
class Mailbox {
 public:
  explicit Mailbox(const char *address) : fd_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in here = {};
    here.sin_family = AF_INET;
    here.sin_port = htons(53);
    inet_pton(AF_INET, address, &here.sin_addr);
    if (bind(fd_, reinterpret_cast<const sockaddr *>(&here), sizeof(here)) != 0)
      perror(address);
  }
  ~Mailbox() {
    close(fd_);
  }
  Mailbox(const Mailbox &) = delete;
  Mailbox &operator=(const Mailbox &) = delete;

  int fd() const {
    return fd_;
  }
  // What has come and was not read yet.
  std::vector<std::string> queries() const {
    std::vector<std::string> all;
    std::string query;
    sockaddr_in from;
    while (next(query, from))
      all.push_back(query);
    return all;
  }
  bool next(std::string &query, sockaddr_in &from) const {
    char buffer[4096];
    iovec part = {buffer, sizeof(buffer)};
    msghdr message = {};
    message.msg_name = &from;
    message.msg_namelen = sizeof(from);
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    const ssize_t length = recvmsg(fd_, &message, MSG_DONTWAIT); // not recvfrom, which tests make fail
    if (length < 0)
      return false;
    query.assign(buffer, static_cast<size_t>(length));
    return true;
  }

 private:
  int fd_;
};

// Answers each query with the datagrams that `answer` makes of it, in that order, in a thread of its own.
class Server {
 public:
  using Answer = std::function<std::vector<std::string>(const std::string &query)>;

  Server(const char *address, Answer answer) : box_(address), answer_(std::move(answer)) {
    if (pipe(stop_) != 0)
      perror("pipe");
    thread_ = std::thread([this] { serve(); });
  }
  ~Server() {
    stop();
    close(stop_[0]);
    close(stop_[1]);
  }
  Server(const Server &) = delete;
  Server &operator=(const Server &) = delete;

  // Ends the server and gives all that it was asked.
  const std::vector<std::string> &queries() {
    stop();
    return queries_;
  }

 private:
  void stop() {
    if (!thread_.joinable())
      return;
    if (write(stop_[1], "", 1) != 1)
      perror("write");
    thread_.join();
  }
  void serve() {
    pollfd waits[] = {{box_.fd(), POLLIN, 0}, {stop_[0], POLLIN, 0}};
    do {
      poll(waits, 2, -1);
      std::string query;
      sockaddr_in from;
      while (box_.next(query, from)) {
        queries_.push_back(query);
        for (const std::string &reply : answer_(query))
          sendto(box_.fd(), reply.data(), reply.size(), 0, reinterpret_cast<const sockaddr *>(&from), sizeof(from));
      }
    } while (!(waits[1].revents & POLLIN));
  }

  Mailbox box_;
  Answer answer_;
  std::vector<std::string> queries_;
  int stop_[2] = {-1, -1};
  std::thread thread_;
};

// dnsmasq on port 53 with these lines of configuration. It knows the names of its configuration and no others.
class Dnsmasq {
 public:
  explicit Dnsmasq(const std::string &configuration) {
    static constexpr char path[] = "/run/dnsmasq.conf";
    sandbox::write_file(path, "port=53\nbind-interfaces\nno-resolv\nno-hosts\nno-poll\nlocal=/test/\n" + configuration);
    int said[2];
    if (pipe2(said, O_CLOEXEC) != 0) {
      reason_ = "pipe";
      return;
    }
    fflush(nullptr);
    process_ = fork();
    if (process_ == 0) {
      dup2(said[1], STDERR_FILENO);
      // In the foreground: with its usual change of user it would end in the namespace of an ordinary user.
      execlp("dnsmasq", "dnsmasq", "--no-daemon", "--conf-file=/run/dnsmasq.conf", static_cast<char *>(nullptr));
      execl("/usr/sbin/dnsmasq", "dnsmasq", "--no-daemon", "--conf-file=/run/dnsmasq.conf",
            static_cast<char *>(nullptr));
      _exit(127);
    }
    close(said[1]);
    log_ = fdopen(said[0], "r");
    // It says so once its sockets are there.
    char line[512];
    while (!started_ && fgets(line, sizeof(line), log_)) {
      started_ = strstr(line, ": started, version") != nullptr;
      reason_ += line;
    }
  }
  ~Dnsmasq() {
    if (process_ > 0) {
      kill(process_, SIGTERM);
      waitpid(process_, nullptr, 0);
    }
    if (log_)
      fclose(log_);
  }
  Dnsmasq(const Dnsmasq &) = delete;
  Dnsmasq &operator=(const Dnsmasq &) = delete;

  bool started() const {
    return started_;
  }
  std::string reason() const {
    return "dnsmasq does not start (Debian: dnsmasq-base): " + reason_;
  }

 private:
  pid_t process_ = -1;
  FILE *log_ = nullptr;
  bool started_ = false;
  std::string reason_;
};

} // namespace dns
