// Owners give back what they hold at the end of their scope, on whichever way out. Threads that are cancelled
// asynchronously use none, because their destructors would not run. The destructors are inlined: on the target a call of
// one takes more room than what it does.
#pragma once

#include <dirent.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

namespace torvane {

template <typename Record, void (*GiveBack)(Record *)>
class Owner {
 public:
  explicit Owner(Record *record) : record_(record) {}
  [[gnu::always_inline]] ~Owner() {
    if (record_)
      GiveBack(record_);
  }
  Owner(const Owner &) = delete;
  Owner &operator=(const Owner &) = delete;

  // Returns null when there was nothing to own: the file could not be opened, there was no memory.
  Record *get() const {
    return record_;
  }
  Record *operator->() const {
    return record_;
  }
  explicit operator bool() const {
    return record_ != nullptr;
  }
  // Gives back what it holds and owns another record from here on.
  void reset(Record *record) {
    if (record_)
      GiveBack(record_);
    record_ = record;
  }
  // From here on the record is the caller's.
  Record *release() {
    Record *const record = record_;
    record_ = nullptr;
    return record;
  }

 private:
  Record *record_;
};

inline void close_file(FILE *file) {
  fclose(file);
}
using File = Owner<FILE, close_file>;

inline void close_directory(DIR *directory) {
  closedir(directory);
}
using Directory = Owner<DIR, close_directory>;

template <typename Record>
void free_block(Record *block) {
  free(block);
}
// Owns a block of malloc and its kin.
template <typename Record>
using HeapBlock = Owner<Record, free_block<Record>>;

// Returns a zeroed record, or null without memory.
template <typename Record>
Record *allocate_zeroed(size_t bytes = sizeof(Record)) {
  return static_cast<Record *>(calloc(1, bytes));
}

class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  [[gnu::always_inline]] ~Descriptor() {
    if (fd_ >= 0)
      close(fd_);
  }
  Descriptor(const Descriptor &) = delete;
  Descriptor &operator=(const Descriptor &) = delete;

  // Returns a negative number when nothing could be opened.
  int get() const {
    return fd_;
  }
  explicit operator bool() const {
    return fd_ >= 0;
  }
  // From here on the descriptor is the caller's.
  int release() {
    const int fd = fd_;
    fd_ = -1;
    return fd;
  }

 private:
  int fd_;
};

} // namespace torvane
