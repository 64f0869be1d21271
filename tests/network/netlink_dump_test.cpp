// These tests have the kernel list real addresses in the program's own network.
#include <errno.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <stddef.h>
#include <stdio.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "interposed.h"
#include "netlink.h"
#include "network.h"
#include "support/sandbox.h"
#include "torvane.h"

namespace {

using interposed::StandIn;
using namespace network;
using sandbox::Captured;
using sandbox::run;

// The fixture makes two linked interfaces with addresses of every kind.
class Dump : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    const auto made =
        run("ip link add va type veth peer name vb && "
            "for i in va vb; do echo 0 >/proc/sys/net/ipv6/conf/$i/accept_dad; ip link set $i addrgenmode none; "
            "ip link set $i up; done && "
            "ip addr add 192.0.2.1/24 dev va && "
            "ip addr add 2001:db8::1/64 dev va && "
            "ip addr add 2001:db8::2/56 dev va nodad && "
            "ip addr add 2001:db8::3/64 dev va valid_lft 9000 preferred_lft 0 && "
            "ip addr add fe80::1/64 dev va && "
            "ip addr add 2001:db8:b::1/64 dev vb && "
            "ip addr add 192.0.2.65/26 dev vb && "
            // Duplicate detection on a third link takes so long that its addresses stay tentative.
            "ip link add vc type veth peer name vd && echo 1000 >/proc/sys/net/ipv6/conf/vc/dad_transmits && "
            "ip link set vc addrgenmode none && ip link set vc up && ip link set vd addrgenmode none && "
            "ip link set vd up && ip addr add 2001:db8:c::1/64 dev vc");
    if (made.status != 0)
      refusal = made.output;
    // The kernel takes its time to clear the tentative mark of the other addresses.
    for (int i = 0; i < 1000 && !run("ip addr show dev va tentative; ip addr show dev vb tentative").output.empty();
         i++)
      usleep(10000);
  }
  static void TearDownTestSuite() {
    run("ip link del va; ip link del vc");
  }
  void SetUp() override {
    if (!refusal.empty())
      GTEST_SKIP() << "no interfaces with addresses: " << refusal;
    sandbox::clear_console();
  }
  // Returns the addresses, sorted. The lines that unknown attributes print are thrown away.
  static Texts dump(const char *ifname, int family = 0, v6_ifaddr wanted = {}, int count = 100, int mode = 1) {
    std::vector<v6_ifaddr> entries(static_cast<size_t>(count));
    entries[0] = wanted;
    int result;
    {
      const Captured output(STDOUT_FILENO);
      result = getifaddr_netlink(ifname, family, mode, entries.data(), count);
    }
    EXPECT_EQ(0, result);
    EXPECT_EQ(0, memcmp(&wanted, &entries[0], sizeof(wanted)));
    Texts found;
    for (size_t i = 1; i < entries.size() && entries[i].addr[0] + entries[i].addr[15] != 0; i++)
      found.push_back(shown(entries[i]));
    std::sort(found.begin(), found.end());
    return found;
  }
  static std::string refusal;
};

std::string Dump::refusal;

const Texts all_of_va = {"192.0.2.1/24 1 1 4", "2001:db8::1/64 2 1 4", "2001:db8::2/56 2 1 0", "2001:db8::3/64 2 1 5",
                         "fe80::1/64 2 3 4"};
const Texts all_of_vb = {"192.0.2.65/26 1 1 4", "2001:db8:b::1/64 2 1 4"};
const Texts all_of_vc = {"2001:db8:c::1/64 2 1 2"};
const Texts all_of_lo = {"127.0.0.1/8 1 4 4", "::1/128 2 4 4"};

Texts together(const std::vector<Texts> &lists) {
  Texts all;
  for (const Texts &list : lists)
    all.insert(all.end(), list.begin(), list.end());
  std::sort(all.begin(), all.end());
  return all;
}

} // namespace

TEST_F(Dump, ListsTheAddressesOfAnInterface) {
  EXPECT_EQ(all_of_va, dump("va"));
  EXPECT_EQ(all_of_vb, dump("vb"));
  EXPECT_EQ(all_of_vc, dump("vc"));
  EXPECT_EQ(all_of_lo, dump("lo"));
  EXPECT_EQ(Texts{}, dump("vd"));
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(Dump, OfNoNameOrOfAnUnknownOneIsOfAllInterfaces) {
  const Texts all = together({all_of_va, all_of_vb, all_of_vc, all_of_lo});
  EXPECT_EQ(all, dump(""));
  EXPECT_EQ(all, dump("none0"));
  EXPECT_EQ(all, dump("a-name-that-no-interface-can-have"));
}

TEST_F(Dump, TakesTheLow16BitsOfTheFamily) {
  const Texts ipv4 = {"192.0.2.1/24 1 1 4"};
  const Texts ipv6(all_of_va.begin() + 1, all_of_va.end());
  EXPECT_EQ(ipv4, dump("va", 2));
  EXPECT_EQ(ipv4, dump("va", 0x70002));
  EXPECT_EQ(ipv6, dump("va", 10));
  EXPECT_EQ(ipv6, dump("va", static_cast<int>(0xffff000au)));
  for (const int other : {0, 1, 7, 0x102, 0xffff, -1})
    EXPECT_EQ(all_of_va, dump("va", other)) << other;
}

TEST_F(Dump, FiltersByTheFirstEntry) {
  EXPECT_EQ(Texts{"fe80::1/64 2 3 4"}, dump("va", 0, filter(0, 2, 3)));
  EXPECT_EQ(Texts{"192.0.2.1/24 1 1 4"}, dump("va", 0, filter(0, 1, 0)));
  EXPECT_EQ(Texts{"2001:db8::2/56 2 1 0"}, dump("va", 0, filter(56, 0, 0)));
  EXPECT_EQ(Texts{"2001:db8::2/56 2 1 0"}, dump("va", 10, filter(56, 2, 1)));
  EXPECT_EQ(all_of_lo, dump("", 0, filter(0, 0, 4)));
  EXPECT_EQ(Texts{}, dump("va", 0, filter(0, 0, 2)));
  EXPECT_EQ(Texts{}, dump("va", 2, filter(0, 2, 0)));
}

TEST_F(Dump, HasNoMoreThanItsEntries) {
  EXPECT_EQ(Texts{}, dump("", 0, {}, 1));
  EXPECT_EQ(1u, dump("va", 0, {}, 2).size());
  EXPECT_EQ(4u, dump("va", 0, {}, 5).size());
  EXPECT_EQ(all_of_va, dump("va", 0, {}, 6));
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(Dump, OfAnotherModeAsksNothing) {
  for (const int mode : {0, 2, -1, 257})
    EXPECT_EQ(Texts{}, dump("va", 0, {}, 10, mode)) << mode;
}

TEST_F(Dump, PrintsTheAttributesThatItDoesNotKnow) {
  Captured output(STDOUT_FILENO);
  v6_ifaddr entries[10] = {};
  EXPECT_EQ(0, getifaddr_netlink("vc", 10, 1, entries, 10));
  const std::string text = output.text();
  EXPECT_EQ(0u, text.find("unknown rta_type: 8\n")) << text; // the long form of the flags
}

TEST_F(Dump, FailsWithoutAnArray) {
  v6_ifaddr entries[2] = {};
  EXPECT_EQ(1, getifaddr_netlink("va", 0, 1, nullptr, 10));
  EXPECT_EQ(1, getifaddr_netlink("va", 0, 1, entries, 0));
  EXPECT_EQ(1, getifaddr_netlink(nullptr, 0, 1, nullptr, 0));
  EXPECT_EQ(1, getifaddr_netlink(nullptr, 0, 1, entries, 2));
  EXPECT_EQ(0, getifaddr_netlink(nullptr, 0, 0, entries, 2)); // the name is of no use in this mode
  EXPECT_EQ(0u, entries[1].info);
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(Dump, OfANegativeCountFillsNothing) {
  v6_ifaddr entries[2] = {};
  for (const int count : {-1, -5, INT_MIN}) {
    EXPECT_EQ(0, getifaddr_netlink("va", 0, 1, entries, count)) << count;
    EXPECT_EQ(0u, entries[0].info | entries[1].info) << count;
  }
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(Dump, FailsWithoutASocket) {
  for (const int mode : {1, 0}) {
    sandbox::clear_console();
    const StandIn hook(interposed::socket_call, [](int, int, int) { return interposed::fail(EACCES); });
    v6_ifaddr entries[2] = {};
    EXPECT_EQ(1, getifaddr_netlink("va", 0, mode, entries, 2));
    expect_ipv6_trace("getifaddr_netlink", "socket(): Create failed.\n");
    EXPECT_EQ(1, getifaddr_netlink(nullptr, 0, mode, entries, 2));
    EXPECT_EQ(2u, sandbox::console_messages().size());
  }
}

TEST_F(Dump, OfOneInterfaceNeedsASecondDescriptorForItsIndex) {
  v6_ifaddr entries[100] = {};
  int of_one, of_all, of_no_mode;
  {
    const Captured output(STDOUT_FILENO);
    rlimit usual;
    getrlimit(RLIMIT_NOFILE, &usual);
    const rlimit one_more = {static_cast<rlim_t>(next_descriptor()) + 1, usual.rlim_max};
    setrlimit(RLIMIT_NOFILE, &one_more);
    of_one = getifaddr_netlink("va", 0, 1, entries, 100);
    const bool filled = entries[1].info != 0;
    of_all = filled ? 1 : getifaddr_netlink("", 0, 1, entries, 100);
    of_no_mode = getifaddr_netlink("va", 0, 0, entries, 100);
    setrlimit(RLIMIT_NOFILE, &usual);
  }
  EXPECT_EQ(1, of_one);
  EXPECT_EQ(0, of_all);
  EXPECT_NE(0u, entries[1].info);
  EXPECT_EQ(0, of_no_mode);
}

TEST_F(Dump, TellsAnIndexThatCannotBeHad) {
  const StandIn hook(interposed::if_nametoindex_call, [](const char *) {
    errno = ENOMEM;
    return 0u;
  });
  v6_ifaddr entries[2] = {};
  const int before = sandbox::open_descriptors();
  EXPECT_EQ(1, getifaddr_netlink("va", 0, 1, entries, 2));
  EXPECT_EQ(0u, entries[1].info);
  EXPECT_EQ(before, sandbox::open_descriptors());
  expect_ipv6_trace("getifaddr_netlink", "socket(): Create failed.\n");
}

TEST_F(Dump, FailsWhenTheRequestCannotBeSent) {
  const StandIn hook(interposed::send_call,
                     [](int, const void *, size_t, int) -> ssize_t { return interposed::fail(EACCES); });
  v6_ifaddr entries[2] = {};
  const int before = sandbox::open_descriptors();
  EXPECT_EQ(1, getifaddr_netlink("va", 0, 1, entries, 2));
  EXPECT_EQ(before, sandbox::open_descriptors());
  expect_ipv6_trace("getifaddr_netlink", "socket(): Send packet failed.\n");
}

TEST_F(Dump, EndsQuietlyForTheCallerWhenReceivingFails) {
  const StandIn hook(interposed::recv_call,
                     [](int, void *, size_t, int) -> ssize_t { return interposed::fail(EACCES); });
  v6_ifaddr entries[2] = {};
  EXPECT_EQ(0, getifaddr_netlink("va", 0, 1, entries, 2));
  EXPECT_EQ(Texts{"recv(): Receive failed.\n"}, sandbox::console_messages());
}

TEST_F(Dump, LeavesNoDescriptorOpen) {
  const int before = sandbox::open_descriptors();
  dump("va");
  dump("va", 0, {}, 10, 0);
  dump("none0");
  EXPECT_EQ(before, sandbox::open_descriptors());
}

TEST_F(Dump, OfThousandsIsComplete) {
  constexpr unsigned count = 3000;
  std::string batch;
  for (unsigned i = 1; i <= count; i++) {
    char line[64];
    snprintf(line, sizeof(line), "addr add 2001:db8:1::%x/128 dev many\n", i);
    batch += line;
  }
  sandbox::write_file("/run/batch", batch);
  const auto made =
      run("ip link add many type veth peer name manyb && ip link set many addrgenmode none arp off && "
          "ip link set many up && ip -batch /run/batch");
  unlink("/run/batch");
  if (made.status != 0) {
    run("ip link del many");
    GTEST_SKIP() << "not so many addresses: " << made.output.substr(0, 200);
  }

  std::vector<v6_ifaddr> entries(count + 100);
  int result;
  {
    const Captured output(STDOUT_FILENO);
    result = getifaddr_netlink("many", 10, 1, entries.data(), static_cast<int>(entries.size()));
  }
  EXPECT_EQ(0, result);
  std::set<unsigned> seen;
  const Address first = address_of("2001:db8:1::");
  for (const v6_ifaddr &entry : entries)
    if (memcmp(entry.addr, first.data(), 14) == 0) {
      seen.insert(entry.addr[14] * 256u + entry.addr[15]);
      EXPECT_EQ(128u << 24 | 2u << 22 | 1u << 19, entry.info & ~(7u << 16)); // some may still be tentative
    }
  EXPECT_EQ(count, seen.size());
  EXPECT_EQ(count, seen.empty() ? 0 : *seen.rbegin());
  EXPECT_EQ(99u, dump("many", 10).size()); // the array holds no more, but the others are read too
  EXPECT_EQ("", sandbox::console_text());
  run("ip link del many");
}
