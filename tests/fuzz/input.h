// Fuzz targets copy their input and check results with these.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

namespace fuzz {

// Ends the run, whose input is then kept, if `holds` is false.
inline void demand(bool holds) {
  if (!holds)
    abort();
}

// Returns a copy from malloc. The block has exactly its size, so that one byte too far is seen.
inline void *copy_of(const uint8_t *data, size_t size) {
  void *block = malloc(size);
  demand(block || size == 0);
  if (size != 0)
    memcpy(block, data, size);
  return block;
}

// Returns a terminated copy from malloc, again of exactly its size.
inline char *text_of(const uint8_t *data, size_t size) {
  char *text = static_cast<char *>(malloc(size + 1));
  demand(text != nullptr);
  if (size != 0)
    memcpy(text, data, size);
  text[size] = '\0';
  return text;
}

} // namespace fuzz
