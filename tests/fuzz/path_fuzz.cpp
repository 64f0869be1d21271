// rm_dotdot gets any path and must keep what its manual promises.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "input.h"
#include "torvane.h"

using fuzz::demand;

namespace {

// Returns whether the path leaves the folder it starts in, at its end or on the way.
bool climbs(const char *path) {
  long depth = 0;
  while (*path) {
    const size_t length = strcspn(path, "/");
    if (length == 2 && memcmp(path, "..", 2) == 0)
      depth--;
    else if (length > 0 && !(length == 1 && *path == '.'))
      depth++;
    if (depth < 0)
      return true;
    path += length;
    path += *path == '/';
  }
  return false;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  char *path = fuzz::text_of(data, size);

  const size_t length = strlen(path);
  const int result = rm_dotdot(path);
  demand(strlen(path) <= length && !strstr(path, "//") && !strstr(path, "/./") && !strstr(path, "/../"));
  const bool still_up = strcmp(path, "..") == 0 || strcmp(path, "/..") == 0;
  demand(climbs(path) == still_up);
  if (result != 1 && strlen(path) >= 3 && !still_up)
    demand(strcmp(path + strlen(path) - 3, "/..") != 0);
  if (strlen(path) < 4)
    demand(result == static_cast<int>(strlen(path)));
  else
    demand(result != 0);
  free(path);
  return 0;
}
