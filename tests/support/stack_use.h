// Measures how much stack a piece of work takes.
#pragma once

#include <gtest/gtest.h>
#include <pthread.h>
#include <string.h>
#include <sys/mman.h>

namespace sandbox {

constexpr size_t measured_stack = 8 << 20;
constexpr char untouched = '\xa5';

// The sanitizers put what they need around every variable of a frame.
constexpr size_t wider_frames =
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    4;
#else
    1;
#endif

// Returns how many bytes from the start of a stack are as they were. The stack grows towards them.
__attribute__((no_sanitize("address", "thread"))) inline size_t untouched_bytes(const char *stack) {
  size_t count = 0;
  while (count < measured_stack && stack[count] == untouched)
    count++;
  return count;
}

// Runs `work` in a thread of its own. Returns the bytes of stack that it took, those of the thread itself included.
template <typename Work>
size_t stack_use(Work work) {
  void *stack = mmap(nullptr, measured_stack, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  memset(stack, untouched, measured_stack);
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstack(&attributes, stack, measured_stack);
  const auto run = [](void *argument) -> void * {
    (*static_cast<Work *>(argument))();
    return nullptr;
  };
  pthread_t thread;
  EXPECT_EQ(0, pthread_create(&thread, &attributes, run, &work));
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
  const size_t used = measured_stack - untouched_bytes(static_cast<const char *>(stack));
  munmap(stack, measured_stack);
  return used;
}

// Expects a walk of `levels` levels to take little more stack than one of a single level.
template <typename Deep, typename Flat>
void expect_little_stack_per_level(const char *what, size_t levels, Deep deep, Flat flat) {
  const size_t flat_use = stack_use(flat), deep_use = stack_use(deep);
  const double each = (static_cast<double>(deep_use) - static_cast<double>(flat_use)) / static_cast<double>(levels);
  printf("%-16s %6zu bytes of stack, and %5.1f for each of %zu levels\n", what, flat_use, each, levels);
  EXPECT_LE(deep_use, flat_use + 10 * wider_frames * levels) << what;
}

} // namespace sandbox
