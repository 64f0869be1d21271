// Elements are looked up in any text with any path. The first byte of the input is the size of the destination. The
// path, a zero byte and the text follow.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "input.h"
#include "torvane.h"

namespace {

void look_up(int (*lookup)(const char *, char *, int, const char *), const char *text, int size, const char *name) {
  const size_t room = static_cast<size_t>(size);
  char *dest = static_cast<char *>(malloc(room));
  memset(dest, '?', room);
  const int found = lookup(text, dest, size, name);
  fuzz::demand(found == 0 || found == 1);
  // The stored value must be a piece of the text.
  char *stored = static_cast<char *>(calloc(1, room + 1));
  memcpy(stored, dest, room);
  fuzz::demand(!found || strstr(text, stored));
  free(stored);
  free(dest);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0)
    return 0;
  const int room = data[0];
  data++;
  size--;
  const void *separator = size != 0 ? memchr(data, '\0', size) : nullptr;
  const size_t path_size = separator ? static_cast<size_t>(static_cast<const uint8_t *>(separator) - data) : size;
  const size_t text_at = separator ? path_size + 1 : size;
  char *path = fuzz::text_of(data, path_size);
  char *text = fuzz::text_of(data + text_at, size - text_at);
  look_up(_get_element_value, text, room, path);
  look_up(get_element_value, text, room, path);
  free(text);
  free(path);
  return 0;
}
