// Reads bytes that came from elsewhere: DNS replies, netlink messages. Every byte of them passes through here.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <span>

namespace torvane {

// Reads received bytes one after the other, from a place in them on. Bytes outside of them read as 0 and make the
// reader fail, for good: a parser asks once, at the end of what belongs together.
class ByteReader {
 public:
  explicit ByteReader(std::span<const uint8_t> bytes, size_t at = 0) : bytes_(bytes), at_(at) {}

  bool failed() const {
    return failed_;
  }
  void fail() {
    failed_ = true;
  }

  // Returns the number of all bytes.
  size_t size() const {
    return bytes_.size();
  }
  // Returns the place of the next byte among them.
  size_t at() const {
    return at_;
  }
  void go_to(size_t at) {
    at_ = at;
  }
  // Returns how many bytes are left to read: none once the reader has failed.
  size_t left() const {
    return failed_ || at_ > bytes_.size() ? 0 : bytes_.size() - at_;
  }

  uint8_t byte();
  // Reads two bytes in network order.
  uint16_t word();
  void skip(size_t count);
  // Leaves `out` as it was when there are not as many bytes.
  void copy(void *out, size_t count);

  // Reads a record in the byte order of this machine; it is zeroed when there are not as many bytes.
  template <typename Record>
  Record record() {
    Record out = {};
    copy(&out, sizeof(out));
    return out;
  }
  // Returns a reader of the next `count` bytes; this one goes on behind them. Both fail when there are not as many.
  ByteReader part(size_t count) {
    const size_t from = at_;
    skip(count);
    ByteReader part(failed_ ? std::span<const uint8_t>() : bytes_.subspan(from, count));
    part.failed_ = failed_;
    return part;
  }

 private:
  std::span<const uint8_t> bytes_;
  size_t at_;
  bool failed_ = false;
};

} // namespace torvane
