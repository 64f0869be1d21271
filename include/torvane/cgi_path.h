/*
 * CGI paths
 *
 * A request names a file, and the file must lie below a root directory. rm_dotdot takes the ".." segments out of the
 * path that came with the request:
 *
 *   int result = rm_dotdot(path);
 *   if (result == 1 || strcmp(path, "..") == 0 || strcmp(path, "/..") == 0)
 *     return 1;   // refused
 *   snprintf(file, sizeof(file), "%s/%s", root, path);
 *
 * Nothing here traces or keeps state, so any thread may call the function on data of its own. Its time is linear in the
 * length of the path.
 */
#ifndef TORVANE_CGI_PATH_H
#define TORVANE_CGI_PATH_H

#include "torvane/common.h"

TORVANE_BEGIN

/*
 * Cleans a path in place. It works on the text alone: links in the file system are not looked at.
 *
 *   "/"       a run of them becomes one
 *   "."       goes when a "/" follows it; at the end of the path it stays
 *   ".."      goes together with the segment before it when a "/" follows. Where there is no segment before it, it goes
 *             alone, and so does the root: "/../x" becomes "x", a RELATIVE path. At the end of the path it takes its
 *             segment and the "/" before that along: "/a/b/.." becomes "/a"
 *
 * Returns:
 *   1     a ".." at the end has no "/" before its segment, and the path still ends in "/.."; or `path` is null. Every
 *         result of one character gives 1 too, with nothing wrong ("/" as well as "a")
 *   else  done. Results shorter than 4 bytes return their length, so 0 is an empty path; the number that a longer one
 *         returns means nothing, and is neither 0 nor 1
 *
 * Callers may rely on this: after any other result than 1 the path holds no ".." segment. The exceptions are the two
 * whole paths ".." (returned 2) and "/.." (returned 3), which only a comparison tells from harmless ones. To keep
 * requests below a root, refuse 1 and these two, and join the rest to the root with a "/" of your own.
 */
int rm_dotdot(char *path);

TORVANE_END

#endif
