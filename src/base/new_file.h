// Makes files that the library writes itself at fixed places, where somebody else may have left something before.
#pragma once

#include <stdio.h>
#include <sys/types.h>

namespace torvane {

// Makes a file of the caller's own at `path` (at most 100 bytes) and opens it for reading and writing. Whatever stands
// there (a file of another user, a link, a pipe) is replaced and never opened; a directory stays. The file gets
// `permissions` less the umask and is made under a name beside `path`, which it then takes over, so that the one before
// stays when there is no room, memory or descriptor for a new one. Returns the stream, or null when the file cannot be
// made; nothing is left of it then.
//
// Nobody had the file open before, and nobody whom `permissions` leave out opens it later. That it stays at `path` is
// up to the folder: only its owner and root may remove files of others there, as the sticky bit says of a folder that
// everybody writes to.
FILE *create_anew(const char *path, mode_t permissions);

} // namespace torvane
