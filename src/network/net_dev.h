// Reads "/proc/net/dev", the kernel's file of interface counters, as a range of its lines:
//
//   for (const NetDevLine &line : net_dev) ...
//
// The file has two lines of headings, then a line for each interface: blanks, its name, ":", its counters.
#pragma once

#include <stdio.h>

#include "base/owners.h"

namespace torvane {

// Describes one interface. All three point into the same text, which a reader may change.
struct NetDevLine {
  char *text;  // the line from its start, with its line feed
  char *name;  // the text from the name on
  char *colon; // the ":" behind the name; the counters follow it
};

// A line is valid until the next one is read. What is left of a line longer than the buffer counts as no interface.
class NetDev {
 public:
  // This is inlined for the same reason as the owners' destructors. The buffer is filled before anything looks at it.
  // cppcheck-suppress uninitMemberVar
  [[gnu::always_inline]] NetDev() : file_(fopen("/proc/net/dev", "re")) {}
  explicit operator bool() const {
    return static_cast<bool>(file_);
  }

  struct End {};
  class Iterator {
   public:
    explicit Iterator(NetDev *file) : file_(file) {}
    const NetDevLine &operator*() const {
      return file_->line_;
    }
    Iterator &operator++() {
      file_->read_line();
      return *this;
    }
    bool operator!=(End) const {
      return file_->line_.name != nullptr;
    }

   private:
    NetDev *file_;
  };
  Iterator begin() {
    read_line();
    return Iterator(this);
  }
  static End end() {
    return {};
  }

 private:
  void read_line();

  File file_;
  int headings_left_ = 2;
  NetDevLine line_ = {}; // null pointers behind the last interface
  char buffer_[256];
};

} // namespace torvane
