// Reads DNS replies within the bytes that were received, and files them in the caller's record.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <span>

#include "dns/quorra_dns_names.h"
#include "torvane/dns.h"

namespace torvane {

constexpr int dns_servers = 5; // that a DnsQuery has room for
constexpr int dns_names = 10;  // that a DnsQuery has room for

enum : uint16_t { dns_type_a = 1, dns_type_cname = 5, dns_type_aaaa = 28 };

// Holds what the replies to a round of questions led to.
struct DnsSearch {
  bool matched;                           // a reply answered one of the names
  int target_count;                       // entries of `targets` in use
  char targets[dns_names][dns_name_size]; // the names that CNAME answers gave
};

// These return the counts of a query. A query that claims more has as many as its record has room for.
inline int dns_servers_of(const DnsQuery &query) {
  return query.serverCount < dns_servers ? query.serverCount : dns_servers;
}
inline int dns_names_of(const DnsQuery &query) {
  return query.nameCount < dns_names ? query.nameCount : dns_names;
}

// Files the answers that the server number `server` gave. A reply that cannot be read within its bytes changes nothing.
void dns_file_reply(std::span<const uint8_t> message, int server, DnsQuery &query, DnsSearch &search);

} // namespace torvane
