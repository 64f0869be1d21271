// Pieces of a test in which standard input, output or error are closed, as some programs close them and some start
// daemons.
#pragma once

#include <fcntl.h>
#include <stdio.h>
#include <sys/resource.h>
#include <unistd.h>

#include "support/child_process.h"

namespace sandbox {

// Runs `body` in a child in which the descriptors from `first_closed` to 2 are closed and those below lead nowhere.
// Returns the result of `body`. What is printed all the same goes at once to whatever has the descriptor by then.
template <typename Body>
int without_standard_descriptors(int first_closed, Body body) {
  return in_child([&] {
    const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
    for (int fd = 0; fd < first_closed; fd++)
      dup2(nowhere, fd);
    close(nowhere);
    for (int fd = first_closed; fd < 3; fd++)
      close(fd);
    setvbuf(stdout, nullptr, _IONBF, 0);
    return body();
  });
}

template <typename Body>
int without_standard_descriptors(Body body) {
  return without_standard_descriptors(0, body);
}

// The same, and the child can open no other descriptors than these three.
template <typename Body>
int with_only_standard_descriptors(Body body) {
  return without_standard_descriptors([&] {
    const rlimit three = {3, 3};
    return setrlimit(RLIMIT_NOFILE, &three) == 0 ? body() : 100;
  });
}

// Returns whether the descriptors from `first` to 2 are closed.
inline bool standard_descriptors_are_closed(int first = 0) {
  for (int fd = first; fd < 3; fd++)
    if (fcntl(fd, F_GETFD) != -1)
      return false;
  return true;
}

} // namespace sandbox
