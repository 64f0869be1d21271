/*
 * When this library is preloaded into a program, what libtorvane writes to /dev/console goes to the file that
 * $DEMO_CONSOLE names, which must exist. The demo needs it on machines that allow no namespaces, because there it cannot
 * mount a plain file over the console.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>

typedef int open_file(const char *path, int flags, ...);

static int open_elsewhere(const char *name, const char *path, int flags, va_list rest) {
  /* dlsym returns a function as a data pointer, as POSIX allows; ISO C has no conversion between the two. */
  union {
    void *symbol;
    open_file *function;
  } next = {.symbol = dlsym(RTLD_NEXT, name)};

  const char *file = getenv("DEMO_CONSOLE");
  const char *here = file && path && strcmp(path, "/dev/console") == 0 ? file : path;
  /* Only calls that may make a file have a mode. */
  return flags & O_CREAT ? next.function(here, flags, va_arg(rest, mode_t)) : next.function(here, flags);
}

int open(const char *path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const int fd = open_elsewhere("open", path, flags, rest);
  va_end(rest);
  return fd;
}

/* Programs with 64-bit file offsets call this instead of open. */
int open64(const char *path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const int fd = open_elsewhere("open64", path, flags, rest);
  va_end(rest);
  return fd;
}
