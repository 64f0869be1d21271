// The private world of a test program, and what tests look at in it.
//
// main() (main.cpp) starts every test program in mount, network, IPC and process-id namespaces of its own, where
// /dev/console is a plain file, /var/tmp and /run are empty, and lo is up. What a test does there, to files, ports,
// interfaces, semaphores or processes, ends with it.
#pragma once

#include <stdio.h>
#include <stdlib.h>
#include <sys/resource.h>

#include <string>
#include <vector>

namespace sandbox {

// Empty when the program may have its private world, else the reason why not.
std::string enter();

struct Outcome {
  int status; // exit status, -1 when a signal ended it
  std::string output;
};

// Runs a shell command and collects what it says, errors included.
Outcome run(const std::string &command);

// What `write`, called with a stream, puts into it.
template <typename Write>
std::string written(Write write) {
  char *text = nullptr;
  size_t size = 0;
  FILE *out = open_memstream(&text, &size);
  write(out);
  fclose(out);
  const std::string result(text, size);
  free(text);
  return result;
}

std::string all_of(FILE *stream); // from where it stands to its end

std::string read_file(const std::string &path);
void write_file(const std::string &path, const std::string &text);
bool exists(const std::string &path);
int mode_of(const std::string &path); // permission bits, -1 when there is no such file

// One trace as it stands on the console. Fails the test when a line is not of the one form or the other.
struct Trace {
  bool has_process; // the header with process and thread id, or the short one with the thread id alone
  int colour;
  int process; // -1 in the short header
  int thread;
  std::string file;
  int line;
  std::string func;
  std::string message; // with its newline
};

std::string console_text();
std::vector<Trace> console();                // every trace since the last clear
std::vector<std::string> console_messages(); // their messages alone
void clear_console();

// While it lives nothing can open /dev/console.
class UnopenableConsole {
 public:
  UnopenableConsole();
  ~UnopenableConsole();
};

// Counts how often /dev/console is opened and closed while it lives.
class ConsoleWatch {
 public:
  ConsoleWatch();
  ~ConsoleWatch();
  struct Counts {
    int opens, closes;
  };
  Counts counts();

 private:
  int watch_;
  Counts counts_ = {0, 0};
};

// Tools first in PATH that record how they were called and do nothing else. Each call is a line "tool [arg] [arg]".
class StandIns {
 public:
  explicit StandIns(const std::vector<std::string> &tools);
  ~StandIns();
  std::vector<std::string> calls() const;

 private:
  std::string old_path_;
};

// What fd 1 or 2 receives while it lives.
class Captured {
 public:
  explicit Captured(int fd);
  ~Captured();
  std::string text(); // so far

 private:
  int fd_;
  int saved_;
};

int open_descriptors(); // of this process

// While it lives this process can open no descriptor.
class NoDescriptors {
 public:
  NoDescriptors();
  ~NoDescriptors();

 private:
  rlimit usual_;
};

// The n-th call of malloc, calloc or realloc from now on fails, once; 0 switches it off.
void fail_allocation(unsigned n);
bool allocation_failed(); // since the last fail_allocation

// Makes `attempt` again and again, its first allocation failing, then its second, until none fails any more. Every
// result is told to `check` with whether an allocation failed. Returns how many attempts had one that failed.
template <typename Attempt, typename Check>
unsigned fail_each_allocation(Attempt attempt, Check check) {
  for (unsigned n = 1;; n++) {
    fail_allocation(n);
    const auto result = attempt();
    const bool failed = allocation_failed();
    fail_allocation(0);
    check(result, failed);
    if (!failed)
      return n - 1;
  }
}

} // namespace sandbox
