// The DnsQuery records of the tests lie between bytes that are watched and a page that nobody may touch.
#pragma once

#include <arpa/inet.h>
#include <stdint.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "torvane.h"

namespace dns {

inline uint32_t address(const char *text) {
  in_addr value;
  inet_pton(AF_INET, text, &value);
  return value.s_addr;
}

inline std::string address_text(uint32_t value) {
  char text[INET_ADDRSTRLEN];
  return inet_ntop(AF_INET, &value, text, sizeof(text));
}

inline std::string address_text(const uint8_t (&value)[16]) {
  char text[INET6_ADDRSTRLEN];
  return inet_ntop(AF_INET6, value, text, sizeof(text));
}

// The record ends where its memory ends, and intact() checks the bytes before it.
class Query {
 public:
  Query(const std::vector<const char *> &servers, const std::vector<std::string> &names)
      : page_(static_cast<size_t>(sysconf(_SC_PAGESIZE))),
        memory_(
            static_cast<char *>(mmap(nullptr, 2 * page_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))),
        record_(reinterpret_cast<DnsQuery *>(memory_ + page_ - sizeof(DnsQuery))) {
    mprotect(memory_ + page_, page_, PROT_NONE);
    memset(memory_, before, page_ - sizeof(DnsQuery));
    for (size_t i = 0; i < servers.size(); i++)
      record_->servers[i] = address(servers[i]);
    for (size_t i = 0; i < names.size(); i++)
      memcpy(record_->names[i], names[i].data(), names[i].size());
    record_->serverCount = static_cast<uint8_t>(servers.size());
    record_->nameCount = static_cast<uint8_t>(names.size());
    record_->stopOnMatch = 1;
    record_->timeoutSec = 20; // long enough for a reply that comes
    memcpy(&asked_, record_, sizeof(asked_));
  }
  ~Query() {
    munmap(memory_, 2 * page_);
  }
  Query(const Query &) = delete;
  Query &operator=(const Query &) = delete;

  DnsQuery *operator->() const {
    return record_;
  }
  DnsQuery *get() const {
    return record_;
  }
  // Returns whether the question and the bytes before the record are unchanged.
  bool intact() const {
    for (size_t i = 0; i < page_ - sizeof(DnsQuery); i++) {
      if (memory_[i] != before)
        return false;
    }
    return memcmp(record_->servers, asked_.servers, sizeof(asked_.servers)) == 0 &&
           memcmp(record_->names, asked_.names, sizeof(asked_.names)) == 0;
  }
  // Returns the filed addresses as "A server slot address", then as "AAAA server slot address".
  std::vector<std::string> filed() const {
    std::vector<std::string> all;
    for (int server = 0; server < 5; server++) {
      for (int slot = 0; slot < 10; slot++) {
        if (record_->ipv4Result[server][slot] != 0)
          all.push_back("A " + std::to_string(server) + " " + std::to_string(slot) + " " +
                        address_text(record_->ipv4Result[server][slot]));
      }
    }
    static const uint8_t none[16] = {};
    for (int server = 0; server < 5; server++) {
      for (int slot = 0; slot < 10; slot++) {
        if (memcmp(record_->ipv6Result[server][slot], none, sizeof(none)) != 0)
          all.push_back("AAAA " + std::to_string(server) + " " + std::to_string(slot) + " " +
                        address_text(record_->ipv6Result[server][slot]));
      }
    }
    return all;
  }

 private:
  static constexpr char before = 0x5A;
  size_t page_;
  char *memory_;
  DnsQuery *record_;
  DnsQuery asked_;
};

} // namespace dns
