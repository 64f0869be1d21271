// Asks several DNS servers the same questions at once over UDP, and collects what they answer.
#include <errno.h>
#include <netinet/in.h>
#include <stdio.h>
#include <string.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <string_view>

#include "base/socket_address.h"
#include "base/trace.h"
#include "dns/quorra_dns_reply.h"
#include "torvane/dns.h"

using namespace torvane;

namespace {

constexpr const char *trace_module = "quorra_dns";

constexpr int further_passes = 3;
constexpr size_t message_size = 2048; // bytes of the buffers of a query and of a reply
constexpr uint16_t dns_port = 53;
constexpr useconds_t pause_between_queries = 1000; // microseconds

constexpr uint16_t recursion_desired = 0x0100;
constexpr uint16_t class_internet = 1;

uint16_t dnsQueryId = 301; // the next query gets it

// Threads that ask at the same time may get the same id, which does no harm. This is meant: replies are taken whatever
// their id, flags and source.
uint16_t next_query_id() {
  const uint16_t id = __atomic_load_n(&dnsQueryId, __ATOMIC_RELAXED);
  __atomic_store_n(&dnsQueryId, static_cast<uint16_t>(id + 1), __ATOMIC_RELAXED);
  return id;
}

uint8_t *put_word(uint8_t *out, unsigned value) {
  *out++ = static_cast<uint8_t>(value >> 8);
  *out++ = static_cast<uint8_t>(value);
  return out;
}

// A name may fill its field in the record and then has no terminator.
std::string_view name_in(const char (&field)[dns_name_size]) {
  return {field, strnlen(field, dns_name_size)};
}

// One call of dnsQuery4_main works with these.
struct Client {
  DnsQuery &query;
  uint16_t type;
  int *responded;
  DnsSearch search;
  int sockets[dns_servers]; // -1: none
};

// Returns false when a socket could not be opened. This is meant: those opened before it stay open.
bool open_sockets(Client &client) {
  std::fill(std::begin(client.sockets), std::end(client.sockets), -1);
  for (int i = 0; i < dns_servers_of(client.query); i++) {
    client.sockets[i] = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP);
    if (client.sockets[i] == -1)
      return false;
  }
  return true;
}

void close_sockets(const Client &client) {
  for (const int fd : client.sockets) {
    if (fd != -1)
      close(fd);
  }
}

bool send_question(const Client &client, int server, std::string_view name) {
  static_assert(dns_name_size + 18 <= message_size, "header, labels, type and class");
  uint8_t message[message_size];
  uint8_t *end = put_word(message, next_query_id());
  end = put_word(end, recursion_desired);
  end = put_word(end, 1); // question
  end = put_word(end, 0); // answers
  end = put_word(end, 0); // authorities
  end = put_word(end, 0); // additional records
  end = put_dns_labels(end, name);
  end = put_word(end, client.type);
  end = put_word(end, class_internet);

  const sockaddr_in to = socket_address(client.query.servers[server], htons(dns_port));
  if (sendto(client.sockets[server], message, static_cast<size_t>(end - message), 0, as_sockaddr(to), sizeof(to)) ==
      -1) {
    perror("sendto failed");
    return false;
  }
  usleep(pause_between_queries);
  return true;
}

// Asks for the names of the record in the first pass, and afterwards for the names that the pass before led to.
bool send_questions(const Client &client, bool first_pass) {
  const auto &names = first_pass ? client.query.names : client.search.targets;
  const int count = first_pass ? dns_names_of(client.query) : client.search.target_count;
  for (int server = 0; server < dns_servers_of(client.query); server++) {
    for (int i = 0; i < count; i++) {
      if (!send_question(client, server, name_in(names[i])))
        return false;
    }
  }
  return true;
}

// Returns what select returns: the number of sockets in `ready`, 0 when the time is over, -1 on an error.
int wait_for_replies(const Client &client, fd_set &ready) {
  int result;
  do {
    int highest = -1;
    FD_ZERO(&ready);
    for (const int fd : client.sockets) {
      if (fd >= FD_SETSIZE)
        return -1; // a set has no room for it
      if (fd != -1)
        FD_SET(fd, &ready);
      highest = std::max(highest, fd);
    }
    timeval timeout = {client.query.timeoutSec, 0};
    result = select(highest + 1, &ready, nullptr, nullptr, &timeout);
  } while (result == -1 && to_be_tried_again(errno));
  return result;
}

void receive(Client &client, int server) {
  int &fd = client.sockets[server];
  if (bytes_waiting(fd) == 0) {
    close(fd);
    fd = -1;
    return;
  }
  uint8_t message[message_size];
  const ssize_t length = recvfrom(fd, message, sizeof(message), 0, nullptr, nullptr);
  if (length == -1) {
    perror("recvfrom failed");
    return;
  }
  *client.responded = 1;
  dns_file_reply({message, static_cast<size_t>(length)}, server, client.query, client.search);
}

// Receives until the time is over without a reply, or what came is enough. Returns false when waiting fails.
bool receive_replies(Client &client) {
  fd_set ready;
  int count;
  while ((count = wait_for_replies(client, ready)) > 0) {
    // This is meant: only the aliases that came since the last wait are asked for.
    client.search.target_count = 0;
    client.search.matched = false;
    for (int server = 0; server < dns_servers; server++) {
      const int fd = client.sockets[server];
      if (fd != -1 && FD_ISSET(fd, &ready))
        receive(client, server);
    }
    if (client.query.stopOnMatch && client.search.matched)
      break;
  }
  return count != -1;
}

bool run_pass(Client &client, bool first_pass) {
  if (!open_sockets(client))
    return false;
  const bool done = send_questions(client, first_pass) && receive_replies(client);
  close_sockets(client);
  return done;
}

void clear_results(DnsQuery &query) {
  query.ipv4Count = 0;
  memset(query.ipv4Result, 0, sizeof(query.ipv4Result));
  query.ipv6Count = 0;
  memset(query.ipv6Result, 0, sizeof(query.ipv6Result));
}

} // namespace

extern "C" {

int dnsQuery4(DnsQuery *query) {
  if (!query)
    return 0;
  clear_results(*query);
  int responded = 0, result = 0;
  for (const uint16_t type : {dns_type_a, dns_type_aaaa}) {
    result |= dnsQuery4_main(query, &responded, type);
    TRACE("ipv4 result count = %d\n", query->ipv4Count);
    TRACE("ipv6 result count = %d\n", query->ipv6Count);
  }
  return result;
}

int dnsQuery4_checkServerResponseOnly(DnsQuery *query) {
  if (!query)
    return 0;
  clear_results(*query);
  int responded = 0;
  dnsQuery4_main(query, &responded, dns_type_a);
  dnsQuery4_main(query, &responded, dns_type_aaaa);
  return responded;
}

// NOLINTNEXTLINE(readability-non-const-parameter): it is kept, and written when a reply comes
int dnsQuery4_main(DnsQuery *query, int *responded, uint16_t qtype) {
  if (!query || !responded)
    return 0;
  Client client = {*query, qtype, responded, {}, {}};
  for (int pass = 0; pass <= further_passes; pass++) {
    if (!run_pass(client, pass == 0))
      return 0;
    // This is meant: a query that found nothing and met no alias succeeds too.
    if (query->ipv4Count != 0 || query->ipv6Count != 0 || client.search.target_count == 0)
      return 1;
  }
  return 0;
}

} // extern "C"
