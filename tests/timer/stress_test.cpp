// Several threads operate on timers at once. No armed timer may be lost, and none may run twice.
#include <gtest/gtest.h>
#include <sched.h>

#include <random>
#include <thread>

#include "controls.h"

using controls::eventually;
using controls::scenario;
using controls::start_service;
using controls::told;

namespace {

constexpr uint32_t worker_threads = 4;
constexpr uint32_t timers_each = 16;
constexpr uint32_t operations_each = 25000;
constexpr uint32_t far_away = 1000000;

// Every arming has a number, which the callback gets.
std::atomic<unsigned char> runs[worker_threads * operations_each + 1];
std::atomic<int> twice;

void count_run(uint32_t arming, uint32_t) {
  if (runs[arming].fetch_add(1) != 0)
    twice++;
}

struct Timer {
  TimerNode node;
  uint32_t arming; // the number of the last one
  enum State { off, waiting, due } state;
};

Timer timers[worker_threads][timers_each];
std::atomic<int> lost;

// Two of three due armings are left alone until they have run. The others may be deleted before.
void operate(uint32_t worker) {
  std::minstd_rand random(worker + 1);
  uint32_t arming = worker * operations_each;
  for (uint32_t i = 0; i < operations_each; i++) {
    Timer &timer = timers[worker][random() % timers_each];
    if (timer.state == Timer::due && random() % 3 != 0 && !eventually([&] { return runs[timer.arming] != 0; }))
      lost++;
    if (timer.state != Timer::off && random() % 3 == 0) {
      delTimer(&timer.node);
      timer.state = Timer::off;
      continue;
    }
    const bool due = random() % 2 == 0;
    const uint32_t expire = due ? 1000 : 1000 + far_away;
    arming++;
    if (timer.state == Timer::off && random() % 2 == 0) {
      timer.node.callback = count_run;
      timer.node.arg1 = arming;
      timer.node.expire = expire;
      addTimer(&timer.node);
    } else {
      // The record is linked, so runners may read it.
      downdown(controls::semaphore, "test", 1, "operate", 0);
      timer.node.callback = count_run;
      timer.node.arg1 = arming;
      __modTimer(&timer.node, expire);
      upup(controls::semaphore, "test", 1, "operate", 0);
    }
    timer.arming = arming;
    timer.state = due ? Timer::due : Timer::waiting;
  }
}

} // namespace

TEST(TimerStress, NoTimerIsLostOrRunTwice) {
  // The numbers are: lost before the end, run twice, due at the end and never run, run without being due, linked
  // wrongly, the semaphore's value.
  EXPECT_EQ("0 0 0 0 0 1", scenario([] {
              start_service();
              std::vector<std::thread> threads;
              for (uint32_t worker = 0; worker < worker_threads; worker++)
                threads.emplace_back(operate, worker);
              for (std::thread &thread : threads)
                thread.join();

              int never = 0, not_due = 0, linked = 0;
              for (auto &of_worker : timers) {
                for (Timer &timer : of_worker) {
                  if (timer.state == Timer::due && !eventually([&] { return runs[timer.arming] != 0; }))
                    never++;
                  not_due += timer.state == Timer::waiting && runs[timer.arming] != 0;
                }
              }
              eventually([] { return controls::runners_ended() == controls::runners_started(); });
              destoryTimerThread();
              eventually([] {
                return controls::timer_threads_ended() == 1 && controls::runners_ended() == controls::runners_started();
              });

              // All timers that are not off are retired now, on one ring with its head.
              const list_node *first = nullptr;
              for (auto &of_worker : timers) {
                for (Timer &timer : of_worker) {
                  linked += timer.state != Timer::off;
                  if (timer.state != Timer::off)
                    first = &timer.node.node;
                }
              }
              const list_node *node = first;
              for (int left = linked + 1; first && left > 0; left--) {
                if (node->next->prev != node)
                  return std::string("broken list");
                node = node->next;
              }
              return told(lost.load(), twice.load(), never, not_due, static_cast<int>(node != first),
                          controls::semaphore_value());
            }));
}
