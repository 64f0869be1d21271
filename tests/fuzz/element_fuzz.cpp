// Element lookup in any text with any path. The first byte of the input is the size of the destination; then come the
// path, a zero byte, and the text.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "torvane.h"

namespace {

// A copy in a block of exactly its size, so that one byte too far is seen.
char *text_of(const uint8_t *data, size_t size) {
  char *text = static_cast<char *>(malloc(size + 1));
  if (size != 0)
    memcpy(text, data, size);
  text[size] = '\0';
  return text;
}

void look_up(int (*lookup)(const char *, char *, int, const char *), const char *text, int size, const char *name) {
  const size_t room = static_cast<size_t>(size);
  char *dest = static_cast<char *>(malloc(room));
  memset(dest, '?', room);
  const int found = lookup(text, dest, size, name);
  if (found != 0 && found != 1)
    abort();
  // What was stored is a piece of the text.
  char *stored = static_cast<char *>(calloc(1, room + 1));
  memcpy(stored, dest, room);
  if (found && !strstr(text, stored))
    abort();
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
  char *path = text_of(data, path_size);
  char *text = text_of(data + text_at, size - text_at);
  look_up(_get_element_value, text, room, path);
  look_up(get_element_value, text, room, path);
  free(text);
  free(path);
  return 0;
}
