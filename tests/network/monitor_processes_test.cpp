// These tests share the monitor's memory between two processes.
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

#include "monitor.h"
#include "support/child_process.h"
#include "support/proc_net_file.h"
#include "support/sandbox.h"
#include "torvane.h"

namespace {

using namespace network;
using sandbox::ProcNetFile;

// The child process is started before the monitor's thread.
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
  // Starts a process that takes the semaphore and goes on with `body`, and a pass that waits for the semaphore. Returns
  // the process.
  template <typename Body>
  pid_t start_pass_behind_holder(Body body) {
    const sandbox::Handshake may_take, has_taken;
    const pid_t child = sandbox::start_child([&] {
      may_take.take();
      if (down() != 0)
        return 1;
      has_taken.give();
      return body();
    });
    start_thread();
    may_take.give();
    has_taken.take();
    the_time.let_go();
    await_waiter();
    return child;
  }
  void end_thread() {
    head->exit = 1;
    the_time.set(Time::flying);
    EXPECT_EQ(0, pthread_join(thread, nullptr));
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
  const sandbox::Handshake may_give;
  const pid_t child = start_pass_behind_holder([&] {
    may_give.take();
    return up() == 0 ? 0 : 2;
  });
  file.set(net_dev({{"eth0", 30, 60}})); // in time for a pass that has not begun
  may_give.give();
  EXPECT_EQ(0, sandbox::end_of_child(child));
  the_time.await_sleep();
  EXPECT_EQ(30u, record(head, "eth0")->prev_rx);
  end_thread();
}

TEST_F(SharedMonitor, AHolderThatDiesGivesTheSemaphoreBack) {
  const pid_t child = start_pass_behind_holder([]() -> int {
    for (;;)
      pause();
  });
  kill(child, SIGKILL);
  sandbox::end_of_child(child);
  EXPECT_EQ(3u, the_time.await_sleep());
  end_thread();
}
