// The example programs, as tests start them.
#pragma once

#include <stdlib.h>

#include <string>

namespace sandbox {

// The shell's text for starting the example `name`: under emulation where the build needs it, or as TORVANE_EXAMPLES
// has it where the programs were carried to another machine.
inline std::string example(const std::string &name) {
  const char *elsewhere = getenv("TORVANE_EXAMPLES");
  return std::string(elsewhere ? elsewhere : START_EXAMPLES) + "/" + name;
}

} // namespace sandbox
