#include <gtest/gtest.h>
#include <limits.h>
#include <sys/ipc.h>
#include <sys/shm.h>

#include <string>
#include <vector>

#include "ipc/ipc.h"
#include "support/sandbox.h"
#include "torvane.h"

using ipc::key;

namespace {

class SharedMemory : public ipc::Test {
 protected:
  void TearDown() override {
    for (const int id : made)
      shmctl(id, IPC_RMID, nullptr);
  }
  std::vector<int> made;
};

} // namespace

TEST_F(SharedMemory, IsCreatedForEveryoneAndNotAttached) {
  int id = -1;
  ASSERT_EQ(0, shm_create(key, 5000, &id));
  made.push_back(id);
  shmid_ds status = {};
  ASSERT_EQ(0, shmctl(id, IPC_STAT, &status));
  EXPECT_EQ(0666, status.shm_perm.mode & 07777);
  EXPECT_EQ(5000u, status.shm_segsz);
  EXPECT_EQ(0u, status.shm_nattch);
  EXPECT_EQ(id, shmget(key, 0, 0));
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(SharedMemory, OfAnExistingKeyIsOpenedWithItsContents) {
  int first = -1, again = -1, smaller = -1;
  ASSERT_EQ(0, shm_create(key, 5000, &first));
  made.push_back(first);
  char *const block = static_cast<char *>(shmat(first, nullptr, 0));
  block[4999] = 'x';
  EXPECT_EQ(0, shm_create(key, 5000, &again));
  EXPECT_EQ(first, again);
  EXPECT_EQ(0, shm_create(key, 1, &smaller));
  EXPECT_EQ(first, smaller);
  EXPECT_EQ('x', block[4999]);
  shmdt(block);
}

TEST_F(SharedMemory, OfTwoKeysIsTwoSegments) {
  int one = -1, negative = -1;
  ASSERT_EQ(0, shm_create(key, 100, &one));
  made.push_back(one);
  ASSERT_EQ(0, shm_create(-5, 100, &negative));
  made.push_back(negative);
  EXPECT_NE(one, negative);
  EXPECT_EQ(negative, shmget(-5, 0, 0));
}

TEST_F(SharedMemory, LargerThanTheExistingSegmentFails) {
  int id = -1;
  ASSERT_EQ(0, shm_create(key, 100, &id));
  made.push_back(id);
  const int before = sandbox::open_descriptors();
  EXPECT_EQ(1, shm_create(key, 1000000, &id));
  EXPECT_EQ(-1, id);
  expect_trace("shm_create", "key=24138 shmget fail\n");
  EXPECT_EQ(before, sandbox::open_descriptors());
}

TEST_F(SharedMemory, WithoutASizeFailsAndTellsItsSignedKey) {
  int id = 77;
  EXPECT_EQ(1, shm_create(-5, 0, &id));
  EXPECT_EQ(-1, id);
  expect_trace("shm_create", "key=-5 shmget fail\n");
  sandbox::clear_console();
  id = 77;
  EXPECT_EQ(1, shm_create(INT_MIN, -1, &id));
  EXPECT_EQ(-1, id);
  expect_trace("shm_create", "key=-2147483648 shmget fail\n");
}

TEST_F(SharedMemory, FailsTheSameWithoutAConsole) {
  const sandbox::UnopenableConsole away;
  int id = 77;
  EXPECT_EQ(1, shm_create(key, 0, &id));
  EXPECT_EQ(-1, id);
}

TEST_F(SharedMemory, WithANullIdMakesNothing) {
  EXPECT_EQ(1, shm_create(key, 100, nullptr));
  EXPECT_EQ(-1, shmget(key, 0, 0));
}

TEST_F(SharedMemory, WithAPrivateKeyIsNewEveryTime) {
  int one = -1, two = -1;
  ASSERT_EQ(0, shm_create(IPC_PRIVATE, 100, &one));
  made.push_back(one);
  ASSERT_EQ(0, shm_create(IPC_PRIVATE, 100, &two));
  made.push_back(two);
  EXPECT_NE(one, two);
}
