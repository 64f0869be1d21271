// The netlink tests put messages about addresses together byte by byte, and read the entries made of them as text.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/if_addr.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <string.h>
#include <sys/socket.h>

#include <array>
#include <string>
#include <vector>

#include "support/sandbox.h"
#include "torvane.h"

namespace network {

using Address = std::array<unsigned char, 16>;
using Datagram = std::vector<unsigned char>;
using Texts = std::vector<std::string>;

inline Address address_of(const char *text) {
  Address address = {};
  EXPECT_EQ(1, inet_pton(strchr(text, ':') ? AF_INET6 : AF_INET, text, address.data())) << text;
  return address;
}

// Returns an entry as "ADDRESS/PREFIX family scope state", the last three as their codes.
inline std::string shown(const v6_ifaddr &entry) {
  char text[INET6_ADDRSTRLEN] = "";
  const unsigned family = entry.info >> 22 & 3;
  inet_ntop(family == 1 ? AF_INET : AF_INET6, entry.addr, text, sizeof(text));
  EXPECT_EQ(0u, entry.info & 0xffff);
  return std::string(text) + "/" + std::to_string(entry.info >> 24) + " " + std::to_string(family) + " " +
         std::to_string(entry.info >> 19 & 7) + " " + std::to_string(entry.info >> 16 & 7);
}

inline v6_ifaddr filter(unsigned prefix, unsigned family, unsigned scope) {
  v6_ifaddr entry = {};
  entry.info = prefix << 24 | family << 22 | scope << 19;
  return entry;
}

template <typename Record>
void append(Datagram &to, const Record &record) {
  const auto *bytes = reinterpret_cast<const unsigned char *>(&record);
  to.insert(to.end(), bytes, bytes + sizeof(record));
}

inline void pad(Datagram &to) {
  to.resize((to.size() + 3) / 4 * 4);
}

inline Datagram attribute(unsigned short type, const Datagram &value) {
  Datagram bytes;
  append(bytes, rtattr{static_cast<unsigned short>(sizeof(rtattr) + value.size()), type});
  bytes.insert(bytes.end(), value.begin(), value.end());
  return bytes;
}

// Returns an attribute whose length field may be wrong.
inline Datagram cut_attribute(size_t length, unsigned short type, const Datagram &value) {
  Datagram bytes;
  append(bytes, rtattr{static_cast<unsigned short>(length), type});
  bytes.insert(bytes.end(), value.begin(), value.end());
  return bytes;
}

inline Datagram message(unsigned short type, const Datagram &body) {
  nlmsghdr header = {};
  header.nlmsg_len = static_cast<uint32_t>(sizeof(header) + body.size());
  header.nlmsg_type = type;
  Datagram bytes;
  append(bytes, header);
  bytes.insert(bytes.end(), body.begin(), body.end());
  return bytes;
}

inline Datagram with_length(Datagram bytes, uint32_t length) {
  memcpy(bytes.data(), &length, sizeof(length));
  return bytes;
}

inline Datagram joined(const std::vector<Datagram> &parts) {
  Datagram all;
  for (const Datagram &part : parts) {
    pad(all);
    all.insert(all.end(), part.begin(), part.end());
  }
  return all;
}

inline Datagram address_bytes(const char *text) {
  const Address address = address_of(text);
  return Datagram(address.begin(), address.begin() + (strchr(text, ':') ? 16 : 4));
}

inline Datagram address_message(const ifaddrmsg &about, const std::vector<Datagram> &attributes) {
  Datagram body;
  append(body, about);
  const Datagram rest = joined(attributes);
  body.insert(body.end(), rest.begin(), rest.end());
  return message(RTM_NEWADDR, body);
}

inline Datagram ipv6_message(const char *text, unsigned index = 5, unsigned char scope = RT_SCOPE_UNIVERSE) {
  return address_message({AF_INET6, 64, IFA_F_PERMANENT, scope, index}, {attribute(IFA_ADDRESS, address_bytes(text))});
}

inline const Datagram done = message(NLMSG_DONE, Datagram(4));

// Expects one trace on the console. The IPv6 functions trace with process and thread in the header.
inline void expect_ipv6_trace(const char *func, const std::string &text) {
  const auto traces = sandbox::console();
  ASSERT_EQ(1u, traces.size());
  EXPECT_TRUE(traces[0].has_process);
  EXPECT_EQ("sulnor_convert", traces[0].file);
  EXPECT_EQ(func, traces[0].func);
  EXPECT_EQ(text, traces[0].message);
}

} // namespace network
