// malloc, calloc and realloc of the test program: those of the C library or the sanitizer, but one call can be made
// to fail. Programs override them for the libraries they load too, so this reaches the library under test.
#include <dlfcn.h>
#include <stddef.h>

#include <atomic>

#include "support/sandbox.h"

namespace {

std::atomic<unsigned> calls_left{0};
std::atomic<bool> failed{false};

bool fails_now() {
  if (calls_left.load(std::memory_order_relaxed) == 0 || --calls_left != 0)
    return false;
  failed = true;
  return true;
}

template <typename Function>
Function next_definition(const char *name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

} // namespace

namespace sandbox {

void fail_allocation(unsigned n) {
  failed = false;
  calls_left = n;
}

bool allocation_failed() {
  return failed;
}

} // namespace sandbox

extern "C" {

void *malloc(size_t size) {
  static const auto real = next_definition<void *(*)(size_t)>("malloc");
  return fails_now() ? nullptr : real(size);
}

void *calloc(size_t count, size_t size) {
  static const auto real = next_definition<void *(*)(size_t, size_t)>("calloc");
  return fails_now() ? nullptr : real(count, size);
}

void *realloc(void *block, size_t size) {
  static const auto real = next_definition<void *(*)(void *, size_t)>("realloc");
  return fails_now() ? nullptr : real(block, size);
}

} // extern "C"
