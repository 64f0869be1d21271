// Text put together piece by piece in a buffer of fixed size. What does not fit is cut.
#pragma once

#include <stdarg.h>
#include <stddef.h>
#include <stdio.h>

namespace torvane {

template <size_t Size>
struct BoundedText {
  char text[Size] = {};
  size_t length = 0; // without the terminator, never more than Size - 1

  [[gnu::format(printf, 2, 3)]] void append(const char *format, ...) {
    va_list values;
    va_start(values, format);
    const int wanted = vsnprintf(text + length, Size - length, format, values);
    va_end(values);
    if (wanted > 0)
      length += static_cast<size_t>(wanted) < room() ? static_cast<size_t>(wanted) : room();
  }

  // Bytes that can still be appended.
  size_t room() const {
    return Size - 1 - length;
  }
};

} // namespace torvane
