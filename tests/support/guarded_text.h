// A block whose end is the end of what may be touched: one byte more ends the test program.
#pragma once

#include <gtest/gtest.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>

namespace sandbox {

class Guarded {
 public:
  explicit Guarded(size_t size) : size_(size) {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const size_t usable = (size + page - 1) / page * page;
    mapped_ = usable + page;
    map_ = static_cast<char *>(mmap(nullptr, mapped_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    EXPECT_NE(MAP_FAILED, static_cast<void *>(map_));
    EXPECT_EQ(0, mprotect(map_ + usable, page, PROT_NONE));
    data_ = map_ + usable - size;
  }
  // The text with its terminator as the last byte.
  explicit Guarded(const std::string &text) : Guarded(text.size() + 1) {
    memcpy(data_, text.c_str(), size_);
  }
  ~Guarded() {
    munmap(map_, mapped_);
  }
  Guarded(const Guarded &) = delete;
  Guarded &operator=(const Guarded &) = delete;

  char *data() {
    return data_;
  }
  // All of it, terminators included.
  std::string bytes() const {
    return std::string(data_, size_);
  }

 private:
  size_t size_, mapped_;
  char *map_, *data_;
};

} // namespace sandbox
