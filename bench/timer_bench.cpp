// This measures operations on timers of a running service. Each takes the semaphore and notifies the timer thread,
// which looks through its list and starts a runner.
#include <benchmark/benchmark.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/ipc.h>

#include <vector>

#include "torvane.h"

namespace {

constexpr uint32_t far_away = 1000000; // seconds

void start_service() {
  static const bool started = [] {
    static TimerThreadConfig config;
    if (sem_create(IPC_PRIVATE, &config.semid) != 0)
      return false;
    atexit([] { sem_delete(config.semid); });
    return createTimerThread(&config) == 1;
  }();
  if (!started) {
    fputs("no timer service\n", stderr);
    exit(1);
  }
}

// As many other timers as the argument says are waiting meanwhile.
class Others {
 public:
  explicit Others(long count) : timers_(static_cast<size_t>(count)) {
    start_service();
    for (TimerNode &timer : timers_)
      modTimer(&timer, getCurrentTime(nullptr) + far_away);
  }
  ~Others() {
    for (TimerNode &timer : timers_)
      delTimer(&timer);
  }
  Others(const Others &) = delete;
  Others &operator=(const Others &) = delete;

 private:
  std::vector<TimerNode> timers_;
};

void add_and_delete(benchmark::State &state) {
  const Others others(state.range(0));
  TimerNode timer = {};
  timer.expire = getCurrentTime(nullptr) + far_away;
  for (auto _ : state) {
    addTimer(&timer);
    delTimer(&timer);
  }
  state.SetItemsProcessed(2 * state.iterations());
}

void modify(benchmark::State &state) {
  const Others others(state.range(0));
  TimerNode timer = {};
  uint32_t expire = getCurrentTime(nullptr) + far_away;
  for (auto _ : state)
    modTimer(&timer, expire++);
  delTimer(&timer);
  state.SetItemsProcessed(state.iterations());
}

} // namespace

BENCHMARK(add_and_delete)->Arg(0)->Arg(50)->UseRealTime();
BENCHMARK(modify)->Arg(0)->Arg(50)->UseRealTime();
