// Pieces of a test that need a process of their own: for signals, limits, death, or state that a process has only once.
#pragma once

#include <stdio.h>
#include <sys/wait.h>
#include <unistd.h>

namespace sandbox {

// Forks and returns the child's process id. The child runs `body` and ends with its result. An assertion in `body`
// would be lost with the child, so `body` reports by its result, by a file or by the console.
template <typename Body>
pid_t start_child(Body body) {
  fflush(nullptr);
  const pid_t child = fork();
  if (child == 0)
    _exit(body());
  return child;
}

// Waits for a child. Returns its exit status, -1 if a signal ended it or there is no such child.
inline int end_of_child(pid_t child) {
  int status;
  return waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Runs `body` in a child and returns its result, -1 if a signal ended the child.
template <typename Body>
int in_child(Body body) {
  return end_of_child(start_child(body));
}

// Passes a token between two processes, so that neither has to sleep until the other is ready.
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
