// IPv6 addresses of interfaces, asked of the kernel by netlink and by its file, and of the ip tool; address text.
#include <ctype.h>
#include <linux/if_addr.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>

#include "base/heap_block.h"
#include "base/trace.h"
#include "torvane/ipv6.h"
#include "torvane/process.h"
#include "torvane/text.h"

namespace {

constexpr char trace_module[] = "sulnor_convert";

// Codes of v6_ifaddr.info, and where they stand in it.

enum { family_other = 0, family_ipv4 = 1, family_ipv6 = 2 };

struct Field {
  unsigned shift, bits;
};

constexpr Field prefix_length = {24, 8};
constexpr Field family_code = {22, 2};
constexpr Field scope_code = {19, 3};
constexpr Field state_code = {16, 3};

uint32_t get(const v6_ifaddr &entry, Field field) {
  return entry.info >> field.shift & ((1u << field.bits) - 1);
}

void set(v6_ifaddr &entry, Field field, uint32_t code) {
  const uint32_t mask = ((1u << field.bits) - 1) << field.shift;
  entry.info = (entry.info & ~mask) | (code << field.shift & mask);
}

// Whether the filter lets the code pass; if so it is in the entry.
bool pass(const v6_ifaddr &filter, v6_ifaddr &entry, Field field, uint32_t code) {
  const uint32_t wanted = get(filter, field);
  if (wanted != 0 && wanted != code)
    return false;
  set(entry, field, code);
  return true;
}

uint32_t family_code_of(uint8_t family) {
  switch (family) {
    case AF_INET:
      return family_ipv4;
    case AF_INET6:
      return family_ipv6;
    default:
      return family_other;
  }
}

uint32_t scope_code_of(uint8_t scope) {
  switch (scope) {
    case RT_SCOPE_UNIVERSE:
      return 1;
    case RT_SCOPE_SITE:
      return 2;
    case RT_SCOPE_LINK:
      return 3;
    case RT_SCOPE_HOST:
      return 4;
    case RT_SCOPE_NOWHERE:
      return 5;
    default:
      return 0;
  }
}

// An optimistic address has a code of its own, 1, which one of these always takes the place of.
uint32_t state_code_of(uint8_t flags) {
  if (flags & IFA_F_NODAD)
    return 0;
  if (flags & IFA_F_TENTATIVE)
    return 2;
  if (flags & IFA_F_DADFAILED)
    return 3;
  if (flags & IFA_F_PERMANENT)
    return 4;
  return 5;
}

// What is left of bytes that came from elsewhere. Reading past the end gives nothing.
class Bytes {
 public:
  Bytes(const unsigned char *at, size_t left) : at_(at), left_(left) {}

  const unsigned char *at() const {
    return at_;
  }
  size_t left() const {
    return left_;
  }
  // False, and `out` as it was, when there is not as much.
  template <typename Record>
  bool peek(Record &out) const {
    if (left_ < sizeof(Record))
      return false;
    memcpy(&out, at_, sizeof(Record));
    return true;
  }
  void skip(size_t count) {
    count = std::min(count, left_);
    at_ += count;
    left_ -= count;
  }
  Bytes first(size_t count) const {
    return {at_, std::min(count, left_)};
  }

 private:
  const unsigned char *at_;
  size_t left_;
};

// Netlink messages and attributes begin at multiples of 4.
size_t padded(size_t length) {
  return (length + 3) & ~static_cast<size_t>(3);
}

void read_attributes(Bytes bytes, uint32_t family, v6_ifaddr &entry) {
  rtattr attribute;
  while (bytes.peek(attribute) && attribute.rta_len >= sizeof(attribute) && attribute.rta_len <= bytes.left()) {
    if (attribute.rta_type == IFA_ADDRESS) {
      Bytes value = bytes.first(attribute.rta_len);
      value.skip(sizeof(attribute));
      const size_t size = family == family_ipv4 ? 4 : family == family_ipv6 ? 16 : 0;
      if (value.left() >= size)
        memcpy(entry.addr, value.at(), size);
    } else if (attribute.rta_type < IFA_LOCAL || attribute.rta_type > IFA_MULTICAST) {
      printf("unknown rta_type: %d\n", attribute.rta_type);
    }
    bytes.skip(padded(attribute.rta_len));
  }
}

bool request_addresses(int sock, unsigned char family) {
  struct {
    nlmsghdr header;
    ifaddrmsg address;
  } request = {};
  static_assert(sizeof(request) == 24);
  request.header.nlmsg_len = sizeof(request);
  request.header.nlmsg_type = RTM_GETADDR;
  request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  request.header.nlmsg_pid = static_cast<uint32_t>(getpid());
  request.address.ifa_family = family;
  return send(sock, &request, sizeof(request), 0) != -1;
}

// One line of a tool, cut at the first `end` (a character's text). False when there is none.
bool read_word(FILE *from, char (&word)[64], const char *end) {
  if (!fgets(word, sizeof(word), from))
    return false;
  const unsigned at = strpos(word, end);
  if (at < sizeof(word))
    word[at] = '\0';
  return true;
}

// Whether the text is exactly four decimal numbers of at most 255 with dots between them.
bool is_dotted_address(const char *text) {
  for (int part = 1;; part++) {
    unsigned value = 0;
    const char *const start = text;
    for (; *text >= '0' && *text <= '9'; text++) {
      value = value * 10 + static_cast<unsigned>(*text - '0');
      if (value > 255)
        return false;
    }
    if (text == start)
      return false;
    if (part == 4)
      return *text == '\0';
    if (*text++ != '.')
      return false;
  }
}

constexpr size_t address_size = 16;

constexpr size_t no_run = SIZE_MAX;

// An address as it comes from its text, from left to right. What cannot be an address is answered with false.
struct AddressBuilder {
  unsigned char bytes[address_size] = {};
  size_t length = 0;
  size_t run = no_run;  // where the run of zeros belongs
  unsigned group = 0;   // the group that the digits so far make,
  bool pending = false; // if there are any
};

bool take_digit(AddressBuilder &builder, int digit) {
  builder.group = builder.group << 4 | static_cast<unsigned>(digit);
  builder.pending = true;
  return builder.group <= 0xffff;
}

bool store_group(AddressBuilder &builder) {
  if (builder.length + 2 > address_size)
    return false;
  builder.bytes[builder.length++] = static_cast<unsigned char>(builder.group >> 8);
  builder.bytes[builder.length++] = static_cast<unsigned char>(builder.group);
  builder.group = 0;
  builder.pending = false;
  return true;
}

bool take_colon(AddressBuilder &builder) {
  if (builder.pending)
    return store_group(builder);
  if (builder.run != no_run)
    return false;
  builder.run = builder.length;
  return true;
}

// Stores the last group, and moves what follows the run to the end.
bool finish(AddressBuilder &builder) {
  if (builder.pending && !store_group(builder))
    return false;
  if (builder.run == no_run)
    return builder.length == address_size;
  const size_t tail = builder.length - builder.run;
  memmove(builder.bytes + address_size - tail, builder.bytes + builder.run, tail);
  memset(builder.bytes + builder.run, 0, address_size - builder.length);
  return true;
}

} // namespace

extern "C" {

int getifaddr_netlink(const char *ifname, int family, int mode, v6_ifaddr *entries, int count) {
  if (!ifname || !entries || count <= 0)
    return 1;
  const int sock = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
  if (sock == -1) {
    TRACE("socket(): Create failed.\n");
    return 1;
  }
  int result = 0;
  if (mode == 1) {
    const unsigned ifindex = *ifname ? if_nametoindex(ifname) : 0;
    const int known_family = family & 0xffff;
    if (request_addresses(sock, known_family == AF_INET || known_family == AF_INET6
                                    ? static_cast<unsigned char>(known_family)
                                    : static_cast<unsigned char>(AF_UNSPEC))) {
      const long page = sysconf(_SC_PAGESIZE);
      read_ifc_results(sock, page > 0 ? static_cast<int>(page) : 4096, ifindex, entries, count - 1, process_ifaddr_ip);
    } else {
      TRACE("socket(): Send packet failed.\n");
      result = 1;
    }
  }
  close(sock);
  return result;
}

void read_ifc_results(int sock, int bufsize, unsigned ifindex, v6_ifaddr *entries, int max, ifc_entry_handler handler) {
  if (bufsize <= 0 || !handler)
    return;
  const size_t size = static_cast<size_t>(bufsize);
  const torvane::HeapBlock<unsigned char> buffer(size);
  if (!buffer.get())
    return;

  for (int found = 0;;) {
    memset(buffer.get(), 0, size);
    const ssize_t received = recv(sock, buffer.get(), size, 0);
    if (received == -1) {
      TRACE("recv(): Receive failed.\n");
      return;
    }
    Bytes datagram(buffer.get(), static_cast<size_t>(received));
    nlmsghdr header;
    if (!datagram.peek(header)) {
      TRACE("received an uncomplete netlink packet\n");
      return;
    }
    // The end of the dump stands in a datagram of its own or, with newer kernels, behind the last addresses. It is
    // looked for when there is no room for more addresses too: nothing comes after it.
    while (datagram.peek(header)) {
      if (header.nlmsg_type == NLMSG_DONE)
        return;
      if (header.nlmsg_len < sizeof(header) || header.nlmsg_len > datagram.left())
        break;
      const auto *message = reinterpret_cast<const nlmsghdr *>(datagram.at());
      if (found < max && handler(message, ifindex, found, entries) == 1)
        found++;
      datagram.skip(padded(header.nlmsg_len));
    }
  }
}

int process_ifaddr_ip(const struct nlmsghdr *msg, unsigned ifindex, int found, v6_ifaddr *entries) {
  if (!msg || !entries || found < 0)
    return 0;
  nlmsghdr header;
  memcpy(&header, msg, sizeof(header));
  Bytes bytes(reinterpret_cast<const unsigned char *>(msg), header.nlmsg_len);
  bytes.skip(sizeof(header));
  ifaddrmsg address;
  if (!bytes.peek(address))
    return 0;
  bytes.skip(sizeof(address));

  const v6_ifaddr &filter = entries[0];
  v6_ifaddr &entry = entries[found + 1];
  const uint32_t family = family_code_of(address.ifa_family);
  if ((ifindex != 0 && address.ifa_index != ifindex) || !pass(filter, entry, family_code, family) ||
      !pass(filter, entry, scope_code, scope_code_of(address.ifa_scope)) ||
      !pass(filter, entry, prefix_length, address.ifa_prefixlen))
    return 0;
  read_attributes(bytes, family, entry);
  set(entry, state_code, state_code_of(address.ifa_flags));
  return 1;
}

int get_ip6_by_ifname(const char *ifname, int which, unsigned short groups[8]) {
  enum { first_global = 0, first_link_local = 1, second_global = 2 };
  constexpr unsigned global = 0, link_local = 0x20; // scopes

  FILE *file = ifname && groups ? fopen("/proc/net/if_inet6", "re") : nullptr;
  if (!file)
    return 1;
  int result = 1;
  int globals = 0;
  char line[128];
  // Line by line, so that a record that is not as expected (a longer name, an index above 255) spoils no other.
  while (result != 0 && fgets(line, sizeof(line), file)) {
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
      result = 0;
    }
  }
  fclose(file);
  return result;
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
  const bool found = read_word(output, word, "/") && (which != 2 || read_word(output, word, "/"));
  if (found)
    StringToV6Addr(word, addr);
  _system_close(output);
  return found ? 0 : 1;
}

int get_gw6_by_ifname(const char *ifname, unsigned char addr[16]) {
  if (!ifname || !addr)
    return 1;
  memset(addr, 0, address_size);
  // awk writes the word "via" right behind the gateway, so that its "v" ends the address.
  FILE *output = _system_read("ip -6 route show match ::/0 dev %s |grep \"default via\" |awk '{print $3$2}'", ifname);
  if (!output)
    return 1;
  char word[64];
  const bool found = read_word(output, word, "v");
  if (found)
    StringToV6Addr(word, addr);
  _system_close(output);
  return found && strcmp(word, "0:0:0:0:0:0:0:0") != 0 ? 0 : 1;
}

int StringToV6Addr(const char *text, unsigned char addr[16]) {
  if (!addr)
    return 1;
  memset(addr, 0, address_size);
  if (!text || (text[0] == ':' && text[1] != ':'))
    return 1;
  if (*text == ':')
    text++; // what is left of the two is the place of a run of zeros

  AddressBuilder builder;
  const char *group_text = text;
  for (; *text; text++) {
    if (isxdigit(static_cast<unsigned char>(*text))) {
      if (!take_digit(builder, from_hex(*text)))
        return 1;
    } else if (*text == ':') {
      if (!take_colon(builder))
        return 1;
      group_text = text + 1;
    } else if (*text == '.' && builder.length + 4 <= address_size && !is_dotted_address(group_text)) {
      break; // the address is what stands before the dot
    } else {
      return 0; // an IPv4 tail, or not part of an address: the output stays zero
    }
  }
  if (!finish(builder))
    return 1;
  memcpy(addr, builder.bytes, address_size);
  return 0;
}

int V6AddrToString(const unsigned short groups[8], char *text) {
  if (!groups || !text)
    return 1;
  char written[48] = {};
  const int length = snprintf(written, sizeof(written), "%x:%x:%x:%x:%x:%x:%x:%x", groups[0], groups[1], groups[2],
                              groups[3], groups[4], groups[5], groups[6], groups[7]);
  memcpy(text, written, static_cast<size_t>(length)); // without its terminator, as the caller knows
  return 0;
}

} // extern "C"
