// Memory whose neighbours cannot be touched: a read or write one byte too far ends the process.
#pragma once

#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "support/child_process.h"

namespace sandbox {

enum class Against { PageBefore, PageBehind };
constexpr Against both_sides[] = {Against::PageBefore, Against::PageBehind};

// A block of `size` bytes whose first or last byte is next to a page that cannot be touched. It is full of `filler`.
class GuardedMemory {
 public:
  static constexpr char filler = '\xa5';

  explicit GuardedMemory(size_t size, Against side = Against::PageBehind) : size_(size) {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const size_t inner = (size + page - 1) / page * page + (size == 0 ? page : 0);
    mapped_ = inner + 2 * page;
    void *map = mmap(nullptr, mapped_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (map == MAP_FAILED || mprotect(static_cast<char *>(map) + page, inner, PROT_READ | PROT_WRITE) != 0) {
      perror("guarded memory");
      _exit(1);
    }
    map_ = static_cast<char *>(map);
    data_ = side == Against::PageBefore ? map_ + page : map_ + page + inner - size;
    memset(map_ + page, filler, inner);
  }
  // Holds a text whose terminator is the last byte that can be read.
  explicit GuardedMemory(const std::string &text) : GuardedMemory(text.size() + 1) {
    memcpy(data_, text.c_str(), text.size() + 1);
  }
  ~GuardedMemory() {
    munmap(map_, mapped_);
  }
  GuardedMemory(const GuardedMemory &) = delete;
  GuardedMemory &operator=(const GuardedMemory &) = delete;

  char *data() {
    return data_;
  }
  int size() const {
    return static_cast<int>(size_);
  }
  std::string bytes() const {
    return std::string(data_, size_);
  }
  void fill(char c) {
    memset(data_, c, size_);
  }

 private:
  char *map_;
  char *data_;
  size_t size_, mapped_;
};

// Returns whether `body` ends the process that runs it. What a sanitizer prints about it is not shown.
template <typename Body>
bool faults(Body body) {
  return in_child([&] {
           fclose(stderr);
           close(2);
           body();
           return 0;
         }) != 0;
}

} // namespace sandbox
