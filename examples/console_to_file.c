/*
 * Preloaded into a program, this sends what it writes to /dev/console to the file that $DEMO_CONSOLE names. For the
 * demo on machines that allow no namespaces, where a plain file cannot be mounted over the console.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

typedef FILE *open_stream(const char *path, const char *mode);

static FILE *open_elsewhere(const char *name, const char *path, const char *mode) {
  /* POSIX lets a function pass through dlsym's data pointer; ISO C knows no such conversion. */
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

/* What programs with 64-bit file offsets call. */
FILE *fopen64(const char *path, const char *mode) {
  return open_elsewhere("fopen64", path, mode);
}
