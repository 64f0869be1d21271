// These tests ask the kernel about interfaces that they make themselves.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <signal.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "interface.h"
#include "interposed.h"
#include "network.h"
#include "support/child_process.h"
#include "support/sandbox.h"
#include "torvane.h"

namespace {

using interposed::StandIn;
using network::address;
using network::expect_ip;
using network::expect_trace;
using network::far_end;
using network::Interface;
using network::ip;
using network::near_end;
using network::set_address;
using sandbox::open_descriptors;

class Alias : public Interface {};
class MacAddress : public Interface {};
class Channel : public Interface {};

std::string mac_of(const char *ifname) {
  const std::string text = ip(std::string("-o link show dev ") + ifname).output;
  const size_t at = text.find("link/ether ");
  return at == std::string::npos ? "" : text.substr(at + 11, 17);
}

// These queries by name write four bytes each: an address, a mask, flags, a channel.
struct Query {
  const char *name;
  int (*ask)(const char *ifname, uint32_t *out);
};
constexpr Query queries[] = {
    {"ip", get_ip_by_ifname},
    {"mask", get_mask_by_ifname},
    {"bcast", get_bcast_by_ifname},
    {"flag",
     [](const char *ifname, uint32_t *out) { return get_flag_by_ifname(ifname, reinterpret_cast<int32_t *>(out)); }},
    {"chan",
     [](const char *ifname, uint32_t *out) { return get_chan_by_ifname(ifname, reinterpret_cast<int32_t *>(out)); }},
};

} // namespace

TEST_F(Interface, TellsItsAddressMaskAndBroadcastAddress) {
  uint32_t ip = 0, mask = 0, broadcast = 0;
  EXPECT_EQ(0, get_ip_by_ifname(near_end, &ip));
  EXPECT_EQ(0, get_mask_by_ifname(near_end, &mask));
  EXPECT_EQ(0, get_bcast_by_ifname(near_end, &broadcast));
  EXPECT_EQ(address("192.0.2.10"), ip);
  EXPECT_EQ(address("255.255.255.0"), mask);
  EXPECT_EQ(address("192.0.2.255"), broadcast);
  EXPECT_EQ(0, get_ip_by_ifname("lo", &ip));
  EXPECT_EQ(address("127.0.0.1"), ip);
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(Interface, TellsItsFirstAddressAndThoseWithLabels) {
  expect_ip(std::string("addr add 198.51.100.7/25 label tvn0:1 dev ") + near_end);
  uint32_t ip = 0, mask = 0;
  EXPECT_EQ(0, get_ip_by_ifname(near_end, &ip));
  EXPECT_EQ(address("192.0.2.10"), ip);
  EXPECT_EQ(0, get_ip_by_ifname("tvn0:1", &ip));
  EXPECT_EQ(address("198.51.100.7"), ip);
  EXPECT_EQ(0, get_mask_by_ifname("tvn0:1", &mask));
  EXPECT_EQ(address("255.255.255.128"), mask);
}

TEST_F(Interface, WithoutAnAddressHasNone) {
  uint32_t out = 0x5a5a5a5a;
  EXPECT_EQ(1, get_ip_by_ifname(far_end, &out));
  EXPECT_EQ(1, get_mask_by_ifname(far_end, &out));
  EXPECT_EQ(1, get_bcast_by_ifname(far_end, &out));
  EXPECT_EQ(0x5a5a5a5au, out);
}

TEST_F(Interface, TellsItsFlags) {
  int32_t up = 0, down = 0;
  EXPECT_EQ(0, get_flag_by_ifname(near_end, &up));
  EXPECT_EQ(IFF_UP | IFF_BROADCAST | IFF_MULTICAST, up & (IFF_UP | IFF_BROADCAST | IFF_MULTICAST | IFF_LOOPBACK));
  expect_ip(std::string("link set down dev ") + near_end);
  EXPECT_EQ(0, get_flag_by_ifname(near_end, &down));
  EXPECT_EQ(0, down & IFF_UP);
  expect_ip(std::string("link set up dev ") + near_end);
}

TEST_F(Interface, FlagsKeepTheirSign) {
  const StandIn hook(interposed::ioctl_call, [](int, unsigned long request, void *argument) {
    EXPECT_EQ(static_cast<unsigned long>(SIOCGIFFLAGS), request);
    static_cast<ifreq *>(argument)->ifr_flags = static_cast<short>(0x8043);
    return 0;
  });
  int32_t flags = 0;
  EXPECT_EQ(0, get_flag_by_ifname("lo", &flags));
  EXPECT_EQ(-32701, flags); // 0xFFFF8043
}

TEST_F(Interface, UnknownGivesNothing) {
  for (const Query &query : queries)
    for (const char *name : {"no-such0", "", "tvn", "tvn00", "tvn0 ", "a name much longer than what a request can hold",
                             "tvn0-and-then-much-more"}) {
      uint32_t out = 0x5a5a5a5a;
      EXPECT_EQ(1, query.ask(name, &out)) << query.name << " of " << name;
      EXPECT_EQ(0x5a5a5a5au, out) << query.name << " of " << name;
      EXPECT_EQ(descriptors, open_descriptors()) << query.name << " of " << name;
    }
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(Interface, NamesAreCutToWhatARequestHolds) {
  static std::string asked;
  const StandIn hook(interposed::ioctl_call, [](int, unsigned long, void *argument) {
    asked.assign(static_cast<const char *>(argument), IFNAMSIZ);
    return -1;
  });
  const std::string endless(5000, 'n');
  for (const Query &query : queries) {
    uint32_t out;
    asked.clear();
    EXPECT_EQ(1, query.ask("123456789abcdefghi", &out));
    EXPECT_EQ(std::string("123456789abcdef\0", 16), asked) << query.name;
    EXPECT_EQ(1, query.ask("eth0", &out));
    EXPECT_EQ(std::string("eth0\0\0\0\0\0\0\0\0\0\0\0\0", 16), asked) << query.name;
    EXPECT_EQ(1, query.ask(endless.c_str(), &out));
    EXPECT_EQ(std::string(15, 'n') + std::string(1, '\0'), asked) << query.name;
  }
}

TEST_F(Interface, WithoutADescriptorTellsNothing) {
  uint32_t out = 0x5a5a5a5a;
  uint8_t mac[6] = {9, 9, 9, 9, 9, 9};
  int results[7], expected[7];
  std::fill_n(expected, 7, 1);
  {
    const sandbox::NoDescriptors none;
    for (size_t i = 0; i < 5; i++)
      results[i] = queries[i].ask("lo", &out);
    results[5] = get_mac_by_ifname("lo", mac, 6);
    results[6] = set_mac_by_ifname(near_end, mac);
  }
  EXPECT_TRUE(std::equal(results, results + 7, expected));
  EXPECT_EQ(0x5a5a5a5au, out);
  EXPECT_EQ(9, mac[0]);
}

TEST_F(Interface, IsAskedThroughDescriptorZeroAsThroughAnyOther) {
  EXPECT_EQ(0, sandbox::in_child([] {
              close(STDIN_FILENO);
              const auto given_back = [] { return fcntl(STDIN_FILENO, F_GETFD) == -1; };
              uint32_t out;
              for (int i = 0; i < 4; i++) // there is no channel
                if (queries[i].ask(near_end, &out) != 0 || !given_back())
                  return 1 + i;
              uint8_t mac[6];
              if (get_mac_by_ifname(near_end, mac, 6) != 0 || !given_back())
                return 5;
              mac[5]++;
              if (set_mac_by_ifname(near_end, mac) != 0 || !given_back())
                return 6;
              mac[5]--;
              if (set_mac_by_ifname(near_end, mac) != 0 || !given_back())
                return 7;
              char names[1024];
              return get_netdev_name(names, sizeof(names)) == 0 && given_back() ? 0 : 8;
            }));
  EXPECT_EQ("02:00:5e:10:00:01", mac_of(near_end));
}

TEST_F(Interface, IsAskedOnARawSocketThatNoProgramInherits) {
  static int domain, type, protocol;
  domain = type = protocol = -1;
  const StandIn hook(interposed::socket_call, [](int a, int b, int c) {
    domain = a, type = b, protocol = c;
    return interposed::socket_call.real(a, b, c);
  });
  uint32_t out;
  EXPECT_EQ(0, get_ip_by_ifname("lo", &out));
  EXPECT_EQ(AF_INET, domain);
  EXPECT_EQ(SOCK_RAW | SOCK_CLOEXEC, type);
  EXPECT_EQ(255, protocol);
}

TEST_F(Interface, WithNullGivesNothing) {
  uint32_t out = 0x5a5a5a5a;
  for (const Query &query : queries) {
    EXPECT_EQ(1, query.ask(nullptr, &out)) << query.name;
    EXPECT_EQ(1, query.ask("lo", nullptr)) << query.name;
  }
  EXPECT_EQ(0x5a5a5a5au, out);
  uint8_t mac[6] = {};
  EXPECT_EQ(1, get_mac_by_ifname(nullptr, mac, 6));
  EXPECT_EQ(1, get_mac_by_ifname("lo", nullptr, 6));
  EXPECT_EQ(1, set_mac_by_ifname(nullptr, mac));
  EXPECT_EQ(1, set_mac_by_ifname(near_end, nullptr));
  EXPECT_EQ("02:00:5e:10:00:01", mac_of(near_end));
}

TEST_F(Interface, StubsFailWhateverTheyAreGiven) {
  for (const char *name : {"lo", near_end, "no-such0", static_cast<const char *>(nullptr)})
    for (const uint32_t value : {0u, 1500u, 0xFFFFFFFFu}) {
      uint32_t out = value;
      EXPECT_EQ(1, set_ip_by_ifname(name, value));
      EXPECT_EQ(1, set_mask_by_ifname(name, value));
      EXPECT_EQ(1, set_bcast_by_ifname(name, value));
      EXPECT_EQ(1, set_mtu_by_ifname(name, value));
      EXPECT_EQ(1, get_mtu_by_ifname(name, &out));
      EXPECT_EQ(1, get_mtu_by_ifname(name, nullptr));
      EXPECT_EQ(value, out);
    }
  uint32_t ip = 0;
  EXPECT_EQ(0, get_ip_by_ifname(near_end, &ip));
  EXPECT_EQ(address("192.0.2.10"), ip);
}

TEST_F(Alias, IsTheNextHostAddressInTheSubnet) {
  const struct {
    const char *own, *alias;
  } cases[] = {
      {"192.0.2.10/24", "192.0.2.11"},     {"192.0.2.254/24", "192.0.2.1"}, {"192.0.2.1/30", "192.0.2.2"},
      {"192.0.2.2/30", "192.0.2.1"},       {"10.0.0.255/8", "10.0.1.0"},    {"10.255.255.254/8", "10.0.0.1"},
      {"172.16.255.254/16", "172.16.0.1"}, {"192.0.2.126/25", "192.0.2.1"}, {"192.0.2.254/25", "192.0.2.129"},
      {"128.255.255.255/1", "129.0.0.0"},
  };
  for (const auto &row : cases) {
    set_address(row.own);
    uint32_t alias = 0;
    EXPECT_EQ(0, get_aliasIp_by_ifname(near_end, &alias)) << row.own;
    EXPECT_EQ(address(row.alias), alias) << row.own;
  }
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(Alias, OfALabelledAddressLiesInItsSubnet) {
  expect_ip(std::string("addr add 198.51.100.7/29 label tvn0:1 dev ") + near_end);
  uint32_t alias = 0;
  EXPECT_EQ(0, get_aliasIp_by_ifname("tvn0:1", &alias));
  EXPECT_EQ(address("198.51.100.1"), alias); // 8 begins the next one
}

TEST_F(Alias, IsSoughtForEverWhereThereIsNone) {
  const struct {
    const char *own;
    std::vector<std::string> tried;
  } cases[] = {{"192.0.2.10/32", {"192.0.2.10"}}, {"192.0.2.10/31", {"192.0.2.10", "192.0.2.11"}}};
  uint32_t *const shared =
      static_cast<uint32_t *>(mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  for (const auto &row : cases) {
    set_address(row.own);
    *shared = 0;
    const pid_t child = sandbox::start_child([&] {
      signal(SIGVTALRM, SIG_DFL);
      const itimerval busy = {{0, 0}, {0, 300000}}; // of its own processor time
      setitimer(ITIMER_VIRTUAL, &busy, nullptr);
      return get_aliasIp_by_ifname(near_end, shared);
    });
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_TRUE(WIFSIGNALED(status)) << row.own;
    EXPECT_EQ(SIGVTALRM, WTERMSIG(status)) << row.own;
    char last[16];
    ip2string(*shared, last, sizeof(last));
    EXPECT_NE(row.tried.end(), std::find(row.tried.begin(), row.tried.end(), last)) << last;
  }
  munmap(shared, 4096);
}

TEST_F(Alias, WithoutAnAddressFails) {
  uint32_t alias = 0x5a5a5a5a;
  EXPECT_EQ(1, get_aliasIp_by_ifname("no-such0", &alias));
  expect_trace("get_aliasIp_by_ifname", "CHECK!!\n");
  sandbox::clear_console();
  EXPECT_EQ(1, get_aliasIp_by_ifname(far_end, &alias));
  expect_trace("get_aliasIp_by_ifname", "CHECK!!\n");
  EXPECT_EQ(0x5a5a5a5au, alias);
  EXPECT_EQ(1, get_aliasIp_by_ifname(nullptr, &alias));
  EXPECT_EQ(1, get_aliasIp_by_ifname("lo", nullptr));
}

TEST_F(Alias, WithoutAMaskFails) {
  const StandIn hook(interposed::ioctl_call, [](int fd, unsigned long request, void *argument) {
    return request == SIOCGIFNETMASK ? -1 : interposed::ioctl_call.real(fd, request, argument);
  });
  uint32_t alias = 0x5a5a5a5a;
  EXPECT_EQ(1, get_aliasIp_by_ifname(near_end, &alias));
  expect_trace("get_aliasIp_by_ifname", "CHECK!!\n");
  EXPECT_EQ(0x5a5a5a5au, alias);
}

TEST_F(Alias, FailsTheSameWithoutAConsole) {
  const sandbox::UnopenableConsole away;
  uint32_t alias = 0x5a5a5a5a;
  EXPECT_EQ(1, get_aliasIp_by_ifname("no-such0", &alias));
}

TEST_F(MacAddress, IsRead) {
  uint8_t mac[8];
  memset(mac, 0xEE, sizeof(mac));
  EXPECT_EQ(0, get_mac_by_ifname(near_end, mac, 6));
  const uint8_t expected[8] = {0x02, 0x00, 0x5e, 0x10, 0x00, 0x01, 0xEE, 0xEE};
  EXPECT_EQ(0, memcmp(expected, mac, sizeof(mac)));
  EXPECT_EQ(0, get_mac_by_ifname("lo", mac, INT32_MAX));
  EXPECT_EQ(0, mac[0]);
}

TEST_F(MacAddress, IsNotReadIntoLessThanSixBytesNorAskedFor) {
  static int asked;
  asked = 0;
  const StandIn hook(interposed::socket_call, [](int, int, int) { return ++asked, -1; });
  uint8_t mac[6] = {9, 9, 9, 9, 9, 9};
  for (const int size : {5, 1, 0, -1, INT32_MIN})
    EXPECT_EQ(1, get_mac_by_ifname(near_end, mac, size)) << size;
  EXPECT_EQ(0, asked);
  EXPECT_EQ(9, mac[0]);
}

TEST_F(MacAddress, OfNoInterfaceIsNotThere) {
  uint8_t mac[6] = {9, 9, 9, 9, 9, 9};
  EXPECT_EQ(1, get_mac_by_ifname("no-such0", mac, 6));
  EXPECT_EQ(1, set_mac_by_ifname("no-such0", mac));
  EXPECT_EQ(1, set_mac_by_ifname("an interface name longer than a request", mac));
  EXPECT_EQ(9, mac[0]);
}

TEST_F(MacAddress, IsSet) {
  const uint8_t mac[6] = {0x02, 0xaa, 0xbb, 0xcc, 0xdd, 0xee}, old[6] = {0x02, 0x00, 0x5e, 0x10, 0x00, 0x01};
  EXPECT_EQ(0, set_mac_by_ifname(near_end, mac));
  EXPECT_EQ("02:aa:bb:cc:dd:ee", mac_of(near_end));
  EXPECT_EQ(0, set_mac_by_ifname(near_end, old));
  EXPECT_EQ("02:00:5e:10:00:01", mac_of(near_end));
}

TEST_F(MacAddress, ThatTheKernelRefusesIsNotSet) {
  const uint8_t multicast[6] = {0x03, 0, 0, 0, 0, 1};
  EXPECT_EQ(1, set_mac_by_ifname(near_end, multicast));
  EXPECT_EQ("02:00:5e:10:00:01", mac_of(near_end));
}

TEST_F(MacAddress, IsSetOnEthernetAlone) {
  static int sets;
  sets = 0;
  const StandIn hook(interposed::ioctl_call, [](int fd, unsigned long request, void *argument) {
    sets += request == SIOCSIFHWADDR;
    return interposed::ioctl_call.real(fd, request, argument);
  });
  const uint8_t mac[6] = {0x02, 0xaa, 0xbb, 0xcc, 0xdd, 0xee};
  EXPECT_EQ(1, set_mac_by_ifname("lo", mac));
  EXPECT_EQ(0, sets);
}

TEST_F(Channel, IsAskedForAsTheDriverExpectsIt) {
  static std::string before, after;
  static int32_t first;
  const StandIn hook(interposed::ioctl_call, [](int, unsigned long request, void *argument) {
    EXPECT_EQ(0x8BE1u, request);
    before.assign(static_cast<const char *>(argument), 32);
    void *pointer;
    memcpy(&pointer, before.data() + 16, sizeof(pointer));
    memcpy(&first, pointer, sizeof(first));
    const int32_t channel = 11;
    memcpy(pointer, &channel, sizeof(channel));
    return 0;
  });
  int32_t channel = 77;
  EXPECT_EQ(0, get_chan_by_ifname("wlan0", &channel));
  EXPECT_EQ(11, channel);
  EXPECT_EQ(0, first);
  EXPECT_EQ(std::string("wlan0") + std::string(11, '\0'), before.substr(0, 16));
  const uint16_t length_and_flags[2] = {1, 0x712};
  std::string rest(16 - sizeof(void *), '\0');
  memcpy(rest.data(), length_and_flags, sizeof(length_and_flags));
  EXPECT_EQ(rest, before.substr(16 + sizeof(void *)));
}

TEST_F(Channel, OfWhatIsNotWirelessIsNotThere) {
  static int32_t *answer;
  const StandIn hook(interposed::ioctl_call, [](int, unsigned long, void *argument) {
    memcpy(&answer, static_cast<char *>(argument) + 16, sizeof(answer));
    *answer = 11; // and then a failure
    return -1;
  });
  int32_t channel = 77;
  EXPECT_EQ(1, get_chan_by_ifname(near_end, &channel));
  EXPECT_EQ(77, channel);
}
