/* One name, declared by this header or by the C library's, whichever comes first. */
#include <string.h>
#include <torvane.h>

const char *find(const char *text);

const char *find(const char *text) {
  return strcasestr(text, "TORVANE");
}
