#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include "support/sandbox.h"
#include "torvane.h"

TEST(AllocationWrappers, AreThoseOfTheCLibrary) {
  char *block = static_cast<char *>(j_malloc(10));
  ASSERT_NE(nullptr, block);
  strcpy(block, "contents");
  block = static_cast<char *>(j_realloc(block, 10000));
  ASSERT_NE(nullptr, block);
  EXPECT_STREQ("contents", block);
  free(block);
  void *fresh = j_realloc(nullptr, 10);
  EXPECT_NE(nullptr, fresh);
  sandbox::fail_allocation(1);
  EXPECT_EQ(nullptr, j_realloc(fresh, 100));
  sandbox::fail_allocation(1);
  EXPECT_EQ(nullptr, j_malloc(10));
  sandbox::fail_allocation(0);
  free(fresh);
}
