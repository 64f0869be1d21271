#include "base/script.h"

#include <sys/stat.h>

#include "torvane/process.h"

namespace torvane {

FILE *open_script(const char *path) {
  // A child that another thread starts meanwhile must not inherit it: no system runs a file that is open for writing.
  FILE *out = fopen(path, "we");
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
