// The bandwidth monitor, in a time of the test's own: its thread's sleep ends when the test says so.
#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <pthread.h>
#include <signal.h>
#include <stddef.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <sys/ipc.h>
#include <sys/resource.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "interposed.h"
#include "support/child_process.h"
#include "support/proc_net_file.h"
#include "support/sandbox.h"
#include "torvane.h"

// Programs and library share these records: layouts are those of a 32-bit machine, and hold there only.
#define FIELD32(record, field, offset) static_assert(sizeof(void *) != 4 || offsetof(record, field) == (offset))
#define SIZE32(record, bytes) static_assert(sizeof(void *) != 4 || sizeof(record) == (bytes))

SIZE32(bm_head, 20);
FIELD32(bm_head, link, 0);
FIELD32(bm_head, count, 8);
FIELD32(bm_head, history, 9);
FIELD32(bm_head, period, 10);
FIELD32(bm_head, exit, 11);
FIELD32(bm_head, semid, 12);
FIELD32(bm_head, reserved, 16);
static_assert(sizeof(bm_iface::name) == 32 && sizeof(bm_head::reserved) == 4);

SIZE32(bm_iface, 88);
FIELD32(bm_iface, link, 0);
FIELD32(bm_iface, name, 8);
FIELD32(bm_iface, prev_rx, 40);
FIELD32(bm_iface, prev_tx, 48);
FIELD32(bm_iface, rx_rate, 56);
FIELD32(bm_iface, tx_rate, 64);
FIELD32(bm_iface, flags, 72);
FIELD32(bm_iface, history, 76);
FIELD32(bm_iface, history_count, 84);

SIZE32(bm_sample, 24);
FIELD32(bm_sample, link, 0);
FIELD32(bm_sample, rx_rate, 8);
FIELD32(bm_sample, tx_rate, 16);

// No pointers: alike everywhere.
static_assert(sizeof(rxtx_stats) == 80);
static_assert(offsetof(rxtx_stats, rx_packets) == 8 && offsetof(rxtx_stats, rx_errors) == 16);
static_assert(offsetof(rxtx_stats, rx_multicast) == 36 && offsetof(rxtx_stats, tx_bytes) == 40);
static_assert(offsetof(rxtx_stats, tx_errors) == 56 && offsetof(rxtx_stats, tx_compressed) == 76);

namespace {

using Seconds = unsigned;

// The time of the thread that sleeps.
class Time {
 public:
  enum Flow {
    usual,   // sleep as always
    by_hand, // asleep until the test lets go
    flying   // every sleep is over at once
  };
  void set(Flow flow);
  // Waits until the thread sleeps; returns for how long it wants to.
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
  // On the sleeper's side. False when it has to sleep as always.
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
} the_time;

void Time::set(Flow flow) {
  const std::lock_guard<std::mutex> lock(mutex_);
  flow_ = flow;
  changed_.notify_all();
  interposed::sleep_call.stand_in(
      [](unsigned seconds) { return the_time.pass(seconds) ? 0 : interposed::sleep_call.real(seconds); });
}

using sandbox::console;
using sandbox::ProcNetFile;
using sandbox::run;

constexpr int key = 0x6d6f6e;

constexpr char headings[] =
    "Inter-|   Receive                                                |  Transmit\n"
    " face |bytes    packets errs drop fifo frame compressed multicast|bytes    packets errs drop fifo colls carrier "
    "compressed\n";

struct Traffic {
  std::string name;
  uint64_t rx, tx;
};

std::string net_dev(const std::vector<Traffic> &interfaces) {
  std::string text = headings;
  for (const Traffic &item : interfaces)
    text += "  " + item.name + ": " + std::to_string(item.rx) + " 1 2 3 4 5 6 7 " + std::to_string(item.tx) +
            " 8 9 10 11 12 13 14\n";
  return text;
}

std::vector<std::string> names_of(bm_head *head) {
  std::vector<std::string> names;
  for (list_node *at = head->link.next; at != &head->link; at = at->next)
    names.push_back(reinterpret_cast<bm_iface *>(at)->name); // link is the first field
  return names;
}

bm_iface *record(bm_head *head, const std::string &name) {
  for (list_node *at = head->link.next; at != &head->link; at = at->next)
    if (name == reinterpret_cast<bm_iface *>(at)->name)
      return reinterpret_cast<bm_iface *>(at);
  return nullptr;
}

std::vector<bm_sample *> history_of(const bm_iface *iface) {
  std::vector<bm_sample *> samples;
  for (list_node *at = iface->history.next; at != &iface->history; at = at->next)
    samples.push_back(reinterpret_cast<bm_sample *>(at));
  return samples;
}

using Rates = std::array<uint64_t, 2>;

// By hand: with no thread, or while it sleeps.
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
  // The next pass, with these counters in the file.
  Seconds pass(const std::vector<Traffic> &interfaces) {
    file.set(net_dev(interfaces));
    return pass();
  }
  static Seconds pass() {
    the_time.let_go();
    return the_time.await_sleep();
  }
  // Interfaces go first, so that their histories are freed.
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

  ProcNetFile file{"dev"};
  bm_head head;
  pthread_t thread;
  bool running = false;
};

class Counters : public testing::Test {
 protected:
  ProcNetFile file{"dev"};
  rxtx_stats out = {};
};

} // namespace

TEST_F(Counters, AreTheSixteenColumnsInOrder) {
  file.set(
      std::string(headings) +
      "    lo:       1       2    3    4    5     6          7         8        9       10   11   12   13    14      "
      "15         16\n"
      "  eth0:18446744073709551615 18446744073709551614 101 102 103 104 105 106 9223372036854775808 5000000000 107 "
      "108 109 110 111 4294967295\n");
  ASSERT_EQ(0, get_rxtx_by_ifname("eth0", &out));
  EXPECT_EQ(18446744073709551615u, out.rx_bytes);
  EXPECT_EQ(18446744073709551614u, out.rx_packets);
  EXPECT_EQ(101u, out.rx_errors);
  EXPECT_EQ(102u, out.rx_drops);
  EXPECT_EQ(103u, out.rx_fifo);
  EXPECT_EQ(104u, out.rx_frame);
  EXPECT_EQ(105u, out.rx_compressed);
  EXPECT_EQ(106u, out.rx_multicast);
  EXPECT_EQ(9223372036854775808u, out.tx_bytes);
  EXPECT_EQ(5000000000u, out.tx_packets);
  EXPECT_EQ(107u, out.tx_errors);
  EXPECT_EQ(108u, out.tx_drops);
  EXPECT_EQ(109u, out.tx_fifo);
  EXPECT_EQ(110u, out.tx_collisions);
  EXPECT_EQ(111u, out.tx_carrier);
  EXPECT_EQ(4294967295u, out.tx_compressed);
  ASSERT_EQ(0, get_rxtx_by_ifname("lo", &out));
  EXPECT_EQ(1u, out.rx_bytes);
  EXPECT_EQ(16u, out.tx_compressed);
}

TEST_F(Counters, ComeFromTheFirstLineThatHoldsTheName) {
  file.set(net_dev({{"veth0", 1, 2}, {"eth0.1", 3, 4}, {"eth0", 5, 6}}));
  ASSERT_EQ(0, get_rxtx_by_ifname("eth0", &out));
  EXPECT_EQ(1u, out.rx_bytes);
  EXPECT_EQ(2u, out.tx_bytes);
  ASSERT_EQ(0, get_rxtx_by_ifname("eth0.1", &out));
  EXPECT_EQ(3u, out.rx_bytes);
  ASSERT_EQ(0, get_rxtx_by_ifname("eth0:", &out)); // by what follows it, too
  EXPECT_EQ(1u, out.rx_bytes);
  ASSERT_EQ(0, get_rxtx_by_ifname("", &out));
  EXPECT_EQ(1u, out.rx_bytes);
}

TEST_F(Counters, DoNotComeFromTheHeadings) {
  file.set("eth0: 1 1 1\neth0: 2 2 2\neth1: 3 3 3\n");
  memset(&out, 0xff, sizeof(out));
  EXPECT_EQ(1, get_rxtx_by_ifname("eth0", &out));
  EXPECT_EQ(0, get_rxtx_by_ifname("eth1", &out));
  EXPECT_EQ(3u, out.rx_bytes);
  file.set(net_dev({{"eth0", 1, 2}}));
  EXPECT_EQ(1, get_rxtx_by_ifname("face", &out));
  file.set("eth0: 1");
  EXPECT_EQ(1, get_rxtx_by_ifname("eth0", &out));
  file.set("");
  EXPECT_EQ(1, get_rxtx_by_ifname("eth0", &out));
}

TEST_F(Counters, OfAnUnknownInterfaceAreZeroAndAFailure) {
  file.set(net_dev({{"eth0", 1, 2}}));
  memset(&out, 0xff, sizeof(out));
  EXPECT_EQ(1, get_rxtx_by_ifname("eth1", &out));
  const rxtx_stats zero = {};
  EXPECT_EQ(0, memcmp(&zero, &out, sizeof(out)));
}

TEST_F(Counters, AreNotTouchedWithoutTheFile) {
  memset(&out, 0xff, sizeof(out));
  const rxtx_stats before = out;
  {
    const sandbox::NoDescriptors none;
    EXPECT_EQ(1, get_rxtx_by_ifname("lo", &out));
  }
  EXPECT_EQ(0, memcmp(&before, &out, sizeof(out)));
}

TEST_F(Counters, OfNothingOrIntoNothingFail) {
  file.set(net_dev({{"eth0", 1, 2}}));
  memset(&out, 0xff, sizeof(out));
  const rxtx_stats before = out;
  EXPECT_EQ(1, get_rxtx_by_ifname(nullptr, &out));
  EXPECT_EQ(1, get_rxtx_by_ifname("eth0", nullptr));
  EXPECT_EQ(0, memcmp(&before, &out, sizeof(out)));
}

TEST_F(Counters, MissingAreZeroAndTooLargeAreTheLargest) {
  file.set(std::string(headings) + "eth0: 7 8 4294967296\neth1:\neth2: 1 x 3\neth3: 99999999999999999999999\n");
  memset(&out, 0xff, sizeof(out));
  ASSERT_EQ(0, get_rxtx_by_ifname("eth0", &out));
  EXPECT_EQ(7u, out.rx_bytes);
  EXPECT_EQ(8u, out.rx_packets);
  EXPECT_EQ(4294967295u, out.rx_errors);
  EXPECT_EQ(0u, out.rx_drops);
  EXPECT_EQ(0u, out.tx_bytes);
  EXPECT_EQ(0u, out.tx_compressed);
  memset(&out, 0xff, sizeof(out));
  ASSERT_EQ(0, get_rxtx_by_ifname("eth1", &out));
  EXPECT_EQ(0u, out.rx_bytes);
  ASSERT_EQ(0, get_rxtx_by_ifname("eth2", &out));
  EXPECT_EQ(1u, out.rx_bytes);
  EXPECT_EQ(0u, out.rx_errors); // nothing after a column that is no number
  ASSERT_EQ(0, get_rxtx_by_ifname("eth3", &out));
  EXPECT_EQ(UINT64_MAX, out.rx_bytes);
}

TEST_F(Counters, ALineOfNoInterfaceIsPassedOver) {
  file.set(std::string(headings) + "eth0 without a colon 5 6\neth0: 7\n");
  ASSERT_EQ(0, get_rxtx_by_ifname("eth0", &out));
  EXPECT_EQ(7u, out.rx_bytes);
}

TEST_F(Counters, OfALineLongerThanTheBufferAreThoseInIt) {
  std::string line = "  eth0:";
  for (int column = 0; column < 16; column++)
    line += " 1844674407370955161" + std::to_string(column % 6);
  ASSERT_LT(255u, line.size()); // cut at 255 characters: eleven columns and 17 digits of the twelfth
  file.set(headings + line + "\n  eth1: 1 2 3\n");
  ASSERT_EQ(0, get_rxtx_by_ifname("eth0", &out));
  EXPECT_EQ(18446744073709551610u, out.rx_bytes);
  EXPECT_EQ(18446744073709551612u, out.tx_bytes); // the ninth
  EXPECT_EQ(0u, out.tx_collisions + out.tx_compressed);
  ASSERT_EQ(0, get_rxtx_by_ifname("eth1", &out));
  EXPECT_EQ(1u, out.rx_bytes);
}

TEST_F(Counters, LeaveNoDescriptorOpen) {
  file.set(net_dev({{"eth0", 1, 2}}));
  const int before = sandbox::open_descriptors();
  get_rxtx_by_ifname("eth0", &out);
  get_rxtx_by_ifname("eth1", &out);
  EXPECT_EQ(before, sandbox::open_descriptors());
}

TEST_F(Monitor, StartsEmptyWithAFreeSemaphore) {
  EXPECT_EQ(&head.link, head.link.next);
  EXPECT_EQ(&head.link, head.link.prev);
  EXPECT_EQ(0, head.count);
  EXPECT_EQ(0, head.history);
  EXPECT_EQ(3, head.period);
  EXPECT_EQ(0, head.exit);
  EXPECT_EQ(0u, head.reserved);
  EXPECT_EQ(semget(key, 1, 0), head.semid);
  EXPECT_EQ(1, semaphore());
  EXPECT_EQ("", sandbox::console_text());
  EXPECT_EQ(1, init_bm(&head, key, 255, 7));
  EXPECT_EQ(255, head.period);
  EXPECT_EQ(7, head.history);
}

TEST_F(Monitor, FailsToStartWithoutASemaphore) {
  bm_head other;
  const interposed::StandIn hook(interposed::semget_call, [](key_t, int, int) { return interposed::fail(ENOSPC); });
  EXPECT_EQ(0, init_bm(&other, key + 1, 1, 0));
  EXPECT_EQ(1, list_empty(&other.link));
  EXPECT_EQ(std::vector<std::string>{"key=" + std::to_string(key + 1) + " semget fail\n"}, sandbox::console_messages());
}

TEST_F(Monitor, RefusesNulls) {
  bm_sample rates = {};
  EXPECT_EQ(0, init_bm(nullptr, key, 1, 0));
  EXPECT_EQ(1, bm_start(nullptr));
  EXPECT_EQ(0, add_bm_by_iface(nullptr, &head));
  EXPECT_EQ(0, add_bm_by_iface("eth0", nullptr));
  EXPECT_EQ(0, del_bm_by_iface(nullptr, &head));
  EXPECT_EQ(0, del_bm_by_iface("eth0", nullptr));
  EXPECT_EQ(0, query_bm_by_iface(nullptr, &head, &rates));
  EXPECT_EQ(0, query_bm_by_iface("eth0", nullptr, &rates));
  EXPECT_EQ(1, add_bm_by_iface("eth0", &head));
  EXPECT_EQ(0, query_bm_by_iface("eth0", &head, nullptr));
  EXPECT_EQ(nullptr, bmThread(nullptr));
  EXPECT_EQ(1, semaphore());
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(Monitor, ListsInterfacesInTheOrderOfTheirAdding) {
  for (const char *name : {"eth0", "ppp0", "wlan0"})
    EXPECT_EQ(1, add_bm_by_iface(name, &head));
  EXPECT_EQ((std::vector<std::string>{"eth0", "ppp0", "wlan0"}), names_of(&head));
  EXPECT_EQ(3, head.count);
  const bm_iface *iface = record(&head, "ppp0");
  EXPECT_EQ(0u, iface->prev_rx | iface->prev_tx | iface->rx_rate | iface->tx_rate);
  EXPECT_EQ(0, iface->flags);
  EXPECT_EQ(0, iface->history_count);
  EXPECT_TRUE(history_of(iface).empty());
  EXPECT_EQ(1, semaphore());
}

TEST_F(Monitor, DeletesByExactName) {
  for (const char *name : {"eth0", "eth0.1", "ppp0"})
    add_bm_by_iface(name, &head);
  EXPECT_EQ(0, del_bm_by_iface("eth", &head));
  EXPECT_EQ(0, del_bm_by_iface("eth0.", &head));
  EXPECT_EQ(0, del_bm_by_iface("", &head));
  EXPECT_EQ(1, del_bm_by_iface("eth0.1", &head));
  EXPECT_EQ(0, del_bm_by_iface("eth0.1", &head));
  EXPECT_EQ((std::vector<std::string>{"eth0", "ppp0"}), names_of(&head));
  EXPECT_EQ(3, head.count); // of adds
  EXPECT_EQ(1, semaphore());
}

TEST_F(Monitor, CountsAddsModulo256) {
  for (int i = 0; i < 255; i++)
    add_bm_by_iface("eth0", &head);
  EXPECT_EQ(255, head.count);
  EXPECT_EQ((std::vector<std::string>{"eth0"}), names_of(&head));
  add_bm_by_iface("eth1", &head);
  EXPECT_EQ(0, head.count);
}

TEST_F(Monitor, RefusesNamesOfMoreThan31Characters) {
  const std::string longest(31, 'x');
  EXPECT_EQ(1, add_bm_by_iface(longest.c_str(), &head));
  for (const size_t length : {32u, 33u, 1000u})
    EXPECT_EQ(0, add_bm_by_iface(std::string(length, 'x').c_str(), &head)) << length;
  EXPECT_EQ(std::vector<std::string>{longest}, names_of(&head));
  EXPECT_EQ(1, head.count);
  EXPECT_EQ(0, del_bm_by_iface(std::string(32, 'x').c_str(), &head));
}

TEST_F(Monitor, AnAddWithoutMemoryLeavesTheInterfaceOut) {
  add_bm_by_iface("eth0", &head);
  add_bm_by_iface("eth1", &head);
  sandbox::fail_allocation(1);
  const int result = add_bm_by_iface("eth0", &head);
  const bool failed = sandbox::allocation_failed();
  sandbox::fail_allocation(0);
  EXPECT_TRUE(failed);
  EXPECT_EQ(0, result);
  EXPECT_EQ(std::vector<std::string>{"eth1"}, names_of(&head));
  EXPECT_EQ(2, head.count);
  EXPECT_EQ(1, semaphore());
}

TEST_F(Monitor, NothingIsDoneWhenTheSemaphoreCannotBeTaken) {
  sandbox::Captured reasons(STDERR_FILENO);
  add_bm_by_iface("eth0", &head);
  start_thread();
  pass({{"eth0", 0, 0}});
  pass({{"eth0", 300, 30}});
  {
    const interposed::StandIn hook(interposed::semop_call,
                                   [](int, sembuf *, size_t) { return interposed::fail(EIDRM); });
    bm_sample rates = {};
    EXPECT_EQ(0, add_bm_by_iface("eth1", &head));
    EXPECT_EQ(0, del_bm_by_iface("eth0", &head));
    EXPECT_EQ(0, query_bm_by_iface("eth0", &head, &rates));
    EXPECT_EQ(3u, pass({{"eth0", 900, 90}})); // a pass left out
  }
  EXPECT_EQ(std::vector<std::string>{"eth0"}, names_of(&head));
  EXPECT_EQ(1, head.count);
  expect_rates("eth0", 100, 10);
  EXPECT_EQ(1, semaphore());
  pass({{"eth0", 1200, 120}});
  expect_rates("eth0", 300, 30);
  EXPECT_EQ(1, semaphore());
}

// Signals that are meant for others cut the wait short; it is begun again.
TEST_F(Monitor, InterruptedWaitsForTheSemaphoreChangeNothing) {
  sandbox::Captured reasons(STDERR_FILENO);
  static std::atomic<int> interruptions; // still to come
  const interposed::StandIn hook(interposed::semop_call, [](int id, sembuf *operations, size_t count) {
    if (interruptions > 0) {
      interruptions--;
      return interposed::fail(EINTR);
    }
    return sandbox::ordered_semop(id, operations, count);
  });
  interruptions = 3;
  EXPECT_EQ(1, add_bm_by_iface("eth0", &head));
  EXPECT_EQ(0, interruptions);
  start_thread();
  pass({{"eth0", 0, 0}});
  interruptions = 2;
  EXPECT_EQ(1, add_bm_by_iface("eth0", &head)); // the deletion of the old one was interrupted
  EXPECT_EQ(std::vector<std::string>{"eth0"}, names_of(&head));
  interruptions = 2;
  EXPECT_EQ(1, del_bm_by_iface("eth0", &head));
  EXPECT_EQ(1, semaphore());
}

TEST_F(Monitor, EndsWithoutItsSemaphoreToo) {
  sandbox::Captured reasons(STDERR_FILENO);
  file.set(net_dev({{"eth0", 0, 0}}));
  add_bm_by_iface("eth0", &head);
  start_thread();
  sem_delete(head.semid);
  head.exit = 1;
  the_time.let_go();
  join();
  EXPECT_TRUE(names_of(&head).empty());
  EXPECT_EQ(std::string::npos, sandbox::console_text().find("up fail")); // what was not taken is not given back
  ASSERT_EQ(0, sem_create(key, &head.semid));
}

TEST_F(Monitor, KnowsNoRatesBeforeThePassThatFindsTheInterface) {
  bm_sample rates = {};
  EXPECT_EQ(0, query_bm_by_iface("eth0", &head, &rates)); // not listed
  add_bm_by_iface("eth0", &head);
  EXPECT_EQ(0, query_bm_by_iface("eth0", &head, &rates));
  start_thread(); // an empty file
  EXPECT_EQ(0, query_bm_by_iface("eth0", &head, &rates));
  EXPECT_EQ(0, record(&head, "eth0")->flags);

  pass({{"eth0", 1000000, 5000}});
  memset(&rates, 0xff, sizeof(rates));
  const list_node link_before = rates.link;
  EXPECT_EQ(1, query_bm_by_iface("eth0", &head, &rates));
  EXPECT_EQ(0u, rates.rx_rate | rates.tx_rate);
  EXPECT_EQ(link_before.next, rates.link.next);
  EXPECT_EQ(link_before.prev, rates.link.prev);
  EXPECT_EQ(1, record(&head, "eth0")->flags);
  EXPECT_EQ(1000000u, record(&head, "eth0")->prev_rx);
  EXPECT_EQ(5000u, record(&head, "eth0")->prev_tx);
  EXPECT_EQ(0, query_bm_by_iface("eth", &head, &rates)); // by exact name
}

TEST_F(Monitor, DividesTheDifferenceByThePeriod) {
  for (const char *name : {"ppp0", "wan0", "lan0"})
    add_bm_by_iface(name, &head);
  file.set(net_dev({{"lan0", 5000, 0}, {"wan0", 100, 200}, {"ppp0", 0, 0}}));
  start_thread();
  EXPECT_EQ(3u, pass({{"lan0", 8000, 2}, {"wan0", 3100, 6200}, {"ppp0", 0, 3}}));
  expect_rates("lan0", 1000, 0); // 2 bytes in 3 seconds are less than one
  expect_rates("wan0", 1000, 2000);
  expect_rates("ppp0", 0, 1);
  pass({{"lan0", 8005, 2}, {"wan0", 3100, 6200}, {"ppp0", 0, 3}});
  expect_rates("lan0", 1, 0);
  expect_rates("wan0", 0, 0);
}

TEST_F(Monitor, CountersWrapAround) {
  add_bm_by_iface("eth0", &head);
  file.set(net_dev({{"eth0", UINT64_MAX - 99, 1000}}));
  start_thread();
  pass({{"eth0", 200, 400}});
  expect_rates("eth0", 100, 6148914691236517005u); // (2^64 - 600) / 3
}

TEST_F(Monitor, ReadsThePeriodAfreshBeforeEachSleep) {
  add_bm_by_iface("eth0", &head);
  file.set(net_dev({{"eth0", 0, 0}}));
  start_thread();
  locked([this] { return head.period = 5; });
  EXPECT_EQ(5u, pass({{"eth0", 3000, 300}}));
  expect_rates("eth0", 1000, 100); // that sleep was of 3 seconds
  locked([this] { return head.period = 255; });
  EXPECT_EQ(255u, pass({{"eth0", 8000, 800}}));
  expect_rates("eth0", 1000, 100);
  EXPECT_EQ(255u, pass({{"eth0", 8000 + 255 * 7, 800 + 254}}));
  expect_rates("eth0", 7, 0);
}

TEST_F(Monitor, TakesAPeriodOf0As1) {
  head.period = 0;
  add_bm_by_iface("eth0", &head);
  file.set(net_dev({{"eth0", 0, 0}}));
  start_thread();
  EXPECT_EQ(1u, pass({{"eth0", 70, 7}}));
  expect_rates("eth0", 70, 7);
}

TEST_F(Monitor, AddingAgainStartsAgain) {
  head.history = 1;
  add_bm_by_iface("eth0", &head);
  add_bm_by_iface("eth1", &head);
  file.set(net_dev({{"eth0", 0, 0}, {"eth1", 0, 0}}));
  start_thread();
  pass({{"eth0", 30, 30}, {"eth1", 60, 60}});
  EXPECT_EQ(1, add_bm_by_iface("eth0", &head));
  EXPECT_EQ((std::vector<std::string>{"eth1", "eth0"}), names_of(&head));
  bm_sample rates = {};
  EXPECT_EQ(0, query_bm_by_iface("eth0", &head, &rates));
  EXPECT_TRUE(history_of(record(&head, "eth0")).empty());
  expect_rates("eth1", 20, 20);
  pass({{"eth0", 300, 300}, {"eth1", 60, 60}});
  expect_rates("eth0", 0, 0);
}

TEST_F(Monitor, AVanishedInterfaceKeepsItsLastRates) {
  head.history = 1;
  add_bm_by_iface("ppp0", &head);
  file.set(net_dev({{"ppp0", 0, 0}}));
  start_thread();
  pass({{"ppp0", 300, 600}});
  pass({{"eth0", 1, 1}});
  expect_rates("ppp0", 100, 200);
  const bm_iface *iface = record(&head, "ppp0");
  EXPECT_EQ(1, iface->flags);
  EXPECT_EQ(300u, iface->prev_rx);
  EXPECT_EQ(1, iface->history_count);
  pass({{"ppp0", 900, 900}}); // the difference of both periods, as one
  expect_rates("ppp0", 200, 100);
  EXPECT_EQ(2, iface->history_count);
}

TEST_F(Monitor, KeepsNoHistoryUnlessAsked) {
  add_bm_by_iface("eth0", &head);
  file.set(net_dev({{"eth0", 0, 0}}));
  start_thread();
  pass({{"eth0", 3, 3}});
  const bm_iface *iface = record(&head, "eth0");
  EXPECT_EQ(0, iface->history_count);
  EXPECT_TRUE(history_of(iface).empty());
  locked([this] { return head.history = 9; });
  pass({{"eth0", 33, 63}});
  ASSERT_EQ(1, iface->history_count);
  EXPECT_EQ(10u, history_of(iface)[0]->rx_rate);
  EXPECT_EQ(20u, history_of(iface)[0]->tx_rate);
  locked([this] { return head.history = 0; });
  pass({{"eth0", 33, 63}});
  EXPECT_EQ(1u, history_of(iface).size());
}

TEST_F(Monitor, KeepsTheLast257Samples) {
  head.history = 1;
  head.period = 1;
  add_bm_by_iface("eth0", &head);
  file.set(net_dev({{"eth0", 0, 0}}));
  start_thread();
  const bm_iface *iface = record(&head, "eth0");
  // The n-th sample has the rates n and 2n.
  uint64_t sum = 0;
  bm_sample *oldest = nullptr;
  for (uint64_t n = 1; n <= 300; n++) {
    sum += n;
    pass({{"eth0", sum, 2 * sum}});
    const auto history = history_of(iface);
    ASSERT_EQ(n < 257 ? n : 257, history.size());
    ASSERT_EQ(history.size(), iface->history_count);
    ASSERT_EQ(n, history.back()->rx_rate);
    ASSERT_EQ(n <= 257 ? 1 : n - 256, history.front()->rx_rate);
    if (n > 257) {
      ASSERT_EQ(oldest, history.back()) << "not the oldest entry taken anew";
    }
    oldest = history.front();
  }
  const auto history = history_of(iface);
  for (size_t i = 0; i < 257; i++)
    ASSERT_EQ((Rates{i + 44, 2 * (i + 44)}), (Rates{history[i]->rx_rate, history[i]->tx_rate}));
  EXPECT_EQ(1, del_bm_by_iface("eth0", &head));
}

TEST_F(Monitor, APassWithoutMemoryLosesNoMoreThanThatSample) {
  head.history = 1;
  head.period = 1;
  add_bm_by_iface("eth0", &head);
  file.set(net_dev({{"eth0", 0, 0}}));
  start_thread();
  const bm_iface *iface = record(&head, "eth0");
  bool sample_dropped = false;
  uint64_t counted = 0, total = 0;
  for (unsigned n = 1;; n++) {
    total += 10 * n;
    file.set(net_dev({{"eth0", total, total}}));
    const size_t before = history_of(iface).size();
    sandbox::fail_allocation(n);
    pass();
    const bool failed = sandbox::allocation_failed();
    sandbox::fail_allocation(0);
    const size_t after = history_of(iface).size();
    EXPECT_EQ(after, iface->history_count);
    if (iface->prev_rx == total) {
      EXPECT_EQ(total - counted, iface->rx_rate);
      sample_dropped |= after == before;
      counted = total;
    } else { // the file could not be read
      EXPECT_EQ(counted, iface->prev_rx);
      EXPECT_EQ(before, after);
    }
    if (!failed) {
      EXPECT_EQ(before + 1, after);
      break;
    }
  }
  EXPECT_TRUE(sample_dropped);
}

TEST_F(Monitor, ReadsTheFileOnceForEachInterface) {
  for (int i = 0; i < 16; i++)
    add_bm_by_iface(("eth" + std::to_string(i)).c_str(), &head);
  start_thread();
  const int watch = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  ASSERT_LE(0, inotify_add_watch(watch, file.path(), IN_OPEN | IN_CLOSE));
  pass();
  int opens = 0, closes = 0;
  alignas(inotify_event) char events[4096];
  ssize_t length;
  while ((length = read(watch, events, sizeof(events))) > 0)
    for (ssize_t at = 0; at < length;) {
      inotify_event event;
      memcpy(&event, events + at, sizeof(event));
      opens += (event.mask & IN_OPEN) != 0;
      closes += (event.mask & IN_CLOSE) != 0;
      at += static_cast<ssize_t>(sizeof(event) + event.len);
    }
  close(watch);
  // Equal events in a row are told as one.
  EXPECT_EQ(16, opens);
  EXPECT_EQ(16, closes);
}

TEST_F(Monitor, TracesItsStartAndItsEnd) {
  file.set(net_dev({{"eth0", 0, 0}}));
  add_bm_by_iface("eth0", &head);
  start_thread();
  ask_to_exit();
  join();
  const auto traces = console();
  ASSERT_EQ(2u, traces.size());
  for (const auto &trace : traces) {
    EXPECT_TRUE(trace.has_process);
    EXPECT_EQ(getpid(), trace.process);
    EXPECT_NE(getpid(), trace.thread);
    EXPECT_EQ(traces[0].thread, trace.thread);
    EXPECT_EQ("quorra_network", trace.file);
    EXPECT_EQ("bmThread", trace.func);
  }
  EXPECT_EQ("[" + std::to_string(getpid()) + "|" + std::to_string(traces[0].thread) + "]Thread Create[bmThread]\n",
            traces[0].message);
  EXPECT_EQ("bmThread Exit\n", traces[1].message);
}

TEST_F(Monitor, RunsDetachedByStart) {
  file.set(net_dev({{"eth0", 0, 0}}));
  add_bm_by_iface("eth0", &head);
  the_time.set(Time::by_hand);
  ASSERT_EQ(0, bm_start(&head));
  EXPECT_EQ(3u, the_time.await_sleep());
  EXPECT_EQ(3u, pass({{"eth0", 300, 600}}));
  expect_rates("eth0", 100, 200);

  const auto traces = console();
  ASSERT_EQ(2u, traces.size());
  const auto &started = traces[traces[0].func == "bm_start" ? 0 : 1]; // two threads: either order
  EXPECT_FALSE(started.has_process);
  EXPECT_EQ(getpid(), started.thread);
  EXPECT_EQ("quorra_network", started.file);
  EXPECT_EQ("bm_start", started.func);
  int handle = 0, length = 0;
  EXPECT_EQ(1, sscanf(started.message.c_str(), "main process get thread id=%d\n%n", &handle, &length));
  EXPECT_EQ(started.message.size(), static_cast<size_t>(length));

  // As a program sees the end.
  ask_to_exit();
  while (!locked([this] { return list_empty(&head.link); }))
    usleep(1000);
  EXPECT_EQ("bmThread Exit\n", sandbox::console_messages().back());
}

TEST_F(Monitor, StartFailsWithoutAThread) {
  chmod("/dev/console", 0666);
  const int result = sandbox::in_child([this] {
    const rlimit none = {0, 0};
    setrlimit(RLIMIT_NPROC, &none);
    if (getuid() == 0 && setresuid(65534, 65534, 65534) != 0 && errno != EINVAL) // root alone has no such limit
      return 100;
    return bm_start(&head);
  });
  chmod("/dev/console", 0644);
  EXPECT_EQ(1, result);
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(Monitor, OnlyBit0Ends) {
  start_thread();
  locked([this] { return head.exit = 0xfe; });
  pass();
  pass();
  locked([this] { return head.exit = 0xff; });
  the_time.let_go();
  join();
  EXPECT_EQ(0xff, head.exit);
}

TEST_F(Monitor, FreesItsInterfacesAtTheEndButNotTheirHistories) {
  head.history = 1;
  for (const char *name : {"eth0", "eth1"})
    add_bm_by_iface(name, &head);
  file.set(net_dev({{"eth0", 0, 0}, {"eth1", 0, 0}}));
  start_thread();
  pass({{"eth0", 3, 3}, {"eth1", 30, 30}});
  pass({{"eth0", 9, 9}, {"eth1", 90, 90}});
  const auto first = history_of(record(&head, "eth0")), second = history_of(record(&head, "eth1"));
  ask_to_exit();
  join();
  EXPECT_TRUE(names_of(&head).empty());
  EXPECT_EQ(&head.link, head.link.prev);
  EXPECT_EQ(1, semaphore());
  ASSERT_EQ(2u, first.size());
  ASSERT_EQ(2u, second.size());
  EXPECT_EQ(1u, first[0]->rx_rate);
  EXPECT_EQ(20u, second[1]->tx_rate);
  for (const auto &history : {first, second})
    for (bm_sample *sample : history)
      free(sample);
}

TEST_F(Monitor, CanBeRunAgainAfterItsEnd) {
  file.set(net_dev({{"eth0", 0, 0}}));
  add_bm_by_iface("eth0", &head);
  start_thread();
  end_thread();
  ASSERT_EQ(1, init_bm(&head, key, 2, 0));
  add_bm_by_iface("eth0", &head);
  start_thread();
  EXPECT_EQ(2u, pass({{"eth0", 8, 6}}));
  expect_rates("eth0", 4, 3);
}

TEST_F(Monitor, RunsWithoutAConsoleToo) {
  const sandbox::UnopenableConsole away;
  file.set(net_dev({{"eth0", 0, 0}}));
  add_bm_by_iface("eth0", &head);
  start_thread();
  pass({{"eth0", 3, 3}});
  expect_rates("eth0", 1, 1);
  end_thread();
}

TEST_F(Monitor, SleepsWithoutTheSemaphore) {
  start_thread();
  EXPECT_EQ(1, semaphore());
  pass();
  EXPECT_EQ(1, semaphore());
}

TEST_F(Monitor, LeavesNoDescriptorOpen) {
  file.set(net_dev({{"eth0", 0, 0}}));
  add_bm_by_iface("eth0", &head);
  add_bm_by_iface("none0", &head);
  const int before = sandbox::open_descriptors();
  start_thread();
  pass();
  pass();
  end_thread();
  EXPECT_EQ(before, sandbox::open_descriptors());
}

TEST_F(Monitor, InterfacesComeAndGoWhileItSamples) {
  head.history = 1;
  head.period = 1;
  file.set(net_dev({{"eth0", 1, 1}, {"eth1", 2, 2}, {"eth2", 3, 3}}));
  start_thread();
  the_time.set(Time::flying);
  std::atomic<int> wrong = 0;
  const auto work = [this, &wrong](const char *own) {
    for (int i = 0; i < 60; i++) {
      bm_sample rates = {};
      wrong += add_bm_by_iface(own, &head) != 1;
      query_bm_by_iface("eth0", &head, &rates);
      query_bm_by_iface(own, &head, &rates);
      wrong += rates.rx_rate != 0;
      wrong += add_bm_by_iface(own, &head) != 1;
      wrong += del_bm_by_iface(own, &head) != 1;
      wrong += del_bm_by_iface(own, &head) != 0;
    }
  };
  add_bm_by_iface("eth0", &head);
  std::thread one(work, "eth1"), other(work, "eth2");
  one.join();
  other.join();
  EXPECT_EQ(0, wrong);
  EXPECT_EQ(std::vector<std::string>{"eth0"}, locked([this] { return names_of(&head); }));
  end_thread();
  EXPECT_EQ(1, semaphore());
}

namespace {

// A file that is read when the test writes it.
class Pass : public testing::Test {
 protected:
  ProcNetFile fifo{"dev", true};
};

} // namespace

TEST_F(Pass, HoldsTheSemaphoreFromTheFirstInterfaceToTheLast) {
  bm_head head;
  ASSERT_EQ(1, init_bm(&head, key, 1, 0));
  add_bm_by_iface("eth0", &head);
  add_bm_by_iface("eth1", &head);
  the_time.set(Time::by_hand);
  pthread_t thread;
  ASSERT_EQ(0, pthread_create(&thread, nullptr, bmThread, &head));
  const int out = open(fifo.path(), O_RDWR | O_CLOEXEC); // for both readings, one after the other
  ASSERT_LE(0, out);
  while (semctl(head.semid, 0, GETVAL) != 0)
    usleep(500);
  const std::string text = net_dev({{"eth0", 1, 1}, {"eth1", 1, 1}});
  for (int reading = 0; reading < 2; reading++) {
    EXPECT_EQ(0, semctl(head.semid, 0, GETVAL)) << reading;
    EXPECT_EQ(static_cast<ssize_t>(text.size()), write(out, text.data(), text.size()));
    for (int unread = 1; unread != 0;)
      ASSERT_EQ(0, ioctl(out, FIONREAD, &unread));
  }
  EXPECT_EQ(1u, the_time.await_sleep());
  EXPECT_EQ(1, semctl(head.semid, 0, GETVAL));
  head.exit = 1;
  the_time.set(Time::flying);
  pthread_join(thread, nullptr);
  the_time.set(Time::usual);
  sem_delete(head.semid);
  close(out);
}

namespace {

// The monitor in memory that a second process shares. The child is started before the thread.
class SharedMonitor : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(0, shm_create(key, sizeof(bm_head), &segment));
    head = static_cast<bm_head *>(shmat(segment, nullptr, 0));
    ASSERT_EQ(1, init_bm(head, key, 3, 0));
    file.set(net_dev({{"eth0", 0, 0}}));
    add_bm_by_iface("eth0", head);
  }
  void TearDown() override {
    the_time.set(Time::usual);
    sem_delete(head->semid);
    shmdt(head);
    shmctl(segment, IPC_RMID, nullptr);
  }
  void start_thread() {
    the_time.set(Time::by_hand);
    ASSERT_EQ(0, pthread_create(&thread, nullptr, bmThread, head));
    the_time.await_sleep();
  }
  int down() const {
    return downdown(head->semid, "test", 1, "child", 0);
  }
  int up() const {
    return upup(head->semid, "test", 1, "child", 0);
  }
  void await_waiter() const {
    while (semctl(head->semid, 0, GETNCNT) == 0)
      usleep(500);
  }

  ProcNetFile file{"dev"};
  int segment = -1;
  bm_head *head = nullptr;
  pthread_t thread = {};
};

} // namespace

TEST_F(SharedMonitor, IsSteeredFromAnotherProcess) {
  const sandbox::Handshake to_child, to_parent;
  const pid_t child = sandbox::start_child([&] {
    to_child.take();
    if (down() != 0)
      return 1;
    head->period = 7;
    head->history = 1;
    if (up() != 0)
      return 2;
    to_parent.give();
    to_child.take();
    if (down() != 0)
      return 3;
    head->exit = 1;
    return up() == 0 ? 0 : 4;
  });
  start_thread();
  to_child.give();
  to_parent.take();
  file.set(net_dev({{"eth0", 30, 60}}));
  the_time.let_go();
  EXPECT_EQ(7u, the_time.await_sleep());
  bm_iface *iface = record(head, "eth0");
  EXPECT_EQ(10u, iface->rx_rate);
  EXPECT_EQ(1, iface->history_count);
  EXPECT_EQ(1, add_bm_by_iface("eth0", head)); // frees the history

  to_child.give();
  EXPECT_EQ(0, sandbox::end_of_child(child));
  the_time.set(Time::flying);
  EXPECT_EQ(0, pthread_join(thread, nullptr));
  EXPECT_TRUE(names_of(head).empty());
}

TEST_F(SharedMonitor, ThePassWaitsForAHolderInAnotherProcess) {
  const sandbox::Handshake to_child, to_parent;
  const pid_t child = sandbox::start_child([&] {
    to_child.take();
    if (down() != 0)
      return 1;
    to_parent.give();
    to_child.take();
    return up() == 0 ? 0 : 2;
  });
  start_thread();
  to_child.give();
  to_parent.take();
  the_time.let_go();
  await_waiter();
  file.set(net_dev({{"eth0", 30, 60}})); // in time for a pass that has not begun
  to_child.give();
  EXPECT_EQ(0, sandbox::end_of_child(child));
  the_time.await_sleep();
  EXPECT_EQ(30u, record(head, "eth0")->prev_rx);
  head->exit = 1;
  the_time.set(Time::flying);
  EXPECT_EQ(0, pthread_join(thread, nullptr));
}

TEST_F(SharedMonitor, AHolderThatDiesGivesTheSemaphoreBack) {
  const sandbox::Handshake to_child, to_parent;
  const pid_t child = sandbox::start_child([&] {
    to_child.take();
    if (down() != 0)
      return 1;
    to_parent.give();
    for (;;)
      pause();
  });
  start_thread();
  to_child.give();
  to_parent.take();
  the_time.let_go();
  await_waiter();
  kill(child, SIGKILL);
  sandbox::end_of_child(child);
  EXPECT_EQ(3u, the_time.await_sleep());
  head->exit = 1;
  the_time.set(Time::flying);
  EXPECT_EQ(0, pthread_join(thread, nullptr));
}

TEST(MonitorOfVeth, MeasuresRealTraffic) {
  const auto made =
      run("ip link add mona type veth peer name monb && "
          "echo 1 >/proc/sys/net/ipv6/conf/mona/disable_ipv6 && echo 1 >/proc/sys/net/ipv6/conf/monb/disable_ipv6 && "
          "ip addr add 198.51.100.1/24 dev mona && ip link set mona up && ip link set monb up && "
          "ip neigh add 198.51.100.2 lladdr 02:00:00:00:00:02 dev mona nud permanent");
  if (made.status != 0) {
    run("ip link del mona");
    GTEST_SKIP() << "no veth pair: " << made.output;
  }
  bm_head head;
  ASSERT_EQ(1, init_bm(&head, key, 3, 0));
  add_bm_by_iface("mona", &head);
  add_bm_by_iface("monb", &head);
  the_time.set(Time::by_hand);
  pthread_t thread;
  ASSERT_EQ(0, pthread_create(&thread, nullptr, bmThread, &head));
  the_time.await_sleep();

  rxtx_stats before_a = {}, before_b = {}, after_a = {}, after_b = {};
  EXPECT_EQ(0, get_rxtx_by_ifname("mona", &before_a));
  EXPECT_EQ(0, get_rxtx_by_ifname("monb", &before_b));
  const int out = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_in peer = {};
  peer.sin_family = AF_INET;
  peer.sin_port = htons(9);
  peer.sin_addr.s_addr = inet_addr("198.51.100.2");
  const char payload[958] = {}; // 1000 bytes with the headers of UDP, IP and Ethernet
  for (int i = 0; i < 30; i++)
    EXPECT_EQ(static_cast<ssize_t>(sizeof(payload)),
              sendto(out, payload, sizeof(payload), 0, reinterpret_cast<sockaddr *>(&peer), sizeof(peer)));
  close(out);
  for (int i = 0; i < 10000 && after_b.rx_bytes < before_b.rx_bytes + 30000; i++) {
    EXPECT_EQ(0, get_rxtx_by_ifname("monb", &after_b));
    usleep(1000);
  }
  EXPECT_EQ(0, get_rxtx_by_ifname("mona", &after_a));
  EXPECT_EQ(before_a.tx_bytes + 30000, after_a.tx_bytes);
  EXPECT_EQ(before_a.tx_packets + 30, after_a.tx_packets);
  EXPECT_EQ(before_b.rx_bytes + 30000, after_b.rx_bytes);
  EXPECT_EQ(before_b.rx_packets + 30, after_b.rx_packets);

  the_time.let_go();
  the_time.await_sleep();
  bm_sample rates = {};
  EXPECT_EQ(1, query_bm_by_iface("mona", &head, &rates));
  EXPECT_EQ(10000u, rates.tx_rate);
  EXPECT_EQ(1, query_bm_by_iface("monb", &head, &rates));
  EXPECT_EQ(10000u, rates.rx_rate);

  head.exit = 1;
  the_time.set(Time::flying);
  EXPECT_EQ(0, pthread_join(thread, nullptr));
  the_time.set(Time::usual);
  sem_delete(head.semid);
  run("ip link del mona");
}

// The monitor in the usual time: three passes of a second each.
TEST(MonitorOfLoopback, RunsByTheClock) {
  bm_head head;
  ASSERT_EQ(1, init_bm(&head, key, 1, 1));
  add_bm_by_iface("lo", &head);
  ASSERT_EQ(0, bm_start(&head));
  const auto samples = [&head] {
    downdown(head.semid, "test", 1, "samples", 0);
    const int count = record(&head, "lo")->history_count;
    upup(head.semid, "test", 1, "samples", 0);
    return count;
  };
  while (samples() < 2)
    usleep(10000);
  bm_sample rates = {};
  EXPECT_EQ(1, query_bm_by_iface("lo", &head, &rates));
  del_bm_by_iface("lo", &head);
  add_bm_by_iface("lo", &head); // no history to be left behind
  downdown(head.semid, "test", 1, "end", 0);
  head.exit = 1;
  head.history = 0;
  upup(head.semid, "test", 1, "end", 0);
  for (bool ended = false; !ended; usleep(10000)) {
    downdown(head.semid, "test", 1, "end", 0);
    ended = list_empty(&head.link);
    upup(head.semid, "test", 1, "end", 0);
  }
  sem_delete(head.semid);
}
