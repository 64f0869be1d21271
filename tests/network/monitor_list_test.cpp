// These tests look at the list of interfaces that the monitor measures, and at the semaphore that guards it.
#include <errno.h>
#include <gtest/gtest.h>
#include <stddef.h>
#include <sys/sem.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <vector>

#include "interposed.h"
#include "monitor.h"
#include "support/contended_semaphore.h"
#include "support/record_layout.h"
#include "support/sandbox.h"
#include "torvane.h"

// Pointers move these layouts elsewhere.
RECORD_LAYOUT_32(bm_head, 20, FIELD(link, 0, 8), FIELD(count, 8, 1), FIELD(history, 9, 1), FIELD(period, 10, 1),
                 FIELD(exit, 11, 1), FIELD(semid, 12, 4), FIELD(reserved, 16, 4));
RECORD_LAYOUT_32(bm_iface, 88, FIELD(link, 0, 8), FIELD(name, 8, 32), FIELD(prev_rx, 40, 8), FIELD(prev_tx, 48, 8),
                 FIELD(rx_rate, 56, 8), FIELD(tx_rate, 64, 8), FIELD(flags, 72, 2), FIELD(history, 76, 8),
                 FIELD(history_count, 84, 2));
RECORD_LAYOUT_32(bm_sample, 24, FIELD(link, 0, 8), FIELD(rx_rate, 8, 8), FIELD(tx_rate, 16, 8));

using namespace network;

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
  EXPECT_EQ(3, head.count); // counts the adds, not the interfaces
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

// A signal cuts the wait for the semaphore short, and the wait begins again.
TEST_F(Monitor, InterruptedWaitsForTheSemaphoreChangeNothing) {
  sandbox::Captured reasons(STDERR_FILENO);
  static std::atomic<int> interruptions; // how many are still to come
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
  // Each of the three waits is reported once.
  std::string expected;
  for (int i = 0; i < 3; i++)
    expected += "sem down: Interrupted system call\n";
  EXPECT_EQ(expected, reasons.text());
}

TEST_F(Monitor, WhatTheKernelRefusesIsNotGivenBack) {
  sandbox::Captured reasons(STDERR_FILENO);
  add_bm_by_iface("eth0", &head);
  const interposed::StandIn hook(interposed::semop_call, sandbox::refusing_semop);
  EXPECT_EQ(0, add_bm_by_iface("eth1", &head));
  EXPECT_EQ(0, del_bm_by_iface("eth0", &head));
  EXPECT_EQ(1, semaphore());
}

TEST_F(Monitor, AChildForkedWhileAThreadWaitsCanUseIt) {
  EXPECT_TRUE(sandbox::works_in_a_child_of_waiting_threads(
      head.semid, [&] { return del_bm_by_iface("eth0", &head) == 0; })); // nobody has added it
  EXPECT_EQ(1, semaphore());
}

TEST_F(Monitor, EndsWithoutItsSemaphoreToo) {
  sandbox::Captured reasons(STDERR_FILENO);
  start_measuring({"eth0"});
  sem_delete(head.semid);
  head.exit = 1;
  the_time.let_go();
  join();
  EXPECT_TRUE(names_of(&head).empty());
  EXPECT_EQ(std::string::npos, sandbox::console_text().find("up fail")); // what was not taken is not given back
  ASSERT_EQ(0, sem_create(key, &head.semid));
}
