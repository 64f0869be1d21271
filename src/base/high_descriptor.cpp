#include "base/high_descriptor.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

namespace torvane {

int keep_above_standard(int fd) {
  if (fd < 0 || fd > STDERR_FILENO)
    return fd;
  const int high = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  const int saved_errno = errno;
  close(fd);
  errno = saved_errno;
  return high;
}

FILE *open_stream(int fd, const char *mode) {
  const int high = keep_above_standard(fd);
  if (high < 0)
    return nullptr;
  FILE *file = fdopen(high, mode);
  if (!file)
    close(high);
  return file;
}

} // namespace torvane
