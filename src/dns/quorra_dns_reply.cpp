// DNS replies. Whatever a server sends, nothing is read outside of the bytes received, and a reply that makes no sense
// within them is dropped before anything of it is filed.
#include "dns/quorra_dns_reply.h"

#include <string.h>

#include "base/trace.h"
#include "torvane/dns.h"

namespace {

using torvane::dns_name_size;
using torvane::dns_names;
using torvane::DnsSearch;
using torvane::MessageReader;

constexpr char trace_module[] = "quorra_dns";
constexpr char main_function[] = "dnsQuery4_main"; // in whose name replies are handled

constexpr size_t header_size = 12;
constexpr size_t answer_count_at = 6;
constexpr size_t question_fixed_size = 4; // type and class
constexpr size_t ttl_and_class_size = 6;
constexpr size_t ipv4_size = 4;
constexpr size_t ipv6_size = 16;

constexpr unsigned first_pointer = 0xC0; // bytes from here on start a compression pointer
constexpr unsigned pointer_mark = first_pointer << 8;

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

// The labels of a name, length bytes and all, become dotted text. False when the last one is longer than what is there.
bool make_dotted(char *name, size_t length) {
  size_t at = 0;
  while (at < length) {
    const size_t label = static_cast<uint8_t>(name[at]);
    if (label >= length - at)
      return false;
    memmove(name + at, name + at + 1, label);
    at += label;
    name[at++] = '.';
  }
  name[length > 0 ? length - 1 : 0] = '\0';
  return true;
}

// Data of other types is taken for a name and ends where that name ends, whatever the record says of its length.
void read_data(MessageReader &reader, uint16_t type, uint16_t length) {
  if (type == torvane::dns_type_a || type == torvane::dns_type_aaaa) {
    reader.skip(length);
    return;
  }
  char ignored[dns_name_size];
  reader.name(ignored);
}

bool holds_an_address(uint16_t type, uint16_t length) {
  if (type == torvane::dns_type_a)
    return length >= ipv4_size;
  return type != torvane::dns_type_aaaa || length >= ipv6_size;
}

bool read_reply(std::span<const uint8_t> message, Reply &reply) {
  const int answers = MessageReader(message, answer_count_at).word();
  reply.count = answers < answer_room ? answers : answer_room;

  MessageReader reader(message, header_size);
  while (reader.byte() != 0) {
    // the question's name
  }
  reader.skip(question_fixed_size);
  for (int i = 0; i < reply.count; i++) {
    char owner[dns_name_size];
    reader.name(i == 0 ? reply.owner : owner);
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

// The first of the names that is `owner`; the slot behind the last name when none is.
int slot_of(const char *owner, const DnsQuery &query) {
  const int names = torvane::dns_names_of(query);
  int slot = 0;
  while (slot < names && strncmp(query.names[slot], owner, dns_name_size) != 0)
    slot++;
  return slot;
}

void append_target(MessageReader data, DnsSearch &search) {
  if (search.target_count == dns_names) {
    TRACE_AS(main_function, "cnamecnt reached limit %d\n", dns_names);
    return;
  }
  data.name(search.targets[search.target_count++]);
}

} // namespace

namespace torvane {

uint8_t MessageReader::byte() {
  if (at_ >= message_.size()) {
    failed_ = true;
    return 0;
  }
  return message_[at_++];
}

uint16_t MessageReader::word() {
  const unsigned high = byte();
  return static_cast<uint16_t>(high << 8 | byte());
}

void MessageReader::skip(size_t bytes) {
  if (failed_ || at_ > message_.size() || bytes > message_.size() - at_)
    failed_ = true;
  else
    at_ += bytes;
}

void MessageReader::copy(void *out, size_t bytes) {
  const size_t from = at_;
  skip(bytes);
  if (!failed_)
    memcpy(out, message_.data() + from, bytes);
}

void MessageReader::name(char *out) {
  MessageReader labels = *this; // goes where the pointers lead
  size_t length = 0, pointers = 0;
  while (const uint8_t value = labels.byte()) {
    if (value < first_pointer) {
      if (length == dns_name_size - 1) {
        labels.failed_ = true;
        break;
      }
      out[length++] = static_cast<char>(value);
      continue;
    }
    const unsigned target = (value * 256u + labels.byte()) - pointer_mark;
    if (pointers == 0)
      at_ = labels.at_;
    // One place was visited twice when there were more pointers than places.
    if (pointers++ == message_.size())
      labels.failed_ = true;
    if (labels.failed_)
      break;
    labels.at_ = target;
  }
  if (pointers == 0)
    at_ = labels.at_;
  failed_ = labels.failed_ || !make_dotted(out, length);
}

void dns_file_reply(std::span<const uint8_t> message, int server, DnsQuery &query, DnsSearch &search) {
  Reply reply;
  if (!read_reply(message, reply) || reply.count == 0)
    return;
  const int slot = slot_of(reply.owner, query);
  const bool matches = slot < dns_names_of(query);
  // With ten names the slot behind the last is the next server's first. The last server has no such neighbour: what
  // would go there is counted and not stored.
  const int row = server + slot / dns_names, column = slot % dns_names;
  const bool has_place = row < dns_servers;

  for (int i = 0; i < reply.count; i++) {
    MessageReader data(message, reply.answers[i].data_at);
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
