// Pieces of a test in which descriptors 0, 1 and 2 are closed, as some programs close them and some start daemons.
#pragma once

#include <fcntl.h>
#include <stdio.h>
#include <sys/resource.h>
#include <unistd.h>

#include "support/child_process.h"

namespace sandbox {

// Runs `body` in a child whose standard input, output and error are closed, and returns its result. What `body` prints
// all the same goes wherever these descriptors lead by then.
template <typename Body>
int without_standard_descriptors(Body body) {
  return in_child([&] {
    for (int fd = 0; fd < 3; fd++)
      close(fd);
    setvbuf(stdout, nullptr, _IONBF, 0);
    return body();
  });
}

// The same, and the child can open no other descriptors than these three.
template <typename Body>
int with_only_standard_descriptors(Body body) {
  return without_standard_descriptors([&] {
    const rlimit three = {3, 3};
    return setrlimit(RLIMIT_NOFILE, &three) == 0 ? body() : 100;
  });
}

// Returns whether descriptors 0, 1 and 2 are all closed.
inline bool standard_descriptors_are_closed() {
  for (int fd = 0; fd < 3; fd++)
    if (fcntl(fd, F_GETFD) != -1)
      return false;
  return true;
}

} // namespace sandbox
