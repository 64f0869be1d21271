// Fills text fields of records.
#pragma once

#include <stddef.h>
#include <string.h>

namespace torvane {

// Copies a text into a zeroed field. What is too long is cut; the field keeps its last byte as the terminator.
template <size_t Size>
void set_text(char (&field)[Size], const char *text) {
  memcpy(field, text, strnlen(text, Size - 1));
}

} // namespace torvane
