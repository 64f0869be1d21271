// These tests look for the names of interfaces.
#include <gtest/gtest.h>
#include <limits.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <string>

#include "interface.h"
#include "interposed.h"
#include "network.h"
#include "support/sandbox.h"
#include "torvane.h"

namespace {

using interposed::StandIn;
using network::address;
using network::expect_ip;
using network::expect_trace;
using network::far_end;
using network::Interface;
using network::near_end;
using sandbox::open_descriptors;

class NameList : public Interface {};
class NameByAddress : public Interface {};

// Has other lines read in place of those of "/proc/net/dev", where the kernel lets no file be mounted.
class NetDev {
 public:
  explicit NetDev(const std::string &lines)
      : hook_(interposed::fopen_call, [](const char *path, const char *mode) {
          return interposed::fopen_call.real(strcmp(path, "/proc/net/dev") == 0 ? "/run/net_dev" : path, mode);
        }) {
    sandbox::write_file("/run/net_dev", "Inter-|   Receive\n face |bytes\n" + lines);
  }
  ~NetDev() {
    unlink("/run/net_dev");
  }

 private:
  const StandIn<FILE *(const char *, const char *)> hook_;
};

constexpr char counters[] = "       1    2    0    0    0     0          0         0        3       4    0    0    0\n";

} // namespace

TEST_F(NameList, HoldsEveryInterfaceInOrder) {
  const std::string expected =
      sandbox::run("awk -F: 'NR > 2 { gsub(\" \", \"\", $1); print $1 }' /proc/net/dev | paste -sd, | tr -d '\\n'")
          .output;
  char list[1024];
  memset(list, 'x', sizeof(list));
  EXPECT_EQ(0, get_netdev_name(list, sizeof(list)));
  EXPECT_EQ(expected, list);
  EXPECT_NE(nullptr, strstr(list, "lo"));
  EXPECT_NE(nullptr, strstr(list, near_end));
  EXPECT_NE(nullptr, strstr(list, far_end));
  for (size_t i = strlen(list); i < sizeof(list); i++)
    ASSERT_EQ('\0', list[i]) << i;
}

TEST_F(NameList, FillsABufferExactly) {
  char list[1024];
  ASSERT_EQ(0, get_netdev_name(list, sizeof(list)));
  const std::string whole = list;
  std::string exact(whole.size() + 2, '#');
  EXPECT_EQ(0, get_netdev_name(exact.data(), static_cast<int>(whole.size() + 1)));
  EXPECT_EQ(whole, exact.c_str());
  EXPECT_EQ('#', exact.back());
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(NameList, ThatDoesNotFitIsToldAndCut) {
  char list[1024];
  ASSERT_EQ(0, get_netdev_name(list, sizeof(list)));
  const std::string whole = list;
  for (size_t size = whole.size(); size > 0; size--) {
    sandbox::clear_console();
    std::string cut(size + 1, '#');
    EXPECT_EQ(1, get_netdev_name(cut.data(), static_cast<int>(size))) << size;
    expect_trace("get_netdev_name", "buffer too small!!\n");
    EXPECT_EQ('#', cut.back()) << size;
    EXPECT_EQ(0u, whole.find(cut.c_str())) << size;
    EXPECT_GT(size, strlen(cut.c_str()));
    EXPECT_EQ(descriptors, open_descriptors()) << size;
  }
}

TEST_F(NameList, DoesNotFitABufferWithoutBytes) {
  char list[64] = "unchanged";
  for (char *buffer : {list, static_cast<char *>(nullptr)})
    for (const int size : {0, -1, INT_MIN}) {
      sandbox::clear_console();
      EXPECT_EQ(1, get_netdev_name(buffer, size)) << size;
      expect_trace("get_netdev_name", "buffer too small!!\n");
    }
  EXPECT_STREQ("unchanged", list);
  const NetDev empty("");
  EXPECT_EQ(0, get_netdev_name(list, 0)); // nothing is more than no bytes hold
  EXPECT_STREQ("unchanged", list);
}

TEST_F(NameList, NeedsABufferAndItsFile) {
  char list[64] = "unchanged";
  EXPECT_EQ(1, get_netdev_name(nullptr, 64));
  int result;
  {
    const sandbox::NoDescriptors none;
    result = get_netdev_name(list, sizeof(list));
  }
  EXPECT_EQ(1, result);
  EXPECT_STREQ("unchanged", list);
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(NameList, WithoutAnInterfaceIsEmpty) {
  const NetDev empty("");
  char list[5] = {'#', 'x', 'x', 'x', '#'};
  EXPECT_EQ(0, get_netdev_name(list + 1, 3));
  EXPECT_EQ(0, memcmp("#\0\0\0#", list, sizeof(list)));
}

TEST_F(NameList, LeavesOutWhatIsNoInterfacesLine) {
  const std::string digits(300, '7');
  const NetDev odd("    lo:" + std::string(counters) + "\n" + " \t eth0:" + digits + "\n" + "br-lan: 1\nppp0:2");
  char list[64];
  EXPECT_EQ(0, get_netdev_name(list, sizeof(list)));
  EXPECT_STREQ("lo,eth0,br-lan,ppp0", list);
}

TEST_F(NameList, ChecksNoNameAsKnown) {
  for (const char *name : {"lo", near_end, "no-such0", "", "lo,tvn0"})
    EXPECT_EQ(1, check_netdev_name(name)) << name;
  EXPECT_EQ(1, check_netdev_name(nullptr));
  const NetDev empty("");
  EXPECT_EQ(1, check_netdev_name("lo"));
  EXPECT_EQ(1, check_netdev_name(""));
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(NameList, OfMoreThanItsBufferIsToldByTheCheck) {
  std::string lines;
  for (int i = 0; i < 128; i++)
    lines += "  veth" + std::to_string(100 + i) + ":" + counters; // 8 bytes each with the comma
  const NetDev full(lines);
  EXPECT_EQ(1, check_netdev_name("veth100"));
  EXPECT_EQ("", sandbox::console_text()); // 1023 bytes and the terminator
  const NetDev longer(lines + "  x:" + counters);
  EXPECT_EQ(1, check_netdev_name("veth100"));
  expect_trace("get_netdev_name", "buffer too small!!\n");
  sandbox::clear_console();
  EXPECT_EQ(1, check_netdev_name(nullptr));
  expect_trace("get_netdev_name", "buffer too small!!\n");
}

TEST_F(NameByAddress, IsNotFoundForShorterNames) {
  char out[300] = "unchanged";
  EXPECT_EQ(1, get_ifname_by_ip(address("192.0.2.10"), out, sizeof(out)));
  EXPECT_EQ(1, get_ifname_by_ip(address("127.0.0.1"), out, sizeof(out)));
  EXPECT_EQ(1, get_ifname_by_ip(address("203.0.113.1"), out, sizeof(out)));
  EXPECT_STREQ("unchanged", out);
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(NameByAddress, IsTheRestOfTheLineWithALineFeedForTheColon) {
  const NetDev fixed(std::string("    lo: 1\n  tvn0: 2\n  ") + far_end + ":  17 4\n");
  expect_ip(std::string("addr add 198.51.100.9/24 dev ") + far_end);
  const std::string expected = std::string(far_end) + "\n  17 4\n";
  char out[64];
  memset(out, 'x', sizeof(out));
  EXPECT_EQ(0, get_ifname_by_ip(address("198.51.100.9"), out, sizeof(out)));
  EXPECT_EQ(expected, out);
  memset(out, 'x', sizeof(out));
  EXPECT_EQ(0, get_ifname_by_ip(address("198.51.100.9"), out, static_cast<int>(expected.size() + 1)));
  EXPECT_EQ(expected, out);
  EXPECT_EQ('x', out[expected.size() + 1]);
  memset(out, 'x', sizeof(out));
  for (const int size : {static_cast<int>(expected.size()), 16, 1, 0, -1})
    EXPECT_EQ(1, get_ifname_by_ip(address("198.51.100.9"), out, size)) << size;
  EXPECT_EQ('x', out[0]);
  EXPECT_EQ(1, get_ifname_by_ip(address("198.51.100.8"), out, sizeof(out)));
  expect_ip(std::string("addr flush dev ") + far_end);
}

TEST_F(NameByAddress, NeedsABufferAndItsFile) {
  char out[300] = "unchanged";
  EXPECT_EQ(1, get_ifname_by_ip(address("127.0.0.1"), nullptr, sizeof(out)));
  int result;
  {
    const sandbox::NoDescriptors none;
    result = get_ifname_by_ip(address("127.0.0.1"), out, sizeof(out));
  }
  EXPECT_EQ(1, result);
  EXPECT_STREQ("unchanged", out);
}
