#include "misc/script.h"

#include <sys/stat.h>

#include "torvane.h"

namespace torvane {

FILE *open_script(const char *path) {
  FILE *out = fopen(path, "w");
  if (out)
    fputs("#!/bin/sh\n#Generate by quorra\n#Author: Kiro Pallet\n", out);
  return out;
}

bool run_script(FILE *out, const char *path, const char *module, int line, const char *func) {
  const bool failed_before = ferror(out) != 0;
  if (fclose(out) != 0 || failed_before)
    return false;
  chmod(path, S_IRWXU);
  __system(module, line, func, "%s", path);
  return true;
}

} // namespace torvane
