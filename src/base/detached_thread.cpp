#include "base/detached_thread.h"

namespace torvane {

bool start_detached(pthread_t *thread, size_t stack_bytes, void *(*run)(void *), void *argument) {
  pthread_attr_t attributes;
  if (pthread_attr_init(&attributes) != 0)
    return false;
  const bool started = pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED) == 0 &&
                       (stack_bytes == default_stack || pthread_attr_setstacksize(&attributes, stack_bytes) == 0) &&
                       pthread_create(thread, &attributes, run, argument) == 0;
  pthread_attr_destroy(&attributes);
  return started;
}

} // namespace torvane
