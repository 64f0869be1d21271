// The private world of a test program, and what tests look at in it.
//
// main() (main.cpp) starts every test program in mount, network, IPC and process-id namespaces of its own, where
// /dev/console is a plain file, /var/tmp and /run are empty, and lo is up. What a test does there to files, ports,
// interfaces, semaphores or processes ends with the program.
#pragma once

#include <stdio.h>
#include <stdlib.h>
#include <sys/resource.h>

#include <string>
#include <vector>

namespace sandbox {

// Moves the program into its private world. Returns an empty text, or the reason why the machine does not allow it.
std::string enter();

struct Outcome {
  int status; // exit status; -1 if a signal ended the command
  std::string output;
};

// Runs a shell command and collects what it prints on standard output and standard error.
Outcome run(const std::string &command);

// Calls `write` with a stream and returns what was written to it.
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

std::string all_of(FILE *stream); // reads from the present position to the end

std::string read_file(const std::string &path);
void write_file(const std::string &path, const std::string &text);
bool exists(const std::string &path);
int mode_of(const std::string &path); // permission bits; -1 if there is no such file

// One trace on the console. The test fails if a line has neither of the two headers.
struct Trace {
  bool has_process; // false: the short header, which has the thread id alone
  int colour;
  int process; // -1 in the short header
  int thread;
  std::string file;
  int line;
  std::string func;
  std::string message; // with its newline
};

// The console is empty when a test starts.
std::string console_text();
std::vector<Trace> console();                // every trace since the last clear
std::vector<std::string> console_messages(); // the messages of these traces
void clear_console();

// While an object lives, nothing can open /dev/console.
class UnopenableConsole {
 public:
  UnopenableConsole();
  ~UnopenableConsole();
};

// Counts how often /dev/console is opened and closed while the object lives.
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

// Puts tools first in PATH that only record how they were called. Each call is a line "tool [arg] [arg]".
class StandIns {
 public:
  explicit StandIns(const std::vector<std::string> &tools);
  ~StandIns();
  std::vector<std::string> calls() const;

 private:
  std::string old_path_;
};

// Catches what is written to descriptor 1 or 2 while the object lives.
class Captured {
 public:
  explicit Captured(int fd);
  ~Captured();
  std::string text(); // what was written so far

 private:
  int fd_;
  int saved_;
};

int open_descriptors();                                   // of this process
std::vector<int> descriptors_of(const std::string &path); // those under which this process has the file open

// While an object lives, this process can open no descriptor.
class NoDescriptors {
 public:
  NoDescriptors();
  ~NoDescriptors();

 private:
  rlimit usual_;
};

// Lets the n-th call of malloc, calloc or realloc from now on fail, and only that one; 0 lets none fail.
void fail_allocation(unsigned n);
bool allocation_failed(); // whether one failed since the last fail_allocation

// Calls `attempt` again and again. First its first allocation fails, then its second, until an attempt makes fewer.
// After each attempt `check` gets the result and whether an allocation failed. Returns how many attempts had one that
// failed.
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
