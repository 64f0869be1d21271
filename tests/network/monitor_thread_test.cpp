// These tests follow the thread of the monitor from its start through its passes to its end.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "monitor.h"
#include "support/child_process.h"
#include "support/proc_net_file.h"
#include "support/sandbox.h"
#include "support/unprivileged.h"
#include "torvane.h"

namespace {

using namespace network;
using sandbox::console;
using sandbox::ProcNetFile;

// A reader of this file waits until the test writes to it.
class Pass : public testing::Test {
 protected:
  ProcNetFile fifo{"dev", true};
};

} // namespace

TEST_F(Monitor, TracesItsStartAndItsEnd) {
  start_measuring({"eth0"});
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
  const auto &started = traces[traces[0].func == "bm_start" ? 0 : 1]; // the two threads may trace in either order
  EXPECT_FALSE(started.has_process);
  EXPECT_EQ(getpid(), started.thread);
  EXPECT_EQ("quorra_network", started.file);
  EXPECT_EQ("bm_start", started.func);
  int handle = 0, length = 0;
  EXPECT_EQ(1, sscanf(started.message.c_str(), "main process get thread id=%d\n%n", &handle, &length));
  EXPECT_EQ(started.message.size(), static_cast<size_t>(length));

  // A program notices the end by the empty list.
  ask_to_exit();
  while (!locked([this] { return list_empty(&head.link); }))
    usleep(1000);
  EXPECT_EQ("bmThread Exit\n", sandbox::console_messages().back());
}

TEST_F(Monitor, StartFailsWithoutAThread) {
  chmod("/dev/console", 0666);
  const int result = sandbox::as_another_user([this] {
    const rlimit none = {0, 0};
    setrlimit(RLIMIT_NPROC, &none);
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
  start_measuring({"eth0", "eth1"});
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
  start_measuring({"eth0"});
  end_thread();
  ASSERT_EQ(1, init_bm(&head, key, 2, 0));
  add_bm_by_iface("eth0", &head);
  start_thread();
  EXPECT_EQ(2u, pass({{"eth0", 8, 6}}));
  expect_rates("eth0", 4, 3);
}

TEST_F(Monitor, RunsWithoutAConsoleToo) {
  const sandbox::UnopenableConsole away;
  start_measuring({"eth0"});
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

// The thread must not end in its pass, where it has the semaphore, and can be cancelled in its sleep.
TEST_F(Monitor, CanBeCancelledInItsSleepAlone) {
  static const auto cancellability = [] {
    int state;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
    pthread_setcancelstate(state, nullptr);
    return state;
  };
  static std::atomic<int> in_pass, in_sleep;
  in_pass = in_sleep = -1;
  add_bm_by_iface("eth0", &head);
  start_thread();
  const interposed::StandIn opening(interposed::fopen_call, [](const char *path, const char *mode) {
    in_pass = cancellability();
    return interposed::fopen_call.real(path, mode);
  });
  const interposed::StandIn sleeping(interposed::sleep_call, [](unsigned seconds) {
    in_sleep = cancellability();
    return the_time.pass(seconds) ? 0 : interposed::sleep_call.real(seconds);
  });
  pass({{"eth0", 0, 0}});
  EXPECT_EQ(PTHREAD_CANCEL_DISABLE, in_pass);
  EXPECT_EQ(PTHREAD_CANCEL_ENABLE, in_sleep);
}
