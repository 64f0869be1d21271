// A block of the heap that is freed at the end of its scope, unless somebody else takes it over.
#pragma once

#include <stdlib.h>

namespace torvane {

template <typename Record>
class HeapBlock {
 public:
  // Zeroed; get() is null when there is no memory.
  explicit HeapBlock(size_t bytes = sizeof(Record)) : block_(static_cast<Record *>(calloc(1, bytes))) {}
  ~HeapBlock() {
    free(block_);
  }
  HeapBlock(const HeapBlock &) = delete;
  HeapBlock &operator=(const HeapBlock &) = delete;

  Record *get() const {
    return block_;
  }
  Record *operator->() const {
    return block_;
  }
  // From here on the block is somebody else's.
  void release() {
    block_ = nullptr;
  }

 private:
  Record *block_;
};

} // namespace torvane
