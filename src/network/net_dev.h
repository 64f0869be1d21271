// "/proc/net/dev": two lines of headings, then one line for each interface: blanks, its name, ":", its counters.
#pragma once

#include <stdio.h>

namespace torvane {

constexpr int net_dev_line = 256; // bytes of a reader's line buffer

// Null when it cannot be opened; else the caller's, and the next line read is that of the first interface.
inline FILE *open_net_dev() {
  FILE *file = fopen("/proc/net/dev", "re");
  char heading[net_dev_line];
  for (int i = 0; file && i < 2; i++)
    if (!fgets(heading, sizeof(heading), file))
      break;
  return file;
}

} // namespace torvane
