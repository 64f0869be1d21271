#include "base/script.h"

#include <stdlib.h>
#include <sys/stat.h>

namespace torvane {

FILE *open_script(const char *path) {
  // "e": a child that another thread starts meanwhile must not inherit the stream, because no system runs a file that
  // is open for writing.
  FILE *out = fopen(path, "we");
  // The banner is spelled as users know it; this is meant.
  if (out)
    fputs("#!/bin/sh\n#Generate by quorra\n#Author: Kiro Pallet\n", out);
  return out;
}

bool run_script(FILE *out, const char *path) {
  const bool failed_before = ferror(out) != 0;
  if (fclose(out) != 0 || failed_before)
    return false;
  chmod(path, S_IRWXU);
  // This is meant: nobody looks at how the script went. Its deletions fail whenever there is nothing to delete.
  system(path);
  return true;
}

} // namespace torvane
