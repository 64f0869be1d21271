// Puts a text together piece by piece in a buffer of fixed size. What does not fit is cut.
#pragma once

#include <stdarg.h>
#include <stddef.h>
#include <stdio.h>

namespace torvane {

class TextWriter {
 public:
  // The buffer stays the caller's. It holds an empty text from now on.
  template <size_t Size>
  explicit TextWriter(char (&buffer)[Size]) : TextWriter(buffer, Size) {}
  TextWriter(char *buffer, size_t size) : buffer_(buffer), size_(size) {
    buffer_[0] = '\0';
  }

  [[gnu::format(printf, 2, 3)]] void append(const char *format, ...);

  const char *text() const {
    return buffer_;
  }
  // Returns the text's length without its terminator: at most the buffer's size less one.
  size_t length() const {
    return length_;
  }
  // Returns how many bytes can still be appended.
  size_t room() const {
    return size_ - 1 - length_;
  }
  // Returns where the next text goes, for functions that write into a buffer themselves. By `written` they tell how
  // much they wrote.
  char *end() {
    return buffer_ + length_;
  }
  void written(size_t bytes) {
    length_ += bytes;
  }

 private:
  char *buffer_;
  size_t size_;
  size_t length_ = 0;
};

} // namespace torvane
