// Converts IPv4 addresses, endpoints and MAC addresses between numbers and texts.
#include <arpa/inet.h>
#include <limits.h>
#include <netinet/in.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <bit>

#include "base/trace.h"
#include "torvane/address.h"

namespace {

constexpr const char *trace_module = "quorra_convert";

// Calls `each` with every piece between colons; the colons become the pieces' ends.
template <typename Each>
void split_mac(char *text, Each each) {
  char *rest;
  for (const char *piece = strtok_r(text, ":", &rest); piece; piece = strtok_r(nullptr, ":", &rest))
    each(piece);
}

} // namespace

extern "C" {

int netmask_convert_prefix(uint32_t mask, uint8_t *prefix) {
  if (!prefix)
    return 1;
  const int ones = std::countl_one(mask);
  const bool contiguous = ones == 32 || mask << ones == 0;
  *prefix = contiguous ? static_cast<uint8_t>(ones) : 0;
  return contiguous ? 0 : 1;
}

int ipport_convert_n2n(uint32_t ip, uint16_t port, ipport *out) {
  if (!out)
    return 1;
  out->ip = ip;
  out->port = port;
  return 0;
}

// This is meant: the forms for host order convert nothing either.
int ipport_convert_h2n(uint32_t ip, uint16_t port, ipport *out) {
  return ipport_convert_n2n(ip, port, out);
}

int ipport_string_convert_h2n(const char *text, uint16_t port, ipport *out) {
  if (!out || string2ip(text, &out->ip) != 0)
    return 1;
  out->port = port;
  return 0;
}

int ipport_string_convert_n2n(const char *text, uint16_t port, ipport *out) {
  return ipport_string_convert_h2n(text, port, out);
}

int string2ip(const char *text, uint32_t *out) {
  if (!text || !out)
    return 1;
  if (*text == '\0') {
    *out = INADDR_ANY;
    return 0;
  }
  *out = inet_addr(text);
  // All ones means that inet_addr failed, and is one good address. This is meant: it is stored in either case.
  return *out == INADDR_NONE && strcmp(text, "255.255.255.255") != 0 ? 1 : 0;
}

int ip2string(uint32_t ip, char *out, int size) {
  if (size < INET_ADDRSTRLEN) {
    TRACE_NO_PROCESS("buffer size too small!!\n");
    return 1;
  }
  if (!out)
    return 1;
  uint8_t bytes[4];
  memcpy(bytes, &ip, sizeof(bytes));
  snprintf(out, INET_ADDRSTRLEN, "%u.%u.%u.%u", bytes[0], bytes[1], bytes[2], bytes[3]);
  return 0;
}

void *change_mac_format_to_uchar6(char *text, uint8_t *out) {
  if (text && out)
    split_mac(text, [&out](const char *piece) { *out++ = static_cast<uint8_t>(strtoul(piece, nullptr, 16)); });
  return nullptr;
}

void *change_mac_format_without_colon(char *text, char *out) {
  if (!text || !out)
    return nullptr;
  char *end = out + strlen(out);
  split_mac(text, [&end](const char *piece) {
    const size_t length = strlen(piece);
    memcpy(end, piece, length + 1);
    end += length;
  });
  return nullptr;
}

int my_atoi(const char *text) {
  if (!text)
    return 0;
  // The result is that of a 32-bit long, on every host.
  return static_cast<int>(std::clamp<long>(strtol(text, nullptr, 10), INT_MIN, INT_MAX));
}

} // extern "C"
