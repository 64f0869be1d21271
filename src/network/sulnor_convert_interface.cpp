// Finds IPv6 addresses and the gateway of an interface, in the kernel's file and with the ip tool.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "base/owners.h"
#include "torvane/ipv6.h"
#include "torvane/process.h"

using namespace torvane;

namespace {

constexpr size_t address_size = 16;

// Reads one line of a tool and cuts it at the first `end`. Returns false when there is none.
bool read_word(FILE *from, char (&word)[64], char end) {
  if (!fgets(word, sizeof(word), from))
    return false;
  if (char *found = strchr(word, end))
    *found = '\0';
  return true;
}

} // namespace

extern "C" {

int get_ip6_by_ifname(const char *ifname, int which, unsigned short groups[8]) {
  enum { first_global = 0, first_link_local = 1, second_global = 2 };
  constexpr unsigned global = 0, link_local = 0x20; // scopes

  if (!ifname || !groups)
    return 1;
  const File file(fopen("/proc/net/if_inet6", "re"));
  if (!file)
    return 1;
  int globals = 0;
  char line[128];
  // Reading goes line by line, so that a record that is not as expected (a longer name, an index above 255) spoils no
  // other.
  while (fgets(line, sizeof(line), file.get())) {
    char group[8][5], name[16];
    unsigned index, prefix, scope, flags;
    // NOLINTNEXTLINE(cert-err34-c): two hexadecimal digits do not overflow
    if (sscanf(line, "%4s%4s%4s%4s%4s%4s%4s%4s %02x %02x %02x %02x %12s\n", group[0], group[1], group[2], group[3],
               group[4], group[5], group[6], group[7], &index, &prefix, &scope, &flags, name) != 13 ||
        strcmp(name, ifname) != 0)
      continue;
    globals += scope == global;
    if ((which == first_global && scope == global) || (which == first_link_local && scope == link_local) ||
        (which == second_global && scope == global && globals == 2)) {
      for (int i = 0; i < 8; i++)
        groups[i] = static_cast<unsigned short>(strtol(group[i], nullptr, 16));
      return 0;
    }
  }
  return 1;
}

int j_get_ip6_by_ifname(const char *ifname, int which, unsigned char addr[16]) {
  if (!ifname || !addr)
    return 1;
  memset(addr, 0, address_size);
  FILE *output = which == 1 ? _system_read("ip -6 address show dev %s | grep link | awk '{print $2}'", ifname)
                            : _system_read("ip -6 address show dev %s | grep global | awk '{print $2}'", ifname);
  if (!output)
    return 1;
  char word[64];
  const bool found = read_word(output, word, '/') && (which != 2 || read_word(output, word, '/'));
  // This is meant: a line that holds no address counts as found, and leaves the output zero.
  if (found)
    StringToV6Addr(word, addr);
  _system_close(output);
  return found ? 0 : 1;
}

int get_gw6_by_ifname(const char *ifname, unsigned char addr[16]) {
  if (!ifname || !addr)
    return 1;
  // awk writes the word "via" right behind the gateway, so that its "v" ends the address.
  FILE *output = _system_read("ip -6 route show match ::/0 dev %s |grep \"default via\" |awk '{print $3$2}'", ifname);
  if (!output)
    return 1;
  char word[64];
  const bool found = read_word(output, word, 'v');
  if (found)
    StringToV6Addr(word, addr);
  _system_close(output);
  return found && strcmp(word, "0:0:0:0:0:0:0:0") != 0 ? 0 : 1;
}

} // extern "C"
