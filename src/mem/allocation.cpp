// Allocates plain memory under the names that programs of this router know.
#include <stdlib.h>

#include "torvane/memory.h"

extern "C" {

void *j_malloc(size_t size) {
  return malloc(size);
}

void *j_realloc(void *block, size_t size) {
  return realloc(block, size);
}

} // extern "C"
