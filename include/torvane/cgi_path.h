/*
 * CGI paths
 *
 * Paths that stay below their root.
 */
#ifndef TORVANE_CGI_PATH_H
#define TORVANE_CGI_PATH_H

#include "torvane/common.h"

TORVANE_BEGIN

/*
 * Cleans a path in place: runs of "/" become one, "." segments go where a "/" follows them, and every ".." segment
 * that a "/" follows goes together with the segment before it. Where there is none before it, it goes alone, and so
 * does the root: "/../x" becomes "x", a RELATIVE path. A ".." at the end takes its segment and the "/" before that
 * along: "/a/b/.." becomes "/a". Purely text: links in the file system are not looked at.
 *
 * Returns 1 when a ".." at the end has no "/" before its segment; the path still ends in "/.." then. Also 1, with
 * nothing wrong, for every result of one character ("/" as well as "a"), because results shorter than 4 bytes return
 * their length: 0 to 3. Otherwise another number that is not 0. Null gives 1.
 *
 * What callers may rely on: after any other result than 1 the path holds no ".." segment, with the exception of the two
 * whole paths ".." (returned 2) and "/.." (returned 3), which only a comparison tells from harmless ones. To keep
 * requests below a root, refuse 1 and these two, and join the rest to the root with a "/" of your own.
 */
int rm_dotdot(char *path);

TORVANE_END

#endif
