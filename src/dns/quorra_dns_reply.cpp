// Reads DNS replies. Nothing is read outside of the bytes received, whatever a server sends, and a reply that makes no
// sense within them is dropped before anything of it is filed.
#include "dns/quorra_dns_reply.h"

#include <string.h>

#include "base/trace.h"
#include "torvane/dns.h"

using namespace torvane;

namespace {

constexpr const char *trace_module = "quorra_dns";
constexpr char main_function[] = "dnsQuery4_main"; // in whose name replies are handled

constexpr size_t header_size = 12;
constexpr size_t answer_count_at = 6;
constexpr size_t question_fixed_size = 4; // type and class
constexpr size_t ttl_and_class_size = 6;
constexpr size_t ipv4_size = 4;
constexpr size_t ipv6_size = 16;

constexpr int answer_room = 20;

struct Answer {
  uint16_t type;
  size_t data_at; // in the message
};

struct Reply {
  int count;
  Answer answers[answer_room];
  char owner[dns_name_size]; // of the first answer
};

// Reads past the data of an answer. This is meant: data of other types than addresses is taken for a name and ends
// where that name ends, whatever the record says of its length.
void read_data(ByteReader &reader, uint16_t type, uint16_t length) {
  if (type == dns_type_a || type == dns_type_aaaa) {
    reader.skip(length);
    return;
  }
  char ignored[dns_name_size];
  read_dns_name(reader, ignored);
}

bool holds_an_address(uint16_t type, uint16_t length) {
  if (type == dns_type_a)
    return length >= ipv4_size;
  return type != dns_type_aaaa || length >= ipv6_size;
}

bool read_reply(std::span<const uint8_t> message, Reply &reply) {
  const int answers = ByteReader(message, answer_count_at).word();
  reply.count = answers < answer_room ? answers : answer_room;

  ByteReader reader(message, header_size);
  while (reader.byte() != 0) {
    // skips the name of the question
  }
  reader.skip(question_fixed_size);
  for (int i = 0; i < reply.count; i++) {
    char owner[dns_name_size];
    read_dns_name(reader, i == 0 ? reply.owner : owner);
    const uint16_t type = reader.word();
    reader.skip(ttl_and_class_size);
    const uint16_t length = reader.word();
    reply.answers[i] = {type, reader.at()};
    read_data(reader, type, length);
    if (reader.failed() || !holds_an_address(type, length))
      return false;
  }
  return true;
}

// Returns the number of the first of the query's names that is `owner`, or the number of its names when none is.
int slot_of(const char *owner, const DnsQuery &query) {
  const int names = dns_names_of(query);
  int slot = 0;
  while (slot < names && strncmp(query.names[slot], owner, dns_name_size) != 0)
    slot++;
  return slot;
}

void append_target(ByteReader data, DnsSearch &search) {
  if (search.target_count == dns_names) {
    TRACE_AS(main_function, "cnamecnt reached limit %d\n", dns_names);
    return;
  }
  read_dns_name(data, search.targets[search.target_count++]);
}

} // namespace

namespace torvane {

void dns_file_reply(std::span<const uint8_t> message, int server, DnsQuery &query, DnsSearch &search) {
  Reply reply;
  if (!read_reply(message, reply) || reply.count == 0)
    return;
  // This is meant: all answers of a reply are filed under the owner of the first, because those behind an alias have
  // another owner.
  const int slot = slot_of(reply.owner, query);
  const bool matches = slot < dns_names_of(query);
  // This is meant: with ten names the slot behind the last one is the first slot of the next server. The last server
  // has no such neighbour, so what would go there is counted and not stored.
  const int row = server + slot / dns_names, column = slot % dns_names;
  const bool has_place = row < dns_servers;

  for (int i = 0; i < reply.count; i++) {
    ByteReader data(message, reply.answers[i].data_at);
    switch (reply.answers[i].type) {
      case dns_type_a:
        if (has_place)
          data.copy(&query.ipv4Result[row][column], ipv4_size);
        query.ipv4Count++;
        search.matched |= matches;
        break;
      case dns_type_aaaa:
        if (has_place)
          data.copy(query.ipv6Result[row][column], ipv6_size);
        query.ipv6Count++;
        search.matched |= matches;
        break;
      case dns_type_cname:
        append_target(data, search);
        break;
      default:
        break;
    }
  }
}

} // namespace torvane
