// What the tests of the bandwidth monitor share. Its thread lives in a time of the test's own: its sleep ends when the
// test says so.
#pragma once

#include <gtest/gtest.h>
#include <pthread.h>
#include <string.h>
#include <sys/sem.h>
#include <unistd.h>

#include <array>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "interposed.h"
#include "support/proc_net_file.h"
#include "support/sandbox.h"
#include "torvane.h"

namespace network {

using Seconds = unsigned;

// The time in which the monitor's thread sleeps.
class Time {
 public:
  enum Flow {
    usual,   // the thread sleeps as long as it asks for
    by_hand, // the thread sleeps until the test lets it go
    flying   // every sleep is over at once
  };
  void set(Flow flow);
  // Waits until the thread sleeps, and returns for how long it asked to.
  Seconds await_sleep() {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [this] { return asleep_; });
    return wanted_;
  }
  void let_go() {
    const std::lock_guard<std::mutex> lock(mutex_);
    asleep_ = false;
    changed_.notify_all();
  }
  // Sleeps for the monitor's thread. Returns false if the thread is to sleep as usual.
  bool pass(Seconds seconds) {
    std::unique_lock<std::mutex> lock(mutex_);
    if (flow_ == usual)
      return false;
    if (flow_ == by_hand) {
      asleep_ = true;
      wanted_ = seconds;
      changed_.notify_all();
      changed_.wait(lock, [this] { return !asleep_ || flow_ != by_hand; });
      asleep_ = false;
    }
    return true;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  Flow flow_ = usual;
  bool asleep_ = false;
  Seconds wanted_ = 0;
};
inline Time the_time;

inline void Time::set(Flow flow) {
  const std::lock_guard<std::mutex> lock(mutex_);
  flow_ = flow;
  changed_.notify_all();
  interposed::sleep_call.stand_in(
      [](unsigned seconds) { return the_time.pass(seconds) ? 0 : interposed::sleep_call.real(seconds); });
}

constexpr int key = 0x6d6f6e;

constexpr char headings[] =
    "Inter-|   Receive                                                |  Transmit\n"
    " face |bytes    packets errs drop fifo frame compressed multicast|bytes    packets errs drop fifo colls carrier "
    "compressed\n";

struct Traffic {
  std::string name;
  uint64_t rx, tx;
};

inline std::string net_dev(const std::vector<Traffic> &interfaces) {
  std::string text = headings;
  for (const Traffic &item : interfaces)
    text += "  " + item.name + ": " + std::to_string(item.rx) + " 1 2 3 4 5 6 7 " + std::to_string(item.tx) +
            " 8 9 10 11 12 13 14\n";
  return text;
}

inline std::vector<std::string> names_of(bm_head *head) {
  std::vector<std::string> names;
  for (list_node *at = head->link.next; at != &head->link; at = at->next)
    names.push_back(reinterpret_cast<bm_iface *>(at)->name); // link is the first field
  return names;
}

inline bm_iface *record(bm_head *head, const std::string &name) {
  for (list_node *at = head->link.next; at != &head->link; at = at->next)
    if (name == reinterpret_cast<bm_iface *>(at)->name)
      return reinterpret_cast<bm_iface *>(at);
  return nullptr;
}

inline std::vector<bm_sample *> history_of(const bm_iface *iface) {
  std::vector<bm_sample *> samples;
  for (list_node *at = iface->history.next; at != &iface->history; at = at->next)
    samples.push_back(reinterpret_cast<bm_sample *>(at));
  return samples;
}

using Rates = std::array<uint64_t, 2>;

// These tests look at the monitor's records while no thread runs, or while it sleeps.
class Monitor : public testing::Test {
 protected:
  void SetUp() override {
    sandbox::clear_console();
    memset(&head, 0xff, sizeof(head));
    ASSERT_EQ(1, init_bm(&head, key, 3, 0));
  }
  void TearDown() override {
    if (running)
      end_thread();
    for (const std::string &name : names_of(&head))
      del_bm_by_iface(name.c_str(), &head);
    sem_delete(head.semid);
    the_time.set(Time::usual);
  }

  template <typename Body>
  auto locked(Body body) {
    downdown(head.semid, "test", 1, "locked", 0);
    const auto result = body();
    upup(head.semid, "test", 1, "locked", 0);
    return result;
  }

  // Starts the thread and lets it make its first pass.
  void start_thread() {
    the_time.set(Time::by_hand);
    ASSERT_EQ(0, pthread_create(&thread, nullptr, bmThread, &head));
    running = true;
    the_time.await_sleep();
  }
  // Starts the thread with these interfaces to measure, whose counters are 0 at first.
  void start_measuring(const std::vector<std::string> &names) {
    std::vector<Traffic> interfaces;
    for (const std::string &name : names) {
      add_bm_by_iface(name.c_str(), &head);
      interfaces.push_back({name, 0, 0});
    }
    file.set(net_dev(interfaces));
    start_thread();
  }
  // Lets the thread make its next pass with these counters in the file. Returns the sleep that it asks for afterwards.
  Seconds pass(const std::vector<Traffic> &interfaces) {
    file.set(net_dev(interfaces));
    return pass();
  }
  static Seconds pass() {
    the_time.let_go();
    return the_time.await_sleep();
  }
  // Deletes the interfaces first, because the thread's end does not free their histories.
  void end_thread() {
    for (const std::string &name : locked([this] { return names_of(&head); }))
      del_bm_by_iface(name.c_str(), &head);
    ask_to_exit();
    join();
  }
  void ask_to_exit() {
    locked([this] { return head.exit = 1; });
    the_time.set(Time::flying);
  }
  void join() {
    void *result = &head;
    ASSERT_EQ(0, pthread_join(thread, &result));
    EXPECT_EQ(nullptr, result);
    running = false;
  }
  int semaphore() const {
    return semctl(head.semid, 0, GETVAL);
  }
  void expect_rates(const char *name, uint64_t rx, uint64_t tx) {
    bm_sample rates = {};
    ASSERT_EQ(1, query_bm_by_iface(name, &head, &rates)) << name;
    EXPECT_EQ((Rates{rx, tx}), (Rates{rates.rx_rate, rates.tx_rate})) << name;
  }

  sandbox::ProcNetFile file{"dev"};
  bm_head head;
  pthread_t thread;
  bool running = false;
};

} // namespace network
