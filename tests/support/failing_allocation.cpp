// The test program's malloc, calloc and realloc call those of the C library or the sanitizer, but a test can make one
// call fail. A program's own definitions serve the libraries that it loads too, so this reaches the library under test.
#include <dlfcn.h>
#include <stddef.h>

#include "support/sandbox.h"

// The allocation functions do not use support/interposed.h. Sanitizers call them before they are ready themselves, and
// dlsym() may allocate while it looks a name up. So nothing here may be instrumented (the build says so), come from a
// template that another file instruments, or need a guard.
namespace {

unsigned calls_left;
bool failed;

bool fails_now() {
  if (__atomic_load_n(&calls_left, __ATOMIC_RELAXED) == 0 || __atomic_sub_fetch(&calls_left, 1, __ATOMIC_SEQ_CST) != 0)
    return false;
  __atomic_store_n(&failed, true, __ATOMIC_SEQ_CST);
  return true;
}

// Returns the next definition of `name`, which is looked up once and kept in `found`.
void *next_definition(void *&found, const char *name) {
  void *function = __atomic_load_n(&found, __ATOMIC_ACQUIRE);
  if (!function) {
    function = dlsym(RTLD_NEXT, name);
    __atomic_store_n(&found, function, __ATOMIC_RELEASE);
  }
  return function;
}

void *real_malloc, *real_calloc, *real_realloc;

} // namespace

namespace sandbox {

void fail_allocation(unsigned n) {
  __atomic_store_n(&failed, false, __ATOMIC_SEQ_CST);
  __atomic_store_n(&calls_left, n, __ATOMIC_SEQ_CST);
}

bool allocation_failed() {
  return __atomic_load_n(&failed, __ATOMIC_SEQ_CST);
}

} // namespace sandbox

extern "C" {

void *malloc(size_t size) {
  using Function = void *(*)(size_t);
  const auto real = reinterpret_cast<Function>(next_definition(real_malloc, "malloc"));
  return fails_now() ? nullptr : real(size);
}

void *calloc(size_t count, size_t size) {
  using Function = void *(*)(size_t, size_t);
  const auto real = reinterpret_cast<Function>(next_definition(real_calloc, "calloc"));
  return fails_now() ? nullptr : real(count, size);
}

void *realloc(void *block, size_t size) {
  using Function = void *(*)(void *, size_t);
  const auto real = reinterpret_cast<Function>(next_definition(real_realloc, "realloc"));
  return fails_now() ? nullptr : real(block, size);
}

} // extern "C"
