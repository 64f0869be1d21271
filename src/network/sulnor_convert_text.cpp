// Converts IPv6 addresses between bytes and text.
#include <ctype.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include "torvane/ipv6.h"
#include "torvane/text.h"

namespace {

// Returns whether the text is exactly four decimal numbers of at most 255 with dots between them.
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

// Holds an address as it grows from its text, from left to right. The functions return false for what cannot be an
// address.
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
      // This is meant: an IPv4 tail or a foreign character is no failure, and leaves the output zero. Callers cut their
      // texts before it.
      return 0;
    }
  }
  if (!finish(builder))
    return 1;
  memcpy(addr, builder.bytes, address_size);
  return 0;
}

int V6AddrToString(const unsigned short groups[8], char *text) {
  if (!groups || !text)
    return 0;
  char written[48] = {};
  const int length = snprintf(written, sizeof(written), "%x:%x:%x:%x:%x:%x:%x:%x", groups[0], groups[1], groups[2],
                              groups[3], groups[4], groups[5], groups[6], groups[7]);
  memcpy(text, written, static_cast<size_t>(length)); // this is meant: the terminator is the caller's
  return 0;
}

} // extern "C"
