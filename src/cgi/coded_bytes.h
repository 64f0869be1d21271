// Reads percent-coded characters, as entries and URIs have them.
#pragma once

#include <ctype.h>
#include <stddef.h>

#include "torvane/text.h"

namespace torvane {

// The bytes of one UTF-8 character stand as "%XX" each. The "%" of all but the first may be any other character.
constexpr size_t length_of_coded_byte = 3;

// Returns how many bytes the character has whose first hexadecimal digit this is; 0 when no character begins so.
inline size_t bytes_by_first_digit(char digit) {
  if (static_cast<unsigned char>(digit) < '8')
    return 1;
  switch (tolower(static_cast<unsigned char>(digit))) {
    case 'c':
    case 'd':
      return 2;
    case 'e':
      return 3;
    case 'f':
      return 4;
    default:
      return 0;
  }
}

// Returns the byte that two hexadecimal digits make. Other characters make some byte.
inline char byte_of(const char *digits) {
  return static_cast<char>(from_hex(digits[0]) * 16 + from_hex(digits[1]));
}

} // namespace torvane
