// Some tests ask a real DNS server, dnsmasq.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "support/sandbox.h"

namespace dns {

// Runs dnsmasq on port 53 with these lines of configuration. It knows the names of its configuration and no others.
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
      // It stays in the foreground, because its usual change of user fails in the namespace of an ordinary user.
      execlp("dnsmasq", "dnsmasq", "--no-daemon", "--conf-file=/run/dnsmasq.conf", static_cast<char *>(nullptr));
      execl("/usr/sbin/dnsmasq", "dnsmasq", "--no-daemon", "--conf-file=/run/dnsmasq.conf",
            static_cast<char *>(nullptr));
      _exit(127);
    }
    close(said[1]);
    log_ = fdopen(said[0], "r");
    // It prints this line once its sockets are there.
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

// A fixture whose server starts before the first test. Where it does not start, the tests are skipped.
template <const char *configuration>
class WithDnsmasq : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    server_ = new Dnsmasq(configuration);
  }
  static void TearDownTestSuite() {
    delete server_;
    server_ = nullptr;
  }
  void SetUp() override {
    if (!server_->started())
      GTEST_SKIP() << server_->reason();
    sandbox::clear_console();
  }

 private:
  static inline Dnsmasq *server_;
};

} // namespace dns
