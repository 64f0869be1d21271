/*
 * When this library is preloaded into a program, what the program writes to /dev/console goes to the file that
 * $DEMO_CONSOLE names. The demo needs it on machines that allow no namespaces, because there it cannot mount a plain
 * file over the console.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

typedef FILE *open_stream(const char *path, const char *mode);

static FILE *open_elsewhere(const char *name, const char *path, const char *mode) {
  /* dlsym returns a function as a data pointer, as POSIX allows; ISO C has no conversion between the two. */
  union {
    void *symbol;
    open_stream *function;
  } next = {.symbol = dlsym(RTLD_NEXT, name)};

  const char *file = getenv("DEMO_CONSOLE");
  return next.function(file && path && strcmp(path, "/dev/console") == 0 ? file : path, mode);
}

FILE *fopen(const char *path, const char *mode) {
  return open_elsewhere("fopen", path, mode);
}

/* Programs with 64-bit file offsets call this instead of fopen. */
FILE *fopen64(const char *path, const char *mode) {
  return open_elsewhere("fopen64", path, mode);
}
