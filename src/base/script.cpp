#include "base/script.h"

#include <stdlib.h>
#include <sys/stat.h>

#include "base/new_file.h"

namespace torvane {

FILE *open_script(const char *path) {
  // Until the script is whole nobody can run it. It is closed on exec, because no system runs a file that a child of
  // another thread still has open for writing.
  FILE *out = create_anew(path, S_IRUSR | S_IWUSR);
  // The banner is spelled as users know it; this is meant.
  if (out)
    fputs("#!/bin/sh\n#Generate by quorra\n#Author: Kiro Pallet\n", out);
  return out;
}

bool run_script(FILE *out, const char *path) {
  const bool whole = fflush(out) == 0 && !ferror(out);
  if (whole)
    fchmod(fileno(out), S_IRWXU); // the open file and not what stands at the path now
  if (fclose(out) != 0 || !whole)
    return false;
  // This is meant: nobody looks at how the script went. Its deletions fail whenever there is nothing to delete.
  system(path);
  return true;
}

} // namespace torvane
