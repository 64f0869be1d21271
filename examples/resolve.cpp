// Asks several DNS servers for several names at once, and shows which of them answers what.
//
//   resolve [-1] [-t SECONDS] [-s ADDRESS]... [-f FILE] NAME...
#include <arpa/inet.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <torvane/dns.h>

namespace {

constexpr int most_servers = 5;
// A record has slots for ten names. The library files answers to other names, such as the target of an alias, in the
// slot behind the last name; with ten names that would be the first slot of the next server.
constexpr int most_names = 9;

constexpr int exit_found = 0, exit_nothing = 1, exit_usage = 2;

struct Options {
  bool first_match = false;
  uint8_t seconds = 2;
  std::vector<std::string> servers;
  std::string file = "/etc/resolv.conf";
  std::vector<std::string> names;
};

int usage() {
  fprintf(stderr,
          "usage: resolve [-1] [-t SECONDS] [-s ADDRESS]... [-f FILE] NAME...\n"
          "  -1          stop at the first address\n"
          "  -t SECONDS  wait so long after each reply for another one, 1 to 255 (2)\n"
          "  -s ADDRESS  IPv4 address of a server to ask, at most %d times\n"
          "  -f FILE     without -s: ask the servers of its nameserver lines (/etc/resolv.conf)\n"
          "  NAME        at most %d\n",
          most_servers, most_names);
  return exit_usage;
}

int mistake(const std::string &text) {
  fprintf(stderr, "resolve: %s\n", text.c_str());
  return exit_usage;
}

bool is_address(const std::string &text) {
  in_addr ignored;
  return inet_pton(AF_INET, text.c_str(), &ignored) == 1;
}

// Returns false if the arguments are not as the usage says.
bool read_options(int argc, char **argv, Options &options) {
  for (int option; (option = getopt(argc, argv, "1t:s:f:")) != -1;) {
    switch (option) {
      case '1':
        options.first_match = true;
        break;
      case 't': {
        char *end;
        const long seconds = strtol(optarg, &end, 10);
        if (*end != '\0' || seconds < 1 || seconds > 255)
          return false;
        options.seconds = static_cast<uint8_t>(seconds);
        break;
      }
      case 's':
        options.servers.emplace_back(optarg);
        break;
      case 'f':
        options.file = optarg;
        break;
      default:
        return false;
    }
  }
  options.names.assign(argv + optind, argv + argc);
  return !options.names.empty() && options.names.size() <= most_names && options.servers.size() <= most_servers;
}

// Returns the first IPv4 addresses in the nameserver lines of a file like /etc/resolv.conf.
std::vector<std::string> servers_of(const std::string &path) {
  std::vector<std::string> servers;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line) && servers.size() < most_servers;) {
    std::istringstream words(line);
    std::string keyword, address;
    if (words >> keyword >> address && keyword == "nameserver" && is_address(address))
      servers.push_back(address);
  }
  return servers;
}

// A query record is too large for the stack of a small thread, so that programs make it static or allocate it.
DnsQuery query;

void prepare(const Options &options) {
  query.serverCount = static_cast<uint8_t>(options.servers.size());
  for (size_t i = 0; i < options.servers.size(); i++)
    inet_pton(AF_INET, options.servers[i].c_str(), &query.servers[i]);
  query.nameCount = static_cast<uint8_t>(options.names.size());
  for (size_t i = 0; i < options.names.size(); i++)
    memcpy(query.names[i], options.names[i].c_str(), options.names[i].size() + 1);
  query.stopOnMatch = options.first_match;
  query.timeoutSec = options.seconds;
}

std::string ipv4_text(int server, int slot) {
  char text[INET_ADDRSTRLEN];
  const uint32_t &address = query.ipv4Result[server][slot];
  return address != 0 ? inet_ntop(AF_INET, &address, text, sizeof(text)) : "-";
}

std::string ipv6_text(int server, int slot) {
  char text[INET6_ADDRSTRLEN];
  const uint8_t *address = query.ipv6Result[server][slot];
  const bool filed = std::any_of(address, address + 16, [](uint8_t byte) { return byte != 0; });
  return filed ? inet_ntop(AF_INET6, address, text, sizeof(text)) : "-";
}

bool has_address(int server) {
  for (int slot = 0; slot < 10; slot++) {
    if (ipv4_text(server, slot) != "-" || ipv6_text(server, slot) != "-")
      return true;
  }
  return false;
}

// Returns whether the server replies at all. It is asked with a second record that lists no other server.
bool replies(int server) {
  static DnsQuery probe;
  probe = query;
  probe.servers[0] = query.servers[server];
  probe.serverCount = 1;
  return dnsQuery4_checkServerResponseOnly(&probe) == 1;
}

void print_row(int width, const std::string &server, const std::string &name, const std::string &a,
               const std::string &aaaa) {
  printf("%-15s  %-*s  %-15s  %s\n", server.c_str(), width, name.c_str(), a.c_str(), aaaa.c_str());
}

void print_table(const Options &options) {
  static const std::string other = "(other)"; // the slot behind the last name
  const int names = static_cast<int>(options.names.size());
  size_t width = other.size();
  for (const std::string &name : options.names)
    width = std::max(width, name.size());
  const int columns = static_cast<int>(width);

  print_row(columns, "SERVER", "NAME", "A", "AAAA");
  for (int server = 0; server < query.serverCount; server++) {
    const std::string &address = options.servers[static_cast<size_t>(server)];
    // With -1 a server without an address may only have been slower than another one.
    if (!has_address(server)) {
      const char *state = options.first_match ? "nothing yet" : replies(server) ? "has none" : "no reply";
      printf("%-15s  %-*s  %s\n", address.c_str(), columns, "-", state);
      continue;
    }
    for (int slot = 0; slot <= names; slot++) {
      const std::string a = ipv4_text(server, slot), aaaa = ipv6_text(server, slot);
      if (slot < names)
        print_row(columns, address, options.names[static_cast<size_t>(slot)], a, aaaa);
      else if (a != "-" || aaaa != "-")
        print_row(columns, address, other, a, aaaa);
    }
  }
}

} // namespace

int main(int argc, char **argv) {
  Options options;
  if (!read_options(argc, argv, options))
    return usage();
  if (options.servers.empty()) {
    options.servers = servers_of(options.file);
    if (options.servers.empty())
      return mistake("no IPv4 nameserver in " + options.file);
  }
  for (const std::string &server : options.servers) {
    if (!is_address(server))
      return mistake("no IPv4 address: " + server);
  }
  // The library finds an answer's slot by the name in the answer, which has no dot at its end.
  for (std::string &name : options.names) {
    if (name.size() > 1 && name.back() == '.')
      name.pop_back();
    if (name.size() >= sizeof(query.names[0]))
      return mistake("name too long: " + name);
  }

  prepare(options);
  dnsQuery4(&query);
  // The counts say whether there is an address. The result of dnsQuery4 does not: it can be 1 without one.
  const bool found = query.ipv4Count != 0 || query.ipv6Count != 0;
  print_table(options);
  return found ? exit_found : exit_nothing;
}
