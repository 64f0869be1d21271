// Reads percent-coded characters, as entries and URIs have them.
#pragma once

#include <stddef.h>

namespace torvane {

// The bytes of one UTF-8 character stand as "%XX" each. The "%" of all but the first may be any other character.
constexpr size_t length_of_coded_byte = 3;

// Returns how many bytes the character has whose first hexadecimal digit this is; 0 when no character begins so.
size_t bytes_by_first_digit(char digit);

// Returns the byte that two hexadecimal digits make. Other characters make some byte.
char byte_of(const char *digits);

} // namespace torvane
