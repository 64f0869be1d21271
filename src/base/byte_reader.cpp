#include "base/byte_reader.h"

namespace torvane {

uint8_t ByteReader::byte() {
  if (left() == 0) {
    fail();
    return 0;
  }
  return bytes_[at_++];
}

uint16_t ByteReader::word() {
  const unsigned high = byte();
  return static_cast<uint16_t>(high << 8 | byte());
}

void ByteReader::skip(size_t count) {
  if (count > left())
    fail();
  else
    at_ += count;
}

void ByteReader::copy(void *out, size_t count) {
  const size_t from = at_;
  skip(count);
  if (!failed_)
    memcpy(out, bytes_.data() + from, count);
}

} // namespace torvane
