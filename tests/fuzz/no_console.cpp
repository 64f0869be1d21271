// Fuzzed code traces a great deal. Nothing of it may reach the machine's console.
#include <stdio.h>
#include <string.h>

extern "C" FILE *__real_fopen(const char *path, const char *mode);

extern "C" FILE *__wrap_fopen(const char *path, const char *mode) {
  return strcmp(path, "/dev/console") == 0 ? nullptr : __real_fopen(path, mode);
}
