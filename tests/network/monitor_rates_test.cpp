// These tests check the rates that the monitor measures, and their history.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <pthread.h>
#include <string.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "monitor.h"
#include "support/sandbox.h"
#include "torvane.h"

using namespace network;
using sandbox::run;

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
  start_measuring({"eth0"});
  locked([this] { return head.period = 5; });
  EXPECT_EQ(5u, pass({{"eth0", 3000, 300}}));
  expect_rates("eth0", 1000, 100); // the sleep before took 3 seconds
  locked([this] { return head.period = 255; });
  EXPECT_EQ(255u, pass({{"eth0", 8000, 800}}));
  expect_rates("eth0", 1000, 100);
  EXPECT_EQ(255u, pass({{"eth0", 8000 + 255 * 7, 800 + 254}}));
  expect_rates("eth0", 7, 0);
}

TEST_F(Monitor, TakesAPeriodOf0As1) {
  head.period = 0;
  start_measuring({"eth0"});
  EXPECT_EQ(1u, pass({{"eth0", 70, 7}}));
  expect_rates("eth0", 70, 7);
}

TEST_F(Monitor, AddingAgainStartsAgain) {
  head.history = 1;
  start_measuring({"eth0", "eth1"});
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
  start_measuring({"ppp0"});
  pass({{"ppp0", 300, 600}});
  pass({{"eth0", 1, 1}});
  expect_rates("ppp0", 100, 200);
  const bm_iface *iface = record(&head, "ppp0");
  EXPECT_EQ(1, iface->flags);
  EXPECT_EQ(300u, iface->prev_rx);
  EXPECT_EQ(1, iface->history_count);
  pass({{"ppp0", 900, 900}}); // the difference of both periods counts as one
  expect_rates("ppp0", 200, 100);
  EXPECT_EQ(2, iface->history_count);
}

TEST_F(Monitor, KeepsNoHistoryUnlessAsked) {
  start_measuring({"eth0"});
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
  start_measuring({"eth0"});
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
  start_measuring({"eth0"});
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
  // The kernel reports equal events in a row as one.
  EXPECT_EQ(16, opens);
  EXPECT_EQ(16, closes);
}

TEST(MonitorOfVeth, MeasuresRealTraffic) {
  // The sending end comes up last, when there is a carrier: its queue is ready then. Without one the kernel would start
  // the queue some time later and drop what is sent before.
  const auto made =
      run("ip link add mona type veth peer name monb && "
          "echo 1 >/proc/sys/net/ipv6/conf/mona/disable_ipv6 && echo 1 >/proc/sys/net/ipv6/conf/monb/disable_ipv6 && "
          "ip addr add 198.51.100.1/24 dev mona && ip link set monb up && ip link set mona up && "
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

// The monitor runs in real time here: three passes of a second each.
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
  add_bm_by_iface("lo", &head); // so that no history is left behind
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
