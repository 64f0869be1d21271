// Reads and writes names in DNS messages: there a length byte stands before each label, in text a dot between labels.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string_view>

#include "base/byte_reader.h"

namespace torvane {

constexpr size_t dns_name_size = 256; // bytes of a dotted name with its terminator

// Writes the labels of a name: two bytes more than `name` has, or one when it is empty. Returns the end of what it
// wrote.
uint8_t *put_dns_labels(uint8_t *out, std::string_view name);

// Reads the name that stands here, compressed or not, as dotted text of dns_name_size bytes. Reading goes on behind the
// name's place here. The reader fails for a name whose labels take 256 bytes or more, whose pointers form a loop, or
// whose last label is longer than what is left of the name.
void read_dns_name(ByteReader &message, char *out);

} // namespace torvane
