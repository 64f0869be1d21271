// Tests need two kinds of DNS servers: a mailbox that only receives, and one that answers as the test wants.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <stdio.h>
#include <sys/socket.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace dns {

// A socket on port 53 of a loopback address. Its queue keeps the queries until the test reads them.
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
  // Returns the queries that have come since the last look.
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

  // Ends the server and returns all that it was asked.
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

} // namespace dns
