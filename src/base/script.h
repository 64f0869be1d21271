// A shell script that is written and run: open it, write commands to `out`, run it.
#pragma once

#include <stdio.h>

namespace torvane {

// Creates or empties the file and writes the banner. Null, with nothing traced, when it cannot be opened. The stream is
// the caller's until it hands it to run_script.
FILE *open_script(const char *path);

// Closes the stream, makes the file executable for its owner and runs it, in the name of the module's function `func`.
// False, and nothing is run, when not everything could be written (a full disk): half a script is worse than none.
bool run_script(FILE *out, const char *path, const char *module, int line, const char *func);

} // namespace torvane
