// Writes and runs a shell script: open it, write commands to the stream, run it.
#pragma once

#include <stdio.h>

namespace torvane {

// Makes the file anew (base/new_file.h) and writes the banner. Returns the stream, which is the caller's until
// run_script takes it, or null, with nothing traced, when the file cannot be made.
FILE *open_script(const char *path);

// Closes the stream, makes the file executable for its owner and runs it. Returns whether it ran: a script that could
// not be written whole (a full disk) does not, because half a script is worse than none.
bool run_script(FILE *out, const char *path);

} // namespace torvane
