// A request for the functions that split one into entries.
#pragma once

#include <string.h>

#include <string>

#include "support/guarded_memory.h"
#include "torvane.h"

namespace cgi {

// Has records for exactly `capacity` entries, and data without a terminator, both next to pages that cannot be touched.
struct Request {
  Request(const std::string &text, int room, sandbox::Against side = sandbox::Against::PageBehind)
      : data(text.size(), side), records(static_cast<size_t>(room) * sizeof(cgi_entry), side), capacity(room) {
    memcpy(data.data(), text.data(), text.size());
    records.fill('\0');
  }
  cgi_entry *entries() {
    return reinterpret_cast<cgi_entry *>(records.data());
  }
  int parse() {
    return data_2_entries(entries(), capacity, data.size(), data.data());
  }
  sandbox::GuardedMemory data, records;
  int capacity;
};

} // namespace cgi
