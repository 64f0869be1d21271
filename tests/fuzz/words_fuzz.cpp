// A word table of any contents is asked for both kinds and an unknown one, with buffers of several sizes.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <memory>

#include "torvane.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const int file = memfd_create("words", MFD_CLOEXEC);
  char path[64];
  snprintf(path, sizeof(path), "/proc/self/fd/%d", file);
  if (ftruncate(file, 0) != 0 || pwrite(file, data, size, 0) != static_cast<ssize_t>(size))
    abort();
  for (int kind = 0; kind < 3; kind++) {
    for (const int room : {0, 1, 5, 5000}) {
      const std::unique_ptr<char, decltype(&free)> text(static_cast<char *>(calloc(1, static_cast<size_t>(room) + 1)),
                                                        free);
      const int length = get_words(path, 5, kind, text.get(), room);
      if (length < 0 || length > 4096 || strlen(text.get()) > static_cast<size_t>(length))
        abort();
    }
    show_words(path, 12, kind);
  }
  close_fp();
  close_fp();
  str_fp = nullptr;
  return 0;
}
