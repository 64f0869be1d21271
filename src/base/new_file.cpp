#include "base/new_file.h"

#include <fcntl.h>
#include <unistd.h>

#include "base/high_descriptor.h"
#include "base/text_writer.h"

namespace torvane {

FILE *create_anew(const char *path, mode_t permissions) {
  char name_buffer[128];
  TextWriter name(name_buffer);
  name.append("%s:new", path); // no interface has a colon in its name, so no other script is called like this
  unlink(name.text());
  const int fd = open(name.text(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, permissions);
  if (fd == -1)
    return nullptr;
  FILE *file = open_stream(fd, "w+");
  if (file && rename(name.text(), path) == 0)
    return file;
  unlink(name.text());
  if (file)
    fclose(file);
  return nullptr;
}

} // namespace torvane
