#include "dns/quorra_dns_names.h"

#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "base/owners.h"
#include "torvane/dns.h"

using namespace torvane;

namespace {

constexpr unsigned first_pointer = 0xC0; // bytes from here on start a compression pointer
constexpr unsigned pointer_mark = first_pointer << 8;
constexpr size_t largest_pointer = 0x3FFF; // how far into a message a compression pointer reaches

// Turns the labels of a name, length bytes and all, into dotted text. Returns false when the last label is longer than
// what is there.
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

} // namespace

namespace torvane {

uint8_t *put_dns_labels(uint8_t *out, std::string_view name) {
  bool more = !name.empty();
  while (more) {
    const size_t dot = name.find('.');
    const std::string_view label(name.data(), std::min(dot, name.size()));
    *out++ = static_cast<uint8_t>(label.size());
    out = std::copy(label.begin(), label.end(), out);
    more = dot != std::string_view::npos;
    if (more)
      name.remove_prefix(dot + 1);
  }
  *out++ = 0;
  return out;
}

void read_dns_name(ByteReader &message, char *out) {
  ByteReader labels = message; // goes where the pointers lead
  size_t length = 0, pointers = 0;
  while (const uint8_t value = labels.byte()) {
    if (value < first_pointer) {
      if (length == dns_name_size - 1) {
        labels.fail();
        break;
      }
      out[length++] = static_cast<char>(value);
      continue;
    }
    const unsigned target = (value * 256u + labels.byte()) - pointer_mark;
    if (pointers == 0)
      message.go_to(labels.at());
    // More pointers than places mean that one place was visited twice.
    if (pointers++ == message.size())
      labels.fail();
    if (labels.failed())
      break;
    labels.go_to(target);
  }
  if (pointers == 0)
    message.go_to(labels.at());
  if (labels.failed() || !make_dotted(out, length))
    message.fail();
}

} // namespace torvane

extern "C" {

void dnsNameToLabels(unsigned char *out, const char *name) {
  if (out && name)
    put_dns_labels(out, name);
}

char *dnsReadName(const unsigned char *at, const unsigned char *message, int *consumed) {
  if (!at || !message || !consumed || at < message)
    return nullptr;
  *consumed = 1;
  HeapBlock<char> name(static_cast<char *>(malloc(dns_name_size)));
  if (!name)
    return nullptr;
  // Nothing tells where the message ends, but a name that is not refused lies within these bytes.
  const size_t start = static_cast<size_t>(at - message);
  ByteReader reader({message, std::max(start, largest_pointer) + dns_name_size + 1}, start);
  read_dns_name(reader, name.get());
  if (reader.failed())
    return nullptr;
  *consumed = static_cast<int>(reader.at() - start);
  return name.release();
}

} // extern "C"
