// These tests run the bandwidth monitor as a user does, and look at its lines, its table and its end.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <regex>
#include <string>

#include "support/child_process.h"
#include "support/example.h"
#include "support/sandbox.h"

namespace {

constexpr char usage[] =
    "usage: bandwidth [-p SECONDS] INTERFACE...\n"
    "  -p SECONDS  from one measurement to the next, 1 to 255 (2)\n";

sandbox::Outcome run(const std::string &arguments) {
  return sandbox::run(sandbox::example("bandwidth") + " " + arguments);
}

// Returns how many lines the kernel's list has, its heading included.
size_t semaphores() {
  const std::string list = sandbox::read_file("/proc/sysvipc/sem");
  return static_cast<size_t>(std::count(list.begin(), list.end(), '\n'));
}

// Runs the program in the background. It prints to `output`.
class Program {
 public:
  Program(const std::string &arguments, int out_end, int output) : output_(output) {
    process_ = sandbox::start_child([&] {
      dup2(out_end, STDOUT_FILENO);
      close(output);
      const std::string command = "exec " + sandbox::example("bandwidth") + " " + arguments + " 2>/dev/null";
      return execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char *>(nullptr));
    });
    close(out_end);
  }
  ~Program() {
    close(output_);
    if (process_ != -1)
      stop(SIGKILL);
  }
  Program(const Program &) = delete;
  Program &operator=(const Program &) = delete;

  // Waits for a match and returns everything printed so far. The test's alarm ends a wait in vain.
  const std::string &await(const char *pattern) {
    const std::regex wanted(pattern);
    char bytes[512];
    ssize_t length = 1;
    while (!std::regex_search(text_, wanted) && (length = read(output_, bytes, sizeof(bytes))) > 0)
      text_.append(bytes, static_cast<size_t>(length));
    EXPECT_LT(0, length) << "ended before " << pattern << " came:\n" << text_;
    return text_;
  }
  void signal(int number) const {
    kill(process_, number);
  }
  int stop(int number) {
    signal(number);
    const int status = sandbox::end_of_child(process_);
    process_ = -1;
    return status;
  }

 private:
  int output_;
  pid_t process_ = -1;
  std::string text_;
};

struct Pipe {
  Pipe() {
    EXPECT_EQ(0, pipe2(ends, O_CLOEXEC));
  }
  int ends[2];
};

// Sends 100000 bytes through the loopback.
void send_much() {
  const int out = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_in to = {};
  to.sin_family = AF_INET;
  to.sin_port = htons(9);
  to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const char payload[1000] = {};
  for (int i = 0; i < 100; i++)
    sendto(out, payload, sizeof(payload), MSG_DONTWAIT, reinterpret_cast<sockaddr *>(&to), sizeof(to));
  close(out);
}

} // namespace

TEST(Bandwidth, TellsHowItIsUsed) {
  for (const char *arguments :
       {"", "-p 1", "-p 0 lo", "-p 256 lo", "-p -1 lo", "-p 2x lo", "-p '' lo", "-p", "-x lo"}) {
    const sandbox::Outcome outcome = run(arguments);
    EXPECT_EQ(2, outcome.status) << arguments;
    EXPECT_NE(std::string::npos, outcome.output.find(usage)) << arguments << "\n" << outcome.output;
  }
}

TEST(Bandwidth, RefusesWhatIsNoName) {
  const std::string name(32, 'x');
  const size_t before = semaphores();
  const sandbox::Outcome outcome = run("lo " + name);
  EXPECT_EQ(1, outcome.status);
  EXPECT_EQ("bandwidth: " + name + " cannot be listed: too long a name, or no memory\n", outcome.output);
  EXPECT_EQ(before, semaphores());
}

TEST(Bandwidth, WritesLinesWithTheRatesOfEachPeriod) {
  const size_t before = semaphores();
  const Pipe out;
  Program program("-p 1 lo none0", out.ends[1], out.ends[0]);
  program.await("^lo received (-|0 B/s) sent (-|0 B/s)\nnone0 received - sent -\n");
  program.await("lo received 0 B/s sent 0 B/s\nnone0 received - sent -\n"); // a pass has found the interface
  EXPECT_EQ(before + 1, semaphores());
  const pid_t sender = sandbox::start_child([]() -> int {
    for (;; usleep(500000))
      send_much();
  });
  const std::string &text = program.await("lo received [0-9.]+ kB/s sent [0-9.]+ kB/s\nnone0 received - sent -\n");
  kill(sender, SIGKILL);
  sandbox::end_of_child(sender);
  EXPECT_EQ(std::string::npos, text.find('\033'));
  EXPECT_EQ(0, program.stop(SIGTERM));
  EXPECT_EQ(before, semaphores());
  EXPECT_EQ("bmThread Exit\n", sandbox::console_messages().back());
}

TEST(Bandwidth, ASecondSignalDoesNotWaitForThePeriod) {
  const size_t before = semaphores();
  const Pipe out;
  Program program("-p 255 lo", out.ends[1], out.ends[0]);
  program.await("lo received (-|0 B/s) sent");
  program.signal(SIGINT);
  // The program looks for signals every 50 ms. A second one before that counts as the first.
  int status = 0;
  for (int i = 0; i < 1000; i++) {
    usleep(20000);
    program.signal(SIGTERM);
    if (semaphores() == before)
      break;
  }
  status = program.stop(0);
  EXPECT_EQ(0, status);
  EXPECT_EQ(before, semaphores());
}

TEST(Bandwidth, RedrawsItsTableOnATerminal) {
  mkdir("/dev/pts", 0755);
  if (mount("devpts", "/dev/pts", "devpts", 0, "newinstance,ptmxmode=0666") != 0)
    GTEST_SKIP() << "no terminals here";
  const int terminal = open("/dev/pts/ptmx", O_RDWR | O_NOCTTY | O_CLOEXEC);
  char *name = nullptr;
  if (terminal != -1 && grantpt(terminal) == 0 && unlockpt(terminal) == 0)
    name = ptsname(terminal);
  const int far_end = name ? open(name, O_RDWR | O_NOCTTY | O_CLOEXEC) : -1;
  if (far_end == -1) {
    close(terminal);
    umount2("/dev/pts", MNT_DETACH);
    GTEST_SKIP() << "no terminals here";
  }
  {
    Program program("-p 1 lo none0", far_end, terminal);
    const char *const table =
        "interface             received          sent\\x1b\\[K\r\n"
        "lo +(-|[0-9.]+ k?B/s) +(-|[0-9.]+ k?B/s)\\x1b\\[K\r\n"
        "none0                        -             -\\x1b\\[K\r\n";
    program.await((std::string("^") + table + "\\x1b\\[3A" + table + "\\x1b\\[3A" + table).c_str());
    EXPECT_EQ(0, program.stop(SIGINT));
  }
  umount2("/dev/pts", MNT_DETACH);
}
