// A reply of any contents is received. The first byte of the input tells which server sent it and how many names were
// asked; the rest is the datagram. Message and record have blocks of their own, so that an access beside them is seen.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "dns/quorra_dns_reply.h"
#include "input.h"

using fuzz::demand;

namespace {

constexpr int places = 50;

// Fills in the names that the corpus answers, and others.
void fill_names(DnsQuery &query) {
  for (int i = 0; i < 10; i++)
    memcpy(query.names[i], "a.test", sizeof("a.test"));
  memcpy(query.names[0], "www.test", sizeof("www.test"));
  memset(query.names[9], 'x', sizeof(query.names[9]));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  constexpr size_t largest = 2048;
  if (size == 0 || size > largest + 1)
    return 0;
  const int server = data[0] % 5;
  const size_t length = size - 1;
  uint8_t *message = static_cast<uint8_t *>(fuzz::copy_of(data + 1, length));
  DnsQuery *query = static_cast<DnsQuery *>(calloc(1, sizeof(DnsQuery)));
  DnsQuery *before = static_cast<DnsQuery *>(malloc(sizeof(DnsQuery)));
  torvane::DnsSearch *search = static_cast<torvane::DnsSearch *>(calloc(1, sizeof(torvane::DnsSearch)));
  fill_names(*query);
  query->serverCount = 5;
  query->nameCount = static_cast<uint8_t>(data[0] / 5 % 12);
  memcpy(before, query, sizeof(*query));

  torvane::dns_file_reply({message, length}, server, *query, *search);

  const int addresses = query->ipv4Count + query->ipv6Count;
  demand(addresses >= 0 && addresses + search->target_count <= 20);
  demand(search->target_count >= 0 && search->target_count <= 10);
  for (int i = 0; i < search->target_count; i++)
    demand(memchr(search->targets[i], '\0', sizeof(search->targets[i])));
  demand(!search->matched || addresses > 0);
  // Only counts and at most one place of each table change.
  int changed = 0;
  for (int i = 0; i < places; i++) {
    changed += query->ipv4Result[i / 10][i % 10] != 0;
    static const uint8_t none[16] = {};
    changed += memcmp(query->ipv6Result[i / 10][i % 10], none, sizeof(none)) != 0;
  }
  demand(changed <= 2);
  demand(memcmp(query, before, offsetof(DnsQuery, ipv4Count)) == 0);

  free(message);
  free(query);
  free(before);
  free(search);
  return 0;
}
