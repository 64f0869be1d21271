// These tests read the counters of an interface from a file that stands in for the kernel's.
#include <gtest/gtest.h>
#include <stddef.h>
#include <string.h>

#include <string>

#include "monitor.h"
#include "support/proc_net_file.h"
#include "support/record_layout.h"
#include "support/sandbox.h"
#include "torvane.h"

// The record has no pointers, so its layout is the same everywhere.
RECORD_LAYOUT(rxtx_stats, 80, FIELD(rx_bytes, 0, 8), FIELD(rx_packets, 8, 8), FIELD(rx_errors, 16, 4),
              FIELD(rx_drops, 20, 4), FIELD(rx_fifo, 24, 4), FIELD(rx_frame, 28, 4), FIELD(rx_compressed, 32, 4),
              FIELD(rx_multicast, 36, 4), FIELD(tx_bytes, 40, 8), FIELD(tx_packets, 48, 8), FIELD(tx_errors, 56, 4),
              FIELD(tx_drops, 60, 4), FIELD(tx_fifo, 64, 4), FIELD(tx_collisions, 68, 4), FIELD(tx_carrier, 72, 4),
              FIELD(tx_compressed, 76, 4));

namespace {

using network::headings;
using network::net_dev;
using sandbox::ProcNetFile;

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
