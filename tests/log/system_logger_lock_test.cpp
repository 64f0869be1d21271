// The semaphore under which messages go to the system logger.
#include <gtest/gtest.h>
#include <sys/sem.h>
#include <unistd.h>

#include "support/contended_semaphore.h"
#include "support/interposed.h"
#include "support/sandbox.h"
#include "torvane.h"

INTERPOSE(semop, 3, sandbox::ordered_semop);

namespace {

class SysLogLock : public testing::Test {
 protected:
  void SetUp() override {
    sandbox::clear_console();
    ASSERT_EQ(0, sem_create(0x10a, &semid));
  }
  void TearDown() override {
    EXPECT_EQ(1, semctl(semid, 0, GETVAL));
    sem_delete(semid);
  }
  int send() const {
    return __syslogprintf(semid, "router", "caller", 7, "main", 4, "hello\n");
  }

  int semid = -1;
};

} // namespace

TEST_F(SysLogLock, AnInterruptedWaitIsReportedOnceAndBegunAgain) {
  const interposed::StandIn hook(interposed::semop_call, sandbox::counting_semop);
  sandbox::Captured errors(STDERR_FILENO);
  int result = -1;
  sandbox::interrupt_waiting(semid, 4, [&] { result = send(); });
  EXPECT_EQ(0, result);
  EXPECT_EQ("sem down: Interrupted system call\n", errors.text());
}

// The semaphore stands, so giving back what was not taken would let two holders in from then on.
TEST_F(SysLogLock, WhatTheKernelRefusesIsNotGivenBack) {
  const interposed::StandIn hook(interposed::semop_call, sandbox::refusing_semop);
  sandbox::Captured errors(STDERR_FILENO);
  EXPECT_EQ(1, send());
  EXPECT_EQ("sem down: Cannot allocate memory\n", errors.text());
}

TEST_F(SysLogLock, AChildForkedWhileAThreadWaitsCanSend) {
  EXPECT_TRUE(sandbox::works_in_a_child_of_waiting_threads(semid, [&] { return send() == 0; }));
}
