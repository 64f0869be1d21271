#include "base/text_writer.h"

namespace torvane {

void TextWriter::append(const char *format, ...) {
  va_list values;
  va_start(values, format);
  const int wanted = vsnprintf(end(), room() + 1, format, values);
  va_end(values);
  if (wanted > 0)
    length_ += static_cast<size_t>(wanted) < room() ? static_cast<size_t>(wanted) : room();
}

} // namespace torvane
