// Text fields of records.
#pragma once

#include <stddef.h>
#include <string.h>

namespace torvane {

// Into a zeroed field; what is too long is cut, and the field keeps its last byte, a terminator.
template <size_t Size>
void set_text(char (&field)[Size], const char *text) {
  memcpy(field, text, strnlen(text, Size - 1));
}

} // namespace torvane
