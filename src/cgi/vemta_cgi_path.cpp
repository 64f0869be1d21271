// Cleans paths of requests, so that they stay below their root.
#include <stddef.h>
#include <string.h>

#include "torvane/cgi_path.h"

namespace {

// The three passes of rm_dotdot work in place, each in one go. `out` never overtakes `in`; the text before `out` is the
// result of everything before `in`.

bool at_segment_start(const char *path, const char *out) {
  return out == path || out[-1] == '/';
}

void merge_slashes(char *path) {
  char *out = path;
  for (const char *in = path; *in; in++)
    if (*in != '/' || out == path || out[-1] != '/')
      *out++ = *in;
  *out = '\0';
}

void drop_dot_segments(char *path) {
  char *out = path;
  for (const char *in = path; *in;) {
    if (at_segment_start(path, out) && in[0] == '.' && in[1] == '/')
      in += 2;
    else
      *out++ = *in++;
  }
  *out = '\0';
}

// Drops every "../" together with the segment before it, if there is one. Returns the path's length.
size_t resolve_dotdot_segments(char *path) {
  char *out = path;
  for (const char *in = path; *in;) {
    if (!at_segment_start(path, out) || strncmp(in, "../", 3) != 0) {
      *out++ = *in++;
      continue;
    }
    in += 3;
    if (out > path)
      out--;
    while (!at_segment_start(path, out))
      out--;
  }
  *out = '\0';
  return static_cast<size_t>(out - path);
}

} // namespace

extern "C" {

int rm_dotdot(char *path) {
  if (!path)
    return 1;
  merge_slashes(path);
  drop_dot_segments(path);
  size_t length = resolve_dotdot_segments(path);
  while (length >= 4) {
    const int order = memcmp(path + length - 3, "/..", 3);
    if (order != 0)
      return order == 1 ? 2 : order; // 1 is the result for paths that climb
    length -= 3;
    while (length > 0 && path[length - 1] != '/')
      length--;
    if (length == 0)
      return 1;
    path[--length] = '\0';
  }
  return static_cast<int>(length); // this is meant: a path of one character gives 1 too
}

} // extern "C"
