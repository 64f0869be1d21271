// Tests put DNS messages together byte by byte, for servers that tell the truth and for servers that do not.
#pragma once

#include <arpa/inet.h>
#include <stdint.h>

#include <algorithm>
#include <string>

namespace dns {

using Bytes = std::string;

constexpr unsigned type_a = 1, type_ns = 2, type_cname = 5, type_txt = 16, type_aaaa = 28;

constexpr size_t header_size = 12;

inline Bytes word(unsigned value) {
  return {static_cast<char>(value >> 8 & 255), static_cast<char>(value & 255)};
}

// Returns the labels of a name with their zero byte. The name has no dot at its end.
inline Bytes labels(const std::string &name) {
  Bytes out;
  for (size_t from = 0; from < name.size();) {
    const size_t dot = std::min(name.find('.', from), name.size());
    out += static_cast<char>(dot - from);
    out += name.substr(from, dot - from);
    from = dot + 1;
  }
  return out + Bytes(1, '\0');
}

// Returns a compression pointer to a place in the message.
inline Bytes pointer(unsigned at) {
  return word(0xC000 + at);
}

inline Bytes to_question() {
  return pointer(header_size);
}

// Returns a resource record whose length field says `length`, whatever the data's size is.
inline Bytes record(const Bytes &owner, unsigned type, const Bytes &data, size_t length) {
  return owner + word(type) + word(1) + word(0) + word(60) + word(static_cast<unsigned>(length)) + data;
}

inline Bytes record(const Bytes &owner, unsigned type, const Bytes &data) {
  return record(owner, type, data, data.size());
}

inline Bytes ipv4(const char *text) {
  in_addr address;
  inet_pton(AF_INET, text, &address);
  return {reinterpret_cast<const char *>(&address), sizeof(address)};
}

inline Bytes ipv6(const char *text) {
  in6_addr address;
  inet_pton(AF_INET6, text, &address);
  return {reinterpret_cast<const char *>(&address), sizeof(address)};
}

inline Bytes a(const Bytes &owner, const char *address) {
  return record(owner, type_a, ipv4(address));
}

inline Bytes aaaa(const Bytes &owner, const char *address) {
  return record(owner, type_aaaa, ipv6(address));
}

inline Bytes cname(const Bytes &owner, const Bytes &target) {
  return record(owner, type_cname, target);
}

inline Bytes header(unsigned id, unsigned flags, unsigned answers) {
  return word(id) + word(flags) + word(1) + word(answers) + word(0) + word(0);
}

// Returns a reply to `query` that claims `count` answers and has the bytes of `answers`.
inline Bytes reply(const Bytes &query, unsigned count, const Bytes &answers) {
  return query.substr(0, 2) + word(0x8180) + word(1) + word(count) + word(0) + word(0) + query.substr(header_size) +
         answers;
}

// These return the name in a query's question, as dotted text, and its type.
inline std::string name_asked(const Bytes &query) {
  std::string name;
  size_t at = header_size;
  while (at < query.size() && query[at] != 0) {
    const size_t length = static_cast<uint8_t>(query[at]);
    name += (name.empty() ? "" : ".") + query.substr(at + 1, length);
    at += length + 1;
  }
  return name;
}

inline unsigned type_asked(const Bytes &query) {
  const size_t at = query.size() - 4;
  return static_cast<uint8_t>(query[at]) * 256u + static_cast<uint8_t>(query[at + 1]);
}

inline unsigned id_of(const Bytes &message) {
  return static_cast<uint8_t>(message[0]) * 256u + static_cast<uint8_t>(message[1]);
}

} // namespace dns
