// A process of its own for a piece of a test: state that a process has only once, signals, limits, death.
#pragma once

#include <stdio.h>
#include <sys/wait.h>
#include <unistd.h>

namespace sandbox {

// Forks and returns the child's process id; the child runs `body` and ends with its result. No assertions in there:
// what a body finds it tells by its result, or leaves in a file or on the console.
template <typename Body>
pid_t start_child(Body body) {
  fflush(nullptr);
  const pid_t child = fork();
  if (child == 0)
    _exit(body());
  return child;
}

// The exit status of a child, -1 when a signal ended it or there is no such child.
inline int end_of_child(pid_t child) {
  int status;
  return waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

template <typename Body>
int in_child(Body body) {
  return end_of_child(start_child(body));
}

// A token passed between two processes, so that none has to sleep for another.
class Handshake {
 public:
  Handshake() {
    if (pipe(ends_) != 0)
      perror("pipe");
  }
  ~Handshake() {
    close(ends_[0]);
    close(ends_[1]);
  }
  Handshake(const Handshake &) = delete;
  Handshake &operator=(const Handshake &) = delete;
  bool give() const {
    return write(ends_[1], "", 1) == 1;
  }
  bool take() const {
    char token;
    return read(ends_[0], &token, 1) == 1;
  }

 private:
  int ends_[2] = {-1, -1};
};

} // namespace sandbox
