#include "base/append_file.h"

#include <fcntl.h>
#include <unistd.h>

#include "base/high_descriptor.h"

namespace torvane {

FILE *append_to(const char *path, int flags) {
  const int fd = keep_above_standard(open(path, flags | O_APPEND | O_CLOEXEC | O_NOCTTY, 0666));
  if (fd < 0)
    return nullptr;
  FILE *stream = fdopen(fd, "a");
  if (!stream)
    close(fd);
  return stream;
}

} // namespace torvane
