// DNS replies: read within the bytes that were received, and filed in the caller's record.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <span>

#include "torvane/dns.h"

namespace torvane {

constexpr size_t dns_name_size = 256; // bytes of a dotted name with its terminator
constexpr int dns_servers = 5;        // of a DnsQuery
constexpr int dns_names = 10;         // of a DnsQuery

enum : uint16_t { dns_type_a = 1, dns_type_cname = 5, dns_type_aaaa = 28 };

// A received message, read from a place in it on. What lies outside of it reads as 0 and makes the reader fail, for
// good: a parser asks once, at the end of what belongs together. Every byte of a reply passes through here.
class MessageReader {
 public:
  MessageReader(std::span<const uint8_t> message, size_t at) : message_(message), at_(at) {}

  bool failed() const {
    return failed_;
  }
  size_t at() const {
    return at_;
  }
  uint8_t byte();
  uint16_t word();
  void skip(size_t bytes);
  void copy(void *out, size_t bytes);

  // The name that stands here, compressed or not, as dotted text in dns_name_size bytes; reading goes on behind its
  // place here. Fails for a name whose labels take 256 bytes or more, whose pointers form a loop, or whose last label
  // is longer than what is left of it.
  void name(char *out);

 private:
  std::span<const uint8_t> message_;
  size_t at_;
  bool failed_ = false;
};

// Where one question after another led.
struct DnsSearch {
  bool matched;                           // a reply answered one of the names
  int target_count;                       // entries of `targets` in use
  char targets[dns_names][dns_name_size]; // of CNAME answers
};

// The count of a record as far as the record has room.
inline int dns_servers_of(const DnsQuery &query) {
  return query.serverCount < dns_servers ? query.serverCount : dns_servers;
}
inline int dns_names_of(const DnsQuery &query) {
  return query.nameCount < dns_names ? query.nameCount : dns_names;
}

// Files the answers of a reply of the server number `server`. A reply that cannot be read within its bytes changes
// nothing.
void dns_file_reply(std::span<const uint8_t> message, int server, DnsQuery &query, DnsSearch &search);

} // namespace torvane
