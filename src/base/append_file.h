// Opens files that the library appends lines to: the console and the event log's files.
#pragma once

#include <stdio.h>

namespace torvane {

// Opens a file for appending. `flags` are those of open(2) that say how: O_WRONLY or O_RDWR, and O_CREAT where the file
// may be made. Returns a stream that the caller closes, or null when the file cannot be opened.
//
// Programs that other threads start meanwhile do not inherit the file, it never becomes the process's controlling
// terminal, and it keeps off the descriptors of standard input, output and error.
FILE *append_to(const char *path, int flags);

} // namespace torvane
