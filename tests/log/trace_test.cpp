#include <gtest/gtest.h>
#include <unistd.h>

#include "support/sandbox.h"
#include "torvane.h"

TEST(Trace, FailedLookupWritesOneLineWithTheThreadHeader) {
  sandbox::clear_console();
  ASSERT_EQ(nullptr, root_qdisc_find_by_name("eth9"));
  const auto traces = sandbox::console();
  ASSERT_EQ(1u, traces.size());
  EXPECT_TRUE(traces[0].has_process);
  EXPECT_EQ(getpid(), traces[0].process);
  EXPECT_EQ("eth9 not found!!\n", traces[0].message);
}
