// Fuzzed code traces a great deal. Nothing of it may reach the machine's console.
#include <errno.h>
#include <stdarg.h>
#include <string.h>
#include <sys/types.h>

// open has a third argument only where it may make a file; to read it always does no harm on any machine.
extern "C" int __real_open(const char *path, int flags, ...);

extern "C" int __wrap_open(const char *path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = va_arg(rest, mode_t);
  va_end(rest);
  if (strcmp(path, "/dev/console") != 0)
    return __real_open(path, flags, mode);
  errno = ENOENT;
  return -1;
}
