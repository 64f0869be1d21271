// These tests look for the IPv6 addresses and the gateway of an interface, in the kernel's file and with the ip tool.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/wait.h>

#include <array>
#include <string>
#include <vector>

#include "support/proc_net_file.h"
#include "support/sandbox.h"
#include "torvane.h"

namespace {

using sandbox::ProcNetFile;
using sandbox::run;

using Address = std::array<unsigned char, 16>;
using Texts = std::vector<std::string>;
using Groups = std::array<unsigned short, 8>;

constexpr Groups untouched = {1, 2, 3, 4, 5, 6, 7, 8};
constexpr Address filled = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};

// While it lives there is an interface "via" with a link-local and a global address. Its peer is "vib".
class Via {
 public:
  Via()
      : made_(
            run("ip link add via type veth peer name vib && ip link set via addrgenmode none && ip link set via up && "
                "ip link set vib up && ip addr add fe80::77/64 dev via nodad && "
                "ip addr add 2001:db8::77/64 dev via nodad")) {}
  ~Via() {
    run("ip link del via");
  }
  Via(const Via &) = delete;
  Via &operator=(const Via &) = delete;

  bool made() const {
    return made_.status == 0;
  }
  std::string reason() const {
    return "no interface with addresses: " + made_.output;
  }

 private:
  const sandbox::Outcome made_;
};

class IfInet6 : public testing::Test {
 protected:
  // Returns the address that was found, as text, or "".
  static std::string found(const char *ifname, int which) {
    Groups groups = untouched;
    const int result = get_ip6_by_ifname(ifname, which, groups.data());
    if (result != 0) {
      EXPECT_EQ(1, result);
      EXPECT_EQ(untouched, groups);
      return "";
    }
    std::string text;
    for (const unsigned short group : groups) {
      char digits[8];
      snprintf(digits, sizeof(digits), "%x:", group);
      text += digits;
    }
    text.pop_back();
    return text;
  }
};

} // namespace

TEST_F(IfInet6, GivesTheFirstTheLinkLocalAndTheSecond) {
  const ProcNetFile file("if_inet6");
  file.set(
      "00000000000000000000000000000001 01 80 10 80       lo\n"
      "fe80000000000000021122fffe334455 02 40 20 80     eth0\n"
      "20010db8000000000000000000000099 03 40 00 80    eth01\n"
      "20010db80123456789abcdef0000ffff 02 40 00 80     eth0\n"
      "fe800000000000000000000000000002 02 40 20 80     eth0\n"
      "20010db8000000000000000000000002 02 40 00 80     eth0\n"
      "20010db8000000000000000000000003 02 40 00 80     eth0\n"
      "fec00000000000000000000000000001 04 40 40 80     site\n");
  EXPECT_EQ("2001:db8:123:4567:89ab:cdef:0:ffff", found("eth0", 0));
  EXPECT_EQ("fe80:0:0:0:211:22ff:fe33:4455", found("eth0", 1));
  EXPECT_EQ("2001:db8:0:0:0:0:0:2", found("eth0", 2));
  for (const int which : {3, -1, 0x20, 256})
    EXPECT_EQ("", found("eth0", which)) << which;
  EXPECT_EQ("2001:db8:0:0:0:0:0:99", found("eth01", 0));
  EXPECT_EQ("", found("eth01", 1));
  EXPECT_EQ("", found("eth01", 2));
  for (const char *name : {"lo", "site", "eth", "eth", "th0", "eth02", ""})
    for (const int which : {0, 1, 2})
      EXPECT_EQ("", found(name, which)) << name;
}

TEST_F(IfInet6, ReadsTheFirst12CharactersOfAName) {
  const ProcNetFile file("if_inet6");
  file.set(
      "20010db8000000000000000000000001 02 40 00 80 abcdefghijklmno\n"
      "20010db8000000000000000000000002 03 40 00 80 eth0\n");
  EXPECT_EQ("", found("abcdefghijklmno", 0));
  EXPECT_EQ("2001:db8:0:0:0:0:0:1", found("abcdefghijkl", 0));
  EXPECT_EQ("2001:db8:0:0:0:0:0:2", found("eth0", 0)); // the rest of the long name does not disturb the next record
}

TEST_F(IfInet6, PassesOverRecordsThatAreNotAsExpected) {
  const ProcNetFile file("if_inet6");
  file.set(
      "20010db8000000000000000000000001 100 40 00 80 eth0\n" // an index of three digits
      "\n"
      "20010db8\n"
      "zz\n"
      "20010db8000000000000000000000001 xx 40 00 80 eth0\n"
      "20010db8000000000000000000000002 02 40 00 80\n" +
      std::string(1000, 'x') +
      "\n"
      "20010db8000000000000000000000007 02 40 00 80 eth0");
  EXPECT_EQ("2001:db8:0:0:0:0:0:7", found("eth0", 0));
  EXPECT_EQ("", found("eth0", 2));
  file.set("");
  EXPECT_EQ("", found("eth0", 0));
}

TEST_F(IfInet6, FailsWithoutTheFile) {
  {
    const ProcNetFile other("dev");
    EXPECT_EQ("", found("lo", 0));
  }
  Groups groups = untouched;
  EXPECT_EQ(1, get_ip6_by_ifname(nullptr, 0, groups.data()));
  EXPECT_EQ(1, get_ip6_by_ifname("lo", 0, nullptr));
  EXPECT_EQ(untouched, groups);
}

TEST_F(IfInet6, LeavesNoDescriptorOpen) {
  const ProcNetFile file("if_inet6");
  file.set("20010db8000000000000000000000001 02 40 00 80 eth0\n");
  const int before = sandbox::open_descriptors();
  found("eth0", 0);
  found("eth1", 0);
  EXPECT_EQ(before, sandbox::open_descriptors());
}

TEST_F(IfInet6, ReadsTheKernelsOwn) {
  const Via via;
  if (!via.made())
    GTEST_SKIP() << via.reason();
  EXPECT_EQ("fe80:0:0:0:0:0:0:77", found("via", 1));
  EXPECT_EQ("2001:db8:0:0:0:0:0:77", found("via", 0));
  EXPECT_EQ("", found("via", 2));
  run("ip addr add 2001:db8:1::77/64 dev via nodad");
  EXPECT_NE("", found("via", 2));
  EXPECT_NE(found("via", 0), found("via", 2));
}

namespace {

// These functions ask the ip tool.
class Tool : public testing::Test {
 protected:
  void SetUp() override {
    sandbox::clear_console();
  }
  // Returns the address as text, or "" if there was none; then `left` must stand in its place.
  template <typename Ask>
  static std::string asked(Ask ask, const Address &left) {
    Address address = filled;
    const int result = ask(address.data());
    if (result != 0) {
      EXPECT_EQ(1, result);
      EXPECT_EQ(left, address);
      return "";
    }
    char text[INET6_ADDRSTRLEN];
    return inet_ntop(AF_INET6, address.data(), text, sizeof(text));
  }
  static std::string address(const char *ifname, int which) {
    return asked([=](unsigned char *out) { return j_get_ip6_by_ifname(ifname, which, out); }, Address{});
  }
  static std::string gateway(const char *ifname, const Address &left = filled) {
    return asked([=](unsigned char *out) { return get_gw6_by_ifname(ifname, out); }, left);
  }
  // Has each stand-in of a pipeline write its arguments to a file of its own, because they run at the same time.
  static void record_calls() {
    for (const char *tool : {"ip", "grep", "awk"})
      sandbox::write_file(std::string("/run/stand-in/") + tool,
                          "#!/bin/sh\n{ for a; do printf '[%s]' \"$a\"; done; echo; } >>\"$0\".calls\n");
  }
  static Texts recorded_calls() {
    Texts lines;
    for (const char *tool : {"ip", "grep", "awk"})
      lines.push_back(sandbox::read_file(std::string("/run/stand-in/") + tool + ".calls"));
    return lines;
  }
  // Has the ip tool print this text from now on.
  static void let_ip_say(const std::string &text) {
    sandbox::write_file("/run/stand-in/ip", "#!/bin/sh\ncat <<'END'\n" + text + "END\n");
  }
};

} // namespace

TEST_F(Tool, RunsExactlyTheseCommands) {
  const struct {
    int which;
    const char *word;
  } cases[] = {{0, "global"}, {1, "link"}, {2, "global"}, {3, "global"}, {-1, "global"}};
  for (const auto &row : cases) {
    const sandbox::StandIns tools({"ip", "grep", "awk"});
    record_calls();
    EXPECT_EQ("", address("eth0.7", row.which));
    EXPECT_EQ((Texts{"[-6][address][show][dev][eth0.7]\n", std::string("[") + row.word + "]\n", "[{print $2}]\n"}),
              recorded_calls());
  }
  const sandbox::StandIns tools({"ip", "grep", "awk"});
  record_calls();
  EXPECT_EQ("", gateway("ppp0"));
  EXPECT_EQ((Texts{"[-6][route][show][match][::/0][dev][ppp0]\n", "[default via]\n", "[{print $3$2}]\n"}),
            recorded_calls());
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(Tool, ReadsAddressesFromTheOutput) {
  const sandbox::StandIns tools({"ip"});
  let_ip_say(
      "4: eth0: <BROADCAST,MULTICAST,UP> mtu 1500 state UP qlen 1000\n"
      "    inet6 2001:DB8::1/64 scope global dynamic\n"
      "       valid_lft 86000sec preferred_lft 14000sec\n"
      "    inet6 fd00::2/128 scope global\n"
      "    inet6 2001:db8::3/64 scope global\n"
      "    inet6 fe80::4/64 scope link\n"
      "    inet6 fe80::5/64 scope link\n");
  EXPECT_EQ("2001:db8::1", address("eth0", 0));
  EXPECT_EQ("fe80::4", address("eth0", 1));
  EXPECT_EQ("fd00::2", address("eth0", 2));
  EXPECT_EQ("2001:db8::1", address("eth0", 3));
}

TEST_F(Tool, AMissingLineIsNoAddress) {
  const sandbox::StandIns tools({"ip"});
  let_ip_say("    inet6 2001:db8::1/64 scope global\n");
  EXPECT_EQ("", address("eth0", 1));
  EXPECT_EQ("", address("eth0", 2));
  EXPECT_EQ("2001:db8::1", address("eth0", 0));
  let_ip_say("");
  EXPECT_EQ("", address("eth0", 0));
}

TEST_F(Tool, AnAddressThatCannotBeReadIsZeroAndFound) {
  const sandbox::StandIns tools({"ip"});
  let_ip_say("    inet6 nonsense/64 scope global\n");
  EXPECT_EQ("::", address("eth0", 0));
  let_ip_say("    inet6 2001:db8::1 peer 2001:db8::2/64 scope global\n"); // no "/" behind the first: the newline stays
  EXPECT_EQ("::", address("eth0", 0));
  let_ip_say("    inet6 " + std::string(63, '1') + "/64 scope global\n");
  EXPECT_EQ("::", address("eth0", 0));
}

TEST_F(Tool, ReadsTheGatewayFromTheOutput) {
  const sandbox::StandIns tools({"ip"});
  let_ip_say("default via fe80::1 metric 1024 pref medium\ndefault via fe80::2 metric 2048 pref medium\n");
  EXPECT_EQ("fe80::1", gateway("eth0"));
  let_ip_say("2001:db8::/32 metric 256\n::/0 via fe80::7\n");
  EXPECT_EQ("", gateway("eth0")); // no line is left, so the address is untouched
  let_ip_say("default via 0:0:0:0:0:0:0:0 metric 1\n");
  EXPECT_EQ("", gateway("eth0", Address{})); // this line was read
  let_ip_say("default via :: metric 1\n");
  EXPECT_EQ("::", gateway("eth0")); // only the long text stands for no gateway
}

TEST_F(Tool, RefusesNamesThatMakeTheCommandTooLong) {
  const std::string name(1024, 'x');
  EXPECT_EQ("", address(name.c_str(), 0));
  EXPECT_EQ("", gateway(name.c_str()));
  EXPECT_EQ((Texts{"command too long\n", "command too long\n"}), sandbox::console_messages());
}

TEST_F(Tool, RefusesNulls) {
  Address out;
  out.fill(0xff);
  const Address before = out;
  EXPECT_EQ(1, j_get_ip6_by_ifname(nullptr, 0, out.data()));
  EXPECT_EQ(1, get_gw6_by_ifname(nullptr, out.data()));
  EXPECT_EQ(1, j_get_ip6_by_ifname("lo", 0, nullptr));
  EXPECT_EQ(1, get_gw6_by_ifname("lo", nullptr));
  EXPECT_EQ(before, out);
}

TEST_F(Tool, FindsNothingWhenItCannotBeRun) {
  const sandbox::NoDescriptors none;
  EXPECT_EQ("", address("lo", 0));
  EXPECT_EQ("", gateway("lo"));
}

TEST_F(Tool, LeavesNoDescriptorOpenAndNoChild) {
  const sandbox::StandIns tools({"ip"});
  const int before = sandbox::open_descriptors();
  let_ip_say("    inet6 2001:db8::1/64 scope global\ndefault via fe80::1 metric 1024\n");
  address("eth0", 0);
  address("eth0", 1);
  address("eth0", 2);
  gateway("eth0");
  EXPECT_EQ(before, sandbox::open_descriptors());
  EXPECT_EQ(-1, waitpid(-1, nullptr, WNOHANG));
}

TEST_F(Tool, AsksTheRealOne) {
  const Via via;
  if (!via.made())
    GTEST_SKIP() << via.reason();
  const sandbox::Outcome routed = run("ip -6 route add default via fe80::1 dev via");
  if (routed.status != 0)
    GTEST_SKIP() << "no route: " << routed.output;
  EXPECT_EQ("2001:db8::77", address("via", 0));
  EXPECT_EQ("fe80::77", address("via", 1));
  EXPECT_EQ("", address("via", 2));
  EXPECT_EQ("fe80::1", gateway("via"));
  EXPECT_EQ("", gateway("vib"));
  EXPECT_EQ("", address("vib", 0));
  run("ip addr add 2001:db8::78/64 dev via nodad");
  EXPECT_NE("", address("via", 2));
  EXPECT_NE(address("via", 0), address("via", 2));
}
