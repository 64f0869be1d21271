#include "cgi/coded_bytes.h"

#include <ctype.h>

#include "torvane/text.h"

namespace torvane {

size_t bytes_by_first_digit(char digit) {
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

char byte_of(const char *digits) {
  return static_cast<char>(from_hex(digits[0]) * 16 + from_hex(digits[1]));
}

} // namespace torvane
