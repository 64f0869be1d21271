// Keeps files that the library writes away from the descriptors of standard input, output and error.
#pragma once

#include <stdio.h>

namespace torvane {

// Takes a descriptor that was just opened close-on-exec. Returns it, or in its place a copy at 3 or above when it is 0,
// 1 or 2: the caller has closed that one, and what somebody prints meanwhile would go into the file. The descriptor
// passed in is no longer the caller's. Returns -1, with errno as it was left, when no other descriptor is free, or when
// `fd` is negative, because the file could not be opened.
int keep_above_standard(int fd);

// Makes a stream of a descriptor that was just opened close-on-exec, as fdopen does, and keeps it above those of
// standard input to error. The descriptor is no longer the caller's. Returns null, with the descriptor closed, when
// that cannot be done or `fd` is negative.
FILE *open_stream(int fd, const char *mode);

} // namespace torvane
