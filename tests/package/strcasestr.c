/* This header declares the name, or the C library's does if it comes first. */
#include <string.h>
#include <torvane.h>

const char *find(const char *text);

const char *find(const char *text) {
  return strcasestr(text, "TORVANE");
}
